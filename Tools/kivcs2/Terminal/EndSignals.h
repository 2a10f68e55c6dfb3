// Commands that run until they are told to end: the signals that would end them are waited for.
#ifndef KIV_TOOL_END_SIGNALS_H
#define KIV_TOOL_END_SIGNALS_H

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <unistd.h>

namespace tool
{

/// Blocks the signals that end a command, before there is anything that one of them could leave behind and
/// before other threads start. One that the command was started without (nohup, jobs in the background) stays
/// ignored. SIGUSR1 of the own process wakes a wait.
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

    /// Waits until the command is to end.
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

    /// Whether the command is told to end before `end`.
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
