/**
 * @file
 * Captions at another frame rate, or under another numbering: packets in, packets of the result out.
 *
 * A retimer takes the packets of one programme in the order of their frames. It puts each on the frame of
 * the result that is shown at the same moment (or has the same number), and delivers a packet for every
 * frame of the result, from the first to the last. The caller owns the record:
 *
 * @code
 * static KIVCS2Status onPacket(const KIVCS2CaptionPacket *packet, void *context)
 * {
 *     *(uint32_t *)context = packet->m_frame; // of the result
 *     return KIVCS2STATUS_OK;
 * }
 *
 * const KIVCS2CaptionRetimeOptions options = {.m_from = KIVCS2CaptionCounting_50,
 *                                             .m_to = KIVCS2CaptionCounting_25};
 * KIVCS2CaptionRetime retime;
 * KIVCS2CaptionPacket packet;
 * uint32_t last = 0;
 * if (KIVCS2_FAILED(kivCS2CaptionRetime_init(&retime, &options, onPacket, &last)) ||
 *     KIVCS2_FAILED(kivCS2CaptionPacket_build(&packet, KIVCS2CaptionCounting_50, 0, NULL, NULL, NULL, 0)))
 *     return 1;
 * for (packet.m_frame = 0; packet.m_frame < 100; ++packet.m_frame)
 *     kivCS2CaptionRetime_feed(&retime, &packet);
 * kivCS2CaptionRetime_finish(&retime, NULL); // delivers what still waits
 * printf("%u\n", last); // prints: 49
 * kivCS2CaptionRetime_free(&retime);
 * @endcode
 *
 * CEA-608 pairs wait in a queue for each field, CEA-708 bytes in a queue of their own. Each queue goes out
 * in order, as fast as the result's rate can carry it. Empty pairs, padding and sequence numbers are made
 * again. Every packet has the latest service list of the source; without a CDP the list is service 1
 * without a language. If the source's CDPs have a time code, each CDP of the result has the time code of
 * its frame. Docs/captions.md says what each rate carries.
 *
 * A retimer takes less than 16 KiB at init. Its queues grow if captions wait, up to 18 MiB. Because it
 * looks ahead, it delivers a frame only after packets two frames of the source later have come.
 *
 * A record belongs to one thread at a time; the callback must not call an operation of its record.
 */
#ifndef KIVCS2_CAPTION_RETIME_H
#define KIVCS2_CAPTION_RETIME_H

#include "KIVCS2CaptionPacket.h"

KIVCS2_BEGIN_DECLS

/** The choice of the result's frame for a frame of the source. */
typedef uint32_t KIVCS2CaptionRetimeMode;
enum
{
    /** The frame that is on the screen when the source's frame begins, both counted from frame 0. */
    KIVCS2CaptionRetimeMode_SameMoment = 0,
    /** The frame with the same number since midnight: the programme runs faster or slower. */
    KIVCS2CaptionRetimeMode_SameFrames = 1,
    /** Added to a mode: `m_last` is a frame, even if it is 0. */
    KIVCS2CaptionRetimeMode_HasLast = 0x100
};

/** Options of retiming. */
typedef struct KIVCS2CaptionRetimeOptions
{
    KIVCS2CaptionCounting m_from;   /**< of the source */
    KIVCS2CaptionCounting m_to;     /**< of the result */
    KIVCS2CaptionRetimeMode m_mode; /**< how frames of the result are chosen */
    uint32_t m_first;               /**< the first frame of the source to take */
    uint32_t m_last;                /**< the last frame to take; without _HasLast, 0 means no end */
    int32_t m_offset;               /**< added to each frame, in frames of the result */
    uint64_t m_reserved[4];         /**< 0 */
} KIVCS2CaptionRetimeOptions;

/** The queues. */
enum
{
    KIVCS2CaptionRetimeQueue_Field1 = 0,
    KIVCS2CaptionRetimeQueue_Field2 = 1,
    KIVCS2CaptionRetimeQueue_DTVCC = 2
};

