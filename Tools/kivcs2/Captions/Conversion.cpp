// The conversions of packets to a file: packets unchanged, pairs on their frames, and captions as cues.
#include "Captions/Conversion.h"

#include "Captions/Cues.h"
#include "Captions/Services.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

namespace tool
{
namespace
{

constexpr const char *kProgram = "kivcs2 " KIVCS2_TOOL_VERSION;

Failure wrongBack(const std::string &what)
{
    return {kExitInternal, "the written file reads back wrong: " + what};
}

/// MCC to MCC: every packet byte for byte.
class PacketCopy final : public Conversion
{
public:
    PacketCopy(const CaptionSource &source, ConversionWay way)
        : Conversion(source, std::move(way)), m_target(m_way.target, targetWay())
    {
    }

    void take(const KIVCS2CaptionPacket &packet) override
    {
        if (m_way.kind == KIVCS2CaptionFileKind_MCC1 &&
            (packet.m_flags & KIVCS2CaptionPacketFlag_HasField) != 0)
            throw Failure(KIVCS2STATUS_FORMAT_ERR, Where{m_source.name(), packet.m_line},
                          "a field suffix, which version 1 cannot hold; --to mcc2 keeps it");
        m_target.write(packet);
    }
    void take(const KIVCS2CaptionText & /*text*/) override {}

    void finish(const Tally &in) override
    {
        m_target.finish();
        m_out = readBack(m_target);
        if (m_out->packets != in.packets || !(m_out->packetDigest == in.packetDigest))
            throw wrongBack("other packets than the source's");
    }

    void tell(const Tally & /*in*/, Facts &facts, Json &value) const override
    {
        facts.add("Out", kindTitle(m_way.kind) + ": " + count(m_out->packets, "packet") + ", " +
                             count(m_out->allPairs(), "pair") + ", " + captionsText(m_out->captions));
        value["out"] = {{"kind", kindTitle(m_way.kind)},
                        {"version", m_way.kind == KIVCS2CaptionFileKind_MCC1 ? 1 : 2},
                        {"packets", m_out->packets},
                        {"pairs", m_out->allPairs()},
                        {"captions", sumOf(m_out->captions)}};
        value["headerLinesNotCarried"] = m_source.header().m_otherLines;
        facts.add("Verified", Output::good("yes") + ", read back: " +
                                  (m_way.isRetimed ? "every pair in order within the wait, the same texts"
                                                   : "every packet is the source's, byte for byte"));
    }

    void commit() override
    {
        m_target.commit();
    }

private:
    CaptionTarget m_target;
    std::unique_ptr<Tally> m_out;
};

/// SCC to MCC, SCC to SCC and MCC to SCC: every pair on its frame. In SCC a frame has one pair: further pairs
/// wait for the next frame.
class PairCopy final : public Conversion
{
public:
    PairCopy(const CaptionSource &source, ConversionWay way)
        : Conversion(source, std::move(way)), m_target(m_way.target, targetWay()),
          m_perDay(framesADay(m_way.counting))
    {
    }

