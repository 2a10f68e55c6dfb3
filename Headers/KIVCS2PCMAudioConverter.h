/**
 * @file
 * PCM conversion: width and byte order of integer samples, and interleaved channels split into planes.
 *
 * `init` takes the description of the input and derives that of the output. A converter that deinterleaves
 * converts with kivCS2PCMAudioConverter_convert(), any other with
 * kivCS2PCMAudioConverter_convertInterleaved(). Narrowing drops the low bits, widening appends zero bits;
 * there is no dithering or rounding.
 *
 * The sizes for splitting count 2 bytes for a sample of 16 bits and 3 bytes for any other, even if it has 1
 * or 4. So splitting a packed 32-bit input needs an output width. `init` takes two kinds of input that
 * `convert` can never split, since their planes would be too short: packed samples of 8 bits, and samples
 * that do not fill their bytes (not packed) of any width but 16 bits, to an output of 16 bits.
 *
 * The caller owns the record: `init` fills it, `free` releases the platform's converter and clears it, and it
 * may then be initialised again. A record is used by one thread at a time; records are independent.
 *
 * @code
 * const AudioStreamBasicDescription input = {
 *     48000, kAudioFormatLinearPCM, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked,
 *     4, 1, 4, 2, 16, 0}; // 4 bytes for each frame of 2 channels, 16 bits
 * const int16_t stereo[4] = {1, -1, 2, -2}; // two frames of left and right
 * int16_t planes[4];
 * void *starts[2];
 * uint32_t distance;
 * KIVCS2PCMAudioConverter converter;
 * if (KIVCS2_FAILED(kivCS2PCMAudioConverter_init(&converter, &input, true, false, 0)))
 *     return 1;
 * kivCS2PCMAudioConverter_convert(&converter, stereo, sizeof stereo, planes, 2, starts, &distance);
 * printf("%d %d\n", planes[2], planes[3]); // prints: -1 -2
 * kivCS2PCMAudioConverter_free(&converter);
 * @endcode
 */
#ifndef KIVCS2_PCM_AUDIO_CONVERTER_H
#define KIVCS2_PCM_AUDIO_CONVERTER_H

#include "KIVCS2Base.h"

#include <AudioToolbox/AudioToolbox.h>

KIVCS2_BEGIN_DECLS

/** A converter. */
typedef struct KIVCS2PCMAudioConverter
{
    AudioConverterRef m_converter;              /**< owned; null while not initialised */
    AudioStreamBasicDescription m_inputFormat;  /**< as given */
    AudioStreamBasicDescription m_outputFormat; /**< derived from the input and the options */
    uint8_t m_deinterleave;                     /**< 1 if the output has one plane for each channel */
} KIVCS2PCMAudioConverter;

/**
 * Makes a converter.
 * @param[out] converter            zeroed first, and stays zeroed on failure
 * @param[in]  inputFormat          integer linear PCM, not kept
 * @param[in]  deinterleave         split the channels into planes; the input is then interleaved
 * @param[in]  swapByteOrder        the output has the opposite byte order of the input
 * @param[in]  outputBitsPerSample  16, 24, or 0 for the input's width
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, the width is not 16, 24 or 0, an input of planes is to
 *                                 be split, the description is not consistent, or there is no memory
 * Release with kivCS2PCMAudioConverter_free(). Thread safety: one thread at a time for each record.
 */
KIVCS2_API KIVCS2Status kivCS2PCMAudioConverter_init(KIVCS2PCMAudioConverter *converter,
                                                     const AudioStreamBasicDescription *inputFormat,
                                                     bool deinterleave, bool swapByteOrder,
                                                     uint32_t outputBitsPerSample);

/**
 * Releases the platform's converter and zeroes the record; a record without a converter is unchanged.
 * @retval KIVCS2STATUS_OK         otherwise
 * @retval KIVCS2STATUS_PARAM_ERR  `converter` is null
 * Thread safety: one thread at a time for each record.
 */
