// Any triplets through the decoder. Input: options; then for each triplet the frames to it and its three
// bytes.
#include "Require.h"

#include "KIVCS2CaptionDecoder.h"

#include <cstring>

namespace
{
KIVCS2Status onText(const KIVCS2CaptionText *text, void *)
{
    require(std::strlen(text->m_text) == text->m_textSize && text->m_textSize > 0);
    for (uint32_t cell = 0; cell < text->m_cellCount; ++cell)
        require(text->m_cells[cell].m_row < text->m_rows && text->m_cells[cell].m_column < text->m_columns &&
                text->m_cells[cell].m_text[0] != '\0');
    return KIVCS2STATUS_OK;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    KIVCS2CaptionDecoderOptions options{};
    options.m_screens = (data[0] & 1) != 0;
    options.m_counting = data[0] >> 4 <= KIVCS2CaptionCounting_60 ? data[0] >> 4 : 0;
    KIVCS2CaptionDecoder decoder;
    require(kivCS2CaptionDecoder_init(&decoder, nullptr, &options, onText, nullptr) == KIVCS2STATUS_OK);
    KIVCS2CaptionPacket packet{};
    for (size_t at = 1; at + 4 <= size; at += 4)
    {
        packet.m_frame += data[at];
        packet.m_tripletCount = 1;
        std::memcpy(packet.m_triplets[0], data + at + 1, 3);
        require(kivCS2CaptionDecoder_feed(&decoder, &packet) == KIVCS2STATUS_OK);
        char text[KIVCS2_CAPTION_DESCRIPTION_SIZE];
        const KIVCS2Status status = kivCS2CaptionDecoder_describePair(data[at + 2], data[at + 3], text);
        require(std::strlen(text) < sizeof text && KIVCS2_FAILED(status) == (text[0] == '\0'));
    }
    require(kivCS2CaptionDecoder_finish(&decoder, packet.m_frame + 1) == KIVCS2STATUS_OK);
    require(kivCS2CaptionDecoder_free(&decoder) == KIVCS2STATUS_OK);
    return 0;
}
