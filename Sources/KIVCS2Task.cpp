// Tasks: launches child processes, feeds and reads them, and stops them.
#include "KIVCS2Task.h"

#include "KIVCS2String.h"
#include "Private/Support/Check.h"
#include "Private/Tasks/Children.h"
#include "Private/Tasks/Record.h"
#include "Private/Tasks/ServerRecord.h"
#include "Private/Tasks/Tree.h"

#include <KIVPlatform/KIVPlatform.h>

#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

using kiv::taskWord;

namespace
{
constexpr int32_t kNoDescriptor = 0; // as in a zero-filled record: pipes are above the standard streams
constexpr int kReadEnd = 0;
constexpr int kWriteEnd = 1;
constexpr int32_t kUnknownStatus = -1;

#define CHECK_GIVEN(argument)                                                                                \
    KIV_CHECK_AS((argument) != nullptr, "(" #argument ") != NULL", KIVCS2STATUS_PARAM_ERR)

[[nodiscard]] bool isRunning(KIVCS2TaskState state)
{
    return state == KIVCS2TaskState_Running || state == KIVCS2TaskState_RunningAsync;
}

[[nodiscard]] bool isRunning(KIVCS2Task &task)
{
    return isRunning(taskWord(task.m_state).load());
}

// Closes an end exactly once, even if other threads try to.
void closeEnd(int32_t &end)
{
    const int32_t descriptor = taskWord(end).exchange(kNoDescriptor);
    if (descriptor > STDERR_FILENO)
        close(descriptor);
}

void closeHostEnds(KIVCS2Task &task)
{
    closeEnd(task.m_stdInPipe[kWriteEnd]);
    closeEnd(task.m_stdOutPipe[kReadEnd]);
    closeEnd(task.m_stdErrPipe[kReadEnd]);
}

void closePipes(KIVCS2Task &task)
{
    for (int32_t *pipe : {task.m_stdInPipe, task.m_stdOutPipe, task.m_stdErrPipe})
    {
        closeEnd(pipe[kReadEnd]);
        closeEnd(pipe[kWriteEnd]);
    }
}

[[nodiscard]] KIVCS2Status makePipe(int32_t (&pipe)[2])
{
    int ends[2];
    if (KIVPPipe(ends) != 0)
        return KIVCS2STATUS_PIPE_ERR;
    taskWord(pipe[kReadEnd]).store(ends[kReadEnd]);
    taskWord(pipe[kWriteEnd]).store(ends[kWriteEnd]);
    return KIVCS2STATUS_OK;
}

[[nodiscard]] KIVCS2Status makePipes(KIVCS2Task &task)
{
    KIV_TRY(makePipe(task.m_stdInPipe));
    if (task.m_stdOutFile == nullptr)
        KIV_TRY(makePipe(task.m_stdOutPipe));
    if (task.m_stdErrFile == nullptr)
        KIV_TRY(makePipe(task.m_stdErrPipe));
    return KIVCS2STATUS_OK;
}

// The child's end of a pipe, -1 if there is no pipe.
[[nodiscard]] int childEnd(int32_t &end)
{
    const int32_t descriptor = taskWord(end).load();
    return descriptor == kNoDescriptor ? -1 : descriptor;
}

[[nodiscard]] KIVCS2Status start(KIVCS2Task &task, kiv::Child &child)
{
    kiv::ExecPlan plan;
    KIV_TRY(plan.prepare(task.m_command, task.m_argv));
    kiv::ChildSetup setup;
    setup.piped = taskWord(task.m_launchPiped).load() != 0;
    if (setup.piped)
    {
        KIV_TRY(makePipes(task));
        // The host may have closed the pipes before they existed.
        if (taskWord(task.m_piped).load() == 0)
            closeHostEnds(task);
        setup.standardStreams[STDIN_FILENO] = childEnd(task.m_stdInPipe[kReadEnd]);
        setup.standardStreams[STDOUT_FILENO] = childEnd(task.m_stdOutPipe[kWriteEnd]);
        setup.standardStreams[STDERR_FILENO] = childEnd(task.m_stdErrPipe[kWriteEnd]);
    }
    setup.files[STDOUT_FILENO] = task.m_stdOutFile;
    setup.files[STDERR_FILENO] = task.m_stdErrFile;
    if (!child.start(plan, setup, task.m_pid))
        return KIVCS2STATUS_FORK_ERR;
    kiv::stopIfFreed(task);
    return KIVCS2STATUS_OK;
}

// Runs the steps that both kinds of launch share.
[[nodiscard]] KIVCS2Status run(KIVCS2Task &task)
{
    KIV_TRY(kivCS2TaskPrv_checkLaunchable(&task));

    kiv::Child child;
    if (const KIVCS2Status status = start(task, child); KIVCS2_FAILED(status))
    {
        closePipes(task);
        return status;
    }
    closeEnd(task.m_stdInPipe[kReadEnd]);
    closeEnd(task.m_stdOutPipe[kWriteEnd]);
    closeEnd(task.m_stdErrPipe[kWriteEnd]);

    int status = kUnknownStatus;
    const bool known = child.wait(status);
    kiv::reapPostponed(); // the handler has left this child to be taken first
    task.m_waitStatus = known ? status : kUnknownStatus;
    task.m_exitCode = (task.m_waitStatus >> 8) & 0xFF;
    return known ? KIVCS2STATUS_OK : KIVCS2STATUS_SYSTEM_ERR;
}

void *runAsync(void *argument)
{
    KIVCS2Task &task = *static_cast<KIVCS2Task *>(argument);
    task.m_asyncError = run(task);
    kiv::finishTask(task);
    kiv::releaseTask(task);
    return nullptr;
}

[[nodiscard]] KIVCS2Status startThread(KIVCS2Task &task)
{
    kiv::retainTask(task); // the thread's reference, until it has called back
    KIVCS2Status status = kivCS2Thread_init(&task.m_thread, &task, runAsync);
    if (KIVCS2_FAILED(status))
        kiv::releaseTask(task);
    else
        status = kivCS2Thread_detach(&task.m_thread);
    if (KIVCS2_FAILED(status))
        taskWord(task.m_state).store(KIVCS2TaskState_Failed);
    return status;
}

[[nodiscard]] KIVCS2Status replaceText(char *&text, const char *source)
{
    char *copy = nullptr;
    KIV_TRY(kivCS2String_createCopy(&copy, source));
    std::free(text);
    text = copy;
    return KIVCS2STATUS_OK;
}

[[nodiscard]] KIVCS2Status copyArguments(KIVCS2Task &task, const char *command, const char *const *arguments)
{
    size_t count = 0;
    while (arguments != nullptr && arguments[count] != nullptr)
        ++count;
    task.m_argv = static_cast<char **>(kivCS2ZeroMalloc((count + 2) * sizeof(char *)));
    if (task.m_argv == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    KIV_TRY(kivCS2String_createCopy(&task.m_argv[0], command));
    for (size_t index = 0; index < count; ++index)
        KIV_TRY(kivCS2String_createCopy(&task.m_argv[index + 1], arguments[index]));
    return KIVCS2STATUS_OK;
}

[[nodiscard]] KIVCS2Status pollForInput(int descriptor)
{
    pollfd entry{descriptor, POLLIN, 0};
    int ready;
    do
        ready = poll(&entry, 1, 0);
    while (ready < 0 && errno == EINTR);
    if (ready < 0)
        return KIVCS2STATUS_READ_ERR;
    if (ready == 0)
        return KIVCS2STATUS_EOF_ERR; // Kept: hosts rely on "no data yet" having the status of the end.
    return ready == 1 ? KIVCS2STATUS_OK : KIVCS2STATUS_UNSUPPORTED_ERR;
}

[[nodiscard]] KIVCS2Status readFrom(KIVCS2Task &task, int32_t &end, bool block, void *buffer, uint32_t length,
                                    uint32_t &bytesRead)
{
    bytesRead = 0;
    if (taskWord(task.m_piped).load() == 0)
        return KIVCS2STATUS_STATE_ERR;
    const int descriptor = taskWord(end).load();
    if (descriptor == kNoDescriptor)
        return KIVCS2STATUS_NOT_PIPED_ERR;
    if (!block)
        KIV_TRY(pollForInput(descriptor));

    ssize_t count;
    do
        count = read(descriptor, buffer, length);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        return KIVCS2STATUS_TASK_READ_ERR;
    bytesRead = static_cast<uint32_t>(count);
    return KIVCS2STATUS_OK;
}

// Spins until the launch has marked the task finished. Without another reference that never happens, because
// the request was not written.
void waitForEnd(KIVCS2Task &task)
{
    while (taskWord(task.m_state).load() == KIVCS2TaskState_RunningAsync &&
           taskWord(task.m_references).load() > 1)
        sched_yield();
}
} // namespace

// ---- Making and releasing ----

KIVCS2Status kivCS2Task_create(KIVCS2Task **_task, const char *_command, const char *const *arguments)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_command);

