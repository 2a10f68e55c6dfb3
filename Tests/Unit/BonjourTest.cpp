// Service discovery: arguments and records; then two machines of one network, each a process in a namespace
// of its own, that find each other. Nothing leaves the test's namespaces.
#include <KIVCoreServices2/KIVCS2Bonjour.h>

#include "ArgumentCheck.h"
#include "NetworkNamespace.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <csignal>
#include <cstddef>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using kiv::test::NetworkNamespace;

namespace
{
constexpr const char *kType = "_kivtest._tcp";
constexpr auto kLongEnough = 60s; // an upper bound for what takes a second; nothing waits for it to pass
constexpr uint32_t kLongEnoughMs = 60000;

// ---- Machines ----

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

// A machine that publishes until this ends, in a process that ends with the test's, killed or not.
class Machine
{
public:
    // Without a host name it has that of this machine, so that the two contend for it.
    Machine(const NetworkNamespace &network, const std::vector<Offer> &offers, const char *hostName = "far",
            bool withoutIPv4 = false)
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            std::abort();
        m_child = fork();
        if (m_child == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ends[1]);
            for (const int other : s_orders) // or the others would not see their end
                close(other);
            network.enter();
            if (hostName != nullptr &&
                (unshare(CLONE_NEWUTS) != 0 || sethostname(hostName, strlen(hostName)) != 0))
                _exit(5);
            if (withoutIPv4)
                dropIPv4();
            publish(offers, ends[0]);
            _exit(0);
        }
        close(ends[0]);
        m_order = ends[1];
        s_orders.push_back(m_order);
    }
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;
    ~Machine()
    {
        end();
        waitpid(m_child, nullptr, 0);
    }
    void end()
    {
        if (std::erase(s_orders, m_order) != 0)
            close(m_order);
    }

    // The first offer gets another TXT record.
    void setFirstText(const std::string &text) const
    {
        const auto size = static_cast<uint8_t>(text.size());
        ASSERT_EQ(write(m_order, &size, 1), 1);
        ASSERT_EQ(write(m_order, text.data(), size), size);
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
        if (ioctl(control, SIOCSIFADDR, &request) != 0) // 0.0.0.0: none
            _exit(4);
        close(control);
    }

    static inline std::vector<int> s_orders;
    pid_t m_child = -1;
    int m_order = -1;
};

// Runs searches in processes of their own, each of which has the found-first flag and the engine to itself.
// They are forked by a process that is made before this one has threads.
class Searches
{
public:
    using Body = void (*)();

    explicit Searches(const NetworkNamespace &network)
    {
        int orders[2];
        int results[2];
        if (pipe2(orders, O_CLOEXEC) != 0 || pipe2(results, O_CLOEXEC) != 0)
            std::abort();
        m_child = fork();
        if (m_child == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(orders[1]);
            network.enter();
            for (Order order{}; read(orders[0], &order, sizeof order) == sizeof order;)
                if (const int failed = runAll(order); write(results[1], &failed, sizeof failed) < 0)
                    break;
            _exit(0);
        }
        close(orders[0]);
        close(results[1]);
        m_orders = orders[1];
        m_results = results[0];
    }
    Searches(const Searches &) = delete;
    Searches &operator=(const Searches &) = delete;
    ~Searches()
    {
        close(m_orders);
        close(m_results);
        waitpid(m_child, nullptr, 0);
    }

    // Runs `body` in so many processes at once; how many of them have failed.
    [[nodiscard]] int run(Body body, int count = 1) const
    {
        const Order order{body, count};
        int failed = -1;
        if (write(m_orders, &order, sizeof order) != sizeof order ||
            read(m_results, &failed, sizeof failed) != sizeof failed)
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
                std::exit(testing::Test::HasFailure() ? 1 : 0);
            }
        int failed = 0;
        for (int status = 0; wait(&status) > 0;)
            failed += status != 0 ? 1 : 0;
        return failed;
    }

    pid_t m_child = -1;
    int m_orders = -1;
    int m_results = -1;
};

