// The table of processes, from /proc.
#include "System/ProcessTable.h"

#include <KIVPlatform/KIVPlatform.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <unistd.h>

static_assert(sizeof(kinfo_proc) == 648);

namespace
{
constexpr uint64_t kNanosecondsPerTick = 10'000'000; // /proc counts in USER_HZ, 100 on every machine
constexpr size_t kStatSize = 1024;                   // a line has 52 fields of at most 20 digits
constexpr int kParentField = 1;                      // counted from the state after the name
constexpr int kStartField = 19;

char stateOf(char letter) noexcept
{
    switch (letter)
    {
    case 'R':
        return SRUN;
    case 'T':
    case 't':
        return SSTOP;
    case 'Z':
    case 'X':
        return SZOMB;
    case 'I':
        return SIDL;
    default:
        return SSLEEP;
    }
}

template <class Number>
bool readNumber(std::string_view text, Number &number) noexcept
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

using StatLine = std::array<char, kStatSize>;

// Reads the stat file of the process or thread `id` in `folder` into `line`; empty if it is gone.
std::string_view readStat(int folder, const char *id, StatLine &line) noexcept
{
    std::array<char, 32> path{};
    const std::string_view name{id};
    if (name.size() + sizeof "/stat" > path.size())
        return {};
    std::memcpy(path.data(), name.data(), name.size());
    std::memcpy(path.data() + name.size(), "/stat", sizeof "/stat");

    const int file = openat(folder, path.data(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return {};
    ssize_t size;
    do
        size = read(file, line.data(), line.size());
    while (size < 0 && errno == EINTR);
    close(file);
    return {line.data(), size > 0 ? static_cast<size_t>(size) : 0};
}

// Returns false if the process is gone or its line is malformed.
bool readProcess(int proc, const char *pid, kinfo_proc &process) noexcept
{
    StatLine line;
    process = {};
    return kiv::system::parseProcess(readStat(proc, pid, line), process);
}

struct CloseFolder
{
    void operator()(DIR *folder) const noexcept
    {
        closedir(folder);
    }
};
} // namespace

// The name may hold any character, so the fields begin after the last parenthesis.
bool kiv::system::parseProcess(std::string_view line, kinfo_proc &process) noexcept
{
    const size_t open = line.find(" (");
    const size_t close = line.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open + 2 ||
        line.size() < close + 3)
        return false;

    extern_proc &about = process.kp_proc;
    if (!readNumber(line.substr(0, open), about.p_pid) || about.p_pid <= 0)
        return false;
    const std::string_view name = line.substr(open + 2, close - open - 2).substr(0, MAXCOMLEN);
    std::copy(name.begin(), name.end(), about.p_comm);
    std::string_view rest = line.substr(close + 2);
    about.p_stat = stateOf(rest.front());
    for (int field = 0;; ++field)
    {
        const std::string_view word = rest.substr(0, rest.find(' '));
        uint64_t ticks = 0;
        if (field == kParentField && !readNumber(word, process.kp_eproc.e_ppid))
            return false;
        if (field == kStartField)
        {
            if (!readNumber(word, ticks))
                return false;
            about.p_starttime = ticks * kNanosecondsPerTick;
            return true;
        }
        if (word.size() >= rest.size())
            return false;
        rest.remove_prefix(word.size() + 1);
    }
}

unsigned kiv::system::parseThreadState(std::string_view line) noexcept
{
    const size_t close = line.rfind(')');
    switch (close != std::string_view::npos && close + 2 < line.size() ? line[close + 2] : 'X')
    {
    case 'T':
    case 't':
        return KIVP_THREADS_STOPPED;
    case 'D':
        return KIVP_THREADS_WAIT;
    case 'Z':
    case 'X':
        return KIVP_THREADS_ENDED;
    default:
        return KIVP_THREADS_RUN;
    }
}

unsigned kiv::system::threadStates(pid_t pid)
{
    std::array<char, 32> path{};
    (void)std::snprintf(path.data(), path.size(), "/proc/%d/task", static_cast<int>(pid));
    const std::unique_ptr<DIR, CloseFolder> folder{opendir(path.data())};
    unsigned states = 0;
    while (const dirent *entry = folder ? readdir(folder.get()) : nullptr)
    {
        StatLine line;
        if (entry->d_name[0] != '.')
            states |= parseThreadState(readStat(dirfd(folder.get()), entry->d_name, line));
    }
    return states;
}

int kiv::system::processTable(void *entries, size_t &size)
{
    const std::unique_ptr<DIR, CloseFolder> folder{opendir("/proc")};
    if (!folder)
        return -1;

    const size_t room = entries != nullptr ? size / sizeof(kinfo_proc) : 0;
    size_t count = 0;
    bool leftOut = false;
    while (const dirent *entry = readdir(folder.get()))
    {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9')
            continue;
        kinfo_proc process;
        if (entries == nullptr)
            ++count;
        else if (count == room)
            leftOut = true;
        else if (readProcess(dirfd(folder.get()), entry->d_name, process))
            static_cast<kinfo_proc *>(entries)[count++] = process;
    }
    size = count * sizeof(kinfo_proc);
    if (!leftOut)
        return 0;
    errno = ENOMEM;
    return -1;
}
