// Service discovery: arguments and records; then two machines of one network, each a process in a namespace
// of its own, that find each other. No packet leaves the test's namespaces.
#include <KIVCoreServices2/KIVCS2Bonjour.h>

#include "NetworkNamespace.h"
#include "RequiredPointers.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <csignal>
#include <cstddef>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace kiv::test;

namespace
{
constexpr const char *kType = "_kivtest._tcp";
constexpr auto kLongEnough = 60s; // bounds waits that take about a second
constexpr uint32_t kLongEnoughMs = 60000;

// ---- Machines ----

// The number of this process's mapped semaphores with the library's automatic names.
size_t semaphores()
{
    size_t count = 0;
    if (FILE *maps = std::fopen("/proc/self/maps", "r"); maps != nullptr)
    {
        char line[512];
        while (std::fgets(line, sizeof line, maps) != nullptr)
            count += std::strstr(line, "sem.kivCS2") != nullptr;
        std::fclose(maps);
    }
    return count;
}

struct Offer
{
    std::string name;
    uint32_t port;
    std::string text{}; // TXT data, as in DNS
};

bool setText(KIVCS2BonjourPublisher &publisher, const std::string &text)
{
    CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>(text.data()),
                                  static_cast<CFIndex>(text.size()));
    const bool set = CFNetServiceSetTXTData(publisher.m_service, data);
    CFRelease(data);
    return set;
}

// A process in a network namespace that takes orders until the test closes its end of the socket, or ends.
class Child
{
public:
    Child(const NetworkNamespace &network, const std::function<void(int orders)> &body)
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            std::abort();
        m_child = fork();
        if (m_child == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ends[1]);
            for (const int other : s_orders) // so that these children see the end of their orders
                close(other);
            network.enter();
            body(ends[0]);
            _exit(0);
        }
        close(ends[0]);
        m_orders = ends[1];
        s_orders.push_back(m_orders);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child()
    {
        end();
        waitpid(m_child, nullptr, 0);
    }
    void end()
    {
        if (std::erase(s_orders, m_orders) != 0)
            close(m_orders);
    }

protected:
    int m_orders = -1;

private:
    static inline std::vector<int> s_orders;
    pid_t m_child = -1;
};

// A machine that publishes until this ends.
class Machine : public Child
{
public:
    // Without a host name it has the name of this machine, so that the two machines compete for it.
    Machine(const NetworkNamespace &network, const std::vector<Offer> &offers, const char *hostName = "far",
            bool withoutIPv4 = false)
        : Child{network, [&](int orders)
                {
                    if (hostName != nullptr &&
                        (unshare(CLONE_NEWUTS) != 0 || sethostname(hostName, strlen(hostName)) != 0))
                        _exit(5);
                    if (withoutIPv4)
                        dropIPv4();
                    publish(offers, orders);
                }}
    {
    }

    // Replaces the TXT record of the first offer.
    void setFirstText(const std::string &text) const
    {
        const std::string order = static_cast<char>(text.size()) + text;
        ASSERT_EQ(write(m_orders, order.data(), order.size()), static_cast<ssize_t>(order.size()));
    }

private:
    static void publish(const std::vector<Offer> &offers, int orders)
    {
        kivCS2_initWithTaskServer(false);
        std::vector<KIVCS2BonjourPublisher> publishers(offers.size());
        for (size_t index = 0; index < offers.size(); ++index)
        {
            if (kivCS2Bonjour_startPublishingService(&publishers[index], "", kType,
                                                     offers[index].name.c_str(),
                                                     offers[index].port) != KIVCS2STATUS_OK)
                _exit(1);
            if (!offers[index].text.empty() && !setText(publishers[index], offers[index].text))
                _exit(2);
        }
        uint8_t size = 0;
        while (read(orders, &size, 1) == 1)
        {
            std::string text(size, '\0');
            if (read(orders, text.data(), size) != size || !setText(publishers[0], text))
                _exit(3);
        }
        for (KIVCS2BonjourPublisher &publisher : publishers)
            (void)kivCS2Bonjour_endPublishingService(&publisher);
    }
    static void dropIPv4()
    {
        const int control = socket(AF_INET, SOCK_DGRAM, 0);
        ifreq request{};
        std::strncpy(request.ifr_name, NetworkNamespace::kInterface, IFNAMSIZ - 1);
        request.ifr_addr.sa_family = AF_INET;
        if (ioctl(control, SIOCSIFADDR, &request) != 0) // 0.0.0.0 removes the address
            _exit(4);
        close(control);
    }
};

