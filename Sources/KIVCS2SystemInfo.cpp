// System information: the machine's memory, version, processors and name.
#include "KIVCS2SystemInfo.h"

#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"

#include <Foundation/NSProcessInfo.h>
#include <SystemConfiguration/SCDynamicStoreCopySpecific.h>
#include <mach/mach_host.h>
#include <mach/task_info.h>
#include <sys/sysctl.h>

#include <cstring>

namespace
{
void store(uint64_t *output, uint64_t value)
{
    if (output != nullptr)
        *output = value;
}

[[nodiscard]] KIVCS2Status getHostUsage(uint64_t *free, uint64_t *inactive, uint64_t *active, uint64_t *wired)
{
    vm_size_t pageSize = 0;
    vm_statistics_data_t pages{};
    mach_msg_type_number_t words = HOST_VM_INFO_COUNT;
    if (host_page_size(mach_host_self(), &pageSize) != KERN_SUCCESS ||
        host_statistics(mach_host_self(), HOST_VM_INFO, reinterpret_cast<host_info_t>(&pages), &words) !=
            KERN_SUCCESS)
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    store(free, uint64_t{pages.free_count} * pageSize);
    store(inactive, uint64_t{pages.inactive_count} * pageSize);
    store(active, uint64_t{pages.active_count} * pageSize);
    store(wired, uint64_t{pages.wire_count} * pageSize);
    return KIVCS2STATUS_OK;
}

[[nodiscard]] KIVCS2Status getTaskUsage(uint64_t *resident, uint64_t *mapped)
{
    task_vm_info_data_t memory{};
    mach_msg_type_number_t words = TASK_VM_INFO_COUNT;
    if (task_info(mach_task_self(), TASK_VM_INFO, reinterpret_cast<task_info_t>(&memory), &words) !=
        KERN_SUCCESS)
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    store(resident, memory.resident_size);
    store(mapped, memory.virtual_size);
    return KIVCS2STATUS_OK;
}

[[nodiscard]] KIVCS2Status storeName(CFStringRef name, char *buffer, uint32_t size)
{
    if (CFStringGetLength(name) < static_cast<CFIndex>(size) &&
        CFStringGetCString(name, buffer, static_cast<CFIndex>(size), kCFStringEncodingUTF8))
        return KIVCS2STATUS_OK;
    std::memset(buffer, 0, size); // part of a name is not stored
    return KIVCS2STATUS_BUFFER_SIZE_ERR;
}
} // namespace

KIVCS2Status kivCS2SystemInfo_getPhysicalRAMSize(uint32_t *_ramSizeMB)
{
    KIV_CHECK_AS(_ramSizeMB != nullptr, "(_ramSizeMB) != NULL", KIVCS2STATUS_PARAM_ERR);

    // Kept: hosts rely on bytes, despite the name, and on their low 32 bits.
    *_ramSizeMB = static_cast<uint32_t>(NSProcessInfo_physicalMemory(NSProcessInfo_processInfo()));
    return KIVCS2STATUS_OK;
}

// Kept: hosts rely on inactive coming before active.
KIVCS2Status kivCS2SystemInfo_getRAMUsage(uint64_t *_free, uint64_t *_inactive, uint64_t *_active,
                                          uint64_t *_wired, uint64_t *_resident, uint64_t *_virtual)
{
    if (_free != nullptr || _inactive != nullptr || _active != nullptr || _wired != nullptr)
        KIV_TRY(getHostUsage(_free, _inactive, _active, _wired));
    if (_resident != nullptr || _virtual != nullptr)
        KIV_TRY(getTaskUsage(_resident, _virtual));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SystemInfo_getSystemVersion(uint32_t *_major, uint32_t *_minor, uint32_t *_bugfix)
{
    KIV_CHECK_AS(_major != nullptr, "(_major) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(_minor != nullptr, "(_minor) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(_bugfix != nullptr, "(_bugfix) != NULL", KIVCS2STATUS_PARAM_ERR);

    const NSOperatingSystemVersion version =
        NSProcessInfo_operatingSystemVersion(NSProcessInfo_processInfo());
    *_major = static_cast<uint32_t>(version.majorVersion);
    *_minor = static_cast<uint32_t>(version.minorVersion);
    *_bugfix = static_cast<uint32_t>(version.patchVersion);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SystemInfo_getClockSpeed(uint32_t *_speedMHz)
{
    KIV_CHECK_AS(_speedMHz != nullptr, "(_speedMHz) != NULL", KIVCS2STATUS_PARAM_ERR);

    constexpr int name[] = {CTL_HW, HW_CPU_FREQ};
    uint32_t hertz = 0; // stored if the system does not report it
    size_t size = sizeof hertz;
    (void)sysctl(name, 2, &hertz, &size, nullptr, 0);
    *_speedMHz = hertz; // Kept: hosts rely on hertz, despite the name, and on success without a clock.
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SystemInfo_getCPUCoreCount(uint32_t *_cores)
{
    KIV_CHECK_AS(_cores != nullptr, "(_cores) != NULL", KIVCS2STATUS_PARAM_ERR);

    *_cores = static_cast<uint32_t>(NSProcessInfo_activeProcessorCount(NSProcessInfo_processInfo()));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SystemInfo_getMachineNameString(char *_buffer, uint32_t _bufferSize)
{
    KIV_CHECK_AS(_buffer != nullptr, "(_buffer) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(_bufferSize != 0, "(s32)(_bufferSize) != 0L", KIVCS2STATUS_PARAM_ERR);

    std::memset(_buffer, 0, _bufferSize);
    kiv::CFRef<CFStringRef> name{SCDynamicStoreCopyComputerName(nullptr, nullptr)};
    const KIVCS2Status status = name ? storeName(name.get(), _buffer, _bufferSize) : KIVCS2STATUS_DATA_ERR;
    (void)name.release(); // Kept: hosts rely on the name staying for the life of the process.
    return status;
}
