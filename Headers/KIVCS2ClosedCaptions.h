/**
 * @file
 * Closed captions: the caption words and packets that travel in the ancillary space of a video
 * signal, and the MCC and SCC files that store them.
 *
 * A caption of CEA-608 is a pair of bytes, each with odd parity in bit 7. CEA-708 carries such
 * pairs next to its own data as triplets (cc_data). SMPTE 334-2 puts the triplets of one frame
 * into a caption distribution packet (CDP), and SMPTE 291M puts the CDP into an ancillary
 * packet, which is stored as 8-bit or 10-bit words, bare or wrapped as SMPTE 436M. The first
 * section of this header converts in each of these directions:
 *
 *     436M stream --> 291M stream --> CDP --> 608 pairs
 *                                      |  \-> CEA-708 caption data block
 *     608 pairs, 708 triplets ---------+
 *
 * No operation keeps state, and only kivCS2ClosedCaptions_createDateStringWithFormat() allocates. Every
 * operation may be called from any thread as long as its stream and buffers belong to that thread. "With
 * atom" always means that the packet is preceded by the 8-byte QuickTime atom
 * header: its size, big-endian, header included, and then "ccdp".
 *
 * Input bytes never make an operation read or write past its buffers. A failed operation may leave its output
 * partly written.
 *
 * @code
 * const uint8_t pair[2] = {0x94, 0x2C}; // field 1: erase displayed memory
 * uint16_t words[2];
 * uint8_t cdp[KIVCS2_CDP_SIZE];
 * uint32_t size = sizeof cdp, room = sizeof words;
 * memcpy(words, pair, sizeof pair);
 * if (KIVCS2_FAILED(kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(words, 2, cdp, &size, 0)) ||
 *     KIVCS2_FAILED(kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet(cdp, size, false,
 *                                                                                   words, &room)))
 *     return 1;
 * printf("%u bytes, %02X%02X\n", size, ((uint8_t *)words)[0],
 *        ((uint8_t *)words)[1]); // prints: 82 bytes, 942C
 * @endcode
 */
#ifndef KIVCS2_CLOSED_CAPTIONS_H
#define KIVCS2_CLOSED_CAPTIONS_H

#include "KIVCS2Base.h"
#include "KIVCS2Stream.h"
#include "KIVCS2Timecode.h"

#include <CoreFoundation/CoreFoundation.h>

KIVCS2_BEGIN_DECLS

/* ---- Caption words and packets (SMPTE 291M, 334, 436M; CEA-608, CEA-708) ---- */

/**
 * How an ancillary packet is stored in a stream. A 10-bit word takes two bytes, big-endian. The top 6 bits
 * are ignored; then follow bit 9 (the inverse of bit 8), bit 8 (even parity) and the 8 data bits. Source:
 * SMPTE ST 291-1.
 */
typedef uint32_t KIVCS2CaptionANCFormat;
enum
{
    KIVCS2CaptionANCFormat_8BitWithADF = 0,  /**< bytes; the data flag is FF A0 09 */
    KIVCS2CaptionANCFormat_8Bit = 1,         /**< bytes, beginning with the DID */
    KIVCS2CaptionANCFormat_10BitWithADF = 2, /**< 10-bit words; the data flag is 000 3FF 3FF */
    KIVCS2CaptionANCFormat_10Bit = 3         /**< 10-bit words, beginning with the DID */
};

/** Bytes of the QuickTime atom header in front of a packet "with atom". */
#define KIVCS2_CAPTION_ATOM_SIZE 8u
/** Bytes of a CDP made from 608 pairs: the plain form, with one service descriptor. */
#define KIVCS2_CDP_SIZE 82u
/** Bytes of a CDP made from 608 pairs in the SDI form, with two service descriptors. */
#define KIVCS2_CDP_SDI_SIZE 89u
/**
 * Room that kivCS2ClosedCaptions_pack708CaptionsIntoSMPTE334CDP708Packet() may write for
 * `dataSize` bytes of triplets: atom and head 17, the data, foot 13.
 */
#define KIVCS2_CDP_ROOM_FOR_708_DATA(dataSize) (17u + (dataSize) + 13u)
/** Bytes of the longest text of kivCS2ClosedCaptions_decodeCEA608CCPair(), terminator included. */
#define KIVCS2_CEA608_DESCRIPTION_SIZE 78u

/** `byte` with bit 7 set or cleared so that it has odd parity: 0x00 gives 0x80. Source: CEA-608. */
KIVCS2_API uint8_t kivCS2ClosedCaptions_oddParityByte(uint8_t byte);

