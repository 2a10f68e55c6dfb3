/**
 * @file
 * Audio formats: an encoding, a sample rate and a sample layout packed into one 32-bit code, and the weave:
 * how audio samples are spread over video frames.
 *
 * A host stores the code in 32 bits and unpacks it with kivCS2AudioFormat_getDescription(). The host decides
 * what the values 0 and 1 of data type, data stream, endian and alignment mean. No state is kept between
 * calls, and every operation may be called from any thread. An operation that fails leaves its outputs
 * untouched.
 *
 * @code
 * uint32_t weave[5], size = 5, most;
 * if (KIVCS2_FAILED(kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames(KIVCS2FrameRate_29_97, 48000, &size,
 *                                                                      weave, &most)))
 *     return 1;
 * printf("%u frames, at most %u samples, then %u\n", size, most,
 *        weave[4]); // prints: 5 frames, at most 1602 samples, then 1601
 * @endcode
 */
#ifndef KIVCS2_AUDIO_FORMAT_H
#define KIVCS2_AUDIO_FORMAT_H

#include "KIVCS2Base.h"
#include "KIVCS2VideoFormat.h"

KIVCS2_BEGIN_DECLS

/** How samples are encoded. */
typedef uint32_t KIVCS2AFEncoding;
enum
{
    KIVCS2AFEncoding_LPCM = 0, /**< 'lpcm', linear PCM */
    KIVCS2AFEncoding_AAC = 1,  /**< 'aac ', MPEG-4 AAC */
    KIVCS2AFEncoding_MAX = 2   /**< the count; not an encoding */
};

/** Samples per second. */
typedef uint32_t KIVCS2AFSampleRate;
enum
{
    KIVCS2AFSampleRate_44100 = 0,
    KIVCS2AFSampleRate_48000 = 1,
    KIVCS2AFSampleRate_MAX = 2 /**< the count; not a rate */
};

/** Limits of the other fields: a value must be below its limit, a count may equal it. */
enum
{
    KIVCS2AFDataType_MAX = 2,
    KIVCS2AFDataStream_MAX = 2,
    KIVCS2AFChannels_MAX = 16, /**< the largest count */
    KIVCS2AFEndian_MAX = 2,
    KIVCS2AFAlignment_MAX = 2,
    KIVCS2AFBytesPerSample_MAX = 8,    /**< the largest count; builds with assertions stop at it */
    KIVCS2AFBytesUsedPerSample_MAX = 8 /**< the largest count; builds with assertions stop at it */
};

/**
 * A format code. From the top: always 0 (4 bits), encoding (4), sample rate (4), data type (4), data stream
 * (4), channels - 1 (4), endian (1), alignment (1), bytes per sample - 1 (3), bytes used per sample - 1 (3).
 */
typedef uint32_t KIVCS2AudioFormat;

/** An unpacked format code. */
typedef struct KIVCS2AudioFormatDescription
{
    uint32_t m_encoding;           /**< four-character code: 'lpcm' or 'aac ' */
    uint32_t m_sampleRate;         /**< hertz */
    uint32_t m_dataType;           /**< 0 or 1, up to 15 in another code; the host gives it its meaning */
    uint32_t m_dataStream;         /**< as `m_dataType` */
    uint32_t m_endian;             /**< 0 or 1; the host gives it its meaning */
    uint32_t m_alignment;          /**< as `m_endian` */
    uint32_t m_channels;           /**< 1 to 16 */
    uint32_t m_bytesPerSample;     /**< 1 to 8 */
    uint32_t m_bytesUsedPerSample; /**< 1 to 8; not checked against m_bytesPerSample */
} KIVCS2AudioFormatDescription;

/**
 * Packs a format code.
 * @param[in]  encoding            KIVCS2AFEncoding, 0 or 1
 * @param[in]  sampleRate          KIVCS2AFSampleRate, 0 or 1
 * @param[in]  dataType            0 or 1; the host gives it its meaning
 * @param[in]  dataStream          0 or 1, in the same way
 * @param[in]  endian              0 or 1, in the same way
 * @param[in]  alignment           0 or 1, in the same way
 * @param[in]  channels            1 to 16
 * @param[in]  bytesPerSample      1 to 8; 8 stops a build with assertions
 * @param[in]  bytesUsedPerSample  1 to 8; 8 stops a build with assertions
 * @param[out] format              the code
 * @retval KIVCS2STATUS_PARAM_ERR  `format` is null or a value is out of range; `format` is untouched
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2AudioFormat_getFormat(uint32_t encoding, uint32_t sampleRate, uint32_t dataType,
                                                    uint32_t dataStream, uint32_t endian, uint32_t alignment,
                                                    uint32_t channels, uint32_t bytesPerSample,
                                                    uint32_t bytesUsedPerSample, KIVCS2AudioFormat *format);

/**
 * Unpacks a format code made by kivCS2AudioFormat_getFormat(). Any other code is unpacked as well, unchecked;
 * an encoding or sample rate without a meaning gives 0.
 * @retval KIVCS2STATUS_PARAM_ERR  `description` is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2AudioFormat_getDescription(KIVCS2AudioFormat format,
                                                         KIVCS2AudioFormatDescription *description);

/**
 * Stores how many samples of each channel belong to each frame of a cycle, after which the weave repeats:
 * 1602, 1602, 1602, 1601, 1601 at 48000 Hz and 29.97 frames per second. The larger counts come first. The
 * cycle is the smallest number of frames whose samples are a whole number to within 0.001; the sum of its
 * counts may be off by one.
 * @param[in]     frameRate           KIVCS2FrameRate, 0 to 7
 * @param[in]     sampleRate          hertz
 * @param[in,out] weaveSize           in: entries in `weave`; out: the frames of the cycle
 * @param[out]    weave               one count for each frame, or null
 * @param[out]    maxSamplesPerFrame  the larger count, or null
 * @retval KIVCS2STATUS_PARAM_ERR        `weaveSize` is null
 * @retval KIVCS2STATUS_FRAME_RATE_ERR   the frame rate is 8 or more
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  `weave` is too short; the outputs are untouched. Pass a null `weave`
 *                                       to get the size
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames(KIVCS2FrameRate frameRate,
                                                                            uint32_t sampleRate,
                                                                            uint32_t *weaveSize,
                                                                            uint32_t *weave,
                                                                            uint32_t *maxSamplesPerFrame);

KIVCS2_END_DECLS

#endif
