// Damaged copies of our own samples, over 50 of each kind of file and a row each: what is kept, what is
// lost, and where it is told.
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
// An edit of the line `at`, the fault that it makes (0: none), where, and how many packets go.
struct Mutation
{
    const char *what;
    std::function<void(Lines &, size_t at)> edit;
    KIVCS2CaptionFault fault;
    int line; // behind `at`; behind the file's first line from kFirst on
    int lost; // kAll: those of the line
};
constexpr int kFirst = -1000, kAnywhere = -2000, kAll = 1000;

void replaceIn(std::string &text, const std::string &from, const std::string &to)
{
    text.replace(text.find(from), from.size(), to);
}
// Every letter of the line in the other case.
void turn(std::string &line)
{
    std::ranges::transform(line, line.begin(),
                           [](unsigned char c) {
                               return static_cast<char>(std::islower(c) ? std::toupper(c) : std::tolower(c));
                           });
}
std::function<void(Lines &, size_t)> inserting(const std::string &before)
{
    return [=](Lines &lines, size_t at) { lines.insert(lines.begin() + static_cast<ptrdiff_t>(at), before); };
}
std::function<void(Lines &, size_t)> replacing(const std::string &from, const std::string &to)
{
    return [=](Lines &lines, size_t at) { replaceIn(lines[at], from, to); };
}
std::function<void(Lines &, size_t)> at(size_t position, size_t size, const std::string &to)
{
    return [=](Lines &lines, size_t line)
    { lines[line].replace(position == std::string::npos ? lines[line].size() - size : position, size, to); };
}
constexpr size_t kEnd = std::string::npos;

// Of any caption line.
const std::vector<Mutation> kAnyLine = {
    {"a space for the tab", replacing("\t", " "), FAULT(Blanks), 0, 0},
    {"two tabs", replacing("\t", "\t\t"), FAULT(Blanks), 0, 0},
    {"nothing for the tab", replacing("\t", ""), FAULT(Blanks), 0, 0},
    {"blanks in front", at(0, 0, " \t"), FAULT(BlanksBefore), 0, 0},
    {"blanks behind", at(kEnd, 0, "  "), FAULT(BlanksBehind), 0, 0},
    {"a point before the frames", at(8, 1, "."), FAULT(FrameSeparator), 0, 0},
    {"a comma before the frames", at(8, 1, ","), FAULT(FrameSeparator), 0, 0},
    {"no such minute", at(3, 2, "61"), FAULT(NoSuchTime), 0, kAll},
    {"no such frame", at(9, 2, "77"), FAULT(NoSuchTime), 0, kAll},
    {"a letter in the timecode", at(4, 1, "o"), FAULT(NotACaption), 0, kAll},
    {"text for the line", [](Lines &lines, size_t line) { lines[line] = "hello"; }, FAULT(NotACaption), 0,
     kAll},
    {"no data", [](Lines &lines, size_t line) { lines[line].resize(lines[line].find('\t') + 1); },
     FAULT(NotACaption), 0, kAll},
    {"a character that stands for nothing", at(kEnd, 3, "x"), FAULT(UnknownCharacter), 0, kAll},
    {"a null byte", at(kEnd, 3, std::string(1, '\0')), FAULT(Null), 0, kAll},
    {"a comment before it", inserting("// note"), 0, 0, 0},
    {"a comment of 200,000 bytes", inserting("//" + std::string(200000, '9')), 0, 0, 0},
    {"200,000 blanks before it", inserting(std::string(200000, ' ')), 0, 0, 0},
    {"200,000 blanks in front", at(0, 0, std::string(200000, ' ')), FAULT(BlanksBefore), 0, 0},
    {"200,000 blanks for the tab", replacing("\t", std::string(200000, ' ')), FAULT(Blanks), 0, 0},
    {"200,000 blanks behind", at(kEnd, 0, std::string(200000, '\t')), FAULT(BlanksBehind), 0, 0},
    {"200,000 letters before it", inserting(std::string(200000, 'y')), FAULT(NotACaption), 0, 0},
    {"an item of the header before it", inserting("Title=x"), FAULT(NotACaption), 0, 0},
    {"the rate before it", inserting("Time Code Rate=25"), FAULT(RateLate), 0, 0},
    {"a timecode alone before it", inserting("00:00:00:00"), FAULT(NotACaption), 0, 0},
    {"blanks of every kind", replacing("\t", " \t  \t"), FAULT(Blanks), 0, 0},
    {"100 blanks for the tab", replacing("\t", std::string(100, ' ')), FAULT(Blanks), 0, 0},
    {"no such hour", at(0, 2, "24"), FAULT(NoSuchTime), 0, kAll},
    {"no such second", at(6, 2, "60"), FAULT(NoSuchTime), 0, kAll},
    {"a digit too few in the timecode", at(0, 1, ""), FAULT(NotACaption), 0, kAll},
    {"a digit too many in the timecode", at(0, 0, "0"), FAULT(NotACaption), 0, kAll},
    {"a null byte in front", at(0, 0, std::string(1, '\0')), FAULT(Null), 0, kAll},
    {"a letter of another alphabet", at(kEnd, 0, "\xC3\xBC"), FAULT(UnknownCharacter), 0, kAll},
};

