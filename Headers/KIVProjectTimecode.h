/**
 * @file
 * The project timecode: a KIVCS2Timecode as an object, for hosts written in C++.
 *
 * A KIVProjectTimecode holds only its record: the 64 bits of KIVCS2Timecode.h, day and month zero-based, all
 * 0 in a new object. It is copied like a number, eight bytes large, and that is part of the interface:
 * CS2Timecode() returns the record for the C operations, setCS2Timecode() stores it again.
 *
 * The class has its own frame rate: a host that also uses the C operations sets both rates. Until
 * setFrameRate() has been called, digits and seconds read as 0 and set a frame count of 0, frames are not
 * added, conversions from dates leave the object unchanged and those to dates return null.
 *
 * Members are named by the first keyword of their selector and take the others as parameters
 * (setHours:minutes:seconds:frames:format: is setHours()); the table is Docs/project-timecode.md.
 * Each init member resets the object and returns it, and a static timecodeWith... makes a new one. There is
 * no status and no exception. If a month of 12 or more, an invalid frame count (0xFFFFFFFF) or a missing rate
 * prevents a calculation, the object is unchanged, or the result is 0, false or null.
 *
 * Dates are CFDateRef and texts CFStringRef: those that a member returns belong to the caller, who releases
 * them with CFRelease(), and are null if there is no memory. A null text reads as an empty one, a null date
 * leaves the object unchanged. Overloads take UTF-8 (invalid UTF-8 gives null), and write a text to a buffer
 * of the caller's.
 *
 * The class exists for C++14 and later; C and C++11 may include the header but get no class. The overloads
 * for std::string_view need C++17.
 *
 * setFrameRate() must not run while another thread uses the class. Afterwards all members may run on any
 * number of threads, each on its own objects.
 *
 * @code{.cpp}
 * KIVProjectTimecode::fps25(); // once, before the threads start
 * KIVProjectTimecode timecode = KIVProjectTimecode::timecodeWithString("15.3.2024 23:59:59:24");
 * timecode.tick();
 * char text[KIVProjectTimecode::kTextSize];
 * if (timecode.SMPTERepresentation(text, sizeof text).empty())
 *     return 1;
 * std::puts(text); // prints: 16.3.2024 00:00:00:00
 * @endcode
 */
#ifndef KIV_PROJECT_TIMECODE_H
#define KIV_PROJECT_TIMECODE_H

#include "KIVCS2Timecode.h"

#include <CoreMedia/CoreMedia.h>

#if defined(__cplusplus) && __cplusplus >= 201402L

#include <stddef.h>

#if __cplusplus >= 201703L
#include <string_view>
#define KIV_NODISCARD [[nodiscard]]
#else
#define KIV_NODISCARD
#endif

/** A time of day counted in frames, with a date: the 64 bits of a KIVCS2Timecode as an object. */
class KIVCS2_API KIVProjectTimecode
{
public:
    /* ---- Frame rate, of the whole class ------------------------------------------------------- */

    /**
     * Sets the rate of the class; codes of 8 and more are ignored, and so is the call if there is no memory:
     * see currentFrameRate(). Objects keep their frame counts. The tables of a rate are built once and stay.
     * Thread safety: not while another thread uses the class. Source: SMPTE ST 12-1.
     */
    static void setFrameRate(KIVCS2FrameRate rate) noexcept;

    /** Sets 23.98 frames a second; the next seven set the rate of their name. */
    static void fps2398() noexcept
    {
        setFrameRate(KIVCS2FrameRate_23_98);
    }
    /** Sets 24. */
    static void fps24() noexcept
    {
        setFrameRate(KIVCS2FrameRate_24);
    }
    /** Sets 25. */
    static void fps25() noexcept
    {
        setFrameRate(KIVCS2FrameRate_25);
    }
    /** Sets 29.97, drop-frame. */
    static void fps2997() noexcept
    {
        setFrameRate(KIVCS2FrameRate_29_97);
    }
    /** Sets 30. */
    static void fps30() noexcept
    {
        setFrameRate(KIVCS2FrameRate_30);
    }
    /** Sets 50. */
    static void fps50() noexcept
    {
        setFrameRate(KIVCS2FrameRate_50);
    }
    /** Sets 59.94, drop-frame. */
    static void fps5994() noexcept
    {
        setFrameRate(KIVCS2FrameRate_59_94);
    }
    /** Sets 60. */
    static void fps60() noexcept
    {
        setFrameRate(KIVCS2FrameRate_60);
    }

