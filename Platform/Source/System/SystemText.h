// The texts in which Linux tells about the machine, taken apart. Nothing here reads a file or the heap, and
// any bytes are taken: what is not as the kernel or the distribution writes it is not there.
#ifndef KIV_SYSTEM_TEXT_H
#define KIV_SYSTEM_TEXT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace kiv::system
{
// Bytes of memory by use.
struct Memory
{
    uint64_t total;
    uint64_t free;
    uint64_t inactive;
    uint64_t active;
    uint64_t wired; // Unevictable, SUnreclaim, KernelStack and PageTables, of those that the kernel tells
};

// /proc/meminfo. None without MemTotal, MemFree, Inactive and Active, and when a line of these or of the
// wired kinds is cut or malformed.
[[nodiscard]] std::optional<Memory> parseMemory(std::string_view meminfo) noexcept;

// Pages of a process.
struct ProcessPages
{
    uint64_t mapped;
    uint64_t resident;
};

// /proc/<pid>/statm.
[[nodiscard]] std::optional<ProcessPages> parseProcessPages(std::string_view statm) noexcept;

// The highest "cpu MHz" of /proc/cpuinfo in hertz; 0 where there is none.
[[nodiscard]] uint64_t parseProcessorClock(std::string_view cpuinfo) noexcept;

// A number alone, with white space behind it.
[[nodiscard]] std::optional<uint64_t> parseNumber(std::string_view text) noexcept;

// How many processors a list such as "0-3,8" names; 0 when it is malformed, empty, or not ascending.
[[nodiscard]] uint64_t countProcessors(std::string_view list) noexcept;

// The value that `text`, lines of shell assignments (os-release(5), machine-info(5)), gives `name`, without its
// quotes and escapes, in `room`. None when it has none, an empty or malformed one, one with control
// characters, or one that does not fit. The last assignment counts.
[[nodiscard]] std::optional<std::string_view> findAssignment(std::string_view text, std::string_view name,
                                                             std::span<char> room) noexcept;

// Up to three numbers between dots, at most 2^32 - 1 each; what follows the last one does not count.
struct Version
{
    uint32_t numbers[3];
};
[[nodiscard]] Version parseVersion(std::string_view text) noexcept;
} // namespace kiv::system

#endif
