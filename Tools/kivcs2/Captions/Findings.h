// The list that cdp find makes of a capture: its packets, or the captions in them.
#ifndef KIV_TOOL_CAPTION_FINDINGS_H
#define KIV_TOOL_CAPTION_FINDINGS_H

#include "Captions/Capture.h"
#include "Captions/PacketContent.h"
#include "Terminal/Output.h"

#include <optional>
#include <string>

namespace tool
{

/// Prints a row or a JSON object for each at once, so that memory does not grow with the capture.
class Findings
{
public:
    struct Way
    {
        std::string form;    ///< 291m, 436m, v210 or rtp; decides how the rows show a place
        std::string service; ///< service of the captions; empty for all
        bool captions = false, json = false;
    };

    explicit Findings(const Way &way);

    void add(const CapturedPacket &found);

    /// Prints the remaining rows, and the faults on standard error. Returns the exit code.
    int close(const Capture &capture);

private:
    [[nodiscard]] Json json(const CapturedPacket &found, const Content &content) const;
    void addRow(const CapturedPacket &found, const Content &content);
    void add(const KIVCS2CaptionText &text, KIVCS2CaptionCounting counting);
    [[nodiscard]] bool tell(const std::string &name, const Capture::Damage &damage) const;

    std::string m_form;
    bool m_showsCaptions;
    std::optional<JsonArray> m_array;
    Table m_table;
    CaptureDecoder m_decoder;
    Causes m_causes;
    uint64_t m_found = 0, m_faulty = 0, m_captions = 0;
};

} // namespace tool

#endif
