/**
 * @file
 * Caption files as they are in the field. SCC and MCC are read, faults included, and written; SRT and
 * WebVTT are only written.
 *
 * Reading: initReading, readHeader (optional: the first readPacket does it), readPacket until
 * KIVCS2STATUS_EOF_ERR, free. A fault that loses little or nothing is tolerated. It is counted and
 * reported to the options' callback with line and column; with `m_strict` the first fault ends the
 * read. Docs/captions.md has a row for each fault.
 *
 * @code
 * char scc[] = "Scenarist_SCC V1.0\n\n00:00:01;00\t942c 942c\n";
 * KIVCS2MemoryStream stream; // or a KIVCS2FileStream
 * KIVCS2CaptionFile file;
 * KIVCS2CaptionPacket packet;
 * KIVCS2Status status;
 * kivCS2MemoryStream_initWithBytes(&stream, scc, sizeof scc - 1);
 * if (KIVCS2_FAILED(kivCS2CaptionFile_initReading(&file, &stream.m_stream, false, NULL)))
 *     return 1;
 * while (KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(&file, &packet)))
 *     printf("%u ", packet.m_frame); // prints: 30 31
 * kivCS2CaptionFile_free(&file);
 * kivCS2MemoryStream_free(&stream.m_stream);
 * if (status != KIVCS2STATUS_EOF_ERR)
 *     return 1; // the file was not read to its end
 * @endcode
 *
 * Writing: initWriting, writeHeader, then writePacket, writeCaptions or writeText with rising frames,
 * finish, free. A file is complete only after finish has succeeded.
 *
 * The caller owns the record. A stream is read and written in blocks: its position is undefined until
 * the record is freed. A record belongs to one thread at a time; any number of records may be used in
 * parallel, each at its own rate. The module-wide rate of KIVCS2Timecode.h is neither read nor set. A
 * callback must not call an operation of the record that calls it.
 *
 * Memory is allocated only at init: less than 512 KiB, including the index for seeking. Order by frame
 * also needs a list of 24 bytes for each line, which grows during the pass that reads the whole file; an
 * MCC file that is in order needs no list.
 */
#ifndef KIVCS2_CAPTION_FILE_H
#define KIVCS2_CAPTION_FILE_H

#include "KIVCS2CaptionDecoder.h"
#include "KIVCS2CaptionPacket.h"
#include "KIVCS2Stream.h"

KIVCS2_BEGIN_DECLS

/** A kind of caption file. */
typedef uint32_t KIVCS2CaptionFileKind;
enum
{
    KIVCS2CaptionFileKind_FindOut = 0, /**< reading: take it from the file; writing: not allowed */
    KIVCS2CaptionFileKind_SCC = 1,
    KIVCS2CaptionFileKind_MCC1 = 2,
    KIVCS2CaptionFileKind_MCC2 = 3,   /**< lines may have suffixes: ".field" and ",number" */
    KIVCS2CaptionFileKind_SRT = 4,    /**< written only */
    KIVCS2CaptionFileKind_WebVTT = 5, /**< written only */
    KIVCS2CaptionFileKind_MAX = 6     /**< the count; not a kind */
};

/** A caption file being read or written. The members belong to the operations. */
typedef struct KIVCS2CaptionFile
{
    void *m_state; /**< null while not initialised; private */
} KIVCS2CaptionFile;

/** Room for the text found at a fault, including the terminator. */
#define KIVCS2_CAPTION_FOUND_SIZE 64u

/** One fault at one place; valid only during the callback. */
typedef struct KIVCS2CaptionFileFault
{
    KIVCS2CaptionFault m_fault;              /**< the cause */
    KIVCS2Status m_status;                   /**< the status of the fault; a strict read ends with it */
    uint64_t m_line;                         /**< from 1 */
    uint64_t m_offset;                       /**< bytes from the start of the file to the start of the line */
    uint32_t m_column;                       /**< characters from 1; 0 if the fault concerns the whole line */
    uint32_t m_frame;                        /**< frames since midnight, if `m_hasFrame` */
    bool m_hasFrame;                         /**< the line has a timecode */
    bool m_lost;                             /**< a line, a pair or a part of a packet is lost */
    uint16_t m_foundSize;                    /**< bytes in `m_found`, without the terminator */
    const char *m_expected;                  /**< the text expected here; static */
    char m_found[KIVCS2_CAPTION_FOUND_SIZE]; /**< the text of the file here, unchanged; zero-terminated */
    uint8_t m_reserved[20];                  /**< reserved */
} KIVCS2CaptionFileFault;

/** Receives a fault. After KIVCS2STATUS_OK the read goes on; a failure ends the call and is its result. */
typedef KIVCS2Status (*KIVCS2CaptionFaultFunc)(const KIVCS2CaptionFileFault *fault, void *context);

