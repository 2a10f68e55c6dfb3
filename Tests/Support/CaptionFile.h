// A caption file in memory, opened for reading or writing, and timecodes for it.
#ifndef KIV_TEST_CAPTION_FILE_H
#define KIV_TEST_CAPTION_FILE_H

#include "ArgumentCheck.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>
#include <KIVCoreServices2/KIVCS2Timecode.h>

#include <string>
#include <string_view>
#include <vector>

// A row of a table of argument checks, which may use the local names of its place.
#define KIV_REFUSED(op, text, ...)                                                                           \
    kiv::test::ArgumentCheck                                                                                 \
    {                                                                                                        \
#op, text, KIVCS2STATUS_PARAM_ERR, [&] { return op(__VA_ARGS__); }                                   \
    }

namespace kiv::test
{
inline std::vector<uint8_t> bytesOf(const KIVCS2ClosedCaption &caption)
{
    return {caption.m_captionData, caption.m_captionData + caption.m_captionSize};
}

inline KIVCS2Timecode frame(uint32_t count)
{
    return count; // the low half of a record is its frame count
}

struct CaptionFile
{
    KIVCS2ClosedCaptionsMCCStream mcc{};
    KIVCS2MemoryStream memory{};
    std::string text;

    // Reads `content`.
    explicit CaptionFile(std::string_view content) : text{content}
    {
        kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size());
        kivCS2ClosedCaptionsMCCStream_init(&mcc, &memory.m_stream, true, false);
    }
    // Writes into a stream that grows.
    CaptionFile()
    {
        kivCS2MemoryStream_init(&memory, 256, 256);
        kivCS2ClosedCaptionsMCCStream_init(&mcc, &memory.m_stream, false, false);
    }
    CaptionFile(const CaptionFile &) = delete;
    CaptionFile &operator=(const CaptionFile &) = delete;
    ~CaptionFile()
    {
        kivCS2ClosedCaptionsMCCStream_free(&mcc);
        kivCS2MemoryStream_free(&memory.m_stream);
    }
    [[nodiscard]] std::string written() const
    {
        return {reinterpret_cast<const char *>(memory.m_buffer), memory.m_size};
    }
};
} // namespace kiv::test

#endif
