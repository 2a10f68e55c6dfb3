// kivcs2 caption: the command line, and info, show, at and decode.
#include "Words/Caption.h"

#include "Captions/CaptionScan.h"
#include "Failure.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <algorithm>
#include <memory>
#include <sstream>

namespace tool
{
namespace
{

/// Pairs as a list of code words and quoted text, doubled codes once.
class Transcript
{
public:
    void feed(Pair pair)
    {
        if (isNull(pair))
            return;
        if (isControl(pair) && m_repeat && pair == m_last)
        {
            m_repeat = false;
            return;
        }
        m_repeat = isControl(pair);
        m_last = pair;

        const std::string characters = textOf(pair);
        const bool extended = (pair.first & 0x76u) == 0x12 && (pair.second & 0x60u) == 0x20;
        if (characters.empty() || (isControl(pair) && characters == " "))
        {
            endText();
            m_items.push_back(shortWords(pair));
            return;
        }
        if (extended) // takes the place of the character before it
            while (!m_text.empty())
            {
                const auto byte = static_cast<unsigned char>(m_text.back());
                m_text.pop_back();
                if ((byte & 0xC0u) != 0x80u)
                    break;
            }
        m_text += characters;
        m_allText += m_allText.empty() || m_items.empty() || !m_fresh ? "" : " ";
        m_fresh = false;
        if (extended)
            while (!m_allText.empty())
            {
                const auto byte = static_cast<unsigned char>(m_allText.back());
                m_allText.pop_back();
                if ((byte & 0xC0u) != 0x80u)
                    break;
            }
        m_allText += characters;
    }

    /// Code words and texts in quotes, in their order.
    [[nodiscard]] const std::vector<std::string> &items()
    {
        endText();
        return m_items;
    }

    /// The texts alone.
    [[nodiscard]] const std::string &text() const
    {
        return m_allText;
    }

private:
    void endText()
    {
        if (!m_text.empty())
            m_items.push_back("\"" + m_text + "\"");
        m_text.clear();
        m_fresh = true;
    }

    std::vector<std::string> m_items;
    std::string m_text, m_allText;
    Pair m_last = kNoCaption;
    bool m_repeat = false;
    bool m_fresh = false;
};

/// Pairs that follow each other frame by frame: an SCC line, or a run of MCC packets.
struct Run
{
    uint32_t frame = 0;
    uint64_t line = 0;
    uint32_t field = 1;
    std::vector<Pair> pairs;
    uint32_t next = 0; ///< the frame that continues the run
};

void wrap(std::string_view indent, const std::vector<std::string> &words, std::string_view between)
{
    const size_t width = Output::width();
    std::string line{indent};
    bool first = true;
    for (const std::string &word : words)
    {
        const std::string piece = (first ? "" : std::string{between}) + word;
        if (!first && line.size() + piece.size() > width)
        {
            line += between.substr(0, between.find(' '));
            out().line(line);
            line = std::string{indent} + word;
        }
        else
            line += piece;
        first = false;
    }
    out().line(line);
}

class RunPrinter
{
public:
    RunPrinter(bool json, uint32_t from, uint32_t until) : m_from(from), m_until(until)
    {
        if (json)
            m_array.emplace();
    }

    void print(const Run &run)
    {
        if (run.frame < m_from || run.frame > m_until || (run.pairs.empty() && !m_array))
            return;
        std::vector<std::string> pairs;
        Transcript transcript;
        for (const Pair pair : run.pairs)
        {
            pairs.push_back(hex(pair));
            transcript.feed(pair);
        }
        const std::vector<std::string> &items = transcript.items();
        if (m_array)
        {
            m_array->add({{"timecode", timecodeText(run.frame)},
                          {"line", run.line},
                          {"field", run.field},
                          {"pairs", pairs},
                          {"words", items},
                          {"text", transcript.text()}});
            return;
        }
        out().line(Output::strong(timecodeText(run.frame)) + "  line " + std::to_string(run.line) +
                   ", field " + std::to_string(run.field) + ", " + count(run.pairs.size(), "pair"));
        wrap("    ", pairs, " ");
        if (!items.empty())
            wrap("    ", items, ", ");
    }

