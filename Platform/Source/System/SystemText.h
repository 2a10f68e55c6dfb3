// Parsers for the texts in which Linux describes the machine. None of them reads a file or uses the heap.
// They accept any bytes: text in another form than the kernel's or the distribution's counts as missing.
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
    uint64_t wired; // Unevictable, SUnreclaim, KernelStack and PageTables, as far as the kernel reports them
};

// Parses /proc/meminfo. Empty without MemTotal, MemFree, Inactive and Active, or if a line of these or of the
// wired kinds is cut or malformed.
[[nodiscard]] std::optional<Memory> parseMemory(std::string_view meminfo) noexcept;

// Pages of a process.
struct ProcessPages
{
    uint64_t mapped;
    uint64_t resident;
};

// Parses /proc/<pid>/statm.
[[nodiscard]] std::optional<ProcessPages> parseProcessPages(std::string_view statm) noexcept;

// Returns the highest "cpu MHz" of /proc/cpuinfo in hertz; 0 if there is no such line.
[[nodiscard]] uint64_t parseProcessorClock(std::string_view cpuinfo) noexcept;

// Parses a single number; white space may follow it.
[[nodiscard]] std::optional<uint64_t> parseNumber(std::string_view text) noexcept;

// Returns the number of processors in a list such as "0-3,8"; 0 if it is malformed, empty or not ascending.
[[nodiscard]] uint64_t countProcessors(std::string_view list) noexcept;

// Finds the value of `name` in `text`, lines of shell assignments (os-release(5), machine-info(5)), and
// stores it in `room` without its quotes and escapes. Empty if the value is missing, empty or malformed,
// has control characters or does not fit. The last assignment counts.
[[nodiscard]] std::optional<std::string_view> findAssignment(std::string_view text, std::string_view name,
                                                             std::span<char> room) noexcept;

// Parses up to three numbers between dots, at most 2^32 - 1 each; text after the last number is ignored.
struct Version
{
    uint32_t numbers[3];
};
[[nodiscard]] Version parseVersion(std::string_view text) noexcept;
} // namespace kiv::system

#endif
