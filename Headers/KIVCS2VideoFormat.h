/**
 * @file
 * Video formats: the broadcast formats of the library, each packed into one 32-bit code, and the
 * frame rates.
 *
 * A host stores the code in 32 bits. The getters unpack it; names, display sizes and descriptions come from
 * the table of 75 formats (25 base formats, each as 8 Bit, 10 Bit and RGBA). Everything is constant: returned
 * pointers are to static data and must not be released, and every operation may be called from any thread. An
 * operation that fails leaves its output untouched unless it says otherwise.
 *
 * @code
 * KIVCS2VideoFormat format;
 * KIVCS2VideoFormatDescription shape;
 * if (KIVCS2_FAILED(kivCS2VideoFormat_getFormatForName("1080i25 10 Bit", &format)) ||
 *     KIVCS2_FAILED(kivCS2VideoFormat_getDescription(format, &shape)))
 *     return 1;
 * printf("%u x %u, %.2f\n", shape.m_nativeWidth, shape.m_nativeHeight,
 *        shape.m_frameRateInfo->m_exactRate); // prints: 1920 x 1080, 25.00
 * @endcode
 */
#ifndef KIVCS2_VIDEO_FORMAT_H
#define KIVCS2_VIDEO_FORMAT_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** A frame rate. */
typedef uint32_t KIVCS2FrameRate;
enum
{
    KIVCS2FrameRate_23_98 = 0, /**< 24000/1001 */
    KIVCS2FrameRate_24 = 1,
    KIVCS2FrameRate_25 = 2,
    KIVCS2FrameRate_29_97 = 3, /**< 30000/1001 */
    KIVCS2FrameRate_30 = 4,
    KIVCS2FrameRate_50 = 5,
    KIVCS2FrameRate_59_94 = 6, /**< 60000/1001 */
    KIVCS2FrameRate_60 = 7,
    KIVCS2FrameRate_MAX = 8 /**< the count; also: no rate is set */
};

/** How the lines of a frame are divided into fields. */
typedef uint32_t KIVCS2InterlaceMode;
enum
{
    KIVCS2InterlaceMode_UpperFieldFirst = 0,
    KIVCS2InterlaceMode_LowerFieldFirst = 1,
    KIVCS2InterlaceMode_Progressive = 2,
    KIVCS2InterlaceMode_SegmentedFrame = 3 /**< progressive segmented frame, "PsF" */
};

/** Shape of the picture. */
typedef uint32_t KIVCS2FrameAspect;
enum
{
    KIVCS2FrameAspect_4x3 = 0,
    KIVCS2FrameAspect_16x9 = 1
};

/** Shape of a pixel: an index, 0 to 11, into the horizontal and vertical spacings. */
typedef uint32_t KIVCS2PixelAspect;
enum
{
    KIVCS2PixelAspect_1x1 = 0,
    KIVCS2PixelAspect_4x3 = 1,
    KIVCS2PixelAspect_16x15 = 2,
    KIVCS2PixelAspect_12x11 = 3,
    KIVCS2PixelAspect_8x9 = 4,
    KIVCS2PixelAspect_10x11 = 5,
    KIVCS2PixelAspect_64x45 = 6,
    KIVCS2PixelAspect_16x11 = 7,
    KIVCS2PixelAspect_32x27 = 8,
    KIVCS2PixelAspect_40x33 = 9,
    KIVCS2PixelAspect_3x2 = 10,
    KIVCS2PixelAspect_59x54 = 11,
    KIVCS2PixelAspect_MAX = 12 /**< the count */
};

/** How a pixel is stored. */
typedef uint32_t KIVCS2VideoPixelFormat;
enum
{
    KIVCS2VideoPixelFormat_8Bit = 0,
    KIVCS2VideoPixelFormat_10Bit = 1,
    KIVCS2VideoPixelFormat_RGBA = 2,
    KIVCS2VideoPixelFormat_MAX = 3 /**< the count */
};

/** How a 1080p format above 30 frames per second is carried (SMPTE ST 425-1). */
typedef uint32_t KIVCS2SDIDualLinkMode;
enum
{
    KIVCS2SDIDualLinkMode_None = 0,
    KIVCS2SDIDualLinkMode_LevelA = 1,
    KIVCS2SDIDualLinkMode_LevelB = 2
};

/**
 * A format code. From the top: native width index (4 bits), native height index (4), always 0 (2),
 * SDI dual-link mode (2), pixel format (4), interlace mode (4), frame rate (4), pixel aspect (4),
 * frame aspect (4).
 */
typedef uint32_t KIVCS2VideoFormat;

/** The properties of a frame rate. */
typedef struct KIVCS2FrameRateInfo
{
    uint32_t m_integerRate;                     /**< truncated, not rounded: 29 for 29.97 */
    double m_exactRate;                         /**< frames per second */
    uint32_t m_hundredths;                      /**< hundredths of a frame per second */
    uint32_t m_dropFrame;                       /**< 1 for a fractional rate, 23.98 included */
    KIVCS2InterlaceMode m_defaultInterlaceMode; /**< the mode that pictures of this rate usually have */
    const char *m_shortName;                    /**< "2997" */
    const char *m_longName;                     /**< "30fps drop frame" */
} KIVCS2FrameRateInfo;

