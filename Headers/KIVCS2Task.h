/**
 * @file
 * Tasks: child processes, launched, fed, read and stopped.
 *
 * A task describes one command. `create` makes it, `free` releases it, and it is launched at most once:
 * - kivCS2Task_launch() waits for the child; a host that uses pipes feeds and drains them meanwhile from
 *   another thread.
 * - kivCS2Task_launchAsync() does the same on a thread of its own and calls back.
 * - kivCS2TaskServer_exec() (KIVCS2TaskServer.h) has the task server launch it and calls back.
 *
 * A child starts with no signal blocked, with the host's environment and working directory, and with the
 * host's descriptors except those closed on exec. The host's memory is not copied for the child, so a
 * launch takes as long in a host of many gigabytes as in a small one.
 *
 * If a task server is running, the library reaps every child of the host, even those that the host has
 * started itself (KIVCS2TaskServer.h); a launch by this module still ends with its child's exit code. If the
 * host itself reaps all children (`waitpid(-1)`, SIGCHLD ignored), these exit codes are lost.
 *
 * A callback may free its task. Another thread may free a task while its callback runs: the record is
 * released when the callback has returned.
 *
 * @code
 * const char *const arguments[] = {"on air", NULL};
 * KIVCS2Task *task;
 * char text[16] = "";
 * uint32_t count;
 * if (KIVCS2_FAILED(kivCS2Task_create(&task, "/bin/echo", arguments)))
 *     return 1;
 * kivCS2Task_setPipedIO(task, 1);
 * if (KIVCS2_SUCCEEDED(kivCS2Task_launch(task)) && // waits; a pipe holds 64 KiB
 *     KIVCS2_SUCCEEDED(kivCS2Task_readOutput(task, true, text, sizeof text - 1, &count)))
 *     printf("%d: %s", task->m_exitCode, text); // prints: 0: on air
 * kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse);
 * @endcode
 */
#ifndef KIVCS2_TASK_H
#define KIVCS2_TASK_H

#include "KIVCS2Base.h"
#include "KIVCS2LinkList.h"
#include "KIVCS2PThread.h"

KIVCS2_BEGIN_DECLS

/** The state of a task. */
typedef uint32_t KIVCS2TaskState;
enum
{
    KIVCS2TaskState_Failed = 0,        /**< an asynchronous start failed */
    KIVCS2TaskState_Created = 1,       /**< ready to launch */
    KIVCS2TaskState_Running = 2,       /**< launched synchronously */
    KIVCS2TaskState_RunningAsync = 3,  /**< launched asynchronously or through the task server */
    KIVCS2TaskState_Finished = 4,      /**< after a synchronous launch */
    KIVCS2TaskState_FinishedAsync = 5, /**< after an asynchronous launch, or aborted by `free` */
    KIVCS2TaskState_MAX = 6            /**< the count; not a state */
};

/** How `free` stops a task that is running. */
typedef uint32_t KIVCS2TaskFreeMode;
enum
{
    KIVCS2TaskFreeMode_Refuse = 0,    /**< not at all: the task is not freed */
    KIVCS2TaskFreeMode_Interrupt = 1, /**< SIGINT */
    KIVCS2TaskFreeMode_Terminate = 2, /**< SIGTERM */
    KIVCS2TaskFreeMode_TerminateTree =
        3, /**< SIGTERM to its descendants, deepest first, then to itself; all are stopped first */
    KIVCS2TaskFreeMode_Abort = 4, /**< SIGABRT, without waiting for its end */
    KIVCS2TaskFreeMode_MAX = 5    /**< the count; not a mode */
};

struct KIVCS2Task;

/** Called once when a task has finished; `context` is the one given to the launch. */
typedef void (*KIVCS2TaskFunc)(struct KIVCS2Task *task, void *context);