// Runs searches in processes of their own, so that each has its own found-first flag and engine. A process
// that was forked before this one had threads forks them.
class Searches : public Child
{
public:
    using Body = void (*)();

    explicit Searches(const NetworkNamespace &network)
        : Child{network, [](int orders)
                {
                    for (Order order{}; read(orders, &order, sizeof order) == sizeof order;)
                        if (const int failed = runAll(order); write(orders, &failed, sizeof failed) < 0)
                            break;
                }}
    {
    }

    // Runs `body` in `count` processes at once. Returns how many of them have failed.
    [[nodiscard]] int run(Body body, int count = 1) const
    {
        const Order order{body, count};
        int failed = -1;
        if (write(m_orders, &order, sizeof order) != sizeof order ||
            read(m_orders, &failed, sizeof failed) != sizeof failed)
            return -1;
        return failed;
    }

private:
    struct Order
    {
        Body body;
        int count;
    };

    static int runAll(const Order &order)
    {
        for (int index = 0; index < order.count; ++index)
            if (fork() == 0)
            {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                kivCS2_initWithTaskServer(false);
                order.body();
                EXPECT_EQ(semaphores(), 0u);
                std::exit(testing::Test::HasFailure() ? 1 : 0);
            }
        int failed = 0;
        for (int status = 0; wait(&status) > 0;)
            failed += status != 0 ? 1 : 0;
        return failed;
    }
};

// ---- Results of a browser ----

struct Seen
{
    std::string host;
    std::vector<std::string> addresses;
    uint32_t port = 0;
};

std::vector<std::string> addressesFrom(const KIVCS2BonjourAddress *address)
{
    std::vector<std::string> addresses;
    for (; address != nullptr;
         address = reinterpret_cast<const KIVCS2BonjourAddress *>(address->m_elem.m_next))
    {
        char text[INET_ADDRSTRLEN];
        addresses.emplace_back(inet_ntop(AF_INET, &address->m_address, text, sizeof text));
    }
    return addresses;
}

// A value that callbacks change and the test waits for.
template <class Value>
class Awaited
{
public:
    void change(const std::function<void(Value &)> &action)
    {
        const std::lock_guard lock{m_mutex};
        action(m_value);
        m_changed.notify_all();
    }
    Value waitUntil(const std::function<bool(const Value &)> &condition)
    {
        std::unique_lock lock{m_mutex};
        EXPECT_TRUE(m_changed.wait_for(lock, kLongEnough, [&] { return condition(m_value); }));
        return m_value;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Value m_value;
};

class Listing
{
public:
    using Services = std::multimap<std::string, Seen>; // one for each call

