// Threads, and semaphore threads: a worker that runs a callback once for every signal.
#include "KIVCS2PThread.h"

#include "Private/Support/Check.h"

#include <KIVPlatform/KIVPlatform.h>

#include <atomic>
#include <cerrno>

namespace
{
// A worker's data on its own stack. A callback may give up the worker's record (free it, or detach the
// worker, after which the owner frees it); from then on the worker must not read it.
struct Worker
{
    KIVCS2SemaphoreThread *record; // null once freed by a callback
    void *context;
    KIVCS2SemaphoreThreadFunc endFunc; // null once called
    bool detached;                     // a callback has cancelled: the record belongs only to its owner
};

// The worker of the calling thread, if it is one.
constinit thread_local Worker *t_worker = nullptr;

// Access to a plain word of the record that another thread reads or writes.
std::atomic_ref<uint32_t> shared(uint32_t &word)
{
    return std::atomic_ref<uint32_t>{word};
}

[[nodiscard]] Worker *ownWorkerOf(const KIVCS2SemaphoreThread *record)
{
    return t_worker != nullptr && t_worker->record == record ? t_worker : nullptr;
}

void callEnd(Worker &worker)
{
    const KIVCS2SemaphoreThreadFunc endFunc = worker.endFunc;
    worker.endFunc = nullptr; // before the call: the callback may itself free the record
    if (endFunc != nullptr)
        endFunc(worker.context);
}

[[nodiscard]] bool mayGoOn(const Worker &worker)
{
    return worker.record != nullptr && !worker.detached;
}

// Waits for one signal and runs it; false if the worker has to end.
[[nodiscard]] bool runOnce(const Worker &worker)
{
    KIVCS2SemaphoreThread *record = worker.record;
    (void)kivCS2Semaphore_wait(&record->m_semaphore);
    shared(record->m_busy).store(1);
    // Kept: hosts rely on a cancelled worker staying busy.
    if (shared(record->m_cancel).load() != 0)
        return false;
    if (record->m_signalFunc != nullptr)
        record->m_signalFunc(record->m_context);
    if (!mayGoOn(worker))
        return false;
    shared(record->m_busy).store(0);
    return true;
}
} // namespace

// ---- Threads ----

KIVCS2Status kivCS2Thread_init(KIVCS2Thread *pThread, void *argument, KIVCS2ThreadFunc startRoutine)
{
    KIV_CHECK(pThread);
    KIV_CHECK(startRoutine);

    *pThread = {};
    // The system stores the handle before the thread runs, so the thread may use its own record.
    if (pthread_create(&pThread->m_thread, nullptr, startRoutine, argument) == 0)
        return KIVCS2STATUS_OK;
    *pThread = {};
    return KIVCS2STATUS_THREAD_ERR;
}

