// The documented calls of service discovery over a network that the test simulates: results from several
// interfaces, a backend that is replaced, names that are taken, records with any content.
#include "CFText.h"
#include "OwnProcesses.h"
#include "Status.h"

#include "CFNetwork/Engine.h"
#include "CFNetwork/RecordData.h"
#include "CFNetwork/Subscriptions.h"

#include "KIVCS2Bonjour.h"

#include <KIVPlatform/KIVPNetService.h>
#include <avahi-common/error.h>

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <tuple>
#include <vector>

using kiv::CFRef;
using namespace kiv::test;
using namespace kiv::discovery;

namespace
{
using Strings = std::vector<std::string>;

CFRef<CFStringRef> text(const char *characters)
{
    return CFRef<CFStringRef>{CFStringCreateWithCString(nullptr, characters, kCFStringEncodingUTF8)};
}

CFRef<CFNetServiceRef> service(const char *domain, const char *type, const char *name, SInt32 port)
{
    return CFRef<CFNetServiceRef>{
        CFNetServiceCreate(nullptr, text(domain).get(), text(type).get(), text(name).get(), port)};
}

// The network. Functions that the test sets give its results, and it notes what is announced.
struct Network
{
    std::function<void(ServiceSink &)> services = [](ServiceSink &) {};
    std::function<void(const std::string &name, uint16_t type, RecordSink &)> records =
        [](const std::string &, uint16_t, RecordSink &) {};
    std::function<int(const std::string &name)> accept = [](const std::string &) { return 0; };
    std::function<void(LocationSink &)> location = [](LocationSink &) {};
    int updating = 0; // the result of a new text
    OwnNetworks own;

    std::mutex mutex;
    std::condition_variable changed;
    Strings log;
    BackendOwner *owner = nullptr;
    GroupSink *group = nullptr;
    BackendState state = BackendState::ready;
    int backends = 0;
    std::atomic<int> ended = 0; // backends

    void note(const std::string &line)
    {
        const std::lock_guard lock{mutex};
        log.push_back(line);
        changed.notify_all();
    }
    void waitFor(const std::string &line)
    {
        std::unique_lock lock{mutex};
        changed.wait(lock, [&] { return std::ranges::find(log, line) != log.end(); });
    }
};
Network *network = nullptr;

class PlayedGroup final : public Group
{
public:
    ~PlayedGroup() override
    {
        network->note("gone");
    }
    int announce(const Announcement &what) noexcept override
    {
        const int error = network->accept(what.name);
        if (error == 0)
            network->note(std::string{what.name} + ":" + std::to_string(what.port) + ":" +
                          std::string{what.text.begin(), what.text.end()});
        return error;
    }
    int updateText(const Announcement &what) noexcept override
    {
        network->note("text " + std::string{what.text.begin(), what.text.end()});
        return network->updating;
    }
    void withdraw() noexcept override
    {
        network->note("withdrawn");
    }
};

class PlayedBackend final : public Backend
{
public:
    ~PlayedBackend() override
    {
        ++network->ended;
        network->ended.notify_all();
    }
    [[nodiscard]] BackendState state() const noexcept override
    {
        return network->state;
    }
    [[nodiscard]] OwnNetworks networks() const override
    {
        return network->own;
    }
    std::unique_ptr<Handle> browseServices(const char *, const char *, ServiceSink &sink,
                                           int &) noexcept override
    {
        network->services(sink);
        return std::make_unique<Handle>();
    }
    std::unique_ptr<Handle> browseRecords(const char *name, uint16_t type, RecordSink &sink,
                                          int &) noexcept override
    {
        network->records(name, type, sink);
        sink.cacheDone();
        return std::make_unique<Handle>();
    }
    std::unique_ptr<Handle> locate(const char *, const char *, const char *,
                                   LocationSink &sink) noexcept override
    {
        network->location(sink);
        return std::make_unique<Handle>();
    }
    std::unique_ptr<Group> makeGroup(GroupSink &sink, int &) noexcept override
    {
        network->group = &sink;
        return std::make_unique<PlayedGroup>();
    }
};

class Discovery : public testing::Test
{
protected:
    Discovery()
    {
        network = &m_network;
        setBackendForTesting(
            [](BackendOwner &owner) -> std::unique_ptr<Backend>
            {
                network->owner = &owner;
                ++network->backends;
                return std::make_unique<PlayedBackend>();
            });
    }
    ~Discovery() override
    {
        setBackendForTesting(nullptr);
        network = nullptr;
    }

