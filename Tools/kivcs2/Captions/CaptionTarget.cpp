// A caption file to be written, by the library's writer.
#include "Captions/CaptionTarget.h"

#include <array>

namespace tool
{

CaptionTarget::CaptionTarget(std::string target, const TargetWay &way)
    : m_name(place(target, 0)), m_counting(way.counting), m_output(std::move(target)), m_stream(m_output)
{
    check(
        kivCS2CaptionFile_initWriting(&m_file, &m_stream.stream, false, way.kind, way.counting, &way.options),
        m_name);
    const KIVCS2Status status = kivCS2CaptionFile_writeHeader(&m_file, &way.header);
    if (KIVCS2_FAILED(status))
    {
        (void)kivCS2CaptionFile_free(&m_file); // the destructor does not run
        m_stream.check();
        check(status, "writing the header of " + m_name);
    }
}

CaptionTarget::~CaptionTarget()
{
    (void)kivCS2CaptionFile_free(&m_file);
}

void CaptionTarget::done(KIVCS2Status status, uint32_t frame)
{
    if (!KIVCS2_FAILED(status))
        return;
    m_stream.check(); // the system's reason is better than the status
    std::array<char, KIVCS2_CAPTION_TIMECODE_SIZE> text{};
    (void)kivCS2CaptionCounting_textFromFrame(m_counting, frame, text.data()); // the counting is known
    throw Failure(status, Where{m_name}, "writing the captions of " + std::string{text.data()});
}

void CaptionTarget::write(const KIVCS2CaptionPacket &packet)
{
    done(kivCS2CaptionFile_writePacket(&m_file, &packet), packet.m_frame);
}

void CaptionTarget::write(uint32_t frame, const KIVCS2CaptionPairs &pairs)
{
    done(kivCS2CaptionFile_writeCaptions(&m_file, frame, &pairs, nullptr), frame);
}

void CaptionTarget::write(const KIVCS2CaptionText &text)
{
    done(kivCS2CaptionFile_writeText(&m_file, &text), text.m_from);
}

void CaptionTarget::finish()
{
    const KIVCS2Status status = kivCS2CaptionFile_finish(&m_file);
    m_stream.check();
    check(status, "writing " + m_name);
    m_output.flush();
}

} // namespace tool
