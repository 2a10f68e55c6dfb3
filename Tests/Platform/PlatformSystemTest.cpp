// Figures of the machine from trees of files instead of /proc, /sys, /etc and /usr/lib: correct, missing, cut
// or hostile.
#include <KIVCoreServices2/KIVCS2SystemInfo.h>

#include "System/SystemFile.h"
#include "TemporaryFolder.h"

#include <Foundation/NSProcessInfo.h>
#include <SystemConfiguration/SCDynamicStoreCopySpecific.h>
#include <mach/mach_host.h>
#include <mach/task_info.h>
#include <sys/sysctl.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{
namespace fs = std::filesystem;

class System : public testing::Test
{
protected:
    System() : m_root(m_folder.path("."))
    {
        kiv::system::setRoot(m_root.c_str());
    }
    ~System() override
    {
        kiv::system::setRoot(nullptr);
    }

    // Writes a file of the machine; null removes it, of any kind.
    void put(const std::string &path, const char *content) const
    {
        const fs::path whole = m_root + path;
        fs::remove_all(whole);
        fs::create_directories(whole.parent_path());
        if (content != nullptr)
            std::ofstream{whole, std::ios::binary} << content;
    }
    [[nodiscard]] std::string where(const std::string &path) const
    {
        return m_root + path;
    }

private:
    kiv::test::TemporaryFolder m_folder;
    std::string m_root;
};

// Returns the text of a kernel, with the total and the lines of wired memory from the caller.
std::string meminfo(const std::string &total, const std::string &wiredLines)
{
    return "MemTotal:       " + total + " kB\nMemFree:         4000000 kB\nMemAvailable:   12000000 kB\n" +
           "Active:          3000000 kB\nInactive:        2000000 kB\nActive(anon):          1 kB\n" +
           "Inactive(file):        1 kB\n" + wiredLines + "HugePages_Total:       0\n";
}

struct Usage
{
    KIVCS2Status status;
    std::array<uint64_t, 6> bytes{1, 2, 3, 4, 5, 6}; // values from before the call

    Usage()
    {
        status =
            kivCS2SystemInfo_getRAMUsage(&bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4], &bytes[5]);
    }
};