    void close()
    {
        if (m_array)
            m_array->close();
    }

private:
    uint32_t m_from, m_until;
    std::optional<JsonArray> m_array;
};

void showSCC(CaptionReader &reader, RunPrinter &printer)
{
    Run run;
    while (reader.next())
    {
        const KIVCS2ClosedCaption &caption = reader.caption();
        run.frame = framesOf(caption.m_timecode);
        run.line = reader.lineNumber();
        run.pairs.clear();
        for (uint32_t index = 0; index + 1 < caption.m_captionSize; index += 2)
            run.pairs.push_back({caption.m_captionData[index], caption.m_captionData[index + 1]});
        printer.print(run);
    }
}

// Packets that carry something, joined while they follow each other; at most two seconds at once.
void showMCC(CaptionReader &reader, RunPrinter &printer)
{
    constexpr size_t kMostPairs = 60;
    PacketInspector inspector;
    Run runs[2];
    const auto end = [&](Run &run)
    {
        if (!run.pairs.empty())
            printer.print(run);
        run.pairs.clear();
    };
    while (reader.next())
    {
        const PacketFacts facts = inspector.inspect(reader.caption());
        const uint32_t frame = framesOf(reader.caption().m_timecode);
        for (uint32_t field = 0; field < 2; ++field)
        {
            Run &run = runs[field];
            const std::span<const Pair> pairs = facts.pairs[field].all();
            if (std::ranges::all_of(pairs, isNull) || run.pairs.size() >= kMostPairs || frame != run.next)
                end(run);
            if (std::ranges::all_of(pairs, isNull))
                continue;
            if (run.pairs.empty())
                run = {frame, reader.lineNumber(), field + 1, {}, 0};
            run.pairs.insert(run.pairs.end(), pairs.begin(), pairs.end());
            run.next = frame + 1;
        }
    }
    for (Run &run : runs)
        end(run);
}

class CaptionPrinter
{
public:
    explicit CaptionPrinter(bool json)
    {
        if (json)
            m_array.emplace();
    }

    void print(const ShownCaption &caption)
    {
        const std::string channel = "CC" + std::to_string(caption.channel);
        if (m_array)
        {
            m_array->add({{"from", timecodeText(caption.from)},
                          {"until", timecodeText(caption.until)},
                          {"channel", channel},
                          {"mode", caption.mode},
                          {"text", caption.text}});
            return;
        }
        Shown head = Output::strong(timecodeText(caption.from)) + "  " + timecodeText(caption.until) + "  " +
                     channel + "  " + caption.mode;
        head += std::string(9 - std::min<size_t>(9, std::string_view{caption.mode}.size()), ' ');
        const std::string indent(timecodeText(caption.from).size() * 2 + 18, ' ');
        size_t begin = 0;
        while (begin <= caption.text.size())
        {
            const size_t end = std::min(caption.text.find('\n', begin), caption.text.size());
            out().line((begin == 0 ? head : Shown{indent}) + caption.text.substr(begin, end - begin));
            begin = end + 1;
        }
    }

