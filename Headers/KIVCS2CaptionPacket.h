/**
 * @file
 * One caption packet with all its contents, and the countings that number its frames.
 *
 * A caption packet is a SMPTE 291 ancillary packet of 8-bit words: DID, SDID, data count, user data
 * and checksum. Its user data is a caption distribution packet (CDP, SMPTE 334-2). The CDP holds the
 * triplets of one frame (cc_data): CEA-608 pairs of both fields and the bytes of CEA-708.
 *
 * KIVCS2CaptionPacket is a plain value. It owns nothing and may be copied. parse() fills it from
 * bytes and never refuses a damaged packet: it keeps the undamaged parts and sets a bit of `m_faults`
 * for each cause. build() makes a packet without faults.
 *
 * A counting is a frame rate together with the numbering of its frames. Every operation takes its
 * counting as an argument: the module-wide rate of KIVCS2Timecode.h is neither read nor set.
 *
 * The operations keep no state and allocate no memory. Any thread may call them.
 *
 * @code
 * const KIVCS2CaptionPairs pairs = {.m_count = {1, 0}, .m_pairs = {{{0x94, 0x2C}}}};
 * KIVCS2CaptionPacket packet, found;
 * uint64_t offset = 0;
 * if (KIVCS2_FAILED(kivCS2CaptionPacket_build(&packet, KIVCS2CaptionCounting_25, 0, &pairs, NULL, NULL, 0)))
 *     return 1;
 * while (KIVCS2_SUCCEEDED(kivCS2CaptionPacket_find(KIVCS2CaptionCarrier_8Bit, packet.m_anc, packet.m_size,
 *                                                  &offset, &found, NULL)))
 *     printf("%u triplets, %s\n", found.m_tripletCount,
 *            found.m_faults == 0 ? "no fault" : "damaged"); // prints: 24 triplets, no fault
 * @endcode
 */
#ifndef KIVCS2_CAPTION_PACKET_H
#define KIVCS2_CAPTION_PACKET_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/* ---- Countings ---- */

/** A frame rate and its numbering. DF leaves numbers out (SMPTE 12M); NDF does not. */
typedef uint32_t KIVCS2CaptionCounting;
enum
{
    KIVCS2CaptionCounting_FindOut = 0, /**< in options: take it from the file; elsewhere: unknown */
    KIVCS2CaptionCounting_23_98 = 1,
    KIVCS2CaptionCounting_24 = 2,
    KIVCS2CaptionCounting_25 = 3,
    KIVCS2CaptionCounting_29_97DF = 4,
    KIVCS2CaptionCounting_29_97NDF = 5,
    KIVCS2CaptionCounting_30 = 6,
    KIVCS2CaptionCounting_50 = 7,
    KIVCS2CaptionCounting_59_94DF = 8,
    KIVCS2CaptionCounting_59_94NDF = 9,
    KIVCS2CaptionCounting_60 = 10,
    KIVCS2CaptionCounting_MAX = 11 /**< the count; not a counting */
};

/** The properties of a counting. The texts are static. */
typedef struct KIVCS2CaptionCountingInfo
{
    const char *m_name;     /**< "29.97df" */
    const char *m_mccRate;  /**< the text after "Time Code Rate=" of an MCC file: "30DF" */
    uint32_t m_numerator;   /**< frames a second as a fraction: 30000 ... */
    uint32_t m_denominator; /**< ... over 1001 */
    uint32_t m_numbers;     /**< frame numbers a second: 30 */
    uint32_t m_perDay;      /**< frames from midnight to midnight in this counting */
    uint32_t m_triplets;    /**< cc_data triplets in a frame: 25, 24, 20, 12 or 10 (CEA-708) */
    uint8_t m_rateCode;     /**< cdp_frame_rate (SMPTE 334-2): 1 to 8 */
    uint8_t m_drop;         /**< numbers left out at the start of nine minutes of ten: 0, 2 or 4 */
    uint8_t m_reserved[6];  /**< reserved */
} KIVCS2CaptionCountingInfo;