// ---- What a browser saw ----

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

class Listing
{
public:
    static void came(KIVCS2BonjourBrowser *browser, KIVCS2BonjourService *service, void *userData,
                     KIVCS2BonjourBrowser *sameBrowser)
    {
        EXPECT_EQ(browser, sameBrowser);
        auto &self = *static_cast<Listing *>(userData);
        const char *name = nullptr;
        const char *host = nullptr;
        KIVCS2BonjourAddress *address = nullptr;
        Seen seen;
        EXPECT_EQ(kivCS2Bonjour_getServiceName(browser, service, &name), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2Bonjour_getHostname(browser, service, &host), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2Bonjour_getFirstPort(browser, service, &seen.port), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2Bonjour_getAddressesList(browser, service, &address), KIVCS2STATUS_OK);
        seen.addresses = addressesFrom(address);
        seen.host = host;
        const std::lock_guard lock{self.m_mutex};
        ++self.m_calls;
        self.m_services[name] = seen;
        self.m_changed.notify_all();
    }
    // Waits until so many names are there.
    std::map<std::string, Seen> waitFor(size_t count)
    {
        std::unique_lock lock{m_mutex};
        EXPECT_TRUE(m_changed.wait_for(lock, kLongEnough, [&] { return m_services.size() >= count; }))
            << m_services.size() << " of " << count;
        return m_services;
    }
    [[nodiscard]] size_t calls()
    {
        const std::lock_guard lock{m_mutex};
        return m_calls;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, Seen> m_services;
    size_t m_calls = 0;
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

constexpr size_t kManyServices = 200;

std::vector<Offer> manyOffers()
{
    std::vector<Offer> offers;
    for (size_t index = 0; index < kManyServices; ++index)
        offers.push_back({"Service " + std::to_string(index), static_cast<uint32_t>(1000 + index)});
    return offers;
}

// A network takes a second until it carries packets, and what a machine offers one more: all start together,
// before the first test.
class Scenes : public testing::Environment
{
public:
    struct All
    {
        std::unique_ptr<Networks> many, sameName, six, twoCables, empty;
        std::optional<Machine> ofMany, ofSameName, ofSix, ofTwoCables;
        std::optional<Searches> searches;
    };
    void SetUp() override
    {
        if (!NetworkNamespace::unavailable().empty())
            return;
        std::vector<std::thread> makers;
        for (std::unique_ptr<Networks> *each : networks())
            makers.emplace_back([each] { *each = std::make_unique<Networks>(each == &s_all.twoCables); });
        for (std::thread &maker : makers)
            maker.join();
        s_all.ofMany.emplace(s_all.many->far, manyOffers());
        s_all.ofSameName.emplace(s_all.sameName->far,
                                 std::vector<Offer>{{"Ingest 1", 5000}, {"Ingest 2", 65535}}, nullptr);
        s_all.ofSix.emplace(s_all.six->far, std::vector<Offer>{{"Six", 6000}}, "far", true);
        s_all.ofTwoCables.emplace(
            s_all.twoCables->far,
            std::vector<Offer>{{"Ingest 1", 5000, "\7rate=25"}, {"Ingest", 1}, {"Ingest 10", 2}});
        s_all.searches.emplace(s_all.twoCables->near);
    }
    void TearDown() override
    {
        s_all.searches.reset();
        for (std::optional<Machine> *each : machines())
            if (*each)
                (*each)->end();
        for (std::optional<Machine> *each : machines())
            each->reset();
        for (std::unique_ptr<Networks> *each : networks())
            each->reset();
    }

    static inline All s_all;

private:
    static std::array<std::unique_ptr<Networks> *, 5> networks()
    {
        return {&s_all.many, &s_all.sameName, &s_all.six, &s_all.twoCables, &s_all.empty};
    }
    static std::array<std::optional<Machine> *, 4> machines()
    {
        return {&s_all.ofMany, &s_all.ofSameName, &s_all.ofSix, &s_all.ofTwoCables};
    }
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

    void use(Networks &networks)
    {
        m_near = &networks.near;
        m_far = &networks.far;
    }

    // Browses in the near namespace while `body` runs.
    void browse(const std::function<void(KIVCS2BonjourBrowser &, Listing &)> &body)
    {
        m_near->run(
            [&]
            {
                KIVCS2BonjourBrowser browser;
                Listing listing;
                ASSERT_EQ(kivCS2Bonjour_initBrowserData(&browser), KIVCS2STATUS_OK);
                ASSERT_EQ(kivCS2Bonjour_findServices(&browser, "local", kType, Listing::came, &listing),
                          KIVCS2STATUS_OK);
                body(browser, listing);
                EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
            });
    }

    const NetworkNamespace *m_near = nullptr;
    const NetworkNamespace *m_far = nullptr;
};

// One far machine for all, on two networks.
class BonjourMachine : public BonjourNetwork
{
protected:
    void SetUp() override
    {
        KIV_NEEDS_NETWORK_NAMESPACES();
        kivCS2_initWithTaskServer(false);
        use(*Scenes::s_all.twoCables);
        m_machine = &*Scenes::s_all.ofTwoCables;
    }

    // The record of the service whose text the machine changes on demand.
    static KIVCS2BonjourService *ingest1(KIVCS2BonjourBrowser &browser, Listing &listing)
    {
        listing.waitFor(3);
        EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(&browser), KIVCS2STATUS_OK);
        auto *service = reinterpret_cast<KIVCS2BonjourService *>(browser.m_services.m_next);
        while (std::string_view{service->m_name} != "Ingest 1")
            service = reinterpret_cast<KIVCS2BonjourService *>(service->m_elem.m_next);
        return service;
    }

    Machine *m_machine = nullptr;
};

// The semaphores of this process that are open or lie about; the library's have names of their own form.
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
} // namespace

