/**
 * @file
 * Service discovery: publishes services on the local network and finds them by domain, type and name
 * (RFC 6762, RFC 6763).
 *
 * The caller owns the records of publishers and browsers, which must not move while in use. A browser owns
 * the services it has found and their addresses until the browser is disposed of. Work that waits for the
 * network runs on a worker thread of its own. So only two kinds of operation block their caller: finding the
 * first service, which waits on purpose, and the endings, which wait for their worker.
 *
 * A browser's life: `initBrowserData`, then `findServices` or `findFirstService` once, `stopServiceBrowser`
 * and `diposeBrowserData`. To browse again after a stop, initialise the browser again.
 *
 * Once kivCS2Bonjour_findFirstService() has found its service, no browser of the process finds any more
 * services, and no callback is called. Look for the first service last, or in a process of its own.
 *
 * Texts are ASCII. A domain of "" is the default domain, "local"; a type is written like "_http._tcp".
 * Start-up must have run.
 *
 * @code
 * KIVCS2BonjourBrowser browser;
 * KIVCS2BonjourAddress *address;
 * if (KIVCS2_FAILED(kivCS2Bonjour_initBrowserData(&browser)))
 *     return 1;
 * if (KIVCS2_SUCCEEDED(kivCS2Bonjour_findFirstService(&browser, "", "_http._tcp", "Playout", 100)) &&
 *     KIVCS2_SUCCEEDED(kivCS2Bonjour_getAddressesList(&browser, NULL, &address)) && address != NULL)
 *     printf("port %u\n", address->m_port);
 * else
 *     puts("not found"); // prints: not found
 * kivCS2Bonjour_diposeBrowserData(&browser); // and the services it has found
 * @endcode
 */
#ifndef KIVCS2_BONJOUR_H
#define KIVCS2_BONJOUR_H

#include "KIVCS2Base.h"
#include "KIVCS2LinkList.h"
#include "KIVCS2Mutex.h"
#include "KIVCS2PThread.h"
#include "KIVCS2Semaphore.h"

#include <CFNetwork/CFNetwork.h>
#include <CoreFoundation/CoreFoundation.h>

KIVCS2_BEGIN_DECLS

enum
{
    KIVCS2BonjourNameMax = 256 /**< bytes of a host or service name, terminator included */
};

/** A service that this process offers. */
typedef struct KIVCS2BonjourPublisher
{
    CFNetServiceRef m_service;      /**< owned; for calls like CFNetServiceSetTXTData(). Null once ended */
    KIVCS2SemaphoreThread m_thread; /**< registers the service and waits until it is cancelled */
} KIVCS2BonjourPublisher;

/** One IPv4 address of a found service. */
typedef struct KIVCS2BonjourAddress
{
    KIVCS2LinkElem m_elem; /**< link in the service's list */
    uint32_t m_address;    /**< in network order, as in `struct in_addr` */
    uint32_t m_port;       /**< in host order */
} KIVCS2BonjourAddress;

struct KIVCS2BonjourService;
struct KIVCS2BonjourBrowser;

/**
 * Called when a service was found. It runs on the browser's worker with the browser's mutex held: it may call
 * the operations of the service and kivCS2Bonjour_stopServiceBrowser(), but not
 * kivCS2Bonjour_diposeBrowserData().
 */
typedef void (*KIVCS2BonjourBrowserCallback)(struct KIVCS2BonjourBrowser *browser,
                                             struct KIVCS2BonjourService *service, void *userData,
                                             struct KIVCS2BonjourBrowser *sameBrowser);

/**
 * Called when a monitored TXT record has arrived or changed; the service record holds it. It runs on the
 * monitor's worker and may stop the monitor, but must not dispose of the browser.
 */
typedef void (*KIVCS2BonjourMonitorCallback)(struct KIVCS2BonjourService *service, void *userData,
                                             struct KIVCS2BonjourService *sameService);