TEST_F(System, MemoryComesFromMeminfoAndStatm)
{
    const auto pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const std::string wired =
        "Unevictable:       10000 kB\nSUnreclaim:        20000 kB\nKernelStack:  3000 kB\n"
        "PageTables:         4000 kB\n";
    const std::string good = meminfo("16777216", wired);
    struct Row
    {
        const char *what;
        std::string meminfo;
        const char *statm;
        bool hostKnown, taskKnown;
        uint64_t wired;    // kB
        uint32_t physical; // low 32 bits of the bytes
    };
    const Row rows[] = {
        {"as it should be", good, "765 424 396 5 0 123 0\n", true, true, 37000, 0},
        {"16 GiB and 4 KiB", meminfo("16777220", wired), "765 424 396\n", true, true, 37000, 4096},
        {"a kernel that tells less", meminfo("1024", ""), "0 0 0", true, true, 0, 1048576},
        {"no statm", good, nullptr, true, false, 37000, 0},
        {"statm cut in the second number", good, "765 42", true, false, 37000, 0},
        {"statm of words", good, "a b c", true, false, 37000, 0},
        {"statm beyond 64 bits", good, "18446744073709551616 1 1", true, false, 37000, 0},
        {"statm beyond 64 bits in bytes", good, "18446744073709551615 1 1", true, false, 37000, 0},
        {"no meminfo", "", "765 424 396\n", false, true, 0, 0},
        {"meminfo without MemFree", "MemTotal: 1 kB\nActive: 1 kB\nInactive: 1 kB\n", "1 1 1", false, true, 0,
         0},
        {"meminfo cut in a value", good.substr(0, good.find("20000 kB") + 6), "1 1 1", false, true, 0, 0},
        {"negative", meminfo("-5", wired), "1 1 1", false, true, 0, 0},
        {"beyond 64 bits", meminfo("99999999999999999999", wired), "1 1 1", false, true, 0, 0},
        {"beyond 64 bits in bytes", meminfo("18446744073709551615", wired), "1 1 1", false, true, 0, 0},
        {"wired beyond 64 bits in all",
         meminfo("1", "Unevictable: 18014398509481983 kB\nPageTables: 18014398509481983 kB\n"), "1 1 1",
         false, true, 0, 0},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.what);
        put("/proc/meminfo", row.meminfo.empty() ? nullptr : row.meminfo.c_str());
        put("/proc/self/statm", row.statm);
        const Usage usage;
        EXPECT_EQ(usage.status,
                  row.hostKnown && row.taskKnown ? KIVCS2STATUS_OK : KIVCS2STATUS_UNSUPPORTED_ERR);
        const auto kilobytes = [&](uint64_t value) { return value * 1024 / pageSize * pageSize; };
        const std::array<uint64_t, 4> host{kilobytes(4000000), kilobytes(2000000), kilobytes(3000000),
                                           kilobytes(row.wired)}; // inactive before active
        for (size_t index = 0; index < host.size(); ++index)
            EXPECT_EQ(usage.bytes[index], row.hostKnown ? host[index] : index + 1) << index;
        if (usage.status != KIVCS2STATUS_OK)
        {
            EXPECT_EQ(usage.bytes[4], 5u);
            EXPECT_EQ(usage.bytes[5], 6u);
        }
        else if (std::string_view{row.statm}.starts_with("765"))
        {
            EXPECT_EQ(usage.bytes[4], 424 * pageSize);
            EXPECT_EQ(usage.bytes[5], 765 * pageSize);
        }
        uint32_t physical = 77;
        EXPECT_EQ(kivCS2SystemInfo_getPhysicalRAMSize(&physical), KIVCS2STATUS_OK);
        EXPECT_EQ(physical, row.physical);
        // A figure that is not requested does not matter.
        uint64_t resident = 0;
        EXPECT_EQ(kivCS2SystemInfo_getRAMUsage(nullptr, nullptr, nullptr, nullptr, &resident, nullptr),
                  row.taskKnown ? KIVCS2STATUS_OK : KIVCS2STATUS_UNSUPPORTED_ERR);
        EXPECT_EQ(kivCS2SystemInfo_getRAMUsage(nullptr, nullptr, nullptr, &resident, nullptr, nullptr),
                  row.hostKnown ? KIVCS2STATUS_OK : KIVCS2STATUS_UNSUPPORTED_ERR);
    }
}

TEST_F(System, TheVersionIsTheDistributions)
{
    using Row = std::tuple<const char *, const char *, std::array<uint32_t, 3>>;
    for (const auto &[etc, usr, expected] : {
             Row{"NAME=Some\nVERSION_ID=\"12\"\n", nullptr, {12, 0, 0}},
             {"VERSION_ID='22.04'\n", "VERSION_ID=5\n", {22, 4, 0}},
             {"VERSION_ID=3.18.4.9", nullptr, {3, 18, 4}},
             {"  VERSION_ID=7.1-beta2 \nVERSION_ID_LIKE=9\n#VERSION_ID=9\n", nullptr, {7, 1, 0}},
             {"VERSION_ID=1\nVERSION_ID=\"\\2\\.\\5\"\n", nullptr, {2, 5, 0}}, // the last one, as in a shell
             {"NAME=Rolling\n", "VERSION_ID=5\n", {0, 0, 0}},
             {nullptr, "VERSION_ID=15.6\n", {15, 6, 0}},
             {nullptr, nullptr, {0, 0, 0}},
             {"VERSION_ID=99999999999999999999.1\n", nullptr, {0, 0, 0}},
             {"VERSION_ID=4294967296.18446744073709551615\n", nullptr, {UINT32_MAX, UINT32_MAX, 0}},
             {"VERSION_ID=\"12\nVERSION=1\n", nullptr, {0, 0, 0}},
             {"VERSION_ID=12 13\n", nullptr, {0, 0, 0}},
             {"VERSION_ID=$(reboot)\n", nullptr, {0, 0, 0}},
             {"VERSION_ID=-1\n", nullptr, {0, 0, 0}},
         })
    {
        SCOPED_TRACE(etc == nullptr ? "none" : etc);
        put("/etc/os-release", etc);
        put("/usr/lib/os-release", usr);
        std::array<uint32_t, 3> version{9, 9, 9};
        EXPECT_EQ(kivCS2SystemInfo_getSystemVersion(&version[0], &version[1], &version[2]), KIVCS2STATUS_OK);
        EXPECT_EQ(version, expected);
    }
}