    static void came(KIVCS2BonjourBrowser *browser, KIVCS2BonjourService *service, void *userData,
                     KIVCS2BonjourBrowser *sameBrowser)
    {
        EXPECT_EQ(browser, sameBrowser);
        const char *name = nullptr;
        const char *host = nullptr;
        KIVCS2BonjourAddress *address = nullptr;
        Seen seen;
        EXPECT_OK(kivCS2Bonjour_getServiceName(browser, service, &name));
        EXPECT_OK(kivCS2Bonjour_getHostname(browser, service, &host));
        EXPECT_OK(kivCS2Bonjour_getFirstPort(browser, service, &seen.port));
        EXPECT_OK(kivCS2Bonjour_getAddressesList(browser, service, &address));
        seen.addresses = addressesFrom(address);
        seen.host = host;
        static_cast<Listing *>(userData)->m_services.change([&](Services &all) { all.emplace(name, seen); });
    }
    Services waitFor(size_t count)
    {
        return m_services.waitUntil([=](const Services &all) { return all.size() >= count; });
    }
    [[nodiscard]] size_t calls()
    {
        return waitFor(0).size();
    }

private:
    Awaited<Services> m_services;
};

// A browser, disposed of at the end.
struct OwnBrowser : KIVCS2BonjourBrowser
{
    OwnBrowser()
    {
        EXPECT_OK(kivCS2Bonjour_initBrowserData(this));
    }
    ~OwnBrowser()
    {
        EXPECT_OK(kivCS2Bonjour_diposeBrowserData(this));
    }
};

// Two namespaces of one network, or of two.
struct Networks
{
    explicit Networks(bool withSecondCable = false)
    {
        near.join("10.77.0.1", far, "10.77.0.2");
        if (withSecondCable)
            near.join("10.78.0.1", far, "10.78.0.2", "pair1");
    }
    NetworkNamespace near;
    NetworkNamespace far;
};

// A network needs a second before it carries packets, and a machine needs one more before it offers its
// services. So all start together, before the first test.
class Scenes : public testing::Environment
{
public:
    struct Scene
    {
        std::unique_ptr<Networks> networks;
        std::optional<Machine> machine;
    };
    static inline Scene sameName, six, twoCables;
    static inline std::optional<Searches> searches;

    void SetUp() override
    {
        if (!NetworkNamespace::unavailable().empty())
            return;
        std::vector<std::thread> makers;
        for (Scene *each : kAll)
            makers.emplace_back([each] { each->networks = std::make_unique<Networks>(each == &twoCables); });
        for (std::thread &maker : makers)
            maker.join();
        sameName.machine.emplace(sameName.networks->far,
                                 std::vector<Offer>{{"Ingest 1", 5000}, {"Ingest 2", 65535}}, nullptr);
        six.machine.emplace(six.networks->far, std::vector<Offer>{{"Six", 6000}}, "far", true);
        twoCables.machine.emplace(
            twoCables.networks->far,
            std::vector<Offer>{{"Ingest 1", 5000, "\7rate=25"}, {"Ingest", 1}, {"Ingest 10", 2}});
        searches.emplace(twoCables.networks->near);
    }
    void TearDown() override
    {
        searches.reset();
        for (Scene *each : kAll)
            if (each->machine)
                each->machine->end();
        for (Scene *each : kAll)
        {
            each->machine.reset();
            each->networks.reset();
        }
    }

private:
    static constexpr Scene *kAll[] = {&sameName, &six, &twoCables};
};
[[maybe_unused]] const testing::Environment *const scenes = testing::AddGlobalTestEnvironment(new Scenes);

class BonjourNetwork : public testing::Test
{
protected:
    void SetUp() override
    {
        KIV_NEEDS_NETWORK_NAMESPACES();
        kivCS2_initWithTaskServer(false);
    }

    // Browses in the near namespace while `body` runs.
    void browse(const std::function<void(KIVCS2BonjourBrowser &, Listing &)> &body)
    {
        m_near->run(
            [&]
            {
                Listing listing;
                OwnBrowser browser;
                ASSERT_OK(kivCS2Bonjour_findServices(&browser, "local", kType, Listing::came, &listing));
                body(browser, listing);
            });
    }

    const NetworkNamespace *m_near = nullptr;
};

// One far machine for all, on two networks.
class BonjourMachine : public BonjourNetwork
{
protected:
    void SetUp() override
    {
        BonjourNetwork::SetUp();
        if (IsSkipped())
            return;
        m_near = &Scenes::twoCables.networks->near;
        m_machine = &*Scenes::twoCables.machine;
    }

    // The record of the service whose text the machine changes on demand.
    static KIVCS2BonjourService *ingest1(KIVCS2BonjourBrowser &browser, Listing &listing)
    {
        listing.waitFor(3);
        EXPECT_OK(kivCS2Bonjour_stopServiceBrowser(&browser));
        auto *service = reinterpret_cast<KIVCS2BonjourService *>(browser.m_services.m_next);
        while (std::string_view{service->m_name} != "Ingest 1")
            service = reinterpret_cast<KIVCS2BonjourService *>(service->m_elem.m_next);
        return service;
    }

