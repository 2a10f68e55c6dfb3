/**
 * @file
 * Services on the local network: publishing, browsing, resolving and monitoring by multicast DNS and DNS
 * service discovery (RFC 6762, RFC 6763).
 *
 * Every call that waits does so on the calling thread, and its callbacks run on that thread too.
 * Any thread may cancel, stop and invalidate, also from a callback. These calls stay in force: made
 * before the waiting call has begun, they end it at once.
 *
 * The calls use the machine's discovery daemon while one runs, and otherwise speak multicast DNS themselves.
 * Everything published, searched and watched moves over when a daemon comes or goes.
 *
 * Texts are as in DNS: a domain or type may end in a dot. An empty domain means the default one, "local".
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
    kCFNetServicesErrorNotFound = -72002,    /**< no reply for the service */
    kCFNetServicesErrorInProgress = -72003,  /**< the object is already waiting in this call */
    kCFNetServicesErrorBadArgument = -72004, /**< a name, type, domain or port that DNS cannot carry */
    kCFNetServicesErrorCancel = -72005,      /**< cancelled, stopped or invalidated */
    kCFNetServicesErrorInvalid = -72006,     /**< no network to use */
    kCFNetServicesErrorTimeout = -72007
};

/** Flags of a browser's callback. */
enum
{
    kCFNetServiceFlagMoreComing = 1, /**< another call follows at once */
    kCFNetServiceFlagIsDomain = 2,   /**< a domain, not a service; this system searches only for services */
    kCFNetServiceFlagIsDefault = 4,
    kCFNetServiceFlagRemove = 8 /**< the service has gone */
};

/** Options of a registration. */
enum
{
    kCFNetServiceFlagNoAutoRename = 1 /**< a name that is taken is an error */
};

/** The records that a monitor watches. */
typedef int CFNetServiceMonitorType;
enum
{
    kCFNetServiceMonitorTXT = 1
};

typedef const void *(*CFNetServiceRetainCallBack)(const void *info);
typedef void (*CFNetServiceReleaseCallBack)(const void *info);
typedef CFStringRef (*CFNetServiceCopyDescriptionCallBack)(const void *info);

/** The context that a client's callbacks receive. */
typedef struct CFNetServiceClientContext
{
    CFIndex version; /**< 0 */
    void *info;      /**< passed to every callback */
    CFNetServiceRetainCallBack retain;
    CFNetServiceReleaseCallBack release;
    CFNetServiceCopyDescriptionCallBack copyDescription; /**< not called by this system */
} CFNetServiceClientContext;

/**
 * A service has come or gone. `domainOrService` is a CFNetServiceRef; the callback retains it to keep it.
 * After a failure it is NULL, `error` gives the reason, and the search is over.
 */
typedef void (*CFNetServiceBrowserClientCallBack)(CFNetServiceBrowserRef browser, CFOptionFlags flags,
                                                  CFTypeRef domainOrService, CFStreamError *error,
                                                  void *info);

/** A record has come or changed; `rdata` is its data as in DNS; the callback retains it to keep it. */
typedef void (*CFNetServiceMonitorClientCallBack)(CFNetServiceMonitorRef theMonitor,
                                                  CFNetServiceRef theService,
                                                  CFNetServiceMonitorType typeInfo, CFDataRef rdata,
                                                  CFStreamError *error, void *info);

// ---- Services ----

CF_EXPORT CFTypeID CFNetServiceGetTypeID(void);

/**
 * A service to publish or to resolve; nothing is sent yet.
 * @param[in] name  empty: the machine's host name
 * @param[in] port  0 to 65535; -1 for a service that is only resolved
 * @return NULL for a port out of range and without memory
 */
CF_EXPORT CFNetServiceRef CFNetServiceCreate(CFAllocatorRef alloc, CFStringRef domain,
                                             CFStringRef serviceType, CFStringRef name, SInt32 port);