// ---- Without a network ----

static_assert(sizeof(KIVCS2BonjourAddress) == 32);
static_assert(offsetof(KIVCS2BonjourAddress, m_address) == 24);
static_assert(offsetof(KIVCS2BonjourAddress, m_port) == 28);
static_assert(offsetof(KIVCS2BonjourPublisher, m_thread) == 8);
static_assert(offsetof(KIVCS2BonjourBrowser, m_stop) == sizeof(KIVCS2Semaphore));
static_assert(offsetof(KIVCS2BonjourService, m_addressCount) == 24 + sizeof(KIVCS2LinkList));
static_assert(KIVCS2BonjourMode_First == 0x66727374 && KIVCS2BonjourMode_Spin == 0x7370696E);

TEST(Bonjour, RefusesMissingArguments)
{
    KIVCS2BonjourBrowser browser{};
    KIVCS2BonjourService service{};
    KIVCS2BonjourAddress *address = nullptr;
    const char *text = nullptr;
    uint32_t port = 0;
    const auto refused = KIVCS2STATUS_PARAM_ERR;
    for (const kiv::test::ArgumentCheck &check : {
             KIV_REFUSES(refused, kivCS2Bonjour_startPublishingService, "publisher", nullptr, "", kType, "x",
                         1),
             KIV_REFUSES(refused, kivCS2Bonjour_endPublishingService, "publisher", nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_initBrowserData, "browser", nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_findServices, "callback", &browser, "", kType, nullptr,
                         nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_findFirstService, "browser", nullptr, "", kType, "x", 0),
             KIV_REFUSES(refused, kivCS2Bonjour_stopServiceBrowser, "data", nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_diposeBrowserData, "browser", nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_getAddressesList, "serviceData", &browser, nullptr, &address),
             KIV_REFUSES(refused, kivCS2Bonjour_getAddressesList, "hostAddr", &browser, &service, nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_getHostname, "serviceData", &browser, nullptr, &text),
             KIV_REFUSES(refused, kivCS2Bonjour_getHostname, "hostName", &browser, &service, nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_getServiceName, "serviceName", &browser, &service, nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_getFirstPort, "firstPort", &browser, &service, nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_getFirstPort, "serviceData", &browser, nullptr, &port),
             KIV_REFUSES(refused, kivCS2Bonjour_startServiceMonitor, "callback", &service, nullptr, nullptr),
             KIV_REFUSES(refused, kivCS2Bonjour_stopServiceMonitor, "service", nullptr),
         })
        kiv::test::expectRefused(check);
}