    auto *task = static_cast<KIVCS2Task *>(kivCS2ZeroMalloc(sizeof(KIVCS2Task)));
    *_task = task;
    if (task == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    task->m_references = 1;
    KIV_TRY(kivCS2String_createCopy(&task->m_command, _command));
    KIV_TRY(copyArguments(*task, _command, arguments));
    task->m_state = KIVCS2TaskState_Created;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Task_free(KIVCS2Task *_task, KIVCS2TaskFreeMode mode)
{
    CHECK_GIVEN(_task);

    if (isRunning(*_task))
    {
        // Kept: hosts rely on a task that was not freed having lost its pipes.
        (void)kivCS2Task_closePipedIO(_task); // cannot fail for a task
        if (mode >= KIVCS2TaskFreeMode_MAX)
            return KIVCS2STATUS_PARAM_ERR;
        if (mode == KIVCS2TaskFreeMode_Refuse)
            return KIVCS2STATUS_TASK_RUNNING_ERR;
        // Before the signal: any thread that finishes the task later finds it finished, and makes no
        // callback.
        KIVCS2TaskState running = KIVCS2TaskState_RunningAsync;
        if (mode == KIVCS2TaskFreeMode_Abort)
            taskWord(_task->m_state).compare_exchange_strong(running, KIVCS2TaskState_FinishedAsync);
        taskWord(_task->m_stop).store(mode);
        kiv::stopIfFreed(*_task);
        waitForEnd(*_task);
    }
    kiv::releaseTask(*_task);
    return KIVCS2STATUS_OK;
}

void kiv::retainTask(KIVCS2Task &task)
{
    taskWord(task.m_references).fetch_add(1);
}

void kiv::releaseTask(KIVCS2Task &task)
{
    if (taskWord(task.m_references).fetch_sub(1) > 1)
        return;
    for (size_t index = 0; task.m_argv != nullptr && task.m_argv[index] != nullptr; ++index)
        std::free(task.m_argv[index]);
    std::free(task.m_argv);
    std::free(task.m_command);
    std::free(task.m_stdOutFile);
    std::free(task.m_stdErrFile);
    closePipes(task);
    task = {};
    std::free(&task);
}

KIVCS2Status kiv::beginAsync(KIVCS2Task &task, KIVCS2TaskFunc callback, void *context)
{
    KIVCS2TaskState created = KIVCS2TaskState_Created;
    if (!taskWord(task.m_state).compare_exchange_strong(created, KIVCS2TaskState_RunningAsync))
        return KIVCS2STATUS_STATE_ERR; // another thread has launched it first
    task.m_callback = callback;
    task.m_context = context;
    return KIVCS2STATUS_OK;
}

void kiv::stopIfFreed(KIVCS2Task &task)
{
    const pid_t pid = taskWord(task.m_pid).load();
    if (pid <= 1)
        return;
    switch (taskWord(task.m_stop).exchange(KIVCS2TaskFreeMode_Refuse))
    {
    case KIVCS2TaskFreeMode_Interrupt:
        (void)signalProcess(pid, SIGINT);
        break;
    case KIVCS2TaskFreeMode_TerminateTree:
        (void)ChildTable::terminateTree(pid, true); // the task itself is signalled in any case
        break;
    case KIVCS2TaskFreeMode_Terminate:
        (void)signalProcess(pid, SIGTERM);
        break;
    case KIVCS2TaskFreeMode_Abort:
        (void)signalProcess(pid, SIGABRT);
        break;
    default: // it has not been freed
        break;
    }
}

void kiv::finishTask(KIVCS2Task &task)
{
    // Read these first: once the state is set, the host may free the task.
    const KIVCS2TaskFunc callback = task.m_callback;
    void *const context = task.m_context;
    KIVCS2TaskState running = KIVCS2TaskState_RunningAsync;
    if (taskWord(task.m_state).compare_exchange_strong(running, KIVCS2TaskState_FinishedAsync) &&
        callback != nullptr)
        callback(&task, context);
}

// ---- Launching ----

KIVCS2Status kivCS2TaskPrv_checkLaunchable(KIVCS2Task *_task)
{
    CHECK_GIVEN(_task);

    // Kept: hosts rely on a bare name being refused; executing it would search for it in PATH.
    return access(_task->m_command, X_OK) == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_NOT_LAUNCHABLE_ERR;
}

KIVCS2Status kivCS2Task_launch(KIVCS2Task *_task)
{
    CHECK_GIVEN(_task);

    KIVCS2TaskState expected = KIVCS2TaskState_Created;
    if (!taskWord(_task->m_state).compare_exchange_strong(expected, KIVCS2TaskState_Running))
        return KIVCS2STATUS_STATE_ERR;
    kiv::retainTask(*_task); // it may be freed meanwhile, without waiting for the launch
    _task->m_launchPiped = taskWord(_task->m_piped).load();
    const KIVCS2Status status = run(*_task);
    taskWord(_task->m_state).store(KIVCS2TaskState_Finished);
    kiv::releaseTask(*_task);
    return status;
}

KIVCS2Status kivCS2Task_launchAsync(KIVCS2Task *_task, KIVCS2TaskFunc callback, void *context)
{
    CHECK_GIVEN(_task);

    if (taskWord(_task->m_state).load() != KIVCS2TaskState_Created)
        return KIVCS2STATUS_STATE_ERR;
    KIV_TRY(kivCS2TaskPrv_checkLaunchable(_task));

    kiv::retainTask(*_task); // until the thread is detached: it may end, and the task be freed, before that
    KIVCS2Status status = kiv::beginAsync(*_task, callback, context);
    if (KIVCS2_SUCCEEDED(status))
    {
        _task->m_launchPiped = taskWord(_task->m_piped).load();
        status = startThread(*_task);
    }
    kiv::releaseTask(*_task);
    return status;
}

KIVCS2Status kivCS2Task_finishedAsync(KIVCS2Task *_task, bool *_finished, KIVCS2Status *_asyncError)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_finished);
    CHECK_GIVEN(_asyncError);

