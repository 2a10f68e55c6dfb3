// Semaphores: names, sharing, statuses. Each test removes its semaphores, also after a failure.
#include <KIVCoreServices2/KIVCS2Semaphore.h>

#include "ArgumentCheck.h"
#include "OwnProcesses.h"

#include <mach/mach_time.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/stat.h>
#include <thread>

namespace
{
using namespace kiv::test;

std::atomic<uint64_t> g_stoppedClock{0}; // 0 while it runs
} // namespace

// The program's own clock replaces the platform's, and can be stopped.
uint64_t mach_absolute_time(void)
{
    if (const uint64_t stopped = g_stoppedClock; stopped != 0)
        return stopped;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

namespace
{
static_assert(offsetof(KIVCS2Semaphore, m_semaphore) == 0 && offsetof(KIVCS2Semaphore, m_name) == 8 &&
              sizeof(KIVCS2Semaphore) == 264);

struct OwnSemaphore
{
    explicit OwnSemaphore(const char *name)
    {
        std::memset(&record, 0xAB, sizeof record); // contents that must not matter
        status = kivCS2Semaphore_init(&record, name);
    }
    ~OwnSemaphore()
    {
        if (record.m_semaphore != nullptr)
        {
            EXPECT_EQ(kivCS2Semaphore_free(&record), KIVCS2STATUS_OK);
        }
    }
    OwnSemaphore(const OwnSemaphore &) = delete;
    OwnSemaphore &operator=(const OwnSemaphore &) = delete;

    [[nodiscard]] uint32_t count() // takes all signals
    {
        uint32_t taken = 0;
        while (kivCS2Semaphore_testWait(&record) == KIVCS2STATUS_OK)
            ++taken;
        return taken;
    }
    void signal(int times)
    {
        for (; times > 0; --times)
            EXPECT_EQ(kivCS2Semaphore_signal(&record), KIVCS2STATUS_OK);
    }

    KIVCS2Semaphore record;
    KIVCS2Status status;
};

std::string uniqueName(size_t length)
{
    std::string name = "kivTest" + std::to_string(getpid()) + "-";
    name.resize(length, 'n');
    return name;
}

TEST(Semaphore, CountsAndDrains)
{
    OwnSemaphore semaphore{nullptr};
    ASSERT_EQ(semaphore.status, KIVCS2STATUS_OK);
    EXPECT_EQ(std::string{semaphore.record.m_name}.substr(0, 6), "kivCS2");
    EXPECT_EQ(kivCS2Semaphore_testWait(&semaphore.record), KIVCS2STATUS_SEMAPHORE_BUSY_ERR);
    EXPECT_EQ(kivCS2Semaphore_drain(&semaphore.record), KIVCS2STATUS_OK);
    semaphore.signal(3);
    EXPECT_EQ(kivCS2Semaphore_wait(&semaphore.record), KIVCS2STATUS_OK);
    EXPECT_EQ(semaphore.count(), 2u);
    semaphore.signal(5);
    EXPECT_EQ(kivCS2Semaphore_drain(&semaphore.record), KIVCS2STATUS_OK);
    EXPECT_EQ(semaphore.count(), 0u);
}

TEST(Semaphore, AutomaticNamesDifferWithinOneTickOfTheClock)
{
    g_stoppedClock = mach_absolute_time();
    OwnSemaphore first{nullptr};
    OwnSemaphore second{nullptr};
    g_stoppedClock = 0;
    EXPECT_STRNE(first.record.m_name, second.record.m_name);
    first.signal(1);
    EXPECT_EQ(second.count(), 0u);
}

TEST(Semaphore, TheSameNameIsTheSameCount)
{
    for (const size_t length : {size_t{40}, size_t{251}, size_t{252}, size_t{255}})
    {
        const std::string name = uniqueName(length);
        OwnSemaphore first{name.c_str()};
        ASSERT_EQ(first.status, KIVCS2STATUS_OK) << length;
        EXPECT_EQ(first.record.m_name, name); // as given, whatever its name in the system
        first.signal(2);

        OwnSemaphore second{name.c_str()};
        ASSERT_EQ(second.status, KIVCS2STATUS_OK) << length;
        EXPECT_EQ(first.count(), 0u); // the second init has drained it
        second.signal(1);
        EXPECT_EQ(first.count(), 1u);

        OwnSemaphore other{(name.substr(0, length - 1) + 'm').c_str()}; // as long, with another end
        ASSERT_EQ(other.status, KIVCS2STATUS_OK) << length;
        first.signal(1);
        EXPECT_EQ(other.count(), 0u);
    }
}

TEST(Semaphore, RefusesNamesTheSystemCannotHold)
{
    OwnSemaphore tooLong{uniqueName(256).c_str()};
    EXPECT_EQ(tooLong.status, KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(tooLong.record.m_semaphore, nullptr);
    EXPECT_STREQ(tooLong.record.m_name, "");

    OwnSemaphore empty{""};
    EXPECT_EQ(empty.status, KIVCS2STATUS_SEMAPHORE_ERR);
    EXPECT_EQ(empty.record.m_semaphore, nullptr);
}

// ---- Names that others can take ----

std::string fileOf(const std::string &name)
{
    return "/dev/shm/sem." + name;
}

// A file with the semaphore's name, which any user of the machine can make.
class Planted
{
public:
    Planted(const std::string &name, size_t size) : m_path{fileOf(name)}
    {
        std::ofstream{m_path} << std::string(size, '\0');
    }
    ~Planted()
    {
        std::filesystem::remove(m_path);
    }
    Planted(const Planted &) = delete;
    Planted &operator=(const Planted &) = delete;

    void give(uid_t owner, gid_t group, mode_t mode) const
    {
        EXPECT_EQ(chown(m_path.c_str(), owner, group), 0);
        EXPECT_EQ(chmod(m_path.c_str(), mode), 0);
    }

private:
    std::string m_path;
};

TEST(Semaphore, AFileThatIsNotASemaphoreIsRefusedAndLeft)
{
    const std::string name = uniqueName(34);
    const std::string path = fileOf(name);
    const auto refused = [&](const char *what)
    {
        const OwnSemaphore semaphore{name.c_str()};
        EXPECT_EQ(semaphore.status, KIVCS2STATUS_SEMAPHORE_ERR) << what;
        EXPECT_EQ(semaphore.record.m_semaphore, nullptr);
        EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(path))) << what;
    };
    for (const size_t size :
         {size_t{0}, sizeof(sem_t) - 1, sizeof(sem_t) + 1}) // mapping an empty file raises SIGBUS
    {
        const Planted file{name, size};
        refused("a file");
    }
    const Planted target{name + "-target", sizeof(sem_t)};
    std::filesystem::create_symlink(fileOf(name + "-target"), path);
    refused("a link");
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    refused("a named pipe");
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    refused("a folder");
    std::filesystem::remove(path);
}

TEST(Semaphore, AnAutomaticNameThatIsTakenIsSkipped)
{
    g_stoppedClock = mach_absolute_time() + 1'000'000'000'000; // above every name given so far
    const Planted empty{"kivCS2" + std::to_string(g_stoppedClock), 0};
    const Planted other{"kivCS2" + std::to_string(g_stoppedClock + 1), sizeof(sem_t)};
    OwnSemaphore semaphore{nullptr};
    EXPECT_EQ(semaphore.status, KIVCS2STATUS_OK);
    EXPECT_EQ(semaphore.record.m_name, "kivCS2" + std::to_string(g_stoppedClock + 2));
    semaphore.signal(1);
    EXPECT_EQ(semaphore.count(), 1u);
    g_stoppedClock = 0;
}

// The owner of the file could truncate it at any time, which ends every process that has mapped it.
TEST(Semaphore, AnotherUsersSemaphoreIsSharedOnlyThroughAGroup)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a file away";
    constexpr uid_t kOther = 54321;
    const std::string name = uniqueName(36);
    using Row = std::tuple<uid_t, gid_t, mode_t, bool>;
    for (const auto &[owner, group, mode, shared] : {
             Row{kOther, kOther, 0666, false},
             {kOther, 0, 0660, true},
             {kOther, 0, 0606, false},
             {0, kOther, 0666, true},
             {kOther + 1, 0, 0664, true}, // through the group, for each of its users
         })
    {
        SCOPED_TRACE(testing::Message() << owner << ':' << group << ' ' << std::oct << mode);
        const Planted file{name, sizeof(sem_t)};
        file.give(owner, group, mode);
        const OwnSemaphore semaphore{name.c_str()};
        EXPECT_EQ(semaphore.status, shared ? KIVCS2STATUS_OK : KIVCS2STATUS_SEMAPHORE_ERR);
    }
    // All users share root's semaphores, if the mode allows it.
    const Planted roots{name, sizeof(sem_t)};
    roots.give(0, 0, 0666);
    inChild(
        [&]
        {
            ASSERT_TRUE(setgid(kOther) == 0 && setuid(kOther) == 0);
            KIVCS2Semaphore theirs;
            EXPECT_EQ(kivCS2Semaphore_init(&theirs, name.c_str()), KIVCS2STATUS_OK);
        });
}

