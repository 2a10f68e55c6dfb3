// kivcs2 audio as a user runs it.
#include "CommandRun.h"

#include <csignal>
#include <sys/stat.h>

namespace
{

using kiv::test::Json;
using kiv::test::Result;
using kiv::test::slurp;
using kiv::test::Words;
using testing::HasSubstr;

class Audio : public kiv::test::Command
{
protected:
    // "kivcs2 audio convert" of `input`, channels and more words; "" when it fails.
    std::string convert(const std::string &input, const Words &more) const
    {
        Words words = {"audio", "convert", "-", "-"};
        words.insert(words.end(), more.begin(), more.end());
        const Result result = run(words, input);
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out;
    }
};

TEST_F(Audio, ShowsTheWeaveOfARate)
{
    const Json common = json({"audio", "weave"});
    ASSERT_EQ(common.size(), 16u);
    EXPECT_EQ(common[3]["weave"], (Json{1602, 1602, 1602, 1601, 1601}));
    const Json short80 = json({"audio", "weave", "23.98", "--samples", "44100"});
    ASSERT_EQ(short80.size(), 1u);
    EXPECT_EQ(short80[0]["frames"], 80);
    EXPECT_EQ(short80[0]["sum"], 147146);
    EXPECT_EQ(short80[0]["missed"], 1);
    EXPECT_THAT(run({"audio", "weave", "59.94"}).out, HasSubstr("801 x 4, 800 x 1"));
    EXPECT_EQ(run({"audio", "weave", "48"}).code, 2);
    EXPECT_EQ(run({"audio", "weave", "25", "--samples", "0"}).code, 2);
}

TEST_F(Audio, PacksAndDescribesCodes)
{
    EXPECT_THAT(run({"audio", "code", "--bytes", "4", "--used", "3"}).out, HasSubstr("0x0010011a"));
    const Json aac = json({"audio", "describe", "01000f86"});
    EXPECT_EQ(aac["encoding"], "aac ");
    EXPECT_EQ(aac["sampleRate"], 44100);
    EXPECT_EQ(aac["channels"], 16);
    EXPECT_EQ(aac["known"], true);
    EXPECT_EQ(json({"audio", "describe", "0x02000000"}, 1)["encoding"], nullptr);
    for (const Words &bad : {Words{"describe", "0x100000000"}, Words{"describe", "x"}, Words{"describe", ""},
                             Words{"code", "--channels", "17"}, Words{"code", "--bytes", "8"},
                             Words{"code", "--sample-rate", "96000"}, Words{"code", "--endian", "2"}})
    {
        Words words = {"audio"};
        words.insert(words.end(), bad.begin(), bad.end());
        EXPECT_EQ(run(words).code, 2) << bad[1];
    }
}

TEST_F(Audio, ConvertsThroughAPipe)
{
    const std::string input = "abcdefgh"; // s16: ab cd ef gh
    EXPECT_EQ(convert(input, {"--input", "s16le", "--channels", "2"}), input);
    EXPECT_EQ(convert(input, {"--input", "s16le", "--channels", "2", "--swap"}), "badcfehg");
    EXPECT_EQ(convert("ab", {"--input", "s16be", "--channels", "1", "--bits", "24"}), std::string("ab\0", 3));
    EXPECT_EQ(convert(input, {"--input", "s32le", "--channels", "1", "--bits", "16"}), "cdgh");
    EXPECT_EQ(convert(input, {"--input", "s16le", "--channels", "2", "--channel", "2"}), "cdgh");
    EXPECT_EQ(convert("\x80\x81", {"--input", "u8", "--channels", "1", "--bits", "16"}),
              std::string("\0\0\0\1", 4));
    EXPECT_EQ(convert("", {"--input", "s16le", "--channels", "2"}), "");
}

TEST_F(Audio, SplitsAFileIntoPlanesBlockByBlock)
{
    // More than two of the blocks that are read, and the last of them short.
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
    const std::string source = write("in.raw", input);
    const std::string target = path("out.raw").string();
    const Json report = json({"audio", "convert", source, target, "--input", "s16le", "--channels", "16",
                              "--bits", "24", "--split"});
    EXPECT_EQ(report["frames"], kFrames);
    EXPECT_EQ(report["out"]["bytes"], expected.size());
    EXPECT_EQ(report["out"]["layout"], "planes");
    EXPECT_TRUE(slurp(target) == expected);
    // The target of a pipe is as good.
    EXPECT_TRUE(run({"audio", "convert", source, "-", "--input", "s16le", "--channels", "16", "--bits", "24",
                     "--split"})
                    .out == expected);
    // A file that another program has read the header of.
    EXPECT_EQ(run({"audio", "convert", "-", "-", "--input", "s16le", "--channels", "2", "--split"},
                  "headabcdefgh", -1, 4)
                  .out,
              "abefcdgh");
}

TEST_F(Audio, RefusesWhatItCannotConvertAndLeavesTheTarget)
{
    const std::string source = write("in.raw", "abcdefg");
    const std::string target = write("out.raw", "before");
    const struct
    {
        Words words;
        int code;
        const char *message;
    } cases[] = {
        {{source, target, "--input", "s16le", "--channels", "2"},
         3,
         "3 bytes left over after 1 frame of 4 bytes"},
        {{source, target, "--input", "s16le", "--channels", "2", "--split"}, 3, "3 bytes left over"},
        {{"-", target, "--input", "s16le", "--channels", "2", "--split", "--channel", "1"},
         2,
         "--split keeps all"},
        {{source, target, "--input", "s32le", "--channels", "1", "--split"}, 2, "cannot be split"},
        {{source, target, "--input", "u8", "--channels", "1", "--bits", "16", "--split"},
         2,
         "cannot be split"},
        {{source, target, "--input", "s20le", "--channels", "2"}, 2, "the formats of samples are"},
        {{source, target, "--input", "s16le", "--channels", "2", "--channel", "3"}, 2, "no channel 3 of 2"},
        {{source, target, "--input", "s16le", "--channels", "2", "--bits", "20"}, 2, "--bits"},
        {{source, target, "--input", "s16le"}, 2, "--channels"},
        {{source, source, "--input", "u8", "--channels", "1"}, 2, "in.raw"},
        {{"/nowhere", target, "--input", "u8", "--channels", "1"}, 4, "/nowhere: No such file"},
        {{source, "/dev/full", "--input", "u8", "--channels", "1"}, 4, "No space left"},
    };
    for (const auto &row : cases)
    {
        Words words = {"audio", "convert"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const Result result = run(words);
        EXPECT_EQ(result.code, row.code) << row.message << ": " << result.err;
        EXPECT_THAT(result.err, HasSubstr(row.message));
    }
    EXPECT_EQ(slurp(target), "before");
    EXPECT_EQ(slurp(source), "abcdefg");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("in.raw", "out.raw"));
}

} // namespace