    /** The current code; KIVCS2FrameRate_MAX while no rate is set. */
    KIV_NODISCARD static KIVCS2FrameRate currentFrameRate() noexcept;
    /** True once a rate is set. */
    KIV_NODISCARD static bool hasValidFrameRate() noexcept;
    /** The nominal integer rate: 24, 25, 30, 50 or 60. */
    KIV_NODISCARD static uint32_t framesPerSecond() noexcept;
    /** The rate for calculations with seconds: 23.98, 24, 25, 29.97, 30, 50, 59.94 or 60. */
    KIV_NODISCARD static double realFramesPerSecond() noexcept;
    /** Returns true at 29.97 and 59.94. */
    KIV_NODISCARD static bool dropFrameTimecode() noexcept;
    /** Frames of one hour of timecode; 0 while no rate is set. */
    KIV_NODISCARD static uint32_t framesPerHour() noexcept;
    /** Frames of 24 hours of timecode; 0 while no rate is set. */
    KIV_NODISCARD static uint32_t framesPerDay() noexcept;

    /* ---- Creation ----------------------------------------------------------------------------- */

    /** Midnight without a date: all 64 bits 0. */
    constexpr KIVProjectTimecode() noexcept = default;

    /** The first frame of the hour; hours have no upper limit. */
    KIVProjectTimecode &initWithHours(uint8_t hours) noexcept;

    /** As setHours() with format 0, without a date. */
    KIVProjectTimecode &initWithHours(uint8_t hours, uint8_t minutes, uint8_t seconds,
                                      uint8_t frames) noexcept;

    /**
     * Parses "15.3.2024 10:00:00:00" or parts of it. The date and one space may be missing. The time is a
     * frame count, hours and minutes, or also seconds and frames, with ":" or ";" between these two. Each
     * field is the decimal number it begins with, 0 for anything else; hours, minutes, seconds and frames are
     * cut to 8 bits. A date that does not have three fields is ignored. For a time that names no frame see
     * setHours().
     */
    KIVProjectTimecode &initWithString(CFStringRef string) noexcept;
#if __cplusplus >= 201703L
    /** The same from UTF-8, or any other encoding that contains ASCII. */
    KIVProjectTimecode &initWithString(std::string_view text) noexcept
    {
        return initWithText(text.data(), text.size());
    }
#endif

    /** `time` / `scale` seconds, as setSecondsSinceMidnight(); a scale of 0 is midnight. */
    KIVProjectTimecode &initWithTime(uint32_t time, uint32_t scale) noexcept;
    /** As setSecondsSinceMidnight(). */
    KIVProjectTimecode &initWithSeconds(double seconds) noexcept;
    /** Any frame count, stored unchecked. */
    constexpr KIVProjectTimecode &initWithFrames(uint32_t frames) noexcept
    {
        m_fields = frames;
        return *this;
    }
    /** Date and time of a system date, as fromDate(). */
    KIVProjectTimecode &initWithDate(CFDateRef date) noexcept;
    /** Date and time of a system date, as fromCFDate(). */
    KIVProjectTimecode &initWithCFDate(CFDateRef date) noexcept;
    /** The date of one object with the frame count of the other. */
    constexpr KIVProjectTimecode &initWithDate(const KIVProjectTimecode &date,
                                               const KIVProjectTimecode &timecode) noexcept
    {
        m_fields = (date.m_fields & kDateMask) | (timecode.m_fields & ~kDateMask);
        return *this;
    }
    /** All 64 bits of a record. */
    constexpr KIVProjectTimecode &initWithCS2Timecode(KIVCS2Timecode timecode) noexcept
    {
        m_fields = timecode;
        return *this;
    }

