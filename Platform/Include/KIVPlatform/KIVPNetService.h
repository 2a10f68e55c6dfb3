/**
 * @file
 * What hosts and modules ask of network services beyond the documented calls.
 */
#ifndef KIVP_NET_SERVICE_H
#define KIVP_NET_SERVICE_H

#include <CFNetwork/CFNetServices.h>

CF_EXTERN_C_BEGIN

/**
 * The name that a service has on the network at this moment: its own, or the one that it got because its own was
 * taken (" #2"). Another machine may force another one later.
 * @return released by the caller; NULL while the service is not announced (it is not published, its names are
 *         still being tried, there is no network) and without memory
 * Any thread; does not wait.
 */
CF_EXPORT CFStringRef KIVPNetServiceCopyPublishedName(CFNetServiceRef service);

/**
 * Lets the search, once it begins, resolve the next 32 services while the callback is busy with one. The time-out of
 * CFNetServiceResolveWithTimeout() for such a service counts from the moment when that began, so that services that
 * do not answer take their time together. Call it before the search.
 */
CF_EXPORT void KIVPNetServiceBrowserResolveAhead(CFNetServiceBrowserRef browser);

CF_EXTERN_C_END

#endif
