// Damaged copies of our own samples, over a hundred: what is kept, what is lost, and where it is told.
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
std::function<void(Lines &, size_t)> replacing(const std::string &from, const std::string &to)
{
    return [=](Lines &lines, size_t at)
    {
        replaceIn(lines[at], from, to);
    };
}
std::function<void(Lines &, size_t)> at(size_t position, size_t size, const std::string &to)
{
    return [=](Lines &lines, size_t line)
    {
        lines[line].replace(position == std::string::npos ? lines[line].size() - size : position, size, to);
    };
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
    {"a comment before it",
     [](Lines &lines, size_t line) { lines.insert(lines.begin() + static_cast<ptrdiff_t>(line), "// note"); },
     0, 0, 0},
    {"an item of the header before it",
     [](Lines &lines, size_t line) { lines.insert(lines.begin() + static_cast<ptrdiff_t>(line), "Title=x"); },
     FAULT(NotACaption), 0, 0},
};

const std::vector<Mutation> kMCCLine = {
    {"lower case",
     [](Lines &lines, size_t line)
     {
         std::ranges::transform(lines[line], lines[line].begin(),
                                [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
     },
     FAULT(LowerCase), 0, 0},
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
    {"upper case", replacing("942", "942"), 0, 0, 0},
    {"twice", [](Lines &lines, size_t line) { lines[line + 1] = lines[line]; }, FAULT(SameFrame), 1, -kAll},
};

// Of the whole file.
const std::vector<Mutation> kWhole = {
    {"a byte-order mark", [](Lines &lines, size_t) { lines[0].insert(0, "\xEF\xBB\xBF"); },
     FAULT(ByteOrderMark), kFirst, 0},
    {"header in lower case",
     [](Lines &lines, size_t)
     {
         std::ranges::transform(lines[0], lines[0].begin(),
                                [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
     },
     FAULT(HeaderCase), kFirst, 0},
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
    EXPECT_GE(mutants, 150u);
}
} // namespace
