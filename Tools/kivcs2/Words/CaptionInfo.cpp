// kivcs2 caption info.
#include "Captions/Services.h"
#include "Captions/Tally.h"
#include "Terminal/Output.h"
#include "Words/Caption.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

#include <map>
#include <utility>

namespace tool
{
namespace
{

/// The result of one pass over a file.
struct Found
{
    Delays delays;
    CaptionCounts captions;                                ///< captions of every service found
    std::map<KIVCS2CaptionService, std::string> languages; ///< from the service lists
    uint64_t lines = 0;                                    ///< lines with pairs of an SCC file
    uint64_t suffixes = 0, faulty = 0;
    uint8_t rateCode = 0; ///< rate code of the first CDP
    KIVCS2CaptionFileReport file{};
    KIVCS2CaptionDecoderReport decoder{};
};

// Returns true for faults of the bytes. With other faults of its line the packet may be undamaged.
bool hasFaultyBytes(const KIVCS2CaptionPacket &packet)
{
    constexpr unsigned kCount = KIVCS2CaptionFault_Counters - KIVCS2CaptionFault_DataCount + 1;
    return ((packet.m_faults >> KIVCS2CaptionFault_DataCount) & ((uint64_t{1} << kCount) - 1)) != 0;
}

void takeNote(const KIVCS2CaptionPacket &packet, Found &found)
{
    if ((packet.m_flags & (KIVCS2CaptionPacketFlag_HasField | KIVCS2CaptionPacketFlag_HasNumber)) != 0)
        ++found.suffixes;
    found.faulty += hasFaultyBytes(packet) ? 1 : 0;
    if (found.rateCode == 0)
        found.rateCode = packet.m_rateCode;
    for (uint32_t index = 0; index < packet.m_serviceCount; ++index)
        if (const KIVCS2CaptionServiceEntry &entry = packet.m_services[index]; entry.m_language[0] != '\0')
            found.languages.try_emplace(entry.m_service, entry.m_language);
}

void readAll(CaptionSource &source, Found &found)
{
    Tally tally{source.header().m_counting};
    for (KIVCS2CaptionPacket packet; source.next(packet);)
    {
        found.delays.take(packet);
        takeNote(packet, found);
        tally.take(packet);
    }
    tally.finish();
    found.captions = std::move(tally.captions);
    found.lines = tally.lines;
    found.decoder = tally.report();
    found.file = source.report();
    for (const KIVCS2CaptionService service : servicesOf(found.decoder.m_met))
        found.captions.try_emplace(service, 0);
}

std::string languageOf(const Found &found, KIVCS2CaptionService service)
{
    const auto language = found.languages.find(service);
    return language != found.languages.end() ? language->second : std::string{};
}

Json servicesJson(const Found &found)
{
    Json list = Json::array();
    for (const auto &[service, captions] : found.captions)
    {
        const std::string language = languageOf(found, service);
        list.push_back({{"service", serviceName(service)},
                        {"captions", captions},
                        {"language", language.empty() ? Json() : Json(language)}});
    }
    return list;
}

Json sccJson(const CaptionSource &source, const Found &found)
{
    const auto count = [&](KIVCS2CaptionFault fault) { return source.faults().count(fault); };
    return {{"field", source.header().m_field},
            {"lines", found.lines},
            {"pairs", found.file.m_packets},
            {"delayedPairs", found.delays.pairs},
            {"longestDelayFrames", found.delays.longest},
            {"linesBackInTime", count(KIVCS2CaptionFault_BackInTime)},
            {"linesWithSameTimecode", count(KIVCS2CaptionFault_SameFrame)},
            {"pairsWithWrongParity", count(KIVCS2CaptionFault_Parity)},
            {"linesOtherSeparator", count(KIVCS2CaptionFault_OtherCounting)},
            {"lostPairs", found.file.m_lostPairs}};
}

Json mccJson(const CaptionSource &source, const Found &found)
{
    const KIVCS2CaptionFileHeader &header = source.header();
    return {{"version", header.m_kind == KIVCS2CaptionFileKind_MCC1 ? 1 : 2},
            {"timeCodeRate", header.m_rate},
            {"uuid", header.m_uuid},
            {"creationProgram", header.m_program},
            {"creationDate", header.m_date},
            {"creationTime", header.m_time},
            {"packets", found.file.m_packets},
            {"captionDistributionPackets", found.file.m_cdps},
            {"cdpFrameRate", cdpRateName(found.rateCode)},
            {"field1Pairs", found.decoder.m_pairs[0]},
            {"field2Pairs", found.decoder.m_pairs[1]},
            {"dtvccPackets", found.decoder.m_dtvccPackets},
            {"dtvccBreaks", found.decoder.m_dtvccBreaks},
            {"framesWithoutPacket", found.file.m_gapFrames},
            {"faultyPackets", found.faulty}};
}

Json infoJson(const CaptionSource &source, const Found &found)
{
    const bool isEmpty = found.file.m_packets == 0;
    Json value{{"file", source.name()},
               {"format", kindName(source.header().m_kind)},
               {"counting", source.counting().name},
               {"dropFrame", source.counting().drop}};
    value.update(source.isSCC() ? sccJson(source, found) : mccJson(source, found));
    value.update({{"captions", sumOf(found.captions)},
                  {"services", servicesJson(found)},
                  {"first", isEmpty ? "" : source.timecode(found.file.m_firstFrame)},
                  {"last", isEmpty ? "" : source.timecode(found.file.m_lastFrame)},
                  {"malformedLines", found.file.m_lostLines}});
    return value;
}

void addMCCFacts(const CaptionSource &source, const Found &found, Facts &facts)
{
    const KIVCS2CaptionFileHeader &header = source.header();
    if (header.m_uuid[0] != '\0')
        facts.add("UUID", header.m_uuid);
    if (header.m_date[0] != '\0' || header.m_program[0] != '\0')
        facts.add("Created", std::string{header.m_date} + " " + header.m_time + " by " + header.m_program);
    facts.add("Packets", std::to_string(found.file.m_packets) + ", of them " +
                             std::to_string(found.file.m_cdps) + " caption distribution packets" +
                             (found.file.m_cdps > 0
                                  ? " at " + std::string{cdpRateName(found.rateCode)} + " frames a second"
                                  : ""));
    facts.add("Pairs", std::to_string(found.decoder.m_pairs[0]) + " in field 1, " +
                           std::to_string(found.decoder.m_pairs[1]) + " in field 2, empty ones not counted");
    facts.add("CEA-708", count(found.decoder.m_dtvccPackets, "packet") +
                             (found.decoder.m_dtvccBreaks > 0
                                  ? ", " + count(found.decoder.m_dtvccBreaks, "break") + " in their sequence"
                                  : ""));
}

void printFacts(const CaptionSource &source, const Found &found)
{
    const KIVCS2CaptionFileKind kind = source.header().m_kind;
    Facts facts;
    facts.add("File", source.name() + ", " + count(source.bytes(), "byte"));
    facts.add("Format", source.isSCC() ? "SCC, field " + std::to_string(source.header().m_field)
                                       : std::string{"MCC version "} +
                                             (kind == KIVCS2CaptionFileKind_MCC1 ? "1.0" : "2.0"));
    facts.add("Counting", source.countingText());
    if (source.isSCC())
    {
        facts.add("Lines", count(found.lines, "caption line"));
        facts.add("Pairs", std::to_string(found.file.m_packets));
    }
    else
        addMCCFacts(source, found, facts);
    facts.add("Captions", std::to_string(sumOf(found.captions)) + " shown");
    for (const auto &[service, captions] : found.captions)
    {
        const std::string language = languageOf(found, service);
        facts.add("  " + serviceName(service),
                  std::to_string(captions) + (language.empty() ? "" : ", " + language));
    }
    const uint64_t gaps = found.file.m_gapFrames;
    facts.add("From", source.timecode(found.file.m_firstFrame) + " until " +
                          source.timecode(found.file.m_lastFrame) +
                          (gaps > 0 ? ", " + count(gaps, "frame") + " without a packet" : ""));
    if (found.suffixes > 0)
        facts.add("Suffixes", count(found.suffixes, "line") + " with a field or number");
    if (found.delays.pairs > 0)
        facts.add("Overlap", count(found.delays.pairs, "pair") + " of " + count(found.delays.lines, "line") +
                                 " wait for earlier lines, by up to " + count(found.delays.longest, "frame"));
    facts.print();
}

} // namespace

int captionInfo(const CaptionArguments &arguments)
{
    Found found;
    JsonReport report{"faults"};
    const std::string name = place(arguments.reading.file, 0);
    CaptionSource source{arguments.reading,
                         {.byFrame = true,
                          .placesPackets = true,
                          .onFault =
                              [&](const KIVCS2CaptionFileFault &fault)
                          {
                              found.delays.take(fault);
                              if (arguments.json)
                                  report.add(toJson(name, fault));
                          },
                          .progress = "reading " + name}};
    refuseIdleOptions(arguments.reading, source.isSCC());
    readAll(source, found);
    if (arguments.json)
        report.close(infoJson(source, found));
    else
    {
        printFacts(source, found);
        out().flush(); // faults come after the output
    }
    return source.finish();
}

} // namespace tool
