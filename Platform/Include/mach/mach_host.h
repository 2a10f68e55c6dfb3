/**
 * @file
 * The machine's memory as a whole.
 */
#ifndef KIV_MACH_HOST_H
#define KIV_MACH_HOST_H

#include <mach/kern_return.h>
#include <mach/mach_init.h>

__BEGIN_DECLS

typedef mach_port_t host_t;
typedef uint32_t natural_t;
typedef int32_t integer_t;
typedef uintptr_t vm_size_t;
typedef uint32_t mach_msg_type_number_t;
typedef integer_t host_flavor_t;
typedef integer_t *host_info_t; /**< words of the record that the flavor selects */

#define KERN_INVALID_ARGUMENT 4
#define KERN_FAILURE          5

#define HOST_VM_INFO 2
/** Words of the record. */
#define HOST_VM_INFO_COUNT ((mach_msg_type_number_t)(sizeof(vm_statistics_data_t) / sizeof(integer_t)))

/** Pages by use. Linux reports only the first four in these terms; the others are 0. */
typedef struct vm_statistics
{
    natural_t free_count;     /**< "MemFree" */
    natural_t active_count;   /**< "Active" */
    natural_t inactive_count; /**< "Inactive" */
    natural_t wire_count;     /**< "Unevictable", "SUnreclaim", "KernelStack" and "PageTables" */
    natural_t zero_fill_count;
    natural_t reactivations;
    natural_t pageins;
    natural_t pageouts;
    natural_t faults;
    natural_t cow_faults;
    natural_t lookups;
    natural_t hits;
    natural_t purgeable_count;
    natural_t purges;
    natural_t speculative_count;
} vm_statistics_data_t;

/** The machine. Any thread. */
extern __attribute__((visibility("default"))) host_t mach_host_self(void);

/** Stores the size of a page in bytes. Always KERN_SUCCESS. Any thread. */
extern __attribute__((visibility("default"))) kern_return_t host_page_size(host_t host, vm_size_t *size);

/**
 * Stores the record of `flavor`, and its size in words in `count`, which holds the room in words.
 * @return KERN_INVALID_ARGUMENT for another flavor than HOST_VM_INFO or too little room, KERN_FAILURE if
 *         the system does not report the numbers; nothing is stored then. Any thread.
 */
extern __attribute__((visibility("default"))) kern_return_t
host_statistics(host_t host, host_flavor_t flavor, host_info_t info, mach_msg_type_number_t *count);

__END_DECLS

#endif
