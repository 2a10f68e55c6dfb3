// The captions of a file as a viewer sees them.
#include "Captions/Decoding.h"

#include "Failure.h"

#include <utility>

namespace tool
{

CaptionDecoder::CaptionDecoder(const KIVCS2CaptionServices &services, KIVCS2CaptionCounting counting,
                               OnText onText)
    : m_onText(std::move(onText))
{
    KIVCS2CaptionDecoderOptions options{};
    options.m_counting = counting;
    check(kivCS2CaptionDecoder_init(&m_decoder, &services, &options, take, this), "caption decoder");
}

CaptionDecoder::~CaptionDecoder()
{
    (void)kivCS2CaptionDecoder_free(&m_decoder);
}

KIVCS2Status CaptionDecoder::take(const KIVCS2CaptionText *text, void *context) noexcept
{
    auto &self = *static_cast<CaptionDecoder *>(context);
    try
    {
        self.m_onText(*text);
        return KIVCS2STATUS_OK;
    }
    catch (...)
    {
        self.m_thrown = std::current_exception(); // no exception crosses the library
        return KIVCS2STATUS_ERR;
    }
}

void CaptionDecoder::done(KIVCS2Status status)
{
    if (m_thrown)
        std::rethrow_exception(m_thrown);
    check(status, "decoding captions");
}

void CaptionDecoder::feed(const KIVCS2CaptionPacket &packet)
{
    m_next = packet.m_frame + 1;
    done(kivCS2CaptionDecoder_feed(&m_decoder, &packet));
}

void CaptionDecoder::finish()
{
    done(kivCS2CaptionDecoder_finish(&m_decoder, m_next));
}

KIVCS2CaptionDecoderReport CaptionDecoder::report() const
{
    KIVCS2CaptionDecoderReport report{};
    check(kivCS2CaptionDecoder_getReport(&m_decoder, &report), "caption decoder");
    return report;
}

} // namespace tool