    /** A new object by the init member of the same arguments; so for all timecodeWith... below. */
    KIV_NODISCARD static KIVProjectTimecode timecodeWithHours(uint8_t hours) noexcept
    {
        return KIVProjectTimecode{}.initWithHours(hours);
    }
    /** By initWithHours() with four fields. */
    KIV_NODISCARD static KIVProjectTimecode timecodeWithHours(uint8_t hours, uint8_t minutes, uint8_t seconds,
                                                              uint8_t frames) noexcept
    {
        return KIVProjectTimecode{}.initWithHours(hours, minutes, seconds, frames);
    }
    /** By initWithString(). */
    KIV_NODISCARD static KIVProjectTimecode timecodeWithString(CFStringRef string) noexcept
    {
        return KIVProjectTimecode{}.initWithString(string);
    }
#if __cplusplus >= 201703L
    /** By initWithString(). */
    KIV_NODISCARD static KIVProjectTimecode timecodeWithString(std::string_view text) noexcept
    {
        return KIVProjectTimecode{}.initWithString(text);
    }
#endif
    /** By initWithTime(). */
    KIV_NODISCARD static KIVProjectTimecode timecodeWithTime(uint32_t time, uint32_t scale) noexcept
    {
        return KIVProjectTimecode{}.initWithTime(time, scale);
    }
    /** By initWithSeconds(). */
    KIV_NODISCARD static KIVProjectTimecode timecodeWithSeconds(double seconds) noexcept
    {
        return KIVProjectTimecode{}.initWithSeconds(seconds);
    }
    /** By initWithFrames(). */
    KIV_NODISCARD static constexpr KIVProjectTimecode timecodeWithFrames(uint32_t frames) noexcept
    {
        return KIVProjectTimecode{}.initWithFrames(frames);
    }
    /** By initWithDate(). */
    KIV_NODISCARD static KIVProjectTimecode timecodeWithDate(CFDateRef date) noexcept
    {
        return KIVProjectTimecode{}.initWithDate(date);
    }
    /** By initWithCFDate(). */
    KIV_NODISCARD static KIVProjectTimecode timecodeWithCFDate(CFDateRef date) noexcept
    {
        return KIVProjectTimecode{}.initWithCFDate(date);
    }
    /** By initWithDate() with two objects. */
    KIV_NODISCARD static constexpr KIVProjectTimecode
    timecodeCombiningDate(const KIVProjectTimecode &date, const KIVProjectTimecode &timecode) noexcept
    {
        return KIVProjectTimecode{}.initWithDate(date, timecode);
    }
    /** By initWithCS2Timecode(). */
    KIV_NODISCARD static constexpr KIVProjectTimecode
    timecodeWithCS2Timecode(KIVCS2Timecode timecode) noexcept
    {
        return KIVProjectTimecode{}.initWithCS2Timecode(timecode);
    }

    /** Today, at frame count 0. */
    KIV_NODISCARD static KIVProjectTimecode calendarDate() noexcept;
    /** Today and the current time. */
    KIV_NODISCARD static KIVProjectTimecode now() noexcept;
    /** Midnight without a date; it is the class method zeroTime, but a member has that name here. */
    KIV_NODISCARD static constexpr KIVProjectTimecode timecodeWithZeroTime() noexcept
    {
        return {};
    }

    /* ---- Fields ------------------------------------------------------------------------------- */

    /** All 64 bits. */
    KIV_NODISCARD constexpr uint64_t ticks() const noexcept
    {
        return m_fields;
    }
    /** The record, for the C operations. */
    KIV_NODISCARD constexpr KIVCS2Timecode CS2Timecode() const noexcept
    {
        return m_fields;
    }
    /** Stores a record, unchecked. */
    constexpr void setCS2Timecode(KIVCS2Timecode timecode) noexcept
    {
        m_fields = timecode;
    }

