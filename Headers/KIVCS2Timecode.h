/**
 * @file
 * Timecode: a time of day counted in video frames, with a calendar date, in one 64-bit value.
 *
 * A KIVCS2Timecode is four fields: bits 0-31 the frames since midnight (0xFFFFFFFF marks the
 * record invalid), bits 32-39 the day of the month minus 1, bits 40-47 the month minus 1, bits
 * 48-63 the year. Day and month are zero-based in the record and one-based in text. A record whose
 * day, month and year are all 0 is a duration, and its day field then counts whole days that arithmetic
 * carried over midnight. The frame count has no limit: beyond one day the hours read 24 and more.
 *
 * The record carries no frame rate. One rate holds for the whole process: a host calls
 * kivCS2Timecode_setFrameRate() before anything else here and does not change the rate while another thread
 * uses a timecode operation. Records made under another rate keep their frame counts and read differently.
 * Until a rate is set, operations that need one return KIVCS2STATUS_FRAME_RATE_ERR and leave their results
 * untouched; kivCS2Timecode_getHours() succeeds and stores nothing, and times made from seconds, hours or
 * milliseconds have 0 frames.
 *
 * The caller owns every record; no memory is allocated for a record and nothing needs to be released.
 * Pointers are not checked for null unless the operation says so. Once the rate is set, all operations may
 * run on any number of threads, each on its own records.
 *
 * Drop-frame numbering at 29.97 and 59.94 follows SMPTE ST 12-1: in every minute that is not a multiple of
 * ten the first 2 (at 59.94: 4) frame numbers are skipped.
 *
 * @code
 * KIVCS2Timecode timecode;
 * char text[24];
 * kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97); // once, before the threads start
 * kivCS2Timecode_initWithTimecodeFields(&timecode, 0, 0, 59, 29);
 * kivCS2Timecode_tick(&timecode);
 * if (KIVCS2_FAILED(kivCS2Timecode_timecodeToString(&timecode, text, sizeof text)))
 *     return 1;
 * puts(text); // prints: 00:01:00;02
 * @endcode
 */
#ifndef KIVCS2_TIMECODE_H
#define KIVCS2_TIMECODE_H

#include "KIVCS2Base.h"
#include "KIVCS2VideoFormat.h"

#include <CoreFoundation/CoreFoundation.h>

KIVCS2_BEGIN_DECLS

/** Frames since midnight and a date; see the top of this file for the layout. */
typedef uint64_t KIVCS2Timecode;

/* ---- Frame rate ------------------------------------------------------------------------------- */

/**
 * Sets the process-wide frame rate and builds its numbering tables. 23.98 counts as 24 frames without
 * drop-frame numbering. Existing records keep their frame counts.
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  `rate` is above 7
 * @retval KIVCS2STATUS_MEMORY_ERR      no room for the tables or the shared formatters
 * @retval KIVCS2STATUS_MUTEX_ERR       the formatters' mutex could not be made
 * After any failure the previous rate stays in force.
 * Thread safety: not while another thread uses any operation of this header. Source: SMPTE ST 12-1.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_setFrameRate(KIVCS2FrameRate rate);

/** Stores the nominal integer rate: 24, 25, 30, 50 or 60; 0 while no rate is set. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_getFramesPerSecond(uint32_t *fps);

/**
 * Stores the rate for calculations with seconds: 23.98, 24, 25, 29.97, 30, 50, 59.94 or 60, the
 * fractional ones as these two-decimal values; 0 while no rate is set. Always OK.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getRealFramesPerSecond(double *fps);

/** Stores the frames of 24 hours of timecode; 0 while no rate is set. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_getFramesPerDay(uint32_t *frames);

/** Stores true at 29.97 and 59.94. Always OK; a null pointer is OK too and nothing is stored. */
KIVCS2_API KIVCS2Status kivCS2Timecode_getDropFrame(bool *dropFrame);

/* ---- Building and copying records ------------------------------------------------------------- */

