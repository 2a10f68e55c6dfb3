// Shared memory: statuses, and sharing between processes. No segment is left on the machine (see OwnIPC.h).
#include <KIVCoreServices2/KIVCS2Mutex.h>
#include <KIVCoreServices2/KIVCS2SharedMemory.h>

#include "OwnIPC.h"
#include "OwnProcesses.h"
#include "RequiredPointers.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <vector>

namespace
{
using namespace kiv::test;

std::function<int(key_t, size_t, int)> g_shmget; // replaces the system's while it is set
int g_attachError = 0;                           // that every attachment fails with, if not 0
} // namespace

// The program's own definitions replace the system's if they are visible.
#define KIV_SEEN __attribute__((visibility("default")))
KIV_SEEN int shmget(key_t key, size_t size, int flags) noexcept
{
    return g_shmget ? g_shmget(key, size, flags) : static_cast<int>(syscall(SYS_shmget, key, size, flags));
}

KIV_SEEN void *shmat(int id, const void *address, int flags) noexcept
{
    if (g_attachError != 0)
    {
        errno = g_attachError;
        return reinterpret_cast<void *>(-1);
    }
    return reinterpret_cast<void *>(syscall(SYS_shmat, id, address, flags));
}

namespace
{
static_assert(offsetof(KIVCS2SharedMemory, m_key) == 0 && offsetof(KIVCS2SharedMemory, m_id) == 4 &&
              offsetof(KIVCS2SharedMemory, m_address) == 8 && offsetof(KIVCS2SharedMemory, m_error) == 16 &&
              sizeof(KIVCS2SharedMemory) == 24);

const OwnIPC theIPC;

constexpr bool kCreate = true;
constexpr bool kAttach = false;

struct OwnSegment
{
    OwnSegment(uint32_t key, uint32_t size, bool create)
    {
        std::memset(&record, 0xAB, sizeof record); // contents that must not matter
        status = kivCS2SharedMemory_init(&record, key, size, create);
    }
    ~OwnSegment()
    {
        EXPECT_EQ(kivCS2SharedMemory_free(&record), KIVCS2STATUS_OK);
        EXPECT_EQ(record.m_address, nullptr);
        EXPECT_EQ(record.m_key, 0u);
        EXPECT_EQ(kivCS2SharedMemory_free(&record), KIVCS2STATUS_OK); // twice is harmless
    }
    OwnSegment(const OwnSegment &) = delete;
    OwnSegment &operator=(const OwnSegment &) = delete;

    [[nodiscard]] uint8_t *bytes() const
    {
        return static_cast<uint8_t *>(record.m_address);
    }

    KIVCS2SharedMemory record;
    KIVCS2Status status;
};

// Returns the number of attachments of a key's segment, or -1 if there is none.
int attachedTo(uint32_t key)
{
    const int id = shmget(static_cast<key_t>(key), 0, 0);
    shmid_ds segment{};
    return id >= 0 && shmctl(id, IPC_STAT, &segment) == 0 ? static_cast<int>(segment.shm_nattch) : -1;
}

// A second process, forked before there is a segment to inherit. It does `work` after go(); the work calls
// ready(), and stay() if the test is to end it.
class OtherProcess
{
public:
    explicit OtherProcess(const std::function<bool(OtherProcess &)> &work)
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_ends), 0);
        m_pid = fork();
        close(std::exchange(m_ends[m_pid == 0 ? 0 : 1], -1)); // so that it ends with the test
        if (m_pid != 0)
            return;
        alarm(60); // bounds every wait
        _exit(receive(m_ends[1]) && work(*this) ? 0 : 1);
    }
    ~OtherProcess()
    {
        if (m_pid > 1)
            (void)end();
    }
    OtherProcess(const OtherProcess &) = delete;
    OtherProcess &operator=(const OtherProcess &) = delete;

    // Called by the test: starts the work and waits until it is ready or has ended.
    void go() const
    {
        EXPECT_EQ(write(m_ends[0], "g", 1), 1);
        (void)receive(m_ends[0]);
    }
    [[nodiscard]] bool sleeps() const
    {
        const auto isAsleep = [this](const Process &each) { return each.pid == m_pid && each.state == 'S'; };
        return holdsWithin(10000, [&] { return std::ranges::any_of(processes(), isAsleep); });
    }
    // Ends the process. Returns the status of waitpid.
    [[nodiscard]] int end()
    {
        int ended = -1;
        close(m_ends[0]);
        EXPECT_GT(waitpid(std::exchange(m_pid, -1), &ended, 0), 1);
        return ended;
    }

    // Called by the work.
    void ready() const
    {
        (void)!write(m_ends[1], "r", 1);
    }
    void stay() const
    {
        (void)receive(m_ends[1]);
    }