CF_EXPORT CFStringRef CFNetServiceGetDomain(CFNetServiceRef theService);
CF_EXPORT CFStringRef CFNetServiceGetType(CFNetServiceRef theService);
CF_EXPORT CFStringRef CFNetServiceGetName(CFNetServiceRef theService);
/** The host that offers the service, without a dot at its end; NULL until the service is resolved. */
CF_EXPORT CFStringRef CFNetServiceGetTargetHost(CFNetServiceRef theService);
/** The port given, or the one resolved; -1 for none. */
CF_EXPORT SInt32 CFNetServiceGetPortNumber(CFNetServiceRef theService);
/**
 * The host's addresses with the service's port, each a CFDataRef of a struct sockaddr_in or sockaddr_in6, the
 * IPv4 ones first and each family in numerical order; NULL until the service is resolved. The array stays
 * valid until the service is resolved again.
 */
CF_EXPORT CFArrayRef CFNetServiceGetAddressing(CFNetServiceRef theService);

/**
 * Sets the TXT record to publish, as in DNS: texts of up to 255 bytes, each after a byte with its length. A
 * service that is already published is announced again. Any thread.
 * @return false for data of another form, for more than 8900 bytes, and without memory
 */
CF_EXPORT Boolean CFNetServiceSetTXTData(CFNetServiceRef theService, CFDataRef txtRecord);

/**
 * Publishes the service and waits until it is cancelled. A name that is taken is published
 * with a number (" #2"); the service object keeps its own. If the network or the daemon
 * goes and comes back, it is announced again.
 * @param[in] options  kCFNetServiceFlagNoAutoRename or 0
 * @param[out] error   may be NULL
 * @return false, always: it failed or was cancelled
 */
CF_EXPORT Boolean CFNetServiceRegisterWithOptions(CFNetServiceRef theService, CFOptionFlags options,
                                                  CFStreamError *error);

/**
 * Finds the host, the port and the host's addresses, waiting at most `timeout` seconds. It ends when
 * an IPv4 address has come from every network that the host may be on: each interface of this
 * machine that is up and has a carrier, an IPv4 address and multicast. It waits up to 0.8 s after
 * the first address for the other networks, and up to 1.3 s for an IPv4 address if only IPv6 ones
 * are seen. IPv6 addresses are those known by then.
 * @param[out] error  may be NULL
 * @return true when the service has at least one address; otherwise the service keeps the results found
 */
CF_EXPORT Boolean CFNetServiceResolveWithTimeout(CFNetServiceRef theService, CFTimeInterval timeout,
                                                 CFStreamError *error);

/** Ends publishing and resolving of the service for good. Any thread. */
CF_EXPORT void CFNetServiceCancel(CFNetServiceRef theService);

// ---- Browsers ----

CF_EXPORT CFTypeID CFNetServiceBrowserGetTypeID(void);
CF_EXPORT CFNetServiceBrowserRef CFNetServiceBrowserCreate(CFAllocatorRef alloc,
                                                           CFNetServiceBrowserClientCallBack clientCB,
                                                           CFNetServiceClientContext *clientContext);
/** Ends the browser for good: no callback begins after it. Any thread. */
CF_EXPORT void CFNetServiceBrowserInvalidate(CFNetServiceBrowserRef browser);
/**
 * Searches and calls back until it is stopped. Each service is reported once, however many networks it is
 * seen on, and removed once it is gone from all. A name that is not UTF-8 is ignored (RFC 6763, 4.1.1).
 * @param[out] error  may be NULL
 * @return false, always: it failed or was stopped
 */
CF_EXPORT Boolean CFNetServiceBrowserSearchForServices(CFNetServiceBrowserRef browser, CFStringRef domain,
                                                       CFStringRef serviceType, CFStreamError *error);
/** Ends the search; `error`, which may be NULL, becomes the search's error. Any thread. */
CF_EXPORT void CFNetServiceBrowserStopSearch(CFNetServiceBrowserRef browser, CFStreamError *error);

// ---- Monitors ----

CF_EXPORT CFTypeID CFNetServiceMonitorGetTypeID(void);
/** Creates a monitor, which retains the service. NULL without memory. */
CF_EXPORT CFNetServiceMonitorRef CFNetServiceMonitorCreate(CFAllocatorRef alloc, CFNetServiceRef theService,
                                                           CFNetServiceMonitorClientCallBack clientCB,
                                                           CFNetServiceClientContext *clientContext);
/** Ends the monitor for good: no callback begins after it. Any thread. */
CF_EXPORT void CFNetServiceMonitorInvalidate(CFNetServiceMonitorRef monitor);
/**
 * Calls back with the current record and with every later one that replaces it, until it is stopped.
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
