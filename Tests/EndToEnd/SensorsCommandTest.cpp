// kivcs2 sensors as a user runs it, on a machine without a controller and on one that a test plays.
#include "CommandRun.h"

#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>

namespace
{

using kiv::test::Json;
using kiv::test::parseJson;
using kiv::test::Result;
using kiv::test::Words;
using testing::HasSubstr;
using testing::Not;

class Sensors : public kiv::test::Command
{
protected:
    Sensors()
    {
        m_command = KIV_COMMAND_WITH_CONTROLLER;
    }
};

// The command on a terminal of 60 columns; it ends with the test, whatever happens.
class Terminal
{
public:
    explicit Terminal(const Words &arguments, unsigned short rows = 30)
    {
        const winsize size{rows, 60, 0, 0};
        m_child = forkpty(&m_master, nullptr, nullptr, &size);
        if (m_child != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setenv("NO_COLOR", "1", 1);
        std::vector<char *> words{const_cast<char *>("kivcs2")};
        for (const std::string &word : arguments)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        execv(KIV_COMMAND_WITH_CONTROLLER, words.data());
        _exit(127);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal()
    {
        if (m_child > 0)
            kill(m_child, SIGKILL);
        wait();
    }
    // Reads until `text` has come so often, or the command has ended.
    std::string readUntil(const std::string &text, int times)
    {
        const auto seen = [&]
        {
            int count = 0;
            for (size_t at = m_text.find(text); at != std::string::npos; at = m_text.find(text, at + 1))
                ++count;
            return count;
        };
        char block[512];
        while (seen() < times)
        {
            const ssize_t got = read(m_master, block, sizeof block);
            if (got <= 0)
                break;
            m_text.append(block, static_cast<size_t>(got));
        }
        return m_text;
    }
    std::string readAll()
    {
        return readUntil("\x01", 1);
    }
    void type(const std::string &keys) const
    {
        EXPECT_EQ(write(m_master, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    int wait()
    {
        int status = 0;
        if (m_child > 0)
            waitpid(std::exchange(m_child, -1), &status, 0);
        if (m_master >= 0)
            close(std::exchange(m_master, -1));
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t m_child = -1;
    int m_master = -1;
    std::string m_text;
};

TEST_F(Sensors, ShowFansCoresAndFigures)
{
    const Result shown = run({"sensors", "show"});
    EXPECT_EQ(shown.code, 0) << shown.err;
    EXPECT_EQ(shown.out, "Fan  Actual  Minimum  Maximum  Safe  Target  Set by\n"
                         "0      1500     1000     5000     -       -  the controller\n"
                         "1      1536        -        -     -       -  a program\n"
                         "\n"
                         "Core TC0c  42.0 °C\n"
                         "Core TC1c  42.2 °C\n"
                         "Core TC2c  41.0 °C\n"
                         "Core TC3c  43.1 °C\n"
                         "TG0D       48.0 °C\n"
                         "MSPC       -2\n"
                         "MSAc       1.250\n"
                         "Keys       14\n");
    const Json read = json({"sensors", "show"});
    EXPECT_EQ(read["fans"][0]["actual"], 1500);
    EXPECT_EQ(read["fans"][0]["safe"], nullptr);
    EXPECT_EQ(read["fans"][1]["forced"], true);
    EXPECT_EQ(read["cores"], (Json{{"TC0c", 42}, {"TC1c", 42.25}, {"TC2c", 41}, {"TC3c", 43.125}}));
    EXPECT_EQ(read["figures"]["MSPC"], -2);
    EXPECT_EQ(read["figures"]["TG0H"], nullptr);

    const Result keys = run({"sensors", "show", "--keys"});
    EXPECT_THAT(keys.out, HasSubstr("FS!   ui16     2       2  0002\n"));
    EXPECT_THAT(keys.out, HasSubstr("TC1c  sp78     2  42.250  2a40\n"));
    EXPECT_THAT(keys.out, HasSubstr("Mute  -        -       -  -\n"));
    const Json listed = json({"sensors", "show", "--keys"});
    EXPECT_EQ(listed[3]["bytes"], "4e20");
    EXPECT_EQ(listed[13], (Json{{"key", "Mute"}, {"type", {}}, {"size", {}}, {"bytes", {}}, {"value", {}}}));
}

TEST_F(Sensors, AreWatchedByLinesIntoAPipe)
{
    const Result lines = run({"sensors", "watch", "--every", "0.1", "--count", "2"});
    EXPECT_EQ(lines.code, 0) << lines.err;
    EXPECT_THAT(lines.out, testing::ContainsRegex("^[0-9:]{8}  fan 0 1500  fan 1 1536  TC0c 42.0 °C"));
    EXPECT_EQ(std::count(lines.out.begin(), lines.out.end(), '\n'), 2);
    EXPECT_THAT(lines.out, Not(HasSubstr("\x1b")));
    const Result objects = run({"sensors", "watch", "--every", "0.1", "--count", "3", "--json"});
    std::istringstream text{objects.out};
    size_t count = 0;
    for (std::string line; std::getline(text, line); ++count)
        EXPECT_EQ(parseJson(line)["keys"], 14);
    EXPECT_EQ(count, 3u);
    for (const char *never : {"0", "nan", "-nan", "inf", "86401", "1s", ""})
        EXPECT_EQ(run({"sensors", "watch", "--every", never, "--count", "1"}).code, 2) << never;
}

TEST_F(Sensors, AreWatchedInPlaceOnATerminalUntilInterrupted)
{
    Terminal terminal{{"sensors", "watch", "--every", "0.1"}};
    terminal.readUntil("Keys", 3);
    terminal.type("\x03");
    const std::string text = terminal.readAll();
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_THAT(text, HasSubstr("\x1b[J\r\x1b[12A"));  // back over the twelve lines of the page
    EXPECT_THAT(text, HasSubstr("42.0 °C\x1b[K\r\n")); // and each of them cleared
    EXPECT_TRUE(text.ends_with("\r\x1b[K"));
}

TEST_F(Sensors, APageThatDoesNotFitIsCutAndNotScrolled)
{
    Terminal terminal{{"sensors", "watch", "--every", "0.1", "--count", "2"}, 5};
    const std::string text = terminal.readAll();
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8);
    EXPECT_THAT(text, HasSubstr("\x1b[J\r\x1b[4A"));
}

TEST_F(Sensors, WithoutThemTheMachineIsTheWrongOne)
{
    setenv("KIV_BROKEN_CONTROLLER", "1", 1);
    const Result broken = run({"sensors", "show"});
    unsetenv("KIV_BROKEN_CONTROLLER");
    EXPECT_EQ(broken.code, 4);
    EXPECT_THAT(broken.err, HasSubstr("does not answer (KIVCS2STATUS_DATA_ERR 0x80000004)\n"));

    if (std::filesystem::exists("/sys/bus/platform/drivers/applesmc"))
        GTEST_SKIP() << "this machine has a controller";
    m_command = KIV_COMMAND;
    for (const char *word : {"show", "watch"})
    {
        const Result result = run({"sensors", word});
        EXPECT_EQ(result.code, 5);
        EXPECT_THAT(result.out, testing::IsEmpty());
        EXPECT_EQ(result.err,
                  "kivcs2: no sensors: there is no system management controller, or only root may ask it "
                  "(KIVCS2STATUS_NOT_FOUND_ERR 0x80000006)\n");
    }
}

} // namespace
