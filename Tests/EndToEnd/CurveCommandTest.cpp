// kivcs2 curve and kivcs2 codec as a user runs them.
#include "CommandRun.h"
#include "PngPicture.h"

#include <fcntl.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace
{

using kiv::test::Command;
using kiv::test::Json;
using kiv::test::Pixel;
using kiv::test::PngPicture;
using kiv::test::Result;
using kiv::test::Words;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr Pixel kPaper = {255, 255, 255, 255};

TEST_F(Command, ListsTheCurves)
{
    const Json curves = json({"curve", "list"});
    ASSERT_EQ(curves.size(), 13u);
    for (size_t code = 0; code < curves.size(); ++code)
    {
        EXPECT_EQ(curves[code]["code"], code);
        EXPECT_EQ(curves[code]["executes"], code > 0);
    }
    EXPECT_EQ(curves[1]["name"], "QuadraticIn");
    EXPECT_EQ(curves[1]["quarters"], (Json{0.0, 0.0625, 0.25, 0.5625, 1.0}));
    EXPECT_GT(curves[7]["quarters"][0], 0.0009);
    EXPECT_THAT(run({"curve", "list"}).out, HasSubstr("   7  ExpIn           0.000976  0.005524"));
}

TEST_F(Command, RunsASequence)
{
    const auto values = [this](Words arguments)
    {
        arguments.insert(arguments.begin(), {"curve", "run"});
        std::vector<double> result;
        for (const Json &row : json(arguments))
            result.push_back(row["value"].is_null() ? NAN : row["value"].get<double>());
        return result;
    };
    EXPECT_THAT(values({"QuadraticIn:5:0:100", "hold:0.08s"}),
                ElementsAre(0, 6.25, 25, 56.25, 100, 100, 100));
    EXPECT_THAT(values({"cubic-out:2:-1:1e3", "2:0.1s:5:6", "--rate", "30"}),
                ElementsAre(-1, 1000, 5, 5.75, 6));
    EXPECT_THAT(values({"QUADRATICIN:2:0:1", "--looped", "--frames", "5"}), ElementsAre(0, 1, 0, 1, 0));
    EXPECT_THAT(values({"QuadraticIn:2:0:1", "--frames", "4"}), ElementsAre(0, 1, 1, 1));
    EXPECT_EQ(run({"curve", "run", "QuadraticOut:1:0:1", "hold:1", "--frames", "3"}).out,
              "Frame  Step         Value\n"
              "    0     1           nan\n"
              "    1     2           nan\n"
              "    2     -           nan\n");

    const struct
    {
        Words steps;
        const char *error;
    } refused[] = {
        {{"Linear:2:0:1"}, "Linear:2:0:1: the step does not execute (KIVCS2STATUS_PARAM_ERR 0x80000001)"},
        {{"Bounce:2:0:1"}, "\"Bounce\" is no curve"},
        {{"13:2:0:1"}, "\"13\" is no curve"},
        {{"SinIn:2:0"}, "CURVE:LENGTH:START:END"},
        {{"hold:2:0:1"}, "hold:LENGTH"},
        {{"SinIn:0:0:1"}, "takes 1 to 10000000 frames"},
        {{"SinIn:1.5:0:1"}, "takes 1 to 10000000 frames"},
        {{"hold:0.03s"}, "takes 1 to 10000000 frames"},
        {{"hold:-0.04s"}, "takes 1 to 10000000 frames"},
        {{"hold:1e300s"}, "takes 1 to 10000000 frames"},
        {{"hold:nans"}, "\"nan\" is no number"},
        {{"SinIn:2:0:inf"}, "\"inf\" is no number"},
        {{"SinIn:2:0:1x"}, "\"1x\" is no number"},
        {Words(17, "hold:1"), "at most 16 steps"},
        {{"hold:1", "--rate", "26"}, "26"},
    };
    for (const auto &[steps, error] : refused)
    {
        Words words{"curve", "run"};
        words.insert(words.end(), steps.begin(), steps.end());
        const Result result = run(words);
        EXPECT_EQ(result.code, 2) << error;
        EXPECT_THAT(result.err, HasSubstr(error));
    }
}

TEST_F(Command, PlotsCurvesInCharacters)
{
    const std::string all = run({"curve", "plot"}).out;
    for (const char *name : {"Linear", "QuadraticIn ", "CubicOut", "ExpInOut", "SinInOut"})
        EXPECT_THAT(all, HasSubstr(name));
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 24); // a terminal's height

    // From the lower left corner to the upper right one, at any steepness.
    for (const char *name : {"Linear", "CubicIn", "9"})
    {
        std::istringstream lines{run({"curve", "plot", name}).out};
        std::string line, top, bottom;
        while (std::getline(lines, line))
        {
            top = line.find("1.0") == 0 ? line : top;
            bottom = line.find("0.0") == 0 ? line : bottom;
        }
        EXPECT_THAT(bottom, StartsWith("0.0 ┤\xE2")) << name;
        EXPECT_THAT(bottom, testing::Not(StartsWith("0.0 ┤⠀"))) << name;
        EXPECT_THAT(top, testing::Not(testing::EndsWith("⠀"))) << name;
    }
    EXPECT_EQ(run({"curve", "plot", "Bounce"}).code, 2);
    EXPECT_EQ(run({"curve", "plot", "--json"}).code, 2); // a program would not read characters
}

