// kivcs2 caption verify.
#include "Captions/Pairs.h"
#include "Captions/Tally.h"
#include "Terminal/Output.h"
#include "Words/Caption.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

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

/// A row of the checks: the faults that make it fail.
struct CheckRow
{
    const char *name;
    uint64_t faults;  ///< bits of KIVCS2CaptionFault
    const char *good; ///< the detail for a file without these faults
    bool isOfPackets; ///< not for SCC
};

constexpr uint64_t from(KIVCS2CaptionFault first, KIVCS2CaptionFault last)
{
    return ((uint64_t{2} << last) - 1) & ~((uint64_t{1} << first) - 1);
}

// A blank at the end of a line is reported but harmless: no check includes it.
constexpr std::array<CheckRow, 7> kChecks = {{
    {"header", from(KIVCS2CaptionFault_ByteOrderMark, KIVCS2CaptionFault_NotACaptionFile),
     "as the format spells it", false},
    {"lines",
     (from(KIVCS2CaptionFault_Blanks, KIVCS2CaptionFault_LongPacket) &
      ~(uint64_t{1} << KIVCS2CaptionFault_BlanksBehind)) |
         from(KIVCS2CaptionFault_WaitsTooLong, KIVCS2CaptionFault_NoCaptions),
     "", false},
    {"packets", from(KIVCS2CaptionFault_DataCount, KIVCS2CaptionFault_Counters),
     "lengths, sections and checksums are right", true},
    {"sequence", from(KIVCS2CaptionFault_Sequence, KIVCS2CaptionFault_Gap),
     "sequence numbers follow each other", true},
    {"timecodes", from(KIVCS2CaptionFault_BackInTime, KIVCS2CaptionFault_Overlap), "rising", false},
    {"frame rate", from(KIVCS2CaptionFault_RateMissing, KIVCS2CaptionFault_RateDisagrees),
     "packets and header agree", true},
    {"parity", uint64_t{1} << KIVCS2CaptionFault_Parity, "odd in every pair", false},
}};

Check checkOf(const CheckRow &row, const FoundFaults &faults)
{
    uint64_t number = 0;
    const KIVCS2CaptionFileFault *first = nullptr;
    for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
        if (((row.faults >> fault) & 1u) != 0 && faults.count(fault) > 0)
        {
            number += faults.count(fault);
            if (first == nullptr || faults.first(fault).m_line < first->m_line)
                first = &faults.first(fault);
        }
    if (first == nullptr)
        return {row.name, true, row.good};
    return {row.name, false,
            count(number, "fault") + ", first line " + std::to_string(first->m_line) + ": " +
                sentence(*first)};
}

/// The rows of the faults, in the order found.
class FaultRows
{
public:
    FaultRows(const CaptionArguments &arguments, JsonReport &report)
        : m_isJson(arguments.json), m_report(report), m_most(arguments.most)
    {
        constexpr uint64_t kMostOnTerminal = 20;
        if (m_most == UINT64_MAX && ::isatty(STDOUT_FILENO) != 0)
            m_most = kMostOnTerminal;
    }

    void add(const std::string &file, const CaptionSource *source, const KIVCS2CaptionFileFault &fault)
    {
        constexpr size_t kMostFound = 24;
        if (m_isJson)
            m_report.add(toJson(file, fault));
        else if (++m_number <= m_most)
        {
            if (m_number == 1 || file != m_file)
                out().line(Output::strong(
                    print("%9s  %6s  %-11s  %-23s  %-4s  ", "Line", "Column", "Timecode", "Fault", "Lost") +
                    "Found in " + file));
            m_file = file;
            const std::string column = fault.m_column > 0 ? std::to_string(fault.m_column) : "";
            const std::string found = foundText(fault, kMostFound);
            const std::string timecode =
                fault.m_hasFrame && source != nullptr ? source->timecode(fault.m_frame) : "";
            out().line(print("%9llu  %6s  %-11s  %-23s  %-4s  ",
                             static_cast<unsigned long long>(fault.m_line), column.c_str(), timecode.c_str(),
                             kivCS2CaptionFile_getFaultName(fault.m_fault), fault.m_lost ? "yes" : "no") +
                       (found.empty() ? "" : found + "; ") + "expected " + fault.m_expected);
        }
    }

