// Functions without a guard of their stack.
#ifndef KIV_PRIVATE_SUPPORT_UNGUARDED_H
#define KIV_PRIVATE_SUPPORT_UNGUARDED_H

// The stack protector guards a function that has an array or passes a local's address on, which takes
// about a nanosecond. This leaves the guard out of a function that takes few nanoseconds in all and writes
// to its locals only whole values, never a length from outside. What it calls keeps its guards.
#define KIV_UNGUARDED __attribute__((no_stack_protector))

#endif
