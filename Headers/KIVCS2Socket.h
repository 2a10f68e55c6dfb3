/**
 * @file
 * Sockets: TCP clients and servers, UDP senders and receivers and IPv4 multicast groups, with a status for
 * every failure and the system's error number next to it.
 *
 * Unlike other records, a socket is made by the library: a create operation stores a pointer, and
 * kivCS2Socket_free() closes the socket and releases the record. Addresses made by kivCS2_createSockAddr()
 * are released by kivCS2_freeSockAddr().
 *
 * Every operation that calls the system sets `m_errno` to 0 first, and to the error number if a call fails. A
 * failed create operation leaves no record: then `errno` holds the number (ECONNREFUSED, EADDRINUSE, EMFILE
 * ...), or 0 if no system call has failed (a host without an IPv4 address, a group address out of range).
 * Clients, servers, receivers and accepted connections never raise SIGPIPE; senders of datagrams cannot raise
 * it. Descriptors are above 2 and closed on exec.
 *
 * A record is used by one thread at a time; separate records are independent. A thread that waits in an
 * operation is woken by time-outs and by the peer, not by closing the record.
 *
 * All addresses are IPv4. KIVCS2SocketOption_IPv6 opens the descriptor in the IPv6 family and changes nothing
 * else, so on Linux the socket can neither connect nor bind.
 *
 * A few messages go to standard output: for a failed accept, a failed receive, an interrupted receive, and a
 * connection ended by an EOT byte.
 *
 * @code
 * KIVCS2Socket *server, *client, *peer;
 * char text[16] = ""; // a receive adds no zero byte
 * uint32_t count;
 * if (KIVCS2_FAILED(kivCS2Socket_createServer(&server, 0, 1, KIVCS2SocketOption_BindNow)) ||
 *     KIVCS2_FAILED(kivCS2Socket_createClient(&client, "127.0.0.1", ntohs(server->m_addr.sin_port), 0)) ||
 *     KIVCS2_FAILED(kivCS2Socket_accept(server, 1000, &peer)))
 *     return 1;
 * kivCS2Socket_send(client, "on air", 6, NULL);
 * if (KIVCS2_SUCCEEDED(kivCS2Socket_receive(peer, text, sizeof text - 1, true, &count)))
 *     puts(text); // prints: on air
 * kivCS2Socket_free(peer);
 * kivCS2Socket_free(client);
 * kivCS2Socket_free(server);
 * @endcode
 */
#ifndef KIVCS2_SOCKET_H
#define KIVCS2_SOCKET_H

#include "KIVCS2Base.h"

#include <netinet/in.h>

KIVCS2_BEGIN_DECLS

/** Transport of a socket. */
typedef uint32_t KIVCS2SocketType;
enum
{
    KIVCS2SocketType_Stream = 0,    /**< TCP */
    KIVCS2SocketType_Datagram = 1,  /**< UDP */
    KIVCS2SocketType_Multicast = 2, /**< UDP to or from a group */
    KIVCS2SocketType_MAX = 3        /**< the count; not a type */
};

/** Bits for the create operations; other bits are stored and have no effect. */
typedef uint32_t KIVCS2SocketOption;
enum
{
    KIVCS2SocketOption_ReuseAddress = 0x01, /**< servers and receivers may take an address that is in use */
    KIVCS2SocketOption_BindNow = 0x02,      /**< a server binds at creation, not at the first accept */
    KIVCS2SocketOption_EndOnEOT = 0x04,     /**< received data that starts with 0x04 ends the connection */
    KIVCS2SocketOption_IPv6 = 0x08,         /**< open the descriptor in the IPv6 family */
    KIVCS2SocketOption_Drain = 0x10         /**< close reads until the peer closes, or sends until it fails */
};

/** Bytes of the longest text of an IPv4 address, its zero byte included. */
#define KIVCS2_SOCK_ADDR_TEXT_SIZE 16