/** Totals of a retimer. */
typedef struct KIVCS2CaptionRetimeReport
{
    uint64_t m_packetsIn;      /**< packets taken */
    uint64_t m_packetsLeftOut; /**< packets before `m_first` or after `m_last` of the options */
    uint64_t m_packetsRefused; /**< packets that feed refused */
    uint64_t m_packetsBefore;  /**< packets refused because they come before frame 0 of the result */
    uint64_t m_packetsOther;   /**< packets taken whose bytes are not a CDP: only their triplets are used */
    uint64_t m_packetsOut;     /**< packets delivered: frames of the result */
    uint64_t m_packetsBehind;  /**< packets after the end of the source, for data that still waited */
    uint64_t m_pairsIn[2];     /**< CEA-608 pairs of field 1 and 2 that are not empty */
    uint64_t m_pairsOut[2];    /**< equal to `m_pairsIn` after finish */
    uint64_t m_bytesIn;        /**< CEA-708 bytes */
    uint64_t m_bytesOut;       /**< equal to `m_bytesIn` after finish */
    uint64_t m_bytesLeftOut;   /**< CEA-708 bytes of packets that began on a frame not taken */
    uint64_t m_waitTime[3];    /**< longest wait in each KIVCS2CaptionRetimeQueue, in nanoseconds */
    uint32_t m_wait[3];        /**< longest wait in each, in frames of the result; 0: no wait */
    uint32_t m_firstFrame;     /**< first frame of the result */
    uint32_t m_lastFrame;      /**< last frame of the result */
    uint8_t m_reserved[28];    /**< reserved */
} KIVCS2CaptionRetimeReport;

/**
 * Receives a packet of the result: a CDP whose `m_frame` and `m_sequence` are one more than those of the
 * packet before. It is valid during the call. After KIVCS2STATUS_OK the call goes on; a failure ends it
 * and is its result, and the next call delivers the same packet again.
 */
typedef KIVCS2Status (*KIVCS2CaptionRetimeFunc)(const KIVCS2CaptionPacket *packet, void *context);

/** A retimer. The members belong to the operations. */
typedef struct KIVCS2CaptionRetime
{
    void *m_state; /**< null while not initialised; private */
} KIVCS2CaptionRetime;

/**
 * Makes a retimer with empty queues.
 * @param[out] retime    released by kivCS2CaptionRetime_free()
 * @param[in]  options   copied
 * @param[in]  onPacket  called from feed and finish
 * @param[in]  context   passed to `onPacket`; may be null
 * @retval KIVCS2STATUS_PARAM_ERR        a pointer is null, the mode is unknown, the last frame is before
 *                                       `m_first`, or `m_reserved` is not 0
 * @retval KIVCS2STATUS_FRAME_RATE_ERR   `m_from` or `m_to` is not a counting
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  same frames, but the rates are more than 5 % apart: only 23.98,
 *                                       24 and 25, or 29.97 and 30, or 59.94 and 60 go together
 * @retval KIVCS2STATUS_MEMORY_ERR       out of memory
 * On failure the record is empty.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionRetime_init(KIVCS2CaptionRetime *retime,
                                                 const KIVCS2CaptionRetimeOptions *options,
                                                 KIVCS2CaptionRetimeFunc onPacket, void *context);

/**
 * Takes a packet of the source and delivers the frames of the result that are complete. A frame may have
 * several packets, one after the other. A frame more than half a day earlier than the one before belongs
 * to the next day. Frames of the result count on past midnight, and so do the options' first and last.
 *
 * A CEA-708 packet belongs to the frame on which it begins. If it begins before the first frame, its rest
 * is left out; if it begins on or before the last frame, its rest after that frame is taken.
 * @retval KIVCS2STATUS_PARAM_ERR             a pointer is null or `retime` is not initialised
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the packet is refused: its frame is earlier than the one
 *                                            before or more than a day later, or falls before frame 0 of
 *                                            the result or after 2,147,483,647
 * @retval KIVCS2STATUS_OVERFLOW_ERR          the packet is refused: about an hour of captions waits because
 *                                            the source carries more than the result can
 * @retval KIVCS2STATUS_MEMORY_ERR            the packet is refused: out of memory for the queues
 * @return otherwise the failure of the callback; the packet is taken
 * A refusal changes only the count in the report; the retimer takes the next packet.
 * Source: CEA-608-E, CEA-708-E, SMPTE ST 334-2.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionRetime_feed(KIVCS2CaptionRetime *retime,
                                                 const KIVCS2CaptionPacket *packet);

/**
 * Delivers the remaining frames, and more until the queues are empty, stores the totals and empties the
 * retimer, which may then be used again. If the callback fails, nothing is stored and the call can be
 * repeated.
 * @param[in,out] retime  the retimer
 * @param[out]    report  may be null
 * @retval KIVCS2STATUS_PARAM_ERR    `retime` is null or not initialised
 * @retval KIVCS2STATUS_NO_DATA_ERR  no packet was taken; the report counts those refused or left out
 * @return otherwise the failure of the callback
 */
KIVCS2_API KIVCS2Status kivCS2CaptionRetime_finish(KIVCS2CaptionRetime *retime,
                                                   KIVCS2CaptionRetimeReport *report);

/**
 * Releases the retimer and its queues and clears the record. A second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `retime` is null
 */
KIVCS2_API KIVCS2Status kivCS2CaptionRetime_free(KIVCS2CaptionRetime *retime);

KIVCS2_END_DECLS

#endif