    void close()
    {
        if (m_array)
            m_array->close();
    }

private:
    std::optional<JsonArray> m_array;
};

/// Every caption of a file of either kind, as a viewer sees it.
void forEachCaption(CaptionReader &reader, uint32_t field, const CaptionScreen::OnCaption &onCaption)
{
    if (reader.header().kind == CaptionFileKind::SCC)
    {
        CaptionScreen screen{field, onCaption};
        play(readSchedule(reader), screen);
        return;
    }
    (void)scanMCC(reader, {nullptr, 1, onCaption}); // only the captions are asked for
}

std::string countingText(const CaptionHeader &header)
{
    return std::string{header.counting->title} + " (" + header.countingReason + ")";
}

void addFinding(Facts &facts, std::string_view name, const Finding &finding, std::string_view noun)
{
    if (finding.count > 0)
        facts.add(name, Output::bad(count(finding.count, noun)) + ", first " + finding.first);
}

int infoSCC(const CaptionArguments &arguments, CaptionReader &reader, const Finding &badLines)
{
    const Schedule schedule = readSchedule(reader);
    uint64_t captions = 0;
    CaptionScreen screen{arguments.field, [&](const ShownCaption &)
                         {
                             ++captions;
                         }};
    play(schedule, screen);
    const bool empty = schedule.pairs.empty();
    const std::string first = empty ? "" : timecodeText(schedule.pairs.front().frame);
    const std::string last = empty ? "" : timecodeText(schedule.pairs.back().frame);
    const int code = badLines.count > 0 ? kExitMalformed : kExitYes;
    if (arguments.json)
    {
        out().json({{"file", reader.input().name()},
                    {"format", "SCC"},
                    {"counting", reader.header().counting->name},
                    {"dropFrame", reader.header().counting->drop},
                    {"lines", schedule.lines.size()},
                    {"pairs", schedule.pairs.size()},
                    {"captions", captions},
                    {"first", first},
                    {"last", last},
                    {"delayedPairs", schedule.delayedPairs},
                    {"longestDelayFrames", schedule.longestDelay},
                    {"linesBackInTime", schedule.backwards},
                    {"linesWithSameTimecode", schedule.sameTimecode},
                    {"pairsWithWrongParity", schedule.wrongParity},
                    {"linesOtherSeparator", reader.otherSeparators()},
                    {"malformedLines", badLines.count}});
        return code;
    }
    Facts facts;
    facts.add("File", reader.input().name() + ", " + count(reader.input().position(), "byte"));
    facts.add("Format", "SCC (Scenarist_SCC V1.0)");
    facts.add("Counting", countingText(reader.header()));
    facts.add("Lines", count(schedule.lines.size(), "caption line"));
    facts.add("Pairs", std::to_string(schedule.pairs.size()));
    facts.add("Captions", std::to_string(captions) + " shown");
    if (!empty)
        facts.add("From", first + " until " + last);
    for (const auto &[name, text] : scheduleNotes(schedule, reader))
        facts.add(name, text);
    addFinding(facts, "Malformed", badLines, "line");
    facts.print();
    return code;
}

int infoMCC(const CaptionArguments &arguments, CaptionReader &reader, const Finding &badLines)
{
    const CaptionHeader &header = reader.header();
    const MCCScan scan = scanMCC(reader, {});
    const std::string first = scan.firstFrame ? timecodeText(*scan.firstFrame) : "";
    const std::string last = scan.lastFrame ? timecodeText(*scan.lastFrame) : "";
    const int code = badLines.count > 0 ? kExitMalformed : kExitYes;
    if (arguments.json)
    {
        out().json({{"file", reader.input().name()},
                    {"format", "MCC"},
                    {"version", header.version},
                    {"counting", header.counting->name},
                    {"dropFrame", header.counting->drop},
                    {"timeCodeRate", header.rate},
                    {"uuid", header.uuid},
                    {"creationProgram", header.program},
                    {"creationDate", header.date},
                    {"creationTime", header.time},
                    {"packets", scan.packets},
                    {"captionDistributionPackets", scan.cdps},
                    {"cdpFrameRate", cdpRateName(scan.rateCode)},
                    {"field1Pairs", scan.pairs[0]},
                    {"field2Pairs", scan.pairs[1]},
                    {"captions", scan.captions},
                    {"first", first},
                    {"last", last},
                    {"framesWithoutPacket", scan.gapFrames},
                    {"faultyPackets", scan.badPackets.count},
                    {"malformedLines", badLines.count}});
        return code;
    }
    Facts facts;
    facts.add("File", reader.input().name() + ", " + count(reader.input().position(), "byte"));
    facts.add("Format", "MCC version " + std::to_string(header.version) + ".0");
    facts.add("Counting", countingText(header));
    facts.add("UUID", visible(header.uuid));
    facts.add("Created", visible(header.date + " " + header.time + " by " + header.program));
    facts.add(
        "Packets",
        std::to_string(scan.packets) + ", of them " + std::to_string(scan.cdps) +
            " caption distribution packets" +
            (scan.cdps > 0 ? " at " + std::string{cdpRateName(scan.rateCode)} + " frames a second" : ""));
    facts.add("Pairs", std::to_string(scan.pairs[0]) + " in field 1, " + std::to_string(scan.pairs[1]) +
                           " in field 2, empty ones not counted");
    facts.add("Captions", std::to_string(scan.captions) + " shown");
    if (scan.firstFrame)
        facts.add(
            "From",
            first + " until " + last +
                (scan.gapFrames > 0 ? ", " + count(scan.gapFrames, "frame") + " without a packet" : ""));
    if (scan.suffixes > 0)
        facts.add("Suffixes", count(scan.suffixes, "line") + " with a field or number");
    addFinding(facts, "Malformed", badLines, "line");
    addFinding(facts, "Faulty", scan.badPackets, "packet");
    facts.print();
    return code;
}

/// "from" to "to" of the command line, in frames.
struct Range
{
    uint32_t from = 0, to = UINT32_MAX;

