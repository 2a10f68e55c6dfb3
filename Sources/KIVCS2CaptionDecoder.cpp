// Caption packets to text.
#include "KIVCS2CaptionDecoder.h"

#include "Private/Captions/Counting.h"
#include "Private/Captions/DTVCC.h"
#include "Private/Captions/Line21.h"
#include "Private/Captions/Packet.h"
#include "Private/Captions/PairWords.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <new>

namespace
{
struct Decoder
{
    Decoder(const KIVCS2CaptionServices &services, bool screens, const KIVCS2CaptionCountingInfo &info,
            KIVCS2CaptionTextFunc onText, void *context)
        : sink{services, screens, onText, context}, dtvcc{info, sink}
    {
    }

    kiv::cc::TextSink sink;
    std::array<kiv::cc::Line21, 2> fields{{{0, sink}, {1, sink}}};
    kiv::cc::DTVCC dtvcc;
};

Decoder *decoderOf(const KIVCS2CaptionDecoder *decoder)
{
    return static_cast<Decoder *>(decoder->m_state);
}

KIVCS2Status feedTriplet(Decoder &decoder, uint32_t frame, const uint8_t *triplet)
{
    if ((triplet[0] & kiv::cc::kValid) == 0)
        return KIVCS2STATUS_OK;
    const uint8_t type = triplet[0] & kiv::cc::kTypeMask;
    if (type == kiv::cc::kField1 || type == kiv::cc::kField2)
        decoder.fields[type].feed(frame, triplet[1], triplet[2]);
    else
        KIV_TRY(decoder.dtvcc.feed(frame, type == kiv::cc::kDTVCCStart, triplet[1], triplet[2]));
    return decoder.sink.takeStatus();
}
} // namespace

KIVCS2Status kivCS2CaptionDecoder_init(KIVCS2CaptionDecoder *decoder, const KIVCS2CaptionServices *services,
                                       const KIVCS2CaptionDecoderOptions *options,
                                       KIVCS2CaptionTextFunc onText, void *context)
{
    KIV_CHECK(decoder);
    KIV_CHECK(onText);

    decoder->m_state = nullptr;
    const bool screens = options != nullptr && options->m_screens;
    const KIVCS2CaptionCounting counting = options != nullptr && options->m_counting != 0
                                               ? options->m_counting
                                               : uint32_t{KIVCS2CaptionCounting_29_97DF};
    const KIVCS2CaptionCountingInfo *const info = kiv::cc::countingInfo(counting);
    if (info == nullptr)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    const KIVCS2CaptionServices all{UINT64_MAX, UINT32_MAX, 0};
    decoder->m_state =
        new (std::nothrow) Decoder{services != nullptr ? *services : all, screens, *info, onText, context};
    return decoder->m_state != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2CaptionDecoder_feed(KIVCS2CaptionDecoder *decoder, const KIVCS2CaptionPacket *packet)
{
    KIV_CHECK(decoder);
    KIV_CHECK(packet);
    KIV_CHECK(decoder->m_state);

    Decoder &state = *decoderOf(decoder);
    state.dtvcc.tick(packet->m_frame);
    KIV_TRY(state.sink.takeStatus());
    const size_t count = std::min<size_t>(packet->m_tripletCount, KIVCS2_CAPTION_TRIPLETS_MAX);
    for (size_t index = 0; index < count; ++index)
        KIV_TRY(feedTriplet(state, packet->m_frame, packet->m_triplets[index]));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionDecoder_finish(KIVCS2CaptionDecoder *decoder, uint32_t frame)
{
    KIV_CHECK(decoder);
    KIV_CHECK(decoder->m_state);

    Decoder &state = *decoderOf(decoder);
    for (kiv::cc::Line21 &field : state.fields)
        field.finish(frame);
    state.dtvcc.finish(frame);
    return state.sink.takeStatus();
}

KIVCS2Status kivCS2CaptionDecoder_getReport(const KIVCS2CaptionDecoder *decoder,
                                            KIVCS2CaptionDecoderReport *report)
{
    KIV_CHECK(decoder);
    KIV_CHECK(report);
    KIV_CHECK(decoder->m_state);

    *report = decoderOf(decoder)->sink.report;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionDecoder_free(KIVCS2CaptionDecoder *decoder)
{
    KIV_CHECK(decoder);

    delete decoderOf(decoder);
    decoder->m_state = nullptr;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionDecoder_describePair(uint8_t first, uint8_t second, char *buffer)
{
    KIV_CHECK(buffer);

    constexpr uint8_t kData = 0x7F; // without parity
    buffer[0] = '\0';
    if (kiv::cc::isEmptyPair(first, second))
        return KIVCS2STATUS_DATA_ERR;
    kiv::cc::describePair(first & kData, second & kData,
                          kiv::cc::PairText{buffer, KIVCS2_CAPTION_DESCRIPTION_SIZE});
    return KIVCS2STATUS_OK;
}
