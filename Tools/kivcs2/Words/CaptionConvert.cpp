// kivcs2 caption convert.
#include "Captions/Conversion.h"
#include "Captions/Retiming.h"
#include "Captions/Services.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Words/Caption.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <memory>
#include <system_error>

namespace tool
{
namespace
{

struct ConvertArguments
{
    ReadingArguments reading;
    RetimeArguments retime;
    std::string target;
    std::string to;
    std::string service;
    std::string timeZero;
    uint32_t mccVersion = 0; ///< 0: 1 for an SCC source, the source's version for MCC
    bool sparse = false;
    bool sdi = false;
    bool keepGoing = false;
    bool fixParity = false;
};

// ---- The request ----

struct KindRow
{
    std::string_view name;   ///< value of --to
    std::string_view ending; ///< file name ending; empty: no ending selects this row
    KIVCS2CaptionFileKind kind;
};

/// "MCC" leaves the version open; here it is MCC 1.
constexpr std::array<KindRow, 7> kKinds = {{{"SCC", ".scc", KIVCS2CaptionFileKind_SCC},
                                            {"MCC", ".mcc", KIVCS2CaptionFileKind_MCC1},
                                            {"MCC1", "", KIVCS2CaptionFileKind_MCC1},
                                            {"MCC2", "", KIVCS2CaptionFileKind_MCC2},
                                            {"SRT", ".srt", KIVCS2CaptionFileKind_SRT},
                                            {"WebVTT", ".vtt", KIVCS2CaptionFileKind_WebVTT},
                                            {"VTT", "", KIVCS2CaptionFileKind_WebVTT}}};

// Returns the row of --to or of the target's ending. A pipe or device has no ending and gets MCC.
const KindRow &askedKind(const ConvertArguments &arguments)
{
    if (!arguments.to.empty())
        return *std::ranges::find(kKinds, arguments.to, &KindRow::name);
    std::string ending = std::filesystem::path{arguments.target}.extension(); // empty for ".mcc"
    std::ranges::transform(ending, ending.begin(),
                           [](unsigned char character)
                           { return static_cast<char>(std::tolower(character)); });
    const auto row = std::ranges::find(kKinds, ending, &KindRow::ending);
    if (!ending.empty() && row != kKinds.end())
        return *row;
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(arguments.target, error);
    if (arguments.target == "-" ||
        (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)))
        return kKinds[1];
    throw Failure(kExitUsage, Where{arguments.target, 0},
                  "give the target the ending .scc, .mcc, .srt or .vtt, or name its kind with --to");
}

KIVCS2CaptionFileKind kindFor(const ConvertArguments &arguments, const CaptionSource &source)
{
    const KindRow &row = askedKind(arguments);
    if (row.name != "MCC")
        return row.kind;
    if (arguments.mccVersion != 0)
        return arguments.mccVersion == 1 ? KIVCS2CaptionFileKind_MCC1 : KIVCS2CaptionFileKind_MCC2;
    return source.isSCC() ? row.kind : source.header().m_kind;
}

// Refuses options that would have no effect.
void refuseIdleOptions(const ConvertArguments &arguments, const CaptionSource &source,
                       KIVCS2CaptionFileKind kind)
{
    const bool toCues = kind == KIVCS2CaptionFileKind_SRT || kind == KIVCS2CaptionFileKind_WebVTT;
    const bool isRetimed = arguments.retime.isAsked();
    const bool buildsPackets = isMCC(kind) && source.isSCC() && !isRetimed;
    const bool copiesPackets = isMCC(kind) && !source.isSCC() && !isRetimed;
    const auto refuse = [](bool given, const char *text)
    {
        if (given)
            throw Failure(kExitUsage, text);
    };
    refuse(!arguments.service.empty() && !toCues, "--service is only for SRT and WebVTT");
    refuse(!arguments.timeZero.empty() && !toCues, "--time-zero is only for SRT and WebVTT");
    refuse(!arguments.timeZero.empty() && isRetimed,
           "--time-zero does not go with another time; --start-at-zero and --offset do");
    refuse(arguments.mccVersion != 0 && askedKind(arguments).name != "MCC",
           "--mcc-version is of MCC without a number in --to");
    refuse(arguments.reading.field != 0 && !source.isSCC() && kind != KIVCS2CaptionFileKind_SCC,
           "--field is of SCC, the source or the target; --service names a service of SRT and WebVTT");
    refuse(arguments.reading.bothTracks && !source.isSCC(), "--both-tracks is only for an SCC source");
    refuse((arguments.sparse || arguments.sdi) && !buildsPackets,
           "--sparse and --sdi are for packets made from an SCC file, frame by frame");
    refuse(arguments.fixParity && copiesPackets,
           "--fix-parity: the packets of an MCC file are kept byte for byte");
}

KIVCS2CaptionService serviceFor(const std::string &name)
{
    if (name.empty())
        return 0;
    const std::vector<KIVCS2CaptionService> services = servicesOf(parseServices(name));
    if (services.size() != 1)
        throw Failure(kExitUsage, "--service: a file of SRT or WebVTT has one service");
    return services.front();
}

ConversionWay wayFor(const ConvertArguments &arguments, const CaptionSource &source)
{
    refuseSource(arguments.target); // checked first, because its message is the more useful one
    ConversionWay way;
    way.target = arguments.target;
    way.kind = kindFor(arguments, source);
    refuseIdleOptions(arguments, source, way.kind);
    way.field = source.isSCC() ? source.header().m_field : std::max(arguments.reading.field, 1u);
    way.sparse = arguments.sparse;
    way.sdi = arguments.sdi;
    way.service = serviceFor(arguments.service);
    way.isRetimed = arguments.retime.isAsked();
    way.counting = retimedCounting(arguments.retime, source);
    way.timeZero = arguments.timeZero.empty() ? 0 : source.frameOf(arguments.timeZero);
    return way;
}

// ---- Faults on the way ----

constexpr uint64_t bits(std::initializer_list<KIVCS2CaptionFault> faults)
{
    uint64_t set = 0;
    for (const KIVCS2CaptionFault fault : faults)
        set |= uint64_t{1} << fault;
    return set;
}

/// Faults that a written file does not have, because its text is made again; packets and pairs are unchanged.
constexpr uint64_t kMended =
    bits({KIVCS2CaptionFault_ByteOrderMark, KIVCS2CaptionFault_HeaderCase, KIVCS2CaptionFault_HeaderBlanks,
          KIVCS2CaptionFault_HeaderLong, KIVCS2CaptionFault_HeaderMissing, KIVCS2CaptionFault_RateMissing,
          KIVCS2CaptionFault_RateUnknown, KIVCS2CaptionFault_RateLate, KIVCS2CaptionFault_Blanks,
          KIVCS2CaptionFault_BlanksBefore, KIVCS2CaptionFault_BlanksBehind, KIVCS2CaptionFault_FrameSeparator,
          KIVCS2CaptionFault_OtherCounting, KIVCS2CaptionFault_DroppedNumber, KIVCS2CaptionFault_LowerCase,
          KIVCS2CaptionFault_FourByteU});
constexpr uint64_t kLeftOut = bits({KIVCS2CaptionFault_HeaderUnknown, KIVCS2CaptionFault_Suffix});

/// Faults of order: the order of an SCC file's lines is corrected, that of an MCC file is kept.
constexpr uint64_t kPlaced =
    bits({KIVCS2CaptionFault_BackInTime, KIVCS2CaptionFault_SameFrame, KIVCS2CaptionFault_Overlap});

/// Records the faults of a source: as JSON, as changes of a repair, and as losses and delays.
class FaultNotes
{
public:
    FaultNotes(std::string file, bool json, bool keepsGoing)
        : m_file(std::move(file)), m_keepsGoing(keepsGoing)
    {
        if (json)
            m_report.emplace("faults");
    }
    FaultNotes(const FaultNotes &) = delete;
    FaultNotes &operator=(const FaultNotes &) = delete;
    ~FaultNotes()
    {
        try
        {
            if (!m_isBegun) // the header could not be read
                for (const KIVCS2CaptionFileFault &fault : m_early)
                    tell(fault);
        }
        catch (...)
        {
            // The failure that ended the read is already reported, or will be.
        }
    }

