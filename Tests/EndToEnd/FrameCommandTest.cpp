// kivcs2 frame as a user runs it, and the example that makes a picture of a frame.
#include "PngPicture.h"
#include "Terminal.h"

#include <cstring>

namespace
{

using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kSD = " --video 525i29.97";
const std::string kRGBA = " --width 2 --height 2 --format rgba";
const std::string kPixel = " --width 1 --height 1 --format rgba";

std::string bytes(std::initializer_list<int> values)
{
    return {values.begin(), values.end()};
}

class FrameCommand : public Command
{
protected:
    // What a line of `frame` writes.
    std::string made(const std::string &line, const std::string &input = "") const
    {
        const Result result = enter("frame " + line, input);
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out;
    }
};

TEST_F(FrameCommand, RefusesWhatMakesNoSense)
{
    write("odd", std::string(17, 'x')); // a frame of 2 x 2 in RGBA and a byte
    write("good", std::string(16, 'x'));
    expect({
        {"frame info odd", 2, "raw frames do not tell their size"},
        {"frame info odd --video 1080i26", 2, "no video format is named \"1080i26\""},
        {"frame info odd --video 525i29.97 --width 3", 2, "--width"},
        {"frame info odd --width 16385", 2, "--width"},
        {"frame info odd --format nv12", 2, "there are v210, 2vuy, yuvs, rgba, bgra, argb, rgb"},
        {"frame info good --row-bytes 7" + kRGBA, 2, "the pixels of a row take 8 bytes"},
        {"frame info good --show" + kRGBA + " --json", 2, "taken by the picture"},
        {"frame convert good --to rgb" + kRGBA, 2, "target or --show"},
        {"frame convert good - --to 2vuy" + kRGBA, 5, "no conversion leads from rgba to 2vuy"},
        {"frame convert odd - --to rgb" + kRGBA, 3, "odd: is 1 frame and 1 byte more; a frame of 2 x 2"},
        {"frame convert good good --to rgb" + kRGBA, 2, "is the source itself"},
        {"frame png good good" + kRGBA, 2, "is the source itself"},
        {"frame convert /nowhere - --to rgb" + kRGBA, 4, "/nowhere: No such file"},
        {"frame convert good /nowhere/x --to rgb" + kRGBA, 4, "/nowhere/x: No such file"},
        {"frame convert - - --to rgb" + kRGBA, 3, "standard input: is empty"},
        {"frame scale good - --size 2x1" + kRGBA, 2, "2 x 2 smaller, in both directions"},
        {"frame scale good - --size 1x" + kRGBA, 2, "not a size"},
        {"frame png good - --frame 1" + kRGBA, 1, "1 frame; there is no frame 1"},
        {"frame clear - --width 6 --height 1 --format v210", 5, "2vuy and RGB"},
        {"frame clear - --colour red" + kRGBA, 2, "red"},
    });
    EXPECT_THAT(enter("frame info good --show" + kRGBA + " --json").out, StartsWith("{\"error\":"));
    EXPECT_EQ(enter("frame convert odd - --to rgb" + kRGBA).out, "");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("odd", "good"));
}

TEST_F(FrameCommand, TellsWhatAFileHolds)
{
    const std::string video = " --video '625i25 10 Bit'";
    made("bars file --frames 3" + video);
    const Json info = document("frame info file" + video);
    EXPECT_EQ(info, (Json{{"file", "file"},
                          {"bytes", 3 * 1920 * 576},
                          {"frames", 3},
                          {"bytesLeftOver", 0},
                          {"width", 720},
                          {"height", 576},
                          {"format", "v210"},
                          {"rowBytes", 1920},
                          {"frameBytes", 1920 * 576},
                          {"seconds", 0.12}}));
    fs::resize_file(path("file"), 1920 * 576 + 5);
    EXPECT_EQ(document("frame info file" + video, 3)["bytesLeftOver"], 5);
    EXPECT_THAT(enter("frame info -" + video, slurp(path("file"))).out, HasSubstr("Left over  5 bytes"));
    // Showing a frame takes none from those that are counted, and the input may stand behind its start.
    const std::string shown = "frame info - --show --frame 1" + kRGBA, frames(3 * 16 + 5, 'x');
    EXPECT_THAT(enter(shown, frames).out, HasSubstr("Frames     3\n"));
    const Result later = run(wordsOf(shown), frames, -1, 37);
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
        std::string pattern, video;
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
        SCOPED_TRACE(row.pattern + " " + row.video);
        const std::string bars = "bars - --pattern " + row.pattern + " --video '" + row.video;
        const std::string eight = made(bars + "'");
        const size_t height = eight.size() / row.width / 2;
        for (const Point &point : row.points)
        {
            const auto pair = static_cast<size_t>(point.x * static_cast<double>(row.width) / 2);
            const auto line = static_cast<size_t>(point.y * static_cast<double>(height));
            const size_t first = line * row.width * 2 + pair * 4;
            ASSERT_LE(first + 4, eight.size());
            const auto *found = reinterpret_cast<const uint8_t *>(eight.data()) + first;
            EXPECT_THAT((std::array<int, 3>{found[1], found[0], found[2]}), testing::Eq(point.components))
                << point.x << ", " << point.y;
        }

        // The same in 10 bits, four times as fine: dropping the two low bits is at most one step below.
        const std::string ten = made(bars + " 10 Bit'");
        const std::string back = made("convert - - --to 2vuy --video '" + row.video + " 10 Bit'", ten);
        ASSERT_EQ(back.size(), eight.size());
        for (size_t index = 0; index < eight.size(); ++index)
        {
            const int below = static_cast<uint8_t>(eight[index]) - static_cast<uint8_t>(back[index]);
            ASSERT_TRUE(below == 0 || below == 1) << " byte " << index;
        }
    }
}