/** The order in which packets are returned. */
typedef uint32_t KIVCS2CaptionOrder;
enum
{
    KIVCS2CaptionOrder_File = 0, /**< as in the file */
    /** By frame: the pairs of an SCC line wait for those of the line before. A line more than half a day
     *  earlier than the first line of the file belongs to the next day. */
    KIVCS2CaptionOrder_Frame = 1
};

/** Options of reading. Zero in every member is the tolerant default. */
typedef struct KIVCS2CaptionReadOptions
{
    KIVCS2CaptionFileKind m_kind;     /**< SCC or MCC, if the caller knows it */
    KIVCS2CaptionCounting m_counting; /**< overrides the file's */
    uint32_t m_field;                 /**< SCC: field of the pairs, 1, 2, or 0 to take it from the codes */
    KIVCS2CaptionOrder m_order;       /**< the order in which packets are returned */
    bool m_strict;                    /**< the first fault ends the read with its status */
    bool m_bothTracks;                /**< SCC words of 8 digits: the second track goes to the other field */
    uint8_t m_reserved1[6];           /**< reserved: 0 */
    KIVCS2CaptionFaultFunc m_onFault; /**< may be null */
    void *m_context;                  /**< passed to `m_onFault` */
    uint8_t m_reserved[8];            /**< reserved: 0 */
} KIVCS2CaptionReadOptions;

/** Room for a text of a header, including the terminator. */
#define KIVCS2_CAPTION_HEADER_SIZE 256u

/** The source of a counting. */
typedef uint32_t KIVCS2CaptionReason;
enum
{
    KIVCS2CaptionReason_None = 0,
    KIVCS2CaptionReason_Caller = 1,   /**< the options name it */
    KIVCS2CaptionReason_Header = 2,   /**< the line "Time Code Rate=" */
    KIVCS2CaptionReason_Packets = 3,  /**< the rate code of the CDPs */
    KIVCS2CaptionReason_Separator = 4 /**< the separators before the frames: ";" means drop-frame */
};

/** The header of a caption file. Missing texts are empty. */
typedef struct KIVCS2CaptionFileHeader
{
    KIVCS2CaptionFileKind m_kind;            /**< SCC, MCC1 or MCC2 */
    KIVCS2CaptionCounting m_counting;        /**< the counting in force */
    KIVCS2CaptionReason m_reason;            /**< its source */
    uint32_t m_field;                        /**< field of an SCC file: 1 or 2; 0 otherwise */
    uint64_t m_firstLine;                    /**< the line of the first caption; 0 if there is no caption */
    uint32_t m_otherLines;                   /**< number of header lines without one of these texts */
    char m_rate[32];                         /**< the text after "Time Code Rate=" */
    char m_uuid[KIVCS2_CAPTION_HEADER_SIZE]; /**< the text after "UUID=" */
    char m_program[KIVCS2_CAPTION_HEADER_SIZE]; /**< the text after "Creation Program=" */
    char m_date[KIVCS2_CAPTION_HEADER_SIZE];    /**< the text after "Creation Date=" */
    char m_time[KIVCS2_CAPTION_HEADER_SIZE];    /**< the text after "Creation Time=" */
    char m_others[KIVCS2_CAPTION_HEADER_SIZE *
                  4];       /**< the other lines, each with a line feed; cut if longer */
    uint8_t m_reserved[36]; /**< reserved */
} KIVCS2CaptionFileHeader;

/** Totals of a reader so far. */
typedef struct KIVCS2CaptionFileReport
{
    uint64_t m_lines;       /**< lines of the file, including blank lines and comments */
    uint64_t m_packets;     /**< packets returned; in an SCC file each pair is a packet */
    uint64_t m_cdps;        /**< packets returned that have a CDP */
    uint64_t m_lostLines;   /**< caption lines without a packet */
    uint64_t m_lostPairs;   /**< SCC words without a pair in lines that were kept */
    uint64_t m_faults;      /**< places with a fault; several faults in a line count each */
    uint64_t m_gapFrames;   /**< frames without a packet between the first and the last */
    uint32_t m_firstFrame;  /**< frame of the first packet; 0 if there is no packet */
    uint32_t m_lastFrame;   /**< frame of the last packet so far */
    uint8_t m_reserved[32]; /**< reserved */
} KIVCS2CaptionFileReport;

