// The record of a timecode and its arithmetic under any frame rate, shared by the C operations and the class,
// each with its own rate. Without a rate no function here divides or loops.
#ifndef KIV_PRIVATE_TIMECODE_RECORD_H
#define KIV_PRIVATE_TIMECODE_RECORD_H

#include "KIVCS2Timecode.h"
#include "Private/Timecode/Calendar.h"
#include "Private/Timecode/Numbering.h"
#include "Private/Timecode/Text.h"

namespace kiv::timecode
{
constexpr uint32_t kInvalidFrames = 0xFFFFFFFFu;
constexpr uint32_t kHoursPerDay = 24;
constexpr double kSecondsPerDay = 86400.0;
constexpr uint32_t kDayShift = 32;
constexpr uint32_t kMonthShift = 40;
constexpr uint32_t kYearShift = 48;

// The current rate: its figures and its tables. All zero while no rate is set.
struct RateState
{
    uint32_t framesPerSecond;
    double realFramesPerSecond;
    bool dropFrameTimecode;
    uint32_t framesPerHour;
    uint32_t framesPerDay;
    Numbering numbering; // convertFrame, convertSecond, convertMinute
};

[[nodiscard]] constexpr RateState stateOf(const Rate &rate, const Numbering &numbering)
{
    return {rate.framesPerSecond, rate.realFramesPerSecond,          rate.droppedPerMinute > 0,
            rate.framesPerHour,   kHoursPerDay * rate.framesPerHour, numbering};
}

[[nodiscard]] inline bool hasRate(const RateState &state)
{
    return state.framesPerHour != 0;
}

// ---- The record

[[nodiscard]] constexpr uint32_t framesOf(KIVCS2Timecode tc)
{
    return static_cast<uint32_t>(tc);
}

[[nodiscard]] constexpr bool isValid(KIVCS2Timecode tc)
{
    return framesOf(tc) != kInvalidFrames;
}

[[nodiscard]] constexpr uint32_t dateBitsOf(KIVCS2Timecode tc)
{
    return static_cast<uint32_t>(tc >> kDayShift);
}

[[nodiscard]] constexpr Date dateOf(KIVCS2Timecode tc)
{
    return {static_cast<uint8_t>(tc >> kDayShift), static_cast<uint8_t>(tc >> kMonthShift),
            static_cast<uint16_t>(tc >> kYearShift)};
}

constexpr void setFrames(KIVCS2Timecode &tc, uint32_t frames)
{
    tc = (tc >> kDayShift << kDayShift) | frames;
}

constexpr void setDate(KIVCS2Timecode &tc, const Date &date)
{
    tc = uint64_t{date.year} << kYearShift | uint64_t{date.month} << kMonthShift |
         uint64_t{date.day} << kDayShift | framesOf(tc);
}

// The calendar's tables hold twelve months; a record can hold 256.
[[nodiscard]] constexpr bool hasMonth(KIVCS2Timecode tc)
{
    return dateOf(tc).month < kMonthsPerYear;
}

// ---- Fields

// Every lookup starts here: stores the frame of the hour, if the record is valid and there are tables.
[[nodiscard]] inline KIVCS2Status frameWithinHour(const RateState &state, KIVCS2Timecode tc, uint32_t &index)
{
    if (!isValid(tc))
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    if (!hasRate(state))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    index = framesOf(tc) % state.framesPerHour;
    return KIVCS2STATUS_OK;
}

// All four fields of a record under a rate; an invalid record reads as zeros.
[[nodiscard]] inline ClockFields clockOf(const RateState &state, KIVCS2Timecode tc)
{
    if (!isValid(tc))
        return {};
    const Numbering &numbering = state.numbering;
    const uint32_t hours = framesOf(tc) / state.framesPerHour;
    const uint32_t index = framesOf(tc) - hours * state.framesPerHour;
    return {hours, numbering.convertMinute[index], numbering.convertSecond[index],
            numbering.convertFrame[index]};
}

// Sets the frame count from four fields; the date stays. For fields that name no frame only the hours are
// used and the result is false: the caller logs them.
[[nodiscard]] inline bool setFields(const RateState &state, KIVCS2Timecode &tc, uint32_t hours,
                                    uint32_t minutes, uint32_t seconds, uint32_t frames)
{
    const uint32_t firstOfHour = hours * state.framesPerHour;
    const uint32_t frame = frameOfHour(state.numbering, minutes, seconds, frames);
    // Kept: the hours stay, and the record is not marked invalid.
    setFrames(tc, frame == kNoFrame ? firstOfHour : firstOfHour + frame);
    return frame != kNoFrame;
}

[[nodiscard]] inline char frameSeparator(const RateState &state)
{
    return state.dropFrameTimecode ? ';' : ':';
}

// A double cut to its low 32 bits by way of 64; a value that 64 bits do not hold gives 0.
[[nodiscard]] uint32_t truncateToFrames(double frames);

// The frame count divided by the real rate; a failure stores nothing.
[[nodiscard]] KIVCS2Status secondsOf(const RateState &state, KIVCS2Timecode tc, double &seconds);

// An unpacked date, with its one-based day and month.
struct DateReading
{
    uint32_t day, month, year;
    uint32_t hours, minutes, seconds, milliseconds;
};

// Sets the date and, with its time, the frame from frameOfClockTime(); otherwise frame count 0.
void setFromReading(const RateState &state, KIVCS2Timecode &tc, const DateReading &reading, bool includeTime);

// ---- Arithmetic. A failure leaves the record unchanged.

// Adds whole days carried from frames, and stores the remaining frames.
[[nodiscard]] KIVCS2Status carryDays(KIVCS2Timecode &tc, const Carry &carry);

[[nodiscard]] inline KIVCS2Status addFrames(const RateState &state, KIVCS2Timecode &tc, uint32_t frames)
{
    if (!isValid(tc))
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    if (!hasRate(state))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    const uint32_t sum = framesOf(tc) + frames;
    if (sum < state.framesPerDay) [[likely]]
    {
        setFrames(tc, sum);
        return KIVCS2STATUS_OK;
    }
    return carryDays(tc, {sum % state.framesPerDay, sum / state.framesPerDay});
}

// Borrows whole days from the date: for more frames than the record counts.
[[nodiscard]] KIVCS2Status borrowDays(const RateState &state, KIVCS2Timecode &tc, uint32_t frames);

[[nodiscard]] inline KIVCS2Status subtractFrames(const RateState &state, KIVCS2Timecode &tc, uint32_t frames)
{
    if (!isValid(tc))
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    if (frames > framesOf(tc))
        return borrowDays(state, tc, frames);
    setFrames(tc, framesOf(tc) - frames);
    return KIVCS2STATUS_OK;
}

[[nodiscard]] KIVCS2Status addDays(KIVCS2Timecode &tc, uint32_t count);
[[nodiscard]] KIVCS2Status subtractDays(KIVCS2Timecode &tc, uint32_t count);

// Adds the frame count to itself until it has `factor` times its value; 0 and 1 change nothing.
[[nodiscard]] KIVCS2Status multiplyFrames(const RateState &state, KIVCS2Timecode &tc, uint32_t factor);

// Round the frame count down to a multiple. Kept: a minute has the nominal number of frames also at the
// drop-frame rates, so a snapped count need not be a whole minute.
[[nodiscard]] KIVCS2Status snapToMinutes(const RateState &state, KIVCS2Timecode &tc, uint32_t minutes);
[[nodiscard]] KIVCS2Status snapToHours(const RateState &state, KIVCS2Timecode &tc, uint32_t hours);

// ---- Measuring. A failure stores nothing.

// For two valid records: 1, 0 or -1 by the frame counts.
[[nodiscard]] KIVCS2Status compareFrames(KIVCS2Timecode a, KIVCS2Timecode b, int32_t &result);
// From `a` to `b`, which on two days is assumed to be the later year.
[[nodiscard]] KIVCS2Status framesBetween(const RateState &state, KIVCS2Timecode a, KIVCS2Timecode b,
                                         int64_t &difference);
// Kept: `a` less `b`, the reverse order; on two days a success that stores nothing.
[[nodiscard]] KIVCS2Status secondsBetween(const RateState &state, KIVCS2Timecode a, KIVCS2Timecode b,
                                          double &difference);
} // namespace kiv::timecode

#endif
