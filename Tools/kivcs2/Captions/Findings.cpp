// The list that cdp find makes of a capture.
#include "Captions/Findings.h"

#include "Captions/CaptionRows.h"
#include "Captions/OpenCaptions.h"
#include "Captions/Services.h"
#include "Failure.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

#include <algorithm>
#include <array>
#include <utility>

namespace tool
{
namespace
{

constexpr size_t kRows = 1000; // rows that a table holds before it is printed

// Only the forms that have a place for each packet have columns for it.
Table tableFor(const std::string &form)
{
    if (form == "291m")
        return Table{">Offset", ">Bytes",  ">Frames/s",      ">Sequence", ">Triplets",
                     "Field 1", "Field 2", ">CEA-708 bytes", "Result"};
    const bool isRow = form == "v210";
    return Table{">Offset",
                 isRow ? ">Row" : ">Line",
                 isRow ? "Samples" : ">Field",
                 ">Bytes",
                 ">Frames/s",
                 ">Sequence",
                 ">Triplets",
                 "Field 1",
                 "Field 2",
                 ">CEA-708 bytes",
                 "Result"};
}

const char *channelName(const KIVCS2CaptionPlace &place)
{
    constexpr std::array<const char *, 3> kNames = {"luma", "chroma", "both"};
    return kNames[std::min<size_t>(place.m_channel, 2)];
}

const char *partName(const std::string &form)
{
    return form == "v210" ? "row" : form == "rtp" ? "payload" : form == "436m" ? "record" : "packet";
}

} // namespace

Findings::Findings(const Way &way)
    : m_form(way.form), m_showsCaptions(way.captions), m_table(tableFor(way.form)),
      m_decoder(parseServices(way.service), [this](const KIVCS2CaptionText &text,
                                                   KIVCS2CaptionCounting counting) { add(text, counting); })
{
    if (way.json)
        m_array.emplace();
}

void Findings::add(const CapturedPacket &found)
{
    const Content content{found.packet};
    ++m_found;
    m_faulty += content.packet.m_faults != 0 ? 1 : 0;
    m_causes.add(content, "at byte " + std::to_string(found.offset));
    if (m_showsCaptions)
        m_decoder.take(found.packet);
    else if (m_array)
        m_array->add(json(found, content));
    else
        addRow(found, content);
}

int Findings::close(const Capture &capture)
{
    if (m_showsCaptions)
        m_decoder.finish();
    if (m_array)
        m_array->close();
    else if (m_table.size() > 0)
        m_table.print();
    out().flush(); // faults come after the rows
    const std::string name = capture.input().name();
    m_causes.tell(name);
    const bool isDamaged = tell(name, capture.damage());
    if (m_found == 0)
        note(name + ": no caption distribution packet");
    else if (m_showsCaptions && m_captions == 0)
        note(name + ": no caption in it comes to the screen");
    if (m_faulty > 0 || isDamaged)
        return kExitMalformed;
    return (m_showsCaptions ? m_captions : m_found) == 0 ? kExitNo : kExitYes;
}

Json Findings::json(const CapturedPacket &found, const Content &content) const
{
    Json value = toJson(content);
    const KIVCS2CaptionPlace &place = found.place;
    value["offset"] = found.offset;
    if (m_form == "291m")
        return value;
    value["channel"] = channelName(place);
    if (m_form == "v210")
    {
        value.update({{"row", found.row}, {"word", place.m_horizontal}});
        return value;
    }
    value.update({{"line", place.m_line}, {"field", place.m_field > 0 ? Json(place.m_field) : Json()}});
    if (m_form == "436m")
        value.update({{"wrapping", place.m_wrapping}, {"coding", place.m_coding}});
    else
        value.update({{"horizontalOffset", place.m_horizontal},
                      {"stream", place.m_hasStream != 0 ? Json(place.m_stream) : Json()},
                      {"rtp",
                       {{"sequence", place.m_rtp.m_sequence},
                        {"timestamp", place.m_rtp.m_timestamp},
                        {"source", place.m_rtp.m_source},
                        {"payloadType", place.m_rtp.m_payloadType},
                        {"marker", place.m_rtp.m_marker != 0},
                        {"packets", place.m_rtp.m_count}}}});
    return value;
}

void Findings::addRow(const CapturedPacket &found, const Content &content)
{
    const KIVCS2CaptionPacket &packet = content.packet;
    const KIVCS2CaptionPlace &place = found.place;
    std::vector<Shown> cells = {std::to_string(found.offset)};
    if (m_form == "v210")
        cells.insert(cells.end(), {std::to_string(found.row), channelName(place)});
    else if (m_form != "291m")
        cells.insert(cells.end(),
                     {std::to_string(place.m_line), place.m_field > 0 ? std::to_string(place.m_field) : "-"});
    std::string result;
    for (const KIVCS2CaptionFault fault : content.faults())
    {
        result += result.empty() ? "" : ", ";
        result += kivCS2CaptionFile_getFaultName(fault);
    }
    const bool isCDP = content.isCDP();
    cells.insert(cells.end(),
                 {std::to_string(content.cdp().size()),
                  isCDP ? std::string{cdpRateName(packet.m_rateCode)} : "-",
                  isCDP ? std::to_string(packet.m_sequence) : "-", std::to_string(packet.m_tripletCount),
                  listedOrNone(content.fields[0]), listedOrNone(content.fields[1]),
                  std::to_string(content.dtvcc.m_count), result.empty() ? "ok" : result});
    m_table.add(std::move(cells));
    if (m_table.size() == kRows)
        m_table.print();
}

void Findings::add(const KIVCS2CaptionText &text, KIVCS2CaptionCounting counting)
{
    ++m_captions;
    if (m_array)
        m_array->add(captionJson(text, counting));
    else
        printCaption(text, counting);
}

// Reports the damage of the capture outside the packets.
bool Findings::tell(const std::string &name, const Capture::Damage &damage) const
{
    const std::string format = " (" + statusText(KIVCS2STATUS_FORMAT_ERR) + ")";
    if (damage.notRTP > 0)
        note(name + ": not RTP version 2: " + count(damage.notRTP, "payload") + ", first at byte " +
             std::to_string(damage.firstNotRTP) + format);
    if (damage.cut)
        note(name + ": the " + partName(m_form) + " at byte " + std::to_string(*damage.cut) +
             " is cut short" + format);
    return damage.notRTP > 0 || damage.cut;
}

} // namespace tool
