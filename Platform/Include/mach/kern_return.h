/**
 * @file
 * Results of the system services' calls.
 */
#ifndef KIV_MACH_KERN_RETURN_H
#define KIV_MACH_KERN_RETURN_H

/** 0 is success. */
typedef int kern_return_t;
#define KERN_SUCCESS 0

#endif
