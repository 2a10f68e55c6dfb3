// For commands that run until a signal ends them: waits for those signals.
#ifndef KIV_TOOL_END_SIGNALS_H
#define KIV_TOOL_END_SIGNALS_H

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <unistd.h>

namespace tool
{

/// Thrown out of a read that waits while a signal ends the command: the command ends silently.
struct Ended
{
};

/// Blocks the signals that end a command, before the command makes anything that must be cleaned up and
/// before other threads start. A signal that was ignored at the start (nohup, jobs in the background) stays
/// ignored. SIGUSR1 from this process wakes a wait.
class EndSignals
{
public:
    EndSignals()
    {
        ::sigemptyset(&m_signals);
        for (const int signalNumber : kEnding)
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
        s_hasEnded = true;
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
        s_hasEnded = signalNumber != SIGUSR1;
        return s_hasEnded ? Event::End : Event::Woken;
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

    /// Waits until `descriptor` can be read. False if a signal that is blocked ends the command before; it
    /// stays pending. Before there is an EndSignals this is true at once, since a signal ends the read.
    [[nodiscard]] static bool awaitReadable(int descriptor);

    /// The same for a write of `size` bytes, at least 1: how many of them can be written without a further
    /// wait, or 0. Behind the signal the reader has a second for each write.
    [[nodiscard]] static size_t awaitWritable(int descriptor, size_t size);

private:
    inline static bool s_hasEnded = false; // a wait has taken the signal
    static constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

    static bool await(int descriptor, short events, const sigset_t &ending);
    static bool areBlocked(sigset_t &ending);

    sigset_t m_signals{};
};

} // namespace tool

#endif
