// Damaged copies of our own samples, one row for each damage: the packets kept and lost, and the reported
// line.
#include "CaptionReading.h"

#include <algorithm>
#include <cctype>
#include <functional>

namespace
{
using kiv::test::fileText;
using kiv::test::Reading;

#define FAULT(name) KIVCS2CaptionFault_##name

std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines{""};
    for (const char character : text)
        if (character == '\n')
            lines.emplace_back();
        else if (character != '\r')
            lines.back() += character;
    return lines;
}

std::string joined(const std::vector<std::string> &lines, const std::string &end = "\n")
{
    std::string text;
    for (size_t line = 0; line < lines.size(); ++line)
        text += (line > 0 ? end : "") + lines[line];
    return text;
}

using Lines = std::vector<std::string>;
using Edit = std::function<void(Lines &, size_t at)>;
// An edit of the line `at`, its fault (0: none), and the number of packets lost.
struct Mutation
{
    const char *what;
    Edit edit;
    KIVCS2CaptionFault fault;
    int line; // of the fault, counted from `at`; kFirst and above: from the first line of the file
    int lost; // kAll: the packets of the line; -kAll: as many more
};
constexpr int kFirst = -1000, kAnywhere = -2000, kAll = 1000;

// Swaps the case of every letter of the line.
void swapCase(std::string &line)
{
    for (char &letter : line)
        if (std::isalpha(static_cast<unsigned char>(letter)) != 0)
            letter = static_cast<char>(letter ^ 0x20);
}
Edit before(const std::string &line)
{
    return [=](Lines &lines, size_t at) { lines.insert(lines.begin() + static_cast<ptrdiff_t>(at), line); };
}
Edit change(const std::string &from, const std::string &to)
{
    return [=](Lines &lines, size_t at) { lines[at].replace(lines[at].find(from), from.size(), to); };
}
// Replaces bytes at a position, or the last ones at kEnd.
constexpr size_t kEnd = std::string::npos;
Edit bytes(size_t position, size_t size, const std::string &to)
{
    return [=](Lines &lines, size_t at)
    { lines[at].replace(position == kEnd ? lines[at].size() - size : position, size, to); };
}
// Replaces bytes of the data after the tab.
Edit data(size_t position, size_t size, const std::string &to)
{
    return [=](Lines &lines, size_t at) { lines[at].replace(lines[at].find('\t') + 1 + position, size, to); };
}
Edit first(Edit edit)
{
    return [=](Lines &lines, size_t) { edit(lines, 0); };
}
Edit afterFirst(size_t count, const std::string &line)
{
    return [=](Lines &lines, size_t) { lines.insert(lines.begin() + 1, count, line); };
}
const Edit kSwapCase = [](Lines &lines, size_t at) { swapCase(lines[at]); };
const std::string kLong(200000, ' '), kZero(1, '\0');