/** A found service. */
typedef struct KIVCS2BonjourService
{
    KIVCS2LinkElem m_elem;                 /**< link in the browser's list */
    KIVCS2LinkList m_addresses;            /**< elements: KIVCS2BonjourAddress */
    uint32_t m_addressCount;               /**< always 0; the list has its own count */
    CFNetServiceRef m_service;             /**< owned */
    char m_hostName[KIVCS2BonjourNameMax]; /**< ASCII, other characters as "?"; empty if it did not resolve */
    char m_name[KIVCS2BonjourNameMax];     /**< the service's name, in the same form */
    KIVCS2SemaphoreThread m_monitorThread; /**< the worker that monitors */
    uint32_t m_monitorStop;                /**< 1 once stopping of the monitor has begun */
    CFNetServiceMonitorRef m_monitor;      /**< owned; null while not monitored */
    CFNetServiceMonitorType m_recordType;  /**< type of the last record: 1, TXT */
    CFDataRef m_recordData;                /**< its data as in DNS; owned, null before the first record */
    CFStreamError m_recordError;           /**< the system's error with the last record */
    CFNetServiceClientContext m_monitorContext;     /**< of the callbacks from the system; private */
    KIVCS2BonjourMonitorCallback m_monitorCallback; /**< as given */
    void *m_monitorUserData;                        /**< passed to `m_monitorCallback` */
    KIVCS2Mutex m_monitorMutex;                     /**< held while a monitor is started or ended; private */
} KIVCS2BonjourService;

/** The activity of a browser; four-character codes. */
typedef uint32_t KIVCS2BonjourMode;
enum
{
    KIVCS2BonjourMode_First = 0x66727374, /**< 'frst': finding the first service of a name */
    KIVCS2BonjourMode_Spin = 0x7370696E   /**< 'spin': browsing until stopped */
};

/** A browser and the services it has found. */
typedef struct KIVCS2BonjourBrowser
{
    KIVCS2Semaphore m_semaphore;               /**< signalled when the first service is found */
    uint32_t m_stop;                           /**< 1 once stopping has begun: callbacks then do nothing */
    KIVCS2Mutex m_mutex;                       /**< recursive; held by every callback and every stop */
    KIVCS2SemaphoreThread m_thread;            /**< the worker that browses */
    CFNetServiceClientContext m_clientContext; /**< of the callbacks from the system; private */
    CFNetServiceBrowserRef m_browser;          /**< owned */
    CFStringRef m_domain;                      /**< owned, as are the next two; null while not searching */
    CFStringRef m_type;                        /**< the type searched for */
    CFStringRef m_name;                        /**< the wanted name, if looking for the first service */
    KIVCS2LinkList m_services;                 /**< elements: KIVCS2BonjourService */
    KIVCS2BonjourMode m_mode;                  /**< as the last search was started */
    KIVCS2BonjourBrowserCallback m_callback; /**< as given; may be null while looking for the first service */
    void *m_userData;                        /**< passed to `m_callback` */
    KIVCS2Mutex m_endMutex;                  /**< held while the worker is ended; private */
    uint32_t m_inCallback;                   /**< 1 while the host's callback runs; private */
} KIVCS2BonjourBrowser;

