/**
 * @file
 * The task server: a small process, forked once at start-up, that launches tasks for the host.
 *
 * kivCS2_init() starts it while the host is still small; kivCS2TaskServer_exec() then requests over a pipe
 * that it launches a task, which inherits the server's standard streams. A server that has been killed is
 * noticed at the next launch and replaced.
 *
 * A host should know the following before it starts a server:
 * - The library's SIGCHLD handler replaces the host's and reaps **every** child of the host, also those that
 *   the host has started itself: their waitpid() fails with ECHILD. A host that waits for its own children
 *   starts with kivCS2_initWithTaskServer(false).
 * - When the host exits (exit(), or a return from main), every descendant gets SIGTERM. After 10 seconds the
 *   server kills the processes launched by the host that have not ended: time for a recorder to close its
 *   file. The exit does not wait for that, but the server does, and holds the standard streams until then.
 * - When the host dies in any other way (a signal, _exit()), the server notices at once or within a second.
 *   It sends SIGTERM to all processes that it has launched and to the children of launches by KIVCS2Task.h,
 *   with all their descendants, and kills those that have not ended 3/4 second later.
 * - A process that a task leaves running belongs to the server and is ended too, and so is a child of a
 *   command launched by KIVCS2Task.h. There is one exception: a process that such a command has detached
 *   before, by forking twice, is not found. Launch such a command through the server, which adopts those
 *   processes.
 * - A host that is process 1, as in a container, ends all other processes with it: at its exit it sends
 *   SIGTERM to its descendants and waits up to 2 seconds for them. The kernel ends the rest right after.
 * - SIGTERM ends the server, within a second, and all that it has launched, with the 10 seconds above; the
 *   server ignores other signals that a terminal or a supervisor sends to the whole group.
 * - The server keeps the standard streams, the working directory and the environment that the host had when
 *   it was forked, and no other descriptor. The tasks it launches have them too; but whether a command may be
 *   executed is checked from the host's working directory.
 * - A host that closes the library's descriptors, for example by closing all descriptors it does not know,
 *   loses the server with all that it has launched; those tasks finish with an `m_exitCode` of -1. Launches
 *   by KIVCS2Task.h continue.
 * - A process that the host has forked itself cannot use its parent's server, and reaps its own children. The
 *   commands it launches by KIVCS2Task.h are its own too, and outlive the host.
 * - A callback runs on the library's readback thread with the server's mutex held: it must not take long,
 *   must not launch through the server (which is refused; a launch by KIVCS2Task.h is not), and must not wait
 *   for another of the server's tasks: freeing a running one with a mode that waits, 1 to 3, never returns.
 *   All signals are blocked on that thread.
 *
 * @code
 * static void onEnd(KIVCS2Task *task, void *ended)
 * {
 *     printf("%d\n", WEXITSTATUS(task->m_exitCode)); // prints: 1
 *     kivCS2Semaphore_signal(ended);
 * }
 *
 * KIVCS2Semaphore ended;
 * KIVCS2Task *task;
 * kivCS2_init(); // starts the server, before the host has threads and memory
 * if (KIVCS2_FAILED(kivCS2Semaphore_init(&ended, NULL)) ||
 *     KIVCS2_FAILED(kivCS2Task_create(&task, "/bin/false", NULL)) ||
 *     KIVCS2_FAILED(kivCS2TaskServer_exec(task, onEnd, &ended)))
 *     return 1;
 * kivCS2Semaphore_wait(&ended);
 * kivCS2Semaphore_free(&ended);
 * kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse);
 * @endcode
 */
#ifndef KIVCS2_TASK_SERVER_H
#define KIVCS2_TASK_SERVER_H

#include "KIVCS2Task.h"

#include <sys/types.h>

KIVCS2_BEGIN_DECLS

/**
 * Starts the task server; kivCS2_init() calls it. Once per process: a further call does nothing and succeeds,
 * whatever the first call returned.
 * @retval KIVCS2STATUS_PIPE_ERR   a pipe could not be made; there will be no server
 * @retval KIVCS2STATUS_MUTEX_ERR  the mutex could not be made; there will be no server
 * @retval KIVCS2STATUS_FORK_ERR   the process could not be made; the next launch tries again
 * Thread safety: once, on one thread, before any other operation.
 */
KIVCS2_API KIVCS2Status kivCS2TaskServer_init(void);

/**
 * Makes the task server launch a task, and returns when its process exists. Pipes and output files do not
 * apply. When the child has ended, `m_exitCode` is its whole wait status and the state is 5; this also holds
 * for a child that was killed before it could execute. If the server that launched it has died meanwhile, the
 * status is lost: `m_exitCode` is -1, which is not a wait status.
 * @param[in,out] task      in state 1
 * @param[in]     callback  called when the child has ended, on the readback thread, with the server's mutex
 *                          held; may be null, may free the task
 * @param[in]     context   passed to the callback
 * @retval KIVCS2STATUS_PARAM_ERR           `task` is null
 * @retval KIVCS2STATUS_TASK_SERVER_ERR     there is no task server, or it does not launch; the state is
 *                                          unchanged. A server that does not respond for 10 seconds is killed
 *                                          and replaced once
 * @retval KIVCS2STATUS_MUTEX_ERR           called by a callback; the task is unchanged
 * @retval KIVCS2STATUS_FORK_ERR            a server that had died was not replaced; the task is unchanged
 * @retval KIVCS2STATUS_STATE_ERR           the task was launched before; unchanged
 * @retval KIVCS2STATUS_NOT_LAUNCHABLE_ERR  as kivCS2TaskPrv_checkLaunchable(); the task may be launched later
 * @retval KIVCS2STATUS_OVERFLOW_ERR        command and arguments are longer than the system could execute (6
 *                                          MiB, or 65536 arguments); the task is unchanged
 * @retval KIVCS2STATUS_MEMORY_ERR          no room for the request; the task is unchanged
 * @retval KIVCS2STATUS_PIPE_ERR            the request could not be written; the task stays in state 3 and
 *                                          never finishes
 * Thread safety: any thread, but not a callback.
 */
KIVCS2_API KIVCS2Status kivCS2TaskServer_exec(KIVCS2Task *task, KIVCS2TaskFunc callback, void *context);

/**
 * Stores the number of tasks launched through the server whose end has not been reported.
 * @retval KIVCS2STATUS_PARAM_ERR        `tasks` is null
 * @retval KIVCS2STATUS_TASK_SERVER_ERR  there is no task server; 0 is stored
 * Thread safety: any thread, callbacks included.
 */
KIVCS2_API KIVCS2Status kivCS2TaskServer_tasksRunning(uint32_t *tasks);

/**
 * Sends SIGTERM to every descendant of a process, the deepest first, and not to the process itself. While
 * they are searched for, up to a quarter of a second, the descendants and the process are stopped, so that
 * none of them makes another process, and then continued. Not stopped are the calling process and its
 * ancestors, the task server, and processes that another program has stopped. A `parent` of 1 or less has no
 * descendants here, unless it is the calling process. Failures are not reported. A host that passes its own
 * id ends its task server too; the next launch through the server starts another one.
 * @retval KIVCS2STATUS_OK  always
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2TaskServer_killAllChildProcesses(pid_t parent);

KIVCS2_END_DECLS

#endif