    const KIVCS2TaskState state = taskWord(_task->m_state).load();
    if (state != KIVCS2TaskState_RunningAsync && state != KIVCS2TaskState_FinishedAsync)
        return KIVCS2STATUS_STATE_ERR;
    *_finished = state == KIVCS2TaskState_FinishedAsync;
    *_asyncError = *_finished ? _task->m_asyncError : KIVCS2STATUS_OK;
    return KIVCS2STATUS_OK;
}

// ---- Settings ----

KIVCS2Status kivCS2Task_setASyncCallback(KIVCS2Task *_task, KIVCS2TaskFunc callback, void *context)
{
    CHECK_GIVEN(_task);

    _task->m_callback = callback;
    _task->m_context = context;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Task_setPipedIO(KIVCS2Task *_task, uint32_t flag)
{
    CHECK_GIVEN(_task);

    if (isRunning(*_task))
        return KIVCS2STATUS_TASK_RUNNING_ERR;
    taskWord(_task->m_piped).store(flag);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Task_setStdOutFile(KIVCS2Task *_task, const char *_path)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_path);

    return replaceText(_task->m_stdOutFile, _path);
}

KIVCS2Status kivCS2Task_setStdErrFile(KIVCS2Task *_task, const char *_path)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_path);

    return replaceText(_task->m_stdErrFile, _path);
}