    void take(const KIVCS2CaptionFileFault &fault)
    {
        if (fault.m_lost && m_lostLine == 0)
            m_lostLine = fault.m_line;
        delays.take(fault);
        // Faults of the header come before the kind of file is known.
        if (!m_isBegun && m_early.size() < kMostEarly)
            m_early.push_back(fault);
        else
            tell(fault);
    }

    /// Called after the header is read; sets the faults that a repair reports as changes.
    void begin(bool isRepair, KIVCS2CaptionFileKind from)
    {
        constexpr uint64_t kSuffix = uint64_t{1} << KIVCS2CaptionFault_Suffix;
        m_isBegun = true;
        if (isRepair)
            m_changed = kMended | kLeftOut;
        if (isRepair && from == KIVCS2CaptionFileKind_SCC)
            m_changed |= kPlaced;
        if (from == KIVCS2CaptionFileKind_MCC1) // in MCC 1 any suffix is a fault
            m_changed &= ~kSuffix;
        for (const KIVCS2CaptionFileFault &fault : m_early)
            tell(fault);
        m_early = {};
    }

    /// Called after the file is written: prints the changes.
    void tellChanges()
    {
        for (const std::string &change : m_held)
            note(change);
        m_held.clear();
    }

    [[nodiscard]] uint64_t lostLine() const
    {
        return m_lostLine;
    }
    [[nodiscard]] std::optional<JsonReport> &report()
    {
        return m_report;
    }