/**
 * Fills `info` with the properties of `counting`.
 * @retval KIVCS2STATUS_PARAM_ERR       `info` is null
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  not a counting; `info` is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2CaptionCounting_getInfo(KIVCS2CaptionCounting counting,
                                                      KIVCS2CaptionCountingInfo *info);

/** Returns the name, for example "29.97df"; null if `counting` is not a counting. The text is static. */
KIVCS2_API const char *kivCS2CaptionCounting_name(KIVCS2CaptionCounting counting);

/**
 * Reads "HH:MM:SS:FF" as frames since midnight. ":", ";", "." and "," are equal as separators. Hours are
 * 00 to 23. The text must have exactly these 11 characters.
 * @param[in]  counting  decides which frame numbers exist
 * @param[in]  text      zero-terminated
 * @param[out] frame     frames since midnight; the next frame if drop-frame leaves the number out
 * @param[out] exists    false if drop-frame leaves the number out; may be null
 * @retval KIVCS2STATUS_PARAM_ERR             `text` or `frame` is null
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        not a counting
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  another form, or no such time; `frame` is unchanged
 * Source: SMPTE ST 12-1.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionCounting_frameFromText(KIVCS2CaptionCounting counting, const char *text,
                                                            uint32_t *frame, bool *exists);

/** Room for a timecode text, including the terminator. */
#define KIVCS2_CAPTION_TIMECODE_SIZE 12u

/**
 * Writes the timecode of `frame`, "01:00:00;02" in drop-frame and "01:00:00:02" otherwise. Past midnight
 * the timecode starts at 00:00:00 again.
 * @param[in]  counting  decides the separator and the numbers left out
 * @param[in]  frame     frames since midnight; may be beyond a day
 * @param[out] text      KIVCS2_CAPTION_TIMECODE_SIZE characters, zero-terminated
 * @retval KIVCS2STATUS_PARAM_ERR       `text` is null
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  not a counting
 */
KIVCS2_API KIVCS2Status kivCS2CaptionCounting_textFromFrame(KIVCS2CaptionCounting counting, uint32_t frame,
                                                            char *text);

/**
 * Stores the real time from frame 0 to the start of `frame` in nanoseconds, exact and rounded down.
 * @retval KIVCS2STATUS_PARAM_ERR       `nanoseconds` is null
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  not a counting
 */
KIVCS2_API KIVCS2Status kivCS2CaptionCounting_nanosecondsOfFrame(KIVCS2CaptionCounting counting,
                                                                 uint32_t frame, uint64_t *nanoseconds);

/* ---- Faults ---- */

/**
 * The faults of a packet or a caption file, one number for each cause. `m_faults` of a packet has bit
 * `1 << fault`. Docs/captions.md lists the effect of each fault on its line; name and status come from
 * kivCS2CaptionFile_getFaultName() and kivCS2CaptionFile_getFaultStatus(). New faults are added at the end.
 */