    /** The frame number within the second; 0 without a rate and for an invalid frame count. */
    KIV_NODISCARD uint32_t frames() const noexcept;
    /** The seconds, 0 to 59; 0 as frames(). */
    KIV_NODISCARD uint32_t seconds() const noexcept;
    /** The minutes, 0 to 59; 0 as frames(). */
    KIV_NODISCARD uint32_t minutes() const noexcept;
    /** The hours, 24 and more if the frame count is beyond a day. */
    KIV_NODISCARD uint32_t hours() const noexcept;

    /** The stored day of the month, from 0; in a duration the number of whole days. */
    KIV_NODISCARD constexpr uint32_t day() const noexcept
    {
        return static_cast<uint8_t>(m_fields >> 32);
    }
    /** The stored month: 0 is January. */
    KIV_NODISCARD constexpr uint32_t month() const noexcept
    {
        return static_cast<uint8_t>(m_fields >> 40);
    }
    /** The year, 16 bits; 0 in a duration. */
    KIV_NODISCARD constexpr uint32_t year() const noexcept
    {
        return static_cast<uint16_t>(m_fields >> 48);
    }

    /**
     * Sets the frame count from fields; the date stays.
     * @param[in] hours    no upper limit
     * @param[in] minutes  0 to 59
     * @param[in] seconds  0 to 59
     * @param[in] frames   below the nominal rate, or half of it with a format of 1 or 2
     * @param[in] format   0: `frames` is used unchanged; 1 and 2: from 31 frames per second on, `frames`
     *                     counts pairs of frames and means the first (1) or the second (2) of its pair
     * Fields that name no frame are logged ("Illegal timecode ...") and only the hours are used.
     * Source: SMPTE ST 12-1, and its frame pairs above 30 frames a second.
     */
    void setHours(uint8_t hours, uint8_t minutes, uint8_t seconds, uint8_t frames, uint32_t format) noexcept;

    /** The stored frame count; 0xFFFFFFFF marks the object invalid. */
    KIV_NODISCARD constexpr uint32_t framesSinceMidnight() const noexcept
    {
        return static_cast<uint32_t>(m_fields);
    }
    /** Stores any frame count unchecked; the date stays. */
    constexpr void setFramesSinceMidnight(uint32_t frames) noexcept
    {
        m_fields = (m_fields & kDateMask) | frames;
    }
    /** The frame count divided by realFramesPerSecond(). */
    KIV_NODISCARD double secondsSinceMidnight() const noexcept;
    /**
     * Sets the frame count to `seconds` times realFramesPerSecond(), truncated and cut to its low 32 bits; a
     * product beyond 64 bits, infinities and NaN give 0. The date stays.
     */
    void setSecondsSinceMidnight(double seconds) noexcept;
    /** secondsSinceMidnight() plus 86400 for each day of the day field, whatever the date. */
    KIV_NODISCARD double totalSeconds() const noexcept;

    /**
     * Hours, minutes, seconds and, in the low byte, frames as two decimal digits each; no flag bits. The
     * frames are those of frames(), up to 59: pairs are not halved. For hours of 100 and more the tens
     * overflow their byte and its low 8 bits are kept.
     */
    KIV_NODISCARD uint32_t bcdTimecode() const noexcept;
    /**
     * Sets a time without a date from such a word; flag bits are not masked. No such frame: see setHours().
     */
    void setBcdTimecode(uint32_t bcd) noexcept;

    /** Days of the month in its year; 0 for a month of 12 or more. */
    KIV_NODISCARD uint32_t daysInMonth() const noexcept;
    /** Always 0. */
    KIV_NODISCARD constexpr uint32_t dayOfWeek() const noexcept
    {
        return 0;
    }
    /** Always 0. */
    KIV_NODISCARD constexpr double timeIntervalSinceReferenceDate() const noexcept
    {
        return 0.0;
    }

    /* ---- Adding and subtracting: see the operations of these names in KIVCS2Timecode.h --------- */

