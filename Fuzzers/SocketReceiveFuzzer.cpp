// Receiving and closing with the EOT and drain options, compared with the bytes sent. The first byte chooses
// the options and the next one the buffer; then come messages: a length and bytes. Datagrams keep their
// bounds.
#include "KIVCS2Socket.h"

#include "Require.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr uint8_t kDatagrams = 0x01;
constexpr uint8_t kClear = 0x02;
constexpr uint8_t kOptions = KIVCS2SocketOption_EndOnEOT | KIVCS2SocketOption_Drain;
constexpr uint8_t kPeerStays = 0x20;
constexpr uint8_t kFrom = 0x40;
constexpr size_t kMostUnread = 4096; // bytes that fit the buffers of any system
constexpr uint8_t kBefore = 0xaa;    // the bytes in the buffer before a receive

// The messages of the library are not needed, and millions of them are slow.
void silenceStandardOutput()
{
    static const bool done = std::freopen("/dev/null", "w", stdout) != nullptr;
    require(done);
}

// Receives once; false if no more bytes can come.
bool receiveOne(KIVCS2Socket &socket, uint8_t choice, uint32_t size, std::string &taken)
{
    std::array<uint8_t, 256> buffer;
    buffer.fill(kBefore);
    uint32_t count = 1234;
    const bool clear = (choice & kClear) != 0;
    sockaddr_in from{};
    const bool tellsSender = (choice & kFrom) != 0;
    const KIVCS2Status status =
        tellsSender ? kivCS2Socket_receiveFrom(&socket, buffer.data(), size, clear, &count, &from, nullptr)
                    : kivCS2Socket_receive(&socket, buffer.data(), size, clear, &count);
    const bool wouldWait = status == KIVCS2STATUS_EOF_ERR;
    require(wouldWait == (socket.m_errno == EAGAIN));
    require(count <= size || (tellsSender && wouldWait && count == UINT32_MAX));
    const uint32_t came = wouldWait ? 0 : count;
    const bool isEnd = !tellsSender && (socket.m_options & KIVCS2SocketOption_EndOnEOT) != 0 && came > 0 &&
                       buffer[0] == 0x04;
    if (!wouldWait)
        require(status == (came == 0 || isEnd ? KIVCS2STATUS_CONNECTION_CLOSED_ERR : KIVCS2STATUS_OK));
    for (size_t index = came; index < buffer.size(); ++index) // only zeros are written after the bytes
        require(buffer[index] == (clear && index < size ? 0 : kBefore));
    taken.append(reinterpret_cast<const char *>(buffer.data()), came);
    return came > 0;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    silenceStandardOutput();
    if (size < 2)
        return 0;
    const uint8_t choice = data[0];
    const uint32_t bufferSize = std::max<uint32_t>(data[1], 1);
    const bool datagrams = (choice & kDatagrams) != 0;
    int ends[2];
    if (socketpair(AF_UNIX, (datagrams ? SOCK_DGRAM : SOCK_STREAM) | SOCK_NONBLOCK, 0, ends) != 0)
        return 0;
    auto *socket = static_cast<KIVCS2Socket *>(kivCS2ZeroMalloc(sizeof(KIVCS2Socket)));
    require(socket != nullptr);
    socket->m_socket = ends[0];
    socket->m_type = datagrams ? KIVCS2SocketType_Datagram : KIVCS2SocketType_Stream;
    socket->m_options = choice & kOptions;
    require(KIVCS2_SUCCEEDED(kivCS2Socket_setNoSigpipe(socket, 1)));

    std::string sent;
    std::string taken;
    size_t unread = 0;
    for (size_t at = 2; at < size && unread < kMostUnread;)
    {
        const size_t length = std::min<size_t>(data[at] & 0x7f, size - at - 1);
        const bool receives = (data[at] & 0x80) != 0;
        if (send(ends[1], data + at + 1, length, 0) == static_cast<ssize_t>(length))
        {
            // A datagram that is longer than the buffer is cut.
            const size_t kept = datagrams ? std::min<size_t>(length, bufferSize) : length;
            sent.append(reinterpret_cast<const char *>(data + at + 1), kept);
            unread += length + 1;
        }
        at += length + 1;
        if (receives)
            (void)receiveOne(*socket, choice, bufferSize, taken);
    }
    require(sent.starts_with(taken));
    if ((choice & kPeerStays) == 0)
        require(close(ends[1]) == 0);
    require(KIVCS2_SUCCEEDED(kivCS2Socket_close(socket)));
    require(socket->m_socket == 0 && fcntl(ends[0], F_GETFD) == -1);
    require(kivCS2Socket_free(socket) == KIVCS2STATUS_OK);
    if ((choice & kPeerStays) != 0)
        close(ends[1]);
    return 0;
}