// ---- Pipes ----

KIVCS2Status kivCS2Task_readOutput(KIVCS2Task *_task, bool block, void *_buffer, uint32_t length,
                                   uint32_t *bytesRead)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_buffer);

    uint32_t ignored;
    return readFrom(*_task, _task->m_stdOutPipe[kReadEnd], block, _buffer, length,
                    bytesRead != nullptr ? *bytesRead : ignored);
}

KIVCS2Status kivCS2Task_readError(KIVCS2Task *_task, bool block, void *_buffer, uint32_t length,
                                  uint32_t *bytesRead)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_buffer);

    uint32_t ignored;
    return readFrom(*_task, _task->m_stdErrPipe[kReadEnd], block, _buffer, length,
                    bytesRead != nullptr ? *bytesRead : ignored);
}

KIVCS2Status kivCS2Task_writeInput(KIVCS2Task *_task, const void *_buffer, uint32_t length,
                                   uint32_t *bytesWritten)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_buffer);

    if (bytesWritten != nullptr)
        *bytesWritten = 0;
    if (!isRunning(*_task))
        return KIVCS2STATUS_TASK_NOT_RUNNING_ERR;
    if (taskWord(_task->m_piped).load() == 0)
        return KIVCS2STATUS_STATE_ERR;
    const int descriptor = taskWord(_task->m_stdInPipe[kWriteEnd]).load();
    if (descriptor == kNoDescriptor)
        return KIVCS2STATUS_NOT_PIPED_ERR;

    ssize_t count;
    do
        count = KIVPWriteWithoutSignal(descriptor, _buffer, length);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        return KIVCS2STATUS_TASK_WRITE_ERR;
    if (bytesWritten != nullptr)
        *bytesWritten = static_cast<uint32_t>(count);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Task_closePipedIO(KIVCS2Task *_task)
{
    CHECK_GIVEN(_task);

    if (taskWord(_task->m_piped).exchange(0) != 0)
        closeHostEnds(*_task);
    return KIVCS2STATUS_OK;
}

