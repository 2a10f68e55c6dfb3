// kivcs2 curve and kivcs2 codec as a user runs them.
#include "CommandRun.h"
#include "PngPicture.h"

#include <fcntl.h>

#include <cmath>
#include <set>

namespace
{

using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST_F(Command, ListsTheCurves)
{
    const Json curves = document("curve list");
    ASSERT_EQ(curves.size(), 13u);
    for (size_t code = 0; code < curves.size(); ++code)
    {
        EXPECT_EQ(curves[code]["code"], code);
        EXPECT_EQ(curves[code]["executes"], code > 0);
    }
    EXPECT_EQ(curves[1]["name"], "QuadraticIn");
    EXPECT_EQ(curves[1]["quarters"], (Json{0.0, 0.0625, 0.25, 0.5625, 1.0}));
    EXPECT_GT(curves[7]["quarters"][0], 0.0009);
    expect({{"curve list", 0, "   7  ExpIn           0.000976  0.005524"}});
}

TEST_F(Command, RunsASequence)
{
    const struct
    {
        const char *steps;
        std::vector<double> values;
    } rows[] = {
        {"QuadraticIn:5:0:100 hold:0.08s", {0, 6.25, 25, 56.25, 100, 100, 100}},
        {"cubic-out:2:-1:1e3 2:0.1s:5:6 --rate 30", {-1, 1000, 5, 5.75, 6}},
        {"QUADRATICIN:2:0:1 --looped --frames 5", {0, 1, 0, 1, 0}},
        {"QuadraticIn:2:0:1 --frames 4", {0, 1, 1, 1}},
    };
    for (const auto &row : rows)
    {
        std::vector<double> values;
        for (const Json &frame : document(std::string{"curve run "} + row.steps))
            values.push_back(frame["value"].get<double>());
        EXPECT_EQ(values, row.values) << row.steps;
    }
    std::string tooMany = "curve run";
    for (int step = 0; step < 17; ++step)
        tooMany += " hold:1";
    expect({
        {"curve run QuadraticOut:1:0:1 hold:1 --frames 3", 0,
         "Frame  Step         Value\n    0     1           nan\n    1     2           nan\n    2     -       "
         "    nan\n"},
        {"curve run Linear:2:0:1", 2,
         "Linear:2:0:1: the step does not execute (KIVCS2STATUS_PARAM_ERR 0x80000001)"},
        {"curve run Bounce:2:0:1", 2, "\"Bounce\" is no curve"},
        {"curve run 13:2:0:1", 2, "\"13\" is no curve"},
        {"curve run SinIn:2:0", 2, "CURVE:LENGTH:START:END"},
        {"curve run hold:2:0:1", 2, "hold:LENGTH"},
        {"curve run SinIn:0:0:1", 2, "takes 1 to 10000000 frames"},
        {"curve run SinIn:1.5:0:1", 2, "takes 1 to 10000000 frames"},
        {"curve run hold:0.03s", 2, "takes 1 to 10000000 frames"},
        {"curve run hold:-0.04s", 2, "takes 1 to 10000000 frames"},
        {"curve run hold:1e300s", 2, "takes 1 to 10000000 frames"},
        {"curve run hold:nans", 2, "\"nan\" is no number"},
        {"curve run SinIn:2:0:inf", 2, "\"inf\" is no number"},
        {"curve run SinIn:2:0:1x", 2, "\"1x\" is no number"},
        {tooMany, 2, "at most 16 steps"},
        {"curve run hold:1 --rate 26", 2, "26"},
    });
}

TEST_F(Command, PlotsCurvesInCharacters)
{
    const std::string all = enter("curve plot").out;
    for (const char *name : {"Linear", "QuadraticIn ", "CubicOut", "ExpInOut", "SinInOut"})
        EXPECT_THAT(all, HasSubstr(name));
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 24); // a terminal's height

    // From the lower left corner to the upper right one, at any steepness.
    for (const std::string name : {"Linear", "CubicIn", "9"})
    {
        std::istringstream lines{enter("curve plot " + name).out};
        std::string line, top, bottom;
        while (std::getline(lines, line))
        {
            top = line.find("1.0") == 0 ? line : top;
            bottom = line.find("0.0") == 0 ? line : bottom;
        }
        EXPECT_THAT(bottom, testing::StartsWith("0.0 ┤\xE2")) << name;
        EXPECT_THAT(bottom, Not(testing::StartsWith("0.0 ┤⠀"))) << name;
        EXPECT_THAT(top, Not(testing::EndsWith("⠀"))) << name;
    }
    EXPECT_EQ(enter("curve plot --json").code, 2); // a program would not read characters
}

// Where the curves are drawn, and only there.
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

    // A refusal leaves the picture that is there.
    expect({{"curve png curves.png --side 63", 2},
            {"curve plot Bounce", 2},
            {"curve png curves.png Bounce", 2},
            {"curve png nowhere/curves.png", 4}});
    EXPECT_EQ(slurp(path("curves.png")), file);
    const int full = open("/dev/full", O_WRONLY);
    EXPECT_EQ(run({"curve", "png", "-"}, "", full).code, 4);
    close(full);
    EXPECT_THAT(files(), ElementsAre("curves.png"));
}

TEST_F(Command, ListsShowsAndUnpacksCodecs)
{
    const Json codecs = document("codec list");
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
    for (const std::string wanted : {"'ProRes 422 (HQ)'", "apch", "0x61706368", "1634755432"})
    {
        const Json shown = document("codec show " + wanted + " --format 1080i25");
        EXPECT_EQ(shown["characters"], "apch") << wanted;
        EXPECT_EQ(shown["sampleSize"], 1050000);
        EXPECT_EQ(shown["bytesPerSecond"], 26250000.0);
    }
    EXPECT_EQ(document("codec show dvc")["name"], "DV NTSC"); // a space behind

    const Json unpacked = document("codec unpack AVdn 0x01ff0a27 42949");
    EXPECT_EQ(unpacked[0],
              (Json{{"code", "0x4156646e"}, {"characters", "AVdn"}, {"swapped", "ndVA"}, {"name", "DNxHD"}}));
    EXPECT_EQ(unpacked[1]["characters"], "\\x01\\xff\\x0a'");
    EXPECT_TRUE(unpacked[1]["name"].is_null());
    EXPECT_EQ(unpacked[2]["code"], "0x0000a7c5");
    expect(
        {{"codec list", 0, "DV NTSC              dvc         0x64766320  120000"},
         {"codec show v210 --format '525i29.97 10 Bit'", 0,
          "Name           Uncompressed 10-bit\nCode           0x76323130 'v210'\n"
          "Format         525i29.97 10 Bit\nLargest frame  933120 bytes\nAt most        28.0 MB a second\n"},
         {"codec show 'prores 423'", 1, "KIVCS2STATUS_PARAM_ERR"},
         {"codec show v210 --format 1080i26", 2},
         {"codec unpack ''", 2},
         {"codec unpack 0x", 2},
         {"codec unpack 0x1ffffffff", 2},
         {"codec unpack 4294967296", 2},
         {"codec unpack abcde", 2},
         {"codec unpack 0xfg", 2}});
}

} // namespace