TEST_F(System, TheClockIsTheHighestOfFrequencyScaling)
{
    const char *const info =
        "processor\t: 0\ncpu MHz\t\t: 2600.125\n\nprocessor\t: 1\ncpu MHz\t\t: 3100.000\n";
    using Row = std::tuple<const char *, const char *, const char *, const char *, uint32_t>;
    for (const auto &[possible, first, third, cpuinfo, expected] : {
             Row{"0-3\n", "3600000\n", "4200000\n", info, 4200000000u}, // processor 1 is offline
             {"0-3\n", "3600000\n", nullptr, nullptr, 3600000000u},
             {"0-3\n", "5200000\n", nullptr, info, UINT32_MAX},
             {"0-3\n", "99999999999999\n", nullptr, info, UINT32_MAX},
             {"0-3\n", "fast\n", nullptr, info, 3100000000u},
             {nullptr, "3600000\n", nullptr, info, 3100000000u},
             {"0-3\n", nullptr, nullptr, "cpu MHz\t\t: nan\ncpu MHz : 1e30\ncpu MHz : -7\ncpu MHz 5\n", 0},
             {"0-3\n", nullptr, nullptr, nullptr, 0},
         })
    {
        put("/sys/devices/system/cpu/possible", possible);
        put("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", first);
        put("/sys/devices/system/cpu/cpu2/cpufreq/cpuinfo_max_freq", third);
        put("/proc/cpuinfo", cpuinfo);
        uint32_t hertz = 77;
        EXPECT_EQ(kivCS2SystemInfo_getClockSpeed(&hertz), KIVCS2STATUS_OK);
        EXPECT_EQ(hertz, expected);
    }
    // The system call below it, with its other results.
    put("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", "1000000\n");
    int name[] = {CTL_HW, HW_CPU_FREQ};
    int other[] = {CTL_HW, 1};
    uint32_t hertz = 0;
    size_t size = 3;
    EXPECT_TRUE(sysctl(name, 2, &hertz, &size, nullptr, 0) == -1 && errno == ENOMEM);
    EXPECT_TRUE(sysctl(name, 2, nullptr, &size, nullptr, 0) == 0 && size == 4);
    EXPECT_TRUE(sysctl(name, 2, &hertz, &size, &hertz, 4) == -1 && errno == EPERM);
    EXPECT_TRUE(sysctl(other, 2, &hertz, &size, nullptr, 0) == -1 && errno == ENOENT);
    EXPECT_TRUE(sysctl(name, 2, &hertz, &size, nullptr, 0) == 0 && hertz == 1000000000u);
}

TEST_F(System, ProcessorsAreThoseOnline)
{
    const auto here = static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN));
    const std::pair<const char *, uint32_t> rows[] = {
        {"0\n", 1},
        {"0-3,8,10-11\n", 7},
        {"0-1", 2},
        {"", here},
        {"3-0\n", here},
        {"0-\n", here},
        {"0,,1", here},
        {"0-0-1", here},
        {"0,1,\n", here},
        {"4-9,0-3", here},
        {"0-1 2", here},
        {nullptr, here},
        {"0-4294967295\n", here},
        {"0-18446744073709551615\n", here},
        {"-1\n", here},
    };
    for (const auto &[online, expected] : rows)
    {
        SCOPED_TRACE(online == nullptr ? "none" : online);
        put("/sys/devices/system/cpu/online", online);
        uint32_t cores = 0;
        EXPECT_EQ(kivCS2SystemInfo_getCPUCoreCount(&cores), KIVCS2STATUS_OK);
        EXPECT_EQ(cores, expected);
    }
}

