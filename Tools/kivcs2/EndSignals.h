// The signals that end a command, waited for instead of ending it.
#pragma once

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>

namespace tool
{

/// Blocks the signals that end a command, before there is anything that one of them could leave behind. One
/// that the command was started without (nohup, jobs in the background) stays ignored.
class EndSignals
{
public:
    EndSignals()
    {
        ::sigemptyset(&m_signals);
        for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            if (::signal(signalNumber, SIG_DFL) == SIG_IGN)
                ::signal(signalNumber, SIG_IGN);
            else
                ::sigaddset(&m_signals, signalNumber);
        ::sigprocmask(SIG_BLOCK, &m_signals, nullptr);
    }
    void wait() const
    {
        int signalNumber = 0;
        ::sigwait(&m_signals, &signalNumber);
    }
    /// Whether one came before `end`.
    [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point end) const
    {
        using std::chrono::nanoseconds;
        for (;;)
        {
            const nanoseconds left =
                std::max<nanoseconds>(end - std::chrono::steady_clock::now(), nanoseconds{0});
            const timespec rest{left.count() / 1000000000, left.count() % 1000000000};
            if (::sigtimedwait(&m_signals, nullptr, &rest) >= 0)
                return true;
            if (left.count() == 0) // otherwise early, or another signal was handled
                return false;
        }
    }

private:
    sigset_t m_signals{};
};

} // namespace tool
