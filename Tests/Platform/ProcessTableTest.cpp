// The process table: ids, parents, and names that look like the fields after them.
#include <KIVPlatform/KIVPlatform.h>
#include <sys/sysctl.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
int kTable[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};

std::vector<kinfo_proc> table()
{
    size_t size = 0;
    EXPECT_EQ(sysctl(kTable, 3, nullptr, &size, nullptr, 0), 0);
    std::vector<kinfo_proc> entries(size / sizeof(kinfo_proc) + 64);
    size = entries.size() * sizeof(kinfo_proc);
    EXPECT_EQ(sysctl(kTable, 3, entries.data(), &size, nullptr, 0), 0);
    entries.resize(size / sizeof(kinfo_proc));
    return entries;
}

const kinfo_proc *find(const std::vector<kinfo_proc> &entries, pid_t pid)
{
    for (const kinfo_proc &entry : entries)
        if (entry.kp_proc.p_pid == pid)
            return &entry;
    return nullptr;
}

TEST(Processes, AreToldWhateverTheyAreCalled)
{
    for (const char *name : {"plain", "a) S 1 1 (b", ") R 1 1", "((", " "})
    {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t child = fork();
        if (child == 0)
        {
            prctl(PR_SET_NAME, name);
            (void)!write(ready[1], "", 1);
            for (;;)
                pause();
        }
        char byte;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        close(ready[1]);

        const auto entries = table();
        const kinfo_proc *entry = find(entries, child);
        const kinfo_proc *self = find(entries, getpid());
        ASSERT_TRUE(entry != nullptr && self != nullptr);
        EXPECT_EQ(entry->kp_eproc.e_ppid, getpid());
        EXPECT_STREQ(entry->kp_proc.p_comm, name);
        EXPECT_GE(entry->kp_proc.p_starttime, self->kp_proc.p_starttime);
        EXPECT_GT(self->kp_proc.p_starttime, 0u);

        ASSERT_EQ(kill(child, SIGKILL), 0);
        siginfo_t info{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
        EXPECT_EQ(find(table(), child)->kp_proc.p_stat, SZOMB);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        EXPECT_EQ(find(table(), child), nullptr);
    }
}

TEST(Processes, WhatHasNoRoomIsLeftOut)
{
    std::vector<kinfo_proc> room(1);
    size_t size = sizeof(kinfo_proc) + 100;
    EXPECT_TRUE(sysctl(kTable, 3, room.data(), &size, nullptr, 0) == -1 && errno == ENOMEM);
    EXPECT_EQ(size, sizeof(kinfo_proc));
    EXPECT_TRUE(sysctl(kTable, 3, room.data(), &size, room.data(), 1) == -1 && errno == EPERM);
}

// The states of all threads: in a process whose first thread has ended, and in a parent that waits for its
// vfork.
TEST(Processes, StandStillWhenAllTheirThreadsDo)
{
    const auto become = [](pid_t pid, unsigned states)
    {
        for (int wait = 0; wait < 10000 && KIVPThreadStates(pid) != states; ++wait)
            usleep(1000);
        EXPECT_EQ(KIVPThreadStates(pid), states);
    };
    pid_t child = fork();
    if (child == 0)
    {
        std::thread{[]
                    {
                        for (;;)
                            pause();
                    }}
            .detach();
        syscall(SYS_exit, 0); // ends only this thread, without unwinding
    }
    become(child, KIVP_THREADS_ENDED | KIVP_THREADS_RUN);
    kill(child, SIGSTOP);
    become(child, KIVP_THREADS_ENDED | KIVP_THREADS_STOPPED);
    kill(child, SIGKILL);
    become(child, KIVP_THREADS_ENDED);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(KIVPThreadStates(child), 0u);

#ifndef __SANITIZE_THREAD__ // it turns vfork into fork
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    child = fork();
    if (child == 0)
    {
        if (vfork() == 0)
        {
            (void)!write(ready[1], "", 1);
            for (;;)
                pause();
        }
        _exit(0);
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    become(child, KIVP_THREADS_WAIT);
    for (const kinfo_proc &entry : table())
        if (entry.kp_eproc.e_ppid == child)
            kill(entry.kp_proc.p_pid, SIGKILL);
    waitpid(child, nullptr, 0);
#endif
}
} // namespace