/**
 * Makes a reader that begins at the current position of `stream`. Nothing is read yet.
 * @param[out]    file        released by kivCS2CaptionFile_free()
 * @param[in,out] stream      readable; must live until `free` unless it is owned
 * @param[in]     ownsStream  the reader frees the stream with kivCS2Stream_free(), unless this call fails
 * @param[in]     options     copied; null for the defaults
 * @retval KIVCS2STATUS_PARAM_ERR        `file` or `stream` is null, or an option is out of its range
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  order by frame, but the stream cannot be positioned
 * @retval KIVCS2STATUS_MEMORY_ERR       out of memory
 * On failure the record is empty and the stream stays the caller's.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_initReading(KIVCS2CaptionFile *file, KIVCS2Stream *stream,
                                                      bool ownsStream,
                                                      const KIVCS2CaptionReadOptions *options);

/**
 * Reads the header once; later calls return the same header. The rate of an MCC file comes from the
 * caller, else from "Time Code Rate=", else from the CDPs. The rate of an SCC file comes from the
 * caller, else from the separators of its lines.
 * @param[in,out] file    a reader
 * @param[out]    header  may be null
 * @retval KIVCS2STATUS_HEADER_ERR      not a caption file, or UTF-16
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  the counting is unknown, or most CDPs have another rate than the
 *                                      header and the caller names no counting
 * @retval KIVCS2STATUS_STATE_ERR       the record is a writer
 * @retval KIVCS2STATUS_PARAM_ERR       `file` is null or not initialised
 * @return otherwise the status of a fault (strict), of the callback or of the stream
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_readHeader(KIVCS2CaptionFile *file,
                                                     KIVCS2CaptionFileHeader *header);

/**
 * Reads the next packet. An MCC line is one packet; an SCC line has one packet for each pair.
 * @retval KIVCS2STATUS_EOF_ERR      after the last packet
 * @retval KIVCS2STATUS_NO_DATA_ERR  at the end of a file without any packet
 * @retval KIVCS2STATUS_STATE_ERR    the record is a writer
 * @retval KIVCS2STATUS_PARAM_ERR    `file` or `packet` is null, or `file` is not initialised
 * @return otherwise as kivCS2CaptionFile_readHeader(); after a failure of the stream or of a strict read,
 *         every later read fails with the same status
 * On failure `packet` is zeroed.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_readPacket(KIVCS2CaptionFile *file, KIVCS2CaptionPacket *packet);

/**
 * Moves to the first packet, in the order of reading, at `frame` or later: the next read returns it.
 * Lines passed over are not checked and not counted in the report. The index finds lines that were read
 * before; a seek beyond them reads on from the last of them. In a file that runs past midnight, a frame more
 * than half a day before the first line belongs to the next day; the file is read to its end once to
 * find out if it does.
 * @param[in,out] file   a reader
 * @param[in]     frame  frames since midnight
 * @retval KIVCS2STATUS_EOF_ERR          there is no such packet; the next read is at the end
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  the stream cannot be positioned; the position is unchanged
 * @return otherwise as kivCS2CaptionFile_readHeader()
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_seek(KIVCS2CaptionFile *file, uint32_t frame);

/**
 * Stores the totals so far.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `file` is not initialised
 * @retval KIVCS2STATUS_STATE_ERR  the record is a writer
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_getReport(const KIVCS2CaptionFile *file,
                                                    KIVCS2CaptionFileReport *report);

/**
 * Stores the number of places with a fault, and the first of these places.
 * @param[in]  file   a reader
 * @param[in]  fault  from 1 to KIVCS2CaptionFault_MAX - 1
 * @param[out] count  the number of places
 * @param[out] first  zeroed if `*count` is 0; its `m_expected` is static; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `file` or `count` is null, `file` is not initialised, or `fault` is
 *                                 not a fault
 * @retval KIVCS2STATUS_STATE_ERR  the record is a writer
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_getFaultCount(const KIVCS2CaptionFile *file,
                                                        KIVCS2CaptionFault fault, uint64_t *count,
                                                        KIVCS2CaptionFileFault *first);

/** Returns the name of a fault, for example "four-byte U"; null if `fault` is not a fault. Static text. */
KIVCS2_API const char *kivCS2CaptionFile_getFaultName(KIVCS2CaptionFault fault);

/** Returns the status of a fault; KIVCS2STATUS_PARAM_ERR if `fault` is not a fault. */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_getFaultStatus(KIVCS2CaptionFault fault);

/** Options of writing. Zero in every member is the default. */
typedef struct KIVCS2CaptionWriteOptions
{
    bool m_plainHex;   /**< MCC: only hex digits; otherwise all letters except U, whose length is disputed */
    bool m_everyFrame; /**< MCC, writeCaptions: empty packets in frames without captions; otherwise sparse */
    uint8_t m_reserved1[2];  /**< reserved: 0 */
    uint32_t m_field;        /**< SCC: the field whose pairs are written, 1 or 2; 0 means 1 */
    uint32_t m_timeZero;     /**< SRT, WebVTT: the frame that is 00:00:00.000 */
    uint32_t m_serviceCount; /**< writeCaptions: entries of `m_services` */
    const KIVCS2CaptionServiceEntry *m_services; /**< copied; null for service 1 without a language */
    uint8_t m_reserved[32];                      /**< reserved: 0 */
} KIVCS2CaptionWriteOptions;

