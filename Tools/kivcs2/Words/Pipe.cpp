// kivcs2 pipe: standard input through a ring to standard output, with one thread at each end.
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2Mutex.h>
#include <KIVCoreServices2/KIVCS2PThread.h>
#include <KIVCoreServices2/KIVCS2RingBuffer.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <ctime>
#include <limits>
#include <memory>
#include <optional>
#include <span>

namespace tool
{
namespace
{

constexpr uint64_t kDefaultSize = 1u << 20;
constexpr uint64_t kDefaultChunk = 64u << 10;
constexpr uint64_t kNoChunk = UINT64_MAX; // not given
constexpr uint64_t kLargest = std::numeric_limits<uint32_t>::max();
constexpr long kNanosecondsBetween = 200'000'000; // between two updates of the meter
constexpr uint32_t kLooksBetweenLines = 5;        // if it is written line by line
constexpr size_t kMeterWidth = 20;

struct PipeOptions
{
    uint64_t size = kDefaultSize;
    uint64_t chunk = kNoChunk;
    std::string mode = "reject";
    bool meter = false;
    bool quiet = false;
};

// The amounts so far.
struct Counts
{
    uint64_t in = 0;
    uint64_t out = 0;
    uint64_t lost = 0;    ///< overwritten before they were fetched
    uint32_t waiting = 0; ///< in the ring
    uint32_t most = 0;    ///< the maximum of `waiting`
};

// ---- An interrupt ends the input ----

// Interrupts and a failed output write to this pipe; the reading thread polls it together with the input.
volatile sig_atomic_t theWakeUp = -1;
std::atomic<int> theSignal = 0; // the first signal; two may arrive on two threads at once
static_assert(std::atomic<int>::is_always_lock_free);

void wakeUp()
{
    const char byte = 0;
    if (::write(theWakeUp, &byte, 1) < 0)
        return; // the pipe is full: the thread has been woken before
}

extern "C" void endInput(int signalNumber)
{
    const int error = errno;
    int none = 0;
    if (theSignal.compare_exchange_strong(none, signalNumber))
        wakeUp();
    else
        (void)std::raise(signalNumber); // by its default action the process ends after this returns
    errno = error;
}

// During its lifetime the first interrupt ends the input and the second, of any kind, the process.
class Interrupts
{
public:
    Interrupts()
    {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
            throw Failure::system("pipe", errno);
        m_read = FileDescriptor{ends[0]};
        m_write = FileDescriptor{ends[1]};
        theWakeUp = ends[1];
        struct sigaction action
        {
        };
        action.sa_handler = endInput;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        for (size_t index = 0; index < kSignals.size(); ++index)
        {
            ::sigaction(kSignals[index], nullptr, &m_before[index]);
            if (m_before[index].sa_handler != SIG_IGN) // nohup, and jobs in the background
                ::sigaction(kSignals[index], &action, nullptr);
        }
    }
    ~Interrupts()
    {
        for (size_t index = 0; index < kSignals.size(); ++index)
            ::sigaction(kSignals[index], &m_before[index], nullptr);
    }
    Interrupts(const Interrupts &) = delete;
    Interrupts &operator=(const Interrupts &) = delete;

