// Service discovery: publishers, browsers and monitors, each with a worker for the call that waits.
#include "KIVCS2Bonjour.h"

#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"
#include "Private/Support/MutexLock.h"

#include <KIVPlatform/KIVPNetService.h>
#include <mach/mach_time.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <netinet/in.h>
#include <new>
#include <unistd.h>
#include <utility>

namespace
{
using kiv::CFRef;

constexpr CFTimeInterval kResolveTimeout = 2.0; // seconds
constexpr CFOptionFlags kNotAServiceThatCame = kCFNetServiceFlagIsDomain | kCFNetServiceFlagRemove;
constexpr useconds_t kLookAgainAfter = 10; // microseconds
constexpr uint64_t kNanosecondsPerMillisecond = 1000000;

// Set by the first successful search and never cleared: hosts rely on that search ending all browsing of the
// process.
constinit std::atomic<uint32_t> foundFirst = 0;

// The service whose monitor's callback runs on the calling thread; null if there is none.
constinit thread_local KIVCS2BonjourService *t_watched = nullptr;

// Access to a plain word of a record that another thread reads or writes.
[[nodiscard]] std::atomic_ref<uint32_t> shared(uint32_t &word)
{
    return std::atomic_ref<uint32_t>{word};
}

[[nodiscard]] CFRef<CFStringRef> createText(const char *text)
{
    return CFRef<CFStringRef>{
        text != nullptr ? CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingASCII)
                        : nullptr};
}

template <class Ref>
void releaseAndClear(Ref &object)
{
    if (object != nullptr)
        CFRelease(object);
    object = nullptr;
}

// Copies as much as fits, with its zero byte; characters that are not ASCII become "?".
void copyText(CFStringRef text, char (&to)[KIVCS2BonjourNameMax])
{
    CFIndex used = 0;
    if (text != nullptr)
        CFStringGetBytes(text, CFRangeMake(0, CFStringGetLength(text)), kCFStringEncodingASCII, '?', false,
                         reinterpret_cast<UInt8 *>(to), KIVCS2BonjourNameMax - 1, &used);
    to[used] = '\0';
}

// Ends a worker, if it has a thread: a record that was never started has none.
void endWorker(KIVCS2SemaphoreThread &worker)
{
    if (worker.m_thread.m_thread != 0)
        (void)kivCS2SemaphoreThread_free(&worker); // also cancels the thread and releases its semaphore
}

// ---- Workers: each runs a call that waits, with its own reference to the object it waits in ----

void registerService(void *context)
{
    const CFRef<CFNetServiceRef> service{static_cast<CFNetServiceRef>(context)};
    CFStreamError error{};
    (void)CFNetServiceRegisterWithOptions(service.get(), 0, &error); // the result is not reported
}

void searchServices(void *context)
{
    auto *browser = static_cast<KIVCS2BonjourBrowser *>(context);
    CFStreamError error{};
    (void)CFNetServiceBrowserSearchForServices(browser->m_browser, browser->m_domain, browser->m_type,
                                               &error); // the result is not reported
}

void watchService(void *context)
{
    const CFRef<CFNetServiceMonitorRef> monitor{static_cast<CFNetServiceMonitorRef>(context)};
    CFStreamError error{};
    (void)CFNetServiceMonitorStart(monitor.get(), kCFNetServiceMonitorTXT, &error); // not reported
}

// Gives `object` to a worker that runs `wait` with it.
[[nodiscard]] KIVCS2Status startWorker(KIVCS2SemaphoreThread &worker, CFTypeRef object,
                                       KIVCS2SemaphoreThreadFunc wait)
{
    CFRetain(object);
    const KIVCS2Status status =
        kivCS2SemaphoreThread_init(&worker, const_cast<void *>(object), wait, nullptr, nullptr);
    if (KIVCS2_FAILED(status))
    {
        worker = {};
        CFRelease(object);
    }
    return status;
}

// ---- Services that are being resolved ----