/**
 * Describes a CEA-608 byte pair in words, zero-terminated: "Control channel 0 = command erase
 * displayed memory, line 21". Parity bits are ignored. A printable pair is copied unchanged, so a second
 * character of 0 ends the text early. Mid-row codes are reported as unknown special characters; of the
 * extended characters only second bytes 0x40 to 0x5F are known.
 * @param[in]  byte1   the pair's first byte
 * @param[in]  byte2   the pair's second byte
 * @param[out] buffer  room for KIVCS2_CEA608_DESCRIPTION_SIZE characters
 * @retval KIVCS2STATUS_DATA_ERR   the pair is empty (00 00 without parity); nothing is written
 * @retval KIVCS2STATUS_PARAM_ERR  `buffer` is null
 * Thread safety: any thread. Source: CEA-608.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_decodeCEA608CCPair(uint8_t byte1, uint8_t byte2, char *buffer);

/**
 * Reads one 8-bit word through the bit reader, which must have been started with
 * kivCS2Stream_beginReadBits(), and adds the word to `*checksum` unless that pointer is null. The bit reader
 * fetches one byte ahead.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` or `value` is null
 * @retval other                   the stream's own failure; the checksum is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_read8BitWord(KIVCS2Stream *stream, uint8_t *value,
                                                          uint32_t *checksum);

/**
 * Reads one 10-bit word: its two parity bits (bit 9 is the higher) and its 8 data bits. Adds all ten bits to
 * `*checksum` unless that pointer is null.
 * @param[in,out] stream    bit reading has begun
 * @param[in]     skip      first skips the 6 unused bits in front of the word
 * @param[out]    value     the 8 data bits
 * @param[out]    parity    0 to 3
 * @param[in,out] checksum  increased by the ten bits; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, `value` or `parity` is null
 * @retval other                   the stream's own failure; the checksum is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_read10BitParityWord(KIVCS2Stream *stream, bool skip,
                                                                 uint8_t *value, uint8_t *parity,
                                                                 uint32_t *checksum);

/**
 * Reads one 8-bit word as kivCS2ClosedCaptions_read8BitWord() does and compares it.
 * @retval KIVCS2STATUS_DATA_ERR   the byte is not `expected`; it is consumed and counted
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 * @retval other                   the stream's own failure
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_validate8BitWord(KIVCS2Stream *stream, uint8_t expected,
                                                              uint32_t *checksum);

/**
 * Reads one 10-bit word as kivCS2ClosedCaptions_read10BitParityWord() does and compares both the
 * data bits and the two parity bits.
 * @retval KIVCS2STATUS_DATA_ERR   the word is not the expected one; it is consumed and counted
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 * @retval other                   the stream's own failure
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_validate10BitParityWord(KIVCS2Stream *stream, bool skip,
                                                                     uint8_t expected, uint8_t expectedParity,
                                                                     uint32_t *checksum);

/**
 * Extracts the CDP from a caption packet (DID 0x61, SDID 0x01) at the stream's position.
 *
 * The packet's data count goes into `*bufferSize` (8 more with atom, in 8 bits: a count above 247 wraps and
 * is refused), and its user data words into `buffer`. The checksum of a 10-bit packet is always compared;
 * that of an 8-bit packet only if at least one more byte follows it in the stream. The stream is left one
 * byte past the packet, if there is such a byte. If the data end early, the bit reader delivers the last byte
 * again.
 * A word format above 3 succeeds without any effect.
 * @param[in,out] stream      at the data flag, or at the DID
 * @param[in]     format      KIVCS2CaptionANCFormat
 * @param[in]     withAtom    stores the atom header in front of the CDP
 * @param[out]    buffer      at least `*bufferSize` bytes
 * @param[in,out] bufferSize  in: room in bytes; out: bytes stored, set once the room is known to suffice
 * @retval KIVCS2STATUS_DATA_ERR         no caption packet here, or its checksum is wrong
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  the CDP (and atom) does not fit, or its size wrapped
 * @retval KIVCS2STATUS_PARAM_ERR        `stream`, `buffer` or `bufferSize` is null
 * @retval other                         the stream's own failure
 * Source: SMPTE ST 291-1, SMPTE ST 334-1.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
    KIVCS2Stream *stream, KIVCS2CaptionANCFormat format, bool withAtom, uint8_t *buffer,
    uint32_t *bufferSize);

/**
 * Extracts the first CDP from wrapped ancillary data. Of the line records, those of lines 4, 9 and 21 with a
 * sample coding of 4 to 9 are tried in turn, each with the room the caller gave. A line without a valid
 * packet, or with a payload that reaches past the stream's end, is skipped.
 *
 * The stream must support relative positioning, and its kivCS2Stream_getBytes() must not move the position: a
 * memory stream qualifies. It is left in front of the payload of the line that held the CDP.
 * @param[in,out] stream      at the line count of a frame
 * @param[in]     withAtom    stores the atom header in front of the CDP
 * @param[out]    buffer      at least `*bufferSize` bytes
 * @param[in,out] bufferSize  in: room in bytes; out: bytes stored; unchanged on failure
 * @retval KIVCS2STATUS_DATA_ERR    no line held a CDP
 * @retval KIVCS2STATUS_FORMAT_ERR  the line count or a line's header is cut short
 * @retval KIVCS2STATUS_PARAM_ERR   `stream`, `buffer` or `bufferSize` is null
 * @retval other                    the stream's own failure
 * Source: SMPTE ST 436-1.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE436MStream(
    KIVCS2Stream *stream, bool withAtom, uint8_t *buffer, uint32_t *bufferSize);

/**
 * Writes the header of a QuickTime caption atom and advances `*buffer` by its 8 bytes.
 * @param[in,out] buffer    in: where to write; out: the byte after the header
 * @param[in]     atomSize  bytes of the whole atom, these 8 included
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  `atomSize` is below 8; nothing is written
 * @retval KIVCS2STATUS_PARAM_ERR        `buffer` or `*buffer` is null
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_writeQuickTimeAtom(uint8_t **buffer, uint32_t atomSize);

/**
 * Extracts the CEA-608 pairs of field 1 and field 2 from a CDP, each as two bytes in memory order. A field
 * without a valid triplet gives 80 80; of several triplets the last counts. The packet's checksum and
 * counters are not checked.
 * @param[in]  buffer708      the CDP, `bufferSize708` bytes, the atom header in front included
 * @param[in]  bufferSize708  bytes of `buffer708`
 * @param[in]  withAtom       an atom header precedes the CDP
 * @param[out] buffer608      field 1, then field 2; set before the packet is read
 * @param[in]  bufferSize608  bytes of room in `buffer608`, at least 4
 * @retval KIVCS2STATUS_EOF_ERR          no valid triplet of field 1; one of field 2 does not suffice
 * @retval KIVCS2STATUS_DATA_ERR         not a CDP, or an unknown section
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  no room, or the CDP or a section of it is cut short
 * @retval KIVCS2STATUS_PARAM_ERR        a pointer is null
 * Thread safety: any thread. Source: SMPTE ST 334-2, CEA-708.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet(
    const uint8_t *buffer708, uint32_t bufferSize708, bool withAtom, uint16_t *buffer608,
    const uint32_t *bufferSize608);

/**
 * The same as kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708PacketFormat() with the SDI flag
 * cleared: the packet has KIVCS2_CDP_SIZE bytes.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(
    const uint16_t *buffer608, uint32_t bufferSize608, uint8_t *buffer708, uint32_t *bufferSize708,
    uint16_t sequenceNumber);

/**
 * Makes a CDP without atom from one or two CEA-608 pairs, at 29.97 frames per second with 20
 * triplets, and sets its counters and its checksum. A field that was not given carries 80 80.
 * @param[in]     buffer608       field 1, then field 2 if given, in memory order
 * @param[in]     bufferSize608   2 or 4 bytes
 * @param[out]    buffer708       the packet
 * @param[in,out] bufferSize708   in: room in bytes; out: KIVCS2_CDP_SIZE or KIVCS2_CDP_SDI_SIZE
 * @param[in]     sequenceNumber  stored in both counters
 * @param[in]     sdi             the SDI form, whose second service has the language "eng"
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  neither 2 nor 4 bytes of pairs, or no room; nothing is written
 * @retval KIVCS2STATUS_PARAM_ERR        a pointer is null
 * Thread safety: any thread. Source: SMPTE ST 334-2.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708PacketFormat(
    const uint16_t *buffer608, uint32_t bufferSize608, uint8_t *buffer708, uint32_t *bufferSize708,
    uint16_t sequenceNumber, bool sdi);

/**
 * Makes a CDP with atom around CEA-708 triplets and sets its counters and its checksum.
 *
 * The header always declares 20 triplets, so only a `bufferSize708Data` of 60 makes a consistent packet, of
 * 90 bytes. Offsets and the stored size are taken modulo 256.
 * The room is only compared with 82. **The caller must give KIVCS2_CDP_ROOM_FOR_708_DATA(bufferSize708Data)
 * bytes**, and never less than 82.
 * @param[in]     buffer708Data      `bufferSize708Data` bytes of triplets, not overlapping `buffer708`
 * @param[in]     bufferSize708Data  bytes of `buffer708Data`
 * @param[out]    buffer708          the packet
 * @param[in,out] bufferSize708      in: room in bytes; out: 30 + `bufferSize708Data`, modulo 256
 * @param[in]     sequenceNumber     stored in both counters
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  the room is below 82: nothing is written; or the size modulo 256 is
 *                                       below 18: the packet is written without counters and checksum, and
 *                                       the size is not stored
 * @retval KIVCS2STATUS_PARAM_ERR        a pointer is null
 * Thread safety: any thread. Source: SMPTE ST 334-2.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_pack708CaptionsIntoSMPTE334CDP708Packet(
    const uint8_t *buffer708Data, uint32_t bufferSize708Data, uint8_t *buffer708, uint32_t *bufferSize708,
    uint16_t sequenceNumber);

/**
 * Sets a CDP's two sequence counters and then its checksum, so that its bytes sum to 0 modulo 256. The
 * footer's place follows only from the size; the atom is not part of the sum.
 * @param[in]     withAtom           an atom header precedes the CDP
 * @param[in,out] buffer708Data      the packet, atom header in front included
 * @param[in]     bufferSize708Data  its bytes: at least 10, with atom 18
 * @param[in]     sequenceNumber     stored in both counters, big-endian
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  fewer bytes; nothing is written
 * @retval KIVCS2STATUS_PARAM_ERR        `buffer708Data` is null
 * Thread safety: any thread. Source: SMPTE ST 334-2.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_setSMPTE334CDP708PacketSequenceNumber(bool withAtom,
                                                                                   uint8_t *buffer708Data,
                                                                                   uint32_t bufferSize708Data,
                                                                                   uint16_t sequenceNumber);

/**
 * Converts a CDP to a CEA-708 caption data block: 0xC0 | cc_count, 0xFF, then every triplet, valid or not.
 * The packet is read to its end; its checksum is not checked. A packet without caption data succeeds and
 * leaves the size unchanged. After a failure that is found once the room was accepted, the block and its size
 * stay as far as they were written: of a section that is cut short, its whole triplets.
 * @param[in]     bufferCDP708      the CDP, the atom header in front included
 * @param[in]     bufferSizeCDP708  bytes of `bufferCDP708`
 * @param[in]     withAtom          an atom header precedes the CDP
 * @param[out]    bufferCEA708      the block; null to get only its size
 * @param[in,out] bufferSizeCEA708  in: room in bytes; out: cc_count * 3 + 2, at most 95
 * @retval KIVCS2STATUS_DATA_ERR         not a CDP, or an unknown section
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  no room, or the CDP or a section of it is cut short
 * @retval KIVCS2STATUS_PARAM_ERR        `bufferCDP708` or `bufferSizeCEA708` is null
 * Thread safety: any thread. Source: SMPTE ST 334-2, CEA-708.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_convertSMPTE334CDP708PacketToCEA708DPacket(
    const uint8_t *bufferCDP708, uint32_t bufferSizeCDP708, bool withAtom, uint8_t *bufferCEA708,
    uint32_t *bufferSizeCEA708);

/**
 * Reads the next line of a caption file. A line ends at a line feed or a carriage return, which
 * is not kept, or at the end of the input; empty lines and lines that begin with "//" are skipped. No byte
 * after the line is consumed.
 * @param[in,out] stream  any kind
 * @param[out]    buffer  the line, zero-terminated
 * @param[in,out] size    in: room in bytes, terminator included; out: length of the line without it
 * @retval KIVCS2STATUS_NO_DATA_ERR    no further line; a failing read counts as the end as well
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  the line (also a comment line) has `*size` characters or more: that
 *                                     many are consumed, and the next call continues after them
 * @retval KIVCS2STATUS_PARAM_ERR      a pointer is null
 * On failure `*size` is unchanged.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_readLine(KIVCS2Stream *stream, char *buffer, uint32_t *size);

/**
 * Stores the current local time, formatted in the locale "en_US" with the caller's pattern.
 * @param[in]  format  a date pattern of Unicode TS 35, "HH:mm:ss" for example
 * @param[out] result  a new zero-terminated text; release it with kivCS2String_freeCString()
 * @retval KIVCS2STATUS_DATA_ERR     the locale, the formatter or the string could not be made
 * @retval KIVCS2STATUS_CAPTION_ERR  the text is empty or does not convert to ASCII
 * @retval KIVCS2STATUS_MEMORY_ERR   no room for the text
 * @retval KIVCS2STATUS_PARAM_ERR    `format` or `result` is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptions_createDateStringWithFormat(CFStringRef format, char **result);

/* ---- MCC caption files ---- */

