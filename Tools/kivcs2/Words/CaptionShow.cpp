// kivcs2 caption show and caption at.
#include "Captions/CaptionRows.h"
#include "Captions/Decoding.h"
#include "Captions/Pairs.h"
#include "Captions/Services.h"
#include "Terminal/Output.h"
#include "Words/Caption.h"

#include <algorithm>
#include <array>
#include <optional>

namespace tool
{
namespace
{

/// Items on successive frames: pairs of field 1 or 2, or bytes of CEA-708.
struct Run
{
    uint32_t frame = 0;
    uint64_t line = 0;
    uint32_t field = 0; ///< 0: CEA-708
    std::vector<CaptionPair> pairs;
    uint32_t next = 0; ///< the frame that continues the run
};

/// The range of "--from" and "--to", in frames.
struct Range
{
    uint32_t from = 0, to = UINT32_MAX;

    Range(const CaptionArguments &arguments, const CaptionSource &source)
    {
        if (!arguments.from.empty())
            from = source.frameOf(arguments.from);
        if (!arguments.to.empty())
            to = source.frameOf(arguments.to);
    }
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

std::vector<std::string> digits(const std::vector<CaptionPair> &pairs)
{
    std::vector<std::string> list;
    list.reserve(pairs.size());
    for (const CaptionPair pair : pairs)
        list.push_back(pair.hex());
    return list;
}

/// Returns true if a service of field 1 or 2, or of CEA-708 (0), is asked for.
bool isAsked(const KIVCS2CaptionServices &services, uint32_t field)
{
    constexpr std::array<uint32_t, 3> kLine21 = {0, 0x33, 0xCC}; // CC1, CC2, T1, T2; the other four
    return field == 0 ? services.m_dtvcc != 0 : (services.m_line21 & kLine21[field]) != 0;
}

/// A list for programs, or lines for people; a fault is an element of the list.
class Listing
{
public:
    explicit Listing(const CaptionArguments &arguments)
        : m_arguments(arguments), m_file(place(arguments.reading.file, 0))
    {
    }

    [[nodiscard]] bool isJson() const
    {
        return m_arguments.json;
    }
    /// Records that there is something to list.
    void takeNote()
    {
        m_isEmpty = false;
    }
    void add(const Json &element)
    {
        begin();
        m_array->add(element);
    }
    void onFault(const KIVCS2CaptionFileFault &fault)
    {
        if (m_arguments.json)
            add({{"fault", toJson(m_file, fault)}});
    }
    /// Ends a list and returns the exit code. An empty list is not a success.
    int close(CaptionSource &source)
    {
        if (m_arguments.json)
        {
            begin();
            m_array->close();
        }
        out().flush(); // faults come after the list
        const int code = source.finish();
        if (m_isEmpty)
            note(source.name() + ": " + nothing());
        if (code != kExitYes && !m_arguments.keepGoing)
            return code;
        return m_isEmpty ? kExitNo : kExitYes;
    }

private:
    [[nodiscard]] std::string nothing() const
    {
        const bool isWhole =
            m_arguments.service.empty() && m_arguments.from.empty() && m_arguments.to.empty();
        const std::string where = isWhole ? "in it" : "in the part or services given";
        return m_arguments.captions ? "no caption " + where + " comes to the screen" : "no pair " + where;
    }

    // Writes nothing before the file is open: standard output may go into the same file.
    void begin()
    {
        if (!m_array)
            m_array.emplace();
    }

