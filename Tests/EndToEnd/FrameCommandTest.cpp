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
const std::string kPixel = " --width 1 --height 1 --format rgba";

std::string bytes(std::initializer_list<int> values)
{
    return {values.begin(), values.end()};
}

class FrameCommand : public Command
{
protected:
    // Returns the output of a line of `frame`.
    std::string made(const std::string &line, const std::string &input = "") const
    {
        const Result result = enter("frame " + line, input);
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out;
    }
};

// The values of ITU-R BT.801 and of the SMPTE patterns, in 8 and in 10 bits.
TEST_F(FrameCommand, MakesBarsOfDocumentedValues)
{
    struct Point
    {
        double x, y; // fractions of the picture
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

        // The same in 10 bits, four times as fine: without the two low bits it is at most one step less.
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

TEST_F(FrameCommand, MakesPicturesToLookAt)
{
    // The matrix depends on the size, and the last pixel has the colour of its bar.
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
    // Except for that pixel, the picture equals the conversion of the library.
    const std::string bars = made("bars -" + kSD);
    const PngPicture whole{made("png - -" + kSD, bars)};
    const std::string rgba = made("convert - - --to rgba" + kSD, bars);
    size_t others = 0;
    for (size_t pixel = 0; pixel < size_t{720} * 486; ++pixel)
        if (pixel % 720 != 719)
            others += std::memcmp(rgba.data() + pixel * 4, whole.pixels.data() + pixel * 4, 4) != 0 ? 1 : 0;
    EXPECT_EQ(others, 0u);

    // Alpha only on request; the second of two frames, from a file and from a pipe.
    const std::string frames = bytes({1, 2, 3, 4, 9, 8, 7, 0});
    write("file", frames);
    for (const std::string source : {"file", "-"})
        for (const auto &[options, alpha] : {std::pair{"", uint8_t{255}}, {" --alpha", uint8_t{0}}})
            EXPECT_EQ(PngPicture{made("png " + source + " - --frame 1" + kPixel + options, frames)}.at(0, 0),
                      (Pixel{9, 8, 7, alpha}));
}

TEST_F(FrameCommand, DrawsAFrameInTheTerminal)
{
    // Outside a terminal in characters: white is the brightest, and black is blank.
    const Result drawn = enter("frame bars --pattern ebu100 --show" + kSD);
    EXPECT_EQ(drawn.code, 0) << drawn.err;
    EXPECT_THAT(drawn.out, StartsWith("@@@"));
    EXPECT_EQ(std::count(drawn.out.begin(), drawn.out.end(), '\n'),
              37); // 100 columns of 4:3, two rows for each line
    Words words = wordsOf("frame clear --width 8 --height 4 --format 2vuy --colour white --show");
    words.insert(words.begin(), KIV_COMMAND);
    Terminal terminal{words, {5, 8, 0, 0}};
    EXPECT_EQ(terminal.code(), 0);
    EXPECT_THAT(terminal.all(), HasSubstr("\x1b[38;2;255;255;255m"));
}

// Ten times the frames take no more memory.
TEST_F(FrameCommand, KeepsOneFrameInMemory)
{
    const std::string video = " --video '720p50 10 Bit'";
    std::vector<long> kilobytes;
    for (const size_t frames : {3u, 30u})
    {
        made("bars long --frames " + std::to_string(frames) + video);
        const Result result = enter("frame convert long out --to rgba --json" + video);
        ASSERT_EQ(result.code, 0) << result.err;
        EXPECT_EQ(parseJson(result.out)["frames"], frames);
        EXPECT_EQ(fs::file_size(path("out")), frames * 1280 * 720 * 4);
        kilobytes.push_back(result.kilobytes);
    }
    if (!keepsFreedMemory())
    {
        EXPECT_LT(kilobytes[1], kilobytes[0] + 30000); // the frames are 100 MB more
    }
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