/** A task. Its words may be read while it runs; only the operations change them. */
typedef struct KIVCS2Task
{
    KIVCS2LinkElem m_link;     /**< in the task server's list while it runs there */
    char *m_command;           /**< path of the command */
    char **m_argv;             /**< the command again, the arguments, and a null */
    int32_t m_pid;             /**< process id of the child; 0 before there is a child */
    KIVCS2TaskState m_state;   /**< KIVCS2TaskState */
    int32_t m_waitStatus;      /**< wait status, of launches by this module */
    int32_t m_exitCode;        /**< bits 8 to 15 of that status; through the task server the whole status */
    uint32_t m_piped;          /**< non-zero: the child's standard streams are pipes */
    KIVCS2Thread m_thread;     /**< the thread of an asynchronous launch */
    KIVCS2Status m_asyncError; /**< the result of that thread's launch */
    KIVCS2TaskFunc m_callback; /**< may be null */
    void *m_context;           /**< passed to the callback */
    int32_t m_stdInPipe[2];    /**< read end, write end; 0 means no descriptor, also below */
    int32_t m_stdOutPipe[2];   /**< read end, write end */
    int32_t m_stdErrPipe[2];   /**< read end, write end */
    char *m_stdOutFile;        /**< file that gets the child's output instead, or null */
    char *m_stdErrFile;        /**< file that gets its standard error instead, or null */
    uint32_t m_references;     /**< the host, and each thread that still uses the task; private */
    uint32_t m_launchPiped;    /**< m_piped at the launch; private */
    KIVCS2TaskFreeMode m_stop; /**< mode of a `free` before the process existed; private */
    uint32_t m_lost;           /**< 1 if the server that launched it is gone; private */
    uint64_t m_lostStart;      /**< start time of its process, to recognise a reused id; private */
} KIVCS2Task;

/**
 * Makes a task that is ready to launch, with copies of its texts.
 * @param[out] _task     the new task, released with kivCS2Task_free(); after a failure null, or a partial
 *                       task, which is released in the same way
 * @param[in] _command   path of the command; no launch searches for it in PATH
 * @param[in] arguments  its arguments without the command, ended by a null; null if there are none
 * @retval KIVCS2STATUS_PARAM_ERR   `_task` or `_command` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Task_create(KIVCS2Task **_task, const char *_command,
                                          const char *const *arguments);

/**
 * Releases a task and closes its pipes. A running task is first stopped according to `mode`; if its process
 * does not exist yet, the process is stopped when it appears. In state 3 `free` then waits for the end,
 * without sleeping; it does not wait for a synchronous launch (state 2). In all other states `mode` is
 * ignored. The callback is called as if the child had ended by itself, and may begin after `free` has
 * returned: the data that `context` points to must live until then. KIVCS2TaskFreeMode_Abort changes state 3
 * to 5 and calls no callback; a task that finishes by itself before that still gets its callback.
 * @retval KIVCS2STATUS_PARAM_ERR         `_task` is null, or it is running and `mode` is above 4
 * @retval KIVCS2STATUS_TASK_RUNNING_ERR  it is running and `mode` is 0
 * In both cases nothing is freed, and a running task continues without its pipes, which are closed first.
 * Thread safety: once, by any thread, also from a callback. A callback of a launch through the task server
 * holds the server's mutex: it may free its own task, finished tasks, or any task with
 * KIVCS2TaskFreeMode_Abort; waiting there for another task would never end.
 */
KIVCS2_API KIVCS2Status kivCS2Task_free(KIVCS2Task *_task, KIVCS2TaskFreeMode mode);

/**
 * Checks whether the command may be executed. Its path is used as given, without a search in PATH, so a name
 * without a slash is refused unless the working directory has such a file.
 * @retval KIVCS2STATUS_PARAM_ERR           `_task` is null
 * @retval KIVCS2STATUS_NOT_LAUNCHABLE_ERR  the command may not be executed
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2TaskPrv_checkLaunchable(KIVCS2Task *_task);

/**
 * Runs the command and waits for its end. A child whose command cannot be executed, or whose output files
 * cannot be opened, exits with 127.
 * @retval KIVCS2STATUS_PARAM_ERR           `_task` is null
 * @retval KIVCS2STATUS_STATE_ERR           it was launched before; unchanged
 * @retval KIVCS2STATUS_NOT_LAUNCHABLE_ERR  as kivCS2TaskPrv_checkLaunchable()
 * @retval KIVCS2STATUS_PIPE_ERR            a pipe could not be made; then there are no pipes
 * @retval KIVCS2STATUS_FORK_ERR            the process could not be made; then there are no pipes
 * @retval KIVCS2STATUS_MEMORY_ERR          no room to prepare the launch; then there are no pipes
 * @retval KIVCS2STATUS_SYSTEM_ERR          another part of the host has taken the exit status; `m_waitStatus`
 *                                          is -1
 * After all statuses but the first two the task has finished (state 4). Thread safety: one launch for each
 * task; meanwhile any thread may use its pipes and send it signals.
 */
