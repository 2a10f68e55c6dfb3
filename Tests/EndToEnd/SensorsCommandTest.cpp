// kivcs2 sensors as a user runs it, on a machine without a controller and on one that a test plays.
#include "Terminal.h"

namespace
{

using namespace kiv::test;
using testing::HasSubstr;
using testing::Not;

class Sensors : public Command
{
protected:
    Sensors()
    {
        m_command = "kivcs2_with_controller";
    }
};

TEST_F(Sensors, ShowFansCoresAndFigures)
{
    expect({{"sensors show", 0,
             "Fan  Actual  Minimum  Maximum  Safe  Target  Set by\n"
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
             "Keys       14\n"},
            {"sensors show --keys", 0, "FS!   ui16     2       2  0002\n"},
            {"sensors show --keys", 0, "TC1c  sp78     2  42.250  2a40\n"},
            {"sensors show --keys", 0, "Mute  -        -       -  -\n"}});
    const Json read = document("sensors show");
    EXPECT_EQ(read["fans"][0]["actual"], 1500);
    EXPECT_EQ(read["fans"][0]["safe"], nullptr);
    EXPECT_EQ(read["fans"][1]["forced"], true);
    EXPECT_EQ(read["cores"], (Json{{"TC0c", 42}, {"TC1c", 42.25}, {"TC2c", 41}, {"TC3c", 43.125}}));
    EXPECT_EQ(read["figures"]["MSPC"], -2);
    EXPECT_EQ(read["figures"]["TG0H"], nullptr);
    const Json listed = document("sensors show --keys");
    EXPECT_EQ(listed[3]["bytes"], "4e20");
    EXPECT_EQ(listed[13], (Json{{"key", "Mute"}, {"type", {}}, {"size", {}}, {"bytes", {}}, {"value", {}}}));
}

TEST_F(Sensors, AreWatchedByLinesIntoAPipe)
{
    const Result lines = enter("sensors watch --every 0.1 --count 2");
    EXPECT_EQ(lines.code, 0) << lines.err;
    EXPECT_THAT(lines.out, testing::ContainsRegex("^[0-9:]{8}  fan 0 1500  fan 1 1536  TC0c 42.0 °C"));
    EXPECT_EQ(std::count(lines.out.begin(), lines.out.end(), '\n'), 2);
    EXPECT_THAT(lines.out, Not(HasSubstr("\x1b")));
    std::istringstream text{enter("sensors watch --every 0.1 --count 3 --json").out};
    size_t count = 0;
    for (std::string line; std::getline(text, line); ++count)
        EXPECT_EQ(parseJson(line)["keys"], 14);
    EXPECT_EQ(count, 3u);
    for (const std::string never : {"0", "-nan", "86401", "1s", "''"})
        EXPECT_EQ(enter("sensors watch --count 1 --every " + never).code, 2) << never;
}

TEST_F(Sensors, AreWatchedInPlaceOnATerminalUntilInterrupted)
{
    const Words line = {"env", "NO_COLOR=1", m_command, "sensors", "watch", "--every", "0.1"};
    Terminal terminal{line, {30, 60, 0, 0}};
    terminal.shows("Keys", 3);
    terminal.type("\x03");
    const std::string text = terminal.all();
    EXPECT_EQ(terminal.code(), 0);
    EXPECT_THAT(text, HasSubstr("\x1b[J\r\x1b[12A"));  // back over the twelve lines of the page
    EXPECT_THAT(text, HasSubstr("42.0 °C\x1b[K\r\n")); // and each of them cleared
    EXPECT_TRUE(text.ends_with("\r\x1b[K"));

    // A page that does not fit is cut and not scrolled.
    Words twice = line;
    twice.insert(twice.end(), {"--count", "2"});
    Terminal low{twice, {5, 60, 0, 0}};
    const std::string cut = low.all();
    EXPECT_EQ(low.code(), 0);
    EXPECT_EQ(std::count(cut.begin(), cut.end(), '\n'), 8);
    EXPECT_THAT(cut, HasSubstr("\x1b[J\r\x1b[4A"));
}

TEST_F(Sensors, WithoutThemTheMachineIsTheWrongOne)
{
    setenv("KIV_BROKEN_CONTROLLER", "1", 1);
    expect({{"sensors show", 4, "does not answer (KIVCS2STATUS_DATA_ERR 0x80000004)\n"}});
    unsetenv("KIV_BROKEN_CONTROLLER");
    if (fs::exists("/sys/bus/platform/drivers/applesmc"))
        GTEST_SKIP() << "this machine has a controller";
    m_command = KIV_COMMAND;
    const char *const none =
        "kivcs2: no sensors: there is no system management controller, or only root may ask it "
        "(KIVCS2STATUS_NOT_FOUND_ERR 0x80000006)\n";
    expect({{"sensors show", 5, none}, {"sensors watch", 5, none}});
}

} // namespace