typedef uint32_t KIVCS2CaptionFault;
enum
{
    KIVCS2CaptionFault_None = 0,              /**< not a fault */
    KIVCS2CaptionFault_ByteOrderMark = 1,     /**< the file begins with the mark of UTF-8 */
    KIVCS2CaptionFault_OtherEncoding = 2,     /**< UTF-16 or UTF-32 text */
    KIVCS2CaptionFault_HeaderCase = 3,        /**< the first line is in another case */
    KIVCS2CaptionFault_HeaderBlanks = 4,      /**< blank lines or blanks before the first line */
    KIVCS2CaptionFault_HeaderUnknown = 5,     /**< a header line that the format does not have */
    KIVCS2CaptionFault_HeaderLong = 6,        /**< a header line longer than a header record holds */
    KIVCS2CaptionFault_HeaderMissing = 7,     /**< caption lines without the line that names the format */
    KIVCS2CaptionFault_NotACaptionFile = 8,   /**< neither SCC nor MCC */
    KIVCS2CaptionFault_RateMissing = 9,       /**< no "Time Code Rate=" before the first caption */
    KIVCS2CaptionFault_RateUnknown = 10,      /**< a "Time Code Rate=" that the format does not have */
    KIVCS2CaptionFault_RateLate = 11,         /**< "Time Code Rate=" after the first caption */
    KIVCS2CaptionFault_RateDisagrees = 12,    /**< CDPs or frame numbers do not fit the file's rate */
    KIVCS2CaptionFault_Blanks = 13,           /**< not exactly one tab between timecode and data */
    KIVCS2CaptionFault_BlanksBefore = 14,     /**< blanks before the timecode */
    KIVCS2CaptionFault_BlanksBehind = 15,     /**< blanks after the data */
    KIVCS2CaptionFault_FrameSeparator = 16,   /**< "." or "," before the frames */
    KIVCS2CaptionFault_OtherCounting = 17,    /**< the separator of the other counting */
    KIVCS2CaptionFault_DroppedNumber = 18,    /**< a number that drop-frame leaves out */
    KIVCS2CaptionFault_NoSuchTime = 19,       /**< a timecode that does not exist */
    KIVCS2CaptionFault_NotACaption = 20,      /**< text that is not a caption line */
    KIVCS2CaptionFault_Null = 21,             /**< a byte of 0 */
    KIVCS2CaptionFault_UnknownCharacter = 22, /**< a character without a meaning */
    KIVCS2CaptionFault_LowerCase = 23,        /**< lower-case digits or letters in an MCC line */
    KIVCS2CaptionFault_FourByteU = 24,        /**< the letter U stands for four bytes */
    KIVCS2CaptionFault_EightDigitWord = 25,   /**< an SCC word of two tracks */
    KIVCS2CaptionFault_WordLength = 26,       /**< an SCC word of another length than 4 digits */
    KIVCS2CaptionFault_HalfByte = 27,         /**< an odd count of hexadecimal digits */
    KIVCS2CaptionFault_Suffix = 28,           /**< a malformed suffix of an MCC 2 line */
    KIVCS2CaptionFault_LongPacket = 29,       /**< more bytes than an ancillary packet can have */
    KIVCS2CaptionFault_DataCount = 30,        /**< the data count and the bytes disagree */
    KIVCS2CaptionFault_NotACDP = 31,          /**< a caption packet (61/01) without a CDP */
    KIVCS2CaptionFault_CDPLength = 32,        /**< the CDP's length and its bytes disagree */
    KIVCS2CaptionFault_SectionCut = 33,       /**< a section of the CDP is cut, or its footer is missing */
    KIVCS2CaptionFault_SectionUnknown = 34,   /**< a section that SMPTE 334-2 does not define, or too many */
    KIVCS2CaptionFault_PacketChecksum = 35,   /**< the ancillary packet's checksum is wrong */
    KIVCS2CaptionFault_PacketChecksumMissing = 36, /**< the ancillary packet has no checksum */
    KIVCS2CaptionFault_CDPChecksum = 37,           /**< the CDP's checksum is wrong */
    KIVCS2CaptionFault_CDPChecksumMissing = 38,    /**< the CDP has no checksum */
    KIVCS2CaptionFault_Counters = 39,              /**< the counters in header and footer of a CDP differ */
    KIVCS2CaptionFault_Parity = 40,                /**< a CEA-608 byte without odd parity */
    KIVCS2CaptionFault_Sequence = 41,              /**< a CDP's counter does not follow the one before */
    KIVCS2CaptionFault_Gap = 42,           /**< lines are missing: the CDPs' counters include their frames */
    KIVCS2CaptionFault_BackInTime = 43,    /**< earlier than the line before */
    KIVCS2CaptionFault_SameFrame = 44,     /**< the frame of the line before, with the same suffix */
    KIVCS2CaptionFault_Overlap = 45,       /**< an SCC line begins before the line before it ends */
    KIVCS2CaptionFault_WaitsTooLong = 46,  /**< order by frame: pairs would wait over an hour */
    KIVCS2CaptionFault_StreamFailed = 47,  /**< the stream's own failure */
    KIVCS2CaptionFault_NoCaptions = 48,    /**< the file has no caption */
    KIVCS2CaptionFault_WordParity = 49,    /**< a 10-bit word with wrong parity bits (SMPTE 291) */
    KIVCS2CaptionFault_CarrierCounts = 50, /**< counts or lengths of a carrier disagree with its contents */
    KIVCS2CaptionFault_CarrierField = 51,  /**< an RTP packet's F is 01, which is not a field (RFC 8331) */
    KIVCS2CaptionFault_MAX = 52            /**< the count; not a fault */
};