    /** Modulo 2 to the 32nd; whole days go into the date, or into the day field of a duration. */
    void addFrames(uint32_t frames) noexcept;
    /** Seconds of the nominal rate: 30 or 60 frames each at the drop-frame rates. */
    void addSeconds(uint32_t seconds) noexcept;
    /** 60 nominal seconds each. */
    void addMinutes(uint32_t minutes) noexcept;
    /** Hours of timecode. */
    void addHours(uint32_t hours) noexcept;
    /** The year wraps at 65536. */
    void addDays(uint32_t days) noexcept;
    /** The day is not clamped to the new month. */
    void addMonths(uint32_t months) noexcept;
    /** The year wraps at 65536. */
    void addYears(uint32_t years) noexcept;
    /** Adds the frame count and then the day field of the other object, which may be this one. */
    void addTimecode(const KIVProjectTimecode &other) noexcept;
    /** `to` plus `timecode`. */
    KIV_NODISCARD static KIVProjectTimecode timecodeAdding(const KIVProjectTimecode &timecode,
                                                           const KIVProjectTimecode &to) noexcept
    {
        KIVProjectTimecode sum = to;
        sum.addTimecode(timecode);
        return sum;
    }

    /** Days are borrowed from the date. */
    void subtractFrames(uint32_t frames) noexcept;
    /** As addSeconds(). */
    void subtractSeconds(uint32_t seconds) noexcept;
    /** As addMinutes(). */
    void subtractMinutes(uint32_t minutes) noexcept;
    /** As addHours(). */
    void subtractHours(uint32_t hours) noexcept;
    /** The year stops at 0. */
    void subtractDays(uint32_t days) noexcept;
    /** The day is not clamped; the year stops at 0. */
    void subtractMonths(uint32_t months) noexcept;
    /** The year stops at 0. */
    void subtractYears(uint32_t years) noexcept;
    /** Subtracts the other's frame count; its day field is ignored, although addTimecode() adds it. */
    void subtractTimecode(const KIVProjectTimecode &other) noexcept
    {
        subtractFrames(other.framesSinceMidnight());
    }
    /** Subtracts the other's frame count and then its day field as days. */
    void subtractTimecodeIncludingDays(const KIVProjectTimecode &other) noexcept
    {
        subtractFrames(other.framesSinceMidnight());
        subtractDays(other.day());
    }
    /** `from` minus `timecode`, as the next operation with `framesOnly` false. */
    KIV_NODISCARD static KIVProjectTimecode timecodeSubtracting(const KIVProjectTimecode &timecode,
                                                                const KIVProjectTimecode &from,
                                                                bool timecodeOnly) noexcept
    {
        return timecodeSubtracting(timecode, from, timecodeOnly, false);
    }
    /**
     * `from` minus `timecode`. With `timecodeOnly`, if `from` is on a later day, the result has no date and
     * counts the frames across the days, modulo 2 to the 32nd; otherwise it is a copy of `from` less the
     * frame count of `timecode`. `framesOnly` makes no difference: the count may exceed a day in both cases.
     */
    KIV_NODISCARD static KIVProjectTimecode timecodeSubtracting(const KIVProjectTimecode &timecode,
                                                                const KIVProjectTimecode &from,
                                                                bool timecodeOnly, bool framesOnly) noexcept;
    /** Changes nothing. */
    constexpr void subtractDate(const KIVProjectTimecode &) noexcept {}

    /* ---- Scaling, snapping and stepping -------------------------------------------------------- */

    /**
     * Adds the frame count `factor` - 1 times and carries full days into the date; 0 and 1 change nothing.
     */
    void multiplyBy(uint32_t factor) noexcept;
    /** Returns true if the product is at most framesPerDay(), so also for midnight of the next day. */
    KIV_NODISCARD bool canMultiplyBy(uint32_t factor) const noexcept;
    /** framesPerDay() divided by the frame count; 0 if that is 0. */
    KIV_NODISCARD uint32_t maximumMultiplePerDay() const noexcept;
    /** A copy of `timecode`, multiplied as by multiplyBy(). */
    KIV_NODISCARD static KIVProjectTimecode timecodeMultiplying(const KIVProjectTimecode &timecode,
                                                                uint32_t factor) noexcept
    {
        KIVProjectTimecode product = timecode;
        product.multiplyBy(factor);
        return product;
    }

