// The command where a transcript is not enough: signals, terminals, memory, binary output.
#include "OwnIPC.h"
#include "PngPicture.h"
#include "Terminal.h"

#include <sys/sysinfo.h>

#include <cmath>

namespace
{
using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST_F(Command, KnowsEveryStatusOfTheHeader)
{
    std::istringstream header{slurp(KIV_BASE_HEADER)};
    const Json known = document("status");
    size_t count = 0;
    std::string previous;
    for (std::string word; header >> word; previous = word)
    {
        if (previous != "#define" || !word.starts_with("KIVCS2STATUS_"))
            continue;
        std::string value;
        header >> value;
        if (value == "\\")
            header >> value;
        ASSERT_LT(count, known.size());
        EXPECT_EQ(known[count]["name"], word);
        EXPECT_EQ(known[count]["value"].get<std::string>() + "u", value);
        ++count;
    }
    EXPECT_EQ(count, known.size());
    EXPECT_GT(count, 50u);
    EXPECT_EQ(document("format").size(), 75u);
}

TEST_F(Command, LeavesNothingBehindWhenInterrupted)
{
    // Four hours of captions: enough work for an interrupt to arrive in time.
    std::string text = "Scenarist_SCC V1.0\n\n";
    for (int second = 0; second < 4 * 3600; second += 2)
    {
        char time[32];
        std::snprintf(time, sizeof time, "%02d:%02d:%02d:00\t", second / 3600, second / 60 % 60, second % 60);
        text += time;
        for (int pair = 0; pair < 25; ++pair)
            text += "c1c2 4343 ";
        text += "\n\n";
    }
    write("long.scc", text);
    const auto interrupted = [&](int signalNumber, bool ignored)
    {
        const pid_t child = start(wordsOf("caption convert long.scc out.mcc"),
                                  [&]
                                  {
                                      signal(signalNumber, ignored ? SIG_IGN : SIG_DFL);
                                      const int nowhere = open("/dev/null", O_RDWR);
                                      dup2(nowhere, 1);
                                      dup2(nowhere, 2);
                                  });
        waitForUnnamedFile(child);
        kill(child, signalNumber);
        int status = 0;
        waitpid(child, &status, 0);
        return codeOf(status);
    };
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP})
    {
        EXPECT_EQ(interrupted(signalNumber, false), 128 + signalNumber);
        EXPECT_THAT(files(), testing::ElementsAre("long.scc"));
    }
    EXPECT_EQ(interrupted(SIGHUP, true), 0); // nohup
    EXPECT_THAT(files(), testing::UnorderedElementsAre("long.scc", "out.mcc"));
}

TEST_F(Command, ReportsAFullDiskAndEndsSilentlyWhenItsReaderHasGone)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    for (const char *line : {"format", "caption show " KIV_EXAMPLE_SCC, "status --json",
                             "caption convert " KIV_EXAMPLE_SCC " -"})
    {
        const Result cut = run(wordsOf(line), "", full), unread = run(wordsOf(line), "", ends[1]);
        EXPECT_EQ(cut.code, 4) << line;
        EXPECT_THAT(cut.err, HasSubstr("standard output: No space left on device"));
        EXPECT_EQ(unread.code, 0) << line;
        EXPECT_THAT(unread.err, IsEmpty());
    }
    close(full);
    close(ends[1]);
    EXPECT_THAT(enter("caption convert " KIV_EXAMPLE_SCC " /dev/full").err,
                HasSubstr("/dev/full: No space left on device"));
}

TEST_F(Command, ColoursATerminalOnlyAndNeverUnderNoColor)
{
    for (const auto &[variable, colours] :
         {std::pair{"TERM=xterm", true}, {"TERM=dumb", false}, {"NO_COLOR=1", false}})
    {
        Terminal terminal{{"env", "-u", "NO_COLOR", variable, KIV_COMMAND, "status", "0"}};
        EXPECT_EQ(terminal.shows("\x1b[1m"), colours) << variable;
        EXPECT_EQ(terminal.shows("\x1b"), colours) << variable;
    }
    EXPECT_THAT(enter("status 0").out, Not(HasSubstr("\x1b")));
}