    Range(const CaptionArguments &arguments, const Counting &counting)
    {
        if (!arguments.from.empty())
            from = framesOf(parseTimecode(arguments.from, counting));
        if (!arguments.to.empty())
            to = framesOf(parseTimecode(arguments.to, counting));
    }
};

Json toJson(Pair pair)
{
    return {{"pair", hex(pair)},
            {"oddParity", hasOddParity(pair)},
            {"words", describe(pair)},
            {"text", textOf(pair)}};
}

} // namespace

int captionInfo(const CaptionArguments &arguments)
{
    Finding badLines;
    CaptionReader reader{arguments.file, arguments.rate, countIn(badLines)};
    return reader.header().kind == CaptionFileKind::SCC ? infoSCC(arguments, reader, badLines)
                                                        : infoMCC(arguments, reader, badLines);
}

int captionShow(const CaptionArguments &arguments)
{
    CaptionReader reader{arguments.file, arguments.rate, tellBadLines(arguments.file, arguments.keepGoing)};
    const Range range{arguments, *reader.header().counting};
    if (arguments.captions)
    {
        CaptionPrinter printer{arguments.json};
        forEachCaption(reader, arguments.field,
                       [&](const ShownCaption &caption)
                       {
                           if (caption.until > range.from && caption.from <= range.to)
                               printer.print(caption);
                       });
        printer.close();
        return kExitYes;
    }
    RunPrinter printer{arguments.json, range.from, range.to};
    if (reader.header().kind == CaptionFileKind::SCC)
        showSCC(reader, printer);
    else
        showMCC(reader, printer);
    printer.close();
    return kExitYes;
}

int captionAt(const CaptionArguments &arguments)
{
    CaptionReader reader{arguments.file, arguments.rate, tellBadLines(arguments.file, arguments.keepGoing)};
    const uint32_t frame = framesOf(parseTimecode(arguments.timecode, *reader.header().counting));

    struct Hit
    {
        uint64_t line;
        uint32_t field;
        Pair pair;
    };
    std::vector<Hit> hits;
    std::vector<ShownCaption> shown;
    const auto onCaption = [&](const ShownCaption &caption)
    {
        if (caption.from <= frame && frame < caption.until)
            shown.push_back(caption);
    };
    if (reader.header().kind == CaptionFileKind::SCC)
    {
        const Schedule schedule = readSchedule(reader);
        if (const ScheduledPair *pair = schedule.at(frame))
            hits.push_back({schedule.lines[pair->line].number, arguments.field, pair->pair});
        CaptionScreen screen{arguments.field, onCaption};
        play(schedule, screen);
    }
    else
    {
        const auto onPacket = [&](const MCCPacket &packet)
        {
            if (packet.frame != frame)
                return;
            for (uint32_t field = 0; field < 2; ++field)
                for (const Pair pair : packet.pairs[field].all())
                    hits.push_back({packet.line, field + 1, pair});
        };
        (void)scanMCC(reader, {nullptr, 1, onCaption, onPacket}); // only these two are asked for
    }

    const int code = hits.empty() && shown.empty() ? kExitNo : kExitYes;
    if (arguments.json)
    {
        Json value{{"timecode", timecodeText(frame)}, {"pairs", Json::array()}, {"shown", Json::array()}};
        for (const Hit &hit : hits)
        {
            Json pair = toJson(hit.pair);
            pair["line"] = hit.line;
            pair["field"] = hit.field;
            value["pairs"].push_back(pair);
        }
        for (const ShownCaption &caption : shown)
            value["shown"].push_back({{"channel", "CC" + std::to_string(caption.channel)},
                                      {"from", timecodeText(caption.from)},
                                      {"until", timecodeText(caption.until)},
                                      {"mode", caption.mode},
                                      {"text", caption.text}});
        out().json(value);
        return code;
    }
    if (hits.empty())
        out().line("No pair goes out at " + timecodeText(frame) + ".");
    else
    {
        Table table{">Line", ">Field", "Pair", "Meaning"};
        for (const Hit &hit : hits)
            table.add(
                {std::to_string(hit.line), std::to_string(hit.field), hex(hit.pair), describe(hit.pair)});
        table.print();
    }
    if (shown.empty())
        out().line("Nothing is on the screen.");
    CaptionPrinter printer{false};
    for (const ShownCaption &caption : shown)
        printer.print(caption);
    return code;
}

int captionDecode(const CaptionArguments &arguments)
{
    std::vector<std::string> words;
    for (const std::string &argument : arguments.words)
    {
        std::string text = argument;
        if (argument == "-")
        {
            const std::vector<uint8_t> bytes = readWhole("-");
            text.assign(bytes.begin(), bytes.end());
        }
        std::istringstream stream{text};
        for (std::string word; stream >> word;)
            words.push_back(word);
    }
    std::vector<Pair> pairs;
    pairs.reserve(words.size());
    for (const std::string &word : words)
        pairs.push_back(parsePair(word));

    if (arguments.json)
    {
        JsonArray array;
        for (const Pair pair : pairs)
            array.add(toJson(pair));
        array.close();
        return kExitYes;
    }
    Table table{"Pair", "Parity", "Meaning"};
    for (const Pair pair : pairs)
        table.add({hex(pair), hasOddParity(pair) ? "odd" : "wrong", describe(pair)});
    table.print();
    return kExitYes;
}

void addCaptionCommand(Word &root, Context &context)
{
    Word &caption =
        root.word("caption", "SCC and MCC caption files: info, show, at, decode, convert, verify");
    caption.group(kGroupCaptions);
    caption.about(
        "Files: - is standard input or output. An SCC file with \";\" counts 29.97 drop-frame, with\n"
        "\":\" 29.97 non-drop; --rate says otherwise.");
    const auto arguments = std::make_shared<CaptionArguments>();

    const auto word = [&, arguments](const char *name, const char *help,
                                     int (*body)(const CaptionArguments &)) -> Word &
    {
        return caption.word(name, help)
            .runs(
                [&context, arguments, body]
                {
                    arguments->json = context.json;
                    return body(*arguments);
                });
    };
    const auto file = [&](Word &sub)
    {
        sub.option("file", arguments->file, "An SCC or MCC file; - is standard input").required().isFile();
        sub.option("--rate", arguments->rate, "Count at this rate, whatever the file says")
            .suggests("rates", rateNames);
    };
    const auto keepGoing = [&](Word &sub)
    {
        sub.flag("--keep-going", arguments->keepGoing, "Tell malformed lines and go on behind them");
    };
    const auto field = [&](Word &sub)
    {
        sub.option("--field", arguments->field, {1, 2},
                   "The field that an SCC file's pairs belong to: 1 or 2");
    };

    Word &info = word("info", "What a file holds, and what is odd about it", captionInfo);
    file(info);
    field(info);
    info.example("kivcs2 caption info programme.scc");

    Word &show = word("show", "Timecode, pairs, control codes in words, and text", captionShow);
    file(show);
    field(show);
    keepGoing(show);
    show.flag("--captions", arguments->captions, "The captions as a viewer sees them");
    show.option("--from", arguments->from, "The first timecode to show");
    show.option("--to", arguments->to, "The last timecode to show");
    show.example("kivcs2 caption show programme.mcc --captions | head");

    Word &at = word("at", "The pairs of one frame and what is on the screen (exit 1: nothing)", captionAt);
    file(at);
    field(at);
    keepGoing(at);
    at.option("timecode", arguments->timecode, "HH:MM:SS:FF or HH:MM:SS;FF").required();
    at.example("kivcs2 caption at programme.mcc \"01:00:05;00\"");

    Word &decode = word("decode", "CEA-608 pairs in words", captionDecode);
    decode.option("pairs", arguments->words, "Four hexadecimal digits each; - reads standard input")
        .required();
    decode.example("kivcs2 caption decode 9420 94ae c849");

    addConvertWord(caption, context);

    Word &verify =
        word("verify", "Read an MCC file and check every packet (exit 1: something is wrong)", captionVerify);
    file(verify);
    field(verify);
    verify.flag("--fix-parity", arguments->fixParity, "The source's pairs were given odd parity");
    verify.option("--against", arguments->against, "The SCC or MCC file it was made from").isFile();
    verify.example("kivcs2 caption verify programme.mcc --against programme.scc");
}

} // namespace tool
