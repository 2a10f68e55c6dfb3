// Information about the machine, from /proc, /sys and os-release(5).
#include <Foundation/NSProcessInfo.h>

#include "System/SystemFile.h"
#include "System/SystemText.h"

#include <algorithm>
#include <optional>
#include <unistd.h>

using kiv::system::SystemFile;
using kiv::system::Version;

struct __NSProcessInfo // has no members: every call reads the system's files
{
};

namespace
{
// Returns the version in a file: empty if there is no file, zeros if the file has no version.
std::optional<Version> readVersion(const char *path) noexcept
{
    const SystemFile file{path};
    if (file.text().empty())
        return std::nullopt;
    char room[64];
    const auto text = kiv::system::findAssignment(file.text(), "VERSION_ID", room);
    return text ? kiv::system::parseVersion(*text) : Version{};
}
} // namespace

NSProcessInfo *NSProcessInfo_processInfo(void)
{
    static const struct __NSProcessInfo theProcess
    {
    };
    return &theProcess;
}

unsigned long long NSProcessInfo_physicalMemory(NSProcessInfo *processInfo)
{
    if (processInfo == nullptr)
        return 0;
    const auto memory = kiv::system::parseMemory(SystemFile{"/proc/meminfo"}.text());
    return memory ? memory->total : 0;
}

NSOperatingSystemVersion NSProcessInfo_operatingSystemVersion(NSProcessInfo *processInfo)
{
    if (processInfo == nullptr)
        return {};
    // The first file that exists is used, even if it has no version: os-release(5).
    auto found = readVersion("/etc/os-release");
    if (!found)
        found = readVersion("/usr/lib/os-release");
    const Version version = found.value_or(Version{});
    return {static_cast<NSInteger>(version.numbers[0]), static_cast<NSInteger>(version.numbers[1]),
            static_cast<NSInteger>(version.numbers[2])};
}

NSUInteger NSProcessInfo_activeProcessorCount(NSProcessInfo *processInfo)
{
    if (processInfo == nullptr)
        return 0;
    const uint64_t online = kiv::system::countProcessors(SystemFile{"/sys/devices/system/cpu/online"}.text());
    return online > 0 ? online : static_cast<NSUInteger>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
}