TEST(Bonjour, TextsThatAreMissingOrNotASCIIStartNothing)
{
    kivCS2_initWithTaskServer(false);
    struct Row
    {
        const char *domain, *type, *name;
        uint32_t port;
        KIVCS2Status publishing, browsing, finding;
    };
    const auto param = KIVCS2STATUS_PARAM_ERR, memory = KIVCS2STATUS_MEMORY_ERR, ok = KIVCS2STATUS_OK;
    for (const Row &row :
         {Row{nullptr, kType, "x", 1, param, memory, memory}, Row{"", nullptr, "x", 1, param, memory, memory},
          Row{"", kType, nullptr, 1, param, ok, memory}, Row{"", kType, "caf\xc3\xa9", 1, memory, ok, memory},
          Row{"\xff", kType, "x", 1, memory, memory, memory},
          Row{"", kType, "x", 65536, KIVCS2STATUS_DATA_ERR, ok, ok}})
    {
        KIVCS2BonjourPublisher publisher;
        EXPECT_EQ(kivCS2Bonjour_startPublishingService(&publisher, row.domain, row.type, row.name, row.port),
                  row.publishing);
        EXPECT_EQ(publisher.m_service, nullptr);
        EXPECT_EQ(kivCS2Bonjour_endPublishingService(&publisher), KIVCS2STATUS_OK);

        KIVCS2BonjourBrowser browser;
        ASSERT_EQ(kivCS2Bonjour_initBrowserData(&browser), KIVCS2STATUS_OK);
        if (row.browsing != ok)
        {
            Listing listing;
            EXPECT_EQ(kivCS2Bonjour_findServices(&browser, row.domain, row.type, Listing::came, &listing),
                      row.browsing);
        }
        if (row.finding != ok)
        {
            EXPECT_EQ(kivCS2Bonjour_findFirstService(&browser, row.domain, row.type, row.name, 0),
                      row.finding);
        }
        EXPECT_EQ(browser.m_domain, nullptr);
        EXPECT_EQ(browser.m_stop, 0u) << "a refused search stopped the browser";
        EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
    }
    EXPECT_EQ(semaphores(), 0u);
}

// ---- Two machines ----

TEST_F(BonjourNetwork, FindsWhatAMachineOfTheSameNameOffers)
{
    use(*Scenes::s_all.sameName);
    browse(
        [](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            const auto services = listing.waitFor(2);
            EXPECT_EQ(services.at("Ingest 1").port, 5000u);
            EXPECT_EQ(services.at("Ingest 2").port, 65535u);
            EXPECT_THAT(services.at("Ingest 1").addresses, testing::ElementsAre("10.77.0.2"));
            EXPECT_THAT(services.at("Ingest 1").host, testing::EndsWith(".local"));
            EXPECT_EQ(kivCS2Bonjour_findServices(&browser, "", kType, Listing::came, &listing),
                      KIVCS2STATUS_STATE_ERR);
            EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(&browser), KIVCS2STATUS_OK);
            EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(&browser), KIVCS2STATUS_OK);
            EXPECT_EQ(semaphores(), 0u);
            const auto *first = reinterpret_cast<KIVCS2BonjourService *>(browser.m_services.m_next);
            EXPECT_EQ(first->m_addresses.m_count, 1u);
            EXPECT_EQ(browser.m_services.m_count, 2u);
        });
}

TEST_F(BonjourMachine, AddressCountStays0)
{
    browse(
        [](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            listing.waitFor(1);
            EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(&browser), KIVCS2STATUS_OK);
            const auto *first = reinterpret_cast<KIVCS2BonjourService *>(browser.m_services.m_next);
            EXPECT_EQ(first->m_addressCount, 0u);
        });
}

