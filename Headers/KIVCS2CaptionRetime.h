/**
 * @file
 * Captions on another frame rate, or under another numbering: packets in, packets of the result out.
 *
 * A retimer takes the packets of one programme in the order of their frames, sets each on the frame
 * of the result that is shown at the same moment (or has the same number), and hands over a packet
 * for every frame of the result, from the first to the last. The caller owns the record:
 *
 *     KIVCS2CaptionRetimeOptions options = {KIVCS2CaptionCounting_29_97DF, KIVCS2CaptionCounting_25};
 *     kivCS2CaptionRetime_init(&retime, &options, onPacket, context);
 *     kivCS2CaptionRetime_feed(&retime, &packet);     for every packet
 *     kivCS2CaptionRetime_finish(&retime, &report);   what still waits
 *     kivCS2CaptionRetime_free(&retime);
 *
 * CEA-608 pairs wait in a queue a field, CEA-708 bytes in one of their own; each goes out in order
 * as fast as the result's rate carries it. Empty pairs, padding and sequence numbers are made anew.
 * The last service list of the source stands in every packet behind it; without a CDP that is service
 * 1 without a language. If the source's CDPs have a time code, those of the result have the one of
 * their frame. Docs/captions.md says what each rate carries.
 *
 * A retimer takes less than 16 KiB at init. Its queues grow if captions wait, to 18 MiB at most. It
 * hands over a frame when packets two frames of the source later have come, since it looks ahead.
 *
 * A record belongs to one thread at a time; the callback must not call an operation of its record.
 */
#ifndef KIVCS2_CAPTION_RETIME_H
#define KIVCS2_CAPTION_RETIME_H

#include "KIVCS2CaptionPacket.h"

KIVCS2_BEGIN_DECLS

/** Which frame of the result a frame of the source becomes. */
typedef uint32_t KIVCS2CaptionRetimeMode;
enum
{
    /** The frame that is shown at the moment at which the source's begins, both counted from frame 0. */
    KIVCS2CaptionRetimeMode_SameMoment = 0,
    /** The frame of the same number since midnight: the programme runs faster or slower. */
    KIVCS2CaptionRetimeMode_SameFrames = 1,
    /** Added to a mode: `m_last` is a frame even if it is 0. */
    KIVCS2CaptionRetimeMode_HasLast = 0x100
};

/** Options of retiming. */
typedef struct KIVCS2CaptionRetimeOptions
{
    KIVCS2CaptionCounting m_from, m_to;
    KIVCS2CaptionRetimeMode m_mode;
    uint32_t m_first;       /**< the first frame of the source that is taken */
    uint32_t m_last;        /**< the last one; 0 for no end, without _HasLast */
    int32_t m_offset;       /**< frames of the result, added to each */
    uint64_t m_reserved[4]; /**< 0 */
} KIVCS2CaptionRetimeOptions;

/** What waits in a queue of its own. */
enum
{
    KIVCS2CaptionRetimeQueue_Field1 = 0,
    KIVCS2CaptionRetimeQueue_Field2 = 1,
    KIVCS2CaptionRetimeQueue_DTVCC = 2
};

/** What has been retimed. */
typedef struct KIVCS2CaptionRetimeReport
{
    uint64_t m_packetsIn;      /**< packets taken */
    uint64_t m_packetsLeftOut; /**< packets before `m_first` or behind `m_last` of the options */
    uint64_t m_packetsRefused; /**< packets that feed refused */
    uint64_t m_packetsBefore;  /**< of them those that fall before frame 0 of the result */
    uint64_t m_packetsOther;   /**< taken ones with bytes that are not a CDP: only their triplets go on */
    uint64_t m_packetsOut;     /**< packets handed over: frames of the result */
    uint64_t m_packetsBehind;  /**< of them those behind the end of the source, for what still waited */
    uint64_t m_pairsIn[2];     /**< CEA-608 pairs of field 1 and 2, empty ones not counted */
    uint64_t m_pairsOut[2];    /**< after finish the same */
    uint64_t m_bytesIn;        /**< CEA-708 bytes */
    uint64_t m_bytesOut;       /**< after finish the same */
    uint64_t m_bytesLeftOut;   /**< CEA-708 bytes of a packet that began on a frame not taken */
    uint64_t m_waitTime[3];    /**< longest wait of a KIVCS2CaptionRetimeQueue in nanoseconds */
    uint32_t m_wait[3];        /**< the same in frames of the result; 0: everything came on its frame */
    uint32_t m_firstFrame;     /**< of the result */
    uint32_t m_lastFrame;      /**< of the result */
    uint8_t m_reserved[28];
} KIVCS2CaptionRetimeReport;