// The file is checked before it is mapped and again after that. Whatever replaces it in between, no byte past
// its end is read.
TEST(Semaphore, AFileThatChangesUnderTheNameEndsNoProcess)
{
    const std::string name = uniqueName(38);
    std::atomic<bool> over{false};
    std::thread changing{[&]
                         {
                             for (size_t size = 0; !over; size = sizeof(sem_t) - size)
                             {
                                 std::ofstream{fileOf(name + "-next")} << std::string(size, '\0');
                                 std::rename(fileOf(name + "-next").c_str(), fileOf(name).c_str());
                             }
                         }};
    size_t opened = 0;
    for (int tried = 0; tried < 5000; ++tried)
    {
        KIVCS2Semaphore semaphore;
        const KIVCS2Status status = kivCS2Semaphore_init(&semaphore, name.c_str());
        opened += status == KIVCS2STATUS_OK ? 1 : 0;
        EXPECT_EQ(status == KIVCS2STATUS_OK ? kivCS2Semaphore_free(&semaphore) : status,
                  status == KIVCS2STATUS_OK ? KIVCS2STATUS_OK : KIVCS2STATUS_SEMAPHORE_ERR);
    }
    over = true;
    changing.join();
    std::filesystem::remove(fileOf(name));
    EXPECT_GT(opened, 0u);
}

