// A fuzz input as a caption file that is read.
#ifndef KIV_FUZZ_CAPTION_INPUT_H
#define KIV_FUZZ_CAPTION_INPUT_H

#include "Require.h"

#include "KIVCS2ClosedCaptions.h"
#include "KIVCS2MemoryStream.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kiv::fuzz
{
struct CaptionInput
{
    std::vector<uint8_t> bytes;
    KIVCS2MemoryStream memory{};
    KIVCS2ClosedCaptionsMCCStream mcc{};

    CaptionInput(const uint8_t *data, size_t size) : bytes{data, data + size}
    {
        static const KIVCS2Status rate = kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97); // drops numbers
        require(rate == KIVCS2STATUS_OK);
        bytes.reserve(1); // a view needs a block, even of no bytes
        require(kivCS2MemoryStream_initWithBytes(&memory, bytes.data(), size) == KIVCS2STATUS_OK);
        require(kivCS2ClosedCaptionsMCCStream_init(&mcc, &memory.m_stream, true, true) == KIVCS2STATUS_OK);
    }
    CaptionInput(const CaptionInput &) = delete;
    CaptionInput &operator=(const CaptionInput &) = delete;
    ~CaptionInput()
    {
        require(kivCS2ClosedCaptionsMCCStream_free(&mcc) == KIVCS2STATUS_OK && memory.m_buffer == nullptr);
    }
};
} // namespace kiv::fuzz

#endif
