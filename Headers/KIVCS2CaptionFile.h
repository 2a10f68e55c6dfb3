/**
 * @file
 * Caption files as they are in the field: SCC and MCC read with their faults and written, SRT and
 * WebVTT written.
 *
 * Reading: initReading, readHeader (or not: the first readPacket does it), readPacket until
 * KIVCS2STATUS_EOF_ERR, free. What is wrong with a file is tolerated if nothing or little is lost by
 * it, counted, and reported to the options' callback with line and column; with `m_strict` the first
 * fault ends the read. Docs/captions.md has a row for each fault.
 *
 *     KIVCS2CaptionFile file;
 *     KIVCS2CaptionPacket packet;
 *     kivCS2CaptionFile_initReading(&file, &stream.m_stream, false, NULL);
 *     while (KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(&file, &packet)))
 *         kivCS2CaptionDecoder_feed(&decoder, &packet);
 *     kivCS2CaptionFile_free(&file);
 *
 * Writing: initWriting, writeHeader, then writePacket, writeCaptions or writeText with rising frames,
 * finish, free. A file is whole only after finish has succeeded.
 *
 * The caller owns the record, and a stream is read and written in blocks: its position is undefined
 * until the record is freed. A record belongs to one thread at a time; any number of records may be
 * used in parallel, each at its own rate. The module-wide rate of KIVCS2Timecode.h is neither read nor
 * set. A callback must not call an operation of the record that calls it.
 *
 * Memory is taken at init only: less than 512 KiB, the index for seeking included. Order by frame takes
 * a list of 24 bytes a line more, which grows while the file is read through for it; none for an MCC file
 * that is in order.
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
    KIVCS2CaptionFileKind_FindOut = 0, /**< reading: find out; writing: not allowed */
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
    void *m_state;
} KIVCS2CaptionFile;

/** Room for the text found at a fault, terminator included. */
#define KIVCS2_CAPTION_FOUND_SIZE 64u

/** One fault at one place. Valid during the callback. */
typedef struct KIVCS2CaptionFileFault
{
    KIVCS2CaptionFault m_fault;
    KIVCS2Status m_status;                   /**< the status of the fault: what ends a strict read */
    uint64_t m_line;                         /**< from 1 */
    uint64_t m_offset;                       /**< bytes from the start of the file to the start of the line */
    uint32_t m_column;                       /**< characters from 1; 0 if the fault is of the whole line */
    uint32_t m_frame;                        /**< frames since midnight, if `m_hasFrame` */
    bool m_hasFrame;                         /**< the line has a timecode */
    bool m_lost;                             /**< a line, a pair or a part of a packet was lost by it */
    uint16_t m_foundSize;                    /**< bytes in `m_found`, terminator not counted */
    const char *m_expected;                  /**< what should be there; static text */
    char m_found[KIVCS2_CAPTION_FOUND_SIZE]; /**< what is there, as it is in the file; zero-terminated */
    uint8_t m_reserved[20];
} KIVCS2CaptionFileFault;

/** Takes note of a fault. KIVCS2STATUS_OK goes on; a failure ends the call and is its result. */
typedef KIVCS2Status (*KIVCS2CaptionFaultFunc)(const KIVCS2CaptionFileFault *fault, void *context);

/** In which order packets come. */
typedef uint32_t KIVCS2CaptionOrder;
enum
{
    KIVCS2CaptionOrder_File = 0, /**< as they stand in the file */
    /** By frame: the pairs of an SCC line wait for the line before. A line more than half a day earlier than
     *  the first line of the file is of the next day. */
    KIVCS2CaptionOrder_Frame = 1
};

