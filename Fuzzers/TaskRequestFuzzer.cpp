// The bytes of a request in a real pipe, read as the task server reads them. A hostile length takes no memory
// that it does not fill, no read waits for bytes that never come, and every request that is accepted is one
// that a host can write.
#include "Require.h"

#include "Private/Tasks/ServerProcess.h"
#include "Private/Tasks/ServerWire.h"

#include <KIVPlatform/KIVPlatform.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{
constexpr size_t kMostBytes = 60000; // a pipe holds 64 KiB

// Compares a request with the bytes that it was read from.
void compare(const kiv::ExecRequest &request, const uint8_t *data, size_t size)
{
    size_t at = 0;
    const auto number = [&]
    {
        uint32_t value = 0;
        require(at + sizeof value <= size);
        std::memcpy(&value, data + at, sizeof value);
        at += sizeof value;
        return value;
    };
    const auto text = [&](const char *read)
    {
        const uint32_t length = number();
        require(length <= size - at);
        require(std::memcmp(read, data + at, length) == 0 && read[length] == '\0');
        at += length;
    };
    text(request.command());
    const uint32_t count = number();
    for (uint32_t index = 0; index < count; ++index)
        text(request.argv()[index]);
    require(request.argv()[count] == nullptr);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    size = std::min(size, kMostBytes);
    int ends[2];
    require(KIVPPipe(ends) == 0 && fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0);
    require(size == 0 || write(ends[1], data, size) == static_cast<ssize_t>(size));
    close(ends[1]);
    g_CSTaskServer.m_descriptors[kRequestRead] = ends[0];
    {
        kiv::ExecRequest request;
        const KIVCS2Status status = request.read(false);
        if (KIVCS2_SUCCEEDED(status))
            compare(request, data, size);
        else
            require(status == KIVCS2STATUS_PIPE_ERR || status == KIVCS2STATUS_MEMORY_ERR);
    }
    close(ends[0]);
    return 0;
}
