// Captions at other rates and from captures: kivcs2 caption convert and kivcs2 cdp find.
#include "CommandRun.h"

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <cmath>
#include <cstring>
#include <utility>

namespace
{

using kiv::test::Command;
using kiv::test::Json;
using kiv::test::parseJson;
using kiv::test::Result;
using kiv::test::slurp;
using kiv::test::Words;
using testing::HasSubstr;
using testing::IsEmpty;

class CaptionMotion : public Command
{
protected:
    [[nodiscard]] Json captions(const std::string &file) const
    {
        return parseJson(run({"caption", "show", file, "--captions", "--json"}).out);
    }
};

// ---- Other rates ----

double secondsOf(const Json &timecode, double numbers, double rate)
{
    unsigned hours = 0, minutes = 0, seconds = 0, frames = 0;
    std::sscanf(timecode.get<std::string>().c_str(), "%u:%u:%u%*c%u", &hours, &minutes, &seconds, &frames);
    double frame = ((hours * 60 + minutes) * 60 + seconds) * numbers + frames;
    if (numbers != rate && timecode.get<std::string>()[8] == ';')
        frame -= numbers / 15 * (hours * 60 + minutes - (hours * 60 + minutes) / 10);
    return frame / rate;
}

TEST_F(CaptionMotion, RetimesThereAndBack)
{
    struct Row
    {
        const char *rate;
        double numbers, exact;
    };
    const std::vector<Row> rows = {{"23.98", 24, 24 / 1.001},    {"25", 25, 25},
                                   {"29.97ndf", 30, 30 / 1.001}, {"50", 50, 50},
                                   {"59.94df", 60, 60 / 1.001},  {"60", 60, 60}};
    const Json before = captions(KIV_EXAMPLE_SCC);
    ASSERT_EQ(before.size(), 7u);
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.rate);
        const std::string there = path("there.mcc").string(), back = path("back.scc").string();
        const Json made = json({"caption", "convert", KIV_EXAMPLE_SCC, there, "--to-rate", row.rate});
        EXPECT_EQ(made["retimed"]["counting"], row.rate);
        EXPECT_EQ(made["in"]["pairs"], made["out"]["pairs"]);
        EXPECT_EQ(run({"caption", "verify", there}).code, 0);
        const double wait = made["retimed"]["longestWaitSeconds"]["field1"];
        const Json now = captions(there);
        ASSERT_EQ(now.size(), before.size());
        for (size_t index = 0; index < now.size(); ++index)
        {
            EXPECT_EQ(now[index]["text"], before[index]["text"]);
            EXPECT_EQ(now[index]["mode"], before[index]["mode"]);
            const double off = secondsOf(now[index]["from"], row.numbers, row.exact) -
                               secondsOf(before[index]["from"], 30, 30 / 1.001);
            EXPECT_TRUE(off > -0.08 && off < wait + 0.08) << off << " at " << index << ", waits " << wait;
        }
        const Result returned = run({"caption", "convert", there, back, "--to-rate", "29.97df"});
        EXPECT_EQ(returned.code, 0) << returned.err;
        EXPECT_THAT(returned.out, HasSubstr("Longest wait  field 1 "));
        EXPECT_EQ(captions(back).size(), before.size());
    }
}

// ---- Captures ----

// Ten frames that show HI from frame 6 to 9.
std::vector<KIVCS2CaptionPacket> frames()
{
    const std::vector<std::pair<uint8_t, uint8_t>> codes = {
        {0x94, 0x20}, {0x94, 0x20}, {0x94, 0x70}, {0x94, 0x70}, {0xC8, 0x49},
        {0x94, 0x2F}, {0x94, 0x2F}, {0x80, 0x80}, {0x94, 0x2C}, {0x94, 0x2C}};
    std::vector<KIVCS2CaptionPacket> packets(codes.size());
    for (size_t index = 0; index < codes.size(); ++index)
    {
        KIVCS2CaptionPairs pairs{};
        pairs.m_count[0] = 1;
        pairs.m_pairs[0][0][0] = codes[index].first;
        pairs.m_pairs[0][0][1] = codes[index].second;
        EXPECT_EQ(kivCS2CaptionPacket_build(&packets[index], KIVCS2CaptionCounting_29_97DF,
                                            static_cast<uint16_t>(index), &pairs, nullptr, nullptr, 0),
                  KIVCS2STATUS_OK);
    }
    return packets;
}

struct Form
{
    KIVCS2CaptionCarrier carrier;
    Words words;
    size_t row;      ///< bytes of a row, for v210
    Json place;      ///< where every packet is
    const char *cut; ///< the error for a capture that ends 20 bytes early
    KIVCS2CaptionPlace put{};
};