/** Options of reading. Zeroed is the tolerant default. */
typedef struct KIVCS2CaptionReadOptions
{
    KIVCS2CaptionFileKind m_kind;     /**< SCC or MCC, if the caller knows it */
    KIVCS2CaptionCounting m_counting; /**< overrules the file's */
    uint32_t m_field;                 /**< of the pairs of an SCC file: 1, 2, or 0 for what its codes say */
    KIVCS2CaptionOrder m_order;
    bool m_strict;     /**< the first fault ends the read with its status */
    bool m_bothTracks; /**< SCC words of 8 digits: the second track goes to the other field */
    uint8_t m_reserved1[6];
    KIVCS2CaptionFaultFunc m_onFault; /**< may be null */
    void *m_context;                  /**< of `m_onFault` */
    uint8_t m_reserved[8];
} KIVCS2CaptionReadOptions;

/** Room for a text of a header, terminator included. */
#define KIVCS2_CAPTION_HEADER_SIZE 256u

/** Why a counting was taken. */
typedef uint32_t KIVCS2CaptionReason;
enum
{
    KIVCS2CaptionReason_None = 0,
    KIVCS2CaptionReason_Caller = 1,   /**< the options name it */
    KIVCS2CaptionReason_Header = 2,   /**< the line "Time Code Rate=" */
    KIVCS2CaptionReason_Packets = 3,  /**< the rate code of the CDPs */
    KIVCS2CaptionReason_Separator = 4 /**< the separators before the frames: ";" drops numbers */
};

/** The header of a caption file. Texts that are not there are empty. */
typedef struct KIVCS2CaptionFileHeader
{
    KIVCS2CaptionFileKind m_kind;
    KIVCS2CaptionCounting m_counting;
    KIVCS2CaptionReason m_reason;
    uint32_t m_field;      /**< field of an SCC file: 1 or 2; 0 otherwise */
    uint64_t m_firstLine;  /**< the line of the first caption; 0 without a caption */
    uint32_t m_otherLines; /**< header lines that are none of these texts */
    char m_rate[32];       /**< behind "Time Code Rate=" */
    char m_uuid[KIVCS2_CAPTION_HEADER_SIZE];
    char m_program[KIVCS2_CAPTION_HEADER_SIZE];
    char m_date[KIVCS2_CAPTION_HEADER_SIZE];
    char m_time[KIVCS2_CAPTION_HEADER_SIZE];
    char m_others[KIVCS2_CAPTION_HEADER_SIZE *
                  4]; /**< the other lines, each with a line feed; cut if longer */
    uint8_t m_reserved[36];
} KIVCS2CaptionFileHeader;

/** What a reader has met so far. */
typedef struct KIVCS2CaptionFileReport
{
    uint64_t m_lines;      /**< lines of the file, blank ones and comments included */
    uint64_t m_packets;    /**< packets handed out; those of an SCC file are its pairs */
    uint64_t m_cdps;       /**< of them with a CDP */
    uint64_t m_lostLines;  /**< caption lines without a packet */
    uint64_t m_lostPairs;  /**< SCC words without a pair, of lines that were kept */
    uint64_t m_faults;     /**< places with a fault, each cause of a line counted */
    uint64_t m_gapFrames;  /**< frames without a packet between the first and the last */
    uint32_t m_firstFrame; /**< frame of the first packet; 0 without one */
    uint32_t m_lastFrame;
    uint8_t m_reserved[32];
} KIVCS2CaptionFileReport;