private:
    static bool receive(int from)
    {
        char byte = 0;
        return read(from, &byte, 1) == 1;
    }

    int m_ends[2] = {-1, -1}; // the test's, the other's
    pid_t m_pid = -1;
};

TEST(SharedMemory, AttachingNeedsASegmentThatIsLargeEnough)
{
    const uint32_t key = theIPC.key(0);
    const auto expectRefused =
        [key](const char *what, uint32_t size, bool create, KIVCS2Status status, int error)
    {
        SCOPED_TRACE(what);
        const OwnSegment segment{key, size, create};
        EXPECT_EQ(segment.status, status);
        EXPECT_EQ(segment.record.m_error, error);
        EXPECT_EQ(segment.record.m_key, key);
        EXPECT_TRUE(segment.record.m_id == -1 && segment.record.m_address == nullptr);
    };
    expectRefused("there is none", 16, kAttach, KIVCS2STATUS_SYSTEM_ERR, ENOENT);
    expectRefused("empty", 0, kCreate, KIVCS2STATUS_MEMORY_ERR, EINVAL);
    EXPECT_EQ(attachedTo(key), -1);

    const OwnSegment segment{key, 16, kCreate};
    ASSERT_EQ(segment.status, KIVCS2STATUS_OK);
    segment.bytes()[0] = 7;
    expectRefused("attach to a smaller one", 17, kAttach, KIVCS2STATUS_SYSTEM_ERR, EINVAL);
    expectRefused("create over a smaller one", 17, kCreate, KIVCS2STATUS_MEMORY_ERR, EINVAL);
    EXPECT_EQ(segment.bytes()[0], 7); // not cleared
}

// The key of another user's private segment is refused with the reason, and the search takes it as free.
TEST(SharedMemory, AnotherUsersSegmentIsRefusedWithTheReason)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has two users";
    const uint32_t key = theIPC.key(0);
    const int id = shmget(static_cast<key_t>(key), 16, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    inChild(
        [key]
        {
            constexpr uid_t kOther = 54321;
            ASSERT_TRUE(setgid(kOther) == 0 && setuid(kOther) == 0);
            for (const auto &[create, status] :
                 {std::pair{kAttach, KIVCS2STATUS_SYSTEM_ERR}, {kCreate, KIVCS2STATUS_MEMORY_ERR}})
            {
                const OwnSegment segment{key, 16, create};
                EXPECT_EQ(segment.status, status);
                EXPECT_EQ(segment.record.m_error, EACCES);
                EXPECT_EQ(segment.record.m_address, nullptr);
            }
            uint32_t found = 0;
            EXPECT_EQ(kivCS2SharedMemory_findKey(key, &found), KIVCS2STATUS_OK);
            EXPECT_EQ(found, key); // as documented
        });
    EXPECT_EQ(shmctl(id, IPC_RMID, nullptr), 0);
}

TEST(SharedMemory, ASecondCreatorGetsTheSameSegmentAndClearsItsOwnSize)
{
    const OwnSegment first{theIPC.key(1), 4096, kCreate};
    ASSERT_EQ(first.status, KIVCS2STATUS_OK);
    EXPECT_EQ(first.record.m_error, 0);
    EXPECT_TRUE(std::all_of(first.bytes(), first.bytes() + 4096, [](uint8_t byte) { return byte == 0; }));
    shmid_ds segment{};
    ASSERT_EQ(shmctl(first.record.m_id, IPC_STAT, &segment), 0);
    EXPECT_EQ(segment.shm_perm.mode & 0777, 0666); // shared with other users
    std::memset(first.bytes(), 0xEE, 4096);

    const OwnSegment attached{theIPC.key(1), 0, kAttach};
    EXPECT_EQ(attached.record.m_id, first.record.m_id);
    EXPECT_EQ(attached.bytes()[0], 0xEE); // attaching clears nothing

    const OwnSegment second{theIPC.key(1), 100, kCreate};
    ASSERT_EQ(second.status, KIVCS2STATUS_OK);
    EXPECT_EQ(second.record.m_id, first.record.m_id);
    EXPECT_EQ(std::count(first.bytes(), first.bytes() + 4096, 0), 100);
    EXPECT_EQ(first.bytes()[99], 0);
    EXPECT_EQ(first.bytes()[100], 0xEE);
}

