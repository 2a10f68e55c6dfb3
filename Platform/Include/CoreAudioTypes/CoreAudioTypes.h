/**
 * @file
 * How a stream of audio is stored.
 */
#ifndef KIV_CORE_AUDIO_TYPES_H
#define KIV_CORE_AUDIO_TYPES_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

/** A four-character code. */
typedef UInt32 AudioFormatID;
enum
{
    kAudioFormatLinearPCM = 0x6C70636D, /**< 'lpcm' */
    kAudioFormatMPEG4AAC = 0x61616320   /**< 'aac ' */
};

typedef UInt32 AudioFormatFlags;
enum
{
    kAudioFormatFlagIsFloat = 0x01,          /**< else integers */
    kAudioFormatFlagIsBigEndian = 0x02,      /**< else little endian */
    kAudioFormatFlagIsSignedInteger = 0x04,  /**< else unsigned; for integers only */
    kAudioFormatFlagIsPacked = 0x08,         /**< the bits fill the bytes of a sample */
    kAudioFormatFlagIsAlignedHigh = 0x10,    /**< if not packed: the upper bits count, else the lower */
    kAudioFormatFlagIsNonInterleaved = 0x20, /**< a plane for each channel; sizes are those of one plane */
    kAudioFormatFlagIsNonMixable = 0x40,     /**< for hardware; ignored here */

    kLinearPCMFormatFlagsSampleFractionShift = 7,
    kLinearPCMFormatFlagsSampleFractionMask = 0x3F << 7 /**< fraction bits of fixed-point samples */
};

/** In linear PCM a packet is one frame: a sample of every channel. */
typedef struct AudioStreamBasicDescription
{
    Float64 mSampleRate; /**< frames a second */
    AudioFormatID mFormatID;
    AudioFormatFlags mFormatFlags;
    UInt32 mBytesPerPacket;
    UInt32 mFramesPerPacket;
    UInt32 mBytesPerFrame; /**< bytes of all channels, or of one channel if they are not interleaved */
    UInt32 mChannelsPerFrame;
    UInt32 mBitsPerChannel; /**< significant bits of a sample */
    UInt32 mReserved;       /**< 0 */
} AudioStreamBasicDescription;

enum
{
    kAudio_ParamError = -50, /**< an argument is missing */
    kAudio_MemFullError = -108
};

CF_EXTERN_C_END

#endif