TEST_F(System, TheNameIsTheOneForPeopleOrTheHosts)
{
    using Row = std::tuple<const char *, const char *, uint32_t, KIVCS2Status, const char *>;
    const std::string tooLong = "PRETTY_HOSTNAME=\"" + std::string(1025, 'n') + "\"\n";
    for (const auto &[info, host, size, status, name] : {
             Row{"PRETTY_HOSTNAME=\"Studio 3, \\\"A\\\"\"\nX=1\n", "studio3\n", 64, KIVCS2STATUS_OK,
                 "Studio 3, \"A\""},
             {"PRETTY_HOSTNAME='it is \\ here'\n", "h\n", 64, KIVCS2STATUS_OK, "it is \\ here"},
             {"ICON_NAME=computer\n", "studio3\n", 64, KIVCS2STATUS_OK, "studio3"},
             {"PRETTY_HOSTNAME=\"\"\n", "studio3\n", 64, KIVCS2STATUS_OK, "studio3"},
             {"PRETTY_HOSTNAME=\"\xff\xfe\"\n", "studio3\n", 64, KIVCS2STATUS_OK, "studio3"},
             {"PRETTY_HOSTNAME=\"a\tb\"\n", "studio3\n", 64, KIVCS2STATUS_OK, "studio3"},
             {tooLong.c_str(), "studio3\n", 64, KIVCS2STATUS_OK, "studio3"},
             {nullptr, "studio3\n", 8, KIVCS2STATUS_OK, "studio3"},
             {nullptr, "studio3\n", 7, KIVCS2STATUS_BUFFER_SIZE_ERR, ""},
             {"PRETTY_HOSTNAME=\xc3\xa9\xc3\xa9\n", "h\n", 4, KIVCS2STATUS_BUFFER_SIZE_ERR,
              ""}, // 2 characters, 4 bytes
             {"PRETTY_HOSTNAME=\xc3\xa9\xc3\xa9\n", "h\n", 5, KIVCS2STATUS_OK, "\xc3\xa9\xc3\xa9"},
             {nullptr, "\n", 64, KIVCS2STATUS_DATA_ERR, ""},
             {nullptr, "\xff\n", 64, KIVCS2STATUS_DATA_ERR, ""},
         })
    {
        put("/etc/machine-info", info);
        put("/proc/sys/kernel/hostname", host);
        std::array<char, 65> buffer;
        buffer.fill('#');
        EXPECT_EQ(kivCS2SystemInfo_getMachineNameString(buffer.data(), size), status) << name;
        EXPECT_STREQ(buffer.data(), name);
        for (size_t index = std::strlen(name); index < size; ++index)
            EXPECT_EQ(buffer[index], '\0'); // the whole buffer
        EXPECT_EQ(buffer[size], '#');       // and no byte after it
    }
    // Without the file of the kernel, the name comes from the C library.
    put("/proc/sys/kernel/hostname", nullptr);
    char name[256];
    char expected[256];
    ASSERT_EQ(gethostname(expected, sizeof expected), 0);
    EXPECT_EQ(kivCS2SystemInfo_getMachineNameString(name, sizeof name), KIVCS2STATUS_OK);
    EXPECT_STREQ(name, expected);
}

TEST_F(System, ANameThatNobodyReleasesIsOneObjectHoweverOftenItIsAsked)
{
    put("/proc/sys/kernel/hostname", "first\n");
    CFStringEncoding encoding = 0;
    CFStringRef first = SCDynamicStoreCopyComputerName(nullptr, &encoding);
    EXPECT_EQ(encoding, kCFStringEncodingUTF8);
    put("/proc/sys/kernel/hostname", "second\n");
    CFStringRef second = SCDynamicStoreCopyComputerName(nullptr, nullptr);
    EXPECT_NE(first, second);
    put("/proc/sys/kernel/hostname", "first\n");
    EXPECT_EQ(SCDynamicStoreCopyComputerName(nullptr, nullptr),
              first); // none is released: LeakSanitizer checks that they are kept
}

