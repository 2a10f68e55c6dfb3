/**
 * @file
 * Calls for network services that hosts and modules need beyond the documented ones.
 */
#ifndef KIVP_NET_SERVICE_H
#define KIVP_NET_SERVICE_H

#include <CFNetwork/CFNetServices.h>

CF_EXTERN_C_BEGIN

/**
 * The current name of a service on the network: its own, or another if its own was taken (" #2"). Another
 * machine may force a change later.
 * @return released by the caller; NULL while the service is not announced (it is not published, its names are
 *         still being tried, there is no network) and without memory
 * Any thread; does not wait.
 */
CF_EXPORT CFStringRef KIVPNetServiceCopyPublishedName(CFNetServiceRef service);

/**
 * Lets the search resolve the next 32 services while the callback is busy with one. The time-out of
 * CFNetServiceResolveWithTimeout() for such a service counts from the start of that early resolving, so
 * services that do not respond time out together, not one after the other. Call it before the search.
 */
CF_EXPORT void KIVPNetServiceBrowserResolveAhead(CFNetServiceBrowserRef browser);

CF_EXTERN_C_END

#endif