/* ---- Packets ---- */

/**
 * A caption service: 1 to 63 are the services S1 to S63 of CEA-708; the services of CEA-608 are named
 * below.
 */
typedef uint32_t KIVCS2CaptionService;
enum
{
    KIVCS2CaptionService_S1 = 1,
    KIVCS2CaptionService_S63 = 63,
    KIVCS2CaptionService_CC1 = 0x101,
    KIVCS2CaptionService_CC2 = 0x102,
    KIVCS2CaptionService_CC3 = 0x103,
    KIVCS2CaptionService_CC4 = 0x104,
    KIVCS2CaptionService_T1 = 0x111,
    KIVCS2CaptionService_T2 = 0x112,
    KIVCS2CaptionService_T3 = 0x113,
    KIVCS2CaptionService_T4 = 0x114
};

/** One entry of a CDP's service list (ccsvcinfo_section of SMPTE 334-2). */
typedef struct KIVCS2CaptionServiceEntry
{
    /** S1 to S63; CC1 or CC3 for the captions of field 1 or 2. */
    KIVCS2CaptionService m_service;
    char m_language[4];    /**< three letters of ISO 639-2 and a terminator; empty if there is none */
    uint8_t m_easyReader;  /**< 1: for beginning readers */
    uint8_t m_wide;        /**< 1: for 16:9 */
    uint8_t m_reserved[2]; /**< reserved */
} KIVCS2CaptionServiceEntry;

#define KIVCS2_CAPTION_ANC_SIZE     259u /**< bytes of the longest packet: DID, SDID, count, 255, checksum */
#define KIVCS2_CAPTION_TRIPLETS_MAX 31u  /**< triplets of a packet: cc_count has 5 bits */
#define KIVCS2_CAPTION_SERVICES_MAX 15u  /**< entries of a service list: svc_count has 4 bits */

/** The parts that a packet has; bits of KIVCS2CaptionPacket::m_flags. */
typedef uint32_t KIVCS2CaptionPacketFlag;
enum
{
    KIVCS2CaptionPacketFlag_HasField = 0x1,  /**< the line has a field suffix, in `m_field` */
    KIVCS2CaptionPacketFlag_HasNumber = 0x2, /**< the line has a number suffix, in `m_number` */
    KIVCS2CaptionPacketFlag_CDP = 0x4, /**< the user data begins as a CDP: `m_rateCode`, `m_sequence` valid */
    KIVCS2CaptionPacketFlag_HasTimeCode = 0x8, /**< the CDP has a time code section, in `m_timeCode` */
    KIVCS2CaptionPacketFlag_HasServices = 0x10 /**< the CDP has a service list, of 0 or more entries */
};