const std::vector<Mutation> kMCCLine = {
    {"lower case", [](Lines &lines, size_t line) { turn(lines[line]); }, FAULT(LowerCase), 0, 0},
    {"a letter without bytes", at(kEnd, 2, "W"), FAULT(UnknownCharacter), 0, kAll},
    {"the checksum's other half", at(kEnd, 0, "7"), FAULT(HalfByte), 0, 0},
    {"three bytes",
     [](Lines &lines, size_t line)
     {
         lines[line].resize(lines[line].find('\t') + 1);
         lines[line] += "610152";
     },
     FAULT(DataCount), 0, 0},
    {"half a byte alone",
     [](Lines &lines, size_t line)
     {
         lines[line].resize(lines[line].find('\t') + 1);
         lines[line] += "6";
     },
     FAULT(HalfByte), 0, kAll},
    {"twice",
     [](Lines &lines, size_t line)
     { lines.insert(lines.begin() + static_cast<ptrdiff_t>(line), lines[line]); },
     FAULT(SameFrame), 1, -kAll},
    {"left out", [](Lines &lines, size_t line) { lines.erase(lines.begin() + static_cast<ptrdiff_t>(line)); },
     FAULT(Gap), 0, kAll},
    {"half a byte less", at(kEnd, 1, ""), FAULT(HalfByte), 0, 0},
    {"no checksum", at(kEnd, 2, ""), FAULT(PacketChecksumMissing), 0, 0},
    {"another checksum", at(kEnd, 2, "00"), FAULT(PacketChecksum), 0, 0},
    {"a byte too many", at(kEnd, 0, "00"), FAULT(DataCount), 0, 0},
    {"bytes missing", at(kEnd, 8, ""), FAULT(DataCount), 0, 0},
    {"no end of digits", at(kEnd, 0, std::string(600, '0')), FAULT(LongPacket), 0, 1},
    {"not a CDP",
     [](Lines &lines, size_t line)
     {
         lines[line].replace(lines[line].find('\t') + 1, std::string::npos,
                             "T020102"
                             "67");
     },
     FAULT(NotACDP), 0, 0},
    {"swapped with the next", [](Lines &lines, size_t line) { std::swap(lines[line], lines[line + 1]); },
     FAULT(BackInTime), 1, 0},
};

const std::vector<Mutation> kSCCLine = {
    {"three digits", replacing("\t94", "\t9"), FAULT(WordLength), 0, 1},
    {"two digits", [](Lines &lines, size_t line) { lines[line].erase(lines[line].find('\t') + 3, 2); },
     FAULT(WordLength), 0, 1},
    {"five digits", replacing("\t94", "\t944"), FAULT(WordLength), 0, 1},
    {"eight digits", replacing("\t", "\t94209420 "), FAULT(EightDigitWord), 0, -1},
    {"other parity", replacing("\t94", "\t14"), FAULT(Parity), 0, 0},
    {"the other case", [](Lines &lines, size_t line) { turn(lines[line]); }, 0, 0, 0},
    {"one digit", [](Lines &lines, size_t line) { lines[line].erase(lines[line].find('\t') + 2, 3); },
     FAULT(WordLength), 0, 1},
    {"two words of two digits", replacing("\t", "\t94 20 "), FAULT(WordLength), 0, 0},
    {"twelve digits", replacing("\t", "\t942094209420 "), FAULT(WordLength), 0, 0},
    {"a word of 200,000 digits", replacing("\t", "\t" + std::string(200000, '9') + " "), FAULT(WordLength), 0,
     0},
    {"two blanks between words", replacing(" ", "  "), 0, 0, 0},
    {"a tab between words", replacing(" ", "\t"), 0, 0, 0},
    {"the other counting's separator", at(8, 1, ";"), FAULT(OtherCounting), 0, 0},
    {"twice", [](Lines &lines, size_t line) { lines[line + 1] = lines[line]; }, FAULT(SameFrame), 1, -kAll},
};