// The service that a browser's callback is resolving, so that a stop can end the resolving. One for each
// browser, on the stack of its worker.
class Resolving
{
public:
    Resolving(KIVCS2BonjourBrowser &browser, CFNetServiceRef service) : m_browser{browser}, m_service{service}
    {
        const std::lock_guard lock{s_mutex};
        m_next = std::exchange(s_first, this);
        if (shared(browser.m_stop).load() != 0) // it was stopped before it could find this entry
            CFNetServiceCancel(service);
    }
    ~Resolving()
    {
        const std::lock_guard lock{s_mutex};
        Resolving **link = &s_first;
        while (*link != this)
            link = &(*link)->m_next;
        *link = m_next;
    }
    Resolving(const Resolving &) = delete;
    Resolving &operator=(const Resolving &) = delete;

    // Call it once the browser is marked as stopped.
    static void cancel(const KIVCS2BonjourBrowser &browser)
    {
        const std::lock_guard lock{s_mutex};
        for (const Resolving *each = s_first; each != nullptr; each = each->m_next)
            if (&each->m_browser == &browser)
                CFNetServiceCancel(each->m_service);
    }

private:
    static constinit inline std::mutex s_mutex{};
    static constinit inline Resolving *s_first = nullptr;

    KIVCS2BonjourBrowser &m_browser;
    CFNetServiceRef m_service;
    Resolving *m_next = nullptr;
};

// ---- Found services ----

void freeAddresses(KIVCS2BonjourService &service)
{
    while (KIVCS2LinkElem *elem = service.m_addresses.m_next)
    {
        kivCS2LinkElem_unlink(elem);
        std::free(elem);
    }
}

// Ends the monitor, if there is one, and waits for its worker. The caller holds `m_monitorMutex`.
void endMonitor(KIVCS2BonjourService &service)
{
    if (service.m_monitor != nullptr)
        CFNetServiceMonitorStop(service.m_monitor, nullptr);
    endWorker(service.m_monitorThread);
    releaseAndClear(service.m_monitor);
}

void freeService(KIVCS2BonjourService *service)
{
    (void)kivCS2Bonjour_stopServiceMonitor(service); // not null
    (void)kivCS2Mutex_free(&service->m_monitorMutex);
    freeAddresses(*service);
    releaseAndClear(service->m_service);
    releaseAndClear(service->m_recordData);
    kivCS2LinkElem_unlink(&service->m_elem);
    std::free(service);
}

// Skips an address that is not IPv4, or for which there is no memory.
void appendAddress(KIVCS2BonjourService &service, CFDataRef data)
{
    sockaddr_in socketAddress{};
    if (CFDataGetLength(data) < static_cast<CFIndex>(sizeof socketAddress))
        return;
    CFDataGetBytes(data, CFRangeMake(0, sizeof socketAddress), reinterpret_cast<UInt8 *>(&socketAddress));
    if (socketAddress.sin_family != AF_INET)
        return;
    auto *address = static_cast<KIVCS2BonjourAddress *>(kivCS2ZeroMalloc(sizeof(KIVCS2BonjourAddress)));
    if (address == nullptr)
        return;
    address->m_address = socketAddress.sin_addr.s_addr;
    address->m_port = ntohs(socketAddress.sin_port);
    kivCS2LinkList_appendElem(&service.m_addresses, &address->m_elem);
    // Kept: hosts rely on `m_addressCount` staying 0.
}

// Appends a service's record to the browser's list; null if there is no memory.
[[nodiscard]] KIVCS2BonjourService *appendService(KIVCS2BonjourBrowser &browser, CFNetServiceRef cfService)
{
    auto *service = static_cast<KIVCS2BonjourService *>(kivCS2ZeroMalloc(sizeof(KIVCS2BonjourService)));
    if (service == nullptr ||
        KIVCS2_FAILED(kivCS2Mutex_init(&service->m_monitorMutex, KIVCS2MutexOptions_None)))
    {
        std::free(service);
        return nullptr;
    }
    kivCS2LinkList_appendElem(&browser.m_services, &service->m_elem);
    CFRetain(cfService);
    service->m_service = cfService;
    copyText(CFNetServiceGetName(cfService), service->m_name);
    copyText(CFNetServiceGetTargetHost(cfService), service->m_hostName);

    const CFArrayRef addresses = CFNetServiceGetAddressing(cfService);
    const CFIndex count = addresses != nullptr ? CFArrayGetCount(addresses) : 0;
    for (CFIndex index = 0; index < count; ++index)
        appendAddress(*service, static_cast<CFDataRef>(CFArrayGetValueAtIndex(addresses, index)));
    return service;
}