    // Searches on this thread until the network fails the search or the callback stops it.
    Strings search(CFStreamError &error)
    {
        struct Context
        {
            Strings seen;
        } context;
        CFNetServiceClientContext client{0, &context, nullptr, nullptr, nullptr};
        const CFRef<CFNetServiceBrowserRef> browser{CFNetServiceBrowserCreate(
            nullptr,
            [](CFNetServiceBrowserRef own, CFOptionFlags flags, CFTypeRef found, CFStreamError *, void *info)
            {
                if (found == nullptr)
                    return;
                const auto each = static_cast<CFNetServiceRef>(const_cast<void *>(found));
                char name[256];
                EXPECT_TRUE(
                    CFStringGetCString(CFNetServiceGetName(each), name, sizeof name, kCFStringEncodingUTF8));
                static_cast<Context *>(info)->seen.push_back(
                    ((flags & kCFNetServiceFlagRemove) != 0 ? "-" : "+") + std::string{name});
                if (std::string_view{name} == "stop")
                    CFNetServiceBrowserStopSearch(own, nullptr);
            },
            &client)};
        EXPECT_FALSE(CFNetServiceBrowserSearchForServices(browser.get(), text("").get(),
                                                          text("_play._tcp").get(), &error));
        return context.seen;
    }

    Network m_network;
};

std::vector<uint8_t> locationData(uint16_t port, const Strings &labels)
{
    std::vector<uint8_t> data{0, 0, 0, 0, static_cast<uint8_t>(port >> 8), static_cast<uint8_t>(port)};
    for (const std::string &label : labels)
    {
        data.push_back(static_cast<uint8_t>(label.size()));
        data.insert(data.end(), label.begin(), label.end());
    }
    data.push_back(0);
    return data;
}

constexpr Place kIPv4{2, 0};
constexpr Place kIPv6{2, 1};
constexpr Place kOther{3, 0};
} // namespace

TEST(RecordData, LocationsAreReadWholeOrNotAtAll)
{
    const std::vector<uint8_t> whole = locationData(0x1234, {"encoder", "local"});
    const auto location = readServerLocation(whole);
    ASSERT_TRUE(location);
    EXPECT_EQ(location->port, 0x1234);
    EXPECT_EQ(location->host, "encoder.local");
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(readServerLocation({whole.data(), size})) << size;
    auto longer = whole;
    longer.push_back(0);
    EXPECT_FALSE(readServerLocation(longer));

    EXPECT_EQ(readServerLocation(locationData(1, {}))->host, "");
    EXPECT_EQ(readServerLocation(locationData(1, {"a.b", "c\\d", std::string{"\0\x7f\xff ", 4}}))->host,
              "a\\.b.c\\\\d.\\000\\127\\255\\032");
    const std::string label(63, 'x');
    EXPECT_TRUE(readServerLocation(locationData(1, {label, label, label, std::string(61, 'y')})));
    EXPECT_FALSE(readServerLocation(locationData(1, {label, label, label, std::string(62, 'y')})))
        << "more than 255 octets";
    EXPECT_FALSE(readServerLocation(locationData(1, {std::string(64, 'x')})));
    EXPECT_FALSE(readServerLocation(std::vector<uint8_t>{0, 0, 0, 0, 0, 1, 0xc0, 0x0c})) << "a pointer";
}

TEST(RecordData, TextsStandBehindTheirLengths)
{
    const auto isText = [](std::string_view data) {
        return isTextRecord({reinterpret_cast<const uint8_t *>(data.data()), data.size()});
    };
    EXPECT_TRUE(isText(""));
    EXPECT_TRUE(isText(std::string_view{"\1a\0\2bc", 6}));
    EXPECT_FALSE(isText("\2a"));
    EXPECT_FALSE(isText("\1"));
    EXPECT_TRUE(isLocalName("a.b.LOCAL."));
    EXPECT_TRUE(isLocalName("local"));
    EXPECT_FALSE(isLocalName("notlocal"));
    EXPECT_FALSE(isLocalName("local.example"));
}

TEST(Data, KeepsCopiesAndComparesThem)
{
    UInt8 bytes[] = {1, 2, 3};
    const CFRef<CFDataRef> data{CFDataCreate(nullptr, bytes, 3)};
    const CFRef<CFDataRef> same{CFDataCreate(nullptr, bytes, 3)};
    bytes[0] = 9;
    const CFRef<CFDataRef> other{CFDataCreate(nullptr, bytes, 3)};
    const CFRef<CFDataRef> none{CFDataCreate(nullptr, nullptr, 0)};
    EXPECT_TRUE(CFEqual(data.get(), same.get()) && CFHash(data.get()) == CFHash(same.get()));
    EXPECT_FALSE(CFEqual(data.get(), other.get()) || CFEqual(data.get(), none.get()));
    EXPECT_TRUE(CFDataGetLength(none.get()) == 0 && CFDataCreate(nullptr, bytes, -1) == nullptr);
    UInt8 copy[] = {0, 0, 0, 0};
    CFDataGetBytes(data.get(), CFRangeMake(1, 9), copy);
    EXPECT_THAT(copy, testing::ElementsAre(2, 3, 0, 0));
}

