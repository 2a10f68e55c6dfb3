// kivcs2 frame as a user runs it, and the example that makes a picture of a frame.
#include "CommandRun.h"
#include "PngPicture.h"

#include <pty.h>
#include <sys/ioctl.h>

#include <cstring>

namespace
{

using kiv::test::Command;
using kiv::test::Json;
using kiv::test::parseJson;
using kiv::test::Pixel;
using kiv::test::PngPicture;
using kiv::test::Result;
using kiv::test::slurp;
using kiv::test::Words;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
namespace fs = std::filesystem;

const Words kSD = {"--video", "525i29.97"};

std::string bytes(std::initializer_list<int> values)
{
    return {values.begin(), values.end()};
}

class FrameCommand : public Command
{
protected:
    // The command's answer to `frame` and the words; what it writes when it succeeds.
    std::string made(Words words, const Words &layout, const std::string &input = "") const
    {
        words.insert(words.begin(), "frame");
        words.insert(words.end(), layout.begin(), layout.end());
        const Result result = run(words, input);
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out;
    }

    PngPicture picture(const std::string &frames, Words layout) const
    {
        return PngPicture{made({"png", "-", "-"}, layout, frames)};
    }

    static Words sized(int width, int height, const std::string &format)
    {
        return {"--width", std::to_string(width), "--height", std::to_string(height), "--format", format};
    }
};

TEST_F(FrameCommand, RefusesWhatMakesNoSense)
{
    const std::string file = write("odd", std::string(17, 'x')); // a frame of 2 x 2 in RGBA and a byte
    const std::string good = write("good", std::string(16, 'x'));
    struct Row
    {
        Words arguments;
        int code;
        std::string err;
    };
    const Row rows[] = {
        {{"info", file}, 2, "raw frames do not tell their size"},
        {{"info", file, "--video", "1080i26"}, 2, "no video format is named \"1080i26\""},
        {{"info", file, "--video", "525i29.97", "--width", "3"}, 2, "--width"},
        {{"info", file, "--width", "16385"}, 2, "--width"},
        {{"info", file, "--format", "nv12"}, 2, "there are v210, 2vuy, yuvs, rgba, bgra, argb, rgb"},
        {{"info", good, "RGBA", "--row-bytes", "7"}, 2, "the pixels of a row take 8 bytes"},
        {{"info", good, "RGBA", "--show", "--json"}, 2, "taken by the picture"},
        {{"convert", good, "RGBA", "--to", "rgb"}, 2, "target or --show"},
        {{"convert", good, "-", "RGBA", "--to", "2vuy"}, 5, "no conversion leads from rgba to 2vuy"},
        {{"convert", file, "-", "RGBA", "--to", "rgb"},
         3,
         "odd: is 1 frame and 1 byte more; a frame of 2 x 2"},
        {{"convert", good, good, "RGBA", "--to", "rgb"}, 2, "is the source itself"},
        {{"png", good, good, "RGBA"}, 2, "is the source itself"},
        {{"convert", "/nowhere", "-", "RGBA", "--to", "rgb"}, 4, "/nowhere: No such file"},
        {{"convert", good, "/nowhere/x", "RGBA", "--to", "rgb"}, 4, "/nowhere/x: No such file"},
        {{"convert", "-", "-", "RGBA", "--to", "rgb"}, 3, "standard input: is empty"},
        {{"scale", good, "-", "RGBA", "--size", "2x1"}, 2, "2 x 2 smaller, in both directions"},
        {{"scale", good, "-", "RGBA", "--size", "1x"}, 2, "not a size"},
        {{"png", good, "-", "RGBA", "--frame", "1"}, 1, "1 frame; there is no frame 1"},
        {{"clear", "-", "--width", "6", "--height", "1", "--format", "v210"}, 5, "2vuy and RGB"},
        {{"clear", "-", "RGBA", "--colour", "red"}, 2, "red"},
    };
    for (const Row &row : rows)
    {
        Words words{"frame"};
        for (const std::string &word : row.arguments)
            if (word == "RGBA")
                for (const std::string &one : sized(2, 2, "rgba"))
                    words.push_back(one);
            else
                words.push_back(word);
        SCOPED_TRACE(testing::PrintToString(words));
        const Result result = run(words);
        EXPECT_EQ(result.code, row.code);
        EXPECT_THAT(result.out, StartsWith(words.back() == "--json" ? "{\"error\":" : ""));
        EXPECT_EQ(result.out.empty(), words.back() != "--json");
        EXPECT_THAT(result.err, StartsWith("kivcs2: "));
        EXPECT_THAT(result.err, HasSubstr(row.err));
    }
    EXPECT_THAT(files(), testing::UnorderedElementsAre("odd", "good"));
}

TEST_F(FrameCommand, TellsWhatAFileHolds)
{
    const std::string file = path("bars").string();
    made({"bars", file, "--frames", "3"}, {"--video", "625i25 10 Bit"});
    const Json info = json({"frame", "info", file, "--video", "625i25 10 Bit"});
    EXPECT_EQ(info, (Json{{"file", file},
                          {"bytes", 3 * 1920 * 576},
                          {"frames", 3},
                          {"bytesLeftOver", 0},
                          {"width", 720},
                          {"height", 576},
                          {"format", "v210"},
                          {"rowBytes", 1920},
                          {"frameBytes", 1920 * 576},
                          {"seconds", 0.12}}));
    fs::resize_file(file, 1920 * 576 + 5);
    EXPECT_EQ(json({"frame", "info", file, "--video", "625i25 10 Bit"}, 3)["bytesLeftOver"], 5);
    EXPECT_THAT(run({"frame", "info", "-", "--video", "625i25 10 Bit"}, slurp(file)).out,
                HasSubstr("Left over  5 bytes"));
    // Showing a frame takes none from those that are counted, and the input may stand behind its start.
    const Words shown = {"frame", "info",     "-",    "--width", "2",       "--height",
                         "2",     "--format", "rgba", "--show",  "--frame", "1"};
    const std::string frames(3 * 16 + 5, 'x');
    EXPECT_THAT(run(shown, frames).out, HasSubstr("Frames     3\n"));
    const Result later = run(shown, frames, -1, 37);
    EXPECT_EQ(later.code, 1);
    EXPECT_THAT(later.out, HasSubstr("standard input, 16 bytes"));
    EXPECT_THAT(later.err, HasSubstr("there is no frame 1"));
}

// The values that ITU-R BT.801 and the SMPTE patterns have, in 8 bits and in 10.
TEST_F(FrameCommand, MakesBarsOfDocumentedValues)
{
    struct Point
    {
        double x, y; // of the picture
        std::array<int, 3> components;
    };
    const struct
    {
        const char *pattern, *video;
        size_t width;
        std::vector<Point> points;
    } rows[] = {
        {"ebu75",
         "525i29.97",
         720,
         {{0.03, 0.5, {235, 128, 128}},
          {0.16, 0.5, {162, 44, 142}},
          {0.28, 0.5, {131, 156, 44}},
          {0.41, 0.5, {112, 72, 58}},
          {0.53, 0.5, {84, 184, 198}},
          {0.66, 0.5, {65, 100, 212}},
          {0.78, 0.5, {35, 212, 114}},
          {0.99, 0.99, {16, 128, 128}}}},
        {"ebu100", "625i25", 720, {{0.16, 0.5, {210, 16, 146}}}},
        {"ebu75", "720p50", 1280, {{0.16, 0.5, {168, 44, 136}}}},
        {"smpte",
         "525i29.97",
         720,
         {{0.05, 0.9, {16, 158, 95}},
          {0.45, 0.9, {16, 175, 149}},
          {0.74, 0.9, {7, 128, 128}},
          {0.05, 0.7, {35, 212, 114}}}},
        {"smpte",
         "1080i25",
         1920,
         {{0.05, 0.1, {104, 128, 128}},
          {0.05, 0.62, {188, 154, 16}},
          {0.5, 0.7, {126, 128, 128}},
          {0.605, 0.99, {12, 128, 128}},
          {0.675, 0.99, {20, 128, 128}}}},
    };
    for (const auto &row : rows)
    {
        const Words words = {"bars", "-", "--pattern", row.pattern};
        const std::string eight = made(words, {"--video", row.video});
        const size_t height = eight.size() / row.width / 2;
        for (const Point &point : row.points)
        {
            const auto pair = static_cast<size_t>(point.x * static_cast<double>(row.width) / 2);
            const auto line = static_cast<size_t>(point.y * static_cast<double>(height));
            const size_t first = line * row.width * 2 + pair * 4;
            ASSERT_LE(first + 4, eight.size());
            const auto *found = reinterpret_cast<const uint8_t *>(eight.data()) + first;
            EXPECT_THAT((std::array<int, 3>{found[1], found[0], found[2]}), testing::Eq(point.components))
                << row.pattern << " " << row.video << " at " << point.x << ", " << point.y;
        }

        // The same in 10 bits, four times as fine: dropping the two low bits is at most one step below.
        const Words ten = {"--video", std::string{row.video} + " 10 Bit"};
        const std::string back = made({"convert", "-", "-", "--to", "2vuy"}, ten, made(words, ten));
        ASSERT_EQ(back.size(), eight.size());
        for (size_t index = 0; index < eight.size(); ++index)
        {
            const int below = static_cast<uint8_t>(eight[index]) - static_cast<uint8_t>(back[index]);
            ASSERT_TRUE(below == 0 || below == 1) << row.pattern << " " << row.video << " byte " << index;
        }
    }
}

// Every way between the pixel formats, by a picture of 3 x 1: an odd width, and colours that tell bytes
// apart.
TEST_F(FrameCommand, ConvertsAndScalesByTheLibrary)
{
    const std::string yuv = bytes({90, 81, 240, 235, 128, 16, 128, 235});
    const std::string grey = bytes({128, 126, 128, 126});
    const std::string red = bytes({254, 0, 0});
    const auto convert = [&](const std::string &frame, const std::string &from, const std::string &to) {
        return made({"convert", "-", "-", "--to", to}, sized(3, 1, from), frame);
    };
    const std::string rgba = convert(yuv, "2vuy", "rgba");
    ASSERT_EQ(rgba.size(), 12u);
    EXPECT_EQ(rgba.substr(0, 3), red);
    EXPECT_EQ(rgba[3], '\xff');
    EXPECT_EQ(convert(convert(yuv, "2vuy", "yuvs"), "yuvs", "rgba"), rgba);
    EXPECT_EQ(convert(yuv, "2vuy", "yuvs").substr(0, 4), bytes({81, 90, 235, 240}));
    const std::string argb = convert(rgba, "rgba", "argb");
    EXPECT_EQ(argb.substr(0, 4), bytes({255, 254, 0, 0}));
    const std::string bgra = convert(argb, "argb", "bgra");
    EXPECT_EQ(bgra.substr(0, 4), bytes({0, 0, 254, 255}));
    EXPECT_EQ(convert(convert(bgra, "bgra", "rgb"), "rgb", "rgba"), rgba);
    EXPECT_EQ(convert(convert(yuv, "2vuy", "rgb"), "rgb", "argb"), argb);

    // Pixels 0 and 2 of four, rows 0 and 1 of three; rows of the source have two bytes of padding.
    std::string rows;
    for (int row = 0; row < 3; ++row)
        for (int byte = 0; byte < 18; ++byte)
            rows += static_cast<char>(byte < 16 ? row * 16 + byte : 0xEE);
    Words layout = sized(4, 3, "argb");
    layout.insert(layout.end(), {"--row-bytes", "18"});
    EXPECT_EQ(made({"scale", "-", "-", "--size", "2x2"}, layout, rows),
              bytes({0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 24, 25, 26, 27}));
    EXPECT_EQ(
        made({"scale", "-", "-", "--size", "1x1"}, sized(2, 2, "2vuy"), bytes({128, 126, 128, 126}) + grey),
        bytes({128, 128, 128}));

    // Every odd line is the one above; a last line without partner stays. Frame by frame.
    const std::string lines = "aaaabbbbccccddddeeeeffff";
    EXPECT_EQ(made({"deinterlace", "-", "-"}, sized(1, 3, "rgba"), lines), "aaaaaaaaccccddddddddffff");

    EXPECT_EQ(made({"clear", "-", "--colour", "white", "--frames", "2"}, sized(1, 1, "rgba")),
              bytes({255, 255, 255, 0, 255, 255, 255, 0}));
    EXPECT_EQ(made({"clear", "-", "--colour", "white"}, sized(1, 1, "argb")), bytes({0, 255, 255, 255}));
    EXPECT_EQ(made({"clear", "-"}, sized(2, 1, "2vuy")), bytes({128, 16, 128, 16}));
    // A last odd pixel has the chroma of its pair too.
    EXPECT_EQ(made({"clear", "-"}, sized(3, 1, "yuvs")), bytes({16, 128, 16, 128, 16, 128, 16, 128}));
}

TEST_F(FrameCommand, MakesPicturesToLookAt)
{
    // The matrix follows the size, and the last pixel has the colour of its bar.
    const struct
    {
        const char *video;
        uint32_t width, height;
        Pixel yellow, black;
    } rows[] = {{"525i29.97 10 Bit", 720, 486, {191, 191, 0, 255}, {0, 0, 0, 255}},
                {"720p50 10 Bit", 1280, 720, {191, 191, 0, 255}, {0, 0, 0, 255}},
                {"720p50 RGBA", 1280, 720, {191, 191, 0, 255}, {0, 0, 0, 255}}};
    for (const auto &row : rows)
    {
        const Words layout = {"--video", row.video};
        const PngPicture picture = this->picture(made({"bars", "-", "--pattern", "ebu75"}, layout), layout);
        ASSERT_EQ(std::pair(picture.width, picture.height), std::pair(row.width, row.height));
        const Pixel found = picture.at(row.width / 5, row.height / 2);
        for (size_t index = 0; index < 4; ++index)
            EXPECT_NEAR(found[index], row.yellow[index], 1) << row.video;
        EXPECT_EQ(picture.at(row.width - 1, 0), row.black) << row.video;
        EXPECT_EQ(picture.at(row.width - 1, row.height - 1), row.black) << row.video;
    }
    // But for that pixel, what the library converts.
    const std::string bars = made({"bars", "-"}, kSD);
    const PngPicture whole = picture(bars, kSD);
    const std::string rgba = made({"convert", "-", "-", "--to", "rgba"}, kSD, bars);
    size_t others = 0;
    for (size_t pixel = 0; pixel < size_t{720} * 486; ++pixel)
        if (pixel % 720 != 719)
            others += std::memcmp(rgba.data() + pixel * 4, whole.pixels.data() + pixel * 4, 4) != 0 ? 1 : 0;
    EXPECT_EQ(others, 0u);

    // Alpha only where it is asked for; the second frame of two, from a file and from a pipe.
    const std::string frames = bytes({1, 2, 3, 4, 9, 8, 7, 0});
    const std::string file = write("frames", frames);
    for (const std::string &source : {file, std::string{"-"}})
    {
        const Words layout = sized(1, 1, "rgba");
        EXPECT_EQ(PngPicture{made({"png", source, "-", "--frame", "1"}, layout, frames)}.at(0, 0),
                  (Pixel{9, 8, 7, 255}));
        EXPECT_EQ(PngPicture{made({"png", source, "-", "--frame", "1", "--alpha"}, layout, frames)}.at(0, 0),
                  (Pixel{9, 8, 7, 0}));
    }
}

TEST_F(FrameCommand, DrawsAFrameInTheTerminal)
{
    // Elsewhere in characters: white is the brightest, and black is left away.
    const Result drawn = run({"frame", "bars", "--video", "525i29.97", "--pattern", "ebu100", "--show"});
    EXPECT_EQ(drawn.code, 0) << drawn.err;
    EXPECT_THAT(drawn.out, StartsWith("@@@"));
    EXPECT_EQ(std::count(drawn.out.begin(), drawn.out.end(), '\n'),
              37); // 100 columns of 4:3, two rows a line

    int terminal = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&terminal, &slave, nullptr, nullptr, nullptr), 0);
    const winsize size{5, 8, 0, 0};
    ASSERT_EQ(ioctl(slave, TIOCSWINSZ, &size), 0);
    EXPECT_EQ(run({"frame", "clear", "--width", "8", "--height", "4", "--format", "2vuy", "--colour", "white",
                   "--show"},
                  "", slave)
                  .code,
              0);
    char text[512];
    const ssize_t got = read(terminal, text, sizeof text);
    ASSERT_GT(got, 0);
    EXPECT_THAT(std::string(text, static_cast<size_t>(got)), HasSubstr("\x1b[38;2;255;255;255m"));
    close(slave);
    close(terminal);
}

