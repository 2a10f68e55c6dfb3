// Cues read back from SRT and WebVTT, compared with the captions that were written.
#include "Captions/Cues.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace
{
using tool::Cues;

struct Row
{
    bool isVTT;
    const char *file;
    bool isSame;
};

// Two captions: "A <i>&\nB" from 1 to 2.5 seconds, and "C" an hour later.
TEST(Cues, AreComparedByTimesAndTexts)
{
    const std::string end = "\n\n2\n01:00:01,000 --> 01:00:02,000\n{\\an8}C\n\n";
    const std::vector<Row> rows = {
        {false, "1\n00:00:01,000 --> 00:00:02,500\n<u>A <<i>i>&</i>\n  <font color=\"#00ff00\">B</font></u>",
         true},
        {false, "1\n00:00:01,000 --> 00:00:02,500\n<u>A <<i>i>&</i>\n<b>B</b></u>", false},
        {false, "1\n00:00:01,000 --> 00:00:02,500\nA <i>&", false},
        {false, "1\n00:00:01,000 --> 00:00:02,501\nA <i>&\nB", false},
        {false, "1\n00:00:01,000 -> 00:00:02,500\nA <i>&\nB", false},
        {true, "00:00:01.000 --> 00:00:02.500 line:90%\n<c.green>A &lt;i&gt;</c>&amp;\nB", true},
        {true, "00:00:01.000 --> 00:00:02.500 line:90%\nA <i>&amp;\nB", false},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.file);
        Cues written{row.isVTT}, found{row.isVTT};
        written.add(1000, 2500, "A <i>&\nB");
        written.add(3'601'000, 3'602'000, row.isVTT ? "{\\an8}C" : "C");
        std::istringstream file{row.file + end};
        found.read(file);
        EXPECT_EQ(found == written, row.isSame);
    }
}

} // namespace
