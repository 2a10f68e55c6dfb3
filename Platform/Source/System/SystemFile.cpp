// Reads the files in which Linux describes the machine.
#include "System/SystemFile.h"

#include "System/SystemText.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kiv::system
{
namespace
{
constexpr char kScaling[] = "/sys/devices/system/cpu/cpu%u/cpufreq/cpuinfo_max_freq"; // kHz
constexpr unsigned kMostAsked = 1024;

std::atomic<const char *> s_root{nullptr};

int openRegular(const char *path) noexcept
{
    char whole[PATH_MAX];
    const char *root = s_root.load();
    const int length = std::snprintf(whole, sizeof whole, "%s%s", root == nullptr ? "" : root, path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof whole)
        return -1;
    // O_NONBLOCK: opening a FIFO in the file's place would wait for a writer.
    const int file = open(whole, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status
    {
    };
    if (file >= 0 && (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)))
    {
        close(file);
        return -1;
    }
    return file;
}
} // namespace

void setRoot(const char *folder) noexcept
{
    s_root = folder;
}

SystemFile::SystemFile(const char *path) noexcept
{
    const int file = openRegular(path);
    if (file < 0)
        return;
    ssize_t count = 0;
    do
    {
        count = read(file, m_bytes + m_size, sizeof m_bytes - m_size);
        if (count > 0)
            m_size += static_cast<size_t>(count);
    } while ((count > 0 && m_size < sizeof m_bytes) || (count < 0 && errno == EINTR));
    close(file);
    if (count < 0)
        m_size = 0;
    if (m_size == sizeof m_bytes) // more may follow: the last line may be incomplete
    {
        const size_t end = text().rfind('\n');
        m_size = end == std::string_view::npos ? 0 : end + 1;
    }
}

uint64_t processorClock() noexcept
{
    // Processors of one machine may differ, and one that is offline has no file.
    const uint64_t possible = countProcessors(SystemFile{"/sys/devices/system/cpu/possible"}.text());
    const auto asked = static_cast<unsigned>(std::min<uint64_t>(possible, kMostAsked));
    uint64_t highest = 0;
    for (unsigned processor = 0; processor < asked; ++processor)
    {
        char path[sizeof kScaling + 8];
        (void)std::snprintf(path, sizeof path, kScaling, processor);
        const uint64_t kilohertz = parseNumber(SystemFile{path}.text()).value_or(0);
        highest = std::max(highest, std::min<uint64_t>(kilohertz, UINT32_MAX) * 1000);
    }
    return highest > 0 ? highest : parseProcessorClock(SystemFile{"/proc/cpuinfo"}.text());
}
} // namespace kiv::system
