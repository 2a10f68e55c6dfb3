// kivcs2 services: publishes, lists, finds and watches services on the local network.
#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Terminal/EndSignals.h"
#include "Terminal/Output.h"
#include "Words/Discovery.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2Bonjour.h>
#include <KIVPlatform/KIVPNetService.h>

#include <arpa/inet.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <thread>

namespace tool
{
namespace
{

using namespace std::chrono_literals;

// A list is complete this long after the last service: the question waits at most 0.12 s, and a reply comes
// at most a second and 0.12 s after the previous one (RFC 6762, 5.2 and 6).
constexpr auto kQuietTime = 1500ms;

struct Options
{
    std::string name, type, domain;
    uint32_t port = 0;
    uint32_t timeout = 5000; // milliseconds
    uint64_t count = 0;      // 0: without limit
    std::vector<std::string> texts;
    bool terminate = false;
};

// A worker's results for the main thread: an exception must not cross the library's callbacks.
template <class Value>
class Arrivals
{
public:
    void put(const std::function<Value()> &make) noexcept
    {
        try
        {
            Value value = make();
            const std::lock_guard lock{m_mutex};
            m_values.push_back(std::move(value));
        }
        catch (const std::bad_alloc &)
        {
            // the result is not listed
        }
        EndSignals::wake();
    }
    [[nodiscard]] std::optional<Value> take()
    {
        const std::lock_guard lock{m_mutex};
        if (m_values.empty())
            return std::nullopt;
        Value value = std::move(m_values.front());
        m_values.pop_front();
        return value;
    }

private:
    std::mutex m_mutex;
    std::deque<Value> m_values;
};

struct Found
{
    std::string name, host;
    std::vector<std::string> addresses;
    uint32_t port = 0;
};

// The full text behind the library's ASCII form, which has "?" for other characters; `ascii` if there
// is none.
std::string wholeText(CFStringRef text, const char *ascii)
{
    char characters[4 * KIVCS2BonjourNameMax] = {};
    return text != nullptr && CFStringGetCString(text, characters, sizeof characters, kCFStringEncodingUTF8)
               ? characters
               : ascii;
}

Found describe(KIVCS2BonjourBrowser *browser, KIVCS2BonjourService *service)
{
    Found found;
    const char *text = nullptr;
    KIVCS2BonjourAddress *address = nullptr;
    const auto *record =
        service != nullptr ? service : reinterpret_cast<KIVCS2BonjourService *>(browser->m_services.m_next);
    check(kivCS2Bonjour_getServiceName(browser, service, &text), "name");
    found.name = wholeText(CFNetServiceGetName(record->m_service), text);
    check(kivCS2Bonjour_getHostname(browser, service, &text), "host");
    found.host = wholeText(CFNetServiceGetTargetHost(record->m_service), text);
    check(kivCS2Bonjour_getFirstPort(browser, service, &found.port), "port");
    check(kivCS2Bonjour_getAddressesList(browser, service, &address), "addresses");
    for (; address != nullptr; address = reinterpret_cast<KIVCS2BonjourAddress *>(address->m_elem.m_next))
    {
        char dotted[INET_ADDRSTRLEN];
        in_addr ipv4{};
        ipv4.s_addr = address->m_address;
        found.addresses.emplace_back(::inet_ntop(AF_INET, &ipv4, dotted, sizeof dotted));
    }
    return found;
}

Json asJson(const Found &found)
{
    return {{"name", found.name}, {"host", found.host}, {"port", found.port}, {"addresses", found.addresses}};
}

Shown asLine(const Found &found)
{
    Shown line = found.name;
    line.addCell(found.host.empty() ? "-" : found.host);
    std::string where;
    for (const std::string &address : found.addresses)
        where += (where.empty() ? "" : ",") + address + ":" + std::to_string(found.port);
    line.addCell(where.empty() ? "-" : where);
    return line;
}

// Holds a browser for its lifetime.
class Browser
{
public:
    Browser()
    {
        check(kivCS2Bonjour_initBrowserData(&record), "browser");
    }
    Browser(const Browser &) = delete;
    Browser &operator=(const Browser &) = delete;
    ~Browser()
    {
        (void)kivCS2Bonjour_diposeBrowserData(&record); // not null, and not in its own callback: cannot fail
    }

