/**
 * @file
 * Services on the local network: publishing, browsing, resolving and monitoring by multicast DNS and DNS
 * service discovery (RFC 6762, RFC 6763).
 *
 * Every call that waits does so on the calling thread, which is also the one that its callbacks run on.
 * Cancel, stop and invalidate may be called from any thread, callbacks included. They stay in force: given
 * before the waiting call has begun, they end it at once.
 *
 * The calls go through the machine's discovery daemon while one runs and answer the network themselves while
 * none does; what is published, searched and watched moves over when a daemon comes or goes.
 *
 * Texts are as in DNS: a domain or type may end in a dot. An empty domain is the default one, "local".
 */
#ifndef KIV_CFNETWORK_CFNETSERVICES_H
#define KIV_CFNETWORK_CFNETSERVICES_H

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFStream.h>

CF_EXTERN_C_BEGIN

typedef struct __CFNetService *CFNetServiceRef;
typedef struct __CFNetServiceBrowser *CFNetServiceBrowserRef;
typedef struct __CFNetServiceMonitor *CFNetServiceMonitorRef;

/** The domain of the errors below. */
CF_EXPORT const SInt32 kCFStreamErrorDomainNetServices;

typedef SInt32 CFNetServicesError;
enum
{
    kCFNetServicesErrorUnknown = -72000,
    kCFNetServicesErrorCollision = -72001,   /**< the name is taken and must not be changed */
    kCFNetServicesErrorNotFound = -72002,    /**< nobody answers for the service */
    kCFNetServicesErrorInProgress = -72003,  /**< the object waits in this call already */
    kCFNetServicesErrorBadArgument = -72004, /**< a name, type, domain or port that DNS cannot carry */
    kCFNetServicesErrorCancel = -72005,      /**< cancelled, stopped or invalidated */
    kCFNetServicesErrorInvalid = -72006,     /**< no network to use */
    kCFNetServicesErrorTimeout = -72007
};

/** What a browser's callback is told of. */
enum
{
    kCFNetServiceFlagMoreComing = 1, /**< another call follows at once */
    kCFNetServiceFlagIsDomain = 2, /**< of a domain, not of a service; this system searches services alone */
    kCFNetServiceFlagIsDefault = 4,
    kCFNetServiceFlagRemove = 8 /**< it went away */
};

/** Options of a registration. */
enum
{
    kCFNetServiceFlagNoAutoRename = 1 /**< a name that is taken is an error */
};

/** What a monitor watches. */
typedef int CFNetServiceMonitorType;
enum
{
    kCFNetServiceMonitorTXT = 1
};

typedef const void *(*CFNetServiceRetainCallBack)(const void *info);
typedef void (*CFNetServiceReleaseCallBack)(const void *info);
typedef CFStringRef (*CFNetServiceCopyDescriptionCallBack)(const void *info);

/** What a client wants to be called with. */
typedef struct CFNetServiceClientContext
{
    CFIndex version; /**< 0 */
    void *info;      /**< handed to every callback */
    CFNetServiceRetainCallBack retain;
    CFNetServiceReleaseCallBack release;
    CFNetServiceCopyDescriptionCallBack copyDescription; /**< not called by this system */
} CFNetServiceClientContext;

/**
 * A service has come or gone; `domainOrService` is a CFNetServiceRef that the callee retains to keep. After a
 * failure it is NULL and `error` says what happened; the search is over then.
 */
typedef void (*CFNetServiceBrowserClientCallBack)(CFNetServiceBrowserRef browser, CFOptionFlags flags,
                                                  CFTypeRef domainOrService, CFStreamError *error,
                                                  void *info);

/** A record has come or changed; `rdata` is its data as in DNS, retained by the callee to be kept. */
typedef void (*CFNetServiceMonitorClientCallBack)(CFNetServiceMonitorRef theMonitor,
                                                  CFNetServiceRef theService,
                                                  CFNetServiceMonitorType typeInfo, CFDataRef rdata,
                                                  CFStreamError *error, void *info);

// ---- Services ----

CF_EXPORT CFTypeID CFNetServiceGetTypeID(void);

/**
 * A service to publish or to resolve; nothing is sent yet.
 * @param[in] name  empty: the machine's host name
 * @param[in] port  0 to 65535; -1 where it is only resolved
 * @return NULL for a port out of range and without memory
 */
CF_EXPORT CFNetServiceRef CFNetServiceCreate(CFAllocatorRef alloc, CFStringRef domain,
                                             CFStringRef serviceType, CFStringRef name, SInt32 port);