void serviceCame(KIVCS2BonjourBrowser &browser, CFNetServiceRef cfService)
{
    const bool isFirst = browser.m_mode == KIVCS2BonjourMode_First;
    // The name is known before the service is resolved. Resolving takes time and packets, two seconds for a
    // service that does not respond, so only the wanted one is resolved.
    if (isFirst && CFStringCompare(CFNetServiceGetName(cfService), browser.m_name, 0) != kCFCompareEqualTo)
        return;

    {
        const Resolving resolving{browser, cfService};
        CFStreamError error{};
        (void)CFNetServiceResolveWithTimeout(cfService, kResolveTimeout,
                                             &error); // after a failure it is listed without addresses
    }
    // If the search was stopped meanwhile, the service does not count as found: a host whose search for the
    // first service timed out searches again, and `foundFirst` would forbid that.
    if (shared(browser.m_stop).load() != 0)
        return;
    KIVCS2BonjourService *service = appendService(browser, cfService);
    if (service == nullptr)
        return;
    if (isFirst)
    {
        foundFirst.store(1);
        (void)kivCS2Semaphore_signal(&browser.m_semaphore); // exists during a search for the first service
        return;
    }
    browser.m_inCallback = 1;
    browser.m_callback(&browser, service, browser.m_userData, &browser);
    browser.m_inCallback = 0;
}

void MyNetServiceBrowserClientCallBack(CFNetServiceBrowserRef, CFOptionFlags flags, CFTypeRef domainOrService,
                                       CFStreamError *, void *info)
{
    auto &browser = *static_cast<KIVCS2BonjourBrowser *>(info);
    const kiv::MutexLock lock{browser.m_mutex};
    if (KIVCS2_FAILED(lock.status()) || shared(browser.m_stop).load() != 0 || foundFirst.load() != 0)
        return;
    // Ignore a service that went away, because it stays listed. An error comes without a service.
    if ((flags & kNotAServiceThatCame) != 0 || domainOrService == nullptr)
        return;
    serviceCame(browser, static_cast<CFNetServiceRef>(const_cast<void *>(domainOrService)));
}

void MyNetServiceMonitorClientCallBack(CFNetServiceMonitorRef, CFNetServiceRef, CFNetServiceMonitorType type,
                                       CFDataRef data, CFStreamError *error, void *info)
{
    auto *service = static_cast<KIVCS2BonjourService *>(info);
    if (shared(service->m_monitorStop).load() != 0)
        return;
    releaseAndClear(service->m_recordData);
    if (data != nullptr)
        CFRetain(data);
    service->m_recordType = type;
    service->m_recordData = data;
    service->m_recordError = error != nullptr ? *error : CFStreamError{};
    t_watched = service;
    service->m_monitorCallback(service, service->m_monitorUserData, service);
    t_watched = nullptr;
}

// ---- Browsers ----

void releaseTexts(KIVCS2BonjourBrowser &browser)
{
    releaseAndClear(browser.m_domain);
    releaseAndClear(browser.m_type);
    releaseAndClear(browser.m_name);
}

// Ends the search. The flag is set before the mutex is taken: otherwise a callback that waits for the mutex
// would go on to the next service, and the next, while this thread waits. The service being resolved is
// cancelled too, or this thread would wait for it.
[[nodiscard]] KIVCS2Status stopSearch(KIVCS2BonjourBrowser &browser, bool &inCallback)
{
    shared(browser.m_stop).store(1);
    Resolving::cancel(browser);
    const kiv::MutexLock lock{browser.m_mutex};
    KIV_TRY(lock.status());
    CFNetServiceBrowserStopSearch(browser.m_browser, nullptr);
    // The mutex is recursive: if it is held during a callback, the callback runs on this thread.
    inCallback = browser.m_inCallback != 0;
    return KIVCS2STATUS_OK;
}

// Ends the worker after its search has been stopped: before that the worker is blocked in the search.
[[nodiscard]] KIVCS2Status endSearch(KIVCS2BonjourBrowser &browser)
{
    const kiv::MutexLock lock{browser.m_endMutex};
    KIV_TRY(lock.status());
    endWorker(browser.m_thread);
    releaseTexts(browser);
    return KIVCS2STATUS_OK;
}