    const CaptionArguments &m_arguments;
    std::string m_file;
    bool m_isEmpty = true;
    std::optional<JsonArray> m_array;
};

// ---- Pairs ----

void print(const CaptionSource &source, const Run &run, Listing &listing)
{
    const std::vector<std::string> pairs = digits(run.pairs);
    Transcript transcript;
    if (run.field != 0)
        for (const CaptionPair pair : run.pairs)
            transcript.feed(pair);
    const std::vector<std::string> &items = transcript.items();
    listing.takeNote();
    if (listing.isJson())
    {
        listing.add({{"timecode", source.timecode(run.frame)},
                     {"line", run.line},
                     {"field", run.field != 0 ? Json(run.field) : Json()},
                     {"pairs", run.field != 0 ? Json(pairs) : Json::array()},
                     {"words", items},
                     {"text", transcript.text()},
                     {"cea708", run.field != 0 ? Json::array() : Json(pairs)}});
        return;
    }
    out().line(Output::strong(source.timecode(run.frame)) + "  line " + std::to_string(run.line) + ", " +
               (run.field != 0 ? "field " + std::to_string(run.field) + ", " + count(run.pairs.size(), "pair")
                               : "CEA-708, " + count(run.pairs.size() * 2, "byte")));
    wrap("    ", pairs, " ");
    if (!items.empty())
        wrap("    ", items, ", ");
}

/// Joins items of successive frames: the pairs of an SCC line; in an MCC file at most two seconds of them.
class RunPrinter
{
public:
    RunPrinter(const CaptionArguments &arguments, const CaptionSource &source, Listing &listing)
        : m_source(source), m_listing(listing), m_range(arguments, source),
          m_services(parseServices(arguments.service)), m_mostPairs(source.isSCC() ? 4096 : 60)
    {
        m_runs[0].field = 1;
        m_runs[1].field = 2;
    }

    void feed(const KIVCS2CaptionPacket &packet)
    {
        for (Run &run : m_runs)
            if (isAsked(m_services, run.field))
                join(run, packet, run.field == 0 ? dtvccOf(packet) : pairsOf(packet, run.field));
    }

    void finish()
    {
        for (Run &run : m_runs)
            end(run);
    }

private:
    void join(Run &run, const KIVCS2CaptionPacket &packet, const std::vector<CaptionPair> &pairs)
    {
        const bool isSCC = m_source.isSCC();
        const bool isNothing =
            pairs.empty() ||
            (!isSCC && std::ranges::all_of(pairs, [](CaptionPair pair) { return pair.isEmpty(); }));
        const bool goesOn = packet.m_frame == run.next && run.pairs.size() < m_mostPairs &&
                            (!isSCC || packet.m_line == run.line);
        if (isNothing || !goesOn)
            end(run);
        if (isNothing)
            return;
        if (run.pairs.empty())
        {
            run.frame = packet.m_frame;
            run.line = packet.m_line;
        }
        run.pairs.insert(run.pairs.end(), pairs.begin(), pairs.end());
        run.next = packet.m_frame + 1;
    }

    void end(Run &run)
    {
        if (!run.pairs.empty() && run.frame >= m_range.from && run.frame <= m_range.to)
            print(m_source, run, m_listing);
        run.pairs.clear();
    }

    const CaptionSource &m_source;
    Listing &m_listing;
    Range m_range;
    KIVCS2CaptionServices m_services;
    size_t m_mostPairs;
    std::array<Run, 3> m_runs{};
};

// ---- Captions ----

void showCaptions(const CaptionArguments &arguments, CaptionSource &source, Listing &listing)
{
    const Range range{arguments, source};
    CaptionDecoder decoder{parseServices(arguments.service), source.header().m_counting,
                           [&](const KIVCS2CaptionText &text)
                           {
                               const bool wraps = text.m_until < text.m_from; // past midnight
                               if ((text.m_until <= range.from && !wraps) || text.m_from > range.to)
                                   return;
                               listing.takeNote();
                               if (listing.isJson())
                                   listing.add(captionJson(text, source.header().m_counting));
                               else
                                   printCaption(text, source.header().m_counting);
                           }};
    KIVCS2CaptionPacket packet;
    while (source.next(packet))
        decoder.feed(packet);
    decoder.finish();
}

// ---- One frame ----

/// The pairs and bytes of one frame, and the captions on the screen.
struct Moment
{
    struct Hit
    {
        uint64_t line;
        uint32_t field; ///< 0: CEA-708
        std::vector<CaptionPair> pairs;
    };
    struct Shown
    {
        KIVCS2CaptionText text; ///< its cells are not kept
        std::string rows;
    };
    uint32_t frame = 0;
    std::vector<Hit> hits;
    std::vector<Shown> shown;

    void add(const KIVCS2CaptionPacket &packet, const KIVCS2CaptionServices &services)
    {
        for (uint32_t field = 1; field <= 2; ++field)
            if (isAsked(services, field))
                for (const CaptionPair pair : pairsOf(packet, field))
                    hits.push_back({packet.m_line, field, {pair}});
        if (std::vector<CaptionPair> bytes = dtvccOf(packet); isAsked(services, 0) && !bytes.empty())
            hits.push_back({packet.m_line, 0, std::move(bytes)});
    }