/** A socket. */
typedef struct KIVCS2Socket
{
    int32_t m_socket;                 /**< the descriptor; 0 if there is none */
    uint32_t m_errno;                 /**< the error number of the last failed system call */
    KIVCS2SocketType m_type;          /**< its transport */
    KIVCS2SocketOption m_options;     /**< bits given at creation; 0 for accepted connections */
    uint32_t m_bound;                 /**< 1 once kivCS2Socket_bind() has succeeded */
    uint32_t m_maxPendingConnections; /**< a server's listen backlog */
    struct sockaddr_in m_addr;        /**< the peer; a server's local address */
    char *m_host;                     /**< a client's host name, an accepted peer in dotted form, or null */
    uint32_t m_port;                  /**< host order: as given, or that of an accepted peer */
    uint32_t m_multicastAddress;      /**< a receiver's group, network order */
} KIVCS2Socket;

/* ---- Addresses ---- */

/**
 * Makes the IPv4 address of a host and port, for kivCS2Socket_sendTo() and the receivers.
 * @param[out] _addr   the address, released by kivCS2_freeSockAddr(); null after a failure
 * @param[in] _host    a name or a dotted address
 * @param[in] _port    0 to 65535, host order; a negative value means no port and stores 0
 * @param[in] _options ignored
 * @retval KIVCS2STATUS_PARAM_ERR    `_addr` or `_host` is null
 * @retval KIVCS2STATUS_MEMORY_ERR   no room for the address
 * @retval KIVCS2STATUS_ADDRESS_ERR  the host has no IPv4 address, or the port is out of range
 * Thread safety: any thread. Source: POSIX.1-2017, getaddrinfo; looking up a name may wait.
 */
KIVCS2_API KIVCS2Status kivCS2_createSockAddr(struct sockaddr_in **_addr, const char *_host, int32_t _port,
                                              uint32_t _options);

/**
 * Releases an address made by kivCS2_createSockAddr().
 * @retval KIVCS2STATUS_PARAM_ERR  `_addr` is null
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2_freeSockAddr(struct sockaddr_in *_addr);

/**
 * Writes the address in dotted form ("127.0.0.1") and its zero byte; the port is not written.
 * @param[in]  _addr      an IPv4 address
 * @param[out] _buf       the text
 * @param[in]  _buf_size  bytes in `_buf`, at least KIVCS2_SOCK_ADDR_TEXT_SIZE
 * @retval KIVCS2STATUS_PARAM_ERR        `_addr` or `_buf` is null
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  the buffer is too small, whatever the address; nothing is written
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2_sockAddrToString(const struct sockaddr_in *_addr, char *_buf,
                                                uint32_t _buf_size);

/* ---- Creation ---- */