/** One packet. A pair of an SCC file is also a packet, with an `m_size` of 0 and one triplet. */
typedef struct KIVCS2CaptionPacket
{
    uint64_t m_line;        /**< the line in the file, from 1; 0 if there is no file */
    uint64_t m_offset;      /**< bytes from the start of the file to the start of the line */
    uint64_t m_faults;      /**< bits of KIVCS2CaptionFault */
    uint32_t m_frame;       /**< frames since midnight */
    uint32_t m_flags;       /**< bits of KIVCS2CaptionPacketFlag */
    uint32_t m_field;       /**< field suffix of an MCC 2 line: 0 or 1 */
    uint32_t m_number;      /**< number suffix of an MCC 2 line */
    uint16_t m_size;        /**< bytes in `m_anc` */
    uint16_t m_sequence;    /**< cdp_hdr_sequence_cntr */
    uint8_t m_did;          /**< 61h for captions */
    uint8_t m_sdid;         /**< 01h for captions */
    uint8_t m_rateCode;     /**< cdp_frame_rate; 0 if there is no CDP */
    uint8_t m_tripletCount; /**< complete triplets in `m_triplets` */
    uint8_t m_serviceCount; /**< entries in `m_services` */
    uint8_t m_timeCode[4];  /**< the 4 bytes of the CDP's time code section, unchanged */
    uint8_t m_triplets[KIVCS2_CAPTION_TRIPLETS_MAX][3]; /**< marker, cc_valid and cc_type; two bytes */
    uint8_t m_anc[KIVCS2_CAPTION_ANC_SIZE];             /**< DID to checksum, unchanged */
    KIVCS2CaptionServiceEntry m_services[KIVCS2_CAPTION_SERVICES_MAX]; /**< the service list */
    uint8_t m_reserved[31];                                            /**< reserved */
} KIVCS2CaptionPacket;

/** CEA-608 pairs of one frame: [0] is field 1, [1] is field 2. */
typedef struct KIVCS2CaptionPairs
{
    uint8_t m_count[2];                                 /**< pairs of each field */
    uint8_t m_pairs[2][KIVCS2_CAPTION_TRIPLETS_MAX][2]; /**< with their parity bits */
    uint8_t m_reserved[6];                              /**< reserved */
} KIVCS2CaptionPairs;

/** CEA-708 bytes of one frame, two from each triplet. */
typedef struct KIVCS2CaptionDTVCC
{
    uint32_t m_starts; /**< bit n: a DTVCC packet begins with bytes 2n and 2n + 1 */
    uint32_t m_count;  /**< bytes in `m_bytes`: an even number */
    uint8_t m_bytes[KIVCS2_CAPTION_TRIPLETS_MAX * 2]; /**< the bytes, in the order of the triplets */
    uint8_t m_reserved[2];                            /**< reserved */
} KIVCS2CaptionDTVCC;