// Of any caption line.
const std::vector<Mutation> kAnyLine = {
    {"a space for the tab", change("\t", " "), FAULT(Blanks), 0, 0},
    {"no tab", change("\t", ""), FAULT(Blanks), 0, 0},
    {"blanks at the start", bytes(0, 0, " \t"), FAULT(BlanksBefore), 0, 0},
    {"blanks at the end", bytes(kEnd, 0, "  "), FAULT(BlanksBehind), 0, 0},
    {"a point before the frames", bytes(8, 1, "."), FAULT(FrameSeparator), 0, 0},
    {"a comma before the frames", bytes(8, 1, ","), FAULT(FrameSeparator), 0, 0},
    {"no such hour", bytes(0, 2, "24"), FAULT(NoSuchTime), 0, kAll},
    {"no such minute", bytes(3, 2, "61"), FAULT(NoSuchTime), 0, kAll},
    {"no such frame", bytes(9, 2, "77"), FAULT(NoSuchTime), 0, kAll},
    {"a letter in the timecode", bytes(4, 1, "o"), FAULT(NotACaption), 0, kAll},
    {"a digit too few in the timecode", bytes(0, 1, ""), FAULT(NotACaption), 0, kAll},
    {"text for the line", bytes(0, kEnd, "hello"), FAULT(NotACaption), 0, kAll},
    {"no data", data(0, kEnd, ""), FAULT(NotACaption), 0, kAll},
    {"an unknown character", bytes(kEnd, 3, "x"), FAULT(UnknownCharacter), 0, kAll},
    {"a null byte", bytes(kEnd, 3, kZero), FAULT(Null), 0, kAll},
    {"a comment before it", before("// note"), 0, 0, 0},
    {"a long comment", before("//" + std::string(200000, '9')), 0, 0, 0},
    {"long blanks at the start", bytes(0, 0, kLong), FAULT(BlanksBefore), 0, 0},
    {"long blanks for the tab", change("\t", kLong), FAULT(Blanks), 0, 0},
    {"a long line of letters before it", before(std::string(200000, 'y')), FAULT(NotACaption), 0, 0},
    {"an item of the header before it", before("Title=x"), FAULT(NotACaption), 0, 0},
    {"the rate before it", before("Time Code Rate=25"), FAULT(RateLate), 0, 0},
    {"only a timecode before it", before("00:00:00:00"), FAULT(NotACaption), 0, 0},
};

const std::vector<Mutation> kMCCLine = {
    {"lower case", kSwapCase, FAULT(LowerCase), 0, 0},
    {"a letter without bytes", bytes(kEnd, 2, "W"), FAULT(UnknownCharacter), 0, kAll},
    {"the checksum's other half", bytes(kEnd, 0, "7"), FAULT(HalfByte), 0, 0},
    {"only half a byte", data(0, kEnd, "6"), FAULT(HalfByte), 0, kAll},
    {"twice", [](Lines &lines, size_t at) { before(std::string{lines[at]})(lines, at); }, FAULT(SameFrame), 1,
     -kAll},
    {"left out", [](Lines &lines, size_t at) { lines.erase(lines.begin() + static_cast<ptrdiff_t>(at)); },
     FAULT(Gap), 0, kAll},
    {"half a byte less", bytes(kEnd, 1, ""), FAULT(HalfByte), 0, 0},
    {"a byte too many", bytes(kEnd, 0, "00"), FAULT(DataCount), 0, 0},
    {"bytes missing", bytes(kEnd, 8, ""), FAULT(DataCount), 0, 0},
    {"endless digits", bytes(kEnd, 0, std::string(600, '0')), FAULT(LongPacket), 0, 1},
    {"not a CDP", data(0, kEnd, "T02010267"), FAULT(NotACDP), 0, 0},
    {"swapped with the next", [](Lines &lines, size_t at) { std::swap(lines[at], lines[at + 1]); },
     FAULT(BackInTime), 1, 0},
};

const std::vector<Mutation> kSCCLine = {
    {"one digit", data(1, 3, ""), FAULT(WordLength), 0, 1},
    {"two digits", data(2, 2, ""), FAULT(WordLength), 0, 1},
    {"three digits", change("\t94", "\t9"), FAULT(WordLength), 0, 1},
    {"five digits", change("\t94", "\t944"), FAULT(WordLength), 0, 1},
    {"eight digits", change("\t", "\t94209420 "), FAULT(EightDigitWord), 0, -1},
    {"200,000 digits", change("\t", "\t" + std::string(200000, '9') + " "), FAULT(WordLength), 0, 0},
    {"two words of two digits", change("\t", "\t94 20 "), FAULT(WordLength), 0, 0},
    {"other parity", change("\t94", "\t14"), FAULT(Parity), 0, 0},
    {"the other case", kSwapCase, 0, 0, 0},
    {"two blanks between words", change(" ", "  "), 0, 0, 0},
    {"a tab between words", change(" ", "\t"), 0, 0, 0},
    {"the other counting's separator", bytes(8, 1, ";"), FAULT(OtherCounting), 0, 0},
    {"twice", [](Lines &lines, size_t at) { lines[at + 1] = lines[at]; }, FAULT(SameFrame), 1, -kAll},
};

