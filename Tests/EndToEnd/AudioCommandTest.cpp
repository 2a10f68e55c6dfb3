// kivcs2 audio as a user runs it.
#include "CommandRun.h"

namespace
{

using namespace kiv::test;

class Audio : public Command
{
};

TEST_F(Audio, ShowsTheWeaveOfARate)
{
    const Json common = document("audio weave");
    ASSERT_EQ(common.size(), 16u);
    EXPECT_EQ(common[3]["weave"], (Json{1602, 1602, 1602, 1601, 1601}));
    const Json short80 = document("audio weave 23.98 --samples 44100");
    ASSERT_EQ(short80.size(), 1u);
    EXPECT_EQ(short80[0]["frames"], 80);
    EXPECT_EQ(short80[0]["sum"], 147146);
    EXPECT_EQ(short80[0]["missed"], 1);
    expect({{"audio weave 59.94", 0, "801 x 4, 800 x 1"},
            {"audio weave 48", 2},
            {"audio weave 25 --samples 0", 2}});
}

TEST_F(Audio, PacksAndDescribesCodes)
{
    const Json aac = document("audio describe 01000f86");
    EXPECT_EQ(aac["encoding"], "aac ");
    EXPECT_EQ(aac["sampleRate"], 44100);
    EXPECT_EQ(aac["channels"], 16);
    EXPECT_EQ(aac["known"], true);
    EXPECT_EQ(document("audio describe 0x02000000", 1)["encoding"], nullptr);
    expect({{"audio code --bytes 4 --used 3", 0, "0x0010011a"},
            {"audio describe 0x100000000", 2},
            {"audio describe x", 2},
            {"audio describe ''", 2},
            {"audio code --channels 17", 2},
            {"audio code --bytes 8", 2},
            {"audio code --sample-rate 96000", 2},
            {"audio code --endian 2", 2}});
}

TEST_F(Audio, ConvertsThroughAPipe)
{
    const struct
    {
        std::string input, options, output;
    } rows[] = {
        {"abcdefgh", "s16le --channels 2", "abcdefgh"},
        {"abcdefgh", "s16le --channels 2 --swap", "badcfehg"},
        {"ab", "s16be --channels 1 --bits 24", {"ab\0", 3}},
        {"abcdefgh", "s32le --channels 1 --bits 16", "cdgh"},
        {"abcdefgh", "s16le --channels 2 --channel 2", "cdgh"},
        {"\x80\x81", "u8 --channels 1 --bits 16", {"\0\0\0\1", 4}},
        {"", "s16le --channels 2", ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(enter("audio convert - - --input " + row.options, row.input).out, row.output)
            << row.options;
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
    write("in", input);
    const std::string options = " --input s16le --channels 16 --bits 24 --split";
    const Json report = document("audio convert in out" + options);
    EXPECT_EQ(report["frames"], kFrames);
    EXPECT_EQ(report["out"]["bytes"], expected.size());
    EXPECT_EQ(report["out"]["layout"], "planes");
    EXPECT_TRUE(slurp(path("out")) == expected);
    EXPECT_TRUE(enter("audio convert in -" + options).out == expected);
    // A file that another program has read the header of.
    EXPECT_EQ(run(wordsOf("audio convert - - --input s16le --channels 2 --split"), "headabcdefgh", -1, 4).out,
              "abefcdgh");
}

TEST_F(Audio, RefusesWhatItCannotConvertAndLeavesTheTarget)
{
    write("in", "abcdefg");
    write("out", "before");
    expect({
        {"audio convert in out --input s16le --channels 2", 3, "3 bytes left over after 1 frame of 4 bytes"},
        {"audio convert in out --input s16le --channels 2 --split", 3, "3 bytes left over"},
        {"audio convert - out --input s16le --channels 2 --split --channel 1", 2, "--split keeps all"},
        {"audio convert in out --input s32le --channels 1 --split", 2, "cannot be split"},
        {"audio convert in out --input u8 --channels 1 --bits 16 --split", 2, "cannot be split"},
        {"audio convert in out --input s20le --channels 2", 2, "the formats of samples are"},
        {"audio convert in out --input s16le --channels 2 --channel 3", 2, "no channel 3 of 2"},
        {"audio convert in out --input s16le --channels 2 --bits 20", 2, "--bits"},
        {"audio convert in out --input s16le", 2, "--channels"},
        {"audio convert in in --input u8 --channels 1", 2, "in"},
        {"audio convert /nowhere out --input u8 --channels 1", 4, "/nowhere: No such file"},
        {"audio convert in /dev/full --input u8 --channels 1", 4, "No space left"},
    });
    EXPECT_EQ(slurp(path("out")), "before");
    EXPECT_EQ(slurp(path("in")), "abcdefg");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("in", "out"));
}

} // namespace