/** Sets all 64 bits to 0: midnight without a date. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_init(KIVCS2Timecode *tc);

/**
 * Sets the frame count from four fields; the date stays.
 * @param[in,out] tc       the record
 * @param[in]     hours    no upper limit
 * @param[in]     minutes  0 to 59
 * @param[in]     seconds  0 to 59
 * @param[in]     frames   the frame number within the second, below the nominal rate
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the fields name no frame: a minute or second of 60 or
 *         more, a frame not below the nominal rate, a dropped frame number. "Illegal timecode ..." is
 *         logged and the frame count is set from the hours only; the record is not marked invalid
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set; the record is untouched
 * Source: SMPTE ST 12-1.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithTimecodeFields(KIVCS2Timecode *tc, uint8_t hours,
                                                              uint8_t minutes, uint8_t seconds,
                                                              uint8_t frames);

/** Makes a record without a date at `frames` since midnight, stored unchecked. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithFrames(KIVCS2Timecode *tc, uint32_t frames);

/** Makes a record without a date; the seconds as kivCS2Timecode_setSecondsSinceMidnight(). Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithSeconds(KIVCS2Timecode *tc, double seconds);

/** Makes a record without a date at the first frame of `hours`, which has no upper limit. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithHours(KIVCS2Timecode *tc, uint8_t hours);

/** Copies the whole record. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_copy(KIVCS2Timecode *dst, const KIVCS2Timecode *src);

/** Copies the frame count; the date of `dst` stays. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_copyTimecode(KIVCS2Timecode *dst, const KIVCS2Timecode *src);

/** Copies day, month and year; the frame count of `dst` stays. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_copyDate(KIVCS2Timecode *dst, const KIVCS2Timecode *src);

/** Stores the date of `dateSource` with the frames of `timecodeSource`; `dst` may be either. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithDateAndTimecode(KIVCS2Timecode *dst,
                                                               const KIVCS2Timecode *dateSource,
                                                               const KIVCS2Timecode *timecodeSource);

/* ---- Fields ----------------------------------------------------------------------------------- */

/**
 * Stores the hours, 24 and more if the frame count is beyond a day.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid; nothing is stored
 * With no rate set it returns KIVCS2STATUS_OK and stores nothing.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getHours(const KIVCS2Timecode *tc, uint32_t *value);

/**
 * Stores the minutes, 0 to 59.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid; nothing is stored
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        no rate is set; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getMinutes(const KIVCS2Timecode *tc, uint32_t *value);

/** Stores the seconds, 0 to 59; statuses as kivCS2Timecode_getMinutes(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_getSeconds(const KIVCS2Timecode *tc, uint32_t *value);

/** Stores the frame number within the second; statuses as kivCS2Timecode_getMinutes(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_getFrames(const KIVCS2Timecode *tc, uint32_t *value);

/**
 * Replaces the hours (the low 8 bits of `value`) and keeps the other three fields and the date.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid (and unchanged), or the new fields
 *         name no frame: then as kivCS2Timecode_initWithTimecodeFields()
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        no rate is set; the record is untouched
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_setHours(KIVCS2Timecode *tc, uint32_t value);

/** Replaces the minutes, otherwise as kivCS2Timecode_setHours(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_setMinutes(KIVCS2Timecode *tc, uint32_t value);

/** Replaces the seconds, otherwise as kivCS2Timecode_setHours(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_setSeconds(KIVCS2Timecode *tc, uint32_t value);

/** Replaces the frame number, otherwise as kivCS2Timecode_setHours(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_setFrames(KIVCS2Timecode *tc, uint32_t value);

/**
 * Stores the frames since midnight.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getFramesSinceMidnight(const KIVCS2Timecode *tc, uint32_t *frames);

/** Stores any frame count unchecked, 0xFFFFFFFF (invalid) included; the date stays. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_setFramesSinceMidnight(KIVCS2Timecode *tc, uint32_t frames);

/**
 * Stores the frame count divided by the real rate, in seconds.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid; nothing is stored
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        no rate is set; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getSecondsSinceMidnight(const KIVCS2Timecode *tc, double *seconds);

/**
 * Sets the frame count to `seconds` times the real rate, truncated toward zero and cut to its low 32
 * bits; a product beyond 64 bits, an infinity or a NaN stores 0. The date stays. Always OK.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_setSecondsSinceMidnight(KIVCS2Timecode *tc, double seconds);

/** Stores the zero-based day of the month; the record may be invalid. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_getDay(const KIVCS2Timecode *tc, uint32_t *value);

/** Stores the zero-based month; the record may be invalid. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_getMonth(const KIVCS2Timecode *tc, uint32_t *value);

/** Stores the year; the record may be invalid. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_getYear(const KIVCS2Timecode *tc, uint32_t *value);

/** Marks the record invalid (frame count 0xFFFFFFFF); the date stays. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_setInvalidTimecode(KIVCS2Timecode *tc);

/**
 * Checks that the record is valid; any frame count below 0xFFFFFFFF is.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  it is not valid
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_checkValidTimecode(const KIVCS2Timecode *tc);

/* ---- Calendar --------------------------------------------------------------------------------- */