TEST_F(System, WhatIsNoRegularFileIsNotThereAndNotWaitedFor)
{
    const std::string path = where("/proc/meminfo");
    const auto expectUnknown = [](const char *what)
    {
        SCOPED_TRACE(what);
        EXPECT_EQ(Usage{}.status, KIVCS2STATUS_UNSUPPORTED_ERR);
    };
    put("/proc/meminfo", nullptr);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expectUnknown("FIFO"); // opening it would wait for a writer
    put("/proc/meminfo", nullptr);
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    expectUnknown("folder");
    put("/proc/meminfo", nullptr);
    ASSERT_EQ(symlink("meminfo", path.c_str()), 0);
    expectUnknown("link to itself");
    put("/proc/meminfo", nullptr);
    ASSERT_EQ(symlink("/dev/zero", path.c_str()), 0);
    expectUnknown("device");
}

TEST_F(System, LongFilesCountToTheirLastWholeLine)
{
    const std::string start = "MemTotal: 8 kB\nMemFree: 8 kB\nActive: 8 kB\nInactive: 8 kB\n";
    put("/proc/self/statm", "1 1 1\n");
    for (const size_t length : {size_t{16 * 1024 - 14}, size_t{16 * 1024 - 3}, size_t{16 * 1024},
                                size_t{16 * 1024 + 3}, size_t{1} << 20})
    {
        // The read ends in the last line, for example in its number, or in the long line before it.
        std::string text = start + "Other: ";
        text += std::string(length - text.size(), '0') + "\nPageTables: 8 kB\n";
        put("/proc/meminfo", text.c_str());
        EXPECT_EQ(Usage{}.status, KIVCS2STATUS_OK) << length;
        put("/proc/meminfo", text.substr(start.size()).c_str());
        EXPECT_EQ(Usage{}.status, KIVCS2STATUS_UNSUPPORTED_ERR) << length;
    }
}

TEST_F(System, CallsRefuseWhatTheyDoNotKnowAndStoreNothing)
{
    put("/proc/meminfo", meminfo("16", "").c_str());
    put("/proc/self/statm", "1 1 1\n");
    std::array<integer_t, 87> words;
    words.fill(7);
    mach_msg_type_number_t count = HOST_VM_INFO_COUNT - 1;
    EXPECT_EQ(host_statistics(mach_host_self(), HOST_VM_INFO, words.data(), &count), KERN_INVALID_ARGUMENT);
    count = 99;
    EXPECT_EQ(host_statistics(mach_host_self(), HOST_VM_INFO + 1, words.data(), &count),
              KERN_INVALID_ARGUMENT);
    EXPECT_EQ(task_info(mach_task_self() + 1, TASK_VM_INFO, words.data(), &count), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(task_info(mach_task_self(), TASK_VM_INFO - 1, words.data(), &count), KERN_INVALID_ARGUMENT);
    count = TASK_VM_INFO_COUNT - 1;
    EXPECT_EQ(task_info(mach_task_self(), TASK_VM_INFO, words.data(), &count), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(std::count(words.begin(), words.end(), 7), 87);
    count = 87;
    EXPECT_EQ(host_statistics(mach_host_self(), HOST_VM_INFO, words.data(), &count), KERN_SUCCESS);
    EXPECT_EQ(count, 15u);
    EXPECT_EQ(std::count(words.begin(), words.end(), 7), 87 - 15);
    EXPECT_EQ(NSProcessInfo_physicalMemory(nullptr), 0u); // like a message to a null object
    EXPECT_EQ(NSProcessInfo_operatingSystemVersion(nullptr).majorVersion, 0);
    EXPECT_EQ(NSProcessInfo_activeProcessorCount(nullptr), 0u);
}
} // namespace