TEST_F(BonjourNetwork, TwoHundredServicesAreEachListedOnce)
{
    const std::vector<Offer> offers = manyOffers();
    use(*Scenes::s_all.many);
    browse(
        [&](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            const auto services = listing.waitFor(kManyServices);
            EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(&browser), KIVCS2STATUS_OK);
            EXPECT_EQ(listing.calls(), kManyServices);
            size_t resolved = 0;
            for (const Offer &offer : offers)
            {
                ASSERT_TRUE(services.contains(offer.name)) << offer.name;
                const uint32_t port = services.at(offer.name).port;
                EXPECT_TRUE(port == offer.port || port == 0) << offer.name << ": " << port;
                resolved += port != 0 ? 1 : 0;
            }
            EXPECT_GT(resolved, kManyServices / 2)
                << "more than a busy machine keeps from answering in two seconds";
        });
}

TEST_F(BonjourNetwork, AServiceWithIPv6AloneHasNoAddressesAndPort0)
{
    use(*Scenes::s_all.six);
    browse(
        [](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            const auto services = listing.waitFor(1);
            EXPECT_THAT(services.at("Six").addresses, testing::IsEmpty());
            EXPECT_EQ(services.at("Six").port, 0u);
            EXPECT_THAT(services.at("Six").host, testing::StrEq("far.local")) << "it was not resolved at all";
            (void)browser;
        });
}

