// Every allocation of service discovery fails once in turn, over a network that the test simulates. If its
// own allocations fail, Avahi ends the process; they do not fail here.
#include "KIVCS2Bonjour.h"

#include "CFNetwork/Engine.h"
#include "CFNetwork/RecordData.h"
#include "Private/Support/CFRef.h"

#include "FailingAllocator.h"
#include "NetworkNamespace.h"

#include <KIVPlatform/KIVPNetService.h>
#include <avahi-common/error.h>
#include <avahi-common/simple-watch.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace
{
using namespace kiv::discovery;
using kiv::CFRef;
using namespace kiv::test;
using namespace std::string_view_literals;

constexpr const char *kType = "_playout-feed._tcp";                      // longer than the room in a string
constexpr std::string_view kText = "\x1crate=25;with=more;than=short"sv; // TXT data, as in DNS

std::atomic<uint32_t> announced{0};

// The first name is taken.
class PlayedGroup final : public Group
{
public:
    explicit PlayedGroup(GroupSink &sink) noexcept : m_sink{sink} {}
    int announce(const Announcement &what) noexcept override
    {
        if (std::string_view{what.name}.find('#') == std::string_view::npos)
            return AVAHI_ERR_COLLISION;
        m_sink.announced();
        ++announced;
        announced.notify_all();
        return 0;
    }
    int updateText(const Announcement &) noexcept override
    {
        return 0;
    }
    void withdraw() noexcept override {}

private:
    GroupSink &m_sink;
};

// One service on one host with two addresses. The service, the host and the record come at once.
class PlayedBackend final : public Backend
{
public:
    [[nodiscard]] BackendState state() const noexcept override
    {
        return BackendState::ready;
    }
    // With the first address all networks have answered, whatever networks this machine has.
    [[nodiscard]] OwnNetworks networks() const override
    {
        std::vector<OwnNetworks::Entry> none;
        none.reserve(1);
        return OwnNetworks{std::move(none)};
    }
    std::unique_ptr<Handle> browseServices(const char *, const char *, ServiceSink &sink,
                                           int &error) noexcept override
    {
        for (const int interface : {1, 2})
            sink.serviceSeen(true, {interface, 0},
                             "A service with a name that takes more than the room in a string");
        sink.browsingFailed(AVAHI_ERR_NO_NETWORK); // the search ends by itself
        return handle(error);
    }
    std::unique_ptr<Handle> browseRecords(const char *, uint16_t type, RecordSink &sink,
                                          int &error) noexcept override
    {
        constexpr std::string_view kLocation = "\0\0\0\0\x13\x88\x19"
                                               "a-host-with-a-longer-name\5local\0"sv;
        constexpr std::string_view kIPv4 = "\x0a\0\0\7"sv;
        constexpr std::string_view kIPv6 = "\x20\1\0\0\0\0\0\0\0\0\0\0\0\0\0\1"sv;
        const std::string_view data = type == kTypeSRV   ? kLocation
                                      : type == kTypeA   ? kIPv4
                                      : type == kTypeTXT ? kText
                                                         : kIPv6;
        sink.recordSeen(true, {1, 0}, {reinterpret_cast<const uint8_t *>(data.data()), data.size()});
        sink.cacheDone();
        if (type == kTypeTXT)
            sink.recordsFailed(AVAHI_ERR_NO_NETWORK); // the watch ends by itself
        return handle(error);
    }
    std::unique_ptr<Handle> locate(const char *, const char *, const char *,
                                   LocationSink &sink) noexcept override
    {
        sink.located("a-host-with-a-longer-name.local", 5000);
        return nullptr;
    }
    std::unique_ptr<Group> makeGroup(GroupSink &sink, int &error) noexcept override
    {
        std::unique_ptr<Group> group{new (std::nothrow) PlayedGroup{sink}};
        error = group ? 0 : AVAHI_ERR_NO_MEMORY;
        return group;
    }

private:
    static std::unique_ptr<Handle> handle(int &error) noexcept
    {
        std::unique_ptr<Handle> made{new (std::nothrow) Handle};
        error = made ? 0 : AVAHI_ERR_NO_MEMORY;
        return made;
    }
};

class BonjourAllocation : public testing::Test
{
protected:
    BonjourAllocation()
    {
        kivCS2_initWithTaskServer(false);
        endLingeringEngine();
    }
    // Ends the engine, so that the next call makes one, with its allocations.
    static void endLingeringEngine()
    {
        setBackendForTesting([](BackendOwner &) -> std::unique_ptr<Backend>
                             { return std::unique_ptr<Backend>{new (std::nothrow) PlayedBackend}; });
    }
    ~BonjourAllocation() override
    {
        setBackendForTesting(nullptr);
    }
};

CFRef<CFStringRef> text(const char *ascii)
{
    return CFRef<CFStringRef>{CFStringCreateWithCString(nullptr, ascii, kCFStringEncodingASCII)};
}

CFRef<CFDataRef> textData()
{
    return CFRef<CFDataRef>{CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>(kText.data()),
                                         static_cast<CFIndex>(kText.size()))};
}

