/**
 * @file
 * Splitting interleaved audio in one pass: the result of one AudioConverterConvertBuffer() call for each
 * channel, without reading the input again for every channel.
 */
#ifndef KIVP_AUDIO_CONVERTER_H
#define KIVP_AUDIO_CONVERTER_H

#include <AudioToolbox/AudioConverter.h>

CF_EXTERN_C_BEGIN

/**
 * Stores every input channel c in `planeSize` bytes at `outPlanes` + c * `planeSize`, as
 * AudioConverterConvertBuffer() stores the first channel of the input moved by c samples.
 * @param[in] inInputDataSize  bytes, a whole number of frames
 * @param[in] planeSize        room of a plane in bytes; bytes that the channel does not fill stay as they are
 * @return as AudioConverterConvertBuffer(), also kAudioConverterErr_FormatNotSupported for a converter whose
 *         output has more than one channel: nothing is written
 * Any number of threads may use one converter.
 */
CF_EXPORT OSStatus KIVPAudioConverterSplit(AudioConverterRef converter, UInt32 inInputDataSize,
                                           const void *inInputData, UInt32 planeSize, void *outPlanes);

CF_EXTERN_C_END

#endif
