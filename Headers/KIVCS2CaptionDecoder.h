/**
 * @file
 * Caption packets to text: CEA-608 (CC1 to CC4, T1 to T4) and CEA-708 (S1 to S63).
 *
 * A decoder follows the packets of one programme in the order of their frames. It reports each caption
 * when the caption leaves the screen: what a viewer saw, from when until when, where, and in which
 * style. The caller owns the record:
 *
 * @code
 * static KIVCS2Status onText(const KIVCS2CaptionText *text, void *context)
 * {
 *     (void)context;
 *     puts(text->m_text); // prints: Hi
 *     return KIVCS2STATUS_OK;
 * }
 *
 * static const uint8_t codes[][2] = {{0x94, 0x29}, {0xC8, 0xE9}}; // paint on, "Hi"
 * KIVCS2CaptionDecoder decoder;
 * KIVCS2CaptionPacket packet;
 * KIVCS2CaptionPairs pairs = {.m_count = {1, 0}};
 * if (KIVCS2_FAILED(kivCS2CaptionDecoder_init(&decoder, NULL, NULL, onText, NULL)))
 *     return 1;
 * for (uint32_t frame = 0; frame < 2; ++frame)
 * {
 *     memcpy(pairs.m_pairs[0][0], codes[frame], 2);
 *     kivCS2CaptionPacket_build(&packet, KIVCS2CaptionCounting_25, (uint16_t)frame, &pairs, NULL, NULL, 0);
 *     packet.m_frame = frame;
 *     kivCS2CaptionDecoder_feed(&decoder, &packet);
 * }
 * kivCS2CaptionDecoder_finish(&decoder, 25); // reports what is still on the screen
 * kivCS2CaptionDecoder_free(&decoder);
 * @endcode
 *
 * Damaged data never makes it fail: codes without a meaning are ignored, and so are extended data
 * services (XDS). A decoder takes 60 KiB, and 60 KiB more for each service of CEA-708 when its first
 * block comes. A packet takes no memory.
 *
 * A record belongs to one thread at a time; the callback must not call an operation of its decoder.
 */
#ifndef KIVCS2_CAPTION_DECODER_H
#define KIVCS2_CAPTION_DECODER_H

#include "KIVCS2CaptionPacket.h"

KIVCS2_BEGIN_DECLS

/** A set of services. */
typedef struct KIVCS2CaptionServices
{
    uint64_t m_dtvcc;    /**< bit n: service Sn, n from 1 to 63 */
    uint32_t m_line21;   /**< bits 0 to 3: CC1 to CC4; bits 4 to 7: T1 to T4 */
    uint32_t m_reserved; /**< reserved: 0 */
} KIVCS2CaptionServices;

/** The way a caption came to the screen. */
typedef uint32_t KIVCS2CaptionMode;
enum
{
    KIVCS2CaptionMode_PopOn = 1,
    KIVCS2CaptionMode_RollUp = 2,
    KIVCS2CaptionMode_PaintOn = 3,
    KIVCS2CaptionMode_Text = 4,  /**< T1 to T4: one row */
    KIVCS2CaptionMode_Window = 5 /**< a window of CEA-708 */
};

/** Style of a cell; bits of KIVCS2CaptionCell::m_style. */
enum
{
    KIVCS2CaptionStyle_Italics = 0x1,
    KIVCS2CaptionStyle_Underline = 0x2,
    KIVCS2CaptionStyle_Flash = 0x4
};

/** One character on the screen. */
typedef struct KIVCS2CaptionCell
{
    uint8_t m_row;         /**< from 0, in 15 rows (CEA-608) or the rows of the window (CEA-708) */
    uint8_t m_column;      /**< from 0, in 32 columns or the columns of the window */
    uint8_t m_style;       /**< bits of KIVCS2CaptionStyle */
    char m_text[5];        /**< UTF-8, zero-terminated */
    uint32_t m_colour;     /**< AARRGGBB; AA is 255 solid, 128 translucent, 0 transparent */
    uint32_t m_background; /**< as `m_colour` */
    uint8_t m_reserved[4]; /**< reserved */
} KIVCS2CaptionCell;

/** One caption. Valid during the callback. */
typedef struct KIVCS2CaptionText
{
    uint32_t m_from;                /**< the frame on which it appeared */
    uint32_t m_until;               /**< the first frame without it; smaller than `m_from` past midnight */
    KIVCS2CaptionService m_service; /**< the service that carried it */
    KIVCS2CaptionMode m_mode;       /**< the way it came to the screen */
    uint8_t m_window;               /**< CEA-708: the window, 0 to 7 */
    uint8_t m_anchorPoint;          /**< CEA-708: 0 top left, 1 top centre ... 8 bottom right; CEA-608: 0 */
    uint8_t m_anchorRow;            /**< CEA-608: the first row; CEA-708: 0 to 74, or 0 to 99 if relative */
    uint8_t m_anchorColumn;   /**< CEA-608: the first column; CEA-708: 0 to 209, or 0 to 99 if relative */
    uint8_t m_anchorRelative; /**< 1: row and column of the anchor are percent of the screen */
    uint8_t m_justify;        /**< CEA-708: 0 left, 1 right, 2 centre, 3 full; CEA-608: 0 */
    uint8_t m_rows;           /**< rows of the screen (15) or of the window */
    uint8_t m_columns;        /**< columns of the screen (32) or of the window */
    uint32_t m_cellCount;     /**< entries of `m_cells` */
    uint32_t m_textSize;      /**< bytes of `m_text`, without the terminator */
    const KIVCS2CaptionCell *m_cells; /**< row by row from the left, without cells that have no character */
    const char
        *m_text; /**< UTF-8, zero-terminated: the rows without blanks at their ends, a line feed between */
    uint8_t m_reserved[24]; /**< reserved */
} KIVCS2CaptionText;