/**
 * Stores 1 if the record's year is a leap year, else 0.
 * @retval KIVCS2STATUS_PARAM_ERR  `result` is null
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_isLeapYear(const KIVCS2Timecode *tc, uint32_t *result);

/**
 * Stores 365 or 366 for the record's year.
 * @retval KIVCS2STATUS_PARAM_ERR  always, both if `days` is null and if the value is stored. Ignore the
 *                                 status
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getDaysInYear(const KIVCS2Timecode *tc, uint32_t *days);

/**
 * Stores the one-based day of the year.
 * @retval KIVCS2STATUS_PARAM_ERR  always, both if nothing is stored (`days` is null or the stored month is 12
 *                                 or more) and if the value is stored. Ignore the status
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getDaysThisYear(const KIVCS2Timecode *tc, uint32_t *days);

/**
 * Stores the number of days in the record's month of its year.
 * @retval KIVCS2STATUS_PARAM_ERR  the stored month is 12 or more; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getDaysInMonth(const KIVCS2Timecode *tc, uint32_t *days);

/** Stores 1 if day, month and year of both are equal, else 0. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_isSameDay(const KIVCS2Timecode *a, const KIVCS2Timecode *b,
                                                 uint32_t *same);

/**
 * Stores 1 if the record's date is today's in the process's time zone, else 0. Failures are those of
 * kivCS2Timecode_initWithNow(); then nothing is stored.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_isToday(const KIVCS2Timecode *tc, uint32_t *same);

/** Sets day, month and year to 0; the frame count stays. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_zeroDate(KIVCS2Timecode *tc);

/** Sets the frame count to 0; the date stays. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_zeroTime(KIVCS2Timecode *tc);

/* ---- Adding and subtracting ------------------------------------------------------------------- */

/**
 * Adds frames to the count, modulo 2 to the 32nd, and carries whole days into the date (in a duration:
 * into the day field).
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        no rate is set
 * @retval KIVCS2STATUS_PARAM_ERR             a day must be carried and the stored month is 12 or more
 * A failure leaves the record unchanged.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_addFrames(KIVCS2Timecode *tc, uint32_t frames);

/**
 * Subtracts frames and borrows whole days from the date.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        a day must be borrowed and no rate is set
 * @retval KIVCS2STATUS_PARAM_ERR             a day must be borrowed and the stored month is 12 or more
 * A failure leaves the record unchanged.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_subtractFrames(KIVCS2Timecode *tc, uint32_t frames);

/**
 * Adds `count` seconds of the nominal rate: 30 or 60 frames each at the drop-frame rates. The number of
 * frames is a 32-bit product. Always OK, even if the frames could not be added.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_addSeconds(KIVCS2Timecode *tc, uint32_t count);

/** Adds `count` minutes of 60 nominal seconds, otherwise as kivCS2Timecode_addSeconds(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_addMinutes(KIVCS2Timecode *tc, uint32_t count);

/** Adds `count` hours of timecode, otherwise as kivCS2Timecode_addSeconds(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_addHours(KIVCS2Timecode *tc, uint32_t count);

/** Subtracts seconds of the nominal rate. Always OK, even if they could not be subtracted. */
KIVCS2_API KIVCS2Status kivCS2Timecode_subtractSeconds(KIVCS2Timecode *tc, uint32_t count);

/** Subtracts minutes of 60 nominal seconds. Always OK, even if they could not be subtracted. */
KIVCS2_API KIVCS2Status kivCS2Timecode_subtractMinutes(KIVCS2Timecode *tc, uint32_t count);

