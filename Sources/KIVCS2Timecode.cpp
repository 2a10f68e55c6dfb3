// Timecode: frames since midnight and a date in 64 bits, under one frame rate for the process.
#include "KIVCS2Timecode.h"

#include "KIVCS2Mutex.h"
#include "KIVCS2String.h"
#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"
#include "Private/Support/Log.h"
#include "Private/Support/Unguarded.h"
#include "Private/Timecode/Formatting.h"
#include "Private/Timecode/Record.h"

namespace
{
using namespace kiv::timecode;

// All zero until the first rate. Written only by setFramerate(), while no other operation here runs.
struct ModuleState : RateState
{
    double millisecondsPerFrame;
    Formatting formatting;
};
constinit ModuleState g_state{};

[[nodiscard]] bool hasRate()
{
    return hasRate(g_state);
}

// ---- Rate

KIVCS2Status setFramerate(const Rate &rate)
{
    // Everything new is prepared first, so that the old rate stays in force if a step fails.
    KIV_TRY(ensureFormatting(g_state.formatting));
    Numbering numbering;
    if (!makeNumbering(rate, numbering))
        return KIVCS2STATUS_MEMORY_ERR;
    freeNumbering(g_state.numbering);

    static_cast<RateState &>(g_state) = stateOf(rate, numbering);
    // Kept: frames per millisecond despite the name; its one user multiplies by it.
    g_state.millisecondsPerFrame = rate.realFramesPerSecond / 1000.0;
    return KIVCS2STATUS_OK;
}

// ---- Fields

KIVCS2Status lookUp(const uint8_t *table, KIVCS2Timecode tc, uint32_t *value)
{
    uint32_t index = 0;
    KIV_TRY(frameWithinHour(g_state, tc, index));
    *value = table[index];
    return KIVCS2STATUS_OK;
}

// Takes numbers and no record, whose bytes the callers would gather before they know that they are illegal.
[[gnu::cold, gnu::noinline]] KIVCS2Status refuseIllegal(uint32_t hours, uint32_t minutes, uint32_t seconds,
                                                        uint32_t frames)
{
    KIV_LOG("Illegal timecode %02i:%02i:%02i:%02i\n", static_cast<int>(hours), static_cast<int>(minutes),
            static_cast<int>(seconds), static_cast<int>(frames));
    return KIVCS2STATUS_INVALID_TIMECODE_ERR;
}

// The only place that turns fields into a frame count; a rate is set.
KIVCS2Status setClock(KIVCS2Timecode &tc, const ClockFields &clock)
{
    if (setFields(g_state, tc, clock.hours, clock.minutes, clock.seconds, clock.frames)) [[likely]]
        return KIVCS2STATUS_OK;
    return refuseIllegal(clock.hours, clock.minutes, clock.seconds, clock.frames);
}

KIVCS2Status replaceField(KIVCS2Timecode &tc, uint32_t ClockFields::*field, uint32_t value)
{
    uint32_t index = 0;
    KIV_TRY(frameWithinHour(g_state, tc, index));
    ClockFields clock = clockOf(g_state, tc);
    clock.hours = static_cast<uint8_t>(clock.hours); // Kept: cut to 8 bits, like the fields of the caller
    clock.*field = static_cast<uint8_t>(value);
    return setClock(tc, clock);
}

// ---- Text

// The frame number for "hours:minutes:seconds". Kept: 2 also at 59.94, where minutes begin at 4, so that such
// a time is refused there.
uint32_t firstFrameNumber(uint32_t minutes, uint32_t seconds)
{
    return g_state.dropFrameTimecode && seconds == 0 && minutes % 10 != 0 ? 2 : 0;
}

// Stores the fields of a text; the record must be all zero before.
KIVCS2Status storeText(KIVCS2Timecode &tc, const TextFields &fields)
{
    if (fields.hasDate)
        setDate(tc, fields.date);
    const auto &time = fields.time;
    const uint32_t hours = static_cast<uint8_t>(time[0]); // Kept: only the hours are cut
    switch (fields.timeFields)
    {
    case 1:
        setFrames(tc, time[0]);
        return KIVCS2STATUS_OK;
    case 3:
        return setClock(tc, {hours, time[1], time[2], firstFrameNumber(time[1], time[2])});
    case 4:
        return setClock(tc, {hours, time[1], time[2], time[3]});
    default:
        return KIVCS2STATUS_OK;
    }
}

// The same for a text that was split with `status`: if that failed, only its date is stored.
KIVCS2Status storeSplit(KIVCS2Timecode &tc, const TextFields &fields, KIVCS2Status status)
{
    tc = 0;
    const KIVCS2Status stored = storeText(tc, fields);
    return KIVCS2_FAILED(status) ? status : stored;
}

// ---- Media time

struct FrameDuration
{
    uint32_t framesPerSecond;
    uint32_t timeOfDropFrame;
    uint32_t time;
    uint32_t scale;
};

constexpr FrameDuration kFrameDurations[] = {
    {24, 1001, 1000, 24000}, // Kept: 23.98 is not a drop-frame rate and reports 1000 like 24
    {25, 100, 100, 2500},    {30, 1001, 1000, 30000}, {50, 100, 100, 5000}, {60, 1001, 1000, 60000},
};
} // namespace