/**
 * Connects to a TCP server, and waits as long as the system tries. `KIVCS2SocketOption_ReuseAddress` and
 * `KIVCS2SocketOption_BindNow` have no effect here.
 * @param[out] _socket   the connection, released by kivCS2Socket_free(); null after a failure. But if only
 *                       setting no-SIGPIPE failed, there is a record to free
 * @param[in]  _host     a name or a dotted address; copied
 * @param[in]  _port     as for kivCS2_createSockAddr()
 * @param[in]  _options  bits of KIVCS2SocketOption
 * @retval KIVCS2STATUS_PARAM_ERR    `_socket` or `_host` is null
 * @retval KIVCS2STATUS_MEMORY_ERR   no room for the record or the copy of the host name
 * @retval KIVCS2STATUS_SOCKET_ERR   the system could not make a socket
 * @retval KIVCS2STATUS_ADDRESS_ERR  the host has no IPv4 address
 * @retval KIVCS2STATUS_CONNECT_ERR  no server accepts connections at this address
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_createClient(KIVCS2Socket **_socket, const char *_host, int32_t _port,
                                                  KIVCS2SocketOption _options);

/**
 * Makes a TCP server on every local address. It listens from the first kivCS2Socket_accept() on, or
 * at once with KIVCS2SocketOption_BindNow.
 * @param[out] _socket                 as for kivCS2Socket_createClient()
 * @param[in]  _port                   host order, the low 16 bits; 0 lets the system choose, and `m_addr`
 *                                     holds the chosen port once the server is bound
 * @param[in]  _maxPendingConnections  connections that may wait to be accepted
 * @param[in]  _options                bits of KIVCS2SocketOption
 * @retval KIVCS2STATUS_PARAM_ERR   `_socket` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the record
 * @retval KIVCS2STATUS_SOCKET_ERR  the system could not make a socket, or an option could not be set
 * @retval KIVCS2STATUS_BIND_ERR    the port is taken or forbidden
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_createServer(KIVCS2Socket **_socket, int32_t _port,
                                                  uint32_t _maxPendingConnections,
                                                  KIVCS2SocketOption _options);

/**
 * Makes an unbound UDP socket.
 * @param[out] _socket   released by kivCS2Socket_free(); null after a failure
 * @param[in]  _options  bits of KIVCS2SocketOption
 * @retval KIVCS2STATUS_PARAM_ERR   `_socket` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the record
 * @retval KIVCS2STATUS_SOCKET_ERR  the system could not make a socket
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_createDatagramSender(KIVCS2Socket **_socket,
                                                          KIVCS2SocketOption _options);

/**
 * Makes an unbound UDP socket for sending to groups.
 * @param[out] _socket   as for kivCS2Socket_createDatagramSender()
 * @param[in]  _ttl      the number of routers that a datagram may pass, plus 1; the low 8 bits
 * @param[in]  _options  bits of KIVCS2SocketOption
 * @retval KIVCS2STATUS_PARAM_ERR   `_socket` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the record
 * @retval KIVCS2STATUS_SOCKET_ERR  the system could not make a socket, or refused the time-to-live
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_createMulticastDatagramSender(KIVCS2Socket **_socket, uint32_t _ttl,
                                                                   KIVCS2SocketOption _options);

/**
 * Makes a UDP socket bound to an address. `m_bound` stays 0.
 * @param[out] _receiver  as for kivCS2Socket_createClient()
 * @param[in]  _options   bits of KIVCS2SocketOption
 * @param[in]  _addr      the local address and port; not kept
 * @retval KIVCS2STATUS_PARAM_ERR   `_receiver` or `_addr` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the record
 * @retval KIVCS2STATUS_SOCKET_ERR  the system could not make a socket, or an option could not be set
 * @retval KIVCS2STATUS_BIND_ERR    the address is taken or does not belong to this machine
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_createDatagramReceiver(KIVCS2Socket **_receiver,
                                                            KIVCS2SocketOption _options,
                                                            const struct sockaddr_in *_addr);

/**
 * Makes a UDP socket bound to a group's address and joins the group on the interface that the system
 * chooses by its routes.
 * @param[out] _receiver  as for kivCS2Socket_createClient()
 * @param[in]  _options   bits of KIVCS2SocketOption
 * @param[in]  _addr      the group (224.0.0.0 to 239.255.255.255) and port; not kept
 * @retval KIVCS2STATUS_PARAM_ERR              `_receiver` or `_addr` is null
 * @retval KIVCS2STATUS_MULTICAST_ADDRESS_ERR  the address is not a group's; nothing was made. Not checked
 *                                             with KIVCS2SocketOption_IPv6
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the record
 * @retval KIVCS2STATUS_SOCKET_ERR  the system could not make a socket, an option could not be set, or no
 *                                  interface can join (there is no route to the group)
 * @retval KIVCS2STATUS_BIND_ERR    the address is taken
 * Thread safety: any thread. Source: RFC 1112.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_createMulticastDatagramReceiver(KIVCS2Socket **_receiver,
                                                                     KIVCS2SocketOption _options,
                                                                     const struct sockaddr_in *_addr);

/* ---- Connections ---- */

