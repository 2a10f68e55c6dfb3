// For commands that run until a signal ends them: waits for those signals.
#ifndef KIV_TOOL_END_SIGNALS_H
#define KIV_TOOL_END_SIGNALS_H

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <unistd.h>

namespace tool
{

/// Blocks the signals that end a command, before the command makes anything that must be cleaned up and
/// before other threads start. A signal that was ignored at the start (nohup, jobs in the background) stays
/// ignored. SIGUSR1 from this process wakes a wait.
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
        ::sigaddset(&m_signals, SIGUSR1);
        ::sigprocmask(SIG_BLOCK, &m_signals, nullptr);
    }

    /// Ends a wait from another thread.
    static void wake()
    {
        ::kill(::getpid(), SIGUSR1);
    }

    /// Waits for a signal that ends the command.
    void wait() const
    {
        int signalNumber = 0;
        do
            ::sigwait(&m_signals, &signalNumber);
        while (signalNumber == SIGUSR1);
    }

    enum class Event
    {
        End,
        Woken,
        TimePassed
    };
    [[nodiscard]] Event waitFor(std::chrono::nanoseconds time) const
    {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
        const timespec limit{seconds.count(), (time - seconds).count()};
        const int signalNumber = ::sigtimedwait(&m_signals, nullptr, &limit);
        if (signalNumber < 0)
            return Event::TimePassed;
        return signalNumber == SIGUSR1 ? Event::Woken : Event::End;
    }

    /// Waits until `end`; true if a signal ended the command before.
    [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point end) const
    {
        using std::chrono::nanoseconds;
        for (;;)
        {
            const nanoseconds left =
                std::max<nanoseconds>(end - std::chrono::steady_clock::now(), nanoseconds{0});
            if (waitFor(left) == Event::End)
                return true;
            if (left.count() == 0) // otherwise early, or another signal was handled
                return false;
        }
    }

private:
    sigset_t m_signals{};
};

} // namespace tool

#endif