    /** Sets the time to `seconds`; from 86400 on, one day is added and 86400 subtracted, once. */
    void snapToSeconds(double seconds) noexcept;
    /** Rounds down to nominal minutes; 0 counts as 1, 60 and more snap to whole hours. */
    void snapToMinute(uint32_t minutes) noexcept;
    /** Rounds down to hours of timecode; 0 changes nothing. */
    void snapToHour(uint32_t hours) noexcept;
    /** True if the frame count is 0, whatever the date is. */
    KIV_NODISCARD constexpr bool isZeroTime() const noexcept
    {
        return framesSinceMidnight() == 0;
    }
    /** Sets the frame count to 0; the date stays. */
    constexpr void zeroTime() noexcept
    {
        setFramesSinceMidnight(0);
    }
    /** Clears the date; the frame count stays. */
    constexpr void zeroDate() noexcept
    {
        m_fields = framesSinceMidnight();
    }
    /** Changes nothing: a duration of more than a day is kept. */
    constexpr void ensureLegalDuration() noexcept {}

    /** Adds one frame. */
    void tick() noexcept
    {
        addFrames(1);
    }
    /** Subtracts one frame, also over midnight; true if the frame count is then not 0, false on failure. */
    bool tickDown() noexcept;
    /** Adds the frames, or subtracts them if they are negative. */
    void adjustFrames(int32_t frames) noexcept;

    /* ---- Comparing and measuring ---------------------------------------------------------------- */

    /** 1, 0 or -1 if this frame count is above, equal to or below the other; dates do not count. 0 if
        either is invalid. */
    KIV_NODISCARD int32_t compareTo(const KIVProjectTimecode &other) const noexcept
    {
        return compareToTimecode(other);
    }
    /** The same. */
    KIV_NODISCARD int32_t compareToTimecode(const KIVProjectTimecode &other) const noexcept;
    /** Both are valid and have the same frame count; dates do not count. */
    KIV_NODISCARD bool isSameTimecode(const KIVProjectTimecode &other) const noexcept;
    /** Day, month and year are equal. */
    KIV_NODISCARD constexpr bool isSameDay(const KIVProjectTimecode &other) const noexcept
    {
        return ((m_fields ^ other.m_fields) & kDateMask) == 0;
    }
    /** The same. */
    KIV_NODISCARD constexpr bool isSameCalendarDate(const KIVProjectTimecode &other) const noexcept
    {
        return isSameDay(other);
    }
    /** The date is today's in the zone of the process (TZ); false without a rate. */
    KIV_NODISCARD bool isToday() const noexcept;
    /** Day, month and year are all 0. */
    KIV_NODISCARD constexpr bool isDuration() const noexcept
    {
        return (m_fields & kDateMask) == 0;
    }
    /** On one day, this object's seconds minus the other's; 0 on two days. */
    KIV_NODISCARD double differenceInSecondsTo(const KIVProjectTimecode &other) const noexcept;
    /**
     * Frames from here to the other, whose year is assumed to be the later one; 0 if there is no distance.
     */
    KIV_NODISCARD int64_t differenceInFramesTo(const KIVProjectTimecode &other) const noexcept;
    /** Frames from the other to this one, as differenceInFramesTo(). */
    KIV_NODISCARD int64_t framesSinceTimecode(const KIVProjectTimecode &other) const noexcept
    {
        return other.differenceInFramesTo(*this);
    }
    /** Always 0. */
    KIV_NODISCARD constexpr int32_t dayIntervalSinceProjectDate(const KIVProjectTimecode &) const noexcept
    {
        return 0;
    }
    /** All 64 bits are equal. */
    friend constexpr bool operator==(const KIVProjectTimecode &left, const KIVProjectTimecode &right) noexcept
    {
        return left.m_fields == right.m_fields;
    }
    /** True if any bit differs. */
    friend constexpr bool operator!=(const KIVProjectTimecode &left, const KIVProjectTimecode &right) noexcept
    {
        return left.m_fields != right.m_fields;
    }

    /* ---- Copying values -------------------------------------------------------------------------- */