/**
 * Connects to `m_addr`.
 * @retval KIVCS2STATUS_PARAM_ERR    `_socket` is null
 * @retval KIVCS2STATUS_CONNECT_ERR  refused, not reachable, connected already, or closed; EINPROGRESS in
 *                                   `m_errno` on a non-blocking socket that has begun to connect
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_connect(KIVCS2Socket *_socket);

/**
 * Binds to `m_addr`, stores a port that the system chose in it, and lets a stream socket listen.
 * @retval KIVCS2STATUS_PARAM_ERR   `_socket` is null
 * @retval KIVCS2STATUS_BIND_ERR    bound already, or the address is taken or forbidden
 * @retval KIVCS2STATUS_SOCKET_ERR  the port could not be read back, or listening failed; `m_bound` stays 0
 *                                  although the descriptor is bound
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_bind(KIVCS2Socket *_socket);

/**
 * Binds a datagram socket to an address. `m_bound` and `m_addr` are unchanged.
 * @retval KIVCS2STATUS_PARAM_ERR         `_socket` or `_addr` is null
 * @retval KIVCS2STATUS_BIND_ADDRESS_ERR  `_socket` is a stream socket
 * @retval KIVCS2STATUS_BIND_ERR          bound by kivCS2Socket_bind() already, or the address is taken or
 *                                        does not belong to this machine
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_bindToAddress(KIVCS2Socket *_socket, const struct sockaddr_in *_addr);

/**
 * Listens with this backlog. `m_maxPendingConnections` is unchanged.
 * @retval KIVCS2STATUS_PARAM_ERR   `_socket` is null
 * @retval KIVCS2STATUS_SOCKET_ERR  listening failed
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_setMaxPendingConnections(KIVCS2Socket *_socket, uint32_t _backlog);

/**
 * Accepts one connection; binds the server first if it is not bound yet. The connection has no option bits,
 * so neither EOT nor drain; it raises SIGPIPE only if its server does.
 * @param[in,out] _server_socket  made by kivCS2Socket_createServer()
 * @param[in]     _timeout        milliseconds to wait for a connection; 0 does not wait, a negative value
 *                                waits for ever
 * @param[out]    _client_socket  the connection, released by kivCS2Socket_free(); null after a failure
 * @retval KIVCS2STATUS_PARAM_ERR    `_server_socket` or `_client_socket` is null
 * @retval KIVCS2STATUS_BIND_ERR     the server could not be bound
 * @retval KIVCS2STATUS_SOCKET_ERR   binding or the wait failed; EINTR if a signal ended the wait
 * @retval KIVCS2STATUS_TIMEOUT_ERR  no connection came in time
 * @retval KIVCS2STATUS_ACCEPT_ERR   accepting failed; a line on standard output reports it
 * @retval KIVCS2STATUS_MEMORY_ERR   no room for the record; the connection is closed
 * @retval KIVCS2STATUS_ADDRESS_ERR  the peer has no IPv4 address; the connection is closed
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_accept(KIVCS2Socket *_server_socket, int32_t _timeout,
                                            KIVCS2Socket **_client_socket);

/**
 * Closes the descriptor and sets `m_socket` to 0; the record stays. If there is data to read from a connected
 * peer, the sending side is shut down first, so that the connection ends gracefully.
 *
 * With KIVCS2SocketOption_Drain incoming data is read and discarded until the peer closes too; if there was
 * no data to read, single zero bytes are sent until a send fails. Both wait for the peer.
 * kivCS2Socket_setRecvTimeout() and kivCS2Socket_setSendTimeout() limit each single wait, but not their
 * number if the peer keeps sending or reading.
 * @retval KIVCS2STATUS_PARAM_ERR           `_socket` is null
 * @retval KIVCS2STATUS_SOCKET_INVALID_ERR  the descriptor was not open
 * @retval KIVCS2STATUS_SOCKET_ERR          closed, but leaving the group, shutting down or closing failed:
 *                                          `m_errno` holds the reason. Always the status for a multicast
 *                                          sender, which has joined no group, and for a second close of any
 *                                          multicast socket
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_close(KIVCS2Socket *_socket);

/**
 * Closes as kivCS2Socket_close() does, releases the record in every case and returns the status of the close;
 * KIVCS2STATUS_SOCKET_INVALID_ERR counts as success.
 * @retval KIVCS2STATUS_PARAM_ERR   `_socket` is null
 * @retval KIVCS2STATUS_SOCKET_ERR  as for kivCS2Socket_close()
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_free(KIVCS2Socket *_socket);

/* ---- Data ---- */

