// Scheduling the pairs of an SCC file, and scanning MCC files.
#include "Captions/CaptionScan.h"

#include "Failure.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tool
{

const ScheduledPair *Schedule::at(uint32_t frame) const
{
    const auto pair = std::ranges::lower_bound(pairs, frame, {}, &ScheduledPair::frame);
    return pair != pairs.end() && pair->frame == frame ? &*pair : nullptr;
}

Schedule readSchedule(CaptionReader &reader)
{
    Schedule schedule;
    std::vector<Pair> inFileOrder;
    Progress progress{"reading " + reader.input().name()};
    while (reader.next())
    {
        const KIVCS2ClosedCaption &caption = reader.caption();
        const uint32_t frame = framesOf(caption.m_timecode);
        const uint64_t number = reader.lineNumber();
        // The pieces of a long line follow each other without a gap.
        const bool continued = !schedule.lines.empty() && schedule.lines.back().number == number;
        if (!continued)
        {
            if (!schedule.lines.empty() && frame < schedule.lines.back().frame)
            {
                ++schedule.backwards;
                if (schedule.firstBackwards == 0)
                    schedule.firstBackwards = number;
            }
            schedule.lines.push_back({number, frame, static_cast<uint32_t>(inFileOrder.size()), 0});
        }
        for (uint32_t index = 0; index + 1 < caption.m_captionSize; index += 2)
        {
            const Pair pair{caption.m_captionData[index], caption.m_captionData[index + 1]};
            inFileOrder.push_back(pair);
            schedule.wrongParity += hasOddParity(pair) ? 0 : 1;
            ++schedule.lines.back().pairs;
        }
        progress.at(reader.input().position(), reader.input().size());
    }

    std::ranges::stable_sort(schedule.lines, {}, &ScheduledLine::frame);
    schedule.pairs.reserve(inFileOrder.size());
    uint64_t next = 0; // the first frame that is still free
    for (uint32_t index = 0; index < schedule.lines.size(); ++index)
    {
        const ScheduledLine &line = schedule.lines[index];
        if (index > 0 && schedule.lines[index - 1].frame == line.frame)
            ++schedule.sameTimecode;
        const uint64_t start = std::max<uint64_t>(line.frame, next);
        if (start + line.pairs >= UINT32_MAX)
            throw Failure(KIVCS2STATUS_INVALID_TIMECODE_ERR, Where{reader.input().name(), line.number},
                          "more frames than a timecode holds");
        if (line.pairs > 0 && start > line.frame)
        {
            ++schedule.delayedLines;
            schedule.delayedPairs += line.pairs;
            schedule.longestDelay =
                std::max(schedule.longestDelay, static_cast<uint32_t>(start - line.frame));
        }
        for (uint32_t pair = 0; pair < line.pairs; ++pair)
            schedule.pairs.push_back(
                {static_cast<uint32_t>(start + pair), index, inFileOrder[line.firstPair + pair]});
        next = std::max(next, start + line.pairs);
    }
    return schedule;
}

uint64_t setOddParity(Schedule &schedule)
{
    for (ScheduledPair &scheduled : schedule.pairs)
        scheduled.pair = {kivCS2ClosedCaptions_oddParityByte(scheduled.pair.first),
                          kivCS2ClosedCaptions_oddParityByte(scheduled.pair.second)};
    return std::exchange(schedule.wrongParity, 0);
}

std::vector<std::pair<std::string_view, std::string>> scheduleNotes(const Schedule &schedule,
                                                                    const CaptionReader &reader)
{
    std::vector<std::pair<std::string_view, std::string>> notes;
    if (schedule.backwards > 0)
        notes.emplace_back("Out of order",
                           count(schedule.backwards, "line") + " earlier than the line before, first line " +
                               std::to_string(schedule.firstBackwards) + "; placed by timecode");
    if (schedule.sameTimecode > 0)
        notes.emplace_back("Same timecode", count(schedule.sameTimecode, "line") +
                                                " with the timecode of another; one after the other");
    if (schedule.delayedPairs > 0)
        notes.emplace_back(
            "Overlap", count(schedule.delayedPairs, "pair") + " of " + count(schedule.delayedLines, "line") +
                           " wait for earlier lines, by up to " + count(schedule.longestDelay, "frame"));
    if (schedule.wrongParity > 0)
        notes.emplace_back("Parity",
                           count(schedule.wrongParity, "pair") + " without odd parity, kept as they are");
    if (reader.otherSeparators() > 0)
        notes.emplace_back("Separators", count(reader.otherSeparators(), "line") +
                                             " with the separator of another counting");
    return notes;
}

void play(const Schedule &schedule, CaptionScreen &screen)
{
    uint32_t next = 0;
    for (const ScheduledPair &pair : schedule.pairs)
    {
        screen.feed(pair.frame, pair.pair);
        next = pair.frame + 1;
    }
    screen.finish(next);
}

void addToDigest(uint32_t &digest, const KIVCS2ClosedCaption &caption)
{
    static KIVCS2CRC32Param table = []
    {
        KIVCS2CRC32Param built{};
        kivCS2Utils_initCRC32Table(&built);
        built.m_tableBuilt = 1;
        return built;
    }();
    const uint32_t head[] = {framesOf(caption.m_timecode), caption.m_flags, caption.m_field, caption.m_number,
                             caption.m_captionSize};
    digest = kivCSUtils_updateCRC32(&table, digest, reinterpret_cast<const uint8_t *>(head), sizeof head);
    digest = kivCSUtils_updateCRC32(&table, digest, caption.m_captionData, caption.m_captionSize);
}

bool ratesAgree(const Counting &counting, uint8_t cdpCode)
{
    // "30" is written for 29.97 and 30 without dropped frames alike, "24" for 23.98 and 24.
    return std::ranges::any_of(countings(), [&](const Counting &row)
                               { return row.cdpCode == cdpCode && row.mccText == counting.mccText; });
}

MCCScan scanMCC(CaptionReader &reader, const ScanOptions &options)
{
    MCCScan scan;
    PacketInspector inspector;
    const Counting &counting = *reader.header().counting;
    const auto onCaption = [&](const ShownCaption &caption)
    {
        ++scan.captions;
        if (options.onCaption)
            options.onCaption(caption);
    };
    CaptionScreen screens[2] = {{1, onCaption}, {2, onCaption}};
    std::optional<uint16_t> sequence;
    std::array<uint32_t, 3> lastSuffix{};
    Progress progress{options.what.empty() ? "reading " + reader.input().name() : options.what};
    while (reader.next())
    {
        const KIVCS2ClosedCaption &caption = reader.caption();
        const uint64_t line = reader.lineNumber();
        const uint32_t frame = framesOf(caption.m_timecode);
        ++scan.packets;
        addToDigest(scan.digest, caption);
        const std::array suffix{caption.m_flags, caption.m_field, caption.m_number};
        if ((caption.m_flags & (KIVCS2ClosedCaptionFlag_HasField | KIVCS2ClosedCaptionFlag_HasNumber)) != 0)
            ++scan.suffixes;
        if (scan.lastFrame)
        {
            // 23:59:59 is followed by 00:00:00: a programme may run over midnight.
            uint32_t day = 0;
            (void)kivCS2Timecode_getFramesPerDay(&day); // always succeeds
            const bool overMidnight = frame<*scan.lastFrame && * scan.lastFrame - frame> day / 2;
            if (frame == *scan.lastFrame)
            {
                // Suffixes tell the fields and packets of one frame apart.
                if (suffix == lastSuffix)
                    scan.sameTimecode.add(line, timecodeText(frame) + " again");
            }
            else if (frame < *scan.lastFrame && !overMidnight)
                scan.notRising.add(line, timecodeText(frame) + " after " + timecodeText(*scan.lastFrame));
            else
                scan.gapFrames += (overMidnight ? frame + day : frame) - *scan.lastFrame - 1;
        }
        else
            scan.firstFrame = frame;
        scan.lastFrame = frame;
        lastSuffix = suffix;

        const PacketFacts facts = inspector.inspect(caption);
        if (!facts.faults.empty())
            scan.badPackets.add(line, facts.faults.front());
        if (facts.isCDP)
        {
            ++scan.cdps;
            if (sequence && facts.sequence != static_cast<uint16_t>(*sequence + 1))
                scan.badSequence.add(line,
                                     std::to_string(facts.sequence) + " after " + std::to_string(*sequence));
            sequence = facts.sequence;
            if (scan.rateCode == 0)
                scan.rateCode = facts.rateCode;
            if (!ratesAgree(counting, facts.rateCode))
                scan.rateDisagrees.add(line, "CDP says " + std::string{cdpRateName(facts.rateCode)} +
                                                 ", file says " + std::string{counting.mccText});
        }
        for (size_t field = 0; field < 2; ++field)
            for (const Pair pair : facts.pairs[field].all())
            {
                screens[field].feed(frame, pair);
                if (isNull(pair))
                    continue;
                ++scan.pairs[field];
                if (!hasOddParity(pair))
                    scan.wrongParity.add(line, hex(pair));
            }
        if (options.against != nullptr)
        {
            const ScheduledPair *expected = options.against->at(frame);
            const PairList &found = facts.pairs[options.field - 1];
            const bool more = std::ranges::any_of(found.all().subspan(std::min(found.count, 1u)),
                                                  [](Pair pair) { return !isNull(pair); });
            if (expected != nullptr && expected->pair == found.only() && !more)
                ++scan.foundPairs;
            else if (expected != nullptr || found.only() != kNoCaption || more)
                scan.otherPairs.add(line, timecodeText(frame) + " has " + hex(found.only()) +
                                              (more ? " and more" : "") + ", source has " +
                                              (expected != nullptr ? hex(expected->pair) : "nothing"));
        }
        if (options.onPacket)
            options.onPacket({line, frame, facts.pairs});
        progress.at(reader.input().position(), reader.input().size());
    }
    if (scan.lastFrame)
        for (CaptionScreen &screen : screens)
            screen.finish(*scan.lastFrame + 1);
    return scan;
}

} // namespace tool