/**
 * Takes a packet of the result: a CDP whose `m_frame` and `m_sequence` are those of the packet before
 * and 1. It is valid during the call. KIVCS2STATUS_OK goes on; a failure ends the call and is its
 * result, and the same packet comes again with the next call.
 */
typedef KIVCS2Status (*KIVCS2CaptionRetimeFunc)(const KIVCS2CaptionPacket *packet, void *context);

/** A retimer. The members belong to the operations. */
typedef struct KIVCS2CaptionRetime
{
    void *m_state;
} KIVCS2CaptionRetime;

/**
 * Makes a retimer with empty queues.
 * @param[in] options   copied
 * @param     onPacket  called from feed and finish
 * @retval KIVCS2STATUS_PARAM_ERR        a pointer is null, the mode is neither, there is a last frame and
 *                                       it is before `m_first`, or `m_reserved` is not 0
 * @retval KIVCS2STATUS_FRAME_RATE_ERR   `m_from` or `m_to` is not a counting
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  same frames, and the rates are more than 5 % apart: only 23.98,
 *                                       24 and 25, or 29.97 and 30, or 59.94 and 60 go together
 * @retval KIVCS2STATUS_MEMORY_ERR       no room
 * On failure the record is empty.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionRetime_init(KIVCS2CaptionRetime *retime,
                                                 const KIVCS2CaptionRetimeOptions *options,
                                                 KIVCS2CaptionRetimeFunc onPacket, void *context);

/**
 * Takes a packet of the source and hands over the frames of the result that are whole now. Several
 * packets of one frame follow each other. A frame more than half a day earlier than the one before is of
 * the next day. Frames of the result count on over midnight, and so do the options' first and last.
 *
 * A CEA-708 packet belongs to the frame on which it begins: at the first frame the rest of an earlier
 * one is left out, behind the last frame the rest of a later one is taken.
 * @retval KIVCS2STATUS_PARAM_ERR             a pointer is null or `retime` is not initialised
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the packet is refused: its frame is earlier than the one
 *                                            before, or more than a day later, or falls before frame 0
 *                                            of the result or behind 2,147,483,647
 * @retval KIVCS2STATUS_OVERFLOW_ERR          the packet is refused: about an hour of captions waits, since
 *                                            the source carries more than the result can
 * @retval KIVCS2STATUS_MEMORY_ERR            the packet is refused: no room for what waits
 * @return otherwise the failure of the callback; the packet is taken
 * After a refusal the retimer is as before, but for the count in the report, and takes the next packet.
 * Source: CEA-608-E, CEA-708-E, SMPTE ST 334-2.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionRetime_feed(KIVCS2CaptionRetime *retime,
                                                 const KIVCS2CaptionPacket *packet);

/**
 * Hands over the remaining frames, and further ones until nothing waits, stores what has been retimed
 * and empties the retimer, which may then be fed anew. If the callback fails nothing is stored, and the
 * call can be repeated.
 * @param[out] report  may be null
 * @retval KIVCS2STATUS_PARAM_ERR    `retime` is null or not initialised
 * @retval KIVCS2STATUS_NO_DATA_ERR  no packet was taken; the report says how many were refused or left out
 * @return otherwise the failure of the callback
 */
KIVCS2_API KIVCS2Status kivCS2CaptionRetime_finish(KIVCS2CaptionRetime *retime,
                                                   KIVCS2CaptionRetimeReport *report);

/**
 * Releases the retimer with what waits in it and clears the record; twice is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `retime` is null
 */
KIVCS2_API KIVCS2Status kivCS2CaptionRetime_free(KIVCS2CaptionRetime *retime);

KIVCS2_END_DECLS

#endif