// Ten times the frames take no more memory, and the file is whole or not there.
TEST_F(FrameCommand, KeepsOneFrameInMemory)
{
    const Words video = {"--video", "720p50 10 Bit"};
    [[maybe_unused]] long kilobytes[2] = {};
    for (const size_t tenfold : {0u, 1u})
    {
        const std::string file = path("long").string();
        made({"bars", file, "--frames", tenfold != 0 ? "30" : "3"}, video);
        const Result result = run({"frame", "convert", file, path("out").string(), "--to", "rgba", "--json",
                                   "--video", "720p50 10 Bit"});
        ASSERT_EQ(result.code, 0) << result.err;
        EXPECT_EQ(parseJson(result.out)["frames"], tenfold != 0 ? 30 : 3);
        EXPECT_EQ(fs::file_size(path("out")), (tenfold != 0 ? 30u : 3u) * 1280 * 720 * 4);
        kilobytes[tenfold] = result.kilobytes;
    }
#ifndef __SANITIZE_ADDRESS__                       // which keeps freed memory back
    EXPECT_LT(kilobytes[1], kilobytes[0] + 30000); // the frames are 100 MB more
#endif

    // An input that ends inside a frame leaves the target as it was.
    const std::string target = write("target", "before");
    const Result cut = run(
        {"frame", "convert", "-", target, "--to", "rgb", "--width", "1", "--height", "1", "--format", "rgba"},
        "123456");
    EXPECT_EQ(cut.code, 3);
    EXPECT_THAT(cut.err, HasSubstr("standard input: is 1 frame and 2 bytes more"));
    EXPECT_EQ(slurp(target), "before");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("long", "out", "target"));
}

#ifdef KIV_EXAMPLE_PNG
TEST_F(FrameCommand, IsAPictureByTheExampleToo)
{
    const std::string frame =
        write("frame", made({"bars", "-", "--pattern", "ebu75"}, {"--video", "525i29.97 10 Bit"}));
    const std::string target = path("frame.png").string();
    m_command = KIV_EXAMPLE_PNG;
    ASSERT_EQ(run({frame, "720", "486", target}).code, 0);
    const std::string file = slurp(target);
    EXPECT_THAT(file, StartsWith("\x89PNG\r\n\x1a\n"));
    const PngPicture picture{file};
    EXPECT_EQ(std::pair(picture.width, picture.height), std::pair(720u, 486u));
    const Pixel white = picture.at(10, 10);
    EXPECT_THAT(white, ElementsAre(255, 255, 255, 255));
    EXPECT_EQ(picture.at(130, 240)[2], 0); // yellow has no blue

    EXPECT_THAT(run({frame, "720", "487", target}).err, HasSubstr("ends after 486 of 487 rows"));
    EXPECT_EQ(run({frame, "0", "486", target}).code, 2);
    EXPECT_EQ(run({frame, "720", "486", "/nowhere/x.png"}).code, 1);
}
#endif

} // namespace