TEST_F(Discovery, NamesThatDNSCannotCarryAreRefusedBeforeTheNetworkIsAsked)
{
    const std::string tooLong(64, 'x');
    using Row = std::tuple<const char *, const char *, const char *>;
    for (const auto &[domain, type, name] :
         {Row{"", "http", "x"}, Row{"", "", "x"}, Row{"", "_a..b", "x"}, Row{"..", "_play._tcp", "x"},
          Row{"", "_play._tcp", tooLong.c_str()}})
    {
        const auto bad = service(domain, type, name, 1);
        CFStreamError error{};
        EXPECT_FALSE(CFNetServiceRegisterWithOptions(bad.get(), 0, &error));
        EXPECT_EQ(error.error, kCFNetServicesErrorBadArgument);
        EXPECT_EQ(error.domain, kCFStreamErrorDomainNetServices);
        EXPECT_FALSE(CFNetServiceResolveWithTimeout(bad.get(), 60, &error));
        EXPECT_EQ(error.error, kCFNetServicesErrorBadArgument);
    }
    EXPECT_EQ(service("", "_play._tcp", "x", 65536).get(), nullptr);
    EXPECT_EQ(service("", "_play._tcp", "x", -2).get(), nullptr);
    EXPECT_EQ(m_network.backends, 0);
}

TEST_F(Discovery, WhatWasEndedBeforeItBeganEndsAtOnce)
{
    const auto cancelled = service("", "_play._tcp", "x", 1);
    CFNetServiceCancel(cancelled.get());
    CFStreamError error{};
    EXPECT_FALSE(CFNetServiceRegisterWithOptions(cancelled.get(), 0, &error));
    EXPECT_EQ(error.error, kCFNetServicesErrorCancel);
    EXPECT_FALSE(CFNetServiceResolveWithTimeout(cancelled.get(), 60, nullptr));

    const CFRef<CFNetServiceMonitorRef> monitor{CFNetServiceMonitorCreate(
        nullptr, cancelled.get(),
        [](CFNetServiceMonitorRef, CFNetServiceRef, CFNetServiceMonitorType, CFDataRef, CFStreamError *,
           void *) { ADD_FAILURE() << "called"; },
        nullptr)};
    CFStreamError reason{7, 8};
    CFNetServiceMonitorStop(monitor.get(), &reason);
    CFNetServiceMonitorInvalidate(monitor.get());
    EXPECT_FALSE(CFNetServiceMonitorStart(monitor.get(), kCFNetServiceMonitorTXT, &error));
    EXPECT_EQ(error.domain, 7) << "the first end's reason counts";
    EXPECT_EQ(error.error, 8);
    EXPECT_EQ(m_network.backends, 0);
}

TEST_F(Discovery, AServiceIsToldOnceForAllInterfaces)
{
    m_network.services = [](ServiceSink &sink)
    {
        sink.serviceSeen(true, kIPv4, "A");
        sink.serviceSeen(true, kIPv6, "A");
        sink.serviceSeen(true, kIPv6, "A");
        sink.serviceSeen(false, kIPv4, "A");
        sink.serviceSeen(false, kOther, "A");
        sink.serviceSeen(true, kIPv4, "\xff"); // no UTF-8
        sink.serviceSeen(false, kIPv6, "A");
        sink.serviceSeen(false, kIPv6, "never");
        sink.serviceSeen(true, kOther, "A");
        sink.serviceSeen(true, kOther, "stop");
        sink.serviceSeen(true, kOther, "behind the end");
    };
    CFStreamError error{};
    EXPECT_THAT(search(error), testing::ElementsAre("+A", "-A", "+A", "+stop"));
    EXPECT_EQ(error.error, kCFNetServicesErrorCancel);
}

TEST_F(Discovery, ANewBackendIsAskedForAllAndMissesAreRemovals)
{
    m_network.services = [this](ServiceSink &sink)
    {
        if (m_network.backends == 1)
        {
            sink.serviceSeen(true, kIPv4, "goes with the daemon");
            sink.serviceSeen(true, kIPv4, "stays");
            m_network.state = BackendState::lost;
            m_network.owner->backendChanged();
            return;
        }
        m_network.state = BackendState::ready;
        sink.serviceSeen(true, kIPv6, "stays");
        sink.allServicesForNow();
        sink.browsingFailed(AVAHI_ERR_DISCONNECTED); // the daemon has gone: search again
        sink.browsingFailed(AVAHI_ERR_NO_NETWORK);
    };
    CFStreamError error{};
    EXPECT_THAT(search(error),
                testing::ElementsAre("+goes with the daemon", "+stays", "-goes with the daemon"));
    EXPECT_EQ(error.error, kCFNetServicesErrorInvalid);
    EXPECT_EQ(m_network.backends, 2);
}