/** The part of the picture that is free of edge artefacts, in pixels, as two fractions. */
typedef struct KIVCS2CleanAperture
{
    uint32_t m_widthNumerator;    /**< the width is this ... */
    uint32_t m_widthDenominator;  /**< ... divided by this */
    uint32_t m_heightNumerator;   /**< the height is this ... */
    uint32_t m_heightDenominator; /**< ... divided by this */
} KIVCS2CleanAperture;

/** One row of the format table. */
typedef struct KIVCS2VideoFormatDefinition
{
    KIVCS2VideoFormat m_format;                 /**< the code */
    uint32_t m_displayWidthIndex;               /**< the index from kivCS2VideoFormat_matchWidth() */
    uint32_t m_displayHeightIndex;              /**< the index from kivCS2VideoFormat_matchHeight() */
    const char *m_name;                         /**< "1080i25 8 Bit" */
    const KIVCS2CleanAperture *m_cleanAperture; /**< static */
} KIVCS2VideoFormatDefinition;

/** An unpacked format of the table. */
typedef struct KIVCS2VideoFormatDescription
{
    const char *m_name;                         /**< static */
    uint32_t m_nativeWidth;                     /**< pixels as stored and transported */
    uint32_t m_nativeHeight;                    /**< lines */
    uint32_t m_displayWidth;                    /**< pixels as shown */
    uint32_t m_displayHeight;                   /**< lines */
    KIVCS2FrameAspect m_frameAspect;            /**< shape of the picture */
    KIVCS2PixelAspect m_pixelAspect;            /**< shape of a pixel, as an index */
    KIVCS2VideoPixelFormat m_pixelFormat;       /**< how a pixel is stored */
    uint32_t m_hSpacing;                        /**< the pixel's shape is hSpacing to vSpacing */
    uint32_t m_vSpacing;                        /**< the other part of the ratio */
    KIVCS2CleanAperture m_cleanAperture;        /**< the part free of edge artefacts */
    KIVCS2InterlaceMode m_interlaceMode;        /**< how lines are divided into fields */
    KIVCS2FrameRate m_frameRate;                /**< the frame rate */
    KIVCS2SDIDualLinkMode m_sdiDualLinkMode;    /**< how SDI carries it above 30 frames per second */
    const KIVCS2FrameRateInfo *m_frameRateInfo; /**< static */
} KIVCS2VideoFormatDescription;

/**
 * Finds the row of the table for a code; all 32 bits count.
 * @param[in]  format      the code
 * @param[out] definition  the static row, or null if there is none
 * @retval KIVCS2STATUS_PARAM_ERR         `definition` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  the code is not in the table
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_findDefinition(KIVCS2VideoFormat format,
                                                         const KIVCS2VideoFormatDefinition **definition);

/**
 * Stores the index, 0 to 5, of a native width (704, 720, 1024, 1280, 1440, 1920 pixels).
 * @retval KIVCS2STATUS_PARAM_ERR         `widthOut` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  no such width; `widthOut` is untouched
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_matchWidth(uint32_t width, uint32_t *widthOut);

/**
 * Stores the index, 0 to 4, of a native height (480, 486, 576, 720, 1080 lines).
 * @retval KIVCS2STATUS_PARAM_ERR         `heightOut` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  no such height; `heightOut` is untouched
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_matchHeight(uint32_t height, uint32_t *heightOut);

/**
 * Stores the native width of a code in pixels; the code need not be in the table.
 * @retval KIVCS2STATUS_PARAM_ERR         `nativeWidth` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  the width index is 6 or more
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getNativeWidth(KIVCS2VideoFormat format, uint32_t *nativeWidth);

/**
 * Stores the native height of a code in lines; the code need not be in the table.
 * @retval KIVCS2STATUS_PARAM_ERR         `nativeHeight` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  the height index is 5 or more
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getNativeHeight(KIVCS2VideoFormat format, uint32_t *nativeHeight);

/**
 * Stores the frame aspect field of any code, in the table or not, unchecked.
 * @retval KIVCS2STATUS_PARAM_ERR  the output is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getFrameAspectRatio(KIVCS2VideoFormat format,
                                                              KIVCS2FrameAspect *frameAspect);
/** As kivCS2VideoFormat_getFrameAspectRatio(), for the pixel aspect. */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getPixelAspectRatio(KIVCS2VideoFormat format,
                                                              KIVCS2PixelAspect *pixelAspect);
/** As kivCS2VideoFormat_getFrameAspectRatio(), for the frame rate. */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getFrameRate(KIVCS2VideoFormat format, KIVCS2FrameRate *frameRate);
/** As kivCS2VideoFormat_getFrameAspectRatio(), for the interlace mode. */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getInterlaceMode(KIVCS2VideoFormat format,
                                                           KIVCS2InterlaceMode *interlaceMode);
