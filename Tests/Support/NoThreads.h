// Threads of tests: a process that cannot start any, and a gate that opens when a thread ends.
#ifndef KIV_TEST_NO_THREADS_H
#define KIV_TEST_NO_THREADS_H

#include <gtest/gtest.h>

#include <pthread.h>

#include <semaphore>

namespace kiv::test
{
// Makes the system refuse every new thread during its lifetime: no address space has room for the stack.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_getattr_default_np(&m_saved);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, size_t{1} << 48);
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
        pthread_attr_destroy(&huge);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&m_saved);
        pthread_attr_destroy(&m_saved);
    }
    NoThreads(const NoThreads &) = delete;
    NoThreads &operator=(const NoThreads &) = delete;

private:
    pthread_attr_t m_saved{};
};

// Opens a gate after the calling thread has left all code of the library.
inline void openAtThreadExit(std::binary_semaphore &gate)
{
    struct AtExit
    {
        ~AtExit()
        {
            gate->release();
        }
        std::binary_semaphore *gate;
    };
    thread_local AtExit atExit{&gate};
}
} // namespace kiv::test

#endif
