// Service discovery over a network that may return anything: services that come and go with any name, and
// location, address and TXT records with any content. Lists, names, addresses and records must keep the
// promises of the header, and nothing may leak.
#include "KIVCS2Bonjour.h"

#include "CFNetwork/Engine.h"
#include "CFNetwork/RecordData.h"
#include "Private/Support/CFRef.h"

#include "Input.h"
#include "Require.h"

#include <KIVPlatform/KIVPNetService.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

namespace
{
using namespace kiv::discovery;
using kiv::CFRef;

constexpr int kNoMore = -1; // the failure of the network after its last result

Input script; // the rest of the input, from which each request takes its results

Place place(uint8_t bits)
{
    return {bits >> 2 & 3, bits >> 4 & 1};
}

// Gives the results of the script for a request, and then the end.
class ScriptedBackend final : public Backend
{
public:
    [[nodiscard]] BackendState state() const noexcept override
    {
        return BackendState::ready;
    }
    [[nodiscard]] OwnNetworks networks() const override
    {
        return {}; // so that no input waits for a network that the script does not have
    }
    std::unique_ptr<Handle> browseServices(const char *, const char *, ServiceSink &sink,
                                           int &error) noexcept override
    {
        for (uint8_t steps = script.take() & 7; steps > 0 && script.size > 0; --steps)
        {
            const uint8_t bits = script.take();
            const auto name = script.bytes(script.take());
            const std::string text{name.begin(), name.end()};
            if ((bits & 0xc0) == 0xc0)
                sink.allServicesForNow();
            else
                sink.serviceSeen((bits & 1) == 0, place(bits), text.c_str());
        }
        sink.browsingFailed(kNoMore);
        error = 0;
        return std::make_unique<Handle>();
    }
    std::unique_ptr<Handle> browseRecords(const char *name, uint16_t, RecordSink &sink,
                                          int &error) noexcept override
    {
        require(std::strlen(name) < 1024);
        for (uint8_t steps = script.take() & 3; steps > 0 && script.size > 0; --steps)
        {
            const uint8_t bits = script.take();
            sink.recordSeen((bits & 1) == 0, place(bits), script.bytes(script.take()));
        }
        sink.cacheDone();
        sink.allRecordsForNow();
        sink.recordsFailed(kNoMore);
        error = 0;
        return std::make_unique<Handle>();
    }
    std::unique_ptr<Group> makeGroup(GroupSink &, int &error) noexcept override
    {
        error = kNoMore;
        return nullptr;
    }
};

// Keeps one engine for all inputs.
class Presence final : public Subscription
{
public:
    Presence()
    {
        setBackendForTesting([](BackendOwner &) -> std::unique_ptr<Backend>
                             { return std::make_unique<ScriptedBackend>(); });
        require(subscribe(*this) == 0);
    }
    void attach(Backend &) noexcept override {}
    void detach() noexcept override {}
};

CFRef<CFStringRef> ascii(const char *text)
{
    return CFRef<CFStringRef>{CFStringCreateWithCString(nullptr, text, kCFStringEncodingASCII)};
}

void checkText(const char *text)
{
    const size_t length = strnlen(text, KIVCS2BonjourNameMax);
    require(length < KIVCS2BonjourNameMax);
    require(std::all_of(text, text + length, [](char c) { return static_cast<unsigned char>(c) < 0x80; }));
}

void serviceFound(KIVCS2BonjourBrowser *browser, KIVCS2BonjourService *service, void *userData,
                  KIVCS2BonjourBrowser *)
{
    ++*static_cast<uint32_t *>(userData);
    require(reinterpret_cast<KIVCS2BonjourService *>(browser->m_services.m_prev) == service);
    checkText(service->m_name);
    checkText(service->m_hostName);
    require(service->m_addressCount == 0);
    uint32_t port = 1;
    KIVCS2BonjourAddress *address = nullptr;
    (void)kivCS2Bonjour_getFirstPort(browser, service, &port);
    (void)kivCS2Bonjour_getAddressesList(browser, service, &address);
    require(address != nullptr || port == 0);
    for (; address != nullptr; address = reinterpret_cast<KIVCS2BonjourAddress *>(address->m_elem.m_next))
        require(address->m_port == port); // from the only location record that counts
}

void recordSeen(CFNetServiceMonitorRef, CFNetServiceRef, CFNetServiceMonitorType, CFDataRef data,
                CFStreamError *, void *)
{
    // Bytes from the network can be published, or are refused.
    const CFRef<CFStringRef> text = ascii("x");
    const CFRef<CFNetServiceRef> service{CFNetServiceCreate(nullptr, text.get(), text.get(), text.get(), 1)};
    const bool isText = isTextRecord({CFDataGetBytePtr(data), static_cast<size_t>(CFDataGetLength(data))});
    require(static_cast<bool>(CFNetServiceSetTXTData(service.get(), data)) == isText);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Presence presence;
    script = {data, size};

    KIVCS2BonjourBrowser browser;
    require(kivCS2Bonjour_initBrowserData(&browser) == KIVCS2STATUS_OK);
    uint32_t found = 0;
    browser.m_mode = KIVCS2BonjourMode_Spin;
    browser.m_callback = serviceFound;
    browser.m_userData = &found;
    KIVPNetServiceBrowserResolveAhead(browser.m_browser);
    // The search of a worker, on this thread.
    const CFRef<CFStringRef> domain = ascii("");
    const CFRef<CFStringRef> type = ascii("_fuzz._udp");
    CFStreamError error{};
    require(!CFNetServiceBrowserSearchForServices(browser.m_browser, domain.get(), type.get(), &error));
    require(error.error == kCFNetServicesErrorUnknown);
    require(found == browser.m_services.m_count);

    if (const auto *first = reinterpret_cast<KIVCS2BonjourService *>(browser.m_services.m_next);
        first != nullptr)
    {
        CFRef<CFNetServiceMonitorRef> monitor{
            CFNetServiceMonitorCreate(nullptr, first->m_service, recordSeen, nullptr)};
        require(!CFNetServiceMonitorStart(monitor.get(), kCFNetServiceMonitorTXT, &error));
    }
    require(kivCS2Bonjour_diposeBrowserData(&browser) == KIVCS2STATUS_OK);
    return 0;
}
