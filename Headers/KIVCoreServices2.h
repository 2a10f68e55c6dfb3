/**
 * @file
 * The umbrella: every module of the library. A host may include single modules instead.
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
