// The captions of a file as a viewer sees them.
#ifndef KIV_TOOL_CAPTION_DECODING_H
#define KIV_TOOL_CAPTION_DECODING_H

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>

#include <exception>
#include <functional>

namespace tool
{

/// A library decoder that frees itself.
class CaptionDecoder
{
public:
    /// May throw to stop the decoding.
    using OnText = std::function<void(const KIVCS2CaptionText &)>;

    CaptionDecoder(const KIVCS2CaptionServices &services, KIVCS2CaptionCounting counting, OnText onText);
    ~CaptionDecoder();
    CaptionDecoder(const CaptionDecoder &) = delete;
    CaptionDecoder &operator=(const CaptionDecoder &) = delete;

    void feed(const KIVCS2CaptionPacket &packet);

    /// Ends the captions that are still on the screen after the last packet.
    void finish();

    [[nodiscard]] KIVCS2CaptionDecoderReport report() const;

private:
    static KIVCS2Status take(const KIVCS2CaptionText *text, void *context) noexcept;
    void done(KIVCS2Status status);

    OnText m_onText;
    std::exception_ptr m_thrown;
    KIVCS2CaptionDecoder m_decoder{};
    uint32_t m_next = 0; ///< the frame after the last packet
};

} // namespace tool

#endif