    [[nodiscard]] int descriptor() const
    {
        return m_read.get();
    }

private:
    static constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};
    FileDescriptor m_read;
    FileDescriptor m_write;
    std::array<struct sigaction, kSignals.size()> m_before{};
};

// ---- The ring between the threads ----

// A ring under a mutex, with waiting. The condition uses the system's mutex, the first member of the mutex
// record.
class SharedRing
{
public:
    SharedRing(uint32_t size, KIVCS2RingBufferOpMode mode)
    {
        check(kivCS2Mutex_init(&m_mutex, KIVCS2MutexOptions_None), "mutex");
        const KIVCS2Status status = kivCS2RingBuffer_init(&m_ring, size);
        if (KIVCS2_FAILED(status))
            (void)kivCS2Mutex_free(&m_mutex); // the failure below is the one that matters
        check(status, "a ring of " + count(size, "byte"));
        (void)kivCS2RingBuffer_setOperationMode(&m_ring, mode); // not null: cannot fail
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&m_moved, nullptr);
        pthread_cond_init(&m_ended, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~SharedRing()
    {
        pthread_cond_destroy(&m_ended);
        pthread_cond_destroy(&m_moved);
        (void)kivCS2RingBuffer_dispose(&m_ring); // not null: cannot fail
        (void)kivCS2Mutex_free(&m_mutex);        // not null: cannot fail
    }
    SharedRing(const SharedRing &) = delete;
    SharedRing &operator=(const SharedRing &) = delete;

    /// Stores all of `bytes`; in reject mode waits for room, and gives up only if the reader has ended.
    void store(std::span<const uint8_t> bytes)
    {
        const Lock lock{*this};
        const auto size = static_cast<uint32_t>(bytes.size());
        m_counts.in += size;
        KIVCS2Status status = KIVCS2STATUS_OVERFLOW_ERR;
        uint32_t room = 0;
        while (!m_outputEnded)
        {
            (void)kivCS2RingBuffer_getFreeBytesAvailable(&m_ring, &room); // not null: cannot fail
            status = kivCS2RingBuffer_store(&m_ring, bytes.data(), size);
            if (status != KIVCS2STATUS_OVERFLOW_ERR)
                break;
            pthread_cond_wait(&m_moved, &m_mutex.m_mutex);
        }
        if (m_outputEnded)
            return;
        check(status, "ring");
        m_counts.lost += size > room ? size - room : 0;
        m_counts.most = std::max(m_counts.most, waiting());
        pthread_cond_signal(&m_moved);
    }

    /// Fetches the oldest bytes, as many as fit `room`; waits for some. Empty after the end of the input.
    size_t fetch(std::span<uint8_t> room)
    {
        const Lock lock{*this};
        while (waiting() == 0 && !m_inputEnded)
            pthread_cond_wait(&m_moved, &m_mutex.m_mutex);
        const uint32_t size = std::min(waiting(), static_cast<uint32_t>(room.size()));
        check(kivCS2RingBuffer_fetch(&m_ring, room.data(), size), "ring");
        pthread_cond_signal(&m_moved);
        return size;
    }

    void countOut(size_t bytes)
    {
        const Lock lock{*this};
        m_counts.out += bytes;
    }

    void endInput()
    {
        const Lock lock{*this};
        m_inputEnded = true;
        pthread_cond_signal(&m_moved);
        pthread_cond_signal(&m_ended);
    }

    void endOutput()
    {
        const Lock lock{*this};
        m_outputEnded = true;
        pthread_cond_signal(&m_moved);
        pthread_cond_signal(&m_ended);
    }

    /// Waits until both ends have ended, at most until the next update of the meter.
    bool waitForEnd()
    {
        timespec until{};
        ::clock_gettime(CLOCK_MONOTONIC, &until);
        until.tv_nsec += kNanosecondsBetween;
        until.tv_sec += until.tv_nsec / 1'000'000'000;
        until.tv_nsec %= 1'000'000'000;
        const Lock lock{*this};
        int error = 0;
        while (!(m_inputEnded && m_outputEnded) && error == 0)
            error = pthread_cond_timedwait(&m_ended, &m_mutex.m_mutex, &until);
        return m_inputEnded && m_outputEnded;
    }

    Counts counts()
    {
        const Lock lock{*this};
        Counts counts = m_counts;
        counts.waiting = waiting();
        return counts;
    }

    [[nodiscard]] bool lostData()
    {
        const Lock lock{*this};
        return m_ring.dataLost != 0;
    }

private:
    class Lock
    {
    public:
        explicit Lock(SharedRing &ring) : m_ring(ring)
        {
            check(kivCS2Mutex_lock(&m_ring.m_mutex), "mutex");
        }
        ~Lock()
        {
            (void)kivCS2Mutex_unlock(&m_ring.m_mutex); // held: cannot fail
        }
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

    private:
        SharedRing &m_ring;
    };

    // Call it with the lock held.
    [[nodiscard]] uint32_t waiting() const
    {
        uint32_t bytes = 0;
        (void)kivCS2RingBuffer_getFetchBytesAvailable(&m_ring, &bytes); // not null: cannot fail
        return bytes;
    }

    KIVCS2Mutex m_mutex{};
    pthread_cond_t m_moved{}; ///< bytes were stored or fetched, or an end has ended
    pthread_cond_t m_ended{};
    KIVCS2RingBuffer m_ring{};
    Counts m_counts;
    bool m_inputEnded = false;
    bool m_outputEnded = false;
};

// ---- The threads ----

struct Pipe
{
    Pipe(uint32_t size, KIVCS2RingBufferOpMode mode, uint32_t chunkSize) : ring(size, mode), chunk(chunkSize)
    {
    }

