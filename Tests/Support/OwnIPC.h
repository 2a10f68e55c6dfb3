// System V segments of a test, gone with it however it ends: the program moves into an IPC namespace of
// its own, which the kernel clears when the last process in it is gone, after a kill as well. Where
// namespaces are refused, a guardian process outlives the test and removes the keys of its range.
#ifndef KIV_TEST_OWN_IPC_H
#define KIV_TEST_OWN_IPC_H

#include "Guardian.h"

#include <cstdint>
#include <cstdlib>
#include <sched.h>
#include <sys/shm.h>
#include <unistd.h>

namespace kiv::test
{
constexpr uint32_t kOwnKeys = 64;

class OwnIPC
{
public:
    OwnIPC() : m_firstKey(0x4B000000u + static_cast<uint32_t>(getpid()) % 0x40000u * kOwnKeys)
    {
        // A plain user may have a namespace together with one of users.
        m_isApart = unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
        if (!m_isApart)
            startGuardian([this] { removeSegments(); });
    }

    // One of the keys that are this run's alone.
    [[nodiscard]] uint32_t key(uint32_t index) const
    {
        if (index >= kOwnKeys)
            std::abort();
        return m_firstKey + index;
    }

    // Whether the namespace, with its limits, is this run's alone.
    [[nodiscard]] bool isApart() const
    {
        return m_isApart;
    }

private:
    void removeSegments() const
    {
        for (uint32_t index = 0; index < kOwnKeys; ++index)
            if (const int id = shmget(static_cast<key_t>(key(index)), 0, 0); id >= 0)
                (void)shmctl(id, IPC_RMID, nullptr);
    }

    uint32_t m_firstKey;
    bool m_isApart = false;
};
} // namespace kiv::test

#endif
