// kivcs2 caption verify.
#include "Captions/CaptionScan.h"
#include "Failure.h"
#include "Terminal/Output.h"
#include "Words/Caption.h"

#include <algorithm>

namespace tool
{
namespace
{

struct Check
{
    std::string name;
    bool ok;
    std::string detail;
};

Check checkOf(std::string name, const Finding &finding, std::string_view noun, std::string good)
{
    if (finding.count == 0)
        return {std::move(name), true, std::move(good)};
    return {std::move(name), false, count(finding.count, noun) + ", first " + finding.first};
}

// What an MCC file must be, whatever it was made from.
std::vector<Check> checksOf(const MCCScan &scan, const Finding &badLines, const CaptionHeader &header)
{
    std::vector<Check> checks;
    checks.push_back(checkOf("lines", badLines, "malformed line", count(scan.packets, "packet")));
    checks.push_back(
        checkOf("packets", scan.badPackets, "faulty packet", "lengths, sections and checksums are right"));
    checks.push_back(checkOf("sequence", scan.badSequence, "break", "sequence numbers follow each other"));
    Finding order = scan.notRising;
    if (scan.sameTimecode.count > 0)
        order.add(0, scan.sameTimecode.first);
    order.count = scan.notRising.count + scan.sameTimecode.count;
    checks.push_back(
        checkOf("timecodes", order, "timecode",
                "rising" + (scan.gapFrames > 0 ? ", " + count(scan.gapFrames, "frame") + " without a packet"
                                               : std::string{", one packet a frame"})));
    if (order.count > 0)
        checks.back().detail =
            count(order.count, "timecode") + " not above the one before, first " + order.first;
    checks.push_back(checkOf("frame rate", scan.rateDisagrees, "packet",
                             "packets and header agree on " + std::string{header.counting->mccText}));
    checks.push_back(checkOf("parity", scan.wrongParity, "pair", "odd in every pair"));
    return checks;
}

Check pairsCheck(const MCCScan &scan, const Schedule &schedule)
{
    const uint64_t missing =
        schedule.pairs.size() - std::min<uint64_t>(schedule.pairs.size(), scan.foundPairs);
    if (scan.otherPairs.count == 0 && missing == 0)
        return {"pairs", true, count(schedule.pairs.size(), "pair") + " as in the source"};
    std::string detail = std::to_string(scan.foundPairs) + " of " + std::to_string(schedule.pairs.size()) +
                         " pairs as in the source";
    if (scan.otherPairs.count > 0)
        detail += ", " + count(scan.otherPairs.count, "frame") + " differ, first " + scan.otherPairs.first;
    return {"pairs", false, detail};
}

bool allOk(const std::vector<Check> &checks)
{
    return std::ranges::all_of(checks, &Check::ok);
}

void printChecks(const std::vector<Check> &checks, const CaptionArguments &arguments)
{
    if (arguments.json)
    {
        Json list = Json::array();
        for (const Check &check : checks)
            list.push_back({{"check", check.name}, {"ok", check.ok}, {"detail", check.detail}});
        out().json({{"file", place(arguments.file, 0)}, {"ok", allOk(checks)}, {"checks", list}});
        return;
    }
    Table table{"Check", "Result", "Detail"};
    for (const Check &check : checks)
        table.add({check.name, check.ok ? Output::good("ok") : Output::bad("fails"), check.detail});
    table.print();
}

// An SCC file of its own: its lines, their order and their parity.
std::vector<Check> verifySCC(CaptionReader &reader, const Finding &badLines)
{
    const Schedule schedule = readSchedule(reader);
    std::vector<Check> checks;
    checks.push_back(
        checkOf("lines", badLines, "malformed line",
                count(schedule.lines.size(), "line") + ", " + count(schedule.pairs.size(), "pair")));
    const auto notes = scheduleNotes(schedule, reader);
    for (const auto &[name, key] : {std::pair{"order", "Out of order"},
                                    {"timecodes", "Same timecode"},
                                    {"overlap", "Overlap"},
                                    {"parity", "Parity"},
                                    {"separators", "Separators"}})
    {
        const auto found =
            std::ranges::find(notes, std::string_view{key}, &std::pair<std::string_view, std::string>::first);
        checks.push_back({name, found == notes.end(), found == notes.end() ? "nothing odd" : found->second});
    }
    return checks;
}

// MCC against MCC: the same packets on the same timecodes.
Check againstMCC(const CaptionArguments &arguments, uint32_t digest)
{
    Finding badLines;
    CaptionReader source{arguments.against, arguments.rate, countIn(badLines)};
    uint32_t sourceDigest = 0xFFFFFFFFu;
    uint64_t packets = 0;
    while (source.next())
    {
        addToDigest(sourceDigest, source.caption());
        ++packets;
    }
    return {"source", digest == sourceDigest && badLines.count == 0,
            digest == sourceDigest ? "the same " + count(packets, "packet") + " on the same timecodes"
                                   : "other packets than the source's " + std::to_string(packets)};
}

} // namespace

int captionVerify(const CaptionArguments &arguments)
{
    if (arguments.file == "-" && arguments.against == "-")
        throw Failure(kExitUsage, "standard input can be the file or its source, not both");
    // The source first: its counting must be the one in use while its lines are read.
    std::optional<Schedule> schedule;
    bool sourceIsMCC = false;
    const Counting *sourceCounting = nullptr;
    if (!arguments.against.empty())
    {
        CaptionReader source{arguments.against, arguments.rate, tellBadLines(arguments.against, false)};
        sourceCounting = source.header().counting;
        sourceIsMCC = source.header().kind == CaptionFileKind::MCC;
        if (sourceIsMCC && (arguments.against == "-" || !source.input().isRegularFile()))
            throw Failure(kExitUsage, "an MCC source is read a second time: give it as a file");
        if (!sourceIsMCC)
            schedule = readSchedule(source);
        if (schedule && arguments.fixParity)
            (void)setOddParity(*schedule); // the number was told when the file was made
    }

    Finding badLines;
    CaptionReader reader{arguments.file, arguments.rate, countIn(badLines)};
    if (reader.header().kind == CaptionFileKind::SCC)
    {
        if (!arguments.against.empty())
            throw Failure(kExitUsage, "an SCC file is the source of others: verify the MCC file against it");
        const std::vector<Check> checks = verifySCC(reader, badLines);
        printChecks(checks, arguments);
        return allOk(checks) ? kExitYes : kExitNo;
    }
    const MCCScan scan = scanMCC(reader, {schedule ? &*schedule : nullptr, arguments.field, {}, {}});
    std::vector<Check> checks = checksOf(scan, badLines, reader.header());
    if (sourceCounting != nullptr && sourceCounting->drop != reader.header().counting->drop)
        checks.push_back({"counting", false,
                          "the file counts " + std::string{reader.header().counting->name} + ", the source " +
                              std::string{sourceCounting->name}});
    if (schedule)
        checks.push_back(pairsCheck(scan, *schedule));
    if (sourceIsMCC)
        checks.push_back(againstMCC(arguments, scan.digest));
    printChecks(checks, arguments);
    return allOk(checks) ? kExitYes : kExitNo;
}

} // namespace tool