    void take(const KIVCS2CaptionPacket &packet) override
    {
        KIVCS2CaptionPairs pairs;
        (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // empty if there are none
        if (m_way.kind == KIVCS2CaptionFileKind_SCC)
            takeField(packet.m_frame, pairs);
        else
            takeBoth(packet.m_frame, pairs);
    }
    void take(const KIVCS2CaptionText & /*text*/) override {}

    void finish(const Tally &in) override
    {
        if (m_pairs == 0)
        {
            const uint32_t other = 3 - m_way.field;
            throw Failure(
                KIVCS2STATUS_NO_DATA_ERR, Where{m_source.name()},
                in.allPairs() == 0
                    ? std::string{"has no CEA-608 captions, and SCC cannot hold others"}
                    : print("holds no captions in field %u; --field %u takes the other", m_way.field, other));
        }
        m_target.finish();
        m_out = readBack(m_target);
        if (m_out->allPairs() != m_pairs || !(m_out->pairDigest == m_digest))
            throw wrongBack(std::to_string(m_out->allPairs()) + " pairs for " + std::to_string(m_pairs) +
                            ", or on other frames");
    }

    void tell(const Tally &in, Facts &facts, Json &value) const override
    {
        const bool toSCC = m_way.kind == KIVCS2CaptionFileKind_SCC;
        const uint64_t fillers = toSCC ? 0 : m_out->packets - m_packets;
        value["out"] = {
            {"kind", kindTitle(m_way.kind)}, {"pairs", m_pairs}, {"captions", sumOf(m_out->captions)}};
        std::string text = kindTitle(m_way.kind) + ": ";
        if (!toSCC)
        {
            value["out"].update({{"version", m_way.kind == KIVCS2CaptionFileKind_MCC1 ? 1 : 2},
                                 {"packets", m_out->packets},
                                 {"emptyPackets", fillers}});
            text += count(m_out->packets, "packet") + ", ";
        }
        else
            text += count(m_out->lines, "line") + ", ";
        text += count(m_pairs, "pair") + ", " + captionsText(m_out->captions);
        if (fillers > 0)
            text += "; " + count(fillers, "packet") + " without captions between them";
        facts.add("Out", text);
        if (toSCC)
            tellLeftOut(in, facts, value);
        if (m_moved > 0)
            facts.add("Moved", count(m_moved, "pair") + " to a later frame: SCC has one pair a frame");
        value["pairsMoved"] = m_moved;
        facts.add("Verified", Output::good("yes") + ", read back: every pair on its frame" +
                                  (toSCC ? "" : ", sequence and checksums right"));
    }

    void commit() override
    {
        m_target.commit();
    }

private:
    void add(uint32_t frame, uint32_t field, const uint8_t (&pair)[2])
    {
        ++m_pairs;
        m_digest.add(frame % m_perDay, field, pair);
    }

    void takeBoth(uint32_t frame, const KIVCS2CaptionPairs &pairs)
    {
        m_target.write(frame, pairs);
        ++m_packets;
        for (uint32_t field = 0; field < 2; ++field)
            for (uint32_t index = 0; index < pairs.m_count[field]; ++index)
                if (!isEmpty(pairs.m_pairs[field][index]))
                    add(frame, field, pairs.m_pairs[field][index]);
    }

    void takeField(uint32_t frame, const KIVCS2CaptionPairs &pairs)
    {
        const uint32_t field = m_way.field - 1;
        if (frame < m_frame) // past midnight, or back in time like the source
            m_free = frame;
        m_frame = frame;
        for (uint32_t index = 0; index < pairs.m_count[field]; ++index)
        {
            const auto &pair = pairs.m_pairs[field][index];
            const uint32_t placed = std::max(frame, m_free);
            if (isEmpty(pair) && placed > frame)
                continue;
            KIVCS2CaptionPairs one{};
            one.m_count[field] = 1;
            std::ranges::copy(pair, one.m_pairs[field][0]);
            m_target.write(placed, one);
            m_free = placed + 1;
            if (isEmpty(pair))
                continue;
            add(placed, field, pair);
            m_moved += placed > frame ? 1 : 0;
        }
    }

    // Adds the contents of the other field and of CEA-708, which are left out.
    void tellLeftOut(const Tally &in, Facts &facts, Json &value) const
    {
        CaptionCounts others;
        for (const auto &[service, number] : in.captions)
            if (!m_out->captions.contains(service))
                others[service] = number;
        const uint64_t pairs = in.allPairs() - in.pairs[m_way.field - 1];
        value["leftOut"] = {{"pairs", pairs}, {"bytes708", in.bytes708}, {"captions", toJson(others)}};
        value["field"] = m_way.field;
        facts.add("Field", std::to_string(m_way.field));
        std::string text = pairs > 0 ? count(pairs, "pair") + " of the other field" : "";
        if (in.bytes708 > 0)
            text += (text.empty() ? "" : ", ") + count(in.bytes708, "byte") + " of CEA-708";
        if (!others.empty())
            text += " (" + captionsText(others, true) + ")";
        if (!text.empty())
            facts.add("Left out", text);
    }

    CaptionTarget m_target;
    std::unique_ptr<Tally> m_out;
    Digest m_digest;
    uint64_t m_pairs = 0, m_packets = 0, m_moved = 0;
    uint32_t m_perDay;
    uint32_t m_frame = 0, m_free = 0; ///< SCC: frame of the packet before; the next frame without a pair
};

/// Captions of one service as cues.
class CueCopy final : public Conversion
{
public:
    CueCopy(const CaptionSource &source, ConversionWay way)
        : Conversion(source, std::move(way)), m_service(m_way.service), m_cues(isVTT()),
          m_perDay(framesADay(m_way.counting))
    {
        m_target.emplace(m_way.target, targetWay());
    }

