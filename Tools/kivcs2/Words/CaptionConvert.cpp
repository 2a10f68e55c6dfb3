// kivcs2 caption convert and verify.
#include "Captions/CaptionPacket.h"
#include "Captions/CaptionScan.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"
#include "Words/Caption.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <system_error>

namespace tool
{
namespace
{

constexpr const char *kProgram = "kivcs2 " KIVCS2_TOOL_VERSION;

/// A stream kind of our own that passes caption lines on with the letter U (E1 00 00) spelled out: readers take it
/// for three bytes or for four, and some refuse a file that holds it.
struct SpelledOut
{
    KIVCS2Stream stream{}; ///< first: the library hands this part back
    KIVCS2Stream *to;
    bool isCaption = false; ///< the header's text stays as it is

    explicit SpelledOut(KIVCS2Stream &target) : to(&target)
    {
        stream.m_writeBytes = write;
    }

    static KIVCS2Status write(KIVCS2Stream *stream, const void *buffer, uint64_t size, uint64_t *bytesWritten)
    {
        const SpelledOut &self = *reinterpret_cast<SpelledOut *>(stream);
        std::string text{static_cast<const char *>(buffer), size};
        if (self.isCaption) // a line's other characters are digits, separators and other letters
            for (size_t at = text.find('U'); at != std::string::npos; at = text.find('U', at))
                text.replace(at, 1, "E1ZZ");
        uint64_t written = 0;
        const KIVCS2Status status = kivCS2Stream_writeBytes(self.to, text.data(), text.size(), &written);
        if (bytesWritten != nullptr)
            *bytesWritten = written == text.size() ? size : 0;
        return status;
    }
};

/// The library's MCC writer over an output file.
class MCCWriter
{
public:
    MCCWriter(OutputFile &output, uint32_t version, const CaptionHeader &header)
        : m_stream(output), m_spelledOut(m_stream.stream)
    {
        check(kivCS2ClosedCaptionsMCCStream_init(&m_record, &m_spelledOut.stream, false, false),
              "MCC writer");
        const auto text = [](const std::string &value)
        {
            return value.empty() ? nullptr : value.c_str();
        };
        done(kivCS2ClosedCaptionsMCCStream_writeHeader(&m_record, version, text(header.uuid),
                                                       header.program.empty() ? kProgram
                                                                              : header.program.c_str(),
                                                       text(header.date), text(header.time)),
             "writing the header");
        m_spelledOut.isCaption = true;
    }
    ~MCCWriter()
    {
        (void)kivCS2ClosedCaptionsMCCStream_free(&m_record);
    }
    MCCWriter(const MCCWriter &) = delete;
    MCCWriter &operator=(const MCCWriter &) = delete;

    void write(const KIVCS2ClosedCaption &caption)
    {
        done(kivCS2ClosedCaptionsMCCStream_writeCaption(&m_record, &caption),
             "writing the packet of " + timecodeText(caption.m_timecode));
    }

    void write(uint32_t frame, std::span<const uint8_t> cdp)
    {
        KIVCS2Timecode timecode = 0;
        check(kivCS2Timecode_initWithFrames(&timecode, frame), "timecode");
        KIVCS2ClosedCaption caption{};
        check(kivCS2ClosedCaptionsMCCStream_initCaptionWithSMPTE334CDP708Packet(
                  &m_record, &caption, &timecode, cdp.data(), static_cast<uint32_t>(cdp.size())),
              "wrapping a packet");
        write(caption);
    }

    /// The line end of the last line, which the writer leaves to the next one.
    void finish()
    {
        uint64_t written = 0;
        done(kivCS2Stream_writeBytes(&m_stream.stream, "\n", 1, &written), "writing the last line");
    }

private:
    void done(KIVCS2Status status, const std::string &what)
    {
        m_stream.check(); // the system's reason is better than the status
        check(status, what);
    }