TEST_F(BonjourAllocation, PublishingTellsAndLeavesARecordOfZeroes)
{
    const size_t count = forEachAllocation(
        [](size_t)
        {
            KIVCS2BonjourPublisher publisher;
            endLingeringEngine();
            announced = 0;
            const KIVCS2Status status = kivCS2Bonjour_startPublishingService(
                &publisher, "", kType, "Ingest 1 of a longer name", 5000);
            if (KIVCS2_FAILED(status))
            {
                EXPECT_TRUE(status == KIVCS2STATUS_MEMORY_ERR || status == KIVCS2STATUS_DATA_ERR) << status;
                EXPECT_EQ(publisher.m_service, nullptr);
                EXPECT_EQ(publisher.m_thread.m_thread.m_thread, 0u);
            }
            else
            {
                // Without memory the worker does not announce the service, and does not report that.
                while (announced == 0 && !allocationFailed())
                    std::this_thread::yield();
            }
            EXPECT_EQ(kivCS2Bonjour_endPublishingService(&publisher), KIVCS2STATUS_OK);
        });
    EXPECT_GE(count, 8u); // three texts, service and state, names of the subscription, engine, backend, group
}

TEST_F(BonjourAllocation, APublishedServiceKeepsItsText)
{
    KIVCS2BonjourPublisher publisher;
    announced = 0;
    ASSERT_OK(kivCS2Bonjour_startPublishingService(&publisher, "", kType, "Ingest 1 of a longer name", 5000));
    announced.wait(0);
    const CFRef<CFDataRef> data = textData();
    const size_t texts = forEachAllocation(
        [&](size_t)
        {
            const bool isSet = CFNetServiceSetTXTData(publisher.m_service, data.get()) != 0;
            EXPECT_EQ(isSet, !allocationFailed());
        });
    EXPECT_EQ(texts, 2u); // for the next announcement and for this one
    const size_t names = forEachAllocation(
        [&publisher](size_t)
        {
            const CFRef<CFStringRef> name{KIVPNetServiceCopyPublishedName(publisher.m_service)};
            EXPECT_EQ(!name, allocationFailed());
        });
    EXPECT_EQ(names, 2u);
    EXPECT_OK(kivCS2Bonjour_endPublishingService(&publisher));
}