    Machine *m_machine = nullptr;
};

} // namespace

// ---- Without a network ----

static_assert(sizeof(KIVCS2BonjourAddress) == 32 && offsetof(KIVCS2BonjourAddress, m_address) == 24 &&
              offsetof(KIVCS2BonjourAddress, m_port) == 28);
static_assert(offsetof(KIVCS2BonjourPublisher, m_thread) == 8);
static_assert(offsetof(KIVCS2BonjourBrowser, m_stop) == sizeof(KIVCS2Semaphore));
static_assert(offsetof(KIVCS2BonjourService, m_addressCount) == 24 + sizeof(KIVCS2LinkList));
static_assert(KIVCS2BonjourMode_First == 0x66727374 && KIVCS2BonjourMode_Spin == 0x7370696E);

TEST(Bonjour, RefusesMissingArguments)
{
    KIV_REQUIRES_EACH(kivCS2Bonjour_startPublishingService, "publisher, -, -, -");
    KIV_REQUIRES_EACH(kivCS2Bonjour_endPublishingService, "publisher");
    KIV_REQUIRES_EACH(kivCS2Bonjour_initBrowserData, "browser");
    KIV_REQUIRES_EACH(kivCS2Bonjour_findServices, "browser, -, -, callback, -");
    KIV_REQUIRES_EACH(kivCS2Bonjour_findFirstService, "browser, -, -, -");
    KIV_REQUIRES_EACH(kivCS2Bonjour_stopServiceBrowser, "data");
    KIV_REQUIRES_EACH(kivCS2Bonjour_diposeBrowserData, "browser");
    KIV_REQUIRES_EACH(kivCS2Bonjour_getAddressesList, "browser, serviceData, hostAddr");
    KIV_REQUIRES_EACH(kivCS2Bonjour_getHostname, "browser, serviceData, hostName");
    KIV_REQUIRES_EACH(kivCS2Bonjour_getServiceName, "browser, serviceData, serviceName");
    KIV_REQUIRES_EACH(kivCS2Bonjour_getFirstPort, "browser, serviceData, firstPort");
    KIV_REQUIRES_EACH(kivCS2Bonjour_startServiceMonitor, "service, callback, -");
    KIV_REQUIRES_EACH(kivCS2Bonjour_stopServiceMonitor, "service");
}

TEST(Bonjour, TextsThatAreMissingOrNotASCIIStartNothing)
{
    kivCS2_initWithTaskServer(false);
    using Row = std::tuple<const char *, const char *, const char *, uint32_t, KIVCS2Status, KIVCS2Status,
                           KIVCS2Status>;
    const auto param = KIVCS2STATUS_PARAM_ERR, memory = KIVCS2STATUS_MEMORY_ERR, ok = KIVCS2STATUS_OK;
    for (const auto &[domain, type, name, port, publishing, browsing, finding] :
         {Row{nullptr, kType, "x", 1, param, memory, memory}, Row{"", nullptr, "x", 1, param, memory, memory},
          Row{"", kType, nullptr, 1, param, ok, memory}, Row{"", kType, "caf\xc3\xa9", 1, memory, ok, memory},
          Row{"\xff", kType, "x", 1, memory, memory, memory},
          Row{"", kType, "x", 65536, KIVCS2STATUS_DATA_ERR, ok, ok}})
    {
        KIVCS2BonjourPublisher publisher;
        EXPECT_EQ(kivCS2Bonjour_startPublishingService(&publisher, domain, type, name, port), publishing);
        EXPECT_EQ(publisher.m_service, nullptr);
        EXPECT_OK(kivCS2Bonjour_endPublishingService(&publisher));

        KIVCS2BonjourBrowser browser;
        ASSERT_OK(kivCS2Bonjour_initBrowserData(&browser));
        if (browsing != ok)
        {
            Listing listing;
            EXPECT_EQ(kivCS2Bonjour_findServices(&browser, domain, type, Listing::came, &listing), browsing);
        }
        if (finding != ok)
        {
            EXPECT_EQ(kivCS2Bonjour_findFirstService(&browser, domain, type, name, 0), finding);
        }
        EXPECT_EQ(browser.m_domain, nullptr);
        EXPECT_EQ(browser.m_stop, 0u) << "a refused search stopped the browser";
        EXPECT_OK(kivCS2Bonjour_diposeBrowserData(&browser));
        EXPECT_OK(kivCS2Bonjour_diposeBrowserData(&browser));
    }
    EXPECT_EQ(semaphores(), 0u);
}