// ---- Signals ----

KIVCS2Status kivCS2Task_signal(KIVCS2Task *_task, int32_t signalNumber, int32_t *_killResult)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_killResult);

    if (!isRunning(*_task))
        return KIVCS2STATUS_TASK_NOT_RUNNING_ERR;
    *_killResult = kiv::signalProcess(taskWord(_task->m_pid).load(), signalNumber);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Task_interrupt(KIVCS2Task *_task, int32_t *_killResult)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_killResult);

    return kivCS2Task_signal(_task, SIGINT, _killResult);
}

KIVCS2Status kivCS2Task_terminate(KIVCS2Task *_task, int32_t *_killResult)
{
    CHECK_GIVEN(_task);
    CHECK_GIVEN(_killResult);

    return kivCS2Task_signal(_task, SIGTERM, _killResult);
}

KIVCS2Status kivCS2Task_killAllChildProcesses(KIVCS2Task *_task)
{
    CHECK_GIVEN(_task);

    if (!isRunning(*_task))
        return KIVCS2STATUS_TASK_NOT_RUNNING_ERR;
    if (const pid_t pid = taskWord(_task->m_pid).load();
        pid > 1)                                          // a task is never process 1, but its host may be
        (void)kiv::ChildTable::terminateTree(pid, false); // failures are not reported
    return KIVCS2STATUS_OK;
}
