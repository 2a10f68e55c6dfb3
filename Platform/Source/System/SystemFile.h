// The files in which Linux describes the machine.
#ifndef KIV_SYSTEM_FILE_H
#define KIV_SYSTEM_FILE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kiv::system
{
// Reads /proc, /sys, /etc and /usr/lib below `folder`, which is not copied, instead of the machine's own;
// null for the machine's. Only for tests, while no other thread reads.
void setRoot(const char *folder) noexcept;

// The text at the start of a file, at most 16 KiB of whole lines. Only /proc/cpuinfo can be longer, and its
// first processors are enough. Empty if there is no such file, if it is not a regular one (opening never
// waits) or if reading fails. No heap.
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
// current one; 0 if the system reports neither.
[[nodiscard]] uint64_t processorClock() noexcept;
} // namespace kiv::system

#endif