TEST_F(Command, ReadsLongFilesInLittleMemory)
{
    // Every packet of the example, a hundred times: about 190,000 lines, 11 MB.
    ASSERT_EQ(enter("caption convert " KIV_EXAMPLE_SCC " once.mcc").code, 0);
    std::string text = slurp(path("once.mcc"));
    const std::string packets = text.substr(text.find("\n01:") + 1);
    for (int times = 1; times < 100; ++times)
        text += packets;
    write("long.mcc", text);
    const Result small = enter("tc show 0");
    const Result large = enter("caption info long.mcc");
    EXPECT_EQ(large.code, 0) << large.err;
    EXPECT_THAT(large.out, HasSubstr("192000, of them 192000"));
    if (!keepsFreedMemory())
    {
        EXPECT_LT(large.kilobytes - small.kilobytes, 10 * 1024);
    }
}

// The curve has its colour, and the rest of the picture is paper.
TEST_F(Command, DrawsCurvesAsAPicture)
{
    constexpr Pixel kPaper = {255, 255, 255, 255};
    ASSERT_EQ(enter("curve png curves.png SinOut --side 161").code, 0);
    const std::string file = slurp(path("curves.png"));
    const PngPicture one{file};
    ASSERT_EQ(one.width, 28u + 161 + 10);
    ASSERT_EQ(one.height, 20u + 161 + 20);
    for (const double t : {0.0, 0.2, 0.4, 0.55, 0.8, 1.0})
    {
        const auto x = static_cast<uint32_t>(std::lround(28 + 160 * t));
        const double up = 160 * std::sin(t * M_PI / 2);
        const Pixel onCurve = one.at(x, static_cast<uint32_t>(std::lround(20 + 160 - up)));
        EXPECT_GT(onCurve[2], onCurve[1] + 40) << t; // violet
    }
    EXPECT_EQ(one.at(28 + 50, 20 + 30), kPaper);
    EXPECT_EQ(one.at(one.width - 1, one.height - 1), kPaper);

    EXPECT_EQ(enter("curve png - SinOut --side 161").out, file);
    const PngPicture all{enter("curve png - --side 64").out};
    EXPECT_EQ(all.width, 5u * (28 + 64 + 10));
    EXPECT_EQ(all.height, 3u * (20 + 64 + 20));
}

TEST_F(Command, SplitsSamplesIntoPlanesBlockByBlock)
{
    // More than two blocks of the reader, the last of them short.
    constexpr size_t kFrames = 75'000;
    constexpr size_t kChannels = 16;
    std::string input;
    std::string expected(kFrames * kChannels * 3, '\0');
    for (size_t frame = 0; frame < kFrames; ++frame)
        for (size_t channel = 0; channel < kChannels; ++channel)
        {
            const char low = static_cast<char>(frame * 7 + channel);
            const char high = static_cast<char>(frame / 251 + channel * 16);
            input += {low, high};
            const size_t place = (channel * kFrames + frame) * 3;
            expected[place + 1] = low;
            expected[place + 2] = high;
        }
    write("in", input);
    const std::string options = " --input s16le --channels 16 --bits 24 --split";
    const Json report = document("audio convert in out" + options);
    EXPECT_EQ(report["frames"], kFrames);
    EXPECT_EQ(report["out"]["bytes"], expected.size());
    EXPECT_EQ(report["out"]["layout"], "planes");
    EXPECT_TRUE(slurp(path("out")) == expected);
    EXPECT_TRUE(enter("audio convert in -" + options).out == expected);
}

TEST_F(Command, SensorsAreWatchedInPlaceOnATerminalUntilInterrupted)
{
    const Words line = {"env", "NO_COLOR=1", "kivcs2_with_controller", "sensors", "watch", "--every", "0.1"};
    Terminal terminal{line, {30, 60, 0, 0}};
    terminal.shows("Keys", 3);
    terminal.type("\x03");
    const std::string text = terminal.all();
    EXPECT_EQ(terminal.code(), 0);
    EXPECT_THAT(text, HasSubstr("\x1b[J\r\x1b[12A"));  // up over the twelve lines of the page
    EXPECT_THAT(text, HasSubstr("42.0 °C\x1b[K\r\n")); // each of them cleared
    EXPECT_TRUE(text.ends_with("\r\x1b[K"));

    // A page that does not fit is cut, not scrolled.
    Words twice = line;
    twice.insert(twice.end(), {"--count", "2"});
    Terminal low{twice, {5, 60, 0, 0}};
    const std::string cut = low.all();
    EXPECT_EQ(low.code(), 0);
    EXPECT_EQ(std::count(cut.begin(), cut.end(), '\n'), 8);
    EXPECT_THAT(cut, HasSubstr("\x1b[J\r\x1b[4A"));
}

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

TEST_F(Command, ExaminesTheMachine)
{
    const OwnIPC machine; // its limits are only for this test
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

    // Without room for a segment: the limit is set to 0.
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