TEST(SharedMemory, TheLastFreeRemovesTheSegment)
{
    const uint32_t key = theIPC.key(2);
    OtherProcess other{[key](OtherProcess &self)
                       {
                           const OwnSegment segment{key, 8, kAttach};
                           self.ready();
                           self.stay();
                           return segment.status == KIVCS2STATUS_OK;
                       }};
    {
        const OwnSegment segment{key, 8, kCreate};
        ASSERT_EQ(segment.status, KIVCS2STATUS_OK);
        other.go();
        EXPECT_EQ(attachedTo(key), 2);
    }
    EXPECT_EQ(attachedTo(key), 1); // the first free leaves it
    EXPECT_EQ(other.end(), 0);
    EXPECT_EQ(attachedTo(key), -1);
}

TEST(SharedMemory, AMutexInTheSegmentExcludesTheOtherProcess)
{
    struct Shared
    {
        KIVCS2Mutex mutex;
        volatile uint32_t count; // not atomic: only the mutex excludes the other process
    };
    constexpr uint32_t kTimes = 100000;
    const auto countUp = [](Shared &shared)
    {
        bool locked = true;
        for (uint32_t time = 0; time < kTimes; ++time)
        {
            locked = kivCS2Mutex_lock(&shared.mutex) == KIVCS2STATUS_OK && locked;
            shared.count = shared.count + 1;
            locked = kivCS2Mutex_unlock(&shared.mutex) == KIVCS2STATUS_OK && locked;
        }
        return locked;
    };
    const uint32_t key = theIPC.key(4);
    OtherProcess other{[&](OtherProcess &self)
                       {
                           const OwnSegment segment{key, sizeof(Shared), kAttach};
                           self.ready();
                           return segment.status == KIVCS2STATUS_OK &&
                                  countUp(*static_cast<Shared *>(segment.record.m_address));
                       }};
    const OwnSegment segment{key, sizeof(Shared), kCreate};
    ASSERT_EQ(segment.status, KIVCS2STATUS_OK);
    Shared &shared = *static_cast<Shared *>(segment.record.m_address);
    ASSERT_EQ(kivCS2Mutex_init(&shared.mutex, KIVCS2MutexOptions_ProcessShared), KIVCS2STATUS_OK);
    ASSERT_EQ(kivCS2Mutex_lock(&shared.mutex), KIVCS2STATUS_OK);
    other.go();
    EXPECT_TRUE(other.sleeps()); // until the mutex is free
    EXPECT_EQ(kivCS2Mutex_unlock(&shared.mutex), KIVCS2STATUS_OK);
    EXPECT_TRUE(countUp(shared));
    EXPECT_EQ(other.end(), 0);
    EXPECT_EQ(shared.count, 2 * kTimes);
    EXPECT_EQ(kivCS2Mutex_free(&shared.mutex), KIVCS2STATUS_OK);
}