    Delays delays;
    uint64_t changes = 0;

private:
    static constexpr size_t kMostEarly = 256;
    static constexpr size_t kMostHeld = 4096; // so that memory does not grow with a file

    void tell(const KIVCS2CaptionFileFault &fault)
    {
        const bool isChange = (m_changed >> fault.m_fault & 1u) != 0;
        const bool isGone = (kLeftOut >> fault.m_fault & 1u) != 0;
        const std::string now = isGone ? "left out" : fault.m_expected;
        changes += isChange ? 1 : 0;
        if (m_report)
        {
            Json value = toJson(m_file, fault);
            value["changedTo"] = isChange ? Json(now) : Json();
            m_report->add(value);
        }
        else if (isChange && fault.m_fault != KIVCS2CaptionFault_BlanksBehind && // only counted: invisible
                 (m_lostLine == 0 || m_keepsGoing))
        {
            m_held.push_back(place(m_file, fault.m_line) + ": changed: " + sentence(fault, "now " + now));
            if (m_held.size() > kMostHeld)
                tellChanges();
        }
    }

    std::string m_file;
    std::optional<JsonReport> m_report;
    std::vector<KIVCS2CaptionFileFault> m_early;
    std::vector<std::string> m_held; ///< changes, until it is certain that a file is written
    bool m_keepsGoing, m_isBegun = false;
    uint64_t m_changed = 0;
    uint64_t m_lostLine = 0;
};

// ---- The work ----

// Gives the pairs of a packet odd parity; returns how many did not have it.
uint64_t setOddParity(KIVCS2CaptionPacket &packet)
{
    uint64_t mended = 0;
    for (size_t index = 0; index < packet.m_tripletCount; ++index)
    {
        uint8_t *const triplet = packet.m_triplets[index];
        if ((triplet[0] & 6u) != 4u) // not a valid pair of CEA-608
            continue;
        const CaptionPair pair{triplet[1], triplet[2]}, odd = pair.withOddParity();
        mended += pair == odd ? 0 : 1;
        triplet[1] = odd.first;
        triplet[2] = odd.second;
    }
    return mended;
}

/// Returns the losses of a source in words.
std::string lostText(const CaptionSource &source)
{
    const KIVCS2CaptionFileReport report = source.report();
    const uint64_t parts = source.faults().lost() - report.m_lostLines - report.m_lostPairs;
    std::string text;
    for (const auto &[number, noun] :
         {std::pair{report.m_lostLines, "line"}, {report.m_lostPairs, "pair"}, {parts, "part"}})
        if (number > 0)
            text += (text.empty() ? "" : ", ") + count(number, noun);
    return text;
}

class Converter
{
public:
    Converter(const ConvertArguments &arguments, bool json)
        : m_arguments(arguments), m_notes(place(arguments.reading.file, 0), json, arguments.keepGoing),
          m_source(arguments.reading, way()), m_conversion(Conversion::make(m_source, begin())),
          m_in(m_source.header().m_counting,
               [this](const KIVCS2CaptionText &text)
               {
                   if (!m_retiming)
                       m_conversion->take(text);
               })
    {
        if (!m_arguments.retime.isAsked())
            return;
        m_retimed.emplace(retimedCounting(m_arguments.retime, m_source),
                          [this](const KIVCS2CaptionText &text) { m_conversion->take(text); });
        m_retiming.emplace(m_source, m_arguments.retime, m_arguments.keepGoing,
                           [this](const KIVCS2CaptionPacket &packet)
                           {
                               m_retimed->take(packet);
                               m_conversion->take(packet);
                           });
    }

