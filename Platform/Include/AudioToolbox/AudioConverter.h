/**
 * @file
 * Conversion of linear PCM: integers of 1 to 32 bits in samples of 1 to 4 bytes, packed or not, signed
 * or not, in either byte order. The sample rate stays. An output with fewer channels than the input takes
 * the first channels of each frame.
 */
#ifndef KIV_AUDIO_CONVERTER_H
#define KIV_AUDIO_CONVERTER_H

#include <CoreAudioTypes/CoreAudioTypes.h>

CF_EXTERN_C_BEGIN

typedef struct OpaqueAudioConverter *AudioConverterRef;

/** Errors of these calls, besides kAudio_ParamError and kAudio_MemFullError. */
enum
{
    kAudioConverterErr_FormatNotSupported = 0x666D743F, /**< 'fmt?' */
    kAudioConverterErr_InvalidInputSize = 0x696E737A,   /**< 'insz' */
    kAudioConverterErr_InvalidOutputSize = 0x6F74737A   /**< 'otsz' */
};

/**
 * Makes a converter, which AudioConverterDispose() releases.
 * @return kAudioConverterErr_FormatNotSupported for other encodings, floating and fixed point, for
 *         contradictory descriptions (more bits than the bytes of a sample hold; bits that are called packed
 *         but do not fill a sample; a frame of another size than its channels' samples; a packet that is not
 *         one frame), for two sample rates and for more channels than the input has; kAudio_MemFullError;
 *         kAudio_ParamError for a missing argument. `outAudioConverter` is then untouched
 */
CF_EXPORT OSStatus AudioConverterNew(const AudioStreamBasicDescription *inSourceFormat,
                                     const AudioStreamBasicDescription *inDestinationFormat,
                                     AudioConverterRef *outAudioConverter);

/** Releases a converter. kAudio_ParamError for NULL. */
CF_EXPORT OSStatus AudioConverterDispose(AudioConverterRef inAudioConverter);

/**
 * Converts whole frames. Narrowing drops the low bits, widening appends zero bits. The bytes of a frame after
 * the samples taken are not read: to take one channel of N, `inInputData` may be moved by up to N - 1
 * samples, so that the last frame reaches past the memory. The two buffers must not overlap.
 * @param[in]     inInputDataSize   bytes, a whole number of frames
 * @param[in,out] ioOutputDataSize  room in bytes; then the bytes written
 * @return kAudioConverterErr_InvalidInputSize, kAudioConverterErr_InvalidOutputSize if there is too
 *         little room, kAudioConverterErr_FormatNotSupported for more than one plane,
 *         kAudio_ParamError: nothing is written
 * Any number of threads may use one converter.
 */
CF_EXPORT OSStatus AudioConverterConvertBuffer(AudioConverterRef inAudioConverter, UInt32 inInputDataSize,
                                               const void *inInputData, UInt32 *ioOutputDataSize,
                                               void *outOutputData);

CF_EXTERN_C_END

#endif