KIVCS2_API KIVCS2Status kivCS2Task_launch(KIVCS2Task *_task);

/**
 * Runs the command from a thread of its own, which calls `callback` when the child has ended, or when the
 * launch has failed.
 * @param[in,out] _task     in state 1
 * @param[in]     callback  may be null; may free the task
 * @param[in]     context   passed to the callback
 * @retval KIVCS2STATUS_PARAM_ERR           `_task` is null
 * @retval KIVCS2STATUS_STATE_ERR           it was launched before; unchanged
 * @retval KIVCS2STATUS_NOT_LAUNCHABLE_ERR  as kivCS2TaskPrv_checkLaunchable(); the task may be launched later
 * @retval KIVCS2STATUS_THREAD_ERR          the thread could not be started; the state is 0
 * Thread safety: one launch for each task.
 */
KIVCS2_API KIVCS2Status kivCS2Task_launchAsync(KIVCS2Task *_task, KIVCS2TaskFunc callback, void *context);

/**
 * Stores whether an asynchronous launch has finished, and with which status.
 * @param[in]  _task        launched by kivCS2Task_launchAsync()
 * @param[out] _finished    false while it runs
 * @param[out] _asyncError  the status that kivCS2Task_launch() would have returned; 0 while it runs
 * @retval KIVCS2STATUS_PARAM_ERR  an argument is null
 * @retval KIVCS2STATUS_STATE_ERR  it was not launched asynchronously; nothing is stored
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Task_finishedAsync(KIVCS2Task *_task, bool *_finished,
                                                 KIVCS2Status *_asyncError);

/**
 * Sets the callback for the end of the task. Call it before the launch: a callback already set for a running
 * task is not replaced.
 * @retval KIVCS2STATUS_PARAM_ERR  `_task` is null
 */
KIVCS2_API KIVCS2Status kivCS2Task_setASyncCallback(KIVCS2Task *_task, KIVCS2TaskFunc callback,
                                                    void *context);

/**
 * Sets whether the child's standard streams are pipes. A launch by the task server makes no pipes.
 * @param[in,out] _task  not running
 * @param[in]     flag   non-zero: pipes
 * @retval KIVCS2STATUS_PARAM_ERR         `_task` is null
 * @retval KIVCS2STATUS_TASK_RUNNING_ERR  it is running; unchanged
 */
KIVCS2_API KIVCS2Status kivCS2Task_setPipedIO(KIVCS2Task *_task, uint32_t flag);

/**
 * Sends the child's standard output to a file. A missing file is made (mode 0644); an existing file is not
 * truncated, so its bytes past the child's output stay. Call it before the launch. A launch by the task
 * server ignores it.
 * @retval KIVCS2STATUS_PARAM_ERR   `_task` or `_path` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room; the path is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2Task_setStdOutFile(KIVCS2Task *_task, const char *_path);

/** As kivCS2Task_setStdOutFile(), for the child's standard error. */
KIVCS2_API KIVCS2Status kivCS2Task_setStdErrFile(KIVCS2Task *_task, const char *_path);