TEST_F(Discovery, ResolvingCollectsTheAddressesOfTheHost)
{
    m_network.records = [](const std::string &name, uint16_t type, RecordSink &sink)
    {
        const auto address = [](std::initializer_list<uint8_t> bytes) { return std::vector<uint8_t>{bytes}; };
        if (type == kTypeSRV)
        {
            EXPECT_EQ(name, "a\\.b._play._tcp.local");
            sink.recordSeen(true, kIPv4, std::vector<uint8_t>{1, 2});
            sink.recordSeen(true, kIPv4, locationData(1, {"old", "local"}));
            sink.recordSeen(true, kIPv4, locationData(5000, {"encoder", "local"}));
            sink.recordSeen(true, kIPv6, locationData(5000, {"encoder", "local"}));
        }
        else if (name == "old.local")
        {
            sink.recordSeen(true, kIPv4, address({1, 1, 1, 1}));
        }
        else if (type == kTypeA)
        {
            sink.recordSeen(true, kIPv4, address({10, 0, 0, 7}));
            sink.recordSeen(true, kOther, address({10, 0, 0, 7}));
            sink.recordSeen(true, kOther, address({10, 1, 0, 7}));
            sink.recordSeen(true, kOther, address({10, 1, 0}));
            sink.recordSeen(false, kOther, address({10, 9, 9, 9}));
        }
        else
        {
            sink.recordSeen(true, kIPv6, address({0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
            sink.recordSeen(true, kOther, address({0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
        }
    };
    const auto found = service("", "_play._tcp.", "a.b", -1);
    EXPECT_EQ(CFNetServiceGetTargetHost(found.get()), nullptr);
    EXPECT_EQ(CFNetServiceGetAddressing(found.get()), nullptr);
    CFStreamError error{1, 1};
    ASSERT_TRUE(CFNetServiceResolveWithTimeout(found.get(), 60, &error));
    EXPECT_EQ(error.error, 0);
    EXPECT_TRUE(CFEqual(CFNetServiceGetTargetHost(found.get()), text("encoder.local").get()));
    EXPECT_EQ(CFNetServiceGetPortNumber(found.get()), 5000);
    const CFArrayRef addresses = CFNetServiceGetAddressing(found.get());
    Strings hosts;
    for (CFIndex index = 0; index < CFArrayGetCount(addresses); ++index)
    {
        const auto data = static_cast<CFDataRef>(CFArrayGetValueAtIndex(addresses, index));
        SocketAddress address{};
        ASSERT_LE(CFDataGetLength(data), static_cast<CFIndex>(sizeof address));
        std::memcpy(&address, CFDataGetBytePtr(data), static_cast<size_t>(CFDataGetLength(data)));
        EXPECT_EQ(ntohs(address.v4.sin_port), 5000);
        hosts.push_back(address.any.sa_family == AF_INET
                            ? std::to_string(ntohl(address.v4.sin_addr.s_addr) >> 16 & 0xff)
                            : "%" + std::to_string(address.v6.sin6_scope_id));
    }
    EXPECT_THAT(hosts, testing::ElementsAre("0", "1", "%2", "%3"));
}

TEST(OwnNetworks, AHostIsHeardOnTheNetworksThatItMayBeOn)
{
    const auto address = [](const char *text)
    {
        in_addr parsed{};
        EXPECT_EQ(inet_pton(AF_INET, text, &parsed), 1);
        return parsed;
    };
    const OwnNetworks networks{{{1, address("127.0.0.1"), true, true},
                                {2, address("10.0.0.1"), false, true},
                                {2, address("10.0.0.9"), false, true},
                                {3, address("10.1.0.1"), false, true},
                                {4, address("10.2.0.1"), false, false}}};
    EXPECT_TRUE(networks.isOwn(address("10.0.0.9")));
    EXPECT_FALSE(networks.isOwn(address("10.0.0.2")));
    for (const auto &[heardOn, other, own] : {std::tuple{std::vector{2}, false, false},
                                              {std::vector{3, 2}, true, false},
                                              {std::vector{1, 2, 3}, true, false},
                                              {std::vector{4, 3, 2, 1}, true, true}})
    {
        EXPECT_EQ(networks.areAll(heardOn, false), other);
        EXPECT_EQ(networks.areAll(heardOn, true), own);
    }
    EXPECT_TRUE(OwnNetworks{}.areAll(std::vector{2}, false)) << "the system has reported none";
    EXPECT_TRUE(OwnNetworks::read().isOwn({htonl(INADDR_LOOPBACK)}) && !OwnNetworks::read().areAll({}, true));
}

// The second network answers later, on another thread: the first result is not the whole list.
TEST_F(Discovery, AHostOnTwoNetworksIsToldWithBothAddressesInTheirOrder)
{
    in_addr own{};
    own.s_addr = htonl(0x0a000001);
    m_network.own = OwnNetworks{{{kIPv4.interface, own, false, true}, {kOther.interface, own, false, true}}};
    std::atomic<RecordSink *> later = nullptr;
    m_network.records = [&later](const std::string &, uint16_t type, RecordSink &sink)
    {
        if (type == kTypeSRV)
            sink.recordSeen(true, kIPv4, locationData(5000, {"encoder", "local"}));
        else if (type == kTypeA)
        {
            sink.recordSeen(true, kOther, std::vector<uint8_t>{10, 1, 0, 7});
            later = &sink;
            later.notify_all();
        }
    };
    std::thread second{[&later]
                       {
                           later.wait(nullptr);
                           withEngineLocked(
                               [](void *sink) {
                                   static_cast<RecordSink *>(sink)->recordSeen(
                                       true, kIPv4, std::vector<uint8_t>{10, 0, 0, 7});
                               },
                               later.load());
                       }};
    const auto found = service("", "_play._tcp", "x", -1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(CFNetServiceResolveWithTimeout(found.get(), 60, nullptr));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{10});
    second.join();
    const CFArrayRef addresses = CFNetServiceGetAddressing(found.get());
    std::vector<uint32_t> hosts;
    for (CFIndex index = 0; index < CFArrayGetCount(addresses); ++index)
    {
        sockaddr_in address{};
        CFDataGetBytes(static_cast<CFDataRef>(CFArrayGetValueAtIndex(addresses, index)),
                       CFRangeMake(0, sizeof address), reinterpret_cast<UInt8 *>(&address));
        hosts.push_back(ntohl(address.sin_addr.s_addr));
    }
    EXPECT_THAT(hosts, testing::ElementsAre(0x0a000007, 0x0a010007));
}

TEST_F(Discovery, ALocationThatIsToldSoonerIsNoMoreThanAHint)
{
    for (const char *hint : {"", ".", "..", "encoder.local", "other.local"})
    {
        Strings asked;
        m_network.location = [hint](LocationSink &sink) { sink.located(hint, 4999); };
        m_network.records = [&asked](const std::string &name, uint16_t type, RecordSink &sink)
        {
            if (type == kTypeSRV)
            {
                sink.recordSeen(true, kIPv4, locationData(5000, {"encoder", "local"}));
                return;
            }
            asked.push_back(name);
            sink.recordSeen(true, kIPv4, std::vector<uint8_t>(type == kTypeA ? 4 : 16, 9));
        };
        const auto found = service("", "_play._tcp", "x", -1);
        ASSERT_TRUE(CFNetServiceResolveWithTimeout(found.get(), 60, nullptr)) << hint;
        EXPECT_EQ(CFNetServiceGetPortNumber(found.get()), 5000) << hint;
        EXPECT_TRUE(CFEqual(CFNetServiceGetTargetHost(found.get()), text("encoder.local").get())) << hint;
        EXPECT_EQ(CFArrayGetCount(CFNetServiceGetAddressing(found.get())), 2) << hint;
        EXPECT_THAT(asked, testing::SizeIs(std::string_view{hint}.size() > 2 ? 4 : 2)) << hint;
    }
}

TEST_F(Discovery, WhatDoesNotResolveSaysWhy)
{
    CFStreamError error{};
    const auto nobody = service("", "_play._tcp", "nobody", -1);
    EXPECT_FALSE(CFNetServiceResolveWithTimeout(nobody.get(), 0.01, &error));
    EXPECT_EQ(error.error, kCFNetServicesErrorTimeout);

    m_network.records = [](const std::string &, uint16_t, RecordSink &sink)
    { sink.recordSeen(true, kIPv4, locationData(9, {})); };
    EXPECT_FALSE(CFNetServiceResolveWithTimeout(nobody.get(), 60, &error));
    EXPECT_EQ(error.error, kCFNetServicesErrorNotFound) << "offered nowhere (RFC 2782)";

    m_network.records = [](const std::string &, uint16_t type, RecordSink &sink)
    {
        if (type == kTypeSRV)
            sink.recordSeen(true, kIPv4, locationData(9, {"host", "local"}));
        else
            sink.recordsFailed(AVAHI_ERR_NOT_SUPPORTED);
    };
    EXPECT_FALSE(CFNetServiceResolveWithTimeout(nobody.get(), 60, &error));
    EXPECT_EQ(error.error, kCFNetServicesErrorNotFound) << "nobody to ask for addresses";
    EXPECT_TRUE(CFEqual(CFNetServiceGetTargetHost(nobody.get()), text("host.local").get()));
    EXPECT_EQ(CFArrayGetCount(CFNetServiceGetAddressing(nobody.get())), 0);
}

TEST_F(Discovery, PublishingFollowsTakenNamesTextsAndTheBackend)
{
    m_network.accept = [](const std::string &name) { return name == "Ingest" ? AVAHI_ERR_COLLISION : 0; };
    const auto published = service("local.", "_play._tcp", "Ingest", 5000);
    EXPECT_EQ(utf8(CFNetServiceGetDomain(published.get())), "local.");
    EXPECT_EQ(utf8(CFNetServiceGetType(published.get())), "_play._tcp");
    const auto setText = [&published](std::string_view record)
    {
        const CFRef<CFDataRef> data{CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>(record.data()),
                                                 static_cast<CFIndex>(record.size()))};
        return CFNetServiceSetTXTData(published.get(), data.get());
    };
    EXPECT_FALSE(setText("\2a"));
    EXPECT_FALSE(setText(std::string(8901, '\0')));
    EXPECT_TRUE(setText("\1a"));
    CFStreamError error{};
    std::thread publishing{[&]
                           { EXPECT_FALSE(CFNetServiceRegisterWithOptions(published.get(), 0, &error)); }};
    m_network.waitFor("Ingest #2:5000:\1a");
    const auto publishedName = [&published]
    {
        const CFRef<CFStringRef> name{KIVPNetServiceCopyPublishedName(published.get())};
        return name ? utf8(name.get()) : "";
    };
    EXPECT_EQ(publishedName(), "") << "the network has not accepted it yet";
    withEngineLocked([](void *) { network->group->announced(); }, nullptr);
    EXPECT_EQ(publishedName(), "Ingest #2");
    EXPECT_FALSE(CFNetServiceRegisterWithOptions(published.get(), 0, nullptr)) << "it is being published";
    EXPECT_TRUE(setText("\1b"));
    m_network.waitFor("text \1b");

    // Another machine takes the name of the host, which gets a new one; then the daemon goes.
    const auto change = [](void *context)
    {
        network->state = *static_cast<BackendState *>(context);
        network->owner->backendChanged();
    };
    for (BackendState state : {BackendState::starting, BackendState::ready})
        withEngineLocked(change, &state);
    m_network.waitFor("Ingest #2:5000:\1b");
    // Another machine takes the announced name before the host is informed.
    withEngineLocked([](void *) { network->updating = AVAHI_ERR_NOT_FOUND; }, nullptr);
    EXPECT_TRUE(setText("\1c"));
    m_network.waitFor("Ingest #2:5000:\1c");
    withEngineLocked([](void *) { network->group->nameTaken(); }, nullptr);
    m_network.waitFor("Ingest #3:5000:\1c");
    EXPECT_EQ(publishedName(), "");
    CFNetServiceCancel(published.get());
    publishing.join();
    EXPECT_EQ(error.error, kCFNetServicesErrorCancel);
    EXPECT_THAT(m_network.log,
                testing::ElementsAre("Ingest #2:5000:\1a", "text \1b", "withdrawn", "Ingest #2:5000:\1b",
                                     "text \1c", "Ingest #2:5000:\1c", "Ingest #3:5000:\1c", "gone"));
    const auto fixed = service("", "_play._tcp", "Ingest", 5000);
    EXPECT_FALSE(CFNetServiceRegisterWithOptions(fixed.get(), kCFNetServiceFlagNoAutoRename, &error));
    EXPECT_EQ(error.error, kCFNetServicesErrorCollision);

    // Without a name it has the host's, up to the first dot. The network fails after it has accepted.
    std::string name(64, '\0'), announced;
    ASSERT_EQ(gethostname(name.data(), name.size()), 0);
    m_network.accept = [&announced](const std::string &given)
    {
        announced = given;
        network->group->groupFailed(AVAHI_ERR_NO_NETWORK);
        return 0;
    };
    EXPECT_FALSE(CFNetServiceRegisterWithOptions(service("", "_play._tcp", "", 1).get(), 0, &error));
    EXPECT_EQ(error.error, kCFNetServicesErrorInvalid);
    EXPECT_EQ(announced, name.substr(0, std::min(name.find('.'), name.find('\0'))));
}

TEST_F(Discovery, AMonitorThatBeginsDuringAChangeEndsWithTheRecordThatStays)
{
    m_network.records = [](const std::string &, uint16_t, RecordSink &sink)
    {
        const std::vector<uint8_t> older{1, 'a'};
        const std::vector<uint8_t> newer{1, 'b'};
        sink.recordSeen(true, kIPv4, newer);
        sink.recordSeen(true, kIPv6, newer);
        sink.recordSeen(true, kIPv4, older);
        sink.recordSeen(false, kIPv4, older);
        sink.recordSeen(false, kIPv6, newer);
        sink.recordsFailed(AVAHI_ERR_FAILURE);
    };
    Strings told;
    CFNetServiceClientContext client{0, &told, nullptr, nullptr, nullptr};
    const auto watched = service("", "_play._tcp", "x", 1);
    const CFRef<CFNetServiceMonitorRef> monitor{CFNetServiceMonitorCreate(
        nullptr, watched.get(),
        [](CFNetServiceMonitorRef, CFNetServiceRef, CFNetServiceMonitorType, CFDataRef data, CFStreamError *,
           void *info)
        { static_cast<Strings *>(info)->emplace_back(1, static_cast<char>(CFDataGetBytePtr(data)[1])); },
        &client)};
    EXPECT_FALSE(CFNetServiceMonitorStart(monitor.get(), kCFNetServiceMonitorTXT, nullptr));
    EXPECT_THAT(told, testing::ElementsAre("b", "a", "b"));
}

namespace
{
// Announces services that have no location until `answers` is set.
class DeadServices : public Discovery
{
protected:
    static constexpr int kServices = 10;

    DeadServices()
    {
        kivCS2_initWithTaskServer(false);
        m_network.services = [](ServiceSink &sink)
        {
            for (int index = 0; index < kServices; ++index)
                sink.serviceSeen(true, kIPv4, ("dead " + std::to_string(index)).c_str());
        };
        m_network.records = [this](const std::string &, uint16_t type, RecordSink &sink)
        {
            m_network.note("asked");
            if (answers && type == kTypeSRV)
                sink.recordSeen(true, kIPv4, locationData(5000, {"encoder", "local"}));
            else if (answers && type == kTypeA)
                sink.recordSeen(true, kIPv4, std::vector<uint8_t>{10, 0, 0, 7});
        };
    }

    std::atomic<bool> answers = false;
};
} // namespace

TEST_F(DeadServices, TakeTheirTimeTogether)
{
    struct Listing
    {
        std::atomic<int> calls = 0;
    } listing;
    KIVCS2BonjourBrowser browser;
    ASSERT_OK(kivCS2Bonjour_initBrowserData(&browser));
    const auto start = std::chrono::steady_clock::now();
    ASSERT_OK(kivCS2Bonjour_findServices(
        &browser, "", "_play._tcp",
        [](KIVCS2BonjourBrowser *, KIVCS2BonjourService *, void *context, KIVCS2BonjourBrowser *)
        {
            auto &calls = static_cast<Listing *>(context)->calls;
            ++calls;
            calls.notify_all();
        },
        &listing));
    for (int calls = 0; calls < kServices; calls = listing.calls)
        listing.calls.wait(calls);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{4}) << "2 s each";
    EXPECT_OK(kivCS2Bonjour_diposeBrowserData(&browser));
    EXPECT_EQ(network->backends, 1);
}

TEST_F(DeadServices, AStopEndsTheOneThatIsBeingResolvedAndListsItNot)
{
    KIVCS2BonjourBrowser browser;
    ASSERT_OK(kivCS2Bonjour_initBrowserData(&browser));
    ASSERT_OK(kivCS2Bonjour_findServices(
        &browser, "", "_play._tcp",
        [](KIVCS2BonjourBrowser *, KIVCS2BonjourService *, void *, KIVCS2BonjourBrowser *)
        { ADD_FAILURE() << "called after the stop"; },
        nullptr));
    m_network.waitFor("asked");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_OK(kivCS2Bonjour_stopServiceBrowser(&browser));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{1})
        << "it waited for a time-out";
    EXPECT_EQ(browser.m_services.m_count, 0u);
    EXPECT_OK(kivCS2Bonjour_diposeBrowserData(&browser));
}

// Names, locations and texts from the network are listed as far as they can be used.
TEST_F(Discovery, MalformedNamesAndRecordsListWhatIsUsable)
{
    kivCS2_initWithTaskServer(false);
    const std::string longest(63, 'x');
    m_network.services = [&longest](ServiceSink &sink)
    {
        for (const char *name :
             {"caf\xc3\xa9", longest.c_str(), "dots.and\\slashes", "bad location", "\xff\xfe"})
            sink.serviceSeen(true, kIPv4, name);
        sink.browsingFailed(AVAHI_ERR_NO_NETWORK);
    };
    m_network.records = [](const std::string &name, uint16_t type, RecordSink &sink)
    {
        const bool isLong = name.starts_with('x');
        if (type == kTypeSRV && name.starts_with("bad"))
            sink.recordSeen(true, kIPv4, std::vector<uint8_t>{0, 0, 0, 0, 0, 7, 0xc0});
        else if (type == kTypeSRV) // the host is empty: the service is not available
            sink.recordSeen(true, kIPv4,
                            locationData(4, isLong ? Strings{} : Strings{"odd\\host.", "local"}));
        else if (type == kTypeA)
            sink.recordSeen(true, kIPv4, std::vector<uint8_t>{10, 0, 0, 7});
        if (type == kTypeSRV && name.starts_with("bad"))
            sink.recordsFailed(AVAHI_ERR_NOT_SUPPORTED);
    };
    struct Listed
    {
        std::atomic<size_t> count = 0;
        std::map<std::string, std::pair<std::string, uint32_t>> services; // name: host and port
    } listed;
    KIVCS2BonjourBrowser browser;
    ASSERT_OK(kivCS2Bonjour_initBrowserData(&browser));
    const auto came =
        [](KIVCS2BonjourBrowser *own, KIVCS2BonjourService *found, void *context, KIVCS2BonjourBrowser *)
    {
        auto &result = *static_cast<Listed *>(context);
        uint32_t port = 1;
        EXPECT_OK(kivCS2Bonjour_getFirstPort(own, found, &port));
        result.services[found->m_name] = {found->m_hostName, port};
        ++result.count;
        result.count.notify_all();
    };
    ASSERT_OK(kivCS2Bonjour_findServices(&browser, "", "_play._tcp", came, &listed));
    for (size_t count = 0; count < 4; count = listed.count)
        listed.count.wait(count);
    EXPECT_OK(kivCS2Bonjour_diposeBrowserData(&browser));
    using Pair = std::pair<std::string, uint32_t>;
    EXPECT_THAT(listed.services,
                testing::ElementsAre(testing::Pair("bad location", Pair{"", 0}),
                                     testing::Pair("caf?", Pair{"odd\\\\host\\..local", 4}),
                                     testing::Pair("dots.and\\slashes", Pair{"odd\\\\host\\..local", 4}),
                                     testing::Pair(longest, Pair{"", 0})));
}

// In its own process, because a success ends all browsing of the process.
TEST_F(DeadServices, ASearchForTheFirstThatTimesOutLeavesTheNextOneFree)
{
    const auto search = [](uint32_t timeout)
    {
        KIVCS2BonjourBrowser browser;
        EXPECT_OK(kivCS2Bonjour_initBrowserData(&browser));
        const KIVCS2Status status =
            kivCS2Bonjour_findFirstService(&browser, "", "_play._tcp", "dead 3", timeout);
        EXPECT_OK(kivCS2Bonjour_diposeBrowserData(&browser));
        return status;
    };
    const pid_t child = fork();
    if (child == 0)
    {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(search(100), KIVCS2STATUS_TIMEOUT_ERR);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds{1100})
            << "2 s too late";
        answers = true;
        EXPECT_OK(search(60000));
        std::exit(HasFailure() ? 1 : 0);
    }
    EXPECT_EQ(exitCodeOf(child), 0);
}

// Descriptors that a program started by this process gets.
int inheritedDescriptors()
{
    int count = 0;
    for (int descriptor = 0; descriptor < FD_SETSIZE; ++descriptor)
        count += fcntl(descriptor, F_GETFD) == 0;
    return count;
}

TEST_F(Discovery, AnEngineWithoutADaemonServesTheNextCallAndNoForkedChild)
{
    const int inherited = inheritedDescriptors();
    const auto resolve = []
    {
        const auto nobody = service("", "_play._tcp", "nobody", -1);
        EXPECT_FALSE(CFNetServiceResolveWithTimeout(nobody.get(), 0.001, nullptr));
    };
    resolve();
    EXPECT_EQ(inheritedDescriptors(), inherited);
    resolve();
    EXPECT_EQ(m_network.backends, 1);
    m_network.ended.wait(0); // six seconds later it gives its backend up
    resolve();
    EXPECT_EQ(m_network.backends, 2);
#ifndef __SANITIZE_THREAD__ // it ends a child that starts threads if its parent had any
    const pid_t child = fork();
    if (child == 0)
    {
        resolve();
        EXPECT_EQ(m_network.backends, 3);
        std::exit(HasFailure() ? 1 : 0); // neither engine leaks, and the engine of this process ends
    }
    EXPECT_EQ(exitCodeOf(child), 0);
#endif
    std::thread elsewhere{[&]
                          {
                              if (unshare(CLONE_NEWNET) != 0)
                                  return; // not allowed here
                              resolve();
                              EXPECT_EQ(m_network.backends, 3) << "another network's engine";
                          }};
    elsewhere.join();
}
