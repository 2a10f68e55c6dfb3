/**
 * @file
 * The umbrella: every module of the library. A host may include single modules instead.
 *
 * Each header begins with creation, use, threads and release, and with a snippet that runs:
 * - start-up, statuses, CRC-32, memory blocks: KIVCS2Base.h
 * - timecode: KIVCS2Timecode.h, as a C++ class KIVProjectTimecode.h
 * - caption files: KIVCS2CaptionFile.h, at another rate KIVCS2CaptionRetime.h
 * - caption packets and text: KIVCS2CaptionPacket.h, KIVCS2CaptionDecoder.h, KIVCS2ClosedCaptions.h
 * - formats: KIVCS2VideoFormat.h, KIVCS2AudioFormat.h, KIVCS2Codec.h
 * - audio and pictures: KIVCS2PCMAudioConverter.h, KIVCS2PixelBuffer.h, KIVCS2Interpolate.h
 * - streams: KIVCS2Stream.h, KIVCS2MemoryStream.h, KIVCS2FileStream.h, KIVCS2PipeStream.h,
 *   KIVCS2NamedPipeStream.h
 * - containers: KIVCS2LinkList.h, KIVCS2LinkTree.h, KIVCS2RingBuffer.h, KIVCS2Dictionary.h, KIVCS2JSON.h
 * - memory and text: KIVCS2MemoryPool.h, KIVCS2MultiBuffer.h, KIVCS2SharedMemory.h, KIVCS2String.h
 * - threads and locks: KIVCS2PThread.h, KIVCS2Mutex.h, KIVCS2Semaphore.h
 * - timers: KIVCS2Timer.h, KIVCS2PerformanceTimer.h
 * - processes: KIVCS2Task.h, KIVCS2TaskServer.h
 * - network: KIVCS2Socket.h, KIVCS2Bonjour.h
 * - the machine: KIVCS2SystemInfo.h, KIVCS2SMC.h
 */
#ifndef KIVCORESERVICES2_H
#define KIVCORESERVICES2_H

#include "KIVCS2Base.h"
#include "KIVCS2FileStream.h"
#include "KIVCS2MemoryStream.h"
#include "KIVCS2NamedPipeStream.h"
#include "KIVCS2PipeStream.h"
#include "KIVCS2Stream.h"
#include "KIVCS2String.h"

#include "KIVCS2LinkList.h"
#include "KIVCS2LinkTree.h"
#include "KIVCS2RingBuffer.h"

#include "KIVCS2Mutex.h"
#include "KIVCS2PThread.h"
#include "KIVCS2Semaphore.h"
#include "KIVCS2SharedMemory.h"

#include "KIVCS2MemoryPool.h"
#include "KIVCS2MultiBuffer.h"

#include "KIVCS2PerformanceTimer.h"
#include "KIVCS2Timer.h"

#include "KIVCS2Bonjour.h"
#include "KIVCS2Socket.h"

#include "KIVCS2Dictionary.h"
#include "KIVCS2JSON.h"

#include "KIVCS2SMC.h"
#include "KIVCS2SystemInfo.h"

#include "KIVCS2Task.h"
#include "KIVCS2TaskServer.h"

#include "KIVCS2Codec.h"
#include "KIVCS2PixelBuffer.h"
#include "KIVCS2VideoFormat.h"

#include "KIVCS2AudioFormat.h"
#include "KIVCS2Interpolate.h"
#include "KIVCS2PCMAudioConverter.h"

#include "KIVCS2Timecode.h"
#include "KIVProjectTimecode.h"

#include "KIVCS2CaptionDecoder.h"
#include "KIVCS2CaptionFile.h"
#include "KIVCS2CaptionPacket.h"
#include "KIVCS2CaptionRetime.h"
#include "KIVCS2ClosedCaptions.h"

#endif
