/**
 * @file
 * Codecs: the names and four-character codes of the video codecs that are recorded and played, and the
 * largest size of one compressed frame, for sizing buffers.
 *
 * Codes are packed with the first character in the top byte: 'apch' is 0x61706368. Everything is constant:
 * returned names are static and must not be released, and every operation may be called from any thread. An
 * operation that fails leaves its output untouched.
 *
 * @code
 * KIVCS2VideoFormatDescription format = {.m_nativeHeight = 1080};
 * KIVCS2CodecDescription codec;
 * if (KIVCS2_FAILED(kivCS2Codec_getDescription("ProRes 422 (HQ)", &format, &codec)))
 *     return 1;
 * printf("%s: %08X\n", codec.m_name, codec.m_code); // prints: ProRes 422 (HQ): 61706368
 * @endcode
 */
#ifndef KIVCS2_CODEC_H
#define KIVCS2_CODEC_H

#include "KIVCS2VideoFormat.h"

KIVCS2_BEGIN_DECLS

/** A codec and the size of its frames in one video format. */
typedef struct KIVCS2CodecDescription
{
    const char *m_name;    /**< static, for example "ProRes 422 (HQ)" */
    uint32_t m_code;       /**< four characters */
    uint32_t m_sampleSize; /**< bytes of the largest compressed frame; 0 if not known */
} KIVCS2CodecDescription;

/**
 * Stores the code of the codec with exactly this name, byte for byte.
 * @retval KIVCS2STATUS_PARAM_ERR  `name` or `code` is null, or no codec has this name (without an assertion)
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Codec_getFourCCFromString(const char *name, uint32_t *code);

/**
 * Copies the name of the codec with this code as strncpy() does: at most `length` bytes, without a terminator
 * if the name fills them, and padded with zeros if it is shorter. The longest name has 19 characters.
 * @retval KIVCS2STATUS_PARAM_ERR  `text` is null, or no codec has this code (without an assertion)
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Codec_getStringFromFourCC(uint32_t code, char *text, uint32_t length);

/**
 * Describes the codec with exactly this name, with the sample size at the format's native height.
 *
 * Uncompressed and ProRes frames have a size at 480, 486, 576, 720 and 1080 lines, and 0 at any other height;
 * frames of the other codecs have the same size at every height but 0. The sizes are estimates for codecs,
 * not for streams: they do not depend on the width or the frame rate.
 * @retval KIVCS2STATUS_PARAM_ERR  an argument is null, or no codec has this name (without an assertion)
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Codec_getDescription(const char *name,
                                                   const KIVCS2VideoFormatDescription *format,
                                                   KIVCS2CodecDescription *description);

KIVCS2_END_DECLS

#endif