/**
 * Fills `packet` from bytes: an ancillary packet from its DID on, or only a CDP (96 69), which becomes
 * the user data of an ancillary packet with its count and checksum. Place, frame and suffixes are 0. All
 * undamaged parts are taken, and `m_faults` lists the faults. A packet of one CEA-608 pair (61/02,
 * SMPTE 334-1) gets one triplet of its field. An ancillary packet of another DID or SDID keeps its bytes
 * and has no triplets.
 * @param[out] packet  the packet with its faults
 * @param[in]  bytes   `size` bytes
 * @param[in]  size    1 to 259, for a CDP 1 to 255
 * @retval KIVCS2STATUS_OK             also with faults
 * @retval KIVCS2STATUS_PARAM_ERR      `packet` or `bytes` is null
 * @retval KIVCS2STATUS_NO_DATA_ERR    `size` is 0; the packet is empty
 * @retval KIVCS2STATUS_OVERFLOW_ERR   more than 259 bytes, or a CDP of more than 255; the packet is empty
 * Source: SMPTE ST 291-1, SMPTE ST 334-2, CEA-708.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionPacket_parse(KIVCS2CaptionPacket *packet, const uint8_t *bytes,
                                                  uint32_t size);

/**
 * Makes the packet of one frame: the pairs of field 1, the pairs of field 2, the CEA-708 bytes, empty
 * triplets up to the counting's number, the service list and the footer. Up to 30 frames a second a
 * field without pairs carries 80 80. From 50 on a frame carries one pair of line 21, and the fields take
 * turns: a packet without any pair gets 80 80 of field 1 if `sequence` is even, of field 2 if it is odd.
 * Given pairs of both fields are all put in. Place, frame and suffixes are 0.
 * @param[out] packet        the packet: DID 61h, SDID 01h
 * @param[in]  counting      decides cdp_frame_rate and the number of triplets
 * @param[in]  sequence      cdp_hdr_sequence_cntr
 * @param[in]  pairs         null for no pairs
 * @param[in]  dtvcc         null for no CEA-708 bytes
 * @param[in]  services      `serviceCount` entries; null for service 1 without a language
 * @param[in]  serviceCount  0 to KIVCS2_CAPTION_SERVICES_MAX; ignored if `services` is null
 * @retval KIVCS2STATUS_PARAM_ERR       `packet` is null, a count is too large, or an entry is not a service
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  not a counting
 * @retval KIVCS2STATUS_OVERFLOW_ERR    more pairs and bytes than a frame of the counting carries, or more
 *                                      than 255 bytes
 * On failure `packet` is unchanged. Source: SMPTE ST 334-2, CEA-708.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionPacket_build(KIVCS2CaptionPacket *packet, KIVCS2CaptionCounting counting,
                                                  uint16_t sequence, const KIVCS2CaptionPairs *pairs,
                                                  const KIVCS2CaptionDTVCC *dtvcc,
                                                  const KIVCS2CaptionServiceEntry *services,
                                                  uint32_t serviceCount);

/**
 * Stores the valid CEA-608 pairs of both fields in the order of the triplets, including empty pairs (80 80).
 * @retval KIVCS2STATUS_PARAM_ERR    a pointer is null
 * @retval KIVCS2STATUS_NO_DATA_ERR  the packet has no pair; `pairs` is empty
 */
KIVCS2_API KIVCS2Status kivCS2CaptionPacket_getPairs(const KIVCS2CaptionPacket *packet,
                                                     KIVCS2CaptionPairs *pairs);

/**
 * Stores the valid CEA-708 bytes in the order of the triplets.
 * @retval KIVCS2STATUS_PARAM_ERR    a pointer is null
 * @retval KIVCS2STATUS_NO_DATA_ERR  the packet has no CEA-708 bytes; `dtvcc` is empty
 */
KIVCS2_API KIVCS2Status kivCS2CaptionPacket_getDTVCC(const KIVCS2CaptionPacket *packet,
                                                     KIVCS2CaptionDTVCC *dtvcc);

/* ---- Carriers ---- */

/**
 * The layout of ancillary packets in bytes. The first four are those of KIVCS2CaptionANCFormat. Source:
 * SMPTE ST 291-1 (words), SMPTE ST 436-1 (wrapped data), RFC 8331 (RTP).
 */