/** Subtracts hours of timecode. Always OK, even if they could not be subtracted. */
KIVCS2_API KIVCS2Status kivCS2Timecode_subtractHours(KIVCS2Timecode *tc, uint32_t count);

/**
 * Moves the date `count` days on; the year wraps at 65536. A count of 0 changes nothing.
 * @retval KIVCS2STATUS_PARAM_ERR  the stored month is 12 or more; the record is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_addDays(KIVCS2Timecode *tc, uint32_t count);

/**
 * Moves the month on, and the year with it. The day is not clamped: 31 January plus one month is the stored
 * day 30 of February, and day arithmetic continues from there. Always OK.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_addMonths(KIVCS2Timecode *tc, uint32_t count);

/** Adds to the year in 16 bits. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_addYears(KIVCS2Timecode *tc, uint32_t count);

/**
 * Moves the date `count` days back. The year stops at 0: from there the months of year 0 repeat.
 * @retval KIVCS2STATUS_PARAM_ERR  the stored month is 12 or more; the record is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_subtractDays(KIVCS2Timecode *tc, uint32_t count);

/** Moves the month back, and the year with it; the day is not clamped, the year stops at 0. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_subtractMonths(KIVCS2Timecode *tc, uint32_t count);

/** Subtracts from the year, which stops at 0. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_subtractYears(KIVCS2Timecode *tc, uint32_t count);

/** Adds the frame count and then the day field of `other`, which may be the record itself. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_addTimecode(KIVCS2Timecode *tc, const KIVCS2Timecode *other);

/** Stores `b` plus `a`, as kivCS2Timecode_addTimecode(); `result` may be either. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_initByAddingTimecodes(KIVCS2Timecode *result, const KIVCS2Timecode *a,
                                                             const KIVCS2Timecode *b);

/**
 * Subtracts the frame count of `other`; unlike addition it ignores the other's day field.
 * Statuses as kivCS2Timecode_subtractFrames().
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_subtractTimecode(KIVCS2Timecode *tc, const KIVCS2Timecode *other);

/**
 * Stores `b` minus `a`. With `includeDays` the date decides first: on entry `result` must hold the date of
 * `a`. If it does not, the result is the difference of `result` and `b` in seconds, as a duration of at most
 * one frame less than a day; otherwise the frame counts are subtracted and the date is cleared. `result` may
 * be `a` or `b`.
 * Always OK once a rate is set; with `includeDays` the result has no date.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_initBySubtractingTimecodes(KIVCS2Timecode *result,
                                                                  const KIVCS2Timecode *a,
                                                                  const KIVCS2Timecode *b,
                                                                  uint32_t includeDays);

/* ---- Comparing and measuring ------------------------------------------------------------------ */

/**
 * Stores 1, 0 or -1 if the frame count of `a` is greater than, equal to or below that of `b`. The dates are
 * ignored.
 * @retval KIVCS2STATUS_PARAM_ERR             `result` is null
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  a record is invalid; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_compare(const KIVCS2Timecode *a, const KIVCS2Timecode *b,
                                               int32_t *result);

/** Stores 1 if both are valid and their frame counts are equal, else 0. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_isSameTimecode(const KIVCS2Timecode *a, const KIVCS2Timecode *b,
                                                      uint32_t *same);

/**
 * Stores the signed distance from `a` to `b` in frames. On one day it is a 32-bit difference. On two days the
 * year of `b` is assumed to be the later one: if it is earlier, the days still count as positive.
 * @retval KIVCS2STATUS_PARAM_ERR             `difference` is null, or on two days a stored month is 12
 *                                            or more
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  a record is invalid
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        two days, and no rate is set
 * A failure stores nothing.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_differenceInFrames(const KIVCS2Timecode *a, const KIVCS2Timecode *b,
                                                          int64_t *difference);

/**
 * On one day, stores the seconds since midnight of `a` minus those of `b` (the reverse of
 * kivCS2Timecode_differenceInFrames()); an invalid record counts as 0 seconds. On two days nothing is stored
 * and the status is KIVCS2STATUS_OK.
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_differenceInSeconds(const KIVCS2Timecode *a, const KIVCS2Timecode *b,
                                                           double *difference);

/* ---- Stepping, scaling and snapping ----------------------------------------------------------- */