/**
 * Reads once from the child's standard output; also after the child has ended.
 * @param[in,out] _task      with pipes, see kivCS2Task_setPipedIO()
 * @param[in]     block      wait until there is data
 * @param[out]    _buffer    room for `length` bytes
 * @param[in]     length     bytes
 * @param[out]    bytesRead  may be null; 0 at the end of the stream, and after every failure except
 *                           KIVCS2STATUS_PARAM_ERR, which leaves it unchanged
 * @retval KIVCS2STATUS_PARAM_ERR        `_task` or `_buffer` is null
 * @retval KIVCS2STATUS_STATE_ERR        the task has no pipes
 * @retval KIVCS2STATUS_NOT_PIPED_ERR    this stream has no pipe: it goes to a file, or the launch has not
 *                                       made the pipe yet
 * @retval KIVCS2STATUS_EOF_ERR          no data now, without `block`
 * @retval KIVCS2STATUS_READ_ERR         the pipe could not be polled
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  polling gave an unexpected result
 * @retval KIVCS2STATUS_TASK_READ_ERR    reading failed
 * Thread safety: any thread, while no other thread closes the pipe.
 */
KIVCS2_API KIVCS2Status kivCS2Task_readOutput(KIVCS2Task *_task, bool block, void *_buffer, uint32_t length,
                                              uint32_t *bytesRead);

/** As kivCS2Task_readOutput(), from the child's standard error. */
KIVCS2_API KIVCS2Status kivCS2Task_readError(KIVCS2Task *_task, bool block, void *_buffer, uint32_t length,
                                             uint32_t *bytesRead);

/**
 * Writes once to the child's standard input; a child that no longer reads raises no SIGPIPE.
 * @param[in,out] _task         running, with pipes
 * @param[in]     _buffer       `length` bytes
 * @param[in]     length        bytes
 * @param[out]    bytesWritten  may be null; 0 after every failure except KIVCS2STATUS_PARAM_ERR, which leaves
 *                              it unchanged
 * @retval KIVCS2STATUS_PARAM_ERR             `_task` or `_buffer` is null
 * @retval KIVCS2STATUS_TASK_NOT_RUNNING_ERR  it is not running
 * @retval KIVCS2STATUS_STATE_ERR             the task has no pipes
 * @retval KIVCS2STATUS_NOT_PIPED_ERR         its input is closed, or the launch has not made the pipe yet
 * @retval KIVCS2STATUS_TASK_WRITE_ERR        writing failed
 * Thread safety: any thread, while no other thread closes the pipe.
 */
KIVCS2_API KIVCS2Status kivCS2Task_writeInput(KIVCS2Task *_task, const void *_buffer, uint32_t length,
                                              uint32_t *bytesWritten);

/**
 * Closes the host's ends of the pipes, so that a child that reads its input reaches the end. After that the
 * task has no pipes. A second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `_task` is null
 */
KIVCS2_API KIVCS2Status kivCS2Task_closePipedIO(KIVCS2Task *_task);

/**
 * Sends a signal to the child. Stores -1 if a running task has no child yet: no other process is ever
 * signalled.
 * @param[in]  _task         running
 * @param[in]  signalNumber  of <signal.h>; 0 only checks
 * @param[out] _killResult   0 or -1, the result of kill()
 * @retval KIVCS2STATUS_PARAM_ERR             `_task` or `_killResult` is null
 * @retval KIVCS2STATUS_TASK_NOT_RUNNING_ERR  it is not running; nothing is stored
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Task_signal(KIVCS2Task *_task, int32_t signalNumber, int32_t *_killResult);

/** As kivCS2Task_signal(), with SIGINT. */
KIVCS2_API KIVCS2Status kivCS2Task_interrupt(KIVCS2Task *_task, int32_t *_killResult);

/** As kivCS2Task_signal(), with SIGTERM. */
KIVCS2_API KIVCS2Status kivCS2Task_terminate(KIVCS2Task *_task, int32_t *_killResult);

/**
 * Sends SIGTERM to every descendant of the child, the deepest first, and not to the child itself. All of them
 * are briefly stopped, as with kivCS2TaskServer_killAllChildProcesses().
 * @retval KIVCS2STATUS_PARAM_ERR             `_task` is null
 * @retval KIVCS2STATUS_TASK_NOT_RUNNING_ERR  it is not running
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Task_killAllChildProcesses(KIVCS2Task *_task);

KIVCS2_END_DECLS

#endif