/**
 * Makes a reader of `stream`, which begins where the stream stands. Nothing is read yet.
 * @param ownsStream   the reader frees the stream with kivCS2Stream_free(); not if this call fails
 * @param[in] options  copied; null for the defaults
 * @retval KIVCS2STATUS_PARAM_ERR        `file` or `stream` is null, or an option is out of its range
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  order by frame, and the stream cannot be positioned
 * @retval KIVCS2STATUS_MEMORY_ERR       no room
 * On failure the record is empty and the stream stays the caller's.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_initReading(KIVCS2CaptionFile *file, KIVCS2Stream *stream,
                                                      bool ownsStream,
                                                      const KIVCS2CaptionReadOptions *options);

/**
 * Reads the header, once; later calls return the same. The rate of an MCC file comes from the
 * caller, else from "Time Code Rate=", else from the CDPs. That of an SCC file comes from the caller,
 * else from the separators of its lines.
 * @param[out] header  may be null
 * @retval KIVCS2STATUS_HEADER_ERR      not a caption file, or UTF-16
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no counting is known, or most CDPs are of another rate than the
 *                                      header's and the caller names none
 * @retval KIVCS2STATUS_STATE_ERR       the record writes
 * @retval KIVCS2STATUS_PARAM_ERR       `file` is null or not initialised
 * @return otherwise the status of a fault (strict), of the callback or of the stream
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_readHeader(KIVCS2CaptionFile *file,
                                                     KIVCS2CaptionFileHeader *header);

/**
 * Reads the next packet. An MCC line is one packet, an SCC line one packet a pair.
 * @retval KIVCS2STATUS_EOF_ERR      behind the last packet
 * @retval KIVCS2STATUS_NO_DATA_ERR  at the end, and the file has no packet at all
 * @retval KIVCS2STATUS_STATE_ERR    the record writes
 * @retval KIVCS2STATUS_PARAM_ERR    `file` or `packet` is null, or `file` is not initialised
 * @return otherwise as kivCS2CaptionFile_readHeader(); a failure of the stream or of a strict read stays
 * On failure `packet` is zeroed.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_readPacket(KIVCS2CaptionFile *file, KIVCS2CaptionPacket *packet);

/**
 * Moves so that the next packet is the first one of the file, in the order of reading, that is at
 * `frame` or behind it. Lines that are passed over are not checked and count in no report. What
 * has been read once is found through the index; seeking behind it reads on from its end. In a file that
 * runs over midnight a frame more than half a day before the first line is of the next day; to know whether
 * a file does so, it is read through once.
 * @param frame  frames since midnight
 * @retval KIVCS2STATUS_EOF_ERR          no packet is there; the next read is at the end
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  the stream cannot be positioned; nothing has moved
 * @return otherwise as kivCS2CaptionFile_readHeader()
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_seek(KIVCS2CaptionFile *file, uint32_t frame);

/**
 * Stores what has been met so far.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `file` is not initialised
 * @retval KIVCS2STATUS_STATE_ERR  the record writes
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_getReport(const KIVCS2CaptionFile *file,
                                                    KIVCS2CaptionFileReport *report);

/**
 * Stores how often a fault was met, and where first.
 * @param[out] count  places
 * @param[out] first  zeroed if `*count` is 0; its `m_expected` is static; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `file` or `count` is null, `file` is not initialised, or not a fault
 * @retval KIVCS2STATUS_STATE_ERR  the record writes
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_getFaultCount(const KIVCS2CaptionFile *file,
                                                        KIVCS2CaptionFault fault, uint64_t *count,
                                                        KIVCS2CaptionFileFault *first);

/** The name of a fault, "four-byte U" for example; null if `fault` is not one. The text is static. */
KIVCS2_API const char *kivCS2CaptionFile_getFaultName(KIVCS2CaptionFault fault);

/** The status of a fault; KIVCS2STATUS_PARAM_ERR if `fault` is not one. */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_getFaultStatus(KIVCS2CaptionFault fault);

/** Options of writing. Zeroed is the default. */
typedef struct KIVCS2CaptionWriteOptions
{
    bool m_plainHex;   /**< MCC: no letters; otherwise all but U, whose length is disputed */
    bool m_everyFrame; /**< MCC, writeCaptions: empty packets for the frames between; otherwise sparse */
    uint8_t m_reserved1[2];
    uint32_t m_field;        /**< SCC: the field whose pairs are written, 1 or 2; 0 for 1 */
    uint32_t m_timeZero;     /**< SRT, WebVTT: the frame that is 00:00:00.000 */
    uint32_t m_serviceCount; /**< writeCaptions: entries of `m_services` */
    const KIVCS2CaptionServiceEntry *m_services; /**< copied; null for service 1 without a language */
    uint8_t m_reserved[32];
} KIVCS2CaptionWriteOptions;

