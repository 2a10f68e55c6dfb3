// kivcs2 sys and kivcs2 doctor as a user runs them, on this machine.
#include "CommandRun.h"
#include "OwnIPC.h"

#include <sys/sysinfo.h>

namespace
{

using namespace kiv::test;
using testing::HasSubstr;

TEST_F(Command, ShowsTheMachine)
{
    const Json shown = document("sys show");
    struct sysinfo system
    {
    };
    ASSERT_EQ(sysinfo(&system), 0);
    const uint64_t total = uint64_t{system.totalram} * system.mem_unit;
    EXPECT_EQ(shown["physicalMemory"], total);
    EXPECT_EQ(shown["physicalMemoryLow32"], static_cast<uint32_t>(total));
    EXPECT_EQ(shown["processors"], get_nprocs());
    EXPECT_EQ(shown["version"].size(), 3u);
    EXPECT_LE(shown["memory"]["free"].get<uint64_t>() + shown["memory"]["active"].get<uint64_t>(), total);
    EXPECT_GT(shown["process"]["virtual"], shown["process"]["resident"]);
    const std::string table = enter("sys show").out;
    for (const char *fact : {"Name", "System version", "Processors", "Clock", "Physical memory", "Free",
                             "Inactive", "Active", "Wired", "This process"})
        EXPECT_THAT(table, HasSubstr(fact));
}

TEST_F(Command, WatchesTheMemory)
{
    const std::string line = "[0-9:]{8}  free [0-9.]+ .iB  inactive [0-9.]+ .*  active .*  wired [^\n]*\n";
    EXPECT_THAT(enter("sys watch --count 2 --every 0.1").out, testing::MatchesRegex(line + line));
    std::istringstream objects{enter("sys watch --count 2 --every 0.1 --json").out};
    size_t read = 0;
    for (std::string text; std::getline(objects, text); ++read)
        EXPECT_GT(parseJson(text)["memory"]["wired"], 0u);
    EXPECT_EQ(read, 2u);
}

TEST_F(Command, ExaminesTheMachine)
{
    const OwnIPC machine; // whose limits are this test's
    const auto stateOf = [this](const std::string &name, int code)
    {
        const Json result = document("doctor", code);
        EXPECT_EQ(result["complete"], code == 0);
        for (const Json &check : result["checks"])
            if (check["name"] == name)
                return check;
        return Json{};
    };
    EXPECT_EQ(stateOf("Shared memory", 0)["state"], "good");
    EXPECT_EQ(stateOf("Dates", 0)["state"], "good");
    expect({{"doctor", 0, "Semaphores"}, {"sys watch --every 0", 2}});

    // Without room for a segment, which a machine can be told to have none of.
    std::ofstream limit{"/proc/sys/kernel/shmmni"};
    if (!machine.isApart() || !(limit << 0 << std::flush))
        GTEST_SKIP() << "this user may not change the limits of a namespace";
    const Json refused = stateOf("Shared memory", 1);
    EXPECT_EQ(refused["state"], "missing");
    EXPECT_EQ(refused["found"], "No space left on device, KIVCS2STATUS_MEMORY_ERR 0x80000002");
    EXPECT_THAT(refused["remedy"], HasSubstr("shmmni"));
    EXPECT_THAT(enter("doctor").out, HasSubstr("\nShared memory: free segments"));
}

} // namespace
