/**
 * @file
 * Tasks: child processes, launched, fed, read and stopped.
 *
 * A task describes one command. `create` makes it, `free` releases it, and it is launched at most once:
 * - kivCS2Task_launch() waits for the child; a host that pipes it feeds and drains the pipes meanwhile
 *   from another thread.
 * - kivCS2Task_launchAsync() does the same on a thread of the library's own and calls back.
 * - kivCS2TaskServer_exec() (KIVCS2TaskServer.h) has the task server launch it and calls back.
 *
 * A child starts with no signal blocked, with the host's environment and working directory, and with those
 * of the host's descriptors that are not closed on exec. The host's memory is not copied for it, so that a
 * launch takes as long in a host of many gigabytes as in a small one.
 *
 * With a running task server the library reaps every child of the host, also those that the host has
 * started itself (KIVCS2TaskServer.h); a launch by this module still ends with its child's exit code. A
 * host that reaps other processes' children (`waitpid(-1)`, SIGCHLD ignored) takes those exit codes away.
 *
 * A callback may free its task. A task may be freed by another thread while its callback runs: the record
 * goes when the callback has returned.
 */
#ifndef KIVCS2_TASK_H
#define KIVCS2_TASK_H

#include "KIVCS2Base.h"
#include "KIVCS2LinkList.h"
#include "KIVCS2PThread.h"

KIVCS2_BEGIN_DECLS

/** What a task is doing. */
typedef uint32_t KIVCS2TaskState;
enum
{
    KIVCS2TaskState_Failed = 0,        /**< an asynchronous start failed */
    KIVCS2TaskState_Created = 1,       /**< ready to launch */
    KIVCS2TaskState_Running = 2,       /**< launched synchronously */
    KIVCS2TaskState_RunningAsync = 3,  /**< launched asynchronously or through the task server */
    KIVCS2TaskState_Finished = 4,      /**< after a synchronous launch */
    KIVCS2TaskState_FinishedAsync = 5, /**< after the others, or aborted by `free` */
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
        3, /**< SIGTERM to its descendants, deepest first, then to itself; stopped before */
    KIVCS2TaskFreeMode_Abort = 4, /**< SIGABRT, and no wait for its end */
    KIVCS2TaskFreeMode_MAX = 5    /**< the count; not a mode */
};

struct KIVCS2Task;

/** Called once when a task has finished; `context` is the launch's. */
typedef void (*KIVCS2TaskFunc)(struct KIVCS2Task *task, void *context);

/** A task. Its words may be looked at while it runs; only the operations change them. */
typedef struct KIVCS2Task
{
    KIVCS2LinkElem m_link;     /**< in the task server's list while it runs there */
    char *m_command;           /**< path of the command */
    char **m_argv;             /**< the command again, the arguments, and a null */
    int32_t m_pid;             /**< process id of the child; 0 before there is one */
    KIVCS2TaskState m_state;   /**< KIVCS2TaskState */
    int32_t m_waitStatus;      /**< status of waiting, of launches by this module */
    int32_t m_exitCode;        /**< bits 8 to 15 of that status; through the task server the whole status */
    uint32_t m_piped;          /**< non-zero: the child's standard streams are pipes */
    KIVCS2Thread m_thread;     /**< of an asynchronous launch */
    KIVCS2Status m_asyncError; /**< how that thread's launch ended */
    KIVCS2TaskFunc m_callback; /**< may be null */
    void *m_context;           /**< handed to the callback */
    int32_t m_stdInPipe[2];    /**< read end, write end; 0 stands for none, here and below */
    int32_t m_stdOutPipe[2];   /**< read end, write end */
    int32_t m_stdErrPipe[2];   /**< read end, write end */
    char *m_stdOutFile;        /**< where the child's output goes instead; null for none */
    char *m_stdErrFile;        /**< where its errors go */
    uint32_t m_references;     /**< the host, and whoever still works on the task; private */
    uint32_t m_launchPiped;    /**< m_piped when it was launched; private */
    KIVCS2TaskFreeMode m_stop; /**< how it was freed while it had no process; private */
    uint32_t m_lost;           /**< 1 when the server that launched it is gone; private */
    uint64_t m_lostStart;      /**< when its process was started, to tell it from a later one; private */
} KIVCS2Task;