/**
 * Sends once to the connected peer; a stream may send only a part of the bytes.
 * @param[in,out] _socket      a connection
 * @param[in]     _buf         `_length` bytes
 * @param[in]     _length      bytes
 * @param[out]    _bytes_sent  the bytes sent, all ones after a failed send; may be null
 * @retval KIVCS2STATUS_PARAM_ERR           `_socket` or `_buf` is null
 * @retval KIVCS2STATUS_SOCKET_INVALID_ERR  the socket is closed, or its peer accepts no more data
 * @retval KIVCS2STATUS_TIMEOUT_ERR         the send would wait, or the send time-out passed
 * @retval KIVCS2STATUS_SOCKET_ERR          any other failure, including a reset that was not yet reported
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_send(KIVCS2Socket *_socket, const void *_buf, uint32_t _length,
                                          uint32_t *_bytes_sent);

/**
 * Sends one datagram to an address. Arguments and statuses are those of kivCS2Socket_send().
 * @param[in,out] _socket      a sender
 * @param[in]     _addr        the destination
 * @param[in]     _buf         `_length` bytes
 * @param[in]     _length      bytes
 * @param[out]    _bytes_sent  as for kivCS2Socket_send()
 * @retval KIVCS2STATUS_PARAM_ERR  `_socket`, `_addr` or `_buf` is null
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_sendTo(KIVCS2Socket *_socket, const struct sockaddr_in *_addr,
                                            const void *_buf, uint32_t _length, uint32_t *_bytes_sent);

/**
 * Receives once. With KIVCS2SocketOption_EndOnEOT a buffer that starts with 0x04 returns
 * KIVCS2STATUS_CONNECTION_CLOSED_ERR: the buffer holds the bytes received, and the caller may go on
 * receiving. After an interruption by a signal, the check uses the old first byte of the buffer, unless
 * `_clear` is set.
 * @param[in,out] _socket          a connection or a receiver
 * @param[out]    _buf             room for `_buf_size` bytes
 * @param[in]     _buf_size        bytes, not 0
 * @param[in]     _clear           zero the whole buffer first
 * @param[out]    _bytes_received  the bytes received: 0 if the peer has closed, on a time-out and if there
 *                                 was no data, all ones after any other failure; may be null
 * @retval KIVCS2STATUS_OK   data was received, or a signal interrupted the call: then the count is 0 and
 *                           standard output gets a line
 * @retval KIVCS2STATUS_PARAM_ERR              `_socket` or `_buf` is null, or `_buf_size` is 0
 * @retval KIVCS2STATUS_CONNECTION_CLOSED_ERR  closed or reset by the peer, ended by an EOT byte, or a
 *                                             datagram without contents
 * @retval KIVCS2STATUS_EOF_ERR                no data, on a non-blocking socket
 * @retval KIVCS2STATUS_TIMEOUT_ERR            no data came within the receive time-out
 * @retval KIVCS2STATUS_SOCKET_INVALID_ERR     the socket is closed
 * @retval KIVCS2STATUS_SOCKET_ERR             any other failure
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_receive(KIVCS2Socket *_socket, void *_buf, uint32_t _buf_size,
                                             bool _clear, uint32_t *_bytes_received);

/**
 * Receives once and also stores the sender; an EOT byte has no effect here. Statuses and counts are those of
 * kivCS2Socket_receive(), except that the count is all ones after time-outs and if there was no data.
 * @param[in,out] _socket          a receiver
 * @param[out]    _buf             room for `_buf_size` bytes
 * @param[in]     _buf_size        bytes, not 0
 * @param[in]     _clear           zero the whole buffer first
 * @param[out]    _bytes_received  the bytes received; may be null
 * @param[out]    _addr            the sender's address, zero if the system names none; may be null
 * @param[out]    _addr_size       bytes of the sender's address as the system reports them; may be null
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_receiveFrom(KIVCS2Socket *_socket, void *_buf, uint32_t _buf_size,
                                                 bool _clear, uint32_t *_bytes_received,
                                                 struct sockaddr_in *_addr, uint32_t *_addr_size);

/* ---- Readiness: these operations do not wait ---- */