/** The contents of a caption record; bits of KIVCS2ClosedCaption::m_flags. */
typedef uint32_t KIVCS2ClosedCaptionFlag;
enum
{
    KIVCS2ClosedCaptionFlag_Valid = 0x1,    /**< the record holds a caption */
    KIVCS2ClosedCaptionFlag_HasField = 0x2, /**< the line has a field suffix, in `m_field` */
    KIVCS2ClosedCaptionFlag_HasNumber = 0x4 /**< the line has a number suffix, in `m_number` */
};

/** Room for the bytes of one caption. Reading stores at most 259: DID, SDID, DC, 255 words, checksum. */
#define KIVCS2_CLOSED_CAPTION_DATA_SIZE 264

/** One line of a caption file. A plain value: it owns nothing and may be copied. */
typedef struct KIVCS2ClosedCaption
{
    KIVCS2Timecode m_timecode;    /**< timecode of the line, without a date */
    KIVCS2Timecode m_endTimecode; /**< first frame after the caption; SCC only, otherwise 0 */
    uint32_t m_flags;             /**< bits of KIVCS2ClosedCaptionFlag */
    uint32_t m_field;             /**< field suffix: 0 or 1 */
    uint32_t m_number;            /**< number suffix (MCC version 2) */
    uint32_t m_captionSize;       /**< bytes held in `m_captionData` */
    /** MCC: one ancillary packet (DID, SDID, DC, words, checksum). SCC: CEA-608 pairs with parity. */
    uint8_t m_captionData[KIVCS2_CLOSED_CAPTION_DATA_SIZE];
} KIVCS2ClosedCaption;