// Of the whole file.
const std::vector<Mutation> kWhole = {
    {"a byte-order mark", first(bytes(0, 0, "\xEF\xBB\xBF")), FAULT(ByteOrderMark), kFirst, 0},
    {"header in the other case", first(kSwapCase), FAULT(HeaderCase), kFirst, 0},
    {"blanks before the first line", first(bytes(0, 0, "  ")), FAULT(HeaderBlanks), kFirst, 0},
    {"200 unknown lines", afterFirst(200, "x"), FAULT(HeaderUnknown), kFirst + 1, 0},
    {"a long line", afterFirst(1, std::string(200000, 'y')), FAULT(HeaderLong), kFirst + 1, 0},
    {"no first line", first(bytes(0, kEnd, "// gone")), FAULT(HeaderMissing), kAnywhere, 0},
    {"text at the end", [](Lines &lines, size_t) { lines.push_back("the end"); }, FAULT(NotACaption),
     kAnywhere, 0},
};

void check(const std::string &sample, const Mutation &mutation, const Reading &good, size_t line)
{
    SCOPED_TRACE(sample + ": " + mutation.what);
    Lines lines = linesOf(good.text);
    mutation.edit(lines, line);
    Reading reading{joined(lines)};
    reading.all();
    const auto ofLine =
        static_cast<int>(std::ranges::count(good.packets, line + 1, &KIVCS2CaptionPacket::m_line));
    const int lost = mutation.lost == kAll ? ofLine : mutation.lost == -kAll ? -ofLine : mutation.lost;
    EXPECT_EQ(static_cast<int>(good.packets.size() - reading.packets.size()), lost);
    EXPECT_EQ(reading.status, KIVCS2STATUS_EOF_ERR);
    if (mutation.fault == 0)
    {
        EXPECT_EQ(reading.faults.size(), good.faults.size());
        return;
    }
    const auto reported = std::ranges::find(reading.faults, mutation.fault, &KIVCS2CaptionFileFault::m_fault);
    ASSERT_NE(reported, reading.faults.end());
    if (mutation.line != kAnywhere)
    {
        EXPECT_EQ(reported->m_line, mutation.line < 0 ? static_cast<uint64_t>(mutation.line - kFirst + 1)
                                                      : line + 1 + static_cast<uint64_t>(mutation.line));
    }
}

TEST(CaptionMutants, NeighboursAreKeptAndEachDamageIsReported)
{
    for (const char *sample : {"pop-on-ndf.scc", "paint-on-overlap.scc", "pop-on-25.mcc",
                               "plain-hex-30df.mcc", "suffixes-v2-crlf.mcc"})
    {
        Lines clean = linesOf(fileText(std::string{KIV_TEST_DATA "/"} + sample));
        Reading good{joined(clean)};
        good.all();
        ASSERT_GT(good.packets.size(), 10u);
        const bool isSCC = good.header.m_kind == KIVCS2CaptionFileKind_SCC;
        // A caption line in the middle: after the first one the header has been read.
        const size_t line = isSCC ? 4 : good.packets[good.packets.size() / 2].m_line - 1;
        for (const auto *mutations : {&kAnyLine, isSCC ? &kSCCLine : &kMCCLine, &kWhole})
            for (const Mutation &mutation : *mutations)
                check(sample, mutation, good, line);
        for (const char *end : {"\r\n", "\r"})
        {
            Reading other{joined(clean, end)};
            EXPECT_EQ(other.all().packets.size(), good.packets.size());
            EXPECT_EQ(other.faults.size(), good.faults.size());
        }
    }
}
} // namespace