TEST(Semaphore, FreeRemovesTheName)
{
    const std::string name = uniqueName(30);
    KIVCS2Semaphore semaphore{};
    ASSERT_EQ(kivCS2Semaphore_init(&semaphore, name.c_str()), KIVCS2STATUS_OK);
    ASSERT_EQ(kivCS2Semaphore_free(&semaphore), KIVCS2STATUS_OK);
    EXPECT_EQ(semaphore.m_semaphore, nullptr);
    EXPECT_STREQ(semaphore.m_name, "");
    errno = 0;
    EXPECT_EQ(sem_open(("/" + name).c_str(), 0), SEM_FAILED);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Semaphore, SharedByProcesses)
{
    const std::string name = uniqueName(32);
    OwnSemaphore semaphore{name.c_str()};
    ASSERT_EQ(semaphore.status, KIVCS2STATUS_OK);
    inChild(
        [&]
        {
            KIVCS2Semaphore theirs;
            EXPECT_EQ(kivCS2Semaphore_init(&theirs, name.c_str()), KIVCS2STATUS_OK);
            EXPECT_EQ(kivCS2Semaphore_signal(&theirs), KIVCS2STATUS_OK);
        });
    EXPECT_EQ(semaphore.count(), 1u);
}

TEST(Semaphore, ADeliveredSignalEndsTheWait)
{
    struct sigaction action = {};
    struct sigaction saved = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &saved), 0);

    OwnSemaphore semaphore{nullptr};
    std::atomic<bool> returned{false};
    std::thread waiter{[&]
                       {
                           EXPECT_EQ(kivCS2Semaphore_wait(&semaphore.record), KIVCS2STATUS_OK);
                           returned = true;
                       }};
    while (!returned)
    {
        pthread_kill(waiter.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    waiter.join();
    EXPECT_EQ(sigaction(SIGUSR1, &saved, nullptr), 0);
}

TEST(Semaphore, RefusesMissingAndFreedRecords)
{
    KIVCS2Semaphore none{};
    expectRefused(KIV_REQUIRES(kivCS2Semaphore_init, "pSemaphore", nullptr, nullptr));
    const std::pair<const char *, KIVCS2Status (*)(KIVCS2Semaphore *)> operations[] = {
        {"kivCS2Semaphore_signal", kivCS2Semaphore_signal},
        {"kivCS2Semaphore_wait", kivCS2Semaphore_wait},
        {"kivCS2Semaphore_testWait", kivCS2Semaphore_testWait},
        {"kivCS2Semaphore_drain", kivCS2Semaphore_drain},
        {"kivCS2Semaphore_free", kivCS2Semaphore_free},
    };
    for (const auto &[name, operation] : operations)
        for (const auto &[text, record] : {std::pair{"pSemaphore", static_cast<KIVCS2Semaphore *>(nullptr)},
                                           {"pSemaphore->m_semaphore", &none}})
            expectRefused({name, text, KIVCS2STATUS_PARAM_ERR,
                           [=, asked = operation, on = record] { return asked(on); }});
}
} // namespace
