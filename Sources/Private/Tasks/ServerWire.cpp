#include "Private/Tasks/ServerWire.h"

#include "Private/Support/Check.h"

#include <KIVPlatform/KIVPlatform.h>
#include <mach/mach_time.h>

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace
{
constexpr int kWatchPeriod = 1000; // milliseconds between two checks of the host
constexpr int kInterruptPause = 1; // millisecond after a wait that a signal has cut short

[[nodiscard]] int descriptor(uint32_t index)
{
    return g_CSTaskServer.m_descriptors[index];
}

// Returns false if the server has to end: the host is gone, or has ended it.
[[nodiscard]] bool mayWait(bool watch)
{
    return !watch || (!kiv::isOrphaned() && !kiv::isToldToEnd());
}

// Waits until there may be data to read; the caller tries again in any case.
[[nodiscard]] KIVCS2Status waitToRead(int fd, bool watch)
{
    pollfd entry{fd, POLLIN, 0};
    int ready = poll(&entry, 1, kWatchPeriod);
    if (ready < 0 && errno != EINTR)
        return KIVCS2STATUS_PIPE_ERR;
    if (ready > 0)
        return KIVCS2STATUS_OK;
    // After a signal usually a child has ended. The pause polls the pipe too, so that it delays no request.
    if (ready < 0)
        (void)poll(&entry, 1, kInterruptPause);
    if (watch)
        kiv::reapChildren(); // the children that the handler could not report
    return mayWait(watch) ? KIVCS2STATUS_OK : KIVCS2STATUS_PIPE_ERR;
}

// Waits for room until `end`. Not called for a writing end that blocks.
[[nodiscard]] KIVCS2Status waitToWrite(int fd, uint64_t end)
{
    if (mach_absolute_time() >= end)
        return KIVCS2STATUS_TIMEOUT_ERR;
    pollfd entry{fd, POLLOUT, 0};
    return poll(&entry, 1, kWatchPeriod) >= 0 || errno == EINTR ? KIVCS2STATUS_OK : KIVCS2STATUS_PIPE_ERR;
}

[[nodiscard]] uint32_t lengthOf(const char *text)
{
    return static_cast<uint32_t>(std::strlen(text));
}

uint8_t *put(uint8_t *out, const void *bytes, size_t size)
{
    std::memcpy(out, bytes, size);
    return out + size;
}

uint8_t *putText(uint8_t *out, const char *text)
{
    const uint32_t length = lengthOf(text);
    out = put(out, &length, sizeof length);
    return put(out, text, length);
}
} // namespace

// ---- Transport ----

KIVCS2Status kivCS2TaskServerPrv_writeBytes(uint32_t index, const void *bytes, size_t size)
{
    const auto *from = static_cast<const uint8_t *>(bytes);
    const uint64_t end = mach_absolute_time() + kiv::g_answerTime;
    while (size > 0)
    {
        const ssize_t written = KIVPWriteWithoutSignal(descriptor(index), from, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0 && errno == EAGAIN)
        {
            KIV_TRY(waitToWrite(descriptor(index), end));
            continue;
        }
        if (written < 1)
            return KIVCS2STATUS_PIPE_ERR;
        from += written;
        size -= static_cast<size_t>(written);
    }
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2TaskServerPrv_writeString(uint32_t index, const char *text)
{
    const uint32_t length = lengthOf(text);
    KIV_TRY(kivCS2TaskServerPrv_writeBytes(index, &length, sizeof length));
    return kivCS2TaskServerPrv_writeBytes(index, text, length);
}

KIVCS2Status kivCS2TaskServerPrv_readBytes(uint32_t index, void *bytes, size_t size, bool watch)
{
    auto *to = static_cast<uint8_t *>(bytes);
    while (size > 0)
    {
        // The reading ends do not block, so bytes that are already there cost one call.
        const ssize_t count = read(descriptor(index), to, size);
        if (count > 0)
        {
            to += count;
            size -= static_cast<size_t>(count);
            continue;
        }
        if (count == 0 || (errno != EAGAIN && errno != EINTR))
            return KIVCS2STATUS_PIPE_ERR;
        if (errno == EAGAIN)
            KIV_TRY(waitToRead(descriptor(index), watch));
    }
    return KIVCS2STATUS_OK;
}

char *kivCS2TaskServerPrv_readString(uint32_t index, bool watch, size_t &left, KIVCS2Status &status)
{
    uint32_t length = 0;
    status = kivCS2TaskServerPrv_readBytes(index, &length, sizeof length, watch);
    if (KIVCS2_FAILED(status))
        return nullptr;
    // Compare before adding: the length may be 2^32 - 1.
    auto *text = length < left ? static_cast<char *>(std::malloc(size_t{length} + 1)) : nullptr;
    if (text == nullptr)
    {
        status = KIVCS2STATUS_MEMORY_ERR;
        return nullptr;
    }
    left -= size_t{length} + 1; // by the claimed length: the text may contain a zero byte
    text[length] = '\0';
    status = kivCS2TaskServerPrv_readBytes(index, text, length, watch);
    if (KIVCS2_SUCCEEDED(status))
        return text;
    std::free(text);
    return nullptr;
}

// ---- Requests ----

kiv::ExecRequest::~ExecRequest()
{
    for (char **argument = m_argv; argument != nullptr && *argument != nullptr; ++argument)
        std::free(*argument);
    std::free(m_argv);
    std::free(m_command);
}

KIVCS2Status kiv::ExecRequest::readText(bool watch, char *&text)
{
    KIVCS2Status status = KIVCS2STATUS_OK;
    text = kivCS2TaskServerPrv_readString(kRequestRead, watch, m_left, status);
    return status;
}

KIVCS2Status kiv::ExecRequest::read(bool watch)
{
    KIV_TRY(readText(watch, m_command));
    uint32_t count = 0;
    KIV_TRY(kivCS2TaskServerPrv_readBytes(kRequestRead, &count, sizeof count, watch));
    if (count > kMostArguments)
        return KIVCS2STATUS_MEMORY_ERR;
    m_argv = static_cast<char **>(kivCS2ZeroMalloc((size_t{count} + 1) * sizeof(char *)));
    if (m_argv == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    for (uint32_t index = 0; index < count; ++index)
        KIV_TRY(readText(watch, m_argv[index]));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kiv::ExecMessage::make(const KIVCS2Task &task)
{
    const size_t commandLength = std::strlen(task.m_command);
    size_t text = commandLength + 1;
    uint32_t count = 0;
    for (; task.m_argv[count] != nullptr; ++count)
    {
        text += std::strlen(task.m_argv[count]) + 1;
        if (count == kMostArguments)
            return KIVCS2STATUS_OVERFLOW_ERR;
    }
    if (text > kMostRequestText)
        return KIVCS2STATUS_OVERFLOW_ERR;

    // Each text has a length instead of its zero byte; then the command byte and the count.
    m_size = text + (count + 1) * (sizeof(uint32_t) - 1) + sizeof kCommandExec + sizeof count;
    m_bytes.reset(static_cast<uint8_t *>(std::malloc(m_size)));
    if (!m_bytes)
        return KIVCS2STATUS_MEMORY_ERR;
    uint8_t *out = put(m_bytes.get(), &kCommandExec, sizeof kCommandExec);
    out = putText(out, task.m_command);
    out = put(out, &count, sizeof count);
    for (uint32_t index = 0; index < count; ++index)
        out = putText(out, task.m_argv[index]);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kiv::ExecMessage::send() const
{
    return kivCS2TaskServerPrv_writeBytes(kRequestWrite, m_bytes.get(), m_size);
}
