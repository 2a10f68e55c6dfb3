// System V segments of a test, which end with it however it ends. The program moves into its own IPC
// namespace, which the kernel clears after the last process in it, even if that is killed. If namespaces
// are refused, a guardian process outlives the test and removes the keys of its range.
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
        // An ordinary user may have a namespace together with a user namespace.
        m_isApart = unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
        if (!m_isApart)
            startGuardian([this] { removeSegments(); });
    }

    // One of the keys that only this run uses.
    [[nodiscard]] uint32_t key(uint32_t index) const
    {
        if (index >= kOwnKeys)
            std::abort();
        return m_firstKey + index;
    }

    // Whether only this run has the namespace, with its limits.
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