// Where the curves are drawn, and only there.
TEST_F(Command, DrawsCurvesAsAPicture)
{
    const std::string file = path("curves.png");
    ASSERT_EQ(run({"curve", "png", file, "SinOut", "--side", "161"}).code, 0);
    const PngPicture one{kiv::test::slurp(file)};
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

    EXPECT_EQ(run({"curve", "png", "-", "SinOut", "--side", "161"}).out, kiv::test::slurp(file));
    const PngPicture all{run({"curve", "png", "-", "--side", "64"}).out};
    EXPECT_EQ(all.width, 5u * (28 + 64 + 10));
    EXPECT_EQ(all.height, 3u * (20 + 64 + 20));
    EXPECT_EQ(run({"curve", "png", file, "--side", "63"}).code, 2);
}

TEST_F(Command, LeavesNoHalfPicture)
{
    EXPECT_EQ(run({"curve", "png", path("nowhere/curves.png").string()}).code, 4);
    const std::string target = write("curves.png", "an older one");
    EXPECT_EQ(run({"curve", "png", target, "Bounce"}).code, 2);
    EXPECT_EQ(kiv::test::slurp(target), "an older one");
    const int full = open("/dev/full", O_WRONLY);
    EXPECT_EQ(run({"curve", "png", "-"}, "", full).code, 4);
    close(full);
    EXPECT_THAT(files(), ElementsAre("curves.png"));
}

TEST_F(Command, ListsShowsAndUnpacksCodecs)
{
    const Json codecs = json({"codec", "list"});
    ASSERT_EQ(codecs.size(), 23u);
    std::set<std::string> names;
    for (const Json &codec : codecs)
        names.insert(codec["name"]);
    EXPECT_EQ(names.size(), 23u);
    EXPECT_EQ(
        codecs[15],
        (Json{{"name", "ProRes 422 (PROXY)"},
              {"code", "0x6170636f"},
              {"characters", "apco"},
              {"sampleSizes",
               {{"480", 196608}, {"486", 196608}, {"576", 229376}, {"720", 350000}, {"1080", 225000}}}}));
    EXPECT_THAT(run({"codec", "list"}).out, HasSubstr("DV NTSC              dvc         0x64766320  120000"));

    for (const char *wanted : {"ProRes 422 (HQ)", "apch", "0x61706368", "1634755432"})
    {
        const Json shown = json({"codec", "show", wanted, "--format", "1080i25"});
        EXPECT_EQ(shown["characters"], "apch") << wanted;
        EXPECT_EQ(shown["sampleSize"], 1050000);
        EXPECT_EQ(shown["bytesPerSecond"], 26250000.0);
    }
    EXPECT_EQ(json({"codec", "show", "dvc"})["name"], "DV NTSC"); // a space behind
    EXPECT_EQ(run({"codec", "show", "v210", "--format", "525i29.97 10 Bit"}).out,
              "Name           Uncompressed 10-bit\n"
              "Code           0x76323130 'v210'\n"
              "Format         525i29.97 10 Bit\n"
              "Largest frame  933120 bytes\n"
              "At most        28.0 MB a second\n");
    const Result unknown = run({"codec", "show", "prores 423"});
    EXPECT_EQ(unknown.code, 1);
    EXPECT_THAT(unknown.err, HasSubstr("KIVCS2STATUS_PARAM_ERR"));
    EXPECT_EQ(run({"codec", "show", "v210", "--format", "1080i26"}).code, 2);

    const Json unpacked = json({"codec", "unpack", "AVdn", "0x01ff0a27", "42949"});
    EXPECT_EQ(unpacked[0],
              (Json{{"code", "0x4156646e"}, {"characters", "AVdn"}, {"swapped", "ndVA"}, {"name", "DNxHD"}}));
    EXPECT_EQ(unpacked[1]["characters"], "\\x01\\xff\\x0a'");
    EXPECT_TRUE(unpacked[1]["name"].is_null());
    EXPECT_EQ(unpacked[2]["code"], "0x0000a7c5");
    for (const char *malformed : {"", "0x", "0x1ffffffff", "4294967296", "abcde", "0xfg"})
        EXPECT_EQ(run({"codec", "unpack", malformed}).code, 2) << malformed;
}

} // namespace
