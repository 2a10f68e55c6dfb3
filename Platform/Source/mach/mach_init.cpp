// The name of the process itself: any number except MACH_PORT_NULL.
#include <mach/mach_init.h>

const mach_port_t mach_task_self_ = 1;
