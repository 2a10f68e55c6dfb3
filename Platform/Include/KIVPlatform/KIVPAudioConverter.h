/**
 * @file
 * Splitting interleaved audio in one pass: what a call of AudioConverterConvertBuffer() for each channel
 * does, without reading the input once a channel.
 */
#ifndef KIVP_AUDIO_CONVERTER_H
#define KIVP_AUDIO_CONVERTER_H

#include <AudioToolbox/AudioConverter.h>

CF_EXTERN_C_BEGIN

/**
 * Stores every input channel c in `planeSize` bytes from `outPlanes` + c * `planeSize` on, as
 * AudioConverterConvertBuffer() stores the first channel of the input moved by c samples.
 * @param[in] inInputDataSize  bytes, a whole number of frames
 * @param[in] planeSize        room of a plane in bytes; what the channel does not fill stays as it is
 * @return as AudioConverterConvertBuffer(), also kAudioConverterErr_FormatNotSupported for a converter whose output
 *         has more than one channel: nothing is written
 * Any number of threads may use one converter.
 */
CF_EXPORT OSStatus KIVPAudioConverterSplit(AudioConverterRef converter, UInt32 inInputDataSize,
                                           const void *inInputData, UInt32 planeSize, void *outPlanes);

CF_EXTERN_C_END

#endif