/**
 * Checks whether a receive would not wait: because of data, a closed peer or, on a server, a connection.
 * @retval KIVCS2STATUS_OK                  it would not wait
 * @retval KIVCS2STATUS_EOF_ERR             it would wait
 * @retval KIVCS2STATUS_PARAM_ERR           `_socket` is null
 * @retval KIVCS2STATUS_SOCKET_INVALID_ERR  hung up on both sides, or closed
 * @retval KIVCS2STATUS_SOCKET_ERR          the system could not check
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_testRead(KIVCS2Socket *_socket);

/**
 * Checks whether a send would not wait. Statuses as for kivCS2Socket_testRead(), except:
 * @retval KIVCS2STATUS_NOT_WRITABLE_ERR  it would wait
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_testWrite(KIVCS2Socket *_socket);

/**
 * Checks that the socket is neither hung up on both sides nor closed. A peer that has only stopped sending
 * counts as alive. So does a peer that has closed its socket or ended, because the network reports both with
 * the same message. Such a peer resets the connection when it receives data, and only then does the test
 * fail. A peer that vanishes without a message (a cable, a power supply) counts as alive until the system has
 * repeated a send for minutes without success. To notice a peer that has ended, use kivCS2Socket_testRead()
 * and then kivCS2Socket_receive(), which fails with KIVCS2STATUS_CONNECTION_CLOSED_ERR. Statuses as for
 * kivCS2Socket_testRead(), but KIVCS2STATUS_OK also if a receive and a send would wait.
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_testAlive(KIVCS2Socket *_socket);

/* ---- Options ----
 * Each of these returns KIVCS2STATUS_PARAM_ERR for a null pointer, KIVCS2STATUS_SOCKET_INVALID_ERR for a
 * closed socket and KIVCS2STATUS_SOCKET_ERR for a value that the system refuses. Getters set their outputs to
 * 0 before anything else. Thread safety: one thread at a time.
 */

/**
 * Calls getsockopt() directly.
 * @param[in,out] _socket        an open socket
 * @param[in]     _level, _name  of <sys/socket.h>; SO_NOSIGPIPE of <KIVPlatform/KIVPSocket.h> is known too
 * @param[out]    _value         room for `*_value_size` bytes
 * @param[in,out] _value_size    in: bytes in `_value`; out: bytes stored
 * Buffer sizes (SO_RCVBUF, SO_SNDBUF) are returned as they were set, although Linux doubles them.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_getOption(KIVCS2Socket *_socket, int32_t _level, int32_t _name,
                                               void *_value, uint32_t *_value_size);

/** Calls setsockopt() directly; see kivCS2Socket_getOption(). */
KIVCS2_API KIVCS2Status kivCS2Socket_setOption(KIVCS2Socket *_socket, int32_t _level, int32_t _name,
                                               const void *_value, uint32_t _value_size);

/** Stores whether a send to a peer that is gone fails with a status and raises no SIGPIPE. */
KIVCS2_API KIVCS2Status kivCS2Socket_getNoSigpipe(KIVCS2Socket *_socket, bool *_no_sigpipe);
/**
 * Sets what a send to a peer that is gone does: with a `_no_sigpipe` of 0 it fails and raises SIGPIPE, with
 * any other value it only fails.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_setNoSigpipe(KIVCS2Socket *_socket, int32_t _no_sigpipe);

/** Stores whether an address that is in use may be bound. */
KIVCS2_API KIVCS2Status kivCS2Socket_getReuseAddress(KIVCS2Socket *_socket, bool *_reuse_address);
/**
 * Sets whether an address that is in use may be bound: a `_reuse_address` of 0 forbids it, any other value
 * allows it. Call this before binding.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_setReuseAddress(KIVCS2Socket *_socket, int32_t _reuse_address);

/** Stores the smallest number of bytes that makes a receive return. */
KIVCS2_API KIVCS2Status kivCS2Socket_getMinRecvByteCount(KIVCS2Socket *_socket, uint32_t *_byte_count);
/** Sets this number of bytes; 0 counts as 1. */
KIVCS2_API KIVCS2Status kivCS2Socket_setMinRecvByteCount(KIVCS2Socket *_socket, uint32_t _byte_count);

/** Stores the size of the system's receive buffer in bytes. */
KIVCS2_API KIVCS2Status kivCS2Socket_getRecvBufSize(KIVCS2Socket *_socket, uint32_t *_buf_size);
/** Sets that size in bytes; the system silently limits it (net.core.rmem_max). */
KIVCS2_API KIVCS2Status kivCS2Socket_setRecvBufSize(KIVCS2Socket *_socket, uint32_t _buf_size);