/** Receives a caption. After KIVCS2STATUS_OK the call goes on; a failure ends the call and is its result. */
typedef KIVCS2Status (*KIVCS2CaptionTextFunc)(const KIVCS2CaptionText *text, void *context);

/** Options of decoding. All zeros is the default. */
typedef struct KIVCS2CaptionDecoderOptions
{
    KIVCS2CaptionCounting m_counting; /**< for the delays of CEA-708; 0 means 29.97 */
    bool m_screens;         /**< report roll-up as a whole screen at each change; otherwise row by row */
    uint8_t m_reserved[27]; /**< reserved: 0 */
} KIVCS2CaptionDecoderOptions;

/** Totals of a decoder. */
typedef struct KIVCS2CaptionDecoderReport
{
    KIVCS2CaptionServices m_met; /**< services with at least one code of their own */
    uint64_t m_texts;            /**< captions reported */
    uint64_t m_pairs[2];         /**< CEA-608 pairs of field 1 and 2 that are not empty */
    uint64_t m_dtvccPackets;     /**< complete packets of CEA-708 */
    uint64_t m_dtvccCut;         /**< packets cut off by the start of another */
    uint64_t m_dtvccBreaks;      /**< packets whose sequence number does not follow the one before */
    uint64_t m_windows;          /**< window definitions */
    uint8_t m_reserved[24];      /**< reserved */
} KIVCS2CaptionDecoderReport;

/** A decoder. The members belong to the operations. */
typedef struct KIVCS2CaptionDecoder
{
    void *m_state; /**< null while not initialised; private */
} KIVCS2CaptionDecoder;

/**
 * Makes a decoder with empty screens.
 * @param[out] decoder   released by kivCS2CaptionDecoder_free()
 * @param[in]  services  the services to report; null for all
 * @param[in]  options   copied; null for the defaults
 * @param[in]  onText    called from feed and finish
 * @param[in]  context   passed to `onText`; may be null
 * @retval KIVCS2STATUS_PARAM_ERR       `decoder` or `onText` is null
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  the options' counting is not a counting
 * @retval KIVCS2STATUS_MEMORY_ERR      out of memory
 * On failure the record is empty.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionDecoder_init(KIVCS2CaptionDecoder *decoder,
                                                  const KIVCS2CaptionServices *services,
                                                  const KIVCS2CaptionDecoderOptions *options,
                                                  KIVCS2CaptionTextFunc onText, void *context);

/**
 * Follows one packet. Packets without captions are harmless.
 * @retval KIVCS2STATUS_PARAM_ERR   a pointer is null or `decoder` is not initialised
 * @retval KIVCS2STATUS_MEMORY_ERR  out of memory for a service; the rest of the packet is lost
 * @return otherwise the failure of the callback; the rest of the packet is lost
 * Source: CEA-608-E, CEA-708-E.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionDecoder_feed(KIVCS2CaptionDecoder *decoder,
                                                  const KIVCS2CaptionPacket *packet);

/**
 * Ends every caption on the screen at `frame` and empties the decoder, which may then be used again.
 * @retval KIVCS2STATUS_PARAM_ERR  `decoder` is null or not initialised
 * @return otherwise the failure of the callback
 */
KIVCS2_API KIVCS2Status kivCS2CaptionDecoder_finish(KIVCS2CaptionDecoder *decoder, uint32_t frame);

/**
 * Stores the totals since init.
 * @retval KIVCS2STATUS_PARAM_ERR  a pointer is null or `decoder` is not initialised
 */
KIVCS2_API KIVCS2Status kivCS2CaptionDecoder_getReport(const KIVCS2CaptionDecoder *decoder,
                                                       KIVCS2CaptionDecoderReport *report);

/**
 * Releases the decoder without reporting captions and clears the record. A second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `decoder` is null
 */
KIVCS2_API KIVCS2Status kivCS2CaptionDecoder_free(KIVCS2CaptionDecoder *decoder);

/** Room for the text of kivCS2CaptionDecoder_describePair(), including the terminator. */
#define KIVCS2_CAPTION_DESCRIPTION_SIZE 96u

/**
 * Describes a CEA-608 pair in words, zero-terminated: "resume caption loading",
 * "row 1 indent 4, underline", "white, underline", "background blue semi-transparent",
 * "extended character ü", "characters Hé". Parity bits are ignored. The texts of codes of a field's
 * second channel end in " (channel 2)".
 * @param[in]  first   the pair's first byte
 * @param[in]  second  the pair's second byte
 * @param[out] buffer  KIVCS2_CAPTION_DESCRIPTION_SIZE characters
 * @retval KIVCS2STATUS_PARAM_ERR  `buffer` is null
 * @retval KIVCS2STATUS_DATA_ERR   the pair is empty (00 00 without parity): `buffer` is empty
 * Thread safety: any thread. Source: CEA-608-E.
 */
KIVCS2_API KIVCS2Status kivCS2CaptionDecoder_describePair(uint8_t first, uint8_t second, char *buffer);

KIVCS2_END_DECLS

#endif
