/**
 * @file
 * Socket behaviour that the modules need and Linux does not have: no-SIGPIPE as an option of the
 * descriptor, buffer sizes that read as they were set, poll without a hang-up for sockets that were never
 * connected, waiting on descriptors of any number, and descriptors above 2 that launched programs do not
 * inherit.
 *
 * Every call sets errno as the system call of its name does. Any thread; one descriptor is opened or closed
 * by one thread at a time.
 */
#ifndef KIVP_SOCKET_H
#define KIVP_SOCKET_H

#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/socket.h>
#include <sys/types.h>

__BEGIN_DECLS

#define KIVP_EXPORT extern __attribute__((visibility("default")))

#ifndef SO_NOSIGPIPE
/** At SOL_SOCKET, an int: a send to a peer that is gone only gives EPIPE. No Linux option has this number. */
#define SO_NOSIGPIPE 0x1022
#endif

/** socket(2): closed on exec, and above 2, because 0 means no descriptor in a record. No-SIGPIPE is off. */
KIVP_EXPORT int KIVPSocketOpen(int family, int type);

/** accept(2), otherwise like KIVPSocketOpen(). The connection inherits no-SIGPIPE from the listener. */
KIVP_EXPORT int KIVPSocketAccept(int fd, struct sockaddr *address, socklen_t *size);

/** close(2); no-SIGPIPE is off for the next descriptor with this number. */
KIVP_EXPORT int KIVPSocketClose(int fd);

/** sendto(2), or send(2) if `to` is null, without SIGPIPE if the descriptor has no-SIGPIPE. */
KIVP_EXPORT ssize_t KIVPSocketSend(int fd, const void *buffer, size_t size, const struct sockaddr *to,
                                   socklen_t toSize);

/**
 * getsockopt(2) that also knows SO_NOSIGPIPE and returns SO_RCVBUF and SO_SNDBUF as they were set: Linux
 * doubles them for its own book-keeping.
 */
KIVP_EXPORT int KIVPSocketGetOption(int fd, int level, int name, void *value, socklen_t *size);

/** setsockopt(2) that also knows SO_NOSIGPIPE. ENOMEM if there is no memory to mark the descriptor. */
KIVP_EXPORT int KIVPSocketSetOption(int fd, int level, int name, const void *value, socklen_t size);

/**
 * poll(2) of one descriptor without a wait. A stream socket that was never connected does not hang up,
 * although Linux reports POLLOUT | POLLHUP. A negative descriptor gives POLLNVAL. POLLERR, POLLHUP and
 * POLLNVAL count as events, as for poll.
 * @param[out] found  the events
 * @return 1 with an event, 0 without, -1 on failure
 */
KIVP_EXPORT int KIVPSocketPoll(int fd, short events, short *found);

/**
 * select(2) of one descriptor for reading, whatever its number.
 * @param[in] milliseconds  not negative
 * @return 1 when it is readable, 0 when the time has passed, -1 on failure (EBADF and EINTR among others)
 */
KIVP_EXPORT int KIVPSocketWaitReadable(int fd, int32_t milliseconds);

__END_DECLS

#endif
