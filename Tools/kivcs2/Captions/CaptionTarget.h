// A caption file to be written: it gets its name when it is complete and has been read back.
#ifndef KIV_TOOL_CAPTION_TARGET_H
#define KIV_TOOL_CAPTION_TARGET_H

#include "Files/Files.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

#include <string>

namespace tool
{

/// How a caption file is written.
struct TargetWay
{
    KIVCS2CaptionFileKind kind = KIVCS2CaptionFileKind_FindOut;
    KIVCS2CaptionCounting counting = KIVCS2CaptionCounting_FindOut;
    KIVCS2CaptionWriteOptions options{};
    KIVCS2CaptionFileHeader header{};
};

/// The library's writer onto an output file. A failing write throws with the system's reason.
class CaptionTarget
{
public:
    CaptionTarget(std::string target, const TargetWay &way);
    ~CaptionTarget();
    CaptionTarget(const CaptionTarget &) = delete;
    CaptionTarget &operator=(const CaptionTarget &) = delete;

    /// Writes the packet's bytes unchanged; to SCC the pairs of the field.
    void write(const KIVCS2CaptionPacket &packet);
    void write(uint32_t frame, const KIVCS2CaptionPairs &pairs);
    void write(const KIVCS2CaptionText &text);

    /// Ends the file; after that `readablePath` can be read.
    void finish();
    [[nodiscard]] std::string readablePath() const
    {
        return m_output.readablePath();
    }

    void commit()
    {
        m_output.commit();
    }

private:
    void done(KIVCS2Status status, uint32_t frame);

    std::string m_name;
    KIVCS2CaptionCounting m_counting;
    OutputFile m_output;
    OutputStream m_stream;
    KIVCS2CaptionFile m_file{};
};

} // namespace tool

#endif
