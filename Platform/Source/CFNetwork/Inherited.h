// Descriptors that Avahi opens without closing them on exec. Programs that the host launches must not get
// them.
#ifndef KIV_PLATFORM_DISCOVERY_INHERITED_H
#define KIV_PLATFORM_DISCOVERY_INHERITED_H

#include <avahi-common/watch.h>

#include <vector>

namespace kiv::discovery
{
// The pipe that wakes Avahi's thread: no call returns its ends.
class WakeUpPipe
{
public:
    // Call this before the pipe is made.
    WakeUpPipe() noexcept;
    // Call this once the pipe has been written to, and before its reader runs: the pipe is then found among
    // those that other threads have opened meanwhile.
    void closeOnExec() const noexcept;

private:
    std::vector<int> m_before; // descriptors that were open, sorted
    bool m_knowsThem = false;
};

// Returns a copy of `poll` that closes each watched descriptor on exec; the copy is for one thread at a time.
[[nodiscard]] AvahiPoll closingOnExec(const AvahiPoll &poll) noexcept;
} // namespace kiv::discovery

#endif