    void end() const
    {
        if (m_number > m_most)
            out().line(std::to_string(m_number - m_most) + " more; --most shows them");
        if (m_number > 0)
            out().line("");
    }

private:
    bool m_isJson;
    JsonReport &m_report;
    uint64_t m_most, m_number = 0;
    std::string m_file;
};

/// A file to verify, or its source: its faults are reported as rows.
class VerifiedFile
{
public:
    VerifiedFile(const ReadingArguments &arguments, FaultRows &rows, bool byFrame)
    {
        const std::string name = place(arguments.file, 0);
        m_source.emplace(arguments,
                         ReadingWay{.byFrame = byFrame,
                                    .mayBeEmpty = true,
                                    .tellsLines = false,
                                    .onFault = [this, &rows, name](const KIVCS2CaptionFileFault &fault)
                                    { rows.add(name, m_source ? &*m_source : nullptr, fault); },
                                    .progress = "reading " + name});
    }
    [[nodiscard]] CaptionSource &source()
    {
        return *m_source;
    }

private:
    std::optional<CaptionSource> m_source;
};

// ---- Against a source ----

/// The pairs of an SCC file by frame, without empty ones.
class PairTable
{
public:
    PairTable(uint32_t field, bool fixParity) : m_field(field), m_fixParity(fixParity) {}

    void add(const KIVCS2CaptionPacket &packet)
    {
        for (const CaptionPair pair : pairsOf(packet, m_field))
            if (!pair.isEmpty())
                m_pairs.push_back({packet.m_frame, m_fixParity ? pair.withOddParity() : pair});
    }
    /// Called after the last packet: a line may go out past midnight.
    void sort()
    {
        std::ranges::stable_sort(m_pairs, {}, &Placed::frame);
    }

    [[nodiscard]] uint32_t field() const
    {
        return m_field;
    }
    [[nodiscard]] size_t size() const
    {
        return m_pairs.size();
    }
    [[nodiscard]] std::vector<CaptionPair> at(uint32_t frame) const
    {
        std::vector<CaptionPair> pairs;
        for (auto pair = std::ranges::lower_bound(m_pairs, frame, {}, &Placed::frame);
             pair != m_pairs.end() && pair->frame == frame; ++pair)
            pairs.push_back(pair->pair);
        return pairs;
    }

private:
    struct Placed
    {
        uint32_t frame;
        CaptionPair pair;
    };
    std::vector<Placed> m_pairs;
    uint32_t m_field;
    bool m_fixParity;
};

std::string listedOrNothing(const std::vector<CaptionPair> &pairs)
{
    return pairs.empty() ? "no pair" : listed(pairs);
}

/// Compares a file with the pairs of an SCC file.
class PairComparison
{
public:
    /// `fixesParity`: give the pairs of the compared file odd parity first.
    PairComparison(const PairTable &table, bool fixesParity) : m_table(table), m_fixesParity(fixesParity) {}

    void feed(const CaptionSource &source, const KIVCS2CaptionPacket &packet)
    {
        std::vector<CaptionPair> found;
        for (const CaptionPair pair : pairsOf(packet, m_table.field()))
            if (!pair.isEmpty())
                found.push_back(m_fixesParity ? pair.withOddParity() : pair);
        const std::vector<CaptionPair> expected = m_table.at(packet.m_frame);
        if (found == expected)
            m_same += found.size();
        else if (m_others++ == 0)
            m_first = "line " + std::to_string(packet.m_line) + ": " + source.timecode(packet.m_frame) +
                      " has " + listedOrNothing(found) + ", the other file has " + listedOrNothing(expected);
    }