    int run()
    {
        for (KIVCS2CaptionPacket packet; m_source.next(packet);)
        {
            if (m_arguments.fixParity)
                m_repaired += setOddParity(packet);
            m_notes.delays.take(packet);
            if (m_retiming && !m_retiming->take(packet))
                continue;
            m_in.take(packet);
            if (!m_retiming)
                m_conversion->take(packet);
        }
        m_in.finish();
        const bool isLost = m_source.finish() != kExitYes;
        if (isLost && !m_arguments.keepGoing)
            throw Failure(kExitMalformed, Where{m_source.name(), m_notes.lostLine()},
                          lostText(m_source) +
                              " lost, here first: no file is written; --keep-going leaves them out" +
                              (m_source.faults().count(KIVCS2CaptionFault_EightDigitWord) > 0
                                   ? ", --both-tracks takes the second track"
                                   : ""));
        if (placesPackets() && !m_source.isInOrder() && !m_arguments.keepGoing)
            throw Failure(
                kExitMalformed,
                Where{m_source.name(), m_source.faults().first(KIVCS2CaptionFault_BackInTime).m_line},
                "goes back in time, and packets of a pipe cannot be placed; give it as a file");
        if (m_in.allPairs() + m_in.bytes708 == 0)
            throw Failure(KIVCS2STATUS_NO_DATA_ERR, Where{m_source.name()},
                          m_retiming ? "has no captions in that part" : "holds no captions");
        finishRetiming();
        m_conversion->finish(result());
        if (m_in.captions.empty())
            note(m_source.name() + ": no caption in it comes to the screen");
        m_conversion->commit();
        m_notes.tellChanges();
        tell(isLost);
        return kExitYes;
    }

private:
    ReadingWay way()
    {
        ReadingWay way;
        way.byFrame = true;
        way.placesPackets = placesPackets();
        way.onFault = [this](const KIVCS2CaptionFileFault &fault) { m_notes.take(fault); };
        way.progress = "converting " + place(m_arguments.reading.file, 0);
        return way;
    }

    /// Returns true if packets are put in order by frame; a copy of an MCC file keeps its order.
    [[nodiscard]] bool placesPackets() const
    {
        return m_arguments.retime.isAsked() || !isMCC(askedKind(m_arguments).kind);
    }

    ConversionWay begin()
    {
        ConversionWay way = wayFor(m_arguments, m_source);
        m_notes.begin(m_source.isSCC() ? way.kind == KIVCS2CaptionFileKind_SCC : isMCC(way.kind),
                      m_source.header().m_kind);
        return way;
    }

    /// Returns the tally of the packets that went into the target.
    [[nodiscard]] const Tally &result() const
    {
        return m_retimed ? *m_retimed : m_in;
    }

    void finishRetiming()
    {
        if (!m_retiming)
            return;
        m_retiming->finish();
        m_retimed->finish();
        m_retiming->compare(m_in, *m_retimed);
    }

    Json summary(bool isLost) const
    {
        const FoundFaults &faults = m_source.faults();
        const KIVCS2CaptionFileReport report = m_source.report();
        Json in{{"kind", kindTitle(m_source.header().m_kind)}};
        if (m_source.isSCC())
            in.update({{"lines", m_in.lines}, {"emptyPairs", m_in.emptyPairs}});
        else
            in.update({{"version", m_source.header().m_kind == KIVCS2CaptionFileKind_MCC1 ? 1 : 2},
                       {"packets", m_in.packets},
                       {"bytes708", m_in.bytes708}});
        in.update({{"pairs", m_in.allPairs()},
                   {"captions", sumOf(m_in.captions)},
                   {"services", toJson(m_in.captions)}});
        return {{"source", m_source.name()},
                {"target", m_arguments.target},
                {"counting", m_source.counting().name},
                {"dropFrame", m_source.counting().drop},
                {"in", in},
                {"first", m_source.timecode(*m_in.first)},
                {"last", m_source.timecode(*m_in.last)},
                {"delayedPairs", m_notes.delays.pairs},
                {"longestDelayFrames", m_notes.delays.longest},
                {"linesBackInTime", faults.count(KIVCS2CaptionFault_BackInTime)},
                {"linesWithSameTimecode", faults.count(KIVCS2CaptionFault_SameFrame)},
                {"pairsWithWrongParity", faults.count(KIVCS2CaptionFault_Parity)},
                {"pairsWithParityRepaired", m_repaired},
                {"lost",
                 {{"lines", report.m_lostLines},
                  {"pairs", report.m_lostPairs},
                  {"parts", isLost ? faults.lost() - report.m_lostLines - report.m_lostPairs : 0}}},
                {"changes", m_notes.changes},
                {"verified", true}};
    }

