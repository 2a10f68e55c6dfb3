/**
 * @file
 * The memory of a process, here always the calling one.
 */
#ifndef KIV_MACH_TASK_INFO_H
#define KIV_MACH_TASK_INFO_H

#include <mach/mach_host.h>

__BEGIN_DECLS

typedef mach_port_t task_name_t;
typedef natural_t task_flavor_t;
typedef integer_t *task_info_t; /**< words of the record that the flavor selects */
typedef uint64_t mach_vm_size_t;

#define TASK_VM_INFO 22
/** Words of the record. */
#define TASK_VM_INFO_COUNT ((mach_msg_type_number_t)(sizeof(task_vm_info_data_t) / sizeof(natural_t)))

/** Memory in bytes. Values that Linux does not report in these terms are 0. */
#pragma pack(push, 4)
typedef struct task_vm_info
{
    mach_vm_size_t virtual_size; /**< mapped */
    integer_t region_count;
    integer_t page_size;          /**< bytes of a page */
    mach_vm_size_t resident_size; /**< in memory */
    uint32_t others[81];          /**< peaks, devices and ledgers */
} task_vm_info_data_t;
#pragma pack(pop)

/**
 * Stores the record of `flavor` about `task`, and its size in words
 * in `count`, which holds the room in words.
 * @return KERN_INVALID_ARGUMENT for another task than mach_task_self(), another flavor than
 *         TASK_VM_INFO or too little room, KERN_FAILURE if the system does not report the sizes;
 *         nothing is stored then. Any thread.
 */
extern __attribute__((visibility("default"))) kern_return_t
task_info(task_name_t task, task_flavor_t flavor, task_info_t info, mach_msg_type_number_t *count);

__END_DECLS

#endif