// ---- Two machines ----

TEST_F(BonjourNetwork, FindsTheServicesOfAMachineOfTheSameName)
{
    m_near = &Scenes::sameName.networks->near;
    // A machine that is too busy to answer in the 2 s of a resolution is listed without addresses.
    const auto areResolved = [](const auto &services)
    { return std::ranges::none_of(services, [](auto &each) { return each.second.addresses.empty(); }); };
    bool isDone = false;
    for (int tries = 0; tries < 10 && !isDone; ++tries)
        browse([&](KIVCS2BonjourBrowser &, Listing &listing) { isDone = areResolved(listing.waitFor(2)); });
    browse(
        [](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            const auto services = listing.waitFor(2);
            ASSERT_TRUE(services.contains("Ingest 1") && services.contains("Ingest 2"));
            EXPECT_EQ(services.find("Ingest 1")->second.port, 5000u);
            EXPECT_EQ(services.find("Ingest 2")->second.port, 65535u);
            EXPECT_THAT(services.find("Ingest 1")->second.addresses, testing::ElementsAre("10.77.0.2"));
            EXPECT_THAT(services.find("Ingest 1")->second.host, testing::EndsWith(".local"));
            EXPECT_EQ(kivCS2Bonjour_findServices(&browser, "", kType, Listing::came, &listing),
                      KIVCS2STATUS_STATE_ERR);
            EXPECT_OK(kivCS2Bonjour_stopServiceBrowser(&browser));
            EXPECT_OK(kivCS2Bonjour_stopServiceBrowser(&browser));
            EXPECT_EQ(semaphores(), 0u);
            const auto *first = reinterpret_cast<KIVCS2BonjourService *>(browser.m_services.m_next);
            EXPECT_EQ(first->m_addresses.m_count, 1u);
            EXPECT_EQ(first->m_addressCount, 0u); // kept: never stored
            EXPECT_EQ(browser.m_services.m_count, 2u);
        });
}

TEST_F(BonjourNetwork, AServiceWithOnlyIPv6HasNoAddressesAndPort0)
{
    m_near = &Scenes::six.networks->near;
    browse(
        [](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            const auto services = listing.waitFor(1);
            ASSERT_EQ(services.count("Six"), 1u);
            const Seen &six = services.find("Six")->second;
            EXPECT_THAT(six.addresses, testing::IsEmpty());
            EXPECT_EQ(six.port, 0u);
            EXPECT_EQ(six.host, "far.local") << "it was not resolved at all";
            (void)browser;
        });
}

TEST_F(BonjourMachine, AMonitorSeesEveryTextRecord)
{
    m_machine->setFirstText("\7rate=25");
    using Texts = std::vector<std::string>;
    Awaited<Texts> texts;
    const auto changed = [](KIVCS2BonjourService *service, void *userData, KIVCS2BonjourService *sameService)
    {
        EXPECT_EQ(service, sameService);
        EXPECT_EQ(service->m_recordType, kCFNetServiceMonitorTXT);
        const std::string text{reinterpret_cast<const char *>(CFDataGetBytePtr(service->m_recordData)),
                               static_cast<size_t>(CFDataGetLength(service->m_recordData))};
        static_cast<Awaited<Texts> *>(userData)->change([&](Texts &all) { all.push_back(text); });
    };
    const auto waitFor = [&texts](const std::string &text)
    { texts.waitUntil([&](const Texts &all) { return !all.empty() && all.back() == text; }); };
    browse(
        [&](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            KIVCS2BonjourService *service = ingest1(browser, listing);
            ASSERT_OK(kivCS2Bonjour_startServiceMonitor(service, changed, &texts));
            EXPECT_EQ(kivCS2Bonjour_startServiceMonitor(service, changed, &texts), KIVCS2STATUS_STATE_ERR);
            waitFor("\7rate=25");
            m_machine->setFirstText("\7rate=50\1a");
            waitFor("\7rate=50\1a");
            EXPECT_OK(kivCS2Bonjour_stopServiceMonitor(service));
            EXPECT_OK(kivCS2Bonjour_stopServiceMonitor(service));
            texts.change([](Texts &all) { all.clear(); });
            // A new monitor gets the present record. Disposing of the browser ends the monitor.
            ASSERT_OK(kivCS2Bonjour_startServiceMonitor(service, changed, &texts));
            waitFor("\7rate=50\1a");
        });
}

