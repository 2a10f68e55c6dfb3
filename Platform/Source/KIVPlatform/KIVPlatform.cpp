// Functions that Linux needs beyond the documented calls.
#include <KIVPlatform/KIVPlatform.h>

#include "System/ProcessTable.h"

#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <string_view>
#include <sys/prctl.h>
#include <unistd.h>

namespace
{
constexpr size_t kLongestSemaphoreName = 251; // NAME_MAX less the prefix "sem." in /dev/shm
constexpr size_t kKeptSemaphoreName = 180;
constexpr size_t kThreadNameSize = 16; // TASK_COMM_LEN

bool isPending(int signal) noexcept
{
    sigset_t pending;
    sigemptyset(&pending);
    return sigpending(&pending) == 0 && sigismember(&pending, signal) == 1;
}

uint64_t fnv1a(std::string_view text) noexcept
{
    uint64_t hash = 0xcbf29ce484222325u;
    for (const char character : text)
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001b3u;
    return hash;
}
} // namespace

ssize_t KIVPWriteWithoutSignal(int fd, const void *buffer, size_t size)
{
    sigset_t pipeSignal;
    sigset_t before;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    const bool wasPending = isPending(SIGPIPE);
    const int maskError = pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    if (maskError != 0)
    {
        errno = maskError;
        return -1;
    }

    const ssize_t written = write(fd, buffer, size);
    const int writeError = errno;
    // A reader that closes during a write also raises SIGPIPE, but then the write returns a partial count.
    const bool mayBeRaised = written < 0 ? writeError == EPIPE : static_cast<size_t>(written) < size;
    if (mayBeRaised && !wasPending)
    {
        // The write sent SIGPIPE to this thread: consume it before the mask lets it through.
        const timespec now{};
        while (sigtimedwait(&pipeSignal, nullptr, &now) < 0 && errno == EINTR)
            ;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = writeError;
    return written;
}

void KIVPSemaphoreName(const char *name, char encoded[KIVP_SEMAPHORE_NAME_SIZE])
{
    std::string_view text{name};
    while (text.starts_with('/'))
        text.remove_prefix(1);

    char *out = encoded;
    *out++ = '/';
    if (text.size() <= kLongestSemaphoreName && text.find('/') == std::string_view::npos)
    {
        out[text.copy(out, text.size())] = '\0';
        return;
    }
    for (const char character : text.substr(0, kKeptSemaphoreName))
        *out++ = character == '/' ? '!' : character;
    const auto room = static_cast<size_t>(encoded + KIVP_SEMAPHORE_NAME_SIZE - out);
    std::snprintf(out, room, "~%016" PRIx64, fnv1a(text));
}

int KIVPSetThreadName(const char *name)
{
    std::string_view text{name};
    if (text.size() >= kThreadNameSize)
    {
        size_t end = kThreadNameSize - 1;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80)
            --end; // inside a UTF-8 character: leave out the whole character
        text = text.substr(0, end);
    }
    char cut[kThreadNameSize] = {};
    text.copy(cut, sizeof cut - 1);
    return pthread_setname_np(pthread_self(), cut);
}

int KIVPCloseDescriptors(unsigned int first, unsigned int last)
{
    return close_range(first, last, 0);
}

int KIVPAdoptOrphans(void)
{
    return prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
}

int KIVPAboveStandardStreams(int fd)
{
    if (fd < 0 || fd > STDERR_FILENO)
        return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    (void)close(fd);
    errno = error;
    return moved;
}

int KIVPPipe(int ends[2])
{
    int made[2];
    if (pipe2(made, O_CLOEXEC) != 0)
        return -1;
    const int writeEnd = KIVPAboveStandardStreams(made[1]);
    const int writeError = errno;
    const int readEnd = KIVPAboveStandardStreams(made[0]);
    if (writeEnd >= 0 && readEnd >= 0)
    {
        ends[0] = readEnd;
        ends[1] = writeEnd;
        return 0;
    }
    const int moveError = writeEnd < 0 ? writeError : errno;
    if (writeEnd >= 0)
        close(writeEnd);
    if (readEnd >= 0)
        close(readEnd);
    errno = moveError;
    return -1;
}

unsigned int KIVPThreadStates(pid_t pid)
{
    return kiv::system::threadStates(pid);
}