const Json kLine13 = {{"line", 13}, {"field", nullptr}, {"channel", "luma"}};

KIVCS2CaptionPlace at(uint16_t line, KIVCS2CaptionChannel channel = KIVCS2CaptionChannel_Luma)
{
    KIVCS2CaptionPlace place{};
    place.m_line = line;
    place.m_channel = channel;
    return place;
}

std::vector<Form> forms()
{
    const Words v210 = {"--in", "v210", "--width", "1920"};
    const auto words = [](const char *name) { return Words{"--in", "291m", "--words", name}; };
    return {
        {KIVCS2CaptionCarrier_8BitWithADF, words("8bit-adf"), 0, {}, "section cut: 1 packet"},
        {KIVCS2CaptionCarrier_8Bit, words("8bit"), 0, {}, "section cut: 1 packet"},
        {KIVCS2CaptionCarrier_10BitWithADF, words("10bit-adf"), 0, {}, "section cut: 1 packet"},
        {KIVCS2CaptionCarrier_10Bit, words("10bit"), 0, {}, "section cut: 1 packet"},
        {KIVCS2CaptionCarrier_10BitLittleWithADF, words("10bit-le-adf"), 0, {}, "section cut: 1 packet"},
        {KIVCS2CaptionCarrier_10BitLittle, words("10bit-le"), 0, {}, "section cut: 1 packet"},
        {KIVCS2CaptionCarrier_436M, {"--in", "436m"}, 0, kLine13, "section cut: 1 packet", at(13)},
        {KIVCS2CaptionCarrier_V210Luma, v210, 5120, {{"channel", "luma"}}, "the row at byte 46080 is cut"},
        {KIVCS2CaptionCarrier_V210Chroma,
         v210,
         5120,
         {{"channel", "chroma"}},
         "the row at byte 46080",
         at(0, KIVCS2CaptionChannel_Chroma)},
        {KIVCS2CaptionCarrier_V210SD,
         {"--in", "v210", "--width", "720"},
         1920,
         {{"channel", "both"}},
         "the row at byte 17280 is cut",
         at(0, KIVCS2CaptionChannel_Both)},
        {KIVCS2CaptionCarrier_RTP, {"--in", "rtp"}, 0, kLine13, "is cut short", at(13)},
    };
}

// Each packet on its own: after its length in RTP, in a row of its own in v210.
std::string capture(const Form &form, const std::vector<KIVCS2CaptionPacket> &packets)
{
    std::string all;
    KIVCS2CaptionRTP rtp{};
    for (const KIVCS2CaptionPacket &packet : packets)
    {
        std::vector<uint8_t> bytes(form.row > 0 ? form.row : 4096);
        uint64_t size = bytes.size();
        EXPECT_EQ(kivCS2CaptionPacket_wrap(form.carrier, &packet, 1, &form.put, &rtp, bytes.data(), &size),
                  KIVCS2STATUS_OK);
        ++rtp.m_sequence;
        bytes.resize(form.row > 0 ? form.row : size);
        if (form.carrier == KIVCS2CaptionCarrier_RTP)
            all += {static_cast<char>(size >> 8), static_cast<char>(size)};
        all.append(bytes.begin(), bytes.end());
    }
    return all;
}

TEST_F(CaptionMotion, FindsCaptionsInEveryForm)
{
    const std::vector<KIVCS2CaptionPacket> packets = frames();
    for (const Form &form : forms())
    {
        Words words = {"cdp", "find", "-"};
        words.insert(words.end(), form.words.begin(), form.words.end());
        SCOPED_TRACE(testing::PrintToString(words));
        const auto found = [&](const std::string &input, const char *how)
        {
            Words all = words;
            all.emplace_back(how);
            return run(all, input);
        };
        const std::string whole = capture(form, packets);
        Json rows = parseJson(found(whole, "--json").out);
        ASSERT_EQ(rows.size(), packets.size());
        for (size_t index = 0; index < rows.size(); ++index)
        {
            EXPECT_EQ(rows[index]["sequence"], index);
            EXPECT_EQ(rows[index]["offset"].get<size_t>() / (whole.size() / packets.size()), index);
            for (const auto &[key, value] : form.place.items())
                EXPECT_EQ(rows[index][key], value) << key;
            EXPECT_EQ(rows[index]["rtp"].is_null() ? index : rows[index]["rtp"]["sequence"].get<size_t>(),
                      index);
            EXPECT_EQ(rows[index]["row"], form.row > 0 ? Json(index + 1) : Json());
        }
        EXPECT_EQ(found(whole, "--captions").out, "00:00:00;05  00:00:00;08  CC1  pop-on   HI\n");
        // If the end is cut, the packets before it stay whole.
        const Result cut =
            found(whole.substr(0, whole.size() - (form.row > 0 ? form.row - 128 : 20)), "--json");
        EXPECT_EQ(cut.code, 3);
        EXPECT_THAT(cut.err, HasSubstr(form.cut));
        const Json left = parseJson(cut.out);
        ASSERT_GE(left.size(), packets.size() - 1);
        for (size_t index = 0; index < left.size(); ++index)
            EXPECT_EQ(left[index]["offset"], rows[index]["offset"]);
    }
}