    [[nodiscard]] Check check() const
    {
        if (m_others == 0 && m_same == m_table.size())
            return {"pairs", true, count(m_same, "pair") + " as in the source"};
        std::string detail =
            std::to_string(m_same) + " of " + count(m_table.size(), "pair") + " in both files";
        if (m_others > 0)
            detail += ", " + count(m_others, "frame") + " differ, first " + m_first;
        return {"pairs", false, detail};
    }

private:
    const PairTable &m_table;
    bool m_fixesParity;
    uint64_t m_same = 0, m_others = 0;
    std::string m_first;
};

bool areSame(const KIVCS2CaptionPacket &left, const KIVCS2CaptionPacket &right)
{
    constexpr uint32_t kSuffixes = KIVCS2CaptionPacketFlag_HasField | KIVCS2CaptionPacketFlag_HasNumber;
    return left.m_frame == right.m_frame && (left.m_flags & kSuffixes) == (right.m_flags & kSuffixes) &&
           left.m_field == right.m_field && left.m_number == right.m_number && left.m_size == right.m_size &&
           std::memcmp(left.m_anc, right.m_anc, left.m_size) == 0;
}

/// Compares the packets of an MCC file with those of another.
class PacketComparison
{
public:
    explicit PacketComparison(CaptionSource &other) : m_other(other) {}

    void feed(const KIVCS2CaptionPacket &packet)
    {
        KIVCS2CaptionPacket other;
        if (!m_other.next(other) || !areSame(packet, other))
        {
            if (m_others++ == 0)
                m_first = packet.m_line;
        }
        else
            ++m_same;
    }

    [[nodiscard]] Check check()
    {
        KIVCS2CaptionPacket other;
        uint64_t more = 0;
        while (m_other.next(other))
            ++more;
        if (m_others == 0 && more == 0)
            return {"source", true, "the same " + count(m_same, "packet") + " on the same timecodes"};
        return {"source", false,
                count(m_same, "packet") + " as in the source" +
                    (m_others > 0
                         ? ", " + count(m_others, "other") + ", first line " + std::to_string(m_first)
                         : "") +
                    (more > 0 ? ", " + std::to_string(more) + " missing at the end" : "")};
    }

private:
    CaptionSource &m_other;
    uint64_t m_same = 0, m_others = 0, m_first = 0;
};

// ---- The word ----

/// One run of verify.
class Verification
{
public:
    explicit Verification(const CaptionArguments &arguments)
        : m_arguments(arguments), m_rows(arguments, m_report)
    {
    }

    int run()
    {
        bool isWhole = true;
        try
        {
            compareAll();
        }
        catch (const Failure &failure)
        {
            // Damage of the file is a result of the check; a file that cannot be read is not.
            if (failure.code() != kExitMalformed)
                throw;
            m_checks.push_back({"file", false, failure.what()});
            isWhole = false;
        }
        const bool ok = isWhole && std::ranges::all_of(m_checks, &Check::ok);
        print(ok);
        return ok ? kExitYes : kExitNo;
    }

private:
    void compareAll()
    {
        std::optional<VerifiedFile> other;
        if (!m_arguments.against.empty())
        {
            ReadingArguments reading = m_arguments.reading;
            reading.file = m_arguments.against;
            other.emplace(reading, m_rows, true);
        }
        VerifiedFile file{m_arguments.reading, m_rows, true};
        CaptionSource &source = file.source();
        refuseIdleOptions(m_arguments.reading, source.isSCC() || (other && other->source().isSCC()));
        if (!other)
            read(source, [](const KIVCS2CaptionPacket &) {});
        else if (other->source().isSCC())
            againstPairs(source, other->source());
        else if (source.isSCC())
            pairsAgainst(source, other->source());
        else
        {
            PacketComparison comparison{other->source()};
            read(source, [&](const KIVCS2CaptionPacket &packet) { comparison.feed(packet); });
            m_checks.push_back(comparison.check());
        }
        if (other)
            checkSource(source, other->source());
    }