    void add(const KIVCS2CaptionText &text)
    {
        shown.push_back({text, text.m_text});
        shown.back().text.m_cells = nullptr;
    }
};

Json toJson(const CaptionSource &source, Moment &moment)
{
    Json value{{"timecode", source.timecode(moment.frame)},
               {"pairs", Json::array()},
               {"cea708", Json::array()},
               {"shown", Json::array()}};
    for (const Moment::Hit &hit : moment.hits)
    {
        if (hit.field == 0)
        {
            value["cea708"].push_back({{"line", hit.line}, {"bytes", listed(hit.pairs, "")}});
            continue;
        }
        Json pair = toJson(hit.pairs.front());
        pair["line"] = hit.line;
        pair["field"] = hit.field;
        value["pairs"].push_back(pair);
    }
    for (Moment::Shown &shown : moment.shown)
    {
        shown.text.m_text = shown.rows.c_str();
        value["shown"].push_back(captionJson(shown.text, source.header().m_counting));
    }
    return value;
}

void print(const CaptionSource &source, Moment &moment)
{
    if (moment.hits.empty())
        out().line("No pair goes out at " + source.timecode(moment.frame) + ".");
    else
    {
        Table table{">Line", ">Field", "Pair", "Meaning"};
        for (const Moment::Hit &hit : moment.hits)
            if (hit.field != 0)
                table.add({std::to_string(hit.line), std::to_string(hit.field), hit.pairs.front().hex(),
                           hit.pairs.front().words()});
            else
                table.add({std::to_string(hit.line), "708", "", listed(hit.pairs, "")});
        table.print();
    }
    if (moment.shown.empty())
        out().line("Nothing is on the screen.");
    for (Moment::Shown &shown : moment.shown)
    {
        shown.text.m_text = shown.rows.c_str();
        printCaption(shown.text, source.header().m_counting);
    }
}

} // namespace

Json toJson(CaptionPair pair)
{
    return {{"pair", pair.hex()},
            {"oddParity", pair.hasOddParity()},
            {"words", pair.words()},
            {"text", pair.text()}};
}

int captionShow(const CaptionArguments &arguments)
{
    Listing listing{arguments};
    CaptionSource source{arguments.reading,
                         {.byFrame = arguments.captions,
                          .placesPackets = true,
                          .onFault = [&](const KIVCS2CaptionFileFault &fault) { listing.onFault(fault); }}};
    refuseIdleOptions(arguments.reading, source.isSCC());
    if (arguments.captions)
        showCaptions(arguments, source, listing);
    else
    {
        RunPrinter printer{arguments, source, listing};
        KIVCS2CaptionPacket packet;
        while (source.next(packet))
            printer.feed(packet);
        printer.finish();
    }
    return listing.close(source);
}

int captionAt(const CaptionArguments &arguments)
{
    JsonReport report{"faults"};
    const std::string name = place(arguments.reading.file, 0);
    CaptionSource source{arguments.reading,
                         {.byFrame = true,
                          .placesPackets = true,
                          .onFault =
                              [&](const KIVCS2CaptionFileFault &fault)
                          {
                              if (arguments.json)
                                  report.add(toJson(name, fault));
                          },
                          .progress = "reading " + name}};
    refuseIdleOptions(arguments.reading, source.isSCC());
    Moment moment{source.frameOf(arguments.timecode), {}, {}};
    const KIVCS2CaptionServices services = parseServices(arguments.service);
    CaptionDecoder decoder{services, source.header().m_counting,
                           [&](const KIVCS2CaptionText &text)
                           {
                               if (isWithin(moment.frame, text.m_from, text.m_until))
                                   moment.add(text);
                           }};
    KIVCS2CaptionPacket packet;
    while (source.next(packet))
    {
        if (packet.m_frame == moment.frame)
            moment.add(packet, services);
        decoder.feed(packet);
    }
    decoder.finish();
    if (arguments.json)
        report.close(toJson(source, moment));
    else
        print(source, moment);
    out().flush();
    const int code = source.finish();
    if (code != kExitYes && !arguments.keepGoing)
        return code;
    return moment.hits.empty() && moment.shown.empty() ? kExitNo : kExitYes;
}

} // namespace tool