typedef uint32_t KIVCS2CaptionCarrier;
enum
{
    KIVCS2CaptionCarrier_8BitWithADF = 0,        /**< bytes after the data flag FF A0 09 */
    KIVCS2CaptionCarrier_8Bit = 1,               /**< bytes, beginning with the DID */
    KIVCS2CaptionCarrier_10BitWithADF = 2,       /**< 16-bit big-endian units after 000 3FF 3FF */
    KIVCS2CaptionCarrier_10Bit = 3,              /**< 16-bit big-endian units, beginning with the DID */
    KIVCS2CaptionCarrier_10BitLittleWithADF = 4, /**< 16-bit little-endian units after 000 3FF 3FF */
    KIVCS2CaptionCarrier_10BitLittle = 5,        /**< 16-bit little-endian units, beginning with the DID */
    KIVCS2CaptionCarrier_436M = 6,       /**< frames of wrapped data (MXF), 8-bit and 10-bit payloads */
    KIVCS2CaptionCarrier_V210Luma = 7,   /**< a v210 line of HD: the packets among its luma samples */
    KIVCS2CaptionCarrier_V210Chroma = 8, /**< a v210 line of HD: the packets among its colour differences */
    KIVCS2CaptionCarrier_V210SD = 9,     /**< a v210 line of SD: a packet takes every sample */
    KIVCS2CaptionCarrier_RTP = 10,       /**< one whole RTP packet of ancillary data */
    KIVCS2CaptionCarrier_MAX = 11,       /**< the count; not a form */
    /** Added to a form of find(): every ancillary packet, not only captions. Not allowed with _8Bit, _10Bit
     *  and _10BitLittle, in which only DID and SDID mark the start of a packet. */
    KIVCS2CaptionCarrier_AnyPacket = 0x100
};

/** The samples that carry a packet. */
typedef uint8_t KIVCS2CaptionChannel;
enum
{
    KIVCS2CaptionChannel_Luma = 0, /**< luma, or not known */
    KIVCS2CaptionChannel_Chroma = 1,
    KIVCS2CaptionChannel_Both = 2 /**< one after the other, as in SD */
};

/** The header of one RTP packet of ancillary data (RFC 3550, RFC 8331). */
typedef struct KIVCS2CaptionRTP
{
    uint32_t m_sequence;   /**< all 32 bits; the high 16 come from the payload header */
    uint32_t m_timestamp;  /**< usually of a 90 kHz clock */
    uint32_t m_source;     /**< SSRC */
    uint8_t m_payloadType; /**< 0 to 127 */
    uint8_t m_marker;      /**< 1: the last packet of its frame or field */
    uint8_t m_field;       /**< F: 0 progressive or unknown, 1 or 2 the field; from find() 3 if invalid */
    uint8_t m_count;       /**< ANC_Count from find(); wrap() does its own count */
    uint8_t m_reserved[8]; /**< reserved */
} KIVCS2CaptionRTP;

/** The place where a packet was found, or where it is to be put. Members that a form does not have are 0. */
typedef struct KIVCS2CaptionPlace
{
    /** Bytes from the start of the buffer to the data flag, to the DID, to the 436M line record, or to the
     *  ancillary packet's header in an RTP packet. v210: the byte in which the flag's first sample begins. */
    uint64_t m_offset;
    KIVCS2CaptionRTP m_rtp;         /**< RTP: set by find() only */
    uint16_t m_line;                /**< 436M, RTP: the line; 7FF, 7FE, 7FD mean the same as in RFC 8331 */
    uint16_t m_horizontal;          /**< RTP: Horizontal_Offset; v210: the flag's first word in its channel */
    KIVCS2CaptionChannel m_channel; /**< all forms except 291M */
    uint8_t m_field;                /**< 436M, RTP: 1 or 2; 0 for a whole frame or if not known */
    uint8_t m_hasStream;            /**< RTP: S; 1 if `m_stream` is valid */
    uint8_t m_stream;               /**< RTP: StreamNum, 0 to 127 */
    uint8_t m_wrapping;             /**< 436M: wrapping type; in wrap() 0 means VANC of `m_field` */
    uint8_t m_coding;               /**< 436M: sample coding; in wrap() 0 means 8 bits of `m_channel` */
    uint8_t m_reserved[6];          /**< reserved */
} KIVCS2CaptionPlace;