/**
 * Makes a task that is ready to launch, with copies of its texts.
 * @param[out] _task     the new task, released with kivCS2Task_free(); after a failure that has left one, a
 *                       part of one, which is released so as well; null when there is none
 * @param[in] _command   path of the command, which no launch searches for in PATH
 * @param[in] arguments  its arguments without the command, ended by a null; null for none
 * @retval KIVCS2STATUS_PARAM_ERR   `_task` or `_command` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Task_create(KIVCS2Task **_task, const char *_command,
                                          const char *const *arguments);

/**
 * Releases a task, whose pipes it closes. A task that is running is stopped first as `mode` says and waited
 * for while its state is 3, without sleeping; where its process is still to come it is stopped when it
 * comes. A synchronous launch (state 2) is not waited for. In every state but these `mode` means nothing.
 * The callback is made as if the child had ended by itself, and may begin when `free` has returned: what
 * `context` points to has to last till then. KIVCS2TaskFreeMode_Abort of a task in state 3 makes it state 5
 * without a callback; one that finishes by itself before that has its own.
 * @retval KIVCS2STATUS_PARAM_ERR         `_task` is null, or it is running and `mode` is above 4
 * @retval KIVCS2STATUS_TASK_RUNNING_ERR  it is running and `mode` is 0
 * In both cases nothing is freed, and a task that is running goes on without its pipes, which are closed
 * first.
 * Thread safety: once, by any thread, a callback's included. A callback of a launch through the task server
 * holds the server's mutex: there only its own task, and those that have finished, can be freed, or any with
 * KIVCS2TaskFreeMode_Abort; a wait for another one's end would never end.
 */
KIVCS2_API KIVCS2Status kivCS2Task_free(KIVCS2Task *_task, KIVCS2TaskFreeMode mode);

/**
 * Tells whether the command may be executed: its path as given, not searched for in PATH, so that a bare
 * name is refused unless such a file is in the working directory.
 * @retval KIVCS2STATUS_PARAM_ERR           `_task` is null
 * @retval KIVCS2STATUS_NOT_LAUNCHABLE_ERR  it may not
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2TaskPrv_checkLaunchable(KIVCS2Task *_task);

/**
 * Runs the command and waits for its end. A child whose command cannot be executed, or whose output files
 * cannot be opened, exits with 127.
 * @retval KIVCS2STATUS_PARAM_ERR           `_task` is null
 * @retval KIVCS2STATUS_STATE_ERR           it was launched before; unchanged
 * @retval KIVCS2STATUS_NOT_LAUNCHABLE_ERR  as kivCS2TaskPrv_checkLaunchable()
 * @retval KIVCS2STATUS_PIPE_ERR            a pipe was not made; there are none then
 * @retval KIVCS2STATUS_FORK_ERR            no process was made; there are no pipes then
 * @retval KIVCS2STATUS_MEMORY_ERR          no room to prepare the launch; there are no pipes then
 * @retval KIVCS2STATUS_SYSTEM_ERR          another part of the host has taken the exit status; `m_waitStatus`
 *                                          is -1
 * After every one but the first two the task has finished (state 4). Thread safety: one launch a task;
 * pipes and signals from any thread meanwhile.
 */
KIVCS2_API KIVCS2Status kivCS2Task_launch(KIVCS2Task *_task);

/**
 * Runs the command from a thread of its own, which calls `callback` when the child has ended, or when the
 * launch has failed.
 * @param[in] callback  may be null; may free the task
 * @param[in] context   handed to it
 * @retval KIVCS2STATUS_PARAM_ERR           `_task` is null
 * @retval KIVCS2STATUS_STATE_ERR           it was launched before; unchanged
 * @retval KIVCS2STATUS_NOT_LAUNCHABLE_ERR  as kivCS2TaskPrv_checkLaunchable(); the task may be launched later
 * @retval KIVCS2STATUS_THREAD_ERR          no thread; the state is 0
 * Thread safety: one launch a task.
 */
KIVCS2_API KIVCS2Status kivCS2Task_launchAsync(KIVCS2Task *_task, KIVCS2TaskFunc callback, void *context);

/**
 * Tells whether an asynchronous launch has finished, and with which status.
 * @param[out] _finished    false while it runs
 * @param[out] _asyncError  the status that kivCS2Task_launch() would have given; 0 while it runs
 * @retval KIVCS2STATUS_PARAM_ERR  an argument is null
 * @retval KIVCS2STATUS_STATE_ERR  it was not launched so; nothing is stored
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Task_finishedAsync(KIVCS2Task *_task, bool *_finished,
                                                 KIVCS2Status *_asyncError);

/**
 * Sets what is called when the task has finished. Before the launch: a callback under way is not replaced.
 * @retval KIVCS2STATUS_PARAM_ERR  `_task` is null
 */