// Every way between the pixel formats, by a picture of 3 x 1: an odd width, and colours that tell bytes
// apart.
TEST_F(FrameCommand, ConvertsAndScalesByTheLibrary)
{
    const std::string yuv = bytes({90, 81, 240, 235, 128, 16, 128, 235});
    const auto convert = [&](const std::string &frame, const std::string &from, const std::string &to)
    { return made("convert - - --width 3 --height 1 --to " + to + " --format " + from, frame); };
    const std::string rgba = convert(yuv, "2vuy", "rgba");
    ASSERT_EQ(rgba.size(), 12u);
    EXPECT_EQ(rgba.substr(0, 4), bytes({254, 0, 0, 255}));
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
    const struct
    {
        const char *line;
        std::string input, output;
    } others[] = {
        {"scale - - --size 2x2 --width 4 --height 3 --format argb --row-bytes 18", rows,
         bytes({0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 24, 25, 26, 27})},
        {"scale - - --size 1x1 --width 2 --height 2 --format 2vuy",
         bytes({128, 126, 128, 126, 128, 126, 128, 126}), bytes({128, 128, 128})},
        // Every odd line is the one above; a last line without partner stays. Frame by frame.
        {"deinterlace - - --width 1 --height 3 --format rgba", "aaaabbbbccccddddeeeeffff",
         "aaaaaaaaccccddddddddffff"},
        {"clear - --colour white --frames 2 --width 1 --height 1 --format rgba", "",
         bytes({255, 255, 255, 0, 255, 255, 255, 0})},
        {"clear - --colour white --width 1 --height 1 --format argb", "", bytes({0, 255, 255, 255})},
        {"clear - --width 2 --height 1 --format 2vuy", "", bytes({128, 16, 128, 16})},
        // A last odd pixel has the chroma of its pair too.
        {"clear - --width 3 --height 1 --format yuvs", "", bytes({16, 128, 16, 128, 16, 128, 16, 128})},
    };
    for (const auto &row : others)
        EXPECT_EQ(made(row.line, row.input), row.output) << row.line;
}