    OutputStream m_stream;
    SpelledOut m_spelledOut;
    KIVCS2ClosedCaptionsMCCStream m_record{};
};

/// MCC is all that is written: another ending asks for what the command cannot do. A pipe or device has none.
void requireMCCTarget(const std::string &target)
{
    const std::string_view ending = ".mcc";
    const std::string given =
        std::filesystem::path{target}.extension(); // none of a hidden file called ".mcc"
    const auto isSame = [](char left, char right)
    {
        return std::tolower(static_cast<unsigned char>(left)) == right;
    };
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(target, error);
    const bool isPlace = std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
    if (target == "-" || isPlace ||
        std::equal(given.begin(), given.end(), ending.begin(), ending.end(), isSame))
        return;
    throw Failure(kExitUsage, Where{target, 0},
                  "only MCC files are written: give the target the ending .mcc");
}

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

// The summary goes where the captions do not: to standard error when they went to standard output.
void report(const CaptionArguments &arguments, const Json &value, const Facts &facts)
{
    Output &to = arguments.target == "-" ? errors() : out();
    if (arguments.json)
        to.json(value);
    else
        facts.print(to);
    if (&to != &out())
        to.flush();
}

/// Reads the file just written back and throws unless it is right.
MCCScan readBack(const std::string &path, const CaptionArguments &arguments, const Counting &counting,
                 const Schedule *schedule)
{
    Finding badLines;
    CaptionReader reader{path, std::string{counting.name}, countIn(badLines)};
    MCCScan scan =
        scanMCC(reader, {schedule, arguments.field, {}, {}, "reading back " + place(arguments.target, 0)});
    if (schedule != nullptr)
    {
        std::vector<Check> checks = checksOf(scan, badLines, reader.header());
        // A source without odd parity is reported, and kept.
        std::erase_if(checks, [](const Check &check) { return check.name == "parity"; });
        checks.push_back(pairsCheck(scan, *schedule));
        for (const Check &check : checks)
            if (!check.ok)
                throw Failure(kExitInternal,
                              "the written file reads back wrong: " + check.name + ": " + check.detail);
    }
    return scan;
}

int convertSCC(const CaptionArguments &arguments, CaptionReader &reader)
{
    const Counting &counting = *reader.header().counting;
    if (counting.numerator / counting.denominator > 30)
        throw Failure(kExitUsage, "--rate " + std::string{counting.name} +
                                      ": an SCC file has one pair a frame at up to 30 frames a second (line "
                                      "21); the rates from 23.98 to 30 can be written");
    Schedule schedule = readSchedule(reader);
    const uint64_t repaired = arguments.fixParity ? setOddParity(schedule) : 0;
    if (schedule.pairs.empty())
        throw Failure(KIVCS2STATUS_NO_DATA_ERR, Where{reader.input().name()}, "holds no caption pairs");

    uint64_t captionsIn = 0;
    CaptionScreen screen{arguments.field, [&](const ShownCaption &)
                         {
                             ++captionsIn;
                         }};
    play(schedule, screen);

    OutputFile output{arguments.target};
    uint64_t packets = 0, fillers = 0;
    const uint32_t version = arguments.mccVersion == 0 ? 1 : arguments.mccVersion;
    {
        MCCWriter writer{output, version, CaptionHeader{}};
        Progress progress{"writing " + place(arguments.target, 0)};
        uint32_t frame = schedule.pairs.front().frame;
        const auto put = [&](Pair pair)
        {
            const bool first = arguments.field == 1;
            const BuiltCDP cdp = buildCDP(first ? pair : kNoCaption, first ? kNoCaption : pair,
                                          static_cast<uint16_t>(packets), counting, arguments.sdi);
            writer.write(frame, cdp.span());
            ++packets;
            ++frame;
        };
        for (const ScheduledPair &pair : schedule.pairs)
        {
            for (; !arguments.sparse && frame < pair.frame; ++fillers)
                put(kNoCaption);
            frame = pair.frame;
            put(pair.pair);
            progress.at(output.size(), 0);
        }
        writer.finish();
    }
    output.flush();
    const MCCScan scan = readBack(output.readablePath(), arguments, counting, &schedule);
    if (scan.packets != packets)
        throw Failure(kExitInternal, "the written file reads back wrong: " + count(scan.packets, "packet") +
                                         " of " + std::to_string(packets));
    const std::string first = timecodeText(schedule.pairs.front().frame);
    const std::string last = timecodeText(schedule.pairs.back().frame);
    output.commit();

    const Json value{
        {"source", reader.input().name()},
        {"target", arguments.target},
        {"counting", counting.name},
        {"dropFrame", counting.drop},
        {"version", version},
        {"in",
         {{"lines", schedule.lines.size()}, {"pairs", schedule.pairs.size()}, {"captions", captionsIn}}},
        {"out",
         {{"packets", packets},
          {"pairs", scan.foundPairs},
          {"captions", scan.captions},
          {"emptyPackets", fillers}}},
        {"first", first},
        {"last", last},
        {"delayedPairs", schedule.delayedPairs},
        {"longestDelayFrames", schedule.longestDelay},
        {"linesBackInTime", schedule.backwards},
        {"linesWithSameTimecode", schedule.sameTimecode},
        {"pairsWithWrongParity", schedule.wrongParity},
        {"pairsWithParityRepaired", repaired},
        {"verified", true}};
    Facts facts;
    facts.add("Counting", std::string{counting.title} + " (" + reader.header().countingReason + ")");
    facts.add("In", count(schedule.lines.size(), "line") + ", " + count(schedule.pairs.size(), "pair") +
                        ", " + count(captionsIn, "caption"));
    facts.add("Out",
              count(packets, "packet") + ", " + count(scan.foundPairs, "pair") + ", " +
                  count(scan.captions, "caption") +
                  (fillers > 0 ? "; " + count(fillers, "packet") + " without captions between them" : ""));
    facts.add("From", first + " until " + last);
    for (const auto &[name, text] : scheduleNotes(schedule, reader))
        facts.add(name, text);
    if (repaired > 0)
        facts.add("Parity", count(repaired, "pair") + " given odd parity");
    facts.add("Verified",
              Output::good("yes") + ", read back: every pair on its frame, sequence and checksums right");
    report(arguments, value, facts);
    return kExitYes;
}

int convertMCC(const CaptionArguments &arguments, CaptionReader &reader)
{
    const CaptionHeader &header = reader.header();
    const uint32_t version = arguments.mccVersion == 0 ? 2 : arguments.mccVersion;
    OutputFile output{arguments.target};
    uint64_t packets = 0;
    uint32_t digest = 0xFFFFFFFFu;
    {
        MCCWriter writer{output, version, header};
        Progress progress{"converting " + reader.input().name()};
        while (reader.next())
        {
            const KIVCS2ClosedCaption &caption = reader.caption();
            if (version < 2 && (caption.m_flags & KIVCS2ClosedCaptionFlag_HasField) != 0)
                throw Failure(KIVCS2STATUS_FORMAT_ERR, Where{reader.input().name(), reader.lineNumber()},
                              "a field suffix, which version 1 cannot hold");
            writer.write(caption);
            addToDigest(digest, caption);
            ++packets;
            progress.at(reader.input().position(), reader.input().size());
        }
        writer.finish();
    }
    if (packets == 0) // every line was bad, and passed over
        throw Failure(KIVCS2STATUS_NO_DATA_ERR, Where{reader.input().name()}, "holds no caption packets");
    output.flush();
    const MCCScan scan = readBack(output.readablePath(), arguments, *header.counting, nullptr);
    if (scan.packets != packets || scan.digest != digest)
        throw Failure(kExitInternal, "the written file reads back wrong: other packets than the source's");
    output.commit();

    for (const std::string &other : header.others)
        note(reader.input().name() + ": header line not carried over: \"" + visible(other) + "\"");
    const Json value{{"source", reader.input().name()},
                     {"target", arguments.target},
                     {"counting", header.counting->name},
                     {"in", {{"version", header.version}, {"packets", packets}}},
                     {"out",
                      {{"version", version},
                       {"packets", scan.packets},
                       {"pairs", scan.pairs[0] + scan.pairs[1]},
                       {"captions", scan.captions}}},
                     {"headerLinesNotCarried", header.others.size()},
                     {"verified", true}};
    Facts facts;
    facts.add("Counting", std::string{header.counting->title} + " (" + header.countingReason + ")");
    facts.add("In", "version " + std::to_string(header.version) + ", " + count(packets, "packet"));
    facts.add("Out", "version " + std::to_string(version) + ", " + count(scan.packets, "packet") + ", " +
                         count(scan.pairs[0] + scan.pairs[1], "pair") + ", " +
                         count(scan.captions, "caption"));
    facts.add("Verified", Output::good("yes") + ", read back: every packet is the source's, byte for byte");
    report(arguments, value, facts);
    return kExitYes;
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

int captionConvert(const CaptionArguments &arguments)
{
    CaptionReader reader{arguments.file, arguments.rate, tellBadLines(arguments.file, arguments.keepGoing)};
    refuseSource(arguments.target); // first, as it is the more useful of the two messages
    requireMCCTarget(arguments.target);
    return reader.header().kind == CaptionFileKind::SCC ? convertSCC(arguments, reader)
                                                        : convertMCC(arguments, reader);
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

void addConvertWord(Word &caption, Context &context)
{
    const auto arguments = std::make_shared<CaptionArguments>();
    Word &convert = caption.word("convert", "SCC to MCC, or MCC to another version");
    convert.option("file", arguments->file, "An SCC or MCC file; - is standard input").required().isFile();
    convert.option("--rate", arguments->rate, "Count at this rate, whatever the file says")
        .suggests("rates", rateNames);
    convert.option("--field", arguments->field, {1, 2},
                   "The field that an SCC file's pairs belong to: 1 or 2");
    convert.flag("--keep-going", arguments->keepGoing, "Tell malformed lines and go on behind them");
    convert.option("target", arguments->target, "The MCC file to write, named *.mcc; - is standard output")
        .required()
        .isTarget();
    convert.option("--mcc-version", arguments->mccVersion, {1, 2},
                   "1 or 2; without it 1 from SCC, 2 from MCC");
    convert.flag("--sparse", arguments->sparse, "Packets only on frames that have a pair");
    convert.flag("--sdi", arguments->sdi, "Packets with a second service descriptor, language eng");
    convert.flag("--fix-parity", arguments->fixParity,
                 "Give every byte odd parity; without it pairs are kept");
    convert.example("kivcs2 caption convert programme.scc converted.mcc --mcc-version 2");
    convert.runs(
        [&context, arguments]
        {
            arguments->json = context.json;
            return captionConvert(*arguments);
        });
}

} // namespace tool