    KIVCS2BonjourBrowser record{};
};

constexpr size_t kLabelMax = 63; // RFC 1035, 2.3.4

[[nodiscard]] bool isASCII(char c) noexcept
{
    return static_cast<unsigned char>(c) < 0x80;
}

[[nodiscard]] bool isLabel(std::string_view label) noexcept
{
    return !label.empty() && label.size() <= kLabelMax;
}

std::vector<std::string_view> labelsOf(std::string_view name)
{
    std::vector<std::string_view> labels;
    if (name.ends_with('.'))
        name.remove_suffix(1);
    for (size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.'))
    {
        labels.push_back(name.substr(0, dot));
        name.remove_prefix(dot + 1);
    }
    labels.push_back(name);
    return labels;
}

// The library does not report failures of searching and publishing, so what cannot be done is refused before.
void requireDiscovery()
{
    if (!canDiscover())
        throw Failure(kExitNotHere,
                      "services cannot be searched or published: the Avahi daemon does not respond, "
                      "and Avahi's libraries or free descriptors are missing");
}

void requireDomain(const std::string &domain)
{
    if (!domain.empty() &&
        (!std::ranges::all_of(labelsOf(domain), isLabel) || !std::ranges::all_of(domain, isASCII)))
        throw Failure(kExitUsage, "\"" + visible(domain) + "\" is not a domain");
}

// Avahi does not carry types of one letter.
void requireNames(const Options &options)
{
    const auto isPlain = [](char c)
    { return c == '-' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    const std::vector<std::string_view> type = labelsOf(options.type);
    if (type.size() != 2 || type[0].size() < 3 || type[0].size() > kLabelMax || type[0][0] != '_' ||
        !std::ranges::all_of(type[0].substr(1), isPlain) || (type[1] != "_tcp" && type[1] != "_udp"))
        throw Failure(kExitUsage,
                      "\"" + visible(options.type) + "\" is not a service type such as _http._tcp");
    requireDomain(options.domain);
    if (!std::ranges::all_of(options.name, isASCII))
        throw Failure(kExitUsage, "\"" + visible(options.name) + "\" is not ASCII");
}

// Makes the TXT record: every text after its length.
std::string packTexts(const std::vector<std::string> &texts)
{
    std::string record;
    for (const std::string &text : texts)
    {
        if (text.size() > 255)
            throw Failure(kExitUsage, "a text of a TXT record has 255 bytes at most");
        record += static_cast<char>(text.size());
        record += text;
    }
    return record;
}

std::vector<std::string> unpackTexts(std::string_view record)
{
    std::vector<std::string> texts;
    while (!record.empty())
    {
        const auto length = static_cast<unsigned char>(record.front());
        const std::string_view text = record.substr(1, length);
        if (!text.empty())
            texts.emplace_back(text);
        record.remove_prefix(1 + text.size());
    }
    return texts;
}

// The current name of the published service; "" if it is not published. The name is ASCII, because its
// source is.
std::string publishedName(const KIVCS2BonjourPublisher &publisher)
{
    std::string text;
    if (CFStringRef name = KIVPNetServiceCopyPublishedName(publisher.m_service); name != nullptr)
    {
        char characters[KIVCS2BonjourNameMax] = {};
        if (CFStringGetCString(name, characters, sizeof characters, kCFStringEncodingUTF8))
            text = characters;
        CFRelease(name);
    }
    return text;
}

// Waits for an end signal, and writes a line whenever the service gets a name.
void tellNames(const KIVCS2BonjourPublisher &publisher, const EndSignals &signals, bool json)
{
    constexpr auto kLookAgainAfter = 50ms; // the network takes a second to accept a name
    std::string told;
    do
    {
        const std::string name = publishedName(publisher);
        if (name.empty() || name == told)
            continue;
        told = name;
        if (json)
            out().write(jsonText(Json{{"name", name}}) + "\n");
        else
            out().line(name);
        out().flush();
    } while (signals.waitFor(told.empty() ? kLookAgainAfter : 1s) != EndSignals::Event::End);
}

int publish(const Options &options, bool json)
{
    requireNames(options);
    if (options.name.empty() || options.name.size() > 63)
        throw Failure(kExitUsage, "a service's name has 1 to 63 bytes");
    const std::string texts = packTexts(options.texts);
    requireDiscovery();
    const EndSignals signals;
    KIVCS2BonjourPublisher publisher{};
    check(kivCS2Bonjour_startPublishingService(&publisher, options.domain.c_str(), options.type.c_str(),
                                               options.name.c_str(), options.port),
          "\"" + visible(options.name) + "\" cannot be published");
    bool hasTexts = texts.empty();
    if (!hasTexts)
        if (CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>(texts.data()),
                                          static_cast<CFIndex>(texts.size()));
            data != nullptr)
        {
            hasTexts = CFNetServiceSetTXTData(publisher.m_service, data);
            CFRelease(data);
        }
    if (hasTexts)
        tellNames(publisher, signals, json);
    (void)kivCS2Bonjour_endPublishingService(&publisher); // not null: cannot fail
    if (!hasTexts)
        throw Failure(kExitUsage, "the texts are more than a TXT record holds");
    return kExitYes;
}

// Returns whether no service is being resolved; the browser holds its mutex meanwhile. A service without a
// reply takes two seconds.
bool isResting(KIVCS2BonjourBrowser &browser)
{
    if (KIVCS2_FAILED(kivCS2Mutex_tryLock(&browser.m_mutex)))
        return false;
    (void)kivCS2Mutex_unlock(&browser.m_mutex); // held by this thread
    return true;
}

int browse(const Options &options, bool json)
{
    requireNames(options);
    requireDiscovery();
    const EndSignals signals;
    Arrivals<Found> arrivals;
    Browser browser;
    const auto came =
        [](KIVCS2BonjourBrowser *from, KIVCS2BonjourService *service, void *context, KIVCS2BonjourBrowser *)
    { static_cast<Arrivals<Found> *>(context)->put([from, service] { return describe(from, service); }); };
    check(kivCS2Bonjour_findServices(&browser.record, options.domain.c_str(), options.type.c_str(), came,
                                     &arrivals),
          "\"" + visible(options.type) + "\" cannot be searched");

    std::optional<JsonArray> list;
    if (json)
        list.emplace();
    auto last = std::chrono::steady_clock::now();
    uint64_t listed = 0;
    for (;;)
    {
        while (const std::optional<Found> found = arrivals.take())
        {
            if (json)
                list->add(asJson(*found));
            else
                out().line(asLine(*found));
            ++listed;
            last = std::chrono::steady_clock::now();
        }
        out().flush();
        const auto limit = options.terminate ? last + kQuietTime - std::chrono::steady_clock::now()
                                             : std::chrono::nanoseconds{1h};
        if (options.terminate && limit <= 0s)
        {
            if (isResting(browser.record))
                break;
            last = std::chrono::steady_clock::now();
            continue;
        }
        if (signals.waitFor(limit) == EndSignals::Event::End)
            break;
    }
    if (json)
        list->close();
    return listed > 0 || !options.terminate ? kExitYes : kExitNo;
}

// Searches for the names of services through the platform, because the library's browser accepts only types
// of two labels, and resolves every service.
class NameSearch
{
public:
    NameSearch(const std::string &type, const std::string &domain)
        : m_type(CFStringCreateWithCString(nullptr, type.c_str(), kCFStringEncodingUTF8)),
          m_domain(CFStringCreateWithCString(nullptr, domain.c_str(), kCFStringEncodingUTF8))
    {
        CFNetServiceClientContext context{0, this, nullptr, nullptr, nullptr};
        m_browser = CFNetServiceBrowserCreate(nullptr, came, &context);
        if (m_type == nullptr || m_domain == nullptr || m_browser == nullptr)
            throw std::bad_alloc{};
        m_thread = std::thread{
            [this] { (void)CFNetServiceBrowserSearchForServices(m_browser, m_domain, m_type, nullptr); }};
    }
    NameSearch(const NameSearch &) = delete;
    NameSearch &operator=(const NameSearch &) = delete;
    ~NameSearch()
    {
        CFNetServiceBrowserInvalidate(m_browser);
        m_thread.join();
        CFRelease(m_browser);
        CFRelease(m_type);
        CFRelease(m_domain);
    }

    [[nodiscard]] std::optional<std::string> take()
    {
        return m_names.take();
    }

private:
    static void came(CFNetServiceBrowserRef, CFOptionFlags flags, CFTypeRef service, CFStreamError *,
                     void *info)
    {
        if (service == nullptr || (flags & kCFNetServiceFlagRemove) != 0)
            return;
        static_cast<NameSearch *>(info)->m_names.put(
            [service] {
                return wholeText(
                    CFNetServiceGetName(static_cast<CFNetServiceRef>(const_cast<void *>(service))), "");
            });
    }

    CFStringRef m_type;
    CFStringRef m_domain;
    CFNetServiceBrowserRef m_browser = nullptr;
    Arrivals<std::string> m_names;
    std::thread m_thread;
};

// The names that each search finds until no more come for a while, without duplicates; empty after an end
// signal.
std::optional<std::vector<std::set<std::string>>>
namesOf(std::span<const std::unique_ptr<NameSearch>> searches, const EndSignals &signals)
{
    std::vector<std::set<std::string>> found(searches.size());
    auto last = std::chrono::steady_clock::now();
    for (;;)
    {
        for (size_t index = 0; index < searches.size(); ++index)
            while (const auto name = searches[index]->take())
            {
                found[index].insert(*name);
                last = std::chrono::steady_clock::now();
            }
        const auto left = last + kQuietTime - std::chrono::steady_clock::now();
        if (left <= 0s)
            return found;
        if (signals.waitFor(left) == EndSignals::Event::End)
            return std::nullopt;
    }
}

// The replies to the question for types (RFC 6763, 9) are names such as "_http", and the platform omits the
// protocol after it, so the services of both protocols are searched for.
int listTypes(const Options &options, bool json)
{
    requireDomain(options.domain);
    requireDiscovery();
    const EndSignals signals;
    std::vector<std::unique_ptr<NameSearch>> searches;
    searches.push_back(std::make_unique<NameSearch>("_services._dns-sd._udp", options.domain));
    const auto labels = namesOf(searches, signals);
    searches.clear();
    std::vector<std::string> types;
    for (const std::string &label : labels ? labels->front() : std::set<std::string>{})
        for (const char *protocol : {"._tcp", "._udp"})
        {
            types.push_back(label + protocol);
            searches.push_back(std::make_unique<NameSearch>(types.back(), options.domain));
        }
    const auto services = namesOf(searches, signals);
    if (!services)
        return kExitNo;
    Json list = Json::array();
    Table table{"Type", ">Services"};
    for (size_t index = 0; index < types.size(); ++index)
        if (const size_t number = (*services)[index].size(); number > 0)
        {
            list.push_back({{"type", types[index]}, {"services", number}});
            table.add({types[index], std::to_string(number)});
        }
    if (json)
        out().json(list);
    else if (!list.empty())
        table.print();
    return list.empty() ? kExitNo : kExitYes;
}

// Cleans up to end the process during a search for the first service, which always runs until its time-out:
// otherwise the names of its semaphores would stay on the machine.
[[noreturn]] void leaveSearch(KIVCS2BonjourBrowser &browser)
{
    (void)kivCS2Bonjour_stopServiceBrowser(&browser); // the worker's semaphore goes with it
    KIVCS2Semaphore same;
    if (KIVCS2_SUCCEEDED(kivCS2Semaphore_init(&same, browser.m_semaphore.m_name)))
        (void)kivCS2Semaphore_free(&same); // removes the name; no thread waits
    std::_Exit(kExitNo);
}

void findFirst(Browser &browser, const Options &options, const EndSignals &signals)
{
    requireNames(options);
    requireDiscovery();
    std::atomic<bool> isDone = false;
    KIVCS2Status status = KIVCS2STATUS_OK;
    std::thread search{[&]
                       {
                           status = kivCS2Bonjour_findFirstService(&browser.record, options.domain.c_str(),
                                                                   options.type.c_str(), options.name.c_str(),
                                                                   options.timeout);
                           isDone = true;
                           EndSignals::wake();
                       }};
    while (!isDone)
        if (signals.waitFor(1h) == EndSignals::Event::End && !isDone)
            leaveSearch(browser.record);
    search.join();
    check(status,
          "\"" + visible(options.name) + "\"" +
              (status == KIVCS2STATUS_TIMEOUT_ERR ? ": no program offers it" : " cannot be searched"));
}

int first(const Options &options, bool json)
{
    const EndSignals signals;
    Browser browser;
    findFirst(browser, options, signals);
    const Found found = describe(&browser.record, nullptr);
    if (json)
        out().json(asJson(found));
    else
        out().line(asLine(found));
    return kExitYes;
}

int monitor(const Options &options, bool json)
{
    const EndSignals signals;
    Arrivals<std::string> arrivals;
    Browser browser; // ends the watch of its services too
    findFirst(browser, options, signals);
    auto *service = reinterpret_cast<KIVCS2BonjourService *>(browser.record.m_services.m_next);
    const auto changed = [](KIVCS2BonjourService *watched, void *context, KIVCS2BonjourService *)
    {
        static_cast<Arrivals<std::string> *>(context)->put(
            [watched]
            {
                const CFDataRef data = watched->m_recordData;
                return std::string{reinterpret_cast<const char *>(CFDataGetBytePtr(data)),
                                   static_cast<size_t>(CFDataGetLength(data))};
            });
    };
    check(kivCS2Bonjour_startServiceMonitor(service, changed, &arrivals),
          "\"" + visible(options.name) + "\" cannot be watched");

    std::optional<JsonArray> list;
    if (json)
        list.emplace();
    uint64_t records = 0;
    do
    {
        while (const std::optional<std::string> record = arrivals.take())
        {
            if (options.count != 0 && records == options.count)
                break;
            ++records;
            Shown line;
            for (const std::string &text : unpackTexts(*record))
                line.addCell(text);
            if (json)
                list->add(unpackTexts(*record));
            else
                out().line(line);
        }
        out().flush();
    } while ((options.count == 0 || records < options.count) &&
             signals.waitFor(1h) != EndSignals::Event::End);
    if (json)
        list->close();
    return kExitYes;
}

void addType(Word &word, Options &options)
{
    word.option("type", options.type, "Service type, such as _http._tcp").required();
    word.option("--domain", options.domain, "Domain to use instead of local");
}

void addLookingFor(Word &word, Options &options)
{
    word.option("name", options.name, "Service name, exactly").required();
    addType(word, options);
    word.option("--timeout", options.timeout, {}, "Milliseconds to look for it").shownDefault();
}

} // namespace

// Resolves a service, which begins as a search does, and does not wait for a reply.
bool canDiscover()
{
    const CFStringRef domain = CFStringCreateWithCString(nullptr, "local", kCFStringEncodingUTF8);
    const CFStringRef type = CFStringCreateWithCString(nullptr, "_kivcs2._tcp", kCFStringEncodingUTF8);
    const CFNetServiceRef service =
        domain != nullptr && type != nullptr ? CFNetServiceCreate(nullptr, domain, type, type, 0) : nullptr;
    CFStreamError error{};
    const bool found = service != nullptr && CFNetServiceResolveWithTimeout(service, 0, &error);
    if (service != nullptr)
        CFRelease(service);
    if (type != nullptr)
        CFRelease(type);
    if (domain != nullptr)
        CFRelease(domain);
    return found || error.error == kCFNetServicesErrorTimeout;
}

void addServicesCommand(Word &root, Context &context)
{
    const auto options = std::make_shared<Options>();
    Word &services = root.word("services", "Publish, list, find and watch services on the network");
    services.group(kGroupNetwork);

    Word &publishing = services.word("publish", "Offer a service until the command is ended");
    publishing.option("name", options->name, "Service name, exactly").required();
    addType(publishing, *options);
    publishing.option("port", options->port, {0, 65535}, "Port, 0 to 65535").required();
    publishing.option("--text", options->texts, "A text of its TXT record, such as rate=25; may be repeated")
        .oneAtATime();
    publishing.about(
        "Prints the name of the service; a name that is taken gets a number (\" #2\"). A signal ends the\n"
        "command and withdraws the service.");
    publishing.example(
        "timeout 2 kivcs2 services publish \"Ingest 1\" _mcc-feed._tcp 5000 --text rate=29.97");
    publishing.runs([options, &context] { return publish(*options, context.json); });

    Word &browsing = services.word("browse", "List the services of a type as they come");
    addType(browsing, *options);
    browsing.flag("-t,--terminate", options->terminate, "End when the list is complete");
    browsing.about(
        "Prints name, host, and addresses with the port of each service, once it is resolved. With -t exit\n"
        "code 1: no program offers the type.");
    browsing.example("kivcs2 services browse _mcc-feed._tcp -t");
    browsing.runs([options, &context] { return browse(*options, context.json); });

    Word &types = services.word("types", "List the types of services, and how many of each are offered");
    types.option("--domain", options->domain, "Domain to use instead of local");
    types.about(
        "Lists the types whose services respond within three seconds. Exit code 1: there is no type.");
    types.example("kivcs2 services types");
    types.runs([options, &context] { return listTypes(*options, context.json); });

    Word &finding = services.word("first", "Find one service by name");
    addLookingFor(finding, *options);
    finding.about(
        "Prints the service as kivcs2 services browse does. Exit code 6: no program offers it within\n"
        "--timeout, in milliseconds.");
    finding.example("kivcs2 services first \"Ingest 1\" _mcc-feed._tcp --timeout 500");
    finding.runs([options, &context] { return first(*options, context.json); });

    Word &monitoring = services.word("monitor", "Show a service's TXT record whenever it changes");
    addLookingFor(monitoring, *options);
    monitoring.option("--count", options->count, {}, "End after this many records; 0 goes on without end");
    monitoring.about("Looks for the service as kivcs2 services first does, then prints its record now and at "
                     "each change.\n"
                     "Exit code 6: no program offers it within --timeout, in milliseconds.");
    monitoring.example("kivcs2 services monitor \"Ingest 1\" _mcc-feed._tcp --timeout 500 --count 1");
    monitoring.runs([options, &context] { return monitor(*options, context.json); });
}

} // namespace tool