TEST_F(BonjourMachine, AMonitorSeesEveryTextRecord)
{
    m_machine->setFirstText("\7rate=25");
    struct Texts
    {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::string> all;

        void waitFor(const std::string &text)
        {
            std::unique_lock lock{mutex};
            EXPECT_TRUE(
                changed.wait_for(lock, kLongEnough, [&] { return !all.empty() && all.back() == text; }))
                << text;
        }
    } texts;
    const auto changed = [](KIVCS2BonjourService *service, void *userData, KIVCS2BonjourService *sameService)
    {
        EXPECT_EQ(service, sameService);
        EXPECT_EQ(service->m_recordType, kCFNetServiceMonitorTXT);
        auto &self = *static_cast<Texts *>(userData);
        const std::lock_guard lock{self.mutex};
        self.all.emplace_back(reinterpret_cast<const char *>(CFDataGetBytePtr(service->m_recordData)),
                              static_cast<size_t>(CFDataGetLength(service->m_recordData)));
        self.changed.notify_all();
    };
    browse(
        [&](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            KIVCS2BonjourService *service = ingest1(browser, listing);
            ASSERT_EQ(kivCS2Bonjour_startServiceMonitor(service, changed, &texts), KIVCS2STATUS_OK);
            EXPECT_EQ(kivCS2Bonjour_startServiceMonitor(service, changed, &texts), KIVCS2STATUS_STATE_ERR);
            texts.waitFor("\7rate=25");
            m_machine->setFirstText("\7rate=50\1a");
            texts.waitFor("\7rate=50\1a");
            EXPECT_EQ(kivCS2Bonjour_stopServiceMonitor(service), KIVCS2STATUS_OK);
            EXPECT_EQ(kivCS2Bonjour_stopServiceMonitor(service), KIVCS2STATUS_OK);
            texts.all.clear();
            // Watched again it is told what there is; disposing of the browser ends the watch.
            ASSERT_EQ(kivCS2Bonjour_startServiceMonitor(service, changed, &texts), KIVCS2STATUS_OK);
            texts.waitFor("\7rate=50\1a");
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
        EXPECT_EQ(kivCS2Bonjour_stopServiceMonitor(service), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(self.browser), KIVCS2STATUS_STATE_ERR);
        ++self.calls;
        self.calls.notify_all();
    };
    browse(
        [&](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            KIVCS2BonjourService *service = ingest1(browser, listing);
            watch.browser = &browser;
            for (int round = 0; round < 2; ++round) // started again after its callback has stopped it
            {
                ASSERT_EQ(kivCS2Bonjour_startServiceMonitor(service, once, &watch), KIVCS2STATUS_OK);
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
    { EXPECT_EQ(kivCS2Bonjour_stopServiceMonitor(service), KIVCS2STATUS_OK); };
    browse(
        [&](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            KIVCS2BonjourService *service = ingest1(browser, listing);
            for (int round = 0; round < 20; ++round)
            {
                std::vector<std::thread> threads(3);
                for (size_t thread = 0; thread < threads.size(); ++thread)
                    threads[thread] = std::thread(
                        [&, thread]
                        {
                            // Watched already, and not yet stopped, is a right answer too.
                            (void)kivCS2Bonjour_startServiceMonitor(service, stop, nullptr);
                            if (thread > 0)
                            {
                                EXPECT_EQ(kivCS2Bonjour_stopServiceMonitor(service), KIVCS2STATUS_OK);
                            }
                        });
                for (std::thread &thread : threads)
                    thread.join();
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
                EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(own), KIVCS2STATUS_OK);
                EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(own), KIVCS2STATUS_STATE_ERR);
                ++*static_cast<std::atomic<int> *>(userData);
                static_cast<std::atomic<int> *>(userData)->notify_all();
            };
            ASSERT_EQ(kivCS2Bonjour_initBrowserData(&browser), KIVCS2STATUS_OK);
            ASSERT_EQ(kivCS2Bonjour_findServices(&browser, "", kType, stop, &calls), KIVCS2STATUS_OK);
            calls.wait(0);
            EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
            EXPECT_EQ(calls, 1);
        });
    EXPECT_EQ(semaphores(), 0u);
}

TEST_F(BonjourMachine, BrowsersAreStoppedByManyThreadsAtAnyMoment)
{
    constexpr int kRounds = 6;
    m_near->run(
        []
        {
            std::vector<std::thread> owners(3);
            for (size_t owner = 0; owner < owners.size(); ++owner)
                owners[owner] = std::thread(
                    [owner]
                    {
                        for (int round = 0; round < kRounds; ++round)
                        {
                            KIVCS2BonjourBrowser browser;
                            Listing listing;
                            EXPECT_EQ(kivCS2Bonjour_initBrowserData(&browser), KIVCS2STATUS_OK);
                            // Some stop before the search has begun, some in its midst, some after a service.
                            std::vector<std::thread> stoppers;
                            const auto stop = [&browser]
                            { EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(&browser), KIVCS2STATUS_OK); };
                            if (round % 3 == 0)
                                stoppers.emplace_back(stop);
                            EXPECT_EQ(
                                kivCS2Bonjour_findServices(&browser, "", kType, Listing::came, &listing),
                                KIVCS2STATUS_OK);
                            if (round % 3 == 2 && owner == 0)
                                listing.waitFor(1);
                            stoppers.emplace_back(stop);
                            stoppers.emplace_back(stop);
                            for (std::thread &stopper : stoppers)
                                stopper.join();
                            const size_t calls = listing.calls();
                            EXPECT_EQ(browser.m_services.m_count, calls);
                            EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
                        }
                    });
            for (std::thread &owner : owners)
                owner.join();
        });
    EXPECT_EQ(semaphores(), 0u);
}

TEST_F(BonjourMachine, AfterTheFirstServiceWasFoundNoBrowserOfTheProcessFindsAny)
{
    const auto search = []
    {
        KIVCS2BonjourBrowser browser;
        ASSERT_EQ(kivCS2Bonjour_initBrowserData(&browser), KIVCS2STATUS_OK);
        ASSERT_EQ(kivCS2Bonjour_findFirstService(&browser, "", kType, "Ingest 1", kLongEnoughMs),
                  KIVCS2STATUS_OK);
        const char *name = nullptr;
        uint32_t port = 0;
        EXPECT_EQ(kivCS2Bonjour_getServiceName(&browser, nullptr, &name), KIVCS2STATUS_OK);
        EXPECT_STREQ(name, "Ingest 1");
        EXPECT_EQ(kivCS2Bonjour_getFirstPort(&browser, nullptr, &port), KIVCS2STATUS_OK);
        EXPECT_EQ(port, 5000u);
        EXPECT_EQ(browser.m_services.m_count, 1u);
        // Kept: the flag is the process's, and never cleared. The third search is answered by the same cache
        // that has answered the first, so that what does not come by its time-out does not come.
        KIVCS2BonjourBrowser later;
        Listing listing;
        ASSERT_EQ(kivCS2Bonjour_initBrowserData(&later), KIVCS2STATUS_OK);
        ASSERT_EQ(kivCS2Bonjour_findServices(&later, "", kType, Listing::came, &listing), KIVCS2STATUS_OK);
        KIVCS2BonjourBrowser again;
        ASSERT_EQ(kivCS2Bonjour_initBrowserData(&again), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2Bonjour_findFirstService(&again, "", kType, "Ingest 1", 500),
                  KIVCS2STATUS_TIMEOUT_ERR);
        EXPECT_EQ(listing.calls(), 0u);
        for (KIVCS2BonjourBrowser *each : {&browser, &later, &again})
            EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(each), KIVCS2STATUS_OK);
        EXPECT_EQ(semaphores(), 0u);
    };
    EXPECT_EQ(Scenes::s_all.searches->run(search), 0);
}