TEST_F(FrameCommand, MakesPicturesToLookAt)
{
    // The matrix follows the size, and the last pixel has the colour of its bar.
    const struct
    {
        std::string video;
        uint32_t width, height;
    } rows[] = {{"525i29.97 10 Bit", 720, 486}, {"720p50 10 Bit", 1280, 720}, {"720p50 RGBA", 1280, 720}};
    constexpr Pixel kYellow = {191, 191, 0, 255}, kBlack = {0, 0, 0, 255};
    for (const auto &row : rows)
    {
        const std::string video = " --video '" + row.video + "'";
        const PngPicture picture{made("png - -" + video, made("bars - --pattern ebu75" + video))};
        ASSERT_EQ(std::pair(picture.width, picture.height), std::pair(row.width, row.height));
        const Pixel found = picture.at(row.width / 5, row.height / 2);
        for (size_t index = 0; index < 4; ++index)
            EXPECT_NEAR(found[index], kYellow[index], 1) << row.video;
        EXPECT_EQ(picture.at(row.width - 1, 0), kBlack) << row.video;
        EXPECT_EQ(picture.at(row.width - 1, row.height - 1), kBlack) << row.video;
    }
    // But for that pixel, what the library converts.
    const std::string bars = made("bars -" + kSD);
    const PngPicture whole{made("png - -" + kSD, bars)};
    const std::string rgba = made("convert - - --to rgba" + kSD, bars);
    size_t others = 0;
    for (size_t pixel = 0; pixel < size_t{720} * 486; ++pixel)
        if (pixel % 720 != 719)
            others += std::memcmp(rgba.data() + pixel * 4, whole.pixels.data() + pixel * 4, 4) != 0 ? 1 : 0;
    EXPECT_EQ(others, 0u);

    // Alpha only where it is asked for; the second frame of two, from a file and from a pipe.
    const std::string frames = bytes({1, 2, 3, 4, 9, 8, 7, 0});
    write("file", frames);
    for (const std::string source : {"file", "-"})
        for (const auto &[options, alpha] : {std::pair{"", uint8_t{255}}, {" --alpha", uint8_t{0}}})
            EXPECT_EQ(PngPicture{made("png " + source + " - --frame 1" + kPixel + options, frames)}.at(0, 0),
                      (Pixel{9, 8, 7, alpha}));
}

TEST_F(FrameCommand, DrawsAFrameInTheTerminal)
{
    // Elsewhere in characters: white is the brightest, and black is left away.
    const Result drawn = enter("frame bars --pattern ebu100 --show" + kSD);
    EXPECT_EQ(drawn.code, 0) << drawn.err;
    EXPECT_THAT(drawn.out, StartsWith("@@@"));
    EXPECT_EQ(std::count(drawn.out.begin(), drawn.out.end(), '\n'),
              37); // 100 columns of 4:3, two rows a line
    Words words = wordsOf("frame clear --width 8 --height 4 --format 2vuy --colour white --show");
    words.insert(words.begin(), KIV_COMMAND);
    Terminal terminal{words, {5, 8, 0, 0}};
    EXPECT_EQ(terminal.code(), 0);
    EXPECT_THAT(terminal.all(), HasSubstr("\x1b[38;2;255;255;255m"));
}

// Ten times the frames take no more memory, and the file is whole or not there.
TEST_F(FrameCommand, KeepsOneFrameInMemory)
{
    const std::string video = " --video '720p50 10 Bit'";
    [[maybe_unused]] std::vector<long> kilobytes;
    for (const size_t frames : {3u, 30u})
    {
        made("bars long --frames " + std::to_string(frames) + video);
        const Result result = enter("frame convert long out --to rgba --json" + video);
        ASSERT_EQ(result.code, 0) << result.err;
        EXPECT_EQ(parseJson(result.out)["frames"], frames);
        EXPECT_EQ(fs::file_size(path("out")), frames * 1280 * 720 * 4);
        kilobytes.push_back(result.kilobytes);
    }
    if (!kiv::test::keepsFreedMemory())
    {
        EXPECT_LT(kilobytes[1], kilobytes[0] + 30000); // the frames are 100 MB more
    }

    // An input that ends inside a frame leaves the target as it was.
    write("target", "before");
    expect({{"frame convert - target --to rgb" + kPixel, 3, "standard input: is 1 frame and 2 bytes more"}},
           "123456");
    EXPECT_EQ(slurp(path("target")), "before");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("long", "out", "target"));
}

#ifdef KIV_WITH_EXAMPLES
TEST_F(FrameCommand, IsAPictureByTheExampleToo)
{
    write("frame", made("bars - --pattern ebu75 --video '525i29.97 10 Bit'"));
    m_command = "example_v210_to_png";
    ASSERT_EQ(enter("frame 720 486 frame.png").code, 0);
    const std::string file = slurp(path("frame.png"));
    EXPECT_THAT(file, StartsWith("\x89PNG\r\n\x1a\n"));
    const PngPicture picture{file};
    EXPECT_EQ(std::pair(picture.width, picture.height), std::pair(720u, 486u));
    EXPECT_THAT(picture.at(10, 10), ElementsAre(255, 255, 255, 255)); // white
    EXPECT_EQ(picture.at(130, 240)[2], 0);                            // yellow has no blue

    EXPECT_THAT(enter("frame 720 487 frame.png").err, HasSubstr("ends after 486 of 487 rows"));
    EXPECT_EQ(enter("frame 0 486 frame.png").code, 2);
    EXPECT_EQ(enter("frame 720 486 /nowhere/x.png").code, 1);
}
#endif

} // namespace
