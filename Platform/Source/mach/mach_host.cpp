// The machine's memory, from /proc/meminfo.
#include <mach/mach_host.h>

#include "System/SystemFile.h"
#include "System/SystemText.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <unistd.h>

static_assert(HOST_VM_INFO_COUNT == 15);

namespace
{
vm_size_t pageSize() noexcept
{
    static const auto size = static_cast<vm_size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

natural_t pages(uint64_t bytes) noexcept
{
    return static_cast<natural_t>(
        std::min<uint64_t>(bytes / pageSize(), std::numeric_limits<natural_t>::max()));
}
} // namespace

host_t mach_host_self(void)
{
    return 2; // any number except MACH_PORT_NULL and the process's
}

kern_return_t host_page_size(host_t, vm_size_t *size)
{
    *size = pageSize();
    return KERN_SUCCESS;
}

kern_return_t host_statistics(host_t, host_flavor_t flavor, host_info_t info, mach_msg_type_number_t *count)
{
    if (flavor != HOST_VM_INFO || *count < HOST_VM_INFO_COUNT)
        return KERN_INVALID_ARGUMENT;
    const auto memory = kiv::system::parseMemory(kiv::system::SystemFile{"/proc/meminfo"}.text());
    if (!memory)
        return KERN_FAILURE;

    vm_statistics_data_t statistics{};
    statistics.free_count = pages(memory->free);
    statistics.active_count = pages(memory->active);
    statistics.inactive_count = pages(memory->inactive);
    statistics.wire_count = pages(memory->wired);
    std::memcpy(info, &statistics, sizeof statistics);
    *count = HOST_VM_INFO_COUNT;
    return KERN_SUCCESS;
}