    // In a file that runs past midnight, the frames after midnight are smaller.
    void take(const KIVCS2CaptionPacket &packet) override
    {
        m_day += isDayBefore(m_frame, packet.m_frame) ? m_perDay : 0;
        m_frame = packet.m_frame;
    }

    // If no service is asked for, the best service with a caption is written. When a better one shows its
    // first caption, the file starts again with that caption.
    void take(const KIVCS2CaptionText &text) override
    {
        if (m_way.service == 0 && (m_service == 0 || rank(text.m_service) < rank(m_service)))
        {
            m_service = text.m_service;
            m_cues = Cues{isVTT()};
            m_target.emplace(m_way.target, targetWay());
        }
        if (text.m_service != m_service)
            return;
        KIVCS2CaptionText placed = text;
        const uint32_t day = m_day - (m_day > 0 && isDayBefore(text.m_from, m_frame) ? m_perDay : 0);
        placed.m_from += day;
        placed.m_until += day;
        if (placed.m_from < m_way.timeZero)
            throw Failure(KIVCS2STATUS_INVALID_TIMECODE_ERR, Where{m_source.name()},
                          "a caption at " + m_source.timecode(text.m_from) + ", before the time zero");
        m_target->write(placed);
        const uint32_t until = placed.m_until + (isDayBefore(placed.m_from, placed.m_until) ? m_perDay : 0);
        m_cues.add(milliseconds(placed.m_from), milliseconds(std::max(until, placed.m_from + 1)),
                   placed.m_text);
    }

    void finish(const Tally &in) override
    {
        if (m_cues.number() == 0)
            throw Failure(KIVCS2STATUS_NO_DATA_ERR, Where{m_source.name()},
                          m_service == 0
                              ? std::string{"shows no captions"}
                              : "shows no captions of " + serviceName(m_service) +
                                    (in.captions.empty() ? "" : ", but " + captionsText(in.captions, true)));
        m_target->finish();
        Cues found{isVTT()};
        std::ifstream file{m_target->readablePath()};
        if (file.is_open())
            found.read(file);
        if (!file.is_open() || file.bad())
            throw Failure(KIVCS2STATUS_READ_ERR, Where{m_way.target}, "cannot be read back");
        if (!(found == m_cues))
            throw wrongBack(found.number() == m_cues.number()
                                ? "other texts or times"
                                : count(found.number(), "cue") + " for " + std::to_string(m_cues.number()));
    }

    void tell(const Tally &in, Facts &facts, Json &value) const override
    {
        CaptionCounts others = in.captions;
        others.erase(m_service);
        value["out"] = {{"kind", kindTitle(m_way.kind)}, {"captions", m_cues.number()}};
        value["service"] = serviceName(m_service);
        value["leftOut"] = {{"captions", toJson(others)}};
        facts.add("Out", kindTitle(m_way.kind) + ": " + count(m_cues.number(), "caption"));
        facts.add("Service", serviceName(m_service));
        if (!others.empty())
            facts.add("Left out", captionsText(others, true));
        facts.add("Verified", Output::good("yes") + ", read back: the same texts at the same times");
    }

    void commit() override
    {
        m_target->commit();
    }

private:
    // Ranks CC1 first, then S1, the others of CEA-608, the others of CEA-708, and the text services last.
    static uint32_t rank(KIVCS2CaptionService service)
    {
        constexpr std::array<KIVCS2CaptionService, 2> kFirst = {KIVCS2CaptionService_CC1,
                                                                KIVCS2CaptionService_S1};
        const auto first = std::ranges::find(kFirst, service);
        if (first != kFirst.end())
            return static_cast<uint32_t>(first - kFirst.begin());
        return service >= KIVCS2CaptionService_T1 ? 0x300 + service
               : service > 0x100                  ? service
                                                  : 0x200 + service;
    }

    [[nodiscard]] bool isDayBefore(uint32_t frame, uint32_t other) const
    {
        return frame > other && frame - other > m_perDay / 2;
    }