    /** Takes date and frame count. */
    constexpr void takeValues(const KIVProjectTimecode &other) noexcept
    {
        m_fields = other.m_fields;
    }
    /** Takes the frame count; the date stays. */
    constexpr void takeTimecodeValues(const KIVProjectTimecode &other) noexcept
    {
        setFramesSinceMidnight(other.framesSinceMidnight());
    }
    /** Takes day, month and year; the frame count stays. */
    constexpr void takeDateValues(const KIVProjectTimecode &other) noexcept
    {
        m_fields = (other.m_fields & kDateMask) | framesSinceMidnight();
    }
    /** The same. */
    constexpr void takeCalendarDataValues(const KIVProjectTimecode &other) noexcept
    {
        takeDateValues(other);
    }
    /** A copy; there are no zones, and the argument is ignored. */
    KIV_NODISCARD constexpr KIVProjectTimecode copyWithZone(void *) const noexcept
    {
        return *this;
    }

    /* ---- Dates, in the zone of the process (TZ) ----------------------------------------------------- */

    /**
     * Sets the date, and with `includeTime` the time, as kivCS2Timecode_initWithDate(): the frame of the
     * whole milliseconds, and at drop-frame rates two before it in most seconds. Without `includeTime` the
     * frame count is 0. With a null date or without a rate the object is unchanged.
     */
    void fromDate(CFDateRef date, bool includeTime) noexcept;
    /**
     * The same with the class's date formatters; a field that cannot be formatted (no memory) reads as 0.
     * Before the year 1 the formatters use the year of the era, 44 for 44 BC, while fromDate() has -43 cut to
     * 16 bits.
     */
    void fromCFDate(CFDateRef date, bool includeTime) noexcept;
    /**
     * The moment at which the clock shows date and time. In the years 2001 to 2020 it is calculated from the
     * seconds since midnight; in all others from the digits, with the frames as parts of a second. The two
     * differ if seconds of timecode are not real seconds: by up to 72 seconds a day at 23.98. A time that the
     * clock shows twice is the second one; a time that the clock skips is counted from the time before the
     * gap. fromDate() may not return the same frame, because it takes whole milliseconds. From the digits it
     * is the same frame at 25 and 50; the one before for every third frame at 24, 30 and 60 and for one of 24
     * at 23.98; and up to three before (at 59.94 also up to two after) at the drop-frame rates.
     * Null also for a month of 12 or more.
     */
    KIV_NODISCARD CFDateRef toDate() const noexcept;
    /** The same from the digits in every year, to the second: frames are dropped. */
    KIV_NODISCARD CFDateRef toCFDate() const noexcept;
    /** toDate() of the same day at frame count 0. */
    KIV_NODISCARD CFDateRef toCalendarDate() const noexcept;
    /** The number at the start of the date's text in the calendar format ("%d"); 0 if there is none. */
    KIV_NODISCARD static int32_t valueFromDate(CFDateRef date, CFStringRef format) noexcept;
#if __cplusplus >= 201703L
    /** The same with a format in UTF-8. */
    KIV_NODISCARD static int32_t valueFromDate(CFDateRef date, std::string_view format) noexcept
    {
        const Text text{format};
        return valueFromDate(date, text.string);
    }
#endif

    /* ---- Media time ------------------------------------------------------------------------------ */

    /**
     * The time since midnight in frames of 1001/24000 s at 23.98, 1001/30000 and 1001/60000 at 29.97 and
     * 59.94, 100/(100 times the rate) at the others; without a rate as at 25.
     */
    KIV_NODISCARD CMTime CMTimeValue() const noexcept;

    /* ---- Text ------------------------------------------------------------------------------------ */

    /** Bytes for any text below with its zero byte; a prefix and other separators need more. */
    static constexpr size_t kTextSize = 32;