/** Adds one frame; statuses as kivCS2Timecode_addFrames(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_tick(KIVCS2Timecode *tc);

/**
 * Subtracts one frame, also back over midnight, and stores 1 if the frame count is then not 0, else 0.
 * Statuses as kivCS2Timecode_subtractFrames(); a failure stores nothing.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_tickDown(KIVCS2Timecode *tc, uint32_t *nonZero);

/**
 * Multiplies the frame count by `factor`, carries days, and makes a legal duration of the result as
 * kivCS2Timecode_ensureLegalDuration(): the date is lost, also with a factor of 0 or 1, which leaves the
 * count unchanged.
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set and the factor is above 1; unchanged
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_multiply(KIVCS2Timecode *tc, uint32_t factor);

/** Copies `tc` and multiplies the copy as kivCS2Timecode_multiply(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_initByMultiplyingTimecode(KIVCS2Timecode *result,
                                                                 const KIVCS2Timecode *tc, uint32_t factor);

/**
 * Rounds the frame count down to a multiple of `minutes` nominal minutes (0 counts as 1; 60 and more
 * snap to whole hours). At drop-frame rates the result need not read as a whole minute.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        no rate is set
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_snapToMinute(KIVCS2Timecode *tc, uint32_t minutes);

/**
 * Rounds the frame count down to a multiple of `hours` hours of timecode.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the record is invalid
 * @retval KIVCS2STATUS_PARAM_ERR             `hours` is 0; the record is unchanged
 * @retval KIVCS2STATUS_FRAME_RATE_ERR        no rate is set
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_snapToHour(KIVCS2Timecode *tc, uint32_t hours);

/* ---- Durations -------------------------------------------------------------------------------- */

/** Stores 1 if day, month and year are all 0, else 0. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_isDuration(const KIVCS2Timecode *tc, uint32_t *isDuration);

/**
 * Clears the date; if the day field was not 0 the frame count becomes the last frame of a day.
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  the day field is not 0 and no rate is set; unchanged
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_ensureLegalDuration(KIVCS2Timecode *tc);

/** Makes a duration of `frames`, stored unchecked. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithDuration(KIVCS2Timecode *tc, uint32_t frames);

/**
 * Sets the frame count from fields that are lengths at the nominal rate, without drop-frame numbering; no
 * field has a limit and the date stays. Always OK.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithTimecodeFieldsForDuration(KIVCS2Timecode *tc, uint8_t hours,
                                                                         uint8_t minutes, uint8_t seconds,
                                                                         uint8_t frames);

/** Stores the frames in that many milliseconds at the real rate, truncated and cut to 32 bits. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_convertMillisecondsToDuration(uint64_t milliseconds, uint32_t *frames);

/* ---- Text ------------------------------------------------------------------------------------- */

/**
 * Parses NUL-terminated UTF-8: "hours:minutes:seconds:frames", "hours:minutes:seconds" or a bare frame count,
 * with an optional "day.month.year " in front. ";" is not accepted. Any other number of time fields gives
 * midnight and succeeds; a date that does not have three fields is ignored. An empty field is 0, so a time
 * followed by a blank ("10:00:00:00 ") is an ignored date and frame 0, with success. A number above
 * 2147483647 counts as that number; of the hours only the low 8 bits are used.
 * @retval KIVCS2STATUS_PARAM_ERR   an argument is null (record untouched), or a field holds anything but
 *                                  digits; fields stored before that one stay
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  as kivCS2Timecode_initWithTimecodeFields(); a date stays
 * @retval KIVCS2STATUS_MEMORY_ERR      no room, or the text is not UTF-8 (record untouched)
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set; the record is untouched
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithString(KIVCS2Timecode *tc, const char *string);

/** Parses a system string, otherwise as kivCS2Timecode_initWithString(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithCFString(KIVCS2Timecode *tc, CFStringRef string);

/**
 * Writes "10:00:00:00", or "15.3.2024 10:00:00:00" if the year is above 0, with ";" before the frames at
 * drop-frame rates. An invalid record reads as 00:00:00:00. 15 bytes hold every time and 29 every date and
 * time.
 * @param[in]  tc          the record
 * @param[out] buffer      the text, zero-terminated
 * @param[in]  bufferSize  bytes of `buffer`: at least 12, with a date 24
 * @retval KIVCS2STATUS_PARAM_ERR        an argument is null
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  the buffer is below that, or the text (hours of 100 and more)
 *                                       does not fit; nothing is written
 * @retval KIVCS2STATUS_FRAME_RATE_ERR   no rate is set; nothing is written
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_timecodeToString(const KIVCS2Timecode *tc, char *buffer,
                                                        uint32_t bufferSize);

/**
 * Writes the time of the record to the log.
 * @retval KIVCS2STATUS_PARAM_ERR       `tc` is null (no assertion)
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_print(const KIVCS2Timecode *tc);

/* ---- BCD -------------------------------------------------------------------------------------- */