/** Stores the size of the system's send buffer in bytes. */
KIVCS2_API KIVCS2Status kivCS2Socket_getSendBufSize(KIVCS2Socket *_socket, uint32_t *_buf_size);
/** Sets that size in bytes; the system silently limits it (net.core.wmem_max). */
KIVCS2_API KIVCS2Status kivCS2Socket_setSendBufSize(KIVCS2Socket *_socket, uint32_t _buf_size);

/** Stores the seconds, `_to_sec`, and microseconds, `_to_usec`, of the receive time-out; both 0: never. */
KIVCS2_API KIVCS2Status kivCS2Socket_getRecvTimeout(KIVCS2Socket *_socket, uint32_t *_to_sec,
                                                    uint32_t *_to_usec);
/**
 * Sets those seconds and microseconds, which the system rounds up to its clock's steps.
 * @retval KIVCS2STATUS_PARAM_ERR  `_socket` is null, or `_to_usec` is 1000000 or more
 */
KIVCS2_API KIVCS2Status kivCS2Socket_setRecvTimeout(KIVCS2Socket *_socket, uint32_t _to_sec,
                                                    uint32_t _to_usec);

/** Stores the seconds, `_to_sec`, and microseconds, `_to_usec`, of the send time-out; both 0: never. */
KIVCS2_API KIVCS2Status kivCS2Socket_getSendTimeout(KIVCS2Socket *_socket, uint32_t *_to_sec,
                                                    uint32_t *_to_usec);
/**
 * Sets those seconds and microseconds, which the system rounds up to its clock's steps. They limit a connect
 * too.
 * @retval KIVCS2STATUS_SOCKET_ERR  the system refuses, for example 1000000 microseconds or more
 */
KIVCS2_API KIVCS2Status kivCS2Socket_setSendTimeout(KIVCS2Socket *_socket, uint32_t _to_sec,
                                                    uint32_t _to_usec);

/** Stores whether (`_linger`), and for how many seconds (`_linger_time`), a close waits for unsent data. */
KIVCS2_API KIVCS2Status kivCS2Socket_getLinger(KIVCS2Socket *_socket, bool *_linger, uint32_t *_linger_time);
/** Sets both values. True with 0 seconds: a close resets the connection. */
KIVCS2_API KIVCS2Status kivCS2Socket_setLinger(KIVCS2Socket *_socket, bool _linger, uint32_t _linger_time);

/** Stores whether small sends go out at once. */
KIVCS2_API KIVCS2Status kivCS2Socket_getTCPNodelay(KIVCS2Socket *_socket, bool *_tcp_nodelay);
/**
 * Sets whether small sends go out at once: with a `_tcp_nodelay` of 0 the system gathers them. Only for
 * stream sockets.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_setTCPNodelay(KIVCS2Socket *_socket, int32_t _tcp_nodelay);

/** Stores the number of routers that a datagram to a group may pass, plus 1. */
KIVCS2_API KIVCS2Status kivCS2Socket_getMulticastTTL(KIVCS2Socket *_socket, uint8_t *_multicast_ttl);
/** Sets that number: 0 stays on this machine, 1 in this network. */
KIVCS2_API KIVCS2Status kivCS2Socket_setMulticastTTL(KIVCS2Socket *_socket, uint8_t _multicast_ttl);

/**
 * Joins the group with this address (network order) on the interface that the system chooses.
 * `m_multicastAddress` is unchanged.
 */
KIVCS2_API KIVCS2Status kivCS2Socket_addIPMembership(KIVCS2Socket *_socket, uint32_t _multicast_address);
/** Leaves the group with this address (network order). */
KIVCS2_API KIVCS2Status kivCS2Socket_dropIPMembership(KIVCS2Socket *_socket, uint32_t _multicast_address);

/** Stores whether operations on the socket wait. */
KIVCS2_API KIVCS2Status kivCS2Socket_getBlocking(KIVCS2Socket *_socket, bool *_blocks);
/** Sets whether operations wait; does nothing if that is already so. */
KIVCS2_API KIVCS2Status kivCS2Socket_setBlocking(KIVCS2Socket *_socket, bool _blocks);

KIVCS2_END_DECLS

#endif