// Of the whole file.
const std::vector<Mutation> kWhole = {
    {"a byte-order mark", [](Lines &lines, size_t) { lines[0].insert(0, "\xEF\xBB\xBF"); },
     FAULT(ByteOrderMark), kFirst, 0},
    {"header in the other case", [](Lines &lines, size_t) { turn(lines[0]); }, FAULT(HeaderCase), kFirst, 0},
    {"blanks before the first line", [](Lines &lines, size_t) { lines[0].insert(0, "  "); },
     FAULT(HeaderBlanks), kFirst, 0},
    {"200 unknown lines", [](Lines &lines, size_t) { lines.insert(lines.begin() + 1, 200, "x"); },
     FAULT(HeaderUnknown), kFirst + 1, 0},
    {"blank lines first", [](Lines &lines, size_t) { lines.insert(lines.begin(), 2, ""); },
     FAULT(HeaderBlanks), kFirst + 2, 0},
    {"an unknown line", [](Lines &lines, size_t) { lines.insert(lines.begin() + 1, "Author=x"); },
     FAULT(HeaderUnknown), kFirst + 1, 0},
    {"a long line", [](Lines &lines, size_t) { lines.insert(lines.begin() + 1, std::string(200000, 'y')); },
     FAULT(HeaderLong), kFirst + 1, 0},
    {"no first line", [](Lines &lines, size_t) { lines[0] = "// gone"; }, FAULT(HeaderMissing), kAnywhere, 0},
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
    const auto told = std::ranges::find(reading.faults, mutation.fault, &KIVCS2CaptionFileFault::m_fault);
    ASSERT_NE(told, reading.faults.end());
    if (mutation.line != kAnywhere)
    {
        EXPECT_EQ(told->m_line, mutation.line < 0 ? static_cast<uint64_t>(mutation.line - kFirst + 1)
                                                  : line + 1 + static_cast<uint64_t>(mutation.line));
    }
}

TEST(CaptionMutants, NeighboursAreKeptAndEachDamageIsTold)
{
    size_t mutants = 0;
    for (const char *sample : {"pop-on-ndf.scc", "paint-on-overlap.scc", "pop-on-25.mcc",
                               "plain-hex-30df.mcc", "suffixes-v2-crlf.mcc"})
    {
        Lines clean = linesOf(fileText(std::string{KIV_TEST_DATA "/"} + sample));
        Reading good{joined(clean)};
        good.all();
        ASSERT_GT(good.packets.size(), 10u);
        const bool isSCC = good.header.m_kind == KIVCS2CaptionFileKind_SCC;
        // A caption line in the middle; behind the first, so that the header is read as it is.
        const size_t line = isSCC ? 4 : good.packets[good.packets.size() / 2].m_line - 1;
        for (const auto *mutations : {&kAnyLine, isSCC ? &kSCCLine : &kMCCLine, &kWhole})
            for (const Mutation &mutation : *mutations)
            {
                check(sample, mutation, good, line);
                ++mutants;
            }
        for (const char *end : {"\r\n", "\r"})
        {
            Reading other{joined(clean, end)};
            EXPECT_EQ(other.all().packets.size(), good.packets.size());
            EXPECT_EQ(other.faults.size(), good.faults.size());
            ++mutants;
        }
    }
    EXPECT_EQ(kAnyLine.size() + kMCCLine.size() + kWhole.size() + 2, 58u);
    EXPECT_EQ(kAnyLine.size() + kSCCLine.size() + kWhole.size() + 2, 57u);
    EXPECT_GE(mutants, 200u);
}
} // namespace