// Takes ownership of the texts and starts the search; if no worker starts, nothing changes. The caller holds
// `m_endMutex`, so that a stop by another thread finds a complete worker or no worker.
[[nodiscard]] KIVCS2Status startSearch(KIVCS2BonjourBrowser &browser, CFRef<CFStringRef> &domain,
                                       CFRef<CFStringRef> &type)
{
    browser.m_domain = domain.release();
    browser.m_type = type.release();
    if (KIVCS2_SUCCEEDED(
            kivCS2SemaphoreThread_init(&browser.m_thread, &browser, searchServices, nullptr, nullptr)))
        return KIVCS2STATUS_OK;
    browser.m_thread = {};
    releaseTexts(browser);
    return KIVCS2STATUS_DATA_ERR;
}

[[nodiscard]] bool isBrowsing(const KIVCS2BonjourBrowser &browser)
{
    return browser.m_thread.m_thread.m_thread != 0;
}

[[nodiscard]] KIVCS2Status startFirst(KIVCS2BonjourBrowser &browser, CFRef<CFStringRef> &domain,
                                      CFRef<CFStringRef> &type, CFRef<CFStringRef> &name)
{
    const kiv::MutexLock lock{browser.m_endMutex};
    KIV_TRY(lock.status());
    if (isBrowsing(browser))
        return KIVCS2STATUS_STATE_ERR;
    KIV_TRY(kivCS2Semaphore_init(&browser.m_semaphore, nullptr));
    browser.m_mode = KIVCS2BonjourMode_First;
    browser.m_name = name.release();
    const KIVCS2Status status = startSearch(browser, domain, type);
    if (KIVCS2_FAILED(status))
        (void)kivCS2Semaphore_free(&browser.m_semaphore);
    return status;
}

// Returns true after the semaphore is signalled, false if the time passes first. Checks at least once.
[[nodiscard]] bool waitForFirst(KIVCS2BonjourBrowser &browser, uint32_t timeout)
{
    const uint64_t start = mach_absolute_time();
    for (;;)
    {
        if (KIVCS2_SUCCEEDED(kivCS2Semaphore_testWait(&browser.m_semaphore)))
            return true;
        const uint64_t elapsed = kivCS2AbsoluteToNanoseconds(mach_absolute_time() - start);
        (void)usleep(kLookAgainAfter); // a signal only makes the next check earlier
        if (elapsed / kNanosecondsPerMillisecond >= timeout)
            return false;
    }
}

// Returns the given service, or else the browser's first.
[[nodiscard]] KIVCS2BonjourService *serviceOrFirst(const KIVCS2BonjourBrowser &browser,
                                                   KIVCS2BonjourService *service)
{
    return service != nullptr ? service : reinterpret_cast<KIVCS2BonjourService *>(browser.m_services.m_next);
}

[[nodiscard]] KIVCS2BonjourAddress *firstAddress(const KIVCS2BonjourService &service)
{
    return reinterpret_cast<KIVCS2BonjourAddress *>(service.m_addresses.m_next);
}
} // namespace

// ---- Publishing ----