    [[nodiscard]] bool isVTT() const
    {
        return m_way.kind == KIVCS2CaptionFileKind_WebVTT;
    }

    [[nodiscard]] uint64_t milliseconds(uint32_t frame) const
    {
        uint64_t time = 0;
        check(kivCS2CaptionCounting_nanosecondsOfFrame(m_way.counting, frame - m_way.timeZero, &time),
              "time");
        return (time + 500'000) / 1'000'000;
    }

    std::optional<CaptionTarget> m_target;
    KIVCS2CaptionService m_service;
    Cues m_cues;
    uint32_t m_perDay;
    uint32_t m_frame = 0, m_day = 0; ///< frame of the packet before; frames up to the midnight before it
};

// Throws if the rate of the source does not allow its pairs in the target.
void checkRates(const CaptionSource &source, const ConversionWay &way)
{
    const Counting &counting = rowOf(way.counting);
    const KIVCS2CaptionFileKind kind = way.kind;
    constexpr uint8_t kNTSC = 4; // cdp_frame_rate of 29.97
    if (kind == KIVCS2CaptionFileKind_SCC && counting.cdpCode != kNTSC)
        throw Failure(kExitNotHere, Where{source.name()},
                      "counts " + std::string{counting.title} +
                          "; SCC is written at 29.97 only (--to-rate 29.97)");
    if (isMCC(kind) && source.isSCC() && !way.isRetimed && counting.numerator / counting.denominator > 30)
        throw Failure(kExitUsage, "--rate " + std::string{counting.name} +
                                      ": an SCC file has one pair a frame at up to 30 frames a second (line "
                                      "21); the rates from 23.98 to 30 can be written");
}

} // namespace

std::string kindTitle(KIVCS2CaptionFileKind kind)
{
    const std::string name{kindName(kind)};
    return isMCC(kind) ? name + (kind == KIVCS2CaptionFileKind_MCC1 ? " 1" : " 2") : name;
}

bool isMCC(KIVCS2CaptionFileKind kind)
{
    return kind == KIVCS2CaptionFileKind_MCC1 || kind == KIVCS2CaptionFileKind_MCC2;
}

std::unique_ptr<Conversion> Conversion::make(const CaptionSource &source, ConversionWay way)
{
    checkRates(source, way);
    if (way.kind == KIVCS2CaptionFileKind_SRT || way.kind == KIVCS2CaptionFileKind_WebVTT)
        return std::make_unique<CueCopy>(source, std::move(way));
    if (isMCC(way.kind) && (way.isRetimed || !source.isSCC()))
        return std::make_unique<PacketCopy>(source, std::move(way));
    return std::make_unique<PairCopy>(source, std::move(way));
}

std::unique_ptr<Tally> Conversion::readBack(const CaptionTarget &target) const
{
    const ReadingArguments arguments{target.readablePath(), std::string{rowOf(m_way.counting).name},
                                     m_way.field, false, false};
    ReadingWay way;
    way.tellsLines = false;
    way.progress = "reading back " + place(m_way.target, 0);
    CaptionSource written{arguments, std::move(way)};
    auto tally = std::make_unique<Tally>(m_way.counting);
    for (KIVCS2CaptionPacket packet; written.next(packet);)
        tally->take(packet);
    tally->finish();
    for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
        if (written.faults().count(fault) > 0 && m_source.faults().count(fault) == 0)
            throw wrongBack(sentence(written.faults().first(fault)));
    return tally;
}

TargetWay Conversion::targetWay() const
{
    constexpr static std::array<KIVCS2CaptionServiceEntry, 2> kBoth = {
        {{KIVCS2CaptionService_CC1, "", 0, 0, {}}, {KIVCS2CaptionService_S1, "eng", 0, 0, {}}}};
    TargetWay way;
    way.kind = m_way.kind;
    way.counting = m_way.counting;
    way.options.m_everyFrame = !m_way.sparse;
    way.options.m_field = m_way.field;
    way.options.m_timeZero = m_way.timeZero;
    if (m_way.sdi)
    {
        way.options.m_services = kBoth.data();
        way.options.m_serviceCount = kBoth.size();
    }
    way.header = m_source.header();
    if (way.header.m_program[0] == '\0')
        std::snprintf(way.header.m_program, sizeof way.header.m_program, "%s", kProgram);
    return way;
}

} // namespace tool