TEST_F(BonjourAllocation, ASearchTellsOrListsLess)
{
    const size_t count = forEachAllocation(
        [](size_t)
        {
            KIVCS2BonjourBrowser browser;
            endLingeringEngine();
            KIVCS2Status status = kivCS2Bonjour_initBrowserData(&browser);
            if (KIVCS2_FAILED(status))
            {
                EXPECT_EQ(status, KIVCS2STATUS_DATA_ERR);
                EXPECT_EQ(browser.m_browser, nullptr);
                return;
            }
            std::atomic<uint32_t> calls = 0;
            const auto came = [](KIVCS2BonjourBrowser *own, KIVCS2BonjourService *service, void *userData,
                                 KIVCS2BonjourBrowser *)
            {
                uint32_t port = 1;
                KIVCS2BonjourAddress *address = nullptr;
                EXPECT_EQ(kivCS2Bonjour_getFirstPort(own, service, &port), KIVCS2STATUS_OK);
                EXPECT_EQ(kivCS2Bonjour_getAddressesList(own, service, &address), KIVCS2STATUS_OK);
                EXPECT_EQ(port, address != nullptr ? 5000u : 0u);
                EXPECT_TRUE(address != nullptr || allocationFailed());
                ++*static_cast<std::atomic<uint32_t> *>(userData);
            };
            status = kivCS2Bonjour_findServices(&browser, "", kType, came, &calls);
            if (KIVCS2_FAILED(status))
            {
                EXPECT_EQ(status, KIVCS2STATUS_MEMORY_ERR);
                EXPECT_EQ(browser.m_domain, nullptr);
            }
            while (KIVCS2_SUCCEEDED(status) && calls == 0 && !allocationFailed())
                std::this_thread::yield();
            EXPECT_EQ(kivCS2Bonjour_stopServiceBrowser(&browser), KIVCS2STATUS_OK);
            EXPECT_EQ(browser.m_services.m_count, calls);
            EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
        });
    EXPECT_GE(count, 20u);
}

// On this thread, so that the effect of each failure is certain.
TEST_F(BonjourAllocation, WaitingCallsTellAndKeepWhatTheyHad)
{
    const CFRef<CFNetServiceRef> service{CFNetServiceCreate(nullptr, text("").get(), text(kType).get(),
                                                            text("A service of a longer name").get(), 1)};
    ASSERT_TRUE(service);
    forEachAllocation(
        [&service](size_t)
        {
            endLingeringEngine(); // without it, each run would have fewer allocations
            CFStreamError error{};
            const bool isResolved = CFNetServiceResolveWithTimeout(service.get(), 5, &error) != 0;
            EXPECT_TRUE(isResolved || allocationFailed());
            EXPECT_EQ(error.error == 0, isResolved);
            EXPECT_NE(error.error, kCFNetServicesErrorTimeout);
        });
    EXPECT_EQ(CFArrayGetCount(CFNetServiceGetAddressing(service.get())), 2);

    forEachAllocation(
        [&service](size_t)
        {
            uint32_t records = 0;
            CFNetServiceClientContext client{0, &records, nullptr, nullptr, nullptr};
            const CFRef<CFNetServiceMonitorRef> monitor{CFNetServiceMonitorCreate(
                nullptr, service.get(),
                [](CFNetServiceMonitorRef, CFNetServiceRef, CFNetServiceMonitorType, CFDataRef,
                   CFStreamError *, void *info) { ++*static_cast<uint32_t *>(info); },
                &client)};
            EXPECT_TRUE(monitor || allocationFailed());
            CFStreamError error{};
            if (monitor)
            {
                EXPECT_FALSE(CFNetServiceMonitorStart(monitor.get(), kCFNetServiceMonitorTXT, &error));
                EXPECT_NE(error.error, 0);
                EXPECT_TRUE(records == 1 || allocationFailed());
            }
        });

    const CFRef<CFDataRef> data = textData();
    const size_t count = forEachAllocation(
        [&](size_t)
        {
            const bool isSet = CFNetServiceSetTXTData(service.get(), data.get()) != 0;
            EXPECT_EQ(isSet, !allocationFailed());
        });
    EXPECT_GE(count, 1u);
}

// The simulated network has the name, so the call ends by itself. "": that of the machine, for the test a
// longer one, if that is allowed.
TEST_F(BonjourAllocation, ARefusedServiceKeepsItsText)
{
    const auto publish = []
    {
        constexpr std::string_view kHost = "a-machine-with-a-longer-name";
        (void)(unshare(CLONE_NEWUTS) == 0 && sethostname(kHost.data(), kHost.size()) == 0);
        const CFRef<CFDataRef> data = textData();
        for (const char *name : {"A service", ""})
        {
            const CFRef<CFNetServiceRef> service{CFNetServiceCreate(
                nullptr, text("a-longer-domain.example").get(), text(kType).get(), text(name).get(), 1)};
            ASSERT_TRUE(CFNetServiceSetTXTData(service.get(), data.get()));
            const size_t count = forEachAllocation(
                [&service](size_t)
                {
                    CFStreamError error{};
                    EXPECT_FALSE(CFNetServiceRegisterWithOptions(service.get(), kCFNetServiceFlagNoAutoRename,
                                                                 &error));
                    EXPECT_NE(error.error, 0);
                });
            EXPECT_GE(count, 3u);
        }
    };
    std::thread{publish}.join(); // it has the machine's name alone
}