// ---- Frame rate

KIVCS2Status kivCS2Timecode_setFrameRate(KIVCS2FrameRate rate)
{
    if (rate >= KIVCS2FrameRate_MAX)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    return setFramerate(kRates[rate]);
}

KIVCS2Status kivCS2Timecode_getFramesPerSecond(uint32_t *fps)
{
    *fps = g_state.framesPerSecond;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getRealFramesPerSecond(double *fps)
{
    *fps = g_state.realFramesPerSecond;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getFramesPerDay(uint32_t *frames)
{
    *frames = g_state.framesPerDay;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getDropFrame(bool *dropFrame)
{
    if (dropFrame != nullptr) // Kept: success for null
        *dropFrame = g_state.dropFrameTimecode;
    return KIVCS2STATUS_OK;
}

// ---- Building and copying records

KIVCS2Status kivCS2Timecode_init(KIVCS2Timecode *tc)
{
    *tc = 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initWithTimecodeFields(KIVCS2Timecode *tc, uint8_t hours, uint8_t minutes,
                                                   uint8_t seconds, uint8_t frames)
{
    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;

    if (setFields(g_state, *tc, hours, minutes, seconds, frames)) [[likely]]
        return KIVCS2STATUS_OK;
    return refuseIllegal(hours, minutes, seconds, frames);
}

KIVCS2Status kivCS2Timecode_initWithFrames(KIVCS2Timecode *tc, uint32_t frames)
{
    *tc = frames;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initWithSeconds(KIVCS2Timecode *tc, double seconds)
{
    *tc = 0;
    return kivCS2Timecode_setSecondsSinceMidnight(tc, seconds);
}

KIVCS2Status kivCS2Timecode_initWithHours(KIVCS2Timecode *tc, uint8_t hours)
{
    *tc = uint64_t{hours} * g_state.framesPerHour;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_copy(KIVCS2Timecode *dst, const KIVCS2Timecode *src)
{
    *dst = *src;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_copyTimecode(KIVCS2Timecode *dst, const KIVCS2Timecode *src)
{
    setFrames(*dst, framesOf(*src));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_copyDate(KIVCS2Timecode *dst, const KIVCS2Timecode *src)
{
    setDate(*dst, dateOf(*src));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initWithDateAndTimecode(KIVCS2Timecode *dst, const KIVCS2Timecode *dateSource,
                                                    const KIVCS2Timecode *timecodeSource)
{
    const KIVCS2Timecode dated = *dateSource; // a copy, because either may be the record itself
    KIV_TRY(kivCS2Timecode_copyTimecode(dst, timecodeSource));
    return kivCS2Timecode_copyDate(dst, &dated);
}

// ---- Fields

KIVCS2Status kivCS2Timecode_getHours(const KIVCS2Timecode *tc, uint32_t *value)
{
    if (!isValid(*tc))
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    if (hasRate()) // Kept: success without a rate, and nothing stored
        *value = framesOf(*tc) / g_state.framesPerHour;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getMinutes(const KIVCS2Timecode *tc, uint32_t *value)
{
    return lookUp(g_state.numbering.convertMinute, *tc, value);
}

KIVCS2Status kivCS2Timecode_getSeconds(const KIVCS2Timecode *tc, uint32_t *value)
{
    return lookUp(g_state.numbering.convertSecond, *tc, value);
}

KIVCS2Status kivCS2Timecode_getFrames(const KIVCS2Timecode *tc, uint32_t *value)
{
    return lookUp(g_state.numbering.convertFrame, *tc, value);
}

KIVCS2Status kivCS2Timecode_setHours(KIVCS2Timecode *tc, uint32_t value)
{
    return replaceField(*tc, &ClockFields::hours, value);
}

KIVCS2Status kivCS2Timecode_setMinutes(KIVCS2Timecode *tc, uint32_t value)
{
    return replaceField(*tc, &ClockFields::minutes, value);
}

KIVCS2Status kivCS2Timecode_setSeconds(KIVCS2Timecode *tc, uint32_t value)
{
    return replaceField(*tc, &ClockFields::seconds, value);
}

KIVCS2Status kivCS2Timecode_setFrames(KIVCS2Timecode *tc, uint32_t value)
{
    return replaceField(*tc, &ClockFields::frames, value);
}

KIVCS2Status kivCS2Timecode_getFramesSinceMidnight(const KIVCS2Timecode *tc, uint32_t *frames)
{
    KIV_TRY(kivCS2Timecode_checkValidTimecode(tc));
    *frames = framesOf(*tc);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_setFramesSinceMidnight(KIVCS2Timecode *tc, uint32_t frames)
{
    setFrames(*tc, frames);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getSecondsSinceMidnight(const KIVCS2Timecode *tc, double *seconds)
{
    return secondsOf(g_state, *tc, *seconds);
}

KIVCS2Status kivCS2Timecode_setSecondsSinceMidnight(KIVCS2Timecode *tc, double seconds)
{
    setFrames(*tc, truncateToFrames(seconds * g_state.realFramesPerSecond));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getDay(const KIVCS2Timecode *tc, uint32_t *value)
{
    *value = dateOf(*tc).day;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getMonth(const KIVCS2Timecode *tc, uint32_t *value)
{
    *value = dateOf(*tc).month;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getYear(const KIVCS2Timecode *tc, uint32_t *value)
{
    *value = dateOf(*tc).year;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_setInvalidTimecode(KIVCS2Timecode *tc)
{
    setFrames(*tc, kInvalidFrames);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_checkValidTimecode(const KIVCS2Timecode *tc)
{
    return isValid(*tc) ? KIVCS2STATUS_OK : KIVCS2STATUS_INVALID_TIMECODE_ERR;
}

// ---- Calendar

KIVCS2Status kivCS2Timecode_isLeapYear(const KIVCS2Timecode *tc, uint32_t *result)
{
    KIV_CHECK(result);

    *result = isLeapYear(dateOf(*tc).year);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_getDaysInYear(const KIVCS2Timecode *tc, uint32_t *days)
{
    KIV_CHECK(days);

    *days = isLeapYear(dateOf(*tc).year) ? 366 : 365;
    return KIVCS2STATUS_PARAM_ERR; // Kept: hosts take the value and ignore the status
}

KIVCS2Status kivCS2Timecode_getDaysThisYear(const KIVCS2Timecode *tc, uint32_t *days)
{
    KIV_CHECK(days);

    if (hasMonth(*tc))
        *days = dayOfYear(dateOf(*tc)) + 1;
    return KIVCS2STATUS_PARAM_ERR; // Kept: hosts take the value and ignore the status
}

KIVCS2Status kivCS2Timecode_getDaysInMonth(const KIVCS2Timecode *tc, uint32_t *days)
{
    if (!hasMonth(*tc))
        return KIVCS2STATUS_PARAM_ERR;
    *days = daysInMonth(dateOf(*tc).month, dateOf(*tc).year);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_isSameDay(const KIVCS2Timecode *a, const KIVCS2Timecode *b, uint32_t *same)
{
    *same = dateBitsOf(*a) == dateBitsOf(*b);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_isToday(const KIVCS2Timecode *tc, uint32_t *same)
{
    KIVCS2Timecode now = 0;
    KIV_TRY(kivCS2Timecode_initWithNow(&now));
    return kivCS2Timecode_isSameDay(tc, &now, same);
}

KIVCS2Status kivCS2Timecode_zeroDate(KIVCS2Timecode *tc)
{
    *tc = framesOf(*tc);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_zeroTime(KIVCS2Timecode *tc)
{
    setFrames(*tc, 0);
    return KIVCS2STATUS_OK;
}

// ---- Adding and subtracting

KIVCS2Status kivCS2Timecode_addFrames(KIVCS2Timecode *tc, uint32_t frames)
{
    return addFrames(g_state, *tc, frames);
}

KIVCS2Status kivCS2Timecode_subtractFrames(KIVCS2Timecode *tc, uint32_t frames)
{
    return subtractFrames(g_state, *tc, frames);
}

// Kept: seconds, minutes and hours hide the result of adding their frames, and a second has the nominal
// number of frames also at the drop-frame rates. The products have 32 bits.

KIVCS2Status kivCS2Timecode_addSeconds(KIVCS2Timecode *tc, uint32_t count)
{
    (void)kivCS2Timecode_addFrames(tc, count * g_state.framesPerSecond);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_addMinutes(KIVCS2Timecode *tc, uint32_t count)
{
    (void)kivCS2Timecode_addFrames(tc, count * kSecondsPerMinute * g_state.framesPerSecond);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_addHours(KIVCS2Timecode *tc, uint32_t count)
{
    (void)kivCS2Timecode_addFrames(tc, count * g_state.framesPerHour);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_subtractSeconds(KIVCS2Timecode *tc, uint32_t count)
{
    (void)kivCS2Timecode_subtractFrames(tc, count * g_state.framesPerSecond);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_subtractMinutes(KIVCS2Timecode *tc, uint32_t count)
{
    (void)kivCS2Timecode_subtractFrames(tc, count * kSecondsPerMinute * g_state.framesPerSecond);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_subtractHours(KIVCS2Timecode *tc, uint32_t count)
{
    (void)kivCS2Timecode_subtractFrames(tc, count * g_state.framesPerHour);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_addDays(KIVCS2Timecode *tc, uint32_t count)
{
    return addDays(*tc, count);
}

KIVCS2Status kivCS2Timecode_addMonths(KIVCS2Timecode *tc, uint32_t count)
{
    setDate(*tc, addMonths(dateOf(*tc), count));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_addYears(KIVCS2Timecode *tc, uint32_t count)
{
    setDate(*tc, addYears(dateOf(*tc), count));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_subtractDays(KIVCS2Timecode *tc, uint32_t count)
{
    return subtractDays(*tc, count);
}

KIVCS2Status kivCS2Timecode_subtractMonths(KIVCS2Timecode *tc, uint32_t count)
{
    setDate(*tc, subtractMonths(dateOf(*tc), count));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_subtractYears(KIVCS2Timecode *tc, uint32_t count)
{
    setDate(*tc, subtractYears(dateOf(*tc), count));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_addTimecode(KIVCS2Timecode *tc, const KIVCS2Timecode *other)
{
    const KIVCS2Timecode added = *other;                 // a copy: it may be the record itself
    (void)kivCS2Timecode_addFrames(tc, framesOf(added)); // Kept: always a success
    (void)kivCS2Timecode_addDays(tc, dateOf(added).day);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initByAddingTimecodes(KIVCS2Timecode *result, const KIVCS2Timecode *a,
                                                  const KIVCS2Timecode *b)
{
    const KIVCS2Timecode added = *a; // a copy: it may be the result
    KIV_TRY(kivCS2Timecode_copy(result, b));
    return kivCS2Timecode_addTimecode(result, &added);
}

KIVCS2Status kivCS2Timecode_subtractTimecode(KIVCS2Timecode *tc, const KIVCS2Timecode *other)
{
    // Kept: the other's day field is ignored, although addition adds it.
    return kivCS2Timecode_subtractFrames(tc, framesOf(*other));
}

KIVCS2Status kivCS2Timecode_initBySubtractingTimecodes(KIVCS2Timecode *result, const KIVCS2Timecode *a,
                                                       const KIVCS2Timecode *b, uint32_t includeDays)
{
    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;

    // Kept: the day test reads the result as the caller passed it.
    if (includeDays != 0 && dateBitsOf(*result) != dateBitsOf(*a))
    {
        double seconds = 0;
        (void)kivCS2Timecode_differenceInSeconds(result, b, &seconds); // stores nothing on two days
        if (seconds >= kSecondsPerDay)
            return kivCS2Timecode_initWithFrames(result, g_state.framesPerDay - 1);
        return kivCS2Timecode_initWithSeconds(result, seconds);
    }
    const KIVCS2Timecode subtracted = *a; // a copy: it may be the result
    *result = *b;
    (void)kivCS2Timecode_subtractTimecode(result, &subtracted); // Kept: always a success
    if (includeDays != 0)
        (void)kivCS2Timecode_zeroDate(result); // cannot fail
    return KIVCS2STATUS_OK;
}

// ---- Comparing and measuring

KIVCS2Status kivCS2Timecode_compare(const KIVCS2Timecode *a, const KIVCS2Timecode *b, int32_t *result)
{
    KIV_CHECK(result);

    return compareFrames(*a, *b, *result);
}

KIVCS2Status kivCS2Timecode_isSameTimecode(const KIVCS2Timecode *a, const KIVCS2Timecode *b, uint32_t *same)
{
    int32_t order = 0;
    *same = KIVCS2_SUCCEEDED(kivCS2Timecode_compare(a, b, &order)) && order == 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_differenceInFrames(const KIVCS2Timecode *a, const KIVCS2Timecode *b,
                                               int64_t *difference)
{
    KIV_CHECK(difference);

    return framesBetween(g_state, *a, *b, *difference);
}

KIVCS2Status kivCS2Timecode_differenceInSeconds(const KIVCS2Timecode *a, const KIVCS2Timecode *b,
                                                double *difference)
{
    return secondsBetween(g_state, *a, *b, *difference);
}

// ---- Stepping, scaling and snapping

KIVCS2Status kivCS2Timecode_tick(KIVCS2Timecode *tc)
{
    return kivCS2Timecode_addFrames(tc, 1);
}

KIVCS2Status kivCS2Timecode_tickDown(KIVCS2Timecode *tc, uint32_t *nonZero)
{
    KIV_TRY(kivCS2Timecode_subtractFrames(tc, 1));
    *nonZero = framesOf(*tc) != 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_multiply(KIVCS2Timecode *tc, uint32_t factor)
{
    KIV_TRY(multiplyFrames(g_state, *tc, factor));
    return kivCS2Timecode_ensureLegalDuration(tc);
}

KIVCS2Status kivCS2Timecode_initByMultiplyingTimecode(KIVCS2Timecode *result, const KIVCS2Timecode *tc,
                                                      uint32_t factor)
{
    *result = *tc;
    return kivCS2Timecode_multiply(result, factor);
}

KIVCS2Status kivCS2Timecode_snapToMinute(KIVCS2Timecode *tc, uint32_t minutes)
{
    return snapToMinutes(g_state, *tc, minutes);
}

KIVCS2Status kivCS2Timecode_snapToHour(KIVCS2Timecode *tc, uint32_t hours)
{
    return snapToHours(g_state, *tc, hours);
}

// ---- Durations

KIVCS2Status kivCS2Timecode_isDuration(const KIVCS2Timecode *tc, uint32_t *isDuration)
{
    *isDuration = dateBitsOf(*tc) == 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_ensureLegalDuration(KIVCS2Timecode *tc)
{
    if (dateOf(*tc).day == 0)
        return kivCS2Timecode_zeroDate(tc);
    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;
    *tc = g_state.framesPerDay - 1;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initWithDuration(KIVCS2Timecode *tc, uint32_t frames)
{
    *tc = frames;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initWithTimecodeFieldsForDuration(KIVCS2Timecode *tc, uint8_t hours,
                                                              uint8_t minutes, uint8_t seconds,
                                                              uint8_t frames)
{
    setFrames(*tc, frames + seconds * g_state.framesPerSecond +
                       minutes * kSecondsPerMinute * g_state.framesPerSecond + hours * g_state.framesPerHour);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_convertMillisecondsToDuration(uint64_t milliseconds, uint32_t *frames)
{
    *frames = truncateToFrames(static_cast<double>(milliseconds) * g_state.millisecondsPerFrame);
    return KIVCS2STATUS_OK;
}

// ---- Text

KIVCS2Status kivCS2Timecode_initWithString(KIVCS2Timecode *tc, const char *string)
{
    KIV_CHECK(string);
    KIV_CHECK(tc);

    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;
    TextFields fields{};
    if (splitPlainText(string, fields)) [[likely]]
    {
        *tc = 0;
        return storeText(*tc, fields);
    }
    if (isASCII(string))
    {
        const bool split = splitText(string, fields);
        return storeSplit(*tc, fields, split ? KIVCS2STATUS_OK : KIVCS2STATUS_PARAM_ERR);
    }
    CFStringRef text = nullptr;
    KIV_TRY(kivCS2String_createCFStringWithEncoding(string, KIVCS2_STRING_MEASURE, &text,
                                                    KIVCS2StringEncoding_UTF8));
    const kiv::CFRef<CFStringRef> owned{text};
    return kivCS2Timecode_initWithCFString(tc, owned.get());
}

KIVCS2Status kivCS2Timecode_initWithCFString(KIVCS2Timecode *tc, CFStringRef string)
{
    KIV_CHECK(string);
    KIV_CHECK(tc);

    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;
    TextFields fields{};
    const KIVCS2Status status = splitText(g_state.formatting, string, fields);
    return storeSplit(*tc, fields, status);
}

KIV_UNGUARDED KIVCS2Status kivCS2Timecode_timecodeToString(const KIVCS2Timecode *tc, char *buffer,
                                                           uint32_t bufferSize)
{
    KIV_CHECK(tc);
    KIV_CHECK(buffer);

    const Date date = dateOf(*tc);
    const bool dated = date.year > 0;
    if (bufferSize < (dated ? kDateTimeBufferSize : kTimeBufferSize))
        return KIVCS2STATUS_BUFFER_SIZE_ERR;
    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;

    const ClockFields clock = clockOf(g_state, *tc);
    const size_t written = dated ? writeDateAndTime(date, clock, frameSeparator(g_state), buffer, bufferSize)
                                 : writeTime(clock, frameSeparator(g_state), buffer, bufferSize);
    return written > 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_BUFFER_SIZE_ERR;
}

KIVCS2Status kivCS2Timecode_print(const KIVCS2Timecode *tc)
{
    if (tc == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;

    const ClockFields clock = clockOf(g_state, *tc);
    KIV_LOG("%02i:%02i:%02i%c%02i\n", static_cast<int>(clock.hours), static_cast<int>(clock.minutes),
            static_cast<int>(clock.seconds), frameSeparator(g_state), static_cast<int>(clock.frames));
    return KIVCS2STATUS_OK;
}

// ---- BCD

KIVCS2Status kivCS2Timecode_getBCDFromTimecode(const KIVCS2Timecode *tc, uint32_t *bcd)
{
    if (tc == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;

    *bcd = bcdOfFields(clockOf(g_state, *tc));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initWithBCD(KIVCS2Timecode *tc, uint32_t bcd)
{
    if (tc == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;

    *tc = 0;
    (void)setClock(*tc, fieldsOfBCD(bcd)); // Kept: success, although the digits may name no frame
    return KIVCS2STATUS_OK;
}

// ---- System dates

KIVCS2Status kivCS2Timecode_initWithDate(KIVCS2Timecode *tc, CFDateRef date, uint32_t includeTime)
{
    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;

    DateReading reading{};
    KIV_TRY(readDate(g_state.formatting, date, includeTime != 0, reading));
    setFromReading(g_state, *tc, reading, includeTime != 0);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initWithNow(KIVCS2Timecode *tc)
{
    const kiv::CFRef<CFDateRef> now{CFDateCreate(nullptr, CFAbsoluteTimeGetCurrent())};
    return now ? kivCS2Timecode_initWithDate(tc, now.get(), 1) : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2Timecode_initWithCalendarDate(KIVCS2Timecode *tc)
{
    const kiv::CFRef<CFDateRef> now{CFDateCreate(nullptr, CFAbsoluteTimeGetCurrent())};
    return now ? kivCS2Timecode_initWithDate(tc, now.get(), 0) : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2Timecode_createCFDate(const KIVCS2Timecode *tc, CFDateRef *date)
{
    KIV_ASSERT(date);

    if (!hasRate())
        return KIVCS2STATUS_FRAME_RATE_ERR;
    const kiv::CFRef<CFCalendarRef> calendar{CFCalendarCopyCurrent()};
    if (!calendar)
        return KIVCS2STATUS_DATA_ERR;

    // A second has fewer frames than framesPerSecond counts, so frames never add up to a whole second.
    const Date day = dateOf(*tc);
    const ClockFields clock = clockOf(g_state, *tc);
    CFAbsoluteTime at = 0;
    // Kept: month and day are composed zero-based, so the result is one month and one day early.
    if (!CFCalendarComposeAbsoluteTime(calendar.get(), &at, "yMdHms", static_cast<int>(day.year),
                                       static_cast<int>(day.month), static_cast<int>(day.day),
                                       static_cast<int>(clock.hours), static_cast<int>(clock.minutes),
                                       static_cast<int>(clock.seconds)))
        return KIVCS2STATUS_DATA_ERR;
    *date = CFDateCreate(nullptr, at);
    return *date != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_PARAM_ERR;
}

// ---- Media time

KIVCS2Status kivCS2Timecode_getTimeAndScale(uint32_t *time, uint32_t *scale)
{
    FrameDuration duration{};
    for (const FrameDuration &row : kFrameDurations)
        if (row.framesPerSecond == g_state.framesPerSecond)
            duration = row;
    if (time != nullptr)
        *time = g_state.dropFrameTimecode ? duration.timeOfDropFrame : duration.time;
    if (scale != nullptr)
        *scale = duration.scale;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timecode_initWithTimeAndScale(KIVCS2Timecode *tc, uint32_t time, uint32_t scale)
{
    return kivCS2Timecode_initWithSeconds(tc, static_cast<double>(time) / static_cast<double>(scale));
}