TEST(SharedMemory, AFailedAttachmentRemovesOnlyASegmentThatItMade)
{
    const uint32_t made = theIPC.key(5), used = theIPC.key(6), foreign = theIPC.key(7);
    const OwnSegment inUse{used, 8, kCreate};
    ASSERT_EQ(inUse.status, KIVCS2STATUS_OK);
    inUse.bytes()[0] = 7;
    OtherProcess other{[foreign](OtherProcess &)
                       { return shmget(static_cast<key_t>(foreign), 8, IPC_CREAT | 0666) >= 0; }};
    other.go();
    ASSERT_EQ(other.end(), 0);

    for (const auto &[key, create] : {std::pair{made, kCreate},
                                      {used, kCreate},
                                      {used, kAttach},
                                      {foreign, kCreate},
                                      {foreign, kAttach},
                                      {uint32_t{0}, kAttach}})
    {
        SCOPED_TRACE(key);
        g_attachError = ENOMEM;
        const OwnSegment failed{key, 8, create};
        g_attachError = 0;
        EXPECT_EQ(failed.status, KIVCS2STATUS_DATA_ERR);
        EXPECT_EQ(failed.record.m_error, ENOMEM);
        EXPECT_EQ(failed.record.m_address, nullptr);
        shmid_ds segment{};
        EXPECT_EQ(shmctl(failed.record.m_id, IPC_STAT, &segment) == 0, key == used || key == foreign);
    }
    EXPECT_EQ(attachedTo(made), -1);
    EXPECT_EQ(attachedTo(used), 1);
    EXPECT_EQ(inUse.bytes()[0], 7);
    EXPECT_EQ(attachedTo(foreign), 0);
    const OwnSegment last{foreign, 0, kAttach}; // its free removes the segment
}

TEST(SharedMemory, KeyZeroIsAlwaysANewSegment)
{
    const OwnSegment first{0, 8, kCreate}, second{0, 8, kAttach};
    for (const OwnSegment *segment : {&first, &second})
    {
        ASSERT_EQ(segment->status, KIVCS2STATUS_OK);
        (void)shmctl(segment->record.m_id, IPC_RMID,
                     nullptr); // the segment goes with the attachment, also after a kill
    }
    EXPECT_NE(first.record.m_id, second.record.m_id);
}

TEST(SharedMemory, TheSearchSkipsKeysWithASegmentUnlessItIsTooSmall)
{
    const OwnSegment taken{theIPC.key(10), 8, kCreate};
    const OwnSegment small{theIPC.key(11), 7, kCreate};
    ASSERT_EQ(taken.status, KIVCS2STATUS_OK);
    ASSERT_EQ(small.status, KIVCS2STATUS_OK);
    for (const auto &[start, expected] :
         {std::pair{theIPC.key(9), theIPC.key(9)}, {theIPC.key(10), theIPC.key(11)}})
    {
        uint32_t found = 0;
        EXPECT_EQ(kivCS2SharedMemory_findKey(start, &found), KIVCS2STATUS_OK);
        EXPECT_EQ(found, expected);
        EXPECT_EQ(attachedTo(theIPC.key(9)), -1); // the search makes no segment
    }
}

TEST(SharedMemory, TheSearchWrapsAndNeverReturnsZero)
{
    using Row = std::tuple<uint32_t, uint32_t, bool, size_t>; // `free` is the only key without a segment
    for (const auto &[start, free, isFound, lookedUp] :
         {Row{0, 1, true, 1}, Row{0xFFFFFFFEu, 5, true, 7}, Row{1, 10000, true, 10000},
          Row{1, 10001, false, 10000}, Row{0xFFFFFFFFu, 9998, true, 9999},
          Row{0xFFFFFFFFu, 9999, false, 9999}})
    {
        SCOPED_TRACE(testing::Message() << start << " to " << free);
        std::vector<uint32_t> tried;
        g_shmget = [&tried, only = free](key_t key, size_t size, int flags)
        {
            EXPECT_EQ(size, 8u);
            EXPECT_EQ(flags, 0666);
            tried.push_back(static_cast<uint32_t>(key));
            errno = EACCES; // not accessible counts as free
            return tried.back() == only ? -1 : 0;
        };
        uint32_t found = 77;
        const KIVCS2Status status = kivCS2SharedMemory_findKey(start, &found);
        g_shmget = nullptr;
        EXPECT_EQ(status, isFound ? KIVCS2STATUS_OK : KIVCS2STATUS_NOT_FOUND_ERR);
        EXPECT_EQ(found, isFound ? free : 77u);
        EXPECT_EQ(tried.size(), lookedUp);
        EXPECT_EQ(std::count(tried.begin(), tried.end(), 0u), 0); // key 0 would make a segment
    }
}

TEST(SharedMemory, RefusesMissingArguments)
{
    KIV_REQUIRES_EACH(kivCS2SharedMemory_init, "shared");
    KIV_REQUIRES_EACH(kivCS2SharedMemory_free, "shared");
    KIV_REQUIRES_EACH(kivCS2SharedMemory_findKey, "foundKey");
}
} // namespace
