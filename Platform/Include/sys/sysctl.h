/**
 * @file
 * The tree of the system's variables by number, which the C library of Linux has dropped.
 */
#ifndef KIV_SYS_SYSCTL_H
#define KIV_SYS_SYSCTL_H

#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/types.h>

__BEGIN_DECLS

#define CTL_HW      6
#define HW_CPU_FREQ 15

/** The table of processes: {CTL_KERN, KERN_PROC, KERN_PROC_ALL}. */
#define CTL_KERN      1
#define KERN_PROC     14
#define KERN_PROC_ALL 0

/** p_stat: the state of a process. */
#define SIDL   1 /**< being made */
#define SRUN   2 /**< running or ready to run */
#define SSLEEP 3 /**< sleeps */
#define SSTOP  4 /**< stopped by a signal, or traced */
#define SZOMB  5 /**< has ended, and its parent has not waited for it */

#define MAXCOMLEN 16

struct extern_proc
{
    pid_t p_pid;
    char p_stat;                /**< SIDL to SZOMB */
    char p_comm[MAXCOMLEN + 1]; /**< name of the program, truncated; may hold any character */
    uint64_t p_starttime;       /**< time of its start: nanoseconds of CLOCK_BOOTTIME, in steps of 10 ms */
};

struct eproc
{
    pid_t e_ppid; /**< process id of its parent */
};

/** One process. The record has its documented size; bytes without a name here are zero. */
struct kinfo_proc
{
    struct extern_proc kp_proc;
    struct eproc kp_eproc;
    char kp_reserved[648 - sizeof(struct extern_proc) - sizeof(struct eproc)];
};

/**
 * Stores the value of the variable `name`, of `nameCount` numbers, and its size. `oldSize` holds the room in
 * bytes; a null `oldValue` requests only the size. Supplied are
 * - {CTL_HW, HW_CPU_FREQ}: the highest clock of the processors in hertz, in 4 bytes, at most 0xFFFFFFFF;
 * - {CTL_KERN, KERN_PROC, KERN_PROC_ALL}: a kinfo_proc for each process. They are read one after
 *   the other, so a process that comes or goes meanwhile may or may not be listed. With too
 *   little room, those that fit are stored.
 * @return 0, or -1 and errno: ENOENT for another name and if the system does not report the value, ENOMEM for
 *         too little room, EPERM if `newValue` is given. Any thread.
 */
extern __attribute__((visibility("default"))) int sysctl(const int *name, unsigned int nameCount,
                                                         void *oldValue, size_t *oldSize, void *newValue,
                                                         size_t newSize);

__END_DECLS

#endif
