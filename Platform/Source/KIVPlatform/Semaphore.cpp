// Named semaphores whose file another user may have made first.
#include <KIVPlatform/KIVPlatform.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
// The C library keeps the semaphore "/name" in the file with this
// prefix, and maps it without checking its size.
constexpr char kFilePrefix[] = "/dev/shm/sem.";

// A reference to a semaphore's file. While it lives, no other file can get the same inode number.
class SemaphoreFile
{
public:
    explicit SemaphoreFile(const char *systemName) noexcept
    {
        char path[sizeof kFilePrefix + KIVP_SEMAPHORE_NAME_SIZE];
        (void)std::snprintf(path, sizeof path, "%s%s", kFilePrefix, systemName + 1); // without its "/"
        // Opens only the path: whatever kind of file it is, this neither blocks nor triggers anything.
        m_descriptor = open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC);
        m_error = m_descriptor < 0 || fstat(m_descriptor, &m_info) != 0 ? errno : 0;
    }
    ~SemaphoreFile()
    {
        if (m_descriptor >= 0)
            (void)close(m_descriptor);
    }
    SemaphoreFile(const SemaphoreFile &) = delete;
    SemaphoreFile &operator=(const SemaphoreFile &) = delete;

    [[nodiscard]] int error() const noexcept
    {
        return m_error;
    }
    [[nodiscard]] bool isSemaphore() const noexcept
    {
        return S_ISREG(m_info.st_mode) && m_info.st_size == sizeof(sem_t);
    }
    // The owner and every user who may write can truncate the file at any time, which ends a process that has
    // mapped it.
    [[nodiscard]] bool isTrusted() const noexcept
    {
        const uid_t owner = m_info.st_uid;
        return owner == geteuid() || owner == 0 || ((m_info.st_mode & S_IWGRP) != 0 && isOwnGroup());
    }
    [[nodiscard]] bool isSameAs(const SemaphoreFile &other) const noexcept
    {
        return m_error == 0 && other.m_error == 0 && m_info.st_dev == other.m_info.st_dev &&
               m_info.st_ino == other.m_info.st_ino;
    }

private:
    [[nodiscard]] bool isOwnGroup() const noexcept
    {
        if (m_info.st_gid == getegid())
            return true;
        const int count = getgroups(0, nullptr);
        const auto room = static_cast<size_t>(std::max(count, 0));
        const std::unique_ptr<gid_t[]> groups{new (std::nothrow) gid_t[room + 1]};
        const int stored = groups != nullptr ? getgroups(static_cast<int>(room), groups.get()) : 0;
        return std::count(groups.get(), groups.get() + std::max(stored, 0), m_info.st_gid) > 0;
    }

    int m_descriptor = -1;
    int m_error = 0;
    struct stat m_info
    {
    };
};

sem_t *refuse(int error) noexcept
{
    errno = error;
    return SEM_FAILED;
}

// Opens the existing semaphore; returns SEM_FAILED with EAGAIN if it changed meanwhile.
sem_t *openExisting(const char *systemName) noexcept
{
    const SemaphoreFile before{systemName};
    if (before.error() != 0)
        return refuse(before.error() == ENOENT ? EAGAIN : before.error());
    if (!before.isSemaphore())
        return refuse(EINVAL);
    if (!before.isTrusted())
        return refuse(EPERM);

    sem_t *const semaphore = sem_open(systemName, 0);
    if (semaphore == SEM_FAILED)
        return refuse(errno == ENOENT ? EAGAIN : errno);
    // Opening does not change the file. If the name still leads to the checked file, that file was opened.
    const SemaphoreFile after{systemName};
    if (after.isSameAs(before))
        return semaphore;
    (void)sem_close(semaphore);
    return refuse(EAGAIN);
}
} // namespace

sem_t *KIVPSemaphoreOpen(const char *systemName, mode_t mode)
{
    // Give up on a name that another process makes and removes all the time.
    constexpr int kMostTries = 100;
    for (int tried = 0; tried < kMostTries; ++tried)
    {
        sem_t *const made = sem_open(systemName, O_CREAT | O_EXCL, mode, 0);
        if (made != SEM_FAILED || errno != EEXIST)
            return made;
        sem_t *const opened = openExisting(systemName);
        if (opened != SEM_FAILED || errno != EAGAIN)
            return opened;
    }
    return SEM_FAILED;
}