    SharedRing ring;
    uint32_t chunk;
    Interrupts interrupts;
    std::exception_ptr inputFailure;  ///< the reading thread's, until it is joined
    std::exception_ptr outputFailure; ///< the writing thread's
    bool readerGone = false;          ///< the writing thread's
};

// Waits until `descriptor` is ready, or for a wake-up, which stays in its pipe: it is permanent.
[[nodiscard]] bool waitFor(int descriptor, short events, int wakeUpDescriptor)
{
    std::array<pollfd, 2> waits = {{{descriptor, events, 0}, {wakeUpDescriptor, POLLIN, 0}}};
    while (::poll(waits.data(), waits.size(), -1) < 0 && errno == EINTR)
    {
    }
    return waits[1].revents == 0;
}

void readInput(Pipe &pipe)
{
    const auto block = std::make_unique<uint8_t[]>(pipe.chunk);
    while (waitFor(STDIN_FILENO, POLLIN, pipe.interrupts.descriptor()))
    {
        const ssize_t size = ::read(STDIN_FILENO, block.get(), pipe.chunk);
        if (size < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (size < 0)
            throw Failure::system("standard input", errno);
        if (size == 0)
            return;
        pipe.ring.store({block.get(), static_cast<size_t>(size)});
    }
}

void writeOutput(Pipe &pipe)
{
    const auto block = std::make_unique<uint8_t[]>(pipe.chunk);
    while (const size_t size = pipe.ring.fetch({block.get(), pipe.chunk}))
    {
        for (size_t written = 0; written < size;)
        {
            const ssize_t part = ::write(STDOUT_FILENO, block.get() + written, size - written);
            if (part < 0 && errno == EAGAIN)
                (void)waitFor(STDOUT_FILENO, POLLOUT, -1);
            else if (part < 0 && errno == EPIPE)
                throw ReaderGone{};
            else if (part < 0 && errno != EINTR)
                throw Failure::system("standard output", errno);
            if (part <= 0)
                continue;
            written += static_cast<size_t>(part);
            pipe.ring.countOut(static_cast<size_t>(part));
        }
    }
}

void *runInput(void *argument)
{
    Pipe &pipe = *static_cast<Pipe *>(argument);
    (void)kivCS2Thread_setCurrentThreadName("input"); // not null: cannot fail
    try
    {
        readInput(pipe);
    }
    catch (...)
    {
        pipe.inputFailure = std::current_exception(); // the bytes read before are still written
    }
    pipe.ring.endInput();
    return nullptr;
}

void *runOutput(void *argument)
{
    Pipe &pipe = *static_cast<Pipe *>(argument);
    (void)kivCS2Thread_setCurrentThreadName("output"); // not null: cannot fail
    try
    {
        writeOutput(pipe);
    }
    catch (const ReaderGone &)
    {
        pipe.readerGone = true;
    }
    catch (...)
    {
        pipe.outputFailure = std::current_exception();
    }
    pipe.ring.endOutput();
    wakeUp(); // no more input is needed
    return nullptr;
}

// A thread that its destructor joins.
class Thread
{
public:
    Thread(Pipe &pipe, KIVCS2ThreadFunc function)
    {
        check(kivCS2Thread_init(&m_thread, &pipe, function), "thread");
    }
    ~Thread()
    {
        (void)kivCS2Thread_join(&m_thread); // started: cannot fail
        (void)kivCS2Thread_free(&m_thread);
    }
    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;

private:
    KIVCS2Thread m_thread{};
};

// ---- Reports ----

std::string megabytes(uint64_t bytes)
{
    return print("%.1f MB", static_cast<double>(bytes) / 1e6);
}

// One line on standard error: redrawn in place on a terminal, otherwise repeated at intervals and at the end.
class Meter
{
public:
    Meter(bool asked, uint64_t capacity)
        : m_capacity(capacity), m_terminal(isScreen(STDERR_FILENO)),
          m_shown(asked || ::isatty(STDERR_FILENO) != 0)
    {
    }

    void at(const Counts &counts, bool last)
    {
        const bool due = m_terminal || last || m_looks++ % kLooksBetweenLines == 0;
        if (!m_shown || !due)
            return;
        const double part = static_cast<double>(counts.waiting) / static_cast<double>(m_capacity);
        const auto filled = static_cast<size_t>(std::lround(part * static_cast<double>(kMeterWidth)));
        const std::string line = "[" + std::string(filled, '#') + std::string(kMeterWidth - filled, '.') +
                                 print("] %3.0f %%", 100 * part) + "  in " + megabytes(counts.in) + "  out " +
                                 megabytes(counts.out) + "  lost " + megabytes(counts.lost);
        try
        {
            errors().write(m_terminal ? "\r\x1b[K" + line : line + "\n");
            if (m_terminal && last)
                errors().write("\r\x1b[K"); // the report replaces it
            errors().flush();
        }
        catch (...)
        {
            m_shown = false; // the reader of the line has gone; the bytes still flow
        }
    }

private:
    uint64_t m_capacity;
    bool m_terminal;
    bool m_shown;
    uint32_t m_looks = 0;
};

void reportCounts(const PipeOptions &options, const Counts &counts, bool readerGone, bool json)
{
    const uint64_t unsent = counts.in - counts.out - counts.lost;
    Facts facts;
    facts.add("In", count(counts.in, "byte"));
    facts.add("Out", count(counts.out, "byte"));
    facts.add("Lost", count(counts.lost, "byte") + (counts.lost > 0 ? ", overwritten" : ""));
    if (unsent > 0)
        facts.add("Unsent", count(unsent, "byte") + (readerGone ? ", the reader has gone" : ""));
    facts.add("Ring", count(options.size, "byte") + ", at most " +
                          print("%.0f", 100.0 * counts.most / static_cast<double>(options.size)) + " % full");
    report(json,
           {{"mode", options.mode},
            {"capacity", options.size},
            {"chunk", options.chunk},
            {"bytesIn", counts.in},
            {"bytesOut", counts.out},
            {"bytesLost", counts.lost},
            {"bytesUnsent", unsent},
            {"mostWaiting", counts.most},
            {"readerGone", readerGone}},
           facts);
}

void checkSizes(PipeOptions &options)
{
    if (options.size < 2 || options.size > kLargest)
        throw Failure(kExitUsage, "--size is 2 to " + std::to_string(kLargest) + " bytes");
    if (options.chunk == kNoChunk)
        options.chunk = std::min(kDefaultChunk, options.size);
    if (options.chunk < 1 || options.chunk > options.size)
        throw Failure(kExitUsage, "--chunk is 1 byte to the " + count(options.size, "byte") + " of the ring");
}

// Called before any input is read: otherwise bytes for an output that cannot be written would be lost.
void checkOutput()
{
    const int flags = ::fcntl(STDOUT_FILENO, F_GETFL);
    if (flags < 0 || (flags & O_PATH) != 0 || (flags & O_ACCMODE) == O_RDONLY)
        throw Failure::system("standard output", EBADF);
}

int runPipe(const PipeOptions &options, bool json)
{
    checkOutput();
    const Input source{"-"}; // refuses to copy a file to itself
    Pipe pipe{static_cast<uint32_t>(options.size),
              options.mode == "reject" ? uint32_t{KIVCS2RingBufferOpMode_Reject}
                                       : uint32_t{KIVCS2RingBufferOpMode_Overwrite},
              static_cast<uint32_t>(options.chunk)};
    Meter meter{options.meter, options.size};
    {
        std::optional<Thread> input{std::in_place, pipe, runInput};
        std::optional<Thread> output;
        try
        {
            output.emplace(pipe, runOutput);
        }
        catch (...)
        {
            pipe.ring.endOutput();
            wakeUp();
            throw;
        }
        while (!pipe.ring.waitForEnd())
            if (!options.quiet)
                meter.at(pipe.ring.counts(), false);
    }
    const Counts counts = pipe.ring.counts();
    if (!options.quiet)
    {
        meter.at(counts, true);
        reportCounts(options, counts, pipe.readerGone, json);
    }
    for (const std::exception_ptr &failure : {pipe.outputFailure, pipe.inputFailure})
        if (failure)
            std::rethrow_exception(failure);
    return pipe.ring.lostData() ? kExitNo : kExitYes;
}

// After an interrupt, the bytes read have been written; the caller still gets the signal.
int runPipeAndDie(const PipeOptions &options, bool json)
{
    const int code = runPipe(options, json);
    if (theSignal != 0)
    {
        ::signal(theSignal, SIG_DFL);
        ::raise(theSignal);
    }
    return code;
}

} // namespace

void addPipeCommand(Word &root, Context &context)
{
    const auto options = std::make_shared<PipeOptions>();
    Word &word =
        root.word("pipe", "Pass standard input to standard output through a ring").group(kGroupTexts);
    word.about("Modes: reject (waits for room, loses no byte), overwrite (never waits; the oldest bytes\n"
               "go, and the exit code is 1). A report of the bytes in, out and lost goes to standard\n"
               "error. Sizes may have a suffix: 64k, 4M.");
    word.bytes("--size", options->size, "Bytes of the ring (1M)");
    word.bytes("--chunk", options->chunk, "Most bytes read or written at once (64k)");
    word.option("--mode", options->mode, "What happens when the ring is full (reject)")
        .among({"reject", "overwrite"});
    word.flag("--meter", options->meter, "Show the fill meter even if standard error is not a terminal");
    word.flag("--quiet", options->quiet, "Neither meter nor report");
    word.example("head -c 1000000 /dev/zero | kivcs2 pipe --size 4M | wc -c");
    word.runs(
        [&context, options]
        {
            giveStandardOutputToData();
            checkSizes(*options);
            return runPipeAndDie(*options, context.json);
        });
}

} // namespace tool