struct Unused final : BackendOwner, GroupSink
{
    void backendChanged() noexcept override {}
    void announced() noexcept override {}
    void nameTaken() noexcept override {}
    void groupFailed(int) noexcept override {}
};

// Uses the stack of this process in a network of its own, because the test has neither a daemon nor a bus.
TEST_F(BonjourAllocation, TheStackIsMadeAndAskedOrAnErrorIsTold)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/dev/null", 1);
    const CFRef<CFNetServiceRef> service{CFNetServiceCreate(nullptr, text("").get(), text(kType).get(),
                                                            text("A service of a longer name").get(), 1)};
    const auto ask = [&service](size_t)
    {
        setBackendForTesting(nullptr);
        CFStreamError error{};
        EXPECT_FALSE(CFNetServiceResolveWithTimeout(service.get(), 0, &error));
        EXPECT_NE(error.error, 0);
    };
    const auto make = [](size_t)
    {
        const std::unique_ptr<AvahiSimplePoll, decltype(&avahi_simple_poll_free)> poll{
            avahi_simple_poll_new(), avahi_simple_poll_free};
        Unused sink;
        int error = 0;
        const auto backend = makeEmbeddedBackend(avahi_simple_poll_get(poll.get()), sink);
        const auto group = backend ? backend->makeGroup(sink, error) : nullptr;
        EXPECT_EQ(!group, allocationFailed());
        EXPECT_EQ(error, backend && !group ? AVAHI_ERR_NO_MEMORY : 0);
    };
    NetworkNamespace{}.run(
        [&]
        {
            EXPECT_GE(forEachAllocation(ask), 8u);
            EXPECT_EQ(forEachAllocation(make), 2u);
        });
    setBackendForTesting(nullptr);
}

void expectReadOrThrown(const std::function<void()> &read)
{
    const auto expectOne = [&read](size_t)
    {
        try
        {
            read();
            EXPECT_FALSE(allocationFailed());
        }
        catch (const std::bad_alloc &)
        {
            EXPECT_TRUE(allocationFailed());
        }
    };
    EXPECT_GE(forEachAllocation(expectOne), 1u);
}

// The text grows at 15 and 30 bytes, in the middle of any escape.
TEST_F(BonjourAllocation, NamesAndNetworksAreReadWholeOrNotAtAll)
{
    expectReadOrThrown([] { (void)OwnNetworks::read(); });
    for (size_t length = 10; length < 20; ++length)
    {
        for (const char last : {'a', '.', '\1'})
        {
            std::string data{"\0\0\0\0\x13\x88"sv};
            data += static_cast<char>(length);
            data += std::string(length - 1, 'a') + last + std::string{"\5local\0"sv};
            expectReadOrThrown(
                [&data] {
                    (void)readServerLocation({reinterpret_cast<const uint8_t *>(data.data()), data.size()});
                });
        }
    }
}

TEST_F(BonjourAllocation, ASearchForTheFirstWithoutItsTextsIsNone)
{
    KIVCS2BonjourBrowser browser;
    ASSERT_EQ(kivCS2Bonjour_initBrowserData(&browser), KIVCS2STATUS_OK);
    for (size_t text = 0; text < 3; ++text)
    {
        failAllocation(text);
        EXPECT_EQ(kivCS2Bonjour_findFirstService(&browser, "", kType, "a", 0), KIVCS2STATUS_MEMORY_ERR);
        EXPECT_TRUE(allocationFailed());
    }
    allowAllocations();
    EXPECT_EQ(browser.m_name, nullptr);
    EXPECT_EQ(browser.m_stop, 0u);
    EXPECT_EQ(kivCS2Bonjour_diposeBrowserData(&browser), KIVCS2STATUS_OK);
}
} // namespace
