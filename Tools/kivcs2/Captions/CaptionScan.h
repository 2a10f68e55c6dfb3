// Caption programmes: the pairs of an SCC file on their frames, and one pass over an MCC file.
#ifndef KIV_TOOL_CAPTION_SCAN_H
#define KIV_TOOL_CAPTION_SCAN_H

#include "Captions/CEA608.h"
#include "Captions/CaptionFile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

/// One pair on the frame it goes out.
struct ScheduledPair
{
    uint32_t frame;
    uint32_t line; ///< index into Schedule::lines
    Pair pair;
};

struct ScheduledLine
{
    uint64_t number;    ///< in the file
    uint32_t frame;     ///< of its timecode
    uint32_t firstPair; ///< in file order
    uint32_t pairs;
};

/// The pairs of an SCC file, one a frame in rising order. A line that starts while an earlier one
/// is still going out waits for it; lines out of order are put in the order of their timecodes, and
/// lines with the same timecode follow each other as in the file. No pair is left out.
struct Schedule
{
    std::vector<ScheduledPair> pairs;
    std::vector<ScheduledLine> lines; ///< in the order they go out
    uint64_t delayedPairs = 0;        ///< pairs that go out later than their line says
    uint64_t delayedLines = 0;
    uint32_t longestDelay = 0;   ///< frames
    uint64_t backwards = 0;      ///< lines with an earlier timecode than the line before
    uint64_t sameTimecode = 0;   ///< lines with the timecode of another
    uint64_t firstBackwards = 0; ///< line number, or 0
    uint64_t wrongParity = 0;    ///< pairs

    [[nodiscard]] const ScheduledPair *at(uint32_t frame) const;
};

[[nodiscard]] Schedule readSchedule(CaptionReader &reader);

/// Gives every byte odd parity; the number of pairs that had another.
uint64_t setOddParity(Schedule &schedule);

/// What was odd about a schedule, as names and sentences.
[[nodiscard]] std::vector<std::pair<std::string_view, std::string>>
scheduleNotes(const Schedule &schedule, const CaptionReader &reader);

/// Shows a schedule on a screen, to its end.
void play(const Schedule &schedule, CaptionScreen &screen);

/// What one pass over an MCC file found.
struct MCCScan
{
    uint64_t packets = 0;
    uint64_t cdps = 0;
    uint64_t captions = 0; ///< shown to a viewer, all channels
    uint64_t pairs[2] = {};
    uint64_t gapFrames = 0; ///< frames without a packet between the first and the last
    std::optional<uint32_t> firstFrame, lastFrame;
    uint8_t rateCode = 0;          ///< cdp_frame_rate of the first CDP
    uint32_t digest = 0xFFFFFFFFu; ///< CRC-32 over timecodes, suffixes and packets
    uint64_t suffixes = 0;         ///< lines with a version 2 suffix

    Finding badPackets, badSequence, notRising, sameTimecode, rateDisagrees, wrongParity, otherPairs;
    uint64_t foundPairs = 0; ///< pairs that are as in the schedule
};

struct MCCPacket
{
    uint64_t line;
    uint32_t frame;
    const PairList (&pairs)[2]; ///< by field
};

/// Options of a pass.
struct ScanOptions
{
    const Schedule *against = nullptr; ///< compare the pairs of `field` with these
    uint32_t field = 1;
    /// What a viewer sees, caption by caption.
    CaptionScreen::OnCaption onCaption = {};
    std::function<void(const MCCPacket &)> onPacket = {};
    std::string what = {}; ///< for the line of progress; "reading <file>" when empty
};

[[nodiscard]] MCCScan scanMCC(CaptionReader &reader, const ScanOptions &options);

/// Carries a digest over one caption of an MCC file.
void addToDigest(uint32_t &digest, const KIVCS2ClosedCaption &caption);

/// True when a CDP of that rate code belongs under that time code rate.
[[nodiscard]] bool ratesAgree(const Counting &counting, uint8_t cdpCode);

} // namespace tool

#endif