// Each search starts with an empty memory of the network, and the machine answers on its two networks at
// different times.
TEST_F(BonjourMachine, AHostOnTwoNetworksIsFoundWithBothAddressesEveryTime)
{
    constexpr int kSearches = 8;
    const auto search = []
    {
        KIVCS2BonjourBrowser browser;
        KIVCS2BonjourAddress *address = nullptr;
        ASSERT_EQ(kivCS2Bonjour_initBrowserData(&browser), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2Bonjour_findFirstService(&browser, "", kType, "Ingest 1", kLongEnoughMs),
                  KIVCS2STATUS_OK);
        ASSERT_EQ(kivCS2Bonjour_getAddressesList(&browser, nullptr, &address), KIVCS2STATUS_OK);
        EXPECT_THAT(addressesFrom(address), testing::ElementsAre("10.77.0.2", "10.78.0.2"));
        EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
    };
    EXPECT_EQ(Scenes::s_all.searches->run(search, kSearches), 0);
}

TEST_F(BonjourNetwork, ASearchForTheFirstGivesUpAndStopsItsBrowser)
{
    use(*Scenes::s_all.empty);
    m_near->run(
        []
        {
            for (const uint32_t timeout : {0u, 40u})
            {
                KIVCS2BonjourBrowser browser;
                ASSERT_EQ(kivCS2Bonjour_initBrowserData(&browser), KIVCS2STATUS_OK);
                const auto start = std::chrono::steady_clock::now();
                EXPECT_EQ(kivCS2Bonjour_findFirstService(&browser, "", kType, "nobody", timeout),
                          KIVCS2STATUS_TIMEOUT_ERR);
                EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds{timeout});
                EXPECT_EQ(browser.m_stop, 1u);
                EXPECT_EQ(browser.m_name, nullptr);
                EXPECT_EQ(browser.m_services.m_count, 0u);
                EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
            }
        });
}

// ---- One machine that talks nonsense ----