/**
 * An MCC file being read or written, or an SCC file being read. The caller owns the record; it
 * either reads or writes for its whole life. One thread at a time.
 *
 * Reading: init, readHeader, readCaptionForTimecode with rising timecodes, reset to start again,
 * free. Writing: init, writeHeader, writeCaption for each caption, free. Set the module-wide rate
 * with kivCS2Timecode_setFrameRate() first: timecodes are read and written with it, whatever rate
 * the file names.
 */
typedef struct KIVCS2ClosedCaptionsMCCStream
{
    bool m_reading;                /**< true: the file is read; false: it is written */
    bool m_ownsStream;             /**< true: freeing this record frees the stream as well */
    uint32_t m_version;            /**< MCC version, 1 or 2, known after the header; 0 for SCC */
    uint32_t m_frameRate;          /**< KIVCS2FrameRate that the MCC header names; not used for timecodes */
    KIVCS2Stream *m_stream;        /**< the file; not owned unless `m_ownsStream` */
    KIVCS2ClosedCaption m_caption; /**< the pending caption: read, and not yet passed */
} KIVCS2ClosedCaptionsMCCStream;

/**
 * Prepares `mcc` for a file: clears the record and stores the three arguments. With `ownsStream`
 * kivCS2ClosedCaptionsMCCStream_free() also frees the stream; otherwise it must outlive the record.
 * @param[out] mcc         released by kivCS2ClosedCaptionsMCCStream_free()
 * @param[in]  stream      positioned at the start of the file
 * @param[in]  reading     true to read, false to write
 * @param[in]  ownsStream  freeing the record frees the stream too
 * @retval KIVCS2STATUS_PARAM_ERR  `mcc` or `stream` is null
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_init(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                           KIVCS2Stream *stream, bool reading,
                                                           bool ownsStream);

/**
 * Reads the header up to and including the first caption line, which is then pending. Stores the
 * version and the rate that the file names; lines that are neither the rate nor a caption (the
 * comment block, UUID, creation lines) are skipped. "30DF" and "60DF" are recorded as 30 and 60.
 * @retval KIVCS2STATUS_PARAM_ERR       `mcc` is null or is a writer
 * @retval KIVCS2STATUS_HEADER_ERR      the first line does not name MCC version 1.0 or 2.0
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  the file's rate is not 24, 25, 30, 50 or 60, and `m_frameRate` is 0;
 *                                      or no module-wide rate is set and a line that looks like a caption was
 *                                      reached: set a rate (`m_frameRate` names it except for drop-frame) and
 *                                      call `reset`
 * @retval KIVCS2STATUS_NO_DATA_ERR     the file ended before the first caption; a failing read counts as the
 *                                      end, and the line that it cuts off counts as the last line
 * @retval KIVCS2STATUS_NOT_FOUND_ERR   a line of 1024 characters or more
 * After a failure nothing is pending; `reset` does not read the header again.
 * Source: MacCaption MCC 1.0 and 2.0.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_readHeader(KIVCS2ClosedCaptionsMCCStream *mcc);

/**
 * Writes the header: format line, comment block, UUID, creation program, date, time and the rate of
 * the module-wide frame rate (24, 25, 29.97 as "30DF", 30, 50, 59.94 as "60DF", 60).
 * @param[in,out] mcc              a writer
 * @param[in]     version          1 or 2; 2 allows the field and number suffixes
 * @param[in]     uuid             text, or null for a new UUID
 * @param[in]     applicationName  written after "Creation Program="
 * @param[in]     date             text, or null for today, as in "Monday, March 4, 2024"
 * @param[in]     time             text, or null for now, as in "17:05:00"
 * @retval KIVCS2STATUS_PARAM_ERR       `mcc` or `applicationName` is null, `mcc` is a reader, or `version` is
 *                                      not 1 or 2
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  23.98 or no rate is set; everything before the rate is written
 * @return otherwise the first failing status of the stream, with the earlier items written
 * Source: MacCaption MCC 1.0 and 2.0.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_writeHeader(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                  uint32_t version, const char *uuid,
                                                                  const char *applicationName,
                                                                  const char *date, const char *time);

/**
 * Stores the caption of the frame `timecode` in `caption`, reading forward as far as needed. Only frame
 * counts are compared; dates are ignored. The caption stays pending, so a second request for it succeeds too;
 * of several lines with one timecode only the first is returned. An earlier timecode never rewinds
 * (kivCS2ClosedCaptionsMCCStream_reset() does). On failure `caption` is cleared.
 *
 * How to read a whole file: request every frame from the first caption's on, and check the pending caption.
 *
 *     KIVCS2Timecode frame = mcc.m_caption.m_timecode;
 *     do
 *     {
 *         status = kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(&mcc, &frame, &caption);
 *         if (status == KIVCS2STATUS_NO_DATA_ERR)
 *             return KIVCS2STATUS_OK;
 *         if (KIVCS2_SUCCEEDED(status))
 *             use(&caption);
 *         else if (status != KIVCS2STATUS_NOT_FOUND_ERR ||
 *                  (mcc.m_caption.m_flags & KIVCS2ClosedCaptionFlag_Valid) == 0 ||
 *                  (uint32_t)mcc.m_caption.m_timecode < (uint32_t)frame)
 *             return status;
 *         status = kivCS2Timecode_tick(&frame);
 *     } while (KIVCS2_SUCCEEDED(status) && (uint32_t)frame != 0);
 *
 * KIVCS2STATUS_NOT_FOUND_ERR has four meanings. The pending caption, `mcc->m_caption`, distinguishes them:
 * - it is valid and later than `timecode`: there is no caption on this frame; continue with the next frame
 * - it is valid and earlier: the next line has 1024 characters or more. They are lost, and the next call
 *   continues after them
 * - it is not valid: the next line was not a caption (a note; a space in place of the tab)
 * - it is not valid, and nothing was read: an earlier call had failed. Only `reset` helps
 * @retval KIVCS2STATUS_PARAM_ERR       an argument is null, or `mcc` is a writer
 * @retval KIVCS2STATUS_NOT_FOUND_ERR   as above
 * @retval KIVCS2STATUS_NO_DATA_ERR     the file ended, or a read failed; the last caption stays pending, and
 *                                      every further request past it has the same status
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no module-wide rate is set
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR, KIVCS2STATUS_CAPTION_ERR, KIVCS2STATUS_OVERFLOW_ERR  a line
 *         that does not decode, as for kivCS2ClosedCaptionsMCCStream_decodeCaption(); nothing is pending
 *         until `reset`
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(
    KIVCS2ClosedCaptionsMCCStream *mcc, const KIVCS2Timecode *timecode, KIVCS2ClosedCaption *caption);

/**
 * Appends the line of `caption`: the timecode, in version 2 the suffixes that its flags name, and the packet
 * with the letter compression. The line's end is written with the next line. Nothing is rolled back if the
 * stream fails. A short write that the stream reports as a success is not detected.
 * @retval KIVCS2STATUS_PARAM_ERR   an argument is null, `mcc` is a reader, or `m_captionSize` is above 264
 * @retval KIVCS2STATUS_FORMAT_ERR  a field suffix in version 1, or a field other than 0 and 1
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the caption's timecode is invalid
 * @return otherwise the status of the failing write; no other failure writes anything
 * Source: MacCaption MCC 1.0 and 2.0.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_writeCaption(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                   const KIVCS2ClosedCaption *caption);

/**
 * Decodes one line into the pending caption. Only upper-case hexadecimal digits and the letters G to Z are
 * accepted. A number suffix of more than 32 bits keeps its low 32.
 * @param[in,out] mcc     its `m_caption` gets the caption
 * @param[in]     line    `length` characters without a line end; needs no terminator
 * @param[in]     length  characters of `line`
 * @retval KIVCS2STATUS_PARAM_ERR      `mcc` or `line` is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  too short, no timecode, a bad suffix, or no tab after it
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the timecode names no frame of the module-wide rate
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no module-wide rate is set
 * @retval KIVCS2STATUS_CAPTION_ERR    a character without a meaning; that includes lower-case digits
 * @retval KIVCS2STATUS_OVERFLOW_ERR   more than 259 bytes
 * After a failure nothing is pending; the bytes decoded so far stay in the record.
 * Source: MacCaption MCC 1.0 and 2.0.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_decodeCaption(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                    const char *line, uint32_t length);

/**
 * Appends half a byte to the pending caption, the high half first. A byte counts in `m_captionSize`
 * once its low half is stored.
 * @param[in,out] mcc      its `m_caption` gets the half byte
 * @param[in,out] lowHalf  which half comes next; false at the start of a caption
 * @param[in]     nibble   the low 4 bits count
 * @retval KIVCS2STATUS_PARAM_ERR     `mcc` or `lowHalf` is null
 * @retval KIVCS2STATUS_OVERFLOW_ERR  the caption holds 259 bytes; it is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_writeNibble(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                  bool *lowHalf, uint8_t nibble);

/**
 * Makes `caption` from a caption distribution packet: DID 0x61, SDID 0x01, the count, the packet
 * and the 8-bit checksum.
 * @param[in]  mcc          only checked for null
 * @param[out] caption      the record; valid, without suffixes
 * @param[in]  timecode     of the line; copied
 * @param[in]  captionData  the CDP, `captionSize` bytes, copied
 * @param[in]  captionSize  at most 255
 * @retval KIVCS2STATUS_PARAM_ERR  an argument is null, or `captionSize` is above 255; `caption` is untouched
 * Source: SMPTE 334-1, SMPTE 291M.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_initCaptionWithSMPTE334CDP708Packet(
    KIVCS2ClosedCaptionsMCCStream *mcc, KIVCS2ClosedCaption *caption, const KIVCS2Timecode *timecode,
    const uint8_t *captionData, uint32_t captionSize);

/**
 * Extracts the caption distribution packet from `caption`, as
 * kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream() does from a stream of 8-bit
 * words without data flag.
 * @param[in]     mcc         only checked for null
 * @param[in]     caption     a line of an MCC file
 * @param[in]     withAtom    put a QuickTime "ccdp" atom header in front
 * @param[out]    buffer      at least `*bufferSize` bytes
 * @param[in,out] bufferSize  in: room in bytes; out: the bytes stored
 * @retval KIVCS2STATUS_PARAM_ERR   an argument is null, or `m_captionSize` is above 264
 * @retval KIVCS2STATUS_FORMAT_ERR  `caption` does not hold a caption distribution packet
 * @return otherwise the status of the extraction
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_extractSMPTE334CDP708PacketFromCaption(
    KIVCS2ClosedCaptionsMCCStream *mcc, const KIVCS2ClosedCaption *caption, bool withAtom, uint8_t *buffer,
    uint32_t *bufferSize);

/**
 * Clears `caption`.
 * @retval KIVCS2STATUS_PARAM_ERR  an argument is null
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_freeCaption(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                  KIVCS2ClosedCaption *caption);

/**
 * Rewinds a file being read and makes its first caption pending. The header's version and rate are kept.
 * @retval KIVCS2STATUS_PARAM_ERR       `mcc` is null or is a writer
 * @retval KIVCS2STATUS_NO_DATA_ERR     the file holds no caption; a failing read counts as its end
 * @retval KIVCS2STATUS_NOT_FOUND_ERR   a line of 1024 characters or more before the first caption
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no module-wide rate is set
 * @return otherwise the status of the failing seek, with the pending caption kept
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_reset(KIVCS2ClosedCaptionsMCCStream *mcc);

/**
 * Frees the stream if the record owns it (its status is ignored) and clears the record, which may be
 * initialised again; a second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `mcc` is null
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsMCCStream_free(KIVCS2ClosedCaptionsMCCStream *mcc);

/* ---- SCC caption files ---- */