/**
 * Publishes a service from a worker thread until kivCS2Bonjour_endPublishingService(). The record's previous
 * contents are ignored. Whether the network accepts the service is not reported; a name that is taken gets a
 * number (" #2"). KIVPNetServiceCopyPublishedName() of <KIVPlatform/KIVPNetService.h>, called with
 * `m_service`, returns the name the service was given, once it has one.
 * @param[out] publisher  must not move until the service is withdrawn
 * @param[in]  domain     ASCII; "" for "local"
 * @param[in]  type       ASCII, for example "_http._tcp"
 * @param[in]  name       at most 63 bytes
 * @param[in]  port       0 to 65535, in host order
 * @retval KIVCS2STATUS_PARAM_ERR      an argument is null (texts: no assertion)
 * @retval KIVCS2STATUS_MEMORY_ERR     a text is not ASCII, or no memory
 * @retval KIVCS2STATUS_DATA_ERR       the port is out of range, or the service could not be made
 * @retval KIVCS2STATUS_SEMAPHORE_ERR  the worker could not be started
 * @retval KIVCS2STATUS_THREAD_ERR     the worker could not be started
 * After a failure the record is zero. Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_startPublishingService(KIVCS2BonjourPublisher *publisher,
                                                             const char *domain, const char *type,
                                                             const char *name, uint32_t port);

/**
 * Withdraws the service, waits for the worker and zeroes the record. A record that publishes no service is
 * left unchanged.
 * @retval KIVCS2STATUS_PARAM_ERR  `publisher` is null
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_endPublishingService(KIVCS2BonjourPublisher *publisher);

/**
 * Makes `browser` ready. The record's previous contents are ignored.
 * @retval KIVCS2STATUS_PARAM_ERR  `browser` is null
 * @retval KIVCS2STATUS_MUTEX_ERR  the system made no mutex; the record is zero
 * @retval KIVCS2STATUS_DATA_ERR   no browser could be created; the record is zero
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_initBrowserData(KIVCS2BonjourBrowser *browser);

/**
 * Starts to browse. `callback` is called once for each service, in the order in which the services arrive,
 * after the service was resolved. That takes at most 2 seconds; a service that did not resolve is listed
 * without host and addresses. The next 32 services are resolved meanwhile, so several services that do not
 * respond take their 2 seconds together. Services that go away stay listed; one that comes back is found
 * again. A failed search is not reported.
 * @param[in,out] browser   made ready by kivCS2Bonjour_initBrowserData()
 * @param[in]     domain    ASCII; "" for "local"
 * @param[in]     type      ASCII, for example "_http._tcp"
 * @param[in]     callback  runs on the browser's worker
 * @param[in]     userData  passed to the callback unchanged; may be null
 * @retval KIVCS2STATUS_PARAM_ERR   `browser` or `callback` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  a text is null or not ASCII (no assertion), or no memory
 * @retval KIVCS2STATUS_STATE_ERR   the browser is browsing
 * @retval KIVCS2STATUS_DATA_ERR    the worker could not be started
 * After a failure nothing has changed. Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_findServices(KIVCS2BonjourBrowser *browser, const char *domain,
                                                   const char *type, KIVCS2BonjourBrowserCallback callback,
                                                   void *userData);

/**
 * Waits until a service of exactly this name was found and resolved; it is then the first in the browser's
 * list. The browser is stopped afterwards, whether or not the service was found. A service still being
 * resolved at the time-out is not found; a later search may find it. A stop by another thread does not
 * shorten the wait.
 *
 * The call returns within 0.1 s of its time-out, with one exception: if the machine's discovery daemon hangs
 * (it runs but does not respond), each request to it takes the 25 s of a call over the system bus. This call
 * then takes about 50 s, and so does every ending of a browser, monitor or publisher.
 * @param[in,out] browser  made ready by kivCS2Bonjour_initBrowserData()
 * @param[in]     domain   ASCII; "" for "local"
 * @param[in]     type     ASCII, for example "_http._tcp"
 * @param[in]     name     ASCII; compared exactly
 * @param[in]     timeout  milliseconds; 0 checks once
 * @retval KIVCS2STATUS_PARAM_ERR      `browser` is null
 * @retval KIVCS2STATUS_MEMORY_ERR     a text is null or not ASCII (no assertion), or no memory
 * @retval KIVCS2STATUS_STATE_ERR      the browser is browsing
 * @retval KIVCS2STATUS_SEMAPHORE_ERR  no semaphore; nothing has changed
 * @retval KIVCS2STATUS_DATA_ERR       the worker could not be started; nothing has changed
 * @retval KIVCS2STATUS_TIMEOUT_ERR    not found in time
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_findFirstService(KIVCS2BonjourBrowser *browser, const char *domain,
                                                       const char *type, const char *name, uint32_t timeout);

/**
 * Stops browsing and waits for the worker. No callback runs afterwards, with one exception: if the browser's
 * own callback stops the browser, that callback is the last. A service being resolved meanwhile is not waited
 * for and is not listed. A second call is harmless, and so is a call for a browser that never began.
 * @retval KIVCS2STATUS_PARAM_ERR  `data` is null
 * @retval KIVCS2STATUS_MUTEX_ERR  the browser is not initialised
 * Thread safety: any thread, the browser's callback included, until it is disposed of.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_stopServiceBrowser(KIVCS2BonjourBrowser *data);

/**
 * Stops the browser and the monitors of its services, releases everything it holds and zeroes the record.
 * @retval KIVCS2STATUS_PARAM_ERR  `browser` is null
 * @retval KIVCS2STATUS_STATE_ERR  called by a callback of the browser or of its monitors; nothing was
 *                                 released
 * Thread safety: only the owner. The name's spelling is the exported one.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_diposeBrowserData(KIVCS2BonjourBrowser *browser);

/**
 * Stores the first IPv4 address of a service, or null if it has none; the others follow by its links, in
 * numerical order. They are all the addresses that the host has on the networks it shares with this machine.
 * The call waits 0.8 s for a network on which the host does not respond.
 * @param[in]  browser      the browser that owns the service
 * @param[in]  serviceData  null: the first service of the browser
 * @param[out] hostAddr     owned by the service
 * @retval KIVCS2STATUS_PARAM_ERR  an argument is null, or there is no service
 * Thread safety: the browser's callback, or the owner once the browser is stopped. The same holds for the
 * next three operations.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_getAddressesList(KIVCS2BonjourBrowser *browser,
                                                       KIVCS2BonjourService *serviceData,
                                                       KIVCS2BonjourAddress **hostAddr);

/** As kivCS2Bonjour_getAddressesList(), for the host's name; the record owns the text. */
KIVCS2_API KIVCS2Status kivCS2Bonjour_getHostname(KIVCS2BonjourBrowser *browser,
                                                  KIVCS2BonjourService *serviceData, const char **hostName);