/** As kivCS2VideoFormat_getFrameAspectRatio(), for the pixel format. */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getPixelFormat(KIVCS2VideoFormat format,
                                                         KIVCS2VideoPixelFormat *pixelFormat);
/** As kivCS2VideoFormat_getFrameAspectRatio(), for the SDI dual-link mode. */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getSDIDualLinkMode(KIVCS2VideoFormat format,
                                                             KIVCS2SDIDualLinkMode *sdiDualLinkMode);

/**
 * Stores the display width of a format of the table, in pixels.
 * @retval KIVCS2STATUS_PARAM_ERR         `displayWidth` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  the code is not in the table
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getDisplayWidth(KIVCS2VideoFormat format, uint32_t *displayWidth);

/**
 * Stores the display height of a format of the table, in lines.
 * @retval KIVCS2STATUS_PARAM_ERR         `displayHeight` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  the code is not in the table
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getDisplayHeight(KIVCS2VideoFormat format, uint32_t *displayHeight);

/**
 * Stores the name of a format of the table, for example "1080p59.94a 8 Bit".
 * @param[in]  format  the code
 * @param[out] name    static text
 * @retval KIVCS2STATUS_PARAM_ERR         `name` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  the code is not in the table
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getName(KIVCS2VideoFormat format, const char **name);

/**
 * Describes a format of the table.
 * @retval KIVCS2STATUS_PARAM_ERR         `description` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  the code is not in the table
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getDescription(KIVCS2VideoFormat format,
                                                         KIVCS2VideoFormatDescription *description);

/**
 * Stores the code of the format with exactly this name, byte for byte.
 * @param[in]  name    for example "1080i25 8 Bit"
 * @param[out] format  0 if there is none
 * @retval KIVCS2STATUS_PARAM_ERR         `name` or `format` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  no format has this name
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_getFormatForName(const char *name, KIVCS2VideoFormat *format);

/**
 * Stores the first format of the table with these properties. Interlace mode, aspects and dual link are not
 * compared: 1920 x 1080 at 23.98 or 24 gives the segmented frame, at 50 and above level A; 720 x 576 at 25
 * never gives DV.
 * @param[in]  nativeWidth    pixels as stored and transported
 * @param[in]  nativeHeight   lines as stored and transported
 * @param[in]  displayWidth   pixels as shown
 * @param[in]  displayHeight  lines as shown
 * @param[in]  frameRate      KIVCS2FrameRate
 * @param[in]  pixelFormat    KIVCS2VideoPixelFormat
 * @param[out] format         0 if there is none
 * @retval KIVCS2STATUS_PARAM_ERR         `format` is null
 * @retval KIVCS2STATUS_VIDEO_FORMAT_ERR  no format has these properties
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_matchFormat(uint32_t nativeWidth, uint32_t nativeHeight,
                                                      uint32_t displayWidth, uint32_t displayHeight,
                                                      KIVCS2FrameRate frameRate,
                                                      KIVCS2VideoPixelFormat pixelFormat,
                                                      KIVCS2VideoFormat *format);

/**
 * Stores the frame rate of a truncated rate: 23, 24, 25, 29, 30, 50, 59 or 60.
 * @param[in]  integerRate  whole frames per second
 * @param[out] frameRate    must not be null: it is not checked
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no such rate; `frameRate` is untouched
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_integerToFrameRate(uint32_t integerRate,
                                                             KIVCS2FrameRate *frameRate);

/**
 * Stores the frame rate of a rate, which is truncated first: 29.97 and 29.999 both give 29.97.
 * @param[in]  rate       frames per second
 * @param[out] frameRate  must not be null: it is not checked
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no such rate, or not a number; `frameRate` is untouched
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_floatToFrameRate(float rate, KIVCS2FrameRate *frameRate);

/**
 * Stores the exact rate in frames per second, in single precision.
 * @retval KIVCS2STATUS_PARAM_ERR       `outFrameRate` is null
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  the code is 8 or more
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_frameRateToFloat(KIVCS2FrameRate frameRate, float *outFrameRate);

/**
 * Stores the exact rate in frames per second.
 * @retval KIVCS2STATUS_PARAM_ERR       `outFrameRate` is null
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  the code is 8 or more
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_frameRateToDouble(KIVCS2FrameRate frameRate, double *outFrameRate);

/**
 * Stores the interlace mode that a frame rate usually has.
 * @param[in]  frameRate      0 to 7
 * @param[out] interlaceMode  must not be null: it is not checked
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  the code is 8 or more; `interlaceMode` is untouched
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2VideoFormat_frameRateDefaultInterlaceMode(KIVCS2FrameRate frameRate,
                                                                        KIVCS2InterlaceMode *interlaceMode);

KIVCS2_END_DECLS

#endif
