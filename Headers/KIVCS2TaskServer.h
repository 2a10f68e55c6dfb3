/**
 * @file
 * The task server: a small process, forked once at start-up, that launches tasks for the host.
 *
 * kivCS2_init() starts it while the host is still small; kivCS2TaskServer_exec() then asks it over a pipe to
 * launch a task, which inherits the server's standard streams. A server that has been killed is noticed at
 * the next launch and replaced.
 *
 * What a host should know before it starts one:
 * - The library's SIGCHLD handler replaces the host's and reaps **every** child of the host, also those that
 *   the host has started itself: their waitpid() fails with ECHILD. A host that waits for children of its
 *   own starts with kivCS2_initWithTaskServer(false).
 * - When the host exits (exit(), or a return from main), every descendant gets SIGTERM, and the server kills
 *   what the host has launched if it has not ended 10 seconds later: time for a recorder to close its file.
 *   The exit does not wait for that, but the server does, and holds the standard streams until then.
 * - When the host dies in any other way (a signal, _exit()), the server notices at once or within a second.
 *   It sends SIGTERM to all that it has launched and to the children of launches by KIVCS2Task.h, with all
 *   below them, and kills what has not ended 3/4 second later.
 * - A process that a task leaves behind belongs to the server and goes too, and so does a child of a command
 *   launched by KIVCS2Task.h. Only what such a command has cut loose itself before, by forking twice, is not
 *   found: launch it through the server, which adopts those.
 * - A host that is process 1, as in a container, takes all others with it: at its exit it waits up to 2
 *   seconds for those below it, after SIGTERM. The kernel ends them right after.
 * - SIGTERM ends the server, within a second, and all that it has launched, with the 10 seconds above; other
 *   signals that a terminal or a supervisor sends to the whole group leave it alone.
 * - The server keeps the standard streams, the working directory and the environment that the host had when
 *   it was forked, and no other descriptor. What it launches has them too; whether a command may be executed
 *   is looked up from where the host is.
 * - A host that closes the library's descriptors, as by closing all that it does not know, loses the server
 *   with all that it has launched; those tasks finish with an `m_exitCode` of -1. Launches by KIVCS2Task.h go
 *   on.
 * - A process that the host has forked itself cannot use its parent's server, and reaps its own children.
 *   What it launches by KIVCS2Task.h is its own too, and outlives the host.
 * - A callback runs on the library's readback thread with the server's mutex held: it must not take long,
 *   must not launch through the server (which is refused), and must not wait for another of the server's
 *   tasks: to free one that runs in a mode that waits, 1 to 3, never returns. All signals are blocked on that
 *   thread.
 */
#ifndef KIVCS2_TASK_SERVER_H
#define KIVCS2_TASK_SERVER_H

#include "KIVCS2Task.h"

#include <sys/types.h>

KIVCS2_BEGIN_DECLS

/**
 * Starts the task server; kivCS2_init() does so. Once per process: a further call succeeds and does nothing,
 * whatever the first one gave.
 * @retval KIVCS2STATUS_PIPE_ERR   a pipe was not made; there will be no server
 * @retval KIVCS2STATUS_MUTEX_ERR  no mutex; there will be no server
 * @retval KIVCS2STATUS_FORK_ERR   no process was made; the next launch tries again
 * Thread safety: once, on one thread, before any other operation.
 */
KIVCS2_API KIVCS2Status kivCS2TaskServer_init(void);

/**
 * Has the task server launch a task, and returns when its process has been made. Pipes and output files do
 * not apply. When the child has ended, `m_exitCode` is its whole wait status and the state is 5; so it is for
 * one that was killed before it could execute. Should the
 * server that launched it have died meanwhile, nobody can tell the status: `m_exitCode` is -1, which is none.
 * @param[in] callback  called then on the readback thread, with the server's mutex held; may be null, may
 *                      free the task
 * @param[in] context   handed to it
 * @retval KIVCS2STATUS_PARAM_ERR           `task` is null
 * @retval KIVCS2STATUS_TASK_SERVER_ERR     there is no task server, or it does not launch; the state is as
 *                                          before. A server that does nothing for 10 seconds is killed and
 *                                          replaced once
 * @retval KIVCS2STATUS_MUTEX_ERR           called by a callback; the task is unchanged
 * @retval KIVCS2STATUS_FORK_ERR            a server that had died was not replaced; the task is unchanged
 * @retval KIVCS2STATUS_STATE_ERR           the task was launched before; unchanged
 * @retval KIVCS2STATUS_NOT_LAUNCHABLE_ERR  as kivCS2TaskPrv_checkLaunchable(); the task may be launched later
 * @retval KIVCS2STATUS_OVERFLOW_ERR        command and arguments are more than the system could execute (6
 *                                          MiB, or 65536 arguments); the task is unchanged
 * @retval KIVCS2STATUS_MEMORY_ERR          no room for the request; the task is unchanged
 * @retval KIVCS2STATUS_PIPE_ERR            the request was not written; the task stays in state 3 and never
 *                                          finishes
 * Thread safety: any thread, but no callback.
 */
KIVCS2_API KIVCS2Status kivCS2TaskServer_exec(KIVCS2Task *task, KIVCS2TaskFunc callback, void *context);

/**
 * Stores how many tasks launched through the server have not been reported ended.
 * @retval KIVCS2STATUS_PARAM_ERR        `tasks` is null
 * @retval KIVCS2STATUS_TASK_SERVER_ERR  there is no task server; 0 is stored
 * Thread safety: any thread, callbacks included.
 */
KIVCS2_API KIVCS2Status kivCS2TaskServer_tasksRunning(uint32_t *tasks);

/**
 * Sends SIGTERM to every descendant of a process, the deepest first, and not to the process itself. They and
 * the process are stopped while they are looked for, up to a quarter of a second, so that none makes another
 * one meanwhile, and then continued; not the calling process, those above it, the task server, and what
 * somebody else has stopped. A `parent` of 1 or less has no descendants here, unless it is the calling
 * process. Failures are not reported. A host that means itself ends its task server too; the next launch
 * through it starts another one.
 * @retval KIVCS2STATUS_OK  always
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2TaskServer_killAllChildProcesses(pid_t parent);

KIVCS2_END_DECLS

#endif