KIVCS2Status kivCS2Bonjour_startPublishingService(KIVCS2BonjourPublisher *publisher, const char *domain,
                                                  const char *type, const char *name, uint32_t port)
{
    KIV_CHECK(publisher);

    *publisher = {};
    if (domain == nullptr || type == nullptr || name == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    const CFRef<CFStringRef> domainText = createText(domain);
    const CFRef<CFStringRef> typeText = createText(type);
    const CFRef<CFStringRef> nameText = createText(name);
    if (!domainText || !typeText || !nameText)
        return KIVCS2STATUS_MEMORY_ERR;
    if (port > UINT16_MAX) // the platform's port type is signed
        return KIVCS2STATUS_DATA_ERR;
    CFRef<CFNetServiceRef> service{CFNetServiceCreate(kCFAllocatorDefault, domainText.get(), typeText.get(),
                                                      nameText.get(), static_cast<SInt32>(port))};
    if (!service)
        return KIVCS2STATUS_DATA_ERR;
    KIV_TRY(startWorker(publisher->m_thread, service.get(), registerService));
    publisher->m_service = service.release();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Bonjour_endPublishingService(KIVCS2BonjourPublisher *publisher)
{
    KIV_CHECK(publisher);

    if (publisher->m_service != nullptr)
        CFNetServiceCancel(publisher->m_service);
    releaseAndClear(publisher->m_service);
    endWorker(publisher->m_thread);
    return KIVCS2STATUS_OK;
}

// ---- Browsing ----

KIVCS2Status kivCS2Bonjour_initBrowserData(KIVCS2BonjourBrowser *browser)
{
    KIV_CHECK(browser);

    *browser = {};
    KIV_TRY(kivCS2Mutex_init(&browser->m_mutex, KIVCS2MutexOptions_Recursive));
    KIVCS2Status status = kivCS2Mutex_init(&browser->m_endMutex, KIVCS2MutexOptions_None);
    if (KIVCS2_SUCCEEDED(status))
    {
        browser->m_clientContext.info = browser;
        browser->m_browser = CFNetServiceBrowserCreate(kCFAllocatorDefault, MyNetServiceBrowserClientCallBack,
                                                       &browser->m_clientContext);
        if (browser->m_browser == nullptr)
            status = KIVCS2STATUS_DATA_ERR;
    }
    if (KIVCS2_FAILED(status))
    {
        (void)kivCS2Mutex_free(&browser->m_endMutex); // harmless if it was not made
        (void)kivCS2Mutex_free(&browser->m_mutex);
        *browser = {};
    }
    return status;
}

KIVCS2Status kivCS2Bonjour_diposeBrowserData(KIVCS2BonjourBrowser *browser)
{
    KIV_CHECK(browser);

    if (browser->m_browser == nullptr) // never initialised, or disposed of before
        return KIVCS2STATUS_OK;
    // Called from its own callback: the worker still uses this record.
    if (t_watched != nullptr && t_watched->m_elem.m_list == &browser->m_services)
        return KIVCS2STATUS_STATE_ERR;
    bool inCallback = false;
    KIV_TRY(stopSearch(*browser, inCallback));
    if (inCallback)
        return KIVCS2STATUS_STATE_ERR;
    KIV_TRY(endSearch(*browser));
    releaseAndClear(browser->m_browser);
    while (KIVCS2LinkElem *elem = browser->m_services.m_next)
        freeService(reinterpret_cast<KIVCS2BonjourService *>(elem));
    (void)kivCS2Mutex_free(&browser->m_endMutex);
    (void)kivCS2Mutex_free(&browser->m_mutex);
    *browser = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Bonjour_findServices(KIVCS2BonjourBrowser *browser, const char *domain, const char *type,
                                        KIVCS2BonjourBrowserCallback callback, void *userData)
{
    KIV_CHECK(browser);
    KIV_CHECK(callback);

    CFRef<CFStringRef> domainText = createText(domain);
    CFRef<CFStringRef> typeText = createText(type);
    if (!domainText || !typeText)
        return KIVCS2STATUS_MEMORY_ERR;
    const kiv::MutexLock lock{browser->m_endMutex};
    KIV_TRY(lock.status());
    if (isBrowsing(*browser))
        return KIVCS2STATUS_STATE_ERR;
    KIVPNetServiceBrowserResolveAhead(browser->m_browser);
    browser->m_mode = KIVCS2BonjourMode_Spin;
    browser->m_callback = callback;
    browser->m_userData = userData;
    return startSearch(*browser, domainText, typeText);
}

KIVCS2Status kivCS2Bonjour_findFirstService(KIVCS2BonjourBrowser *browser, const char *domain,
                                            const char *type, const char *name, uint32_t timeout)
{
    KIV_CHECK(browser);

    CFRef<CFStringRef> domainText = createText(domain);
    CFRef<CFStringRef> typeText = createText(type);
    CFRef<CFStringRef> nameText = createText(name);
    if (!domainText || !typeText || !nameText)
        return KIVCS2STATUS_MEMORY_ERR;
    KIV_TRY(startFirst(*browser, domainText, typeText, nameText));

    bool isFound = waitForFirst(*browser, timeout);
    const KIVCS2Status status = kivCS2Bonjour_stopServiceBrowser(browser);
    // The service may have been found between the last check and the stop; that has ended all browsing.
    isFound = isFound || KIVCS2_SUCCEEDED(kivCS2Semaphore_testWait(&browser->m_semaphore));
    (void)kivCS2Semaphore_free(&browser->m_semaphore); // it exists, and no thread waits
    return KIVCS2_SUCCEEDED(status) && !isFound ? KIVCS2STATUS_TIMEOUT_ERR : status;
}

KIVCS2Status kivCS2Bonjour_stopServiceBrowser(KIVCS2BonjourBrowser *data)
{
    KIV_CHECK(data);

    bool inCallback = false;
    KIV_TRY(stopSearch(*data, inCallback));
    // In its own callback the worker cannot be waited for: it ends by itself, and disposing of the browser
    // waits for it.
    return inCallback ? KIVCS2STATUS_OK : endSearch(*data);
}

KIVCS2Status kivCS2Bonjour_getAddressesList(KIVCS2BonjourBrowser *browser, KIVCS2BonjourService *serviceData,
                                            KIVCS2BonjourAddress **hostAddr)
{
    KIV_CHECK(browser);
    serviceData = serviceOrFirst(*browser, serviceData);
    KIV_CHECK(serviceData);
    KIV_CHECK(hostAddr);

    *hostAddr = firstAddress(*serviceData);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Bonjour_getHostname(KIVCS2BonjourBrowser *browser, KIVCS2BonjourService *serviceData,
                                       const char **hostName)
{
    KIV_CHECK(browser);
    serviceData = serviceOrFirst(*browser, serviceData);
    KIV_CHECK(serviceData);
    KIV_CHECK(hostName);

    *hostName = serviceData->m_hostName;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Bonjour_getServiceName(KIVCS2BonjourBrowser *browser, KIVCS2BonjourService *serviceData,
                                          const char **serviceName)
{
    KIV_CHECK(browser);
    serviceData = serviceOrFirst(*browser, serviceData);
    KIV_CHECK(serviceData);
    KIV_CHECK(serviceName);

    *serviceName = serviceData->m_name;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Bonjour_getFirstPort(KIVCS2BonjourBrowser *browser, KIVCS2BonjourService *serviceData,
                                        uint32_t *firstPort)
{
    KIV_CHECK(browser);
    serviceData = serviceOrFirst(*browser, serviceData);
    KIV_CHECK(serviceData);
    KIV_CHECK(firstPort);

    const KIVCS2BonjourAddress *address = firstAddress(*serviceData);
    *firstPort = address != nullptr ? address->m_port : 0;
    return KIVCS2STATUS_OK;
}

// ---- Monitoring ----

KIVCS2Status kivCS2Bonjour_startServiceMonitor(KIVCS2BonjourService *service,
                                               KIVCS2BonjourMonitorCallback callback, void *userData)
{
    KIV_CHECK(service);
    KIV_CHECK(callback);

    if (t_watched == service)
        return KIVCS2STATUS_STATE_ERR;
    const kiv::MutexLock lock{service->m_monitorMutex};
    KIV_TRY(lock.status());
    if (service->m_monitor != nullptr && shared(service->m_monitorStop).load() == 0)
        return KIVCS2STATUS_STATE_ERR;
    endMonitor(*service); // its own callback may have stopped it, without waiting
    service->m_monitorCallback = callback;
    service->m_monitorUserData = userData;
    service->m_monitorContext = {};
    service->m_monitorContext.info = service;
    CFRef<CFNetServiceMonitorRef> monitor{CFNetServiceMonitorCreate(kCFAllocatorDefault, service->m_service,
                                                                    MyNetServiceMonitorClientCallBack,
                                                                    &service->m_monitorContext)};
    if (!monitor)
        return KIVCS2STATUS_DATA_ERR;
    service->m_monitor = monitor.get(); // before the first callback, which may stop the monitor
    shared(service->m_monitorStop).store(0);
    if (KIVCS2_FAILED(startWorker(service->m_monitorThread, monitor.get(), watchService)))
    {
        service->m_monitor = nullptr;
        return KIVCS2STATUS_DATA_ERR;
    }
    (void)monitor.release();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Bonjour_stopServiceMonitor(KIVCS2BonjourService *service)
{
    KIV_CHECK(service);

    // Set before the mutex is taken, as in stopSearch().
    shared(service->m_monitorStop).store(1);
    if (t_watched == service)
    {
        // In its own callback the worker cannot be waited for: the next stop or start does that.
        CFNetServiceMonitorStop(service->m_monitor, nullptr);
        return KIVCS2STATUS_OK;
    }
    const kiv::MutexLock lock{service->m_monitorMutex};
    KIV_TRY(lock.status());
    endMonitor(*service);
    return KIVCS2STATUS_OK;
}