namespace
{
// A multicast DNS answer (RFC 6762, 18), written by hand.
class Packet
{
public:
    Packet()
    {
        m_bytes.assign({0, 0, '\x84', 0, 0, 0, 0, 0, 0, 0, 0, 0}); // an authoritative answer
    }
    static std::string name(const std::vector<std::string> &labels)
    {
        std::string text;
        for (const std::string &label : labels)
            text += static_cast<char>(label.size()) + label;
        return text + '\0';
    }
    static std::string location(uint16_t port, const std::string &target)
    {
        const char head[] = {0, 0, 0, 0, static_cast<char>(port >> 8), static_cast<char>(port)};
        return std::string{head, sizeof head} + target;
    }
    void add(const std::string &owner, uint8_t type, const std::string &data)
    {
        ++m_bytes[7];
        m_bytes.insert(m_bytes.end(), owner.begin(), owner.end());
        for (const size_t octet : {size_t{0}, size_t{type}, size_t{0}, size_t{1}, size_t{0}, size_t{0},
                                   size_t{0}, size_t{120}, data.size() >> 8, data.size() & 0xff})
            m_bytes.push_back(static_cast<char>(octet)); // type, class IN, 120 seconds, size
        m_bytes.insert(m_bytes.end(), data.begin(), data.end());
    }
    void send(int from) const
    {
        sockaddr_in group{};
        group.sin_family = AF_INET;
        group.sin_port = htons(5353);
        inet_pton(AF_INET, "224.0.0.251", &group.sin_addr);
        EXPECT_EQ(sendto(from, m_bytes.data(), m_bytes.size(), 0, reinterpret_cast<sockaddr *>(&group),
                         sizeof group),
                  static_cast<ssize_t>(m_bytes.size()));
    }

private:
    std::vector<char> m_bytes;
};

constexpr uint8_t kPTR = 12, kSRV = 33, kTXT = 16, kA = 1;
} // namespace

TEST_F(BonjourNetwork, MalformedNamesAndRecordsListWhatIsUsable)
{
    const std::vector<std::string> type{"_kivtest", "_tcp", "local"};
    const auto service = [&type](const std::string &name)
    {
        std::vector<std::string> labels{name};
        labels.insert(labels.end(), type.begin(), type.end());
        return Packet::name(labels);
    };
    const std::string host = Packet::name({"odd\\host.", "local"});
    Packet noUTF8; // the whole packet is refused
    noUTF8.add(Packet::name(type), kPTR, service("\xff\xfe no UTF-8"));
    Packet packet;
    for (const std::string &name :
         {std::string{"caf\xc3\xa9"}, std::string(63, 'x'), std::string{"dots.and\\slashes"},
          std::string{"no location"}, std::string{"bad texts"}})
        packet.add(Packet::name(type), kPTR, service(name));
    packet.add(service("caf\xc3\xa9"), kSRV, Packet::location(2, host));
    packet.add(service(std::string(63, 'x')), kSRV, Packet::location(3, Packet::name({}))); // offered nowhere
    packet.add(service("dots.and\\slashes"), kSRV, Packet::location(4, host));
    packet.add(service("bad texts"), kSRV, Packet::location(5, host));
    packet.add(service("bad texts"), kTXT, std::string{"\5a=b\0\0", 6});
    packet.add(host, kA, std::string{"\x0a\x4d\0\x02", 4});

    use(*Scenes::s_all.empty);
    int sender = -1;
    m_far->run([&sender] { sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(5353); // answers come from the port of their own (RFC 6762, 6)
    inet_pton(AF_INET, "10.77.0.2", &own.sin_addr);
    ASSERT_EQ(bind(sender, reinterpret_cast<sockaddr *>(&own), sizeof own), 0);
    const int ttl = 255;
    ASSERT_EQ(setsockopt(sender, IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl), 0);

    browse(
        [&](KIVCS2BonjourBrowser &browser, Listing &listing)
        {
            std::atomic<bool> done = false;
            std::thread repeating{[&]
                                  {
                                      for (; !done;
                                           std::this_thread::sleep_for(100ms)) // until somebody listens
                                      {
                                          noUTF8.send(sender);
                                          packet.send(sender);
                                      }
                                  }};
            const auto services = listing.waitFor(5);
            done = true;
            repeating.join();
            EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(&browser), KIVCS2STATUS_OK);
            EXPECT_THAT(services, testing::SizeIs(5)) << "a name that is no UTF-8 is none";
            EXPECT_TRUE(services.contains("caf?") || services.contains("caf??"));
            EXPECT_EQ(services.at(std::string(63, 'x')).port, 0u);
            EXPECT_EQ(services.at("dots.and\\slashes").port, 4u);
            EXPECT_EQ(services.at("dots.and\\slashes").host, "odd\\\\host\\..local");
            EXPECT_EQ(services.at("no location").port, 0u);
            EXPECT_EQ(services.at("bad texts").port, 5u);
        });
    close(sender);
}
