// The files in which Linux tells about the machine.
#ifndef KIV_SYSTEM_FILE_H
#define KIV_SYSTEM_FILE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kiv::system
{
// Reads below `folder`, which is not copied, instead of the machine's own /proc, /sys, /etc and /usr/lib; null
// for the machine's. For tests; not while another thread asks.
void setRoot(const char *folder) noexcept;

// A file's beginning, at most 16 KiB of whole lines: all of what is read here but /proc/cpuinfo, of which the
// first processors tell enough. Empty when there is no such file, when it is not a regular one (opening
// never waits) or when reading fails. No heap.
class SystemFile
{
public:
    // `path` as on the machine: "/proc/meminfo".
    explicit SystemFile(const char *path) noexcept;

    [[nodiscard]] std::string_view text() const noexcept
    {
        return {m_bytes, m_size};
    }

private:
    size_t m_size = 0;
    char m_bytes[16 * 1024];
};

// The highest of the processors' clocks in hertz: the highest that frequency scaling allows, otherwise the
// current one; 0 when the system tells neither.
[[nodiscard]] uint64_t processorClock() noexcept;
} // namespace kiv::system

#endif