TEST_F(BonjourMachine, AMonitorStoppedByItsOwnCallbackIsNotCalledAgain)
{
    struct Watch
    {
        KIVCS2BonjourBrowser *browser = nullptr;
        std::atomic<int> calls = 0;
    } watch;
    const auto once = [](KIVCS2BonjourService *service, void *userData, KIVCS2BonjourService *)
    {
        auto &self = *static_cast<Watch *>(userData);
        EXPECT_EQ(kivCS2Bonjour_startServiceMonitor(service, service->m_monitorCallback, userData),
                  KIVCS2STATUS_STATE_ERR);
        EXPECT_OK(kivCS2Bonjour_stopServiceMonitor(service));
        EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(self.browser), KIVCS2STATUS_STATE_ERR);
        ++self.calls;
        self.calls.notify_all();
    };
    browse(
        [&](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            KIVCS2BonjourService *service = ingest1(browser, listing);
            watch.browser = &browser;
            for (int round = 0; round < 2; ++round) // the second start comes after the callback's stop
            {
                ASSERT_OK(kivCS2Bonjour_startServiceMonitor(service, once, &watch));
                watch.calls.wait(round);
                m_machine->setFirstText("\1b");
            }
        });
    EXPECT_EQ(watch.calls, 2);
    EXPECT_EQ(semaphores(), 0u);
}

TEST_F(BonjourMachine, AMonitorIsStoppedByManyThreadsAndItsCallback)
{
    const auto stop = [](KIVCS2BonjourService *service, void *, KIVCS2BonjourService *)
    { EXPECT_OK(kivCS2Bonjour_stopServiceMonitor(service)); };
    browse(
        [&](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            KIVCS2BonjourService *service = ingest1(browser, listing);
            for (int round = 0; round < 20; ++round)
            {
                std::vector<std::jthread> threads;
                for (const bool stops : {false, true, true})
                    threads.emplace_back(
                        [&, stops]
                        {
                            // It may fail, because another thread has started the monitor.
                            (void)kivCS2Bonjour_startServiceMonitor(service, stop, nullptr);
                            EXPECT_TRUE(!stops ||
                                        kivCS2Bonjour_stopServiceMonitor(service) == KIVCS2STATUS_OK);
                        });
            }
        });
    EXPECT_EQ(semaphores(), 0u);
}

TEST_F(BonjourMachine, ABrowserStoppedByItsOwnCallbackListsOneService)
{
    m_near->run(
        []
        {
            KIVCS2BonjourBrowser browser;
            std::atomic<int> calls = 0;
            const auto stop =
                [](KIVCS2BonjourBrowser *own, KIVCS2BonjourService *, void *userData, KIVCS2BonjourBrowser *)
            {
                EXPECT_OK(kivCS2Bonjour_stopServiceBrowser(own));
                EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(own), KIVCS2STATUS_STATE_ERR);
                ++*static_cast<std::atomic<int> *>(userData);
                static_cast<std::atomic<int> *>(userData)->notify_all();
            };
            ASSERT_OK(kivCS2Bonjour_initBrowserData(&browser));
            ASSERT_OK(kivCS2Bonjour_findServices(&browser, "", kType, stop, &calls));
            calls.wait(0);
            EXPECT_OK(kivCS2Bonjour_diposeBrowserData(&browser));
            EXPECT_EQ(calls, 1);
        });
    EXPECT_EQ(semaphores(), 0u);
}