/** As kivCS2Bonjour_getAddressesList(), for the service's name; the record owns the text. */
KIVCS2_API KIVCS2Status kivCS2Bonjour_getServiceName(KIVCS2BonjourBrowser *browser,
                                                     KIVCS2BonjourService *serviceData,
                                                     const char **serviceName);

/** As kivCS2Bonjour_getAddressesList(), for the port of the first address; 0 if there is no address. */
KIVCS2_API KIVCS2Status kivCS2Bonjour_getFirstPort(KIVCS2BonjourBrowser *browser,
                                                   KIVCS2BonjourService *serviceData, uint32_t *firstPort);

/**
 * Monitors the service's TXT record: `callback` is called with the current record and after every change. A
 * monitor that fails is not reported.
 * @param[in,out] service   a found service; its browser still exists
 * @param[in]     callback  runs on the monitor's worker
 * @param[in]     userData  passed to the callback unchanged; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `service` or `callback` is null
 * @retval KIVCS2STATUS_STATE_ERR  the service is monitored, or the call comes from the monitor's callback
 * @retval KIVCS2STATUS_DATA_ERR   no monitor or no worker could be made; the service is not monitored
 * Thread safety: any thread, the browser's callback included, until the browser is disposed of.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_startServiceMonitor(KIVCS2BonjourService *service,
                                                          KIVCS2BonjourMonitorCallback callback,
                                                          void *userData);

/**
 * Stops the monitor and waits for its worker. No callback runs afterwards, with one exception: if the
 * monitor's own callback stops the monitor, that callback is the last. The last record stays. A second call
 * is harmless, and so is a call for a service that was never monitored.
 * @retval KIVCS2STATUS_PARAM_ERR  `service` is null
 * Thread safety: any thread, the monitor's callback included, until the browser is disposed of.
 */
KIVCS2_API KIVCS2Status kivCS2Bonjour_stopServiceMonitor(KIVCS2BonjourService *service);

KIVCS2_END_DECLS

#endif