/*
 * An SCC file carries CEA-608 pairs, one pair for each video frame from the line's timecode on, and names no
 * rate: the module-wide rate counts. It is read with the record of the MCC reader, whose
 * kivCS2ClosedCaptionsMCCStream_freeCaption() and kivCS2ClosedCaptionsMCCStream_free() release it.
 */

/** The same as kivCS2ClosedCaptionsMCCStream_init(). There is no SCC writer. */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsSCCStream_init(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                           KIVCS2Stream *stream, bool reading,
                                                           bool ownsStream);

/**
 * Checks the first line and reads up to and including the first caption line, which is then pending.
 * @retval KIVCS2STATUS_PARAM_ERR       `mcc` is null or is a writer
 * @retval KIVCS2STATUS_HEADER_ERR      the first line does not begin with "Scenarist_SCC V1.0"
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no module-wide rate is set and a line that looks like a caption
 *                                      was reached: set a rate and call `reset`
 * @retval KIVCS2STATUS_NO_DATA_ERR     the file ended before the first caption; a failing read counts as the
 *                                      end, and the line that it cuts off counts as the last line
 * @retval KIVCS2STATUS_NOT_FOUND_ERR   a line of 1024 characters or more
 * Source: Scenarist Closed Caption 1.0.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsSCCStream_readHeader(KIVCS2ClosedCaptionsMCCStream *mcc);

/**
 * Decodes one line into the pending caption, whose end is the frame after its last pair. Upper-case and
 * lower-case hexadecimal digits are accepted; after the tab, spaces are skipped.
 * @param[in,out] mcc     its `m_caption` gets the caption
 * @param[in]     line    `length` characters without a line end; needs no terminator
 * @param[in]     length  characters of `line`
 * @retval KIVCS2STATUS_PARAM_ERR      `mcc` or `line` is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  too short, no timecode, or no tab after it
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the timecode names no frame of the module-wide rate
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no module-wide rate is set
 * @retval KIVCS2STATUS_CAPTION_ERR    a character that is neither a digit nor a space
 * @retval KIVCS2STATUS_OVERFLOW_ERR   more than 259 bytes
 * After a failure nothing is pending; the bytes decoded so far stay in the record.
 * Source: Scenarist Closed Caption 1.0, CEA-608.
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsSCCStream_decodeCaption(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                    const char *line, uint32_t length);

/**
 * Stores in `caption` the pair that falls on the frame `timecode`: the record of the line with the timecode
 * moved to that frame, the pair in the first two bytes and a size of 2; the bytes after them have no meaning.
 * Reads forward as far as needed and never rewinds. Only frame counts are compared, so a caption that reaches
 * midnight, with its last pair on the last frame of the day or later, is never returned, none of its pairs.
 * On failure `caption` is cleared.
 *
 * How to read a whole file: use the loop at kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(), with its
 * test of `m_caption.m_flags & KIVCS2ClosedCaptionFlag_Valid`. KIVCS2STATUS_NOT_FOUND_ERR has the same four
 * meanings, distinguished in the same way; in the first of them the pending caption may also begin on this
 * very frame: then it has no pairs, or it reaches midnight and is never returned. Examples/scc_to_mcc.c reads
 * a file in this way.
 * @retval KIVCS2STATUS_PARAM_ERR       an argument is null, or `mcc` is a writer
 * @retval KIVCS2STATUS_NOT_FOUND_ERR   as above
 * @retval KIVCS2STATUS_NO_DATA_ERR     the file ended, or a read failed; the last caption stays pending, and
 *                                      every further request past it has the same status
 * @retval KIVCS2STATUS_DATA_ERR        the pending caption was written by the caller and ends past its data
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no module-wide rate is set
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR, KIVCS2STATUS_CAPTION_ERR, KIVCS2STATUS_OVERFLOW_ERR  a line
 *         that does not decode, as for kivCS2ClosedCaptionsSCCStream_decodeCaption(); nothing is pending
 *         until `reset`
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode(
    KIVCS2ClosedCaptionsMCCStream *mcc, const KIVCS2Timecode *timecode, KIVCS2ClosedCaption *caption);

/**
 * Rewinds the file and makes its first caption pending.
 * @retval KIVCS2STATUS_PARAM_ERR       `mcc` is null or is a writer
 * @retval KIVCS2STATUS_NO_DATA_ERR     the file holds no caption; a failing read counts as its end
 * @retval KIVCS2STATUS_NOT_FOUND_ERR   a line of 1024 characters or more before the first caption
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no module-wide rate is set
 * @return otherwise the status of the failing seek, with the pending caption kept
 */
KIVCS2_API KIVCS2Status kivCS2ClosedCaptionsSCCStream_reset(KIVCS2ClosedCaptionsMCCStream *mcc);

KIVCS2_END_DECLS

#endif
