// Commands that run until they are told to end.
#pragma once

#include <chrono>
#include <csignal>
#include <unistd.h>

namespace tool
{

/// Blocks the signals that end a command, before there is anything that one of them could leave behind and
/// before other threads start. SIGUSR1 of the own process wakes a wait.
class EndSignals
{
public:
    EndSignals()
    {
        ::sigemptyset(&m_signals);
        for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            if (::signal(signalNumber, SIG_DFL) == SIG_IGN)
                ::signal(signalNumber, SIG_IGN); // nohup, and jobs in the background
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

private:
    sigset_t m_signals{};
};

} // namespace tool
