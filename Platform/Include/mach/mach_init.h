/**
 * @file
 * Names for services and for the process itself.
 */
#ifndef KIV_MACH_INIT_H
#define KIV_MACH_INIT_H

#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

/** A number that stands for a service or an object in it. */
typedef uint32_t mach_port_t;
#define MACH_PORT_NULL ((mach_port_t)0)

extern __attribute__((visibility("default"))) const mach_port_t mach_task_self_;
/** The process itself. */
#define mach_task_self() mach_task_self_

__END_DECLS

#endif