KIVCS2_API KIVCS2Status kivCS2PCMAudioConverter_free(KIVCS2PCMAudioConverter *converter);

/**
 * Stores the bytes of output that kivCS2PCMAudioConverter_convert() lays out for an input. For
 * kivCS2PCMAudioConverter_convertInterleaved() this may be too few or too many: 6,400 bytes of packed 32-bit
 * samples to 16 bits give 4,266 here and take 3,200 there; of 24 bits in 4 bytes they give 2,132.
 * @param[in]  converter    initialised
 * @param[in]  inputLength  bytes
 * @param[out] outBytes     bytes of all channels together; modulo 2^32
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, or the record's descriptions divide by zero
 * Thread safety: one thread at a time for each record.
 */
KIVCS2_API KIVCS2Status kivCS2PCMAudioConverter_getOutputBytesForInputLength(
    const KIVCS2PCMAudioConverter *converter, uint32_t inputLength, uint32_t *outBytes);

/**
 * Stores the number of whole samples of each channel in an interleaved input.
 * @param[in]  converter       initialised
 * @param[in]  inputLength     bytes
 * @param[out] outSampleCount  samples of each channel
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, or the record's description divides by zero
 * Thread safety: one thread at a time for each record.
 */
KIVCS2_API KIVCS2Status kivCS2PCMAudioConverter_getSampleCountPerChannelForInputLength(
    const KIVCS2PCMAudioConverter *converter, uint32_t inputLength, uint32_t *outSampleCount);

/**
 * Splits interleaved channels into planes, one for each channel and one after the other in `outputData`, with
 * the width and byte order of the output. With a converter that does not deinterleave, only one position is
 * stored and nothing is converted: see kivCS2PCMAudioConverter_convertInterleaved().
 * @param[in,out] converter            initialised
 * @param[in]     inputData            `inputLength` bytes of interleaved samples
 * @param[in]     inputLength          bytes, a whole number of frames
 * @param[out]    outputData           kivCS2PCMAudioConverter_getOutputBytesForInputLength() bytes, not
 *                                     overlapping the input
 * @param[in]     numberOfPositions    the input's channels; 1 for a converter that does not deinterleave
 * @param[out]    positions            the start of each plane
 * @param[out]    outBytesPerPosition  from one plane to the next, in bytes; a plane may hold fewer
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, the number of positions is wrong, the input is not a
 *                                 whole number of frames, or the planes are too short for its width;
 *                                 `positions`, `outBytesPerPosition` and `outputData` are untouched
 * Thread safety: one thread at a time for each record.
 */
KIVCS2_API KIVCS2Status kivCS2PCMAudioConverter_convert(KIVCS2PCMAudioConverter *converter,
                                                        const void *inputData, uint32_t inputLength,
                                                        void *outputData, uint32_t numberOfPositions,
                                                        void **positions, uint32_t *outBytesPerPosition);

/**
 * Converts width and byte order and leaves the channels interleaved.
 * @param[in,out] converter     initialised
 * @param[in]     inputData     `inputLength` bytes of interleaved samples
 * @param[in]     inputLength   bytes, a whole number of frames
 * @param[out]    outputData    must not overlap the input
 * @param[in,out] outputLength  in: room in bytes, at least the number of frames times
 *                              `m_outputFormat.mBytesPerFrame`; out: the bytes written
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null, the converter deinterleaves or was never made, its input
 *                                 has several planes, the input is not a whole number of frames, or the
 *                                 output is too short; nothing is written
 * Thread safety: one thread at a time for each record.
 */
KIVCS2_API KIVCS2Status kivCS2PCMAudioConverter_convertInterleaved(KIVCS2PCMAudioConverter *converter,
                                                                   const void *inputData,
                                                                   uint32_t inputLength, void *outputData,
                                                                   uint32_t *outputLength);

KIVCS2_END_DECLS

#endif
