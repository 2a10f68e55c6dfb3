/**
 * @file
 * The tree of the system's variables by number, which the C library of Linux does not have any more.
 */
#ifndef KIV_SYS_SYSCTL_H
#define KIV_SYS_SYSCTL_H

#include <stddef.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

#define CTL_HW      6
#define HW_CPU_FREQ 15

/**
 * Stores the value of the variable `name`, of `nameCount` numbers, and its size; `oldSize` holds the bytes
 * there is room for, and a null `oldValue` asks for the size alone. Supplied is {CTL_HW, HW_CPU_FREQ}: the
 * highest clock of the processors in hertz, in 4 bytes, at most 0xFFFFFFFF.
 * @return 0, or -1 and errno: ENOENT for another name and when the system does not tell, ENOMEM for too little
 *         room, EPERM when `newValue` is to be set. Any thread.
 */
extern __attribute__((visibility("default"))) int sysctl(const int *name, unsigned int nameCount,
                                                         void *oldValue, size_t *oldSize, void *newValue,
                                                         size_t newSize);

__END_DECLS

#endif