CF_EXPORT CFStringRef CFNetServiceGetDomain(CFNetServiceRef theService);
CF_EXPORT CFStringRef CFNetServiceGetType(CFNetServiceRef theService);
CF_EXPORT CFStringRef CFNetServiceGetName(CFNetServiceRef theService);
/** The host that offers the service, without a dot at its end; NULL before it was resolved. */
CF_EXPORT CFStringRef CFNetServiceGetTargetHost(CFNetServiceRef theService);
/** The port given, or the one resolved; -1 for none. */
CF_EXPORT SInt32 CFNetServiceGetPortNumber(CFNetServiceRef theService);
/**
 * The host's addresses with the service's port, each a CFDataRef of a struct sockaddr_in or sockaddr_in6, the IPv4
 * ones first and each family in the order of its numbers; NULL before it was resolved. It stays valid until the
 * service is resolved again.
 */
CF_EXPORT CFArrayRef CFNetServiceGetAddressing(CFNetServiceRef theService);

/**
 * The TXT record to publish, as in DNS: texts of up to 255 bytes, each behind its length. A service that is
 * published is announced anew. Any thread.
 * @return false for data that are no such texts, that are longer than 8900 bytes, and without memory
 */
CF_EXPORT Boolean CFNetServiceSetTXTData(CFNetServiceRef theService, CFDataRef txtRecord);

/**
 * Publishes the service and waits until it is cancelled. A name that is taken gets a number (" #2"); the
 * service keeps its own. Where the network or the daemon goes away and comes back it is announced again.
 * @param[in] options  kCFNetServiceFlagNoAutoRename or 0
 * @param[out] error   may be NULL
 * @return false, always: it failed or was cancelled
 */
CF_EXPORT Boolean CFNetServiceRegisterWithOptions(CFNetServiceRef theService, CFOptionFlags options,
                                                  CFStreamError *error);

/**
 * Finds the host, the port and the host's addresses, waiting `timeout` seconds at most. It ends when an IPv4 address
 * has come from every network that the host may be on: each interface of this machine that is up, has a carrier, an
 * IPv4 address and multicast. A network on which the host says nothing is waited for 0.8 s after the first address, and
 * an IPv4 address of a host of which only IPv6 ones are seen 1.3 s. IPv6 addresses are those known by then.
 * @param[out] error  may be NULL
 * @return true when the service has at least one address; otherwise it keeps what was found
 */
CF_EXPORT Boolean CFNetServiceResolveWithTimeout(CFNetServiceRef theService, CFTimeInterval timeout,
                                                 CFStreamError *error);

/** Ends publishing and resolving of the service, for good. Any thread. */
CF_EXPORT void CFNetServiceCancel(CFNetServiceRef theService);

// ---- Browsers ----

CF_EXPORT CFTypeID CFNetServiceBrowserGetTypeID(void);
CF_EXPORT CFNetServiceBrowserRef CFNetServiceBrowserCreate(CFAllocatorRef alloc,
                                                           CFNetServiceBrowserClientCallBack clientCB,
                                                           CFNetServiceClientContext *clientContext);
/** Ends the browser for good: no callback begins after it. Any thread. */
CF_EXPORT void CFNetServiceBrowserInvalidate(CFNetServiceBrowserRef browser);
/**
 * Searches and calls back until it is stopped. Each service is named once, however many networks it is
 * seen on, and removed once it is gone from all. A name that is no UTF-8 is none (RFC 6763, 4.1.1).
 * @param[out] error  may be NULL
 * @return false, always: it failed or was stopped
 */
CF_EXPORT Boolean CFNetServiceBrowserSearchForServices(CFNetServiceBrowserRef browser, CFStringRef domain,
                                                       CFStringRef serviceType, CFStreamError *error);
/** Ends the search; `error`, which may be NULL, becomes the search's error. Any thread. */
CF_EXPORT void CFNetServiceBrowserStopSearch(CFNetServiceBrowserRef browser, CFStreamError *error);

// ---- Monitors ----

CF_EXPORT CFTypeID CFNetServiceMonitorGetTypeID(void);
/** A monitor, which retains the service. NULL without memory. */
CF_EXPORT CFNetServiceMonitorRef CFNetServiceMonitorCreate(CFAllocatorRef alloc, CFNetServiceRef theService,
                                                           CFNetServiceMonitorClientCallBack clientCB,
                                                           CFNetServiceClientContext *clientContext);
/** Ends the monitor for good: no callback begins after it. Any thread. */
CF_EXPORT void CFNetServiceMonitorInvalidate(CFNetServiceMonitorRef monitor);
/**
 * Calls back with the record there is and with every other that takes its place, until it is stopped.
 * @param[in] recordType  kCFNetServiceMonitorTXT
 * @param[out] error      may be NULL
 * @return false, always: it failed or was stopped
 */
CF_EXPORT Boolean CFNetServiceMonitorStart(CFNetServiceMonitorRef monitor, CFNetServiceMonitorType recordType,
                                           CFStreamError *error);
/** Ends the watch; `error`, which may be NULL, becomes the watch's error. Any thread. */
CF_EXPORT void CFNetServiceMonitorStop(CFNetServiceMonitorRef monitor, CFStreamError *error);

CF_EXTERN_C_END

#endif