TEST_F(CaptionMotion, RefusesWhatMakesNoSenseOfACapture)
{
    const Form rtp = forms().back();
    const std::string whole = capture(rtp, frames());
    const size_t size = whole.size() / 10;
    std::string other = whole;
    other[2] = 0; // version 0
    const std::string units = capture(forms()[2], frames()), records = capture(forms()[6], frames());
    const auto more = [](const std::string &packets, size_t bytes)
    { return packets.substr(0, packets.size() / 10 + bytes); };
    const std::string unit = std::to_string(units.size() / 10), record = std::to_string(records.size() / 10);
    struct Row
    {
        Words words;
        std::string input;
        int code;
        std::string out, err;
    };
    const std::vector<Row> rows = {
        {{"--in", "rtp"}, whole.substr(2, size - 2), 0, "  ok\n", ""},
        {{"--in", "rtp"}, "", 1, "", "no caption distribution packet"},
        {{"--in", "rtp"}, std::string(2, '\0') + whole, 0, "9420", ""},
        {{"--in", "rtp"}, other, 3, "9420", "not RTP version 2: 1 payload, first at byte 2 ("},
        {{"--in", "rtp"}, "\x80" + std::string(70000, 'x'), 3, "", "without lengths between them"},
        {{"--in", "rtp"}, whole.substr(0, size + 1), 3, "9420", "payload at byte " + std::to_string(size)},
        // The second packet is too short to be found.
        {{"--in", "291m", "--words", "10bit-adf"}, more(units, 6), 3, "9420", "packet at byte " + unit},
        {{"--in", "436m"}, more(records, 9), 3, "9420", "record at byte " + record + " is cut short"},
        {{"--in", "436m"}, more(records, 0) + std::string(9, '\0'), 0, "9420", ""},
        {{"--in", "v210"}, "", 2, "", "--in v210 needs --width"},
        {{"--in", "rtp", "--width", "720"}, "", 2, "", "--width is of --in v210"},
        {{"--in", "436m", "--words", "8bit"}, "", 2, "", "--words is of --in 291m"},
        {{"--in", "291m", "--words", "9bit"}, "", 2, "", "known are 8bit-adf, 8bit, 10bit-adf"},
        {{"--in", "rtp", "--service", "CC1"}, "", 2, "", "--service is of --captions"},
        {{"--in", "rtp", "--captions", "--service", "CC2"}, whole, 1, "", "no caption in it comes"},
    };
    for (const Row &row : rows)
    {
        Words words = {"cdp", "find", "-"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        SCOPED_TRACE(testing::PrintToString(words) + row.err);
        const Result result = run(words, row.input);
        EXPECT_EQ(result.code, row.code) << result.err;
        EXPECT_THAT(result.out, HasSubstr(row.out));
        EXPECT_THAT(result.err, row.err.empty() ? testing::Matcher<std::string>(IsEmpty())
                                                : testing::Matcher<std::string>(HasSubstr(row.err)));
    }
}

// More than fits in memory: 300 MiB between two captures, one of which crosses the border of a block.
TEST_F(CaptionMotion, SearchesAStreamOfAnySize)
{
    const std::string file = write("capture", capture(forms()[2], frames()));
    const size_t size = slurp(file).size(), filler = size_t{300} << 20;
    const std::string line = "(cat '" + file + "'; yes | head -c " + std::to_string(filler) + "; cat '" +
                             file + "') | '" + m_command + "' cdp find - --in 291m --words 10bit-adf --json";
    m_command = "/bin/bash";
    const Result result = run({"-c", line});
    EXPECT_EQ(result.code, 0) << result.err;
    const Json rows = parseJson(result.out);
    ASSERT_EQ(rows.size(), 20u);
    EXPECT_EQ(rows[10]["offset"], size + filler);
    if (!kiv::test::keepsFreedMemory())
    {
        EXPECT_LT(result.kilobytes, 48 * 1024);
    }
}

} // namespace