KIVCS2_API KIVCS2Status kivCS2Task_setASyncCallback(KIVCS2Task *_task, KIVCS2TaskFunc callback,
                                                    void *context);

/**
 * Connects the child's standard streams to pipes, or no longer. Not for launches by the task server.
 * @param[in] flag  non-zero: pipes
 * @retval KIVCS2STATUS_PARAM_ERR         `_task` is null
 * @retval KIVCS2STATUS_TASK_RUNNING_ERR  it is running; unchanged
 */
KIVCS2_API KIVCS2Status kivCS2Task_setPipedIO(KIVCS2Task *_task, uint32_t flag);

/**
 * Sends the child's standard output to a file, made if it is missing (mode 0644) and not truncated: what an
 * older file holds beyond the child's output stays. Before the launch; not for launches by the task server.
 * @retval KIVCS2STATUS_PARAM_ERR   `_task` or `_path` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room; the path is as before
 */
KIVCS2_API KIVCS2Status kivCS2Task_setStdOutFile(KIVCS2Task *_task, const char *_path);

/** As kivCS2Task_setStdOutFile(), for the child's standard error. */
KIVCS2_API KIVCS2Status kivCS2Task_setStdErrFile(KIVCS2Task *_task, const char *_path);

/**
 * Reads once from the child's standard output; also after the child has ended.
 * @param[in] block       wait until there is something
 * @param[out] bytesRead  may be null; 0 at the end of the stream, and after every failure but
 *                        KIVCS2STATUS_PARAM_ERR, which leaves it as it was
 * @retval KIVCS2STATUS_PARAM_ERR        `_task` or `_buffer` is null
 * @retval KIVCS2STATUS_STATE_ERR        it has no pipes
 * @retval KIVCS2STATUS_NOT_PIPED_ERR    this stream has none: it goes to a file, or the launch has not come
 *                                       so far
 * @retval KIVCS2STATUS_EOF_ERR          nothing to read now, without `block`
 * @retval KIVCS2STATUS_READ_ERR         the pipe could not be polled
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  polling gave what it cannot give
 * @retval KIVCS2STATUS_TASK_READ_ERR    reading failed
 * Thread safety: any thread, while no other closes the pipe.
 */
KIVCS2_API KIVCS2Status kivCS2Task_readOutput(KIVCS2Task *_task, bool block, void *_buffer, uint32_t length,
                                              uint32_t *bytesRead);

/** As kivCS2Task_readOutput(), from the child's standard error. */
KIVCS2_API KIVCS2Status kivCS2Task_readError(KIVCS2Task *_task, bool block, void *_buffer, uint32_t length,
                                             uint32_t *bytesRead);

/**
 * Writes once to the child's standard input; a child that no longer reads raises no SIGPIPE.
 * @param[out] bytesWritten  may be null; 0 after every failure but KIVCS2STATUS_PARAM_ERR, which leaves it as
 *                           it was
 * @retval KIVCS2STATUS_PARAM_ERR             `_task` or `_buffer` is null
 * @retval KIVCS2STATUS_TASK_NOT_RUNNING_ERR  it is not running
 * @retval KIVCS2STATUS_STATE_ERR             it has no pipes
 * @retval KIVCS2STATUS_NOT_PIPED_ERR         its input is closed, or the launch has not come so far
 * @retval KIVCS2STATUS_TASK_WRITE_ERR        writing failed
 * Thread safety: any thread, while no other closes the pipe.
 */
KIVCS2_API KIVCS2Status kivCS2Task_writeInput(KIVCS2Task *_task, const void *_buffer, uint32_t length,
                                              uint32_t *bytesWritten);

/**
 * Closes the host's ends of the pipes, which tells a child that reads its input that no more is coming; the
 * task has no pipes afterwards. Twice is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `_task` is null
 */
KIVCS2_API KIVCS2Status kivCS2Task_closePipedIO(KIVCS2Task *_task);

/**
 * Sends a signal to the child. A task that is running and has no child yet gives -1: no process is
 * signalled that is not the task's own.
 * @param[out] _killResult  0 or -1, as kill() gives it
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
 * Sends SIGTERM to every descendant of the child, the deepest first, and not to the child itself. All are
 * stopped for a moment, as at kivCS2TaskServer_killAllChildProcesses().
 * @retval KIVCS2STATUS_PARAM_ERR             `_task` is null
 * @retval KIVCS2STATUS_TASK_NOT_RUNNING_ERR  it is not running
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Task_killAllChildProcesses(KIVCS2Task *_task);

KIVCS2_END_DECLS

#endif