/**
 * Makes a writer onto `stream` at its position. Nothing is written yet.
 * @param ownsStream   the writer frees the stream with kivCS2Stream_free(); not if this call fails
 * @param counting     SCC: 29.97 with either numbering
 * @param[in] options  copied; null for the defaults
 * @retval KIVCS2STATUS_PARAM_ERR       `file` or `stream` is null, or a kind or an option is out of range
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  not a counting, or not one of SCC
 * @retval KIVCS2STATUS_MEMORY_ERR      no room
 * On failure the record is empty and the stream stays the caller's.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_initWriting(KIVCS2CaptionFile *file, KIVCS2Stream *stream,
                                                      bool ownsStream, KIVCS2CaptionFileKind kind,
                                                      KIVCS2CaptionCounting counting,
                                                      const KIVCS2CaptionWriteOptions *options);

/**
 * Writes the header, once and before anything else. Kind and counting are those of initWriting.
 * @param[in] header  UUID, program, date and time of an MCC file; empty ones and a null header are
 *                    made: a new UUID, the library's name and the present time
 * @retval KIVCS2STATUS_PARAM_ERR  `file` is null or not initialised, or a text has a line end in it
 * @retval KIVCS2STATUS_STATE_ERR  the record reads, or the header is written
 * @retval KIVCS2STATUS_WRITE_ERR  the stream took fewer bytes
 * @return otherwise the stream's own failure
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_writeHeader(KIVCS2CaptionFile *file,
                                                      const KIVCS2CaptionFileHeader *header);

/**
 * Writes a packet: to an MCC file its bytes as they are, with its suffixes in version 2; to an SCC
 * file the pairs of the options' field. Empty pairs (80 80) of an SCC file stand only between others.
 * @retval KIVCS2STATUS_PARAM_ERR        a pointer is null or `file` is not initialised
 * @retval KIVCS2STATUS_STATE_ERR        the record reads, no header is written, or finish was called
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  SRT or WebVTT; or a packet without bytes (an SCC pair) for MCC
 * @retval KIVCS2STATUS_FORMAT_ERR       a suffix for MCC 1, or a field above 1
 * @return otherwise as kivCS2CaptionFile_writeHeader()
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_writePacket(KIVCS2CaptionFile *file,
                                                      const KIVCS2CaptionPacket *packet);

/**
 * Writes the captions of one frame: to an MCC file in a packet of kivCS2CaptionPacket_build(), whose
 * sequence counts on (from 50 frames a second on an even frame without pairs has the empty one of field 1,
 * an odd one that of field 2), to an SCC file the pairs: of several in one frame each takes the next
 * frame that is free.
 * @param[in] pairs  may be null
 * @param[in] dtvcc  may be null
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  every frame is written, and `frame` does not rise
 * @return otherwise as kivCS2CaptionFile_writePacket() and kivCS2CaptionPacket_build()
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_writeCaptions(KIVCS2CaptionFile *file, uint32_t frame,
                                                        const KIVCS2CaptionPairs *pairs,
                                                        const KIVCS2CaptionDTVCC *dtvcc);

/**
 * Writes one cue of SRT or WebVTT: its times, its rows, italics, underline and colours; and its
 * position, in SRT as one of nine places. A cue more than half a day before the last one, or before the
 * time zero, is of the next day: its time counts on.
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR       another kind of file
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the cue begins before the time zero
 * @return otherwise as kivCS2CaptionFile_writePacket()
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_writeText(KIVCS2CaptionFile *file, const KIVCS2CaptionText *text);

/**
 * Writes what is still held back. Must be called before free; a file is not whole without it.
 * @retval KIVCS2STATUS_STATE_ERR  the record reads, or no header is written
 * @return otherwise as kivCS2CaptionFile_writeHeader(); also a failure that an earlier call has returned
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_finish(KIVCS2CaptionFile *file);

/**
 * Releases what the record holds, and the stream if it is owned, and clears the record, which may
 * then be initialised again; twice is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `file` is null
 */
KIVCS2_API KIVCS2Status kivCS2CaptionFile_free(KIVCS2CaptionFile *file);

KIVCS2_END_DECLS

#endif