void searchAndStop(bool beforeTheSearch, bool afterAService)
{
    Listing listing;
    OwnBrowser browser;
    const auto stop = [&browser] { EXPECT_OK(kivCS2Bonjour_stopServiceBrowser(&browser)); };
    std::vector<std::jthread> stoppers;
    if (beforeTheSearch)
        stoppers.emplace_back(stop);
    EXPECT_OK(kivCS2Bonjour_findServices(&browser, "", kType, Listing::came, &listing));
    if (afterAService)
        listing.waitFor(1);
    stoppers.emplace_back(stop);
    stoppers.emplace_back(stop);
    stoppers.clear(); // joins them
    const size_t calls = listing.calls();
    EXPECT_EQ(browser.m_services.m_count, calls);
}

TEST_F(BonjourMachine, BrowsersAreStoppedByManyThreadsAtAnyMoment)
{
    m_near->run(
        []
        {
            std::vector<std::jthread> owners;
            for (const bool waits : {true, false, false})
                owners.emplace_back(
                    [waits]
                    {
                        for (int round = 0; round < 6; ++round)
                            searchAndStop(round % 3 == 0, waits && round % 3 == 2);
                    });
        });
    EXPECT_EQ(semaphores(), 0u);
}

TEST_F(BonjourMachine, AfterTheFirstServiceWasFoundNoBrowserOfTheProcessFindsAny)
{
    const auto search = []
    {
        OwnBrowser browser;
        ASSERT_OK(kivCS2Bonjour_findFirstService(&browser, "", kType, "Ingest 1", kLongEnoughMs));
        const char *name = nullptr;
        uint32_t port = 0;
        EXPECT_OK(kivCS2Bonjour_getServiceName(&browser, nullptr, &name));
        EXPECT_STREQ(name, "Ingest 1");
        EXPECT_OK(kivCS2Bonjour_getFirstPort(&browser, nullptr, &port));
        EXPECT_EQ(port, 5000u);
        EXPECT_EQ(browser.m_services.m_count, 1u);
        // Kept: the flag belongs to the process and is never cleared. The third search uses the cache of the
        // first, so its time-out shows that no service comes.
        Listing listing;
        OwnBrowser later;
        ASSERT_OK(kivCS2Bonjour_findServices(&later, "", kType, Listing::came, &listing));
        OwnBrowser again;
        EXPECT_EQ(kivCS2Bonjour_findFirstService(&again, "", kType, "Ingest 1", 500),
                  KIVCS2STATUS_TIMEOUT_ERR);
        EXPECT_EQ(listing.calls(), 0u);
    };
    EXPECT_EQ(Scenes::searches->run(search), 0);
}

// Each search starts with an empty cache, and the machine answers on its two networks at different times.
TEST_F(BonjourMachine, AHostOnTwoNetworksIsFoundWithBothAddressesEveryTime)
{
    constexpr int kSearches = 8;
    const auto search = []
    {
        OwnBrowser browser;
        KIVCS2BonjourAddress *address = nullptr;
        EXPECT_OK(kivCS2Bonjour_findFirstService(&browser, "", kType, "Ingest 1", kLongEnoughMs));
        ASSERT_OK(kivCS2Bonjour_getAddressesList(&browser, nullptr, &address));
        EXPECT_THAT(addressesFrom(address), testing::ElementsAre("10.77.0.2", "10.78.0.2"));
    };
    EXPECT_EQ(Scenes::searches->run(search, kSearches), 0);
}

TEST_F(BonjourMachine, ASearchForTheFirstTimesOutAndStopsItsBrowser)
{
    m_near->run(
        []
        {
            for (const uint32_t timeout : {0u, 40u})
            {
                OwnBrowser browser;
                const auto start = std::chrono::steady_clock::now();
                EXPECT_EQ(kivCS2Bonjour_findFirstService(&browser, "", kType, "nobody", timeout),
                          KIVCS2STATUS_TIMEOUT_ERR);
                EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds{timeout});
                EXPECT_TRUE(browser.m_stop == 1 && !browser.m_name && browser.m_services.m_count == 0);
            }
        });
}
