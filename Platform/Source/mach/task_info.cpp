// The process's memory, from /proc/self/statm.
#include <mach/task_info.h>

#include "System/SystemFile.h"
#include "System/SystemText.h"

#include <cstring>
#include <limits>
#include <unistd.h>

static_assert(TASK_VM_INFO_COUNT == 87);

kern_return_t task_info(task_name_t task, task_flavor_t flavor, task_info_t info,
                        mach_msg_type_number_t *count)
{
    if (task != mach_task_self() || flavor != TASK_VM_INFO || *count < TASK_VM_INFO_COUNT)
        return KERN_INVALID_ARGUMENT;
    const auto pages = kiv::system::parseProcessPages(kiv::system::SystemFile{"/proc/self/statm"}.text());
    const auto pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const uint64_t most = std::numeric_limits<uint64_t>::max() / pageSize;
    if (!pages || pages->mapped > most || pages->resident > most)
        return KERN_FAILURE;

    task_vm_info_data_t memory{};
    memory.virtual_size = pages->mapped * pageSize;
    memory.resident_size = pages->resident * pageSize;
    memory.page_size = static_cast<integer_t>(pageSize);
    std::memcpy(info, &memory, sizeof memory);
    *count = TASK_VM_INFO_COUNT;
    return KERN_SUCCESS;
}