    /** "10:00:00:00", with ";" before the frames at drop-frame rates. */
    KIV_NODISCARD CFStringRef description() const noexcept;
    /** The prefix, then description(). */
    KIV_NODISCARD CFStringRef descriptionWithPrefix(CFStringRef prefix) const noexcept;
#if __cplusplus >= 201703L
    /** The same with a prefix in UTF-8. */
    KIV_NODISCARD CFStringRef descriptionWithPrefix(std::string_view prefix) const noexcept
    {
        const Text text{prefix};
        return text.string != nullptr ? descriptionWithPrefix(text.string) : nullptr;
    }
#endif
    /**
     * Date and time in a calendar format: "%Y-%m-%d %H:%M:%S", as NSDate_descriptionWithCalendarFormat().
     * The digits are the object's own, even if toDate() calculates another second; they are an hour later if
     * the clock skips this hour. Null as toDate().
     */
    KIV_NODISCARD CFStringRef descriptionWithCalendarFormat(CFStringRef format) const noexcept;
#if __cplusplus >= 201703L
    /** The same with a format in UTF-8. */
    KIV_NODISCARD CFStringRef descriptionWithCalendarFormat(std::string_view format) const noexcept
    {
        const Text text{format};
        return text.string != nullptr ? descriptionWithCalendarFormat(text.string) : nullptr;
    }
#endif
    /** "15.3.2024 10:00:00:00"; a duration shows the date 1.1.0. */
    KIV_NODISCARD CFStringRef debugDescription() const noexcept;
    /** "15.3.2024 900000", the date and the frame count; for a duration only the count. */
    KIV_NODISCARD CFStringRef XMLRepresentation() const noexcept;
    /** description() of a duration, otherwise debugDescription(). */
    KIV_NODISCARD CFStringRef SMPTERepresentation() const noexcept;
    /** Hours, minutes, seconds and frames with the same text between all four. */
    KIV_NODISCARD static CFStringRef timecodeStringFromTimecode(const KIVProjectTimecode &timecode,
                                                                CFStringRef separatingString) noexcept;
#if __cplusplus >= 201703L
    /** The same with a separator in UTF-8. */
    KIV_NODISCARD static CFStringRef timecodeStringFromTimecode(const KIVProjectTimecode &timecode,
                                                                std::string_view separator) noexcept
    {
        const Text text{separator};
        return text.string != nullptr ? timecodeStringFromTimecode(timecode, text.string) : nullptr;
    }

    /**
     * The same texts in a buffer of `size` bytes, zero-terminated, and a view of them; kTextSize bytes are
     * enough. If the text does not fit, the view is empty and nothing is written. Nothing is allocated.
     */
    std::string_view description(char *buffer, size_t size) const noexcept
    {
        return {buffer, write(Form::Time, buffer, size)};
    }
    /** As description() above. */
    std::string_view debugDescription(char *buffer, size_t size) const noexcept
    {
        return {buffer, write(Form::DateAndTime, buffer, size)};
    }
    /** As description() above. */
    std::string_view SMPTERepresentation(char *buffer, size_t size) const noexcept
    {
        return {buffer, write(isDuration() ? Form::Time : Form::DateAndTime, buffer, size)};
    }
    /** As description() above. */
    std::string_view XMLRepresentation(char *buffer, size_t size) const noexcept
    {
        return {buffer, write(isDuration() ? Form::Frames : Form::DateAndFrames, buffer, size)};
    }
#endif

private:
    enum class Form : uint32_t
    {
        Time,
        DateAndTime,
        Frames,
        DateAndFrames
    };

#if __cplusplus >= 201703L
    // UTF-8 as a system string for the length of a call; null if it is not UTF-8.
    struct Text
    {
        explicit Text(std::string_view utf8) noexcept
            : string{CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(utf8.data()),
                                             static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false)}
        {
        }
        Text(const Text &) = delete;
        Text &operator=(const Text &) = delete;
        ~Text()
        {
            if (string != nullptr)
                CFRelease(string);
        }

        CFStringRef string;
    };
#endif

    static constexpr uint64_t kDateMask = 0xFFFFFFFF00000000u;

    // No standard type crosses into the library: so a host links with any standard library.
    KIVProjectTimecode &initWithText(const char *text, size_t length) noexcept;
    size_t write(Form form, char *buffer, size_t size) const noexcept; // the length; 0 if it does not fit

    uint64_t m_fields = 0;
};

#undef KIV_NODISCARD

#endif

#endif