/**
 * Makes a writer that begins at the current position of `stream`. Nothing is written yet.
 * @param[out]    file        released by kivCS2CaptionFile_free()
 * @param[in,out] stream      writable; must live until `free` unless it is owned
 * @param[in]     ownsStream  the writer frees the stream with kivCS2Stream_free(), unless this call fails
 * @param[in]     kind        any but KIVCS2CaptionFileKind_FindOut
 * @param[in]     counting    SCC: 29.97 with either numbering
 * @param[in]     options     copied; null for the defaults
 * @retval KIVCS2STATUS_PARAM_ERR       `file` or `stream` is null, or a kind or an option is out of range
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  `counting` is not a counting, or SCC does not allow it
 * @retval KIVCS2STATUS_MEMORY_ERR      out of memory
 * On failure the record is empty and the stream stays the caller's.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_initWriting(KIVCS2CaptionFile *file, KIVCS2Stream *stream,
                                                      bool ownsStream, KIVCS2CaptionFileKind kind,
                                                      KIVCS2CaptionCounting counting,
                                                      const KIVCS2CaptionWriteOptions *options);

/**
 * Writes the header once, before anything else. Kind and counting are those of initWriting.
 * @param[in,out] file    a writer
 * @param[in]     header  UUID, program, date and time of an MCC file. Empty texts are filled in, or all texts
 *                        if it is null: a new UUID, the library's name and the current time
 * @retval KIVCS2STATUS_PARAM_ERR  `file` is null or not initialised, or a text contains a line end
 * @retval KIVCS2STATUS_STATE_ERR  the record is a reader, or the header is already written
 * @retval KIVCS2STATUS_WRITE_ERR  the stream accepted only a part of the bytes
 * @return otherwise the stream's own failure
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_writeHeader(KIVCS2CaptionFile *file,
                                                      const KIVCS2CaptionFileHeader *header);

/**
 * Writes a packet. An MCC file gets its bytes unchanged, with its suffixes in version 2; an SCC file
 * gets the pairs of the options' field. An SCC file gets empty pairs (80 80) only between other pairs.
 * @retval KIVCS2STATUS_PARAM_ERR        a pointer is null or `file` is not initialised
 * @retval KIVCS2STATUS_STATE_ERR        the record is a reader, no header is written, or finish was called
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  SRT or WebVTT; or a packet without bytes (an SCC pair) for MCC
 * @retval KIVCS2STATUS_FORMAT_ERR       a suffix for MCC 1, or a field above 1
 * @return otherwise as kivCS2CaptionFile_writeHeader()
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_writePacket(KIVCS2CaptionFile *file,
                                                      const KIVCS2CaptionPacket *packet);

/**
 * Writes the captions of one frame. An MCC file gets a packet of kivCS2CaptionPacket_build() with the
 * next sequence number. From 50 frames a second on, a frame without pairs gets an empty pair: of field 1
 * if the frame is even, of field 2 if it is odd. An SCC file gets the pairs; if a frame has several, each
 * takes the next free frame.
 * @param[in,out] file   a writer of SCC or MCC
 * @param[in]     frame  frames since midnight
 * @param[in]     pairs  may be null
 * @param[in]     dtvcc  may be null
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  with `m_everyFrame`: `frame` is not above the last one
 * @return otherwise as kivCS2CaptionFile_writePacket() and kivCS2CaptionPacket_build()
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_writeCaptions(KIVCS2CaptionFile *file, uint32_t frame,
                                                        const KIVCS2CaptionPairs *pairs,
                                                        const KIVCS2CaptionDTVCC *dtvcc);

/**
 * Writes one cue of SRT or WebVTT: its times, its rows, italics, underline and colours, and its
 * position, in SRT as one of nine places. A cue more than half a day before the last cue, or before the
 * time zero, belongs to the next day: its time continues past 24 hours.
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR       another kind of file
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the cue begins before the time zero
 * @return otherwise as kivCS2CaptionFile_writePacket()
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_writeText(KIVCS2CaptionFile *file, const KIVCS2CaptionText *text);

/**
 * Writes the data that is still held back. Call it before free: without it the file is not complete.
 * @retval KIVCS2STATUS_STATE_ERR  the record is a reader, or no header is written
 * @return otherwise as kivCS2CaptionFile_writeHeader(); also a failure that an earlier call returned
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_finish(KIVCS2CaptionFile *file);

/**
 * Releases the record's memory, and the stream if it is owned, and clears the record, which may then be
 * initialised again. A second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `file` is null
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_free(KIVCS2CaptionFile *file);

KIVCS2_END_DECLS

#endif