    // Compares the file with the pairs of an SCC source.
    void againstPairs(CaptionSource &source, CaptionSource &other)
    {
        PairTable table{other.header().m_field, m_arguments.fixParity};
        for (KIVCS2CaptionPacket packet; other.next(packet);)
            table.add(packet);
        table.sort();
        PairComparison comparison{table, false};
        read(source, [&](const KIVCS2CaptionPacket &packet) { comparison.feed(source, packet); });
        m_checks.push_back(comparison.check());
    }

    // Compares an MCC source with the pairs of an SCC file.
    void pairsAgainst(CaptionSource &source, CaptionSource &other)
    {
        PairTable table{source.header().m_field, false};
        read(source, [&](const KIVCS2CaptionPacket &packet) { table.add(packet); });
        table.sort();
        PairComparison comparison{table, m_arguments.fixParity};
        for (KIVCS2CaptionPacket packet; other.next(packet);)
            comparison.feed(other, packet);
        m_checks.push_back(comparison.check());
    }

    template <class OnPacket>
    void read(CaptionSource &source, const OnPacket &onPacket)
    {
        Tally tally{source.header().m_counting};
        for (KIVCS2CaptionPacket packet; source.next(packet);)
        {
            tally.take(packet);
            onPacket(packet);
        }
        tally.finish();
        addChecks(source, tally);
    }

    void addChecks(const CaptionSource &source, const Tally &tally)
    {
        const KIVCS2CaptionFileReport report = source.report();
        for (const CheckRow &row : kChecks)
            if (!row.isOfPackets || !source.isSCC())
            {
                Check check = checkOf(row, source.faults());
                if (check.ok && check.name == "lines")
                    check.detail = count(report.m_packets, source.isSCC() ? "pair" : "packet");
                if (check.ok && check.name == "timecodes" && report.m_gapFrames > 0)
                    check.detail += ", " + count(report.m_gapFrames, "frame") + " without a packet";
                m_checks.push_back(std::move(check));
            }
        const bool isEmpty = tally.allPairs() + tally.bytes708 == 0;
        m_checks.push_back({"captions", !isEmpty,
                            isEmpty                  ? "none: neither pairs nor CEA-708"
                            : tally.captions.empty() ? "no caption comes to the screen"
                                                     : captionsText(tally.captions, true)});
    }

    void checkSource(const CaptionSource &source, const CaptionSource &other)
    {
        if (source.counting().drop != other.counting().drop)
            m_checks.push_back({"counting", false,
                                "the file counts " + std::string{source.counting().name} + ", the source " +
                                    std::string{other.counting().name}});
        if (const uint64_t lost = other.faults().lost(); lost > 0)
            m_checks.push_back(
                {"source lines", false, "the source has lost something in " + count(lost, "place")});
    }

    void print(bool ok)
    {
        if (m_arguments.json)
        {
            Json list = Json::array();
            for (const Check &check : m_checks)
                list.push_back({{"check", check.name}, {"ok", check.ok}, {"detail", check.detail}});
            m_report.close({{"file", place(m_arguments.reading.file, 0)}, {"ok", ok}, {"checks", list}});
            return;
        }
        m_rows.end();
        Table table{"Check", "Result", "Detail"};
        for (const Check &check : m_checks)
            table.add({check.name, check.ok ? Output::good("ok") : Output::bad("fails"), check.detail});
        table.print();
    }

    const CaptionArguments &m_arguments;
    JsonReport m_report{"faults"};
    FaultRows m_rows;
    std::vector<Check> m_checks;
};

} // namespace

int captionVerify(const CaptionArguments &arguments)
{
    if (arguments.fixParity && arguments.against.empty())
        throw Failure(kExitUsage, "--fix-parity needs --against");
    if (arguments.reading.file == "-" && arguments.against == "-")
        throw Failure(kExitUsage, "standard input can be the file or its source, not both");
    return Verification{arguments}.run();
}

} // namespace tool