/**
 * Finds the next caption packet (61/01 or 61/02) from `*offset` on. Begin with an `*offset` of 0 and
 * call again while it succeeds: that finds every packet of the buffer. A damaged packet is returned with
 * its faults and its undamaged parts; it does not harm its neighbours. The packet is filled as by
 * kivCS2CaptionPacket_parse(). If the carrier stores packets without a checksum, the checksum is added.
 *
 * A data flag, a line record or an RTP packet marks the start of a packet. Without them only DID and SDID
 * mark it. Then one of these must hold: the checksum is right, and so is the parity of 10-bit words; or
 * the packet is a CDP and at most one of its identifier's two bytes and its length is wrong; or it is a
 * 61/02 packet with a count of 3.
 *
 * A stream may come in blocks of any size: keep the bytes from `*offset` on and append more. A buffer must
 * begin with a whole word. A block of 436M should have at least 96 KiB, the size of the largest line record.
 * A v210 line and an RTP packet must be complete.
 * @param[in]     form    a KIVCS2CaptionCarrier, `| KIVCS2CaptionCarrier_AnyPacket` if wanted
 * @param[in]     bytes   `size` bytes; may be null if `size` is 0
 * @param[in]     size    bytes of the buffer
 * @param[in,out] offset  in: the start of the search, up to `size`; out: past the packet found
 * @param[out]    packet  the packet; unchanged if no packet was found
 * @param[out]    place   its place; may be null. RTP: `m_rtp` is set even if there is no packet
 * @retval KIVCS2STATUS_OK             a packet, possibly with faults
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  no packet, also for an RTP keep-alive. The bytes from `*offset` on
 *                                     may be the start of a packet; if there are none, `*offset` is `size`
 * @retval KIVCS2STATUS_EOF_ERR        the bytes end within the packet that begins at `*offset`; `packet`
 *                                     has the part that is there. At the end of a stream the packet is cut:
 *                                     go on from `*offset + 1`
 * @retval KIVCS2STATUS_FORMAT_ERR     RTP: another version than 2; `*offset` is unchanged
 * @retval KIVCS2STATUS_PARAM_ERR      a pointer is null, `*offset` is above `size`, or `form` is not a form
 */
KIVCS2_API KIVCS2Status kivCS2CaptionPacket_find(KIVCS2CaptionCarrier form, const uint8_t *bytes,
                                                 uint64_t size, uint64_t *offset, KIVCS2CaptionPacket *packet,
                                                 KIVCS2CaptionPlace *place);

/**
 * Writes packets in a form: as 291M words, one packet after the other; as one 436M frame; into a v210
 * line, whose other samples are kept; or as one RTP packet, which is a keep-alive if there is no packet.
 * Only `m_anc` and `m_size` of a packet are used; parity bits and checksum are made again.
 * @param[in]     form     a KIVCS2CaptionCarrier, without _AnyPacket
 * @param[in]     packets  `count` packets; may be null if `count` is 0
 * @param[in]     count    packets; 0 makes an empty result
 * @param[in]     places   `count` places; null: line 9 in 436M, no specific place in RTP, one packet after
 *                         the other from the first sample in v210
 * @param[in]     rtp      the header of an RTP packet; other forms ignore it
 * @param[out]    bytes    the result; may be null if `*size` is 0
 * @param[in,out] size     in: room in bytes; out: bytes of the result, in v210 up to the last packet's end
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  too little room; `*size` is the size needed, no byte is written
 * @retval KIVCS2STATUS_FORMAT_ERR       a packet's data count and size disagree
 * @retval KIVCS2STATUS_OVERFLOW_ERR     more than 255 packets or 65,535 bytes in an RTP packet, 65,535
 *                                       packets in a 436M frame
 * @retval KIVCS2STATUS_PARAM_ERR        a pointer is null, `form` is not a form, the form cannot express a
 *                                       place or the header, or packets overlap in a v210 line
 */
KIVCS2_API KIVCS2Status kivCS2CaptionPacket_wrap(KIVCS2CaptionCarrier form,
                                                 const KIVCS2CaptionPacket *packets, uint32_t count,
                                                 const KIVCS2CaptionPlace *places,
                                                 const KIVCS2CaptionRTP *rtp, uint8_t *bytes, uint64_t *size);

KIVCS2_END_DECLS

#endif