/**
 * Stores hours, minutes, seconds and frames as one byte each, hours in the top byte, tens in the high nibble;
 * no flag bits. An invalid record gives 0; for hours of 100 and more the tens overflow the byte and its low 8
 * bits are kept.
 * @retval KIVCS2STATUS_PARAM_ERR       `tc` is null (no assertion)
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set; nothing is stored
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getBCDFromTimecode(const KIVCS2Timecode *tc, uint32_t *bcd);

/**
 * Makes a record without a date from a BCD word. Digits that name no frame are logged and only the hours are
 * used, but the status is still KIVCS2STATUS_OK; flag bits are not masked.
 * @retval KIVCS2STATUS_PARAM_ERR       `tc` is null (no assertion)
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set; the record is untouched
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithBCD(KIVCS2Timecode *tc, uint32_t bcd);

/* ---- System dates ----------------------------------------------------------------------------- */

/**
 * Sets the date, and with `includeTime` the time, from a system date in the process's calendar and time zone;
 * without `includeTime` the frame count is 0. The date is taken in whole milliseconds. The frame within the
 * second is the number of frames that have begun at the nominal rate, counted from the second's first frame:
 * milliseconds * framesPerSecond / 1000, rounded down. At 29.97 and 59.94 two frames less are counted from
 * the third on, in every second. So the frame always exists and is two before the one of that number, except
 * in a second whose first numbers are dropped (29.97: that frame, 59.94: two after it, at most the second's
 * last).
 * A field that cannot be formatted (no memory) reads as 0.
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set; the record is untouched
 * @retval KIVCS2STATUS_MUTEX_ERR       the formatters could not be locked; the record is untouched
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithDate(KIVCS2Timecode *tc, CFDateRef date, uint32_t includeTime);

/**
 * Makes a record of the current date and time, as kivCS2Timecode_initWithDate().
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the date; the record is untouched
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithNow(KIVCS2Timecode *tc);

/** Makes a record of the current date at frame count 0; statuses as kivCS2Timecode_initWithNow(). */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithCalendarDate(KIVCS2Timecode *tc);

/**
 * Creates a system date of whole seconds in the process's calendar and time zone, to be released with
 * CFRelease(). The zero-based month and day are composed unchanged: the date is one month and one day before
 * the date in the text form.
 * @retval KIVCS2STATUS_DATA_ERR        there is no current calendar, or it could not compose the date
 * @retval KIVCS2STATUS_PARAM_ERR       the date could not be made; null is stored
 * @retval KIVCS2STATUS_FRAME_RATE_ERR  no rate is set; nothing is stored
 * `date` is only asserted.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_createCFDate(const KIVCS2Timecode *tc, CFDateRef *date);

/* ---- Media time ------------------------------------------------------------------------------- */

/**
 * Stores the duration of one frame as `time` over `scale` seconds: 1001/30000 at 29.97, 1000/24000 at
 * 24 and at 23.98; 0/0 while no rate is set. Either pointer may be null. Always OK.
 */
KIVCS2_API KIVCS2Status kivCS2Timecode_getTimeAndScale(uint32_t *time, uint32_t *scale);

/** Makes a record without a date at `time` / `scale` seconds; a scale of 0 gives 0 frames. Always OK. */
KIVCS2_API KIVCS2Status kivCS2Timecode_initWithTimeAndScale(KIVCS2Timecode *tc, uint32_t time,
                                                            uint32_t scale);

KIVCS2_END_DECLS

#endif