    Facts facts(bool isLost) const
    {
        Facts facts;
        facts.add("Counting", m_source.countingText());
        std::string in = kindTitle(m_source.header().m_kind) + ": " +
                         (m_source.isSCC() ? count(m_in.lines, "line") : count(m_in.packets, "packet")) +
                         ", " + count(m_in.allPairs(), "pair");
        if (m_source.isSCC() && m_in.emptyPairs > 0)
            in += " and " + std::to_string(m_in.emptyPairs) + " empty";
        facts.add("In", in + ", " + captionsText(m_in.captions));
        if (isLost)
            facts.add("Lost", lostText(m_source) + " (--keep-going)");
        if (m_notes.changes > 0)
            facts.add("Changed", count(m_notes.changes, "place"));
        if (m_notes.delays.pairs > 0)
            facts.add("Waited", count(m_notes.delays.pairs, "pair") + " for the lines before, " +
                                    count(m_notes.delays.longest, "frame") + " at most");
        if (m_repaired > 0)
            facts.add("Parity", count(m_repaired, "pair") + " given odd parity");
        facts.add("From", m_source.timecode(*m_in.first) + " until " + m_source.timecode(*m_in.last));
        return facts;
    }

    void tell(bool isLost)
    {
        Json value = summary(isLost);
        Facts made = facts(isLost);
        if (m_retiming)
            m_retiming->tell(made, value);
        m_conversion->tell(result(), made, value);
        if (m_notes.report())
            return m_notes.report()->close(value);
        report(false, value, made);
    }

    const ConvertArguments &m_arguments;
    FaultNotes m_notes;
    CaptionSource m_source;
    std::unique_ptr<Conversion> m_conversion;
    Tally m_in;
    std::optional<Tally> m_retimed;
    std::optional<Retiming> m_retiming;
    uint64_t m_repaired = 0;
};

} // namespace

void addConvertWord(Word &caption, Context &context)
{
    const auto arguments = std::make_shared<ConvertArguments>();
    Word &convert =
        caption.word("convert", "SCC and MCC to SCC, MCC, SRT or WebVTT; to the same kind it is a repair");
    addReadingOptions(convert, arguments->reading);
    convert
        .option("target", arguments->target,
                "The file to write: .scc, .mcc, .srt, .vtt; - is standard output")
        .required()
        .isTarget();
    Names kinds;
    for (const KindRow &row : kKinds)
        kinds.emplace_back(row.name);
    convert.option("--to", arguments->to, "The kind to write; without it the kind of the target's ending")
        .among(kinds);
    convert.option("--mcc-version", arguments->mccVersion, {1, 2},
                   "MCC: 1 or 2; without it 1 from SCC, the source's from MCC");
    convert
        .option("--service", arguments->service,
                "SRT, WebVTT: the service to write; without it the first of CC1, S1 ... with captions")
        .suggests("services", serviceNames);
    convert.option("--time-zero", arguments->timeZero, "SRT, WebVTT: the timecode that is 00:00:00.000");
    addRetimeOptions(convert, arguments->retime);
    convert.flag("--keep-going", arguments->keepGoing, "Write the rest if lines are lost")
        .excludes("--strict");
    convert.flag("--sparse", arguments->sparse, "MCC from SCC: packets only on frames that have a pair");
    convert.flag("--sdi", arguments->sdi, "MCC from SCC: a second service descriptor, language eng");
    convert.flag("--fix-parity", arguments->fixParity,
                 "Give every pair odd parity; without it pairs are kept");
    convert.about(
        "From MCC to SCC, --field selects the field, otherwise field 1. A repair writes all readable\n"
        "captions in the correct form and reports changes on standard error; packets keep their bytes.\n"
        "At another rate, under another numbering or in part, packets are made again; captions that a frame "
        "has\n"
        "no room for wait, and the longest wait is reported.");
    convert.example("kivcs2 caption convert programme.scc web.mcc --to-rate 25");
    convert.example("kivcs2 caption convert programme.scc converted.mcc");
    convert.runs([&context, arguments] { return Converter{*arguments, context.json}.run(); });
}

} // namespace tool