KIVCS2Status kivCS2Thread_join(KIVCS2Thread *pThread)
{
    KIV_CHECK(pThread);
    KIV_CHECK(pThread->m_thread);

    if ((pThread->m_flags & KIVCS2ThreadFlags_Joined) != 0)
        return KIVCS2STATUS_OK;
    // A detached thread may have ended, and its handle may belong to another thread, so the system is not
    // called. The system need not notice either that a thread joins itself.
    if ((pThread->m_flags & KIVCS2ThreadFlags_Detached) == 0 &&
        (pthread_equal(pThread->m_thread, pthread_self()) != 0 ||
         pthread_join(pThread->m_thread, nullptr) == EDEADLK))
        return KIVCS2STATUS_PARAM_ERR;
    // Kept: hosts rely on a thread that cannot be joined counting as joined.
    pThread->m_flags |= KIVCS2ThreadFlags_Joined;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Thread_detach(KIVCS2Thread *pThread)
{
    KIV_CHECK(pThread);
    KIV_CHECK(pThread->m_thread);

    if ((pThread->m_flags & KIVCS2ThreadFlags_Detached) != 0)
        return KIVCS2STATUS_OK;
    // The handle of a joined thread may belong to another thread, which must stay joinable.
    if ((pThread->m_flags & KIVCS2ThreadFlags_Joined) == 0)
        (void)pthread_detach(pThread->m_thread);
    pThread->m_flags |= KIVCS2ThreadFlags_Detached;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Thread_free(KIVCS2Thread *pThread)
{
    KIV_CHECK(pThread);
    KIV_CHECK(pThread->m_thread);

    if ((pThread->m_flags & (KIVCS2ThreadFlags_Joined | KIVCS2ThreadFlags_Detached)) == 0)
        (void)kivCS2Thread_detach(pThread);
    *pThread = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Thread_setCurrentThreadName(const char *name)
{
    KIV_CHECK(name);

    (void)KIVPSetThreadName(name); // A thread without a name works as well.
    return KIVCS2STATUS_OK;
}

// ---- Semaphore threads ----

KIVCS2Status kivCS2SemaphoreThread_init(KIVCS2SemaphoreThread *pThread, void *context,
                                        KIVCS2SemaphoreThreadFunc startFunc,
                                        KIVCS2SemaphoreThreadFunc endFunc,
                                        KIVCS2SemaphoreThreadFunc signalFunc)
{
    KIV_CHECK(pThread);

    *pThread = {};
    pThread->m_context = context;
    pThread->m_startFunc = startFunc;
    pThread->m_endFunc = endFunc;
    pThread->m_signalFunc = signalFunc;
    KIV_TRY(kivCS2Semaphore_init(&pThread->m_semaphore, nullptr));

    const KIVCS2Status status = kivCS2Thread_init(&pThread->m_thread, pThread, kivCS2SemaphoreThread_main);
    if (KIVCS2_FAILED(status))
        (void)kivCS2Semaphore_free(&pThread->m_semaphore); // `free` would refuse a record without a thread
    return status;
}

void *kivCS2SemaphoreThread_main(void *argument)
{
    KIV_ASSERT(argument);

    auto *record = static_cast<KIVCS2SemaphoreThread *>(argument);
    Worker worker{record, record->m_context, record->m_endFunc, false};
    t_worker = &worker;

    if (record->m_startFunc != nullptr)
        record->m_startFunc(record->m_context);
    while (mayGoOn(worker) && runOnce(worker))
    {
    }
    callEnd(worker);

    t_worker = nullptr;
    return nullptr;
}

KIVCS2Status kivCS2SemaphoreThread_signal(KIVCS2SemaphoreThread *pThread)
{
    KIV_CHECK(pThread);
    KIV_CHECK_AS(pThread->m_thread.m_thread, "pThread->m_thread", KIVCS2STATUS_PARAM_ERR);

    return kivCS2Semaphore_signal(&pThread->m_semaphore);
}

KIVCS2Status kivCS2SemaphoreThread_drain(KIVCS2SemaphoreThread *pThread)
{
    KIV_CHECK(pThread);
    KIV_CHECK_AS(pThread->m_thread.m_thread, "pThread->m_thread", KIVCS2STATUS_PARAM_ERR);

    return kivCS2Semaphore_drain(&pThread->m_semaphore);
}

KIVCS2Status kivCS2SemaphoreThread_drainAndBlock(KIVCS2SemaphoreThread *pThread)
{
    KIV_CHECK(pThread);
    KIV_CHECK_AS(pThread->m_thread.m_thread, "pThread->m_thread", KIVCS2STATUS_PARAM_ERR);

    KIV_TRY(kivCS2SemaphoreThread_drain(pThread));
    while (shared(pThread->m_busy).load() != 0)
    {
    }
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SemaphoreThread_cancel(KIVCS2SemaphoreThread *pThread)
{
    KIV_CHECK(pThread);
    KIV_CHECK_AS(pThread->m_thread.m_thread, "pThread->m_thread", KIVCS2STATUS_PARAM_ERR);

    if (shared(pThread->m_cancel).exchange(1) != 0)
        return KIVCS2STATUS_OK;
    KIV_TRY(kivCS2Semaphore_signal(&pThread->m_semaphore));
    if (KIVCS2_SUCCEEDED(kivCS2Thread_join(&pThread->m_thread)))
        return KIVCS2STATUS_OK;

    // Only the worker itself cannot join: it is being ended by its own callback.
    const KIVCS2Status status = kivCS2Thread_detach(&pThread->m_thread);
    pThread->m_thread.m_flags = 0; // Kept: hosts rely on the cleared word.
    pThread->m_detached = 1;
    shared(pThread->m_busy).store(1); // set for every cancelled worker; this one will not set it
    if (Worker *worker = ownWorkerOf(pThread); worker != nullptr)
        worker->detached = true;
    return status;
}

KIVCS2Status kivCS2SemaphoreThread_free(KIVCS2SemaphoreThread *pThread)
{
    KIV_CHECK(pThread);
    KIV_CHECK_AS(pThread->m_thread.m_thread, "pThread->m_thread", KIVCS2STATUS_PARAM_ERR);

    KIV_TRY(kivCS2SemaphoreThread_cancel(pThread));
    // Called by a callback: the end callback comes now, so that the host may release the context.
    if (Worker *worker = ownWorkerOf(pThread); worker != nullptr)
    {
        callEnd(*worker);
        if (worker->record == nullptr) // the end callback has freed it
            return KIVCS2STATUS_OK;
        worker->record = nullptr;
    }
    if (pThread->m_detached == 0) // a thread must not be detached twice
        KIV_TRY(kivCS2Thread_free(&pThread->m_thread));
    KIV_TRY(kivCS2Semaphore_free(&pThread->m_semaphore));
    *pThread = {};
    return KIVCS2STATUS_OK;
}
