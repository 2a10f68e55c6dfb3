// The project timecode: the record as an object, under a frame rate of the class.
#include "KIVProjectTimecode.h"

#include "Private/Support/CFRef.h"
#include "Private/Support/Log.h"
#include "Private/Support/MutexLock.h"
#include "Private/Timecode/Formatting.h"
#include "Private/Timecode/ProjectText.h"
#include "Private/Timecode/Record.h"

#include <Foundation/NSDate.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace
{
using namespace kiv::timecode;
using kiv::CFRef;

// In the order of DateReading.
constexpr std::array kReadingFormats = {"%d", "%m", "%Y", "%H", "%M", "%S", "%F"};

// The state of the class, separate from that of the C operations. Written only by setFrameRate(), while no
// other operation here runs.
struct ClassState
{
    KIVCS2FrameRate currentFrameRate = KIVCS2FrameRate_MAX;
    RateState rate{}; // all zero until a rate is set
    // Kept: a change of the rate leaves the old rate's tables. They are used again when that rate returns.
    std::array<Numbering, KIVCS2FrameRate_MAX> numberings{};
    Formatting formatting{};
    CFDateFormatterRef formatDate = nullptr; // guarded by the mutex of `formatting`
    std::array<CFStringRef, kReadingFormats.size()> readingFormats{};
};
constinit ClassState g_class;

[[nodiscard]] const RateState &rate()
{
    return g_class.rate;
}

// Makes the objects that do not exist yet; those made by a failed call stay for the next call.
bool ensureShared()
{
    if (KIVCS2_FAILED(ensureFormatting(g_class.formatting)) ||
        !ensureFormatter(g_class.formatDate, "yyyy-MM-dd HH:mm:ss ZZZ"))
        return false;
    for (size_t index = 0; index < kReadingFormats.size(); ++index)
    {
        CFStringRef &format = g_class.readingFormats[index];
        if (format == nullptr)
            format = CFStringCreateWithCString(nullptr, kReadingFormats[index], kCFStringEncodingASCII);
        if (format == nullptr)
            return false;
    }
    return true;
}

// The digits of the time; zeros without a rate.
ClockFields clockOf(KIVCS2Timecode tc)
{
    return hasRate(rate()) ? clockOf(rate(), tc) : ClockFields{};
}

uint32_t lookUp(const uint8_t *table, KIVCS2Timecode tc)
{
    uint32_t index = 0;
    return KIVCS2_FAILED(frameWithinHour(rate(), tc, index)) ? 0 : table[index];
}

// Takes numbers and no record, whose bytes the callers would gather before they know that they are illegal.
[[gnu::cold, gnu::noinline]] void logIllegal(uint32_t hours, uint32_t minutes, uint32_t seconds,
                                             uint32_t frames)
{
    KIV_LOG("Illegal timecode %02i:%02i:%02i:%02i", static_cast<int>(hours), static_cast<int>(minutes),
            static_cast<int>(seconds), static_cast<int>(frames));
}

inline void setClock(KIVCS2Timecode &tc, const ClockFields &clock)
{
    if (!hasRate(rate()))
        setFrames(tc, 0); // no digits name a frame
    else if (setFields(rate(), tc, clock.hours, clock.minutes, clock.seconds, clock.frames)) [[likely]]
        return;
    logIllegal(clock.hours, clock.minutes, clock.seconds, clock.frames);
}

KIVCS2Timecode timecodeOfText(const Letters &letters)
{
    const TextFields fields = splitLenientText(letters);
    KIVCS2Timecode tc = 0;
    if (fields.hasDate)
        setDate(tc, fields.date);
    if (fields.timeFields == 1)
        setFrames(tc, fields.time[0]);
    else
        setClock(tc, {fields.time[0], fields.time[1], fields.time[2], fields.time[3]});
    return tc;
}

// ---- Dates

constexpr uint32_t kReferenceYear = 2001;
constexpr uint32_t kTableYears = 20;
constexpr uint32_t kSecondsPerWholeDay = 86400;

// Seconds from 1 January 2001 to 1 January of each year from then to 2020.
constexpr std::array<uint32_t, kTableYears> kSecondsSince2001 = []
{
    std::array<uint32_t, kTableYears> seconds{};
    for (uint32_t index = 0; index < kTableYears; ++index)
        seconds[index] =
            (daysBeforeYear(kReferenceYear + index) - daysBeforeYear(kReferenceYear)) * kSecondsPerWholeDay;
    return seconds;
}();
static_assert(kSecondsSince2001[1] == 31536000 && kSecondsSince2001.back() == 599529600);

// Seconds by which the zone's clock is ahead of GMT when it shows `local` seconds since 1 January 2001. If
// the clock shows a time twice, the second one counts, as in the system's calendar; in a gap the offset from
// before the gap counts.
double secondsFromGMT(CFTimeZoneRef zone, double local)
{
    // No zone is a day ahead or behind, so these two moments lie on either side of the wanted one.
    const double before = CFTimeZoneGetSecondsFromGMT(zone, local - kSecondsPerDay);
    const double after = CFTimeZoneGetSecondsFromGMT(zone, local + kSecondsPerDay);
    if (before == after)
        return before;
    return CFTimeZoneGetSecondsFromGMT(zone, local - after) == after ? after : before;
}

double clockSeconds(const ClockFields &clock)
{
    return clock.hours * 3600.0 + clock.minutes * 60.0 + clock.seconds;
}

// Days since 1 January of year 0; the month must be valid.
int64_t dayNumber(const Date &date)
{
    return int64_t{daysBeforeYear(date.year)} + dayOfYear(date);
}

// Reads the text of a date and a time as the class's formatter does.
bool readMoment(const Date &date, const ClockFields &clock, int minutesFromGMT, CFAbsoluteTime &at)
{
    const int minutes = std::abs(minutesFromGMT);
    // A frame count may exceed its day, but no clock reads beyond 24 hours: the days take the excess.
    const uint32_t day = date.day + 1 + clock.hours / kHoursPerDay;
    char text[64];
    std::snprintf(text, sizeof text, "%d-%d-%u %02u:%02u:%02u %s%02d%02d", date.year, date.month + 1, day,
                  clock.hours % kHoursPerDay, clock.minutes, clock.seconds, minutesFromGMT < 0 ? "-" : "+",
                  minutes / 60, minutes % 60);
    const CFRef<CFStringRef> string{CFStringCreateWithCString(nullptr, text, kCFStringEncodingASCII)};
    const kiv::MutexLock lock{g_class.formatting.dateFormatMutex};
    if (!string || KIVCS2_FAILED(lock.status()))
        return false;
    const CFRef<CFDateRef> read{
        CFDateFormatterCreateDateFromString(nullptr, g_class.formatDate, string.get(), nullptr)};
    if (read)
        at = CFDateGetAbsoluteTime(read.get());
    return static_cast<bool>(read);
}

// The moment of the digits "2024-3-15 10:00:00 +0100"; the offset from GMT has no seconds there.
bool momentOfDigits(CFTimeZoneRef zone, KIVCS2Timecode tc, CFAbsoluteTime &at)
{
    constexpr uint16_t kFirstGregorianYear = 1583; // the first that the calendar change did not touch
    const Date date = dateOf(tc);
    const ClockFields clock = clockOf(tc);
    const double days = static_cast<double>(dayNumber(date) - int64_t{daysBeforeYear(kReferenceYear)});
    const double local = days * kSecondsPerDay + clockSeconds(clock);
    const int minutes = static_cast<int>(secondsFromGMT(zone, local)) / 60;
    if (date.year < kFirstGregorianYear)
        return readMoment(date, clock, minutes, at);
    at = local - minutes * 60.0; // the formatter's result, without writing and reading the text
    return true;
}

// The moment of date and time in the process's zone; false if there is none.
bool momentOf(KIVCS2Timecode tc, CFAbsoluteTime &at)
{
    if (!hasRate(rate()) || !hasMonth(tc))
        return false;
    const CFRef<CFTimeZoneRef> zone{CFTimeZoneCopyDefault()};
    if (!zone)
        return false;
    const Date date = dateOf(tc);
    const uint32_t year = uint32_t{date.year} - kReferenceYear; // wraps before 2001
    if (year >= kTableYears)
    {
        if (!momentOfDigits(zone.get(), tc, at))
            return false;
        at += clockOf(tc).frames / rate().realFramesPerSecond;
        return true;
    }
    double time = 0;
    (void)secondsOf(rate(), tc, time); // an invalid frame count counts as midnight
    const double local = kSecondsSince2001[year] + dayOfYear(date) * kSecondsPerDay + time;
    at = local - secondsFromGMT(zone.get(), local);
    return true;
}

CFRef<CFDateRef> makeNow()
{
    return CFRef<CFDateRef>{CFDateCreate(nullptr, CFAbsoluteTimeGetCurrent())};
}

// ---- Text

CFStringRef makeString(const char *text, size_t length)
{
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(text),
                                   static_cast<CFIndex>(length), kCFStringEncodingASCII, false);
}

struct FreeBlock
{
    void operator()(void *block) const noexcept
    {
        std::free(block);
    }
};

// A text joined from the host's texts and the class's own, whose length is known before.
class Joined
{
public:
    explicit Joined(CFIndex length)
    {
        if (length <= static_cast<CFIndex>(m_small.size()))
            return;
        m_large.reset(static_cast<UniChar *>(std::malloc(static_cast<size_t>(length) * sizeof(UniChar))));
        m_units = m_large.get();
    }
    void add(CFStringRef string)
    {
        if (string == nullptr || m_units == nullptr)
            return;
        const CFRange whole = CFRangeMake(0, CFStringGetLength(string));
        CFStringGetCharacters(string, whole, m_units + m_length);
        m_length += whole.length;
    }
    void add(std::string_view text)
    {
        for (const char letter : text)
            if (m_units != nullptr)
                m_units[m_length++] = static_cast<unsigned char>(letter);
    }
    [[nodiscard]] CFStringRef make() const
    {
        return m_units != nullptr ? CFStringCreateWithCharacters(nullptr, m_units, m_length) : nullptr;
    }

private:
    std::array<UniChar, 128> m_small;
    std::unique_ptr<UniChar[], FreeBlock> m_large;
    UniChar *m_units = m_small.data();
    CFIndex m_length = 0;
};

CFIndex lengthOf(CFStringRef string)
{
    return string != nullptr ? CFStringGetLength(string) : 0;
}

// ---- Media time

struct FrameDuration
{
    int64_t duration;
    int32_t timescale;
};

// By KIVCS2FrameRate; the last row is for no rate. Kept: 23.98 has 1001 here, unlike the C operation.
constexpr std::array<FrameDuration, KIVCS2FrameRate_MAX + 1> kFrameDurations = {{
    {1001, 24000},
    {100, 2400},
    {100, 2500},
    {1001, 30000},
    {100, 3000},
    {100, 5000},
    {1001, 60000},
    {100, 6000},
    {100, 2500},
}};
} // namespace

// ---- Frame rate

void KIVProjectTimecode::setFrameRate(KIVCS2FrameRate rate) noexcept
{
    if (rate >= KIVCS2FrameRate_MAX || !ensureShared())
        return;
    Numbering &numbering = g_class.numberings[rate];
    if (numbering.framesPerHour == 0 && !makeNumbering(kRates[rate], numbering))
        return;
    g_class.rate = stateOf(kRates[rate], numbering);
    g_class.currentFrameRate = rate;
}

KIVCS2FrameRate KIVProjectTimecode::currentFrameRate() noexcept
{
    return g_class.currentFrameRate;
}

bool KIVProjectTimecode::hasValidFrameRate() noexcept
{
    return g_class.currentFrameRate != KIVCS2FrameRate_MAX;
}

uint32_t KIVProjectTimecode::framesPerSecond() noexcept
{
    return rate().framesPerSecond;
}

double KIVProjectTimecode::realFramesPerSecond() noexcept
{
    return rate().realFramesPerSecond;
}

bool KIVProjectTimecode::dropFrameTimecode() noexcept
{
    return rate().dropFrameTimecode;
}

uint32_t KIVProjectTimecode::framesPerHour() noexcept
{
    return rate().framesPerHour;
}

uint32_t KIVProjectTimecode::framesPerDay() noexcept
{
    return rate().framesPerDay;
}

// ---- Creation

KIVProjectTimecode &KIVProjectTimecode::initWithHours(uint8_t hours) noexcept
{
    m_fields = uint64_t{hours} * rate().framesPerHour;
    return *this;
}

KIVProjectTimecode &KIVProjectTimecode::initWithHours(uint8_t hours, uint8_t minutes, uint8_t seconds,
                                                      uint8_t frames) noexcept
{
    m_fields = 0;
    setHours(hours, minutes, seconds, frames, 0);
    return *this;
}

KIVProjectTimecode &KIVProjectTimecode::initWithString(CFStringRef string) noexcept
{
    m_fields = timecodeOfText(string != nullptr ? Letters{string} : Letters{std::string_view{""}});
    return *this;
}

KIVProjectTimecode &KIVProjectTimecode::initWithText(const char *text, size_t length) noexcept
{
    m_fields =
        timecodeOfText(Letters{text != nullptr ? std::string_view{text, length} : std::string_view{""}});
    return *this;
}

KIVProjectTimecode &KIVProjectTimecode::initWithTime(uint32_t time, uint32_t scale) noexcept
{
    return initWithSeconds(static_cast<double>(time) / static_cast<double>(scale));
}

KIVProjectTimecode &KIVProjectTimecode::initWithSeconds(double seconds) noexcept
{
    m_fields = 0;
    setSecondsSinceMidnight(seconds);
    return *this;
}

KIVProjectTimecode &KIVProjectTimecode::initWithDate(CFDateRef date) noexcept
{
    m_fields = 0;
    fromDate(date, true);
    return *this;
}

KIVProjectTimecode &KIVProjectTimecode::initWithCFDate(CFDateRef date) noexcept
{
    m_fields = 0;
    fromCFDate(date, true);
    return *this;
}

KIVProjectTimecode KIVProjectTimecode::calendarDate() noexcept
{
    KIVProjectTimecode today;
    today.fromDate(makeNow().get(), false);
    return today;
}

KIVProjectTimecode KIVProjectTimecode::now() noexcept
{
    return timecodeWithDate(makeNow().get());
}

// ---- Fields

uint32_t KIVProjectTimecode::frames() const noexcept
{
    return lookUp(rate().numbering.convertFrame, m_fields);
}

uint32_t KIVProjectTimecode::seconds() const noexcept
{
    return lookUp(rate().numbering.convertSecond, m_fields);
}

uint32_t KIVProjectTimecode::minutes() const noexcept
{
    return lookUp(rate().numbering.convertMinute, m_fields);
}

uint32_t KIVProjectTimecode::hours() const noexcept
{
    return isValid(m_fields) && hasRate(rate()) ? framesOf(m_fields) / rate().framesPerHour : 0;
}

void KIVProjectTimecode::setHours(uint8_t hours, uint8_t minutes, uint8_t seconds, uint8_t frames,
                                  uint32_t format) noexcept
{
    constexpr uint32_t kFirstOfPair = 1;
    constexpr uint32_t kSecondOfPair = 2;
    constexpr uint32_t kFramesWithoutPairs = 30; // the most that a tens digit of two bits counts
    uint32_t frame = frames;
    if ((format == kFirstOfPair || format == kSecondOfPair) && rate().framesPerSecond > kFramesWithoutPairs)
        frame = frame * 2 + (format == kSecondOfPair ? 1 : 0);
    setClock(m_fields, {hours, minutes, seconds, frame});
}

double KIVProjectTimecode::secondsSinceMidnight() const noexcept
{
    double seconds = 0;
    (void)secondsOf(rate(), m_fields, seconds); // 0 on failure
    return seconds;
}

void KIVProjectTimecode::setSecondsSinceMidnight(double seconds) noexcept
{
    setFrames(m_fields, truncateToFrames(seconds * rate().realFramesPerSecond));
}

double KIVProjectTimecode::totalSeconds() const noexcept
{
    return secondsSinceMidnight() + day() * kSecondsPerDay;
}

uint32_t KIVProjectTimecode::bcdTimecode() const noexcept
{
    return bcdOfFields(clockOf(m_fields));
}

void KIVProjectTimecode::setBcdTimecode(uint32_t bcd) noexcept
{
    m_fields = 0;
    setClock(m_fields, fieldsOfBCD(bcd));
}

uint32_t KIVProjectTimecode::daysInMonth() const noexcept
{
    const Date date = dateOf(m_fields);
    return hasMonth(m_fields) ? kiv::timecode::daysInMonth(date.month, date.year) : 0;
}

// ---- Adding and subtracting. Kept: a failed calculation changes nothing and is not reported.

void KIVProjectTimecode::addFrames(uint32_t frames) noexcept
{
    (void)kiv::timecode::addFrames(rate(), m_fields, frames);
}

void KIVProjectTimecode::addSeconds(uint32_t seconds) noexcept
{
    addFrames(seconds * rate().framesPerSecond);
}

void KIVProjectTimecode::addMinutes(uint32_t minutes) noexcept
{
    addFrames(minutes * kSecondsPerMinute * rate().framesPerSecond);
}

void KIVProjectTimecode::addHours(uint32_t hours) noexcept
{
    addFrames(hours * rate().framesPerHour);
}

void KIVProjectTimecode::addDays(uint32_t days) noexcept
{
    (void)kiv::timecode::addDays(m_fields, days);
}

void KIVProjectTimecode::addMonths(uint32_t months) noexcept
{
    setDate(m_fields, kiv::timecode::addMonths(dateOf(m_fields), months));
}

void KIVProjectTimecode::addYears(uint32_t years) noexcept
{
    setDate(m_fields, kiv::timecode::addYears(dateOf(m_fields), years));
}

void KIVProjectTimecode::addTimecode(const KIVProjectTimecode &other) noexcept
{
    const KIVProjectTimecode added = other; // a copy: it may be this object
    addFrames(added.framesSinceMidnight());
    addDays(added.day());
}

void KIVProjectTimecode::subtractFrames(uint32_t frames) noexcept
{
    (void)kiv::timecode::subtractFrames(rate(), m_fields, frames);
}

void KIVProjectTimecode::subtractSeconds(uint32_t seconds) noexcept
{
    subtractFrames(seconds * rate().framesPerSecond);
}

void KIVProjectTimecode::subtractMinutes(uint32_t minutes) noexcept
{
    subtractFrames(minutes * kSecondsPerMinute * rate().framesPerSecond);
}

void KIVProjectTimecode::subtractHours(uint32_t hours) noexcept
{
    subtractFrames(hours * rate().framesPerHour);
}

void KIVProjectTimecode::subtractDays(uint32_t days) noexcept
{
    (void)kiv::timecode::subtractDays(m_fields, days);
}

void KIVProjectTimecode::subtractMonths(uint32_t months) noexcept
{
    setDate(m_fields, kiv::timecode::subtractMonths(dateOf(m_fields), months));
}

void KIVProjectTimecode::subtractYears(uint32_t years) noexcept
{
    setDate(m_fields, kiv::timecode::subtractYears(dateOf(m_fields), years));
}

KIVProjectTimecode KIVProjectTimecode::timecodeSubtracting(const KIVProjectTimecode &timecode,
                                                           const KIVProjectTimecode &from, bool timecodeOnly,
                                                           bool framesOnly) noexcept
{
    (void)framesOnly; // with and without it only the frame count gives the result
    if (timecodeOnly && hasRate(rate()) && hasMonth(timecode.m_fields) && hasMonth(from.m_fields) &&
        from.day() < from.daysInMonth())
    {
        // Stepping one day at a time would never reach an earlier day, nor a day that no month has.
        const int64_t days = dayNumber(dateOf(from.m_fields)) - dayNumber(dateOf(timecode.m_fields));
        if (days > 0)
            return timecodeWithFrames(static_cast<uint32_t>(days) * rate().framesPerDay -
                                      timecode.framesSinceMidnight() + from.framesSinceMidnight());
    }
    KIVProjectTimecode difference = from;
    difference.subtractTimecode(timecode);
    return difference;
}

// ---- Scaling, snapping and stepping

void KIVProjectTimecode::multiplyBy(uint32_t factor) noexcept
{
    // Kept: the days of the product stay in the date; the C operation makes a legal duration of the product.
    (void)multiplyFrames(rate(), m_fields, factor);
}

bool KIVProjectTimecode::canMultiplyBy(uint32_t factor) const noexcept
{
    // Kept: a product of a whole day passes, although the last frame of a day is one below.
    return uint64_t{factor} * framesSinceMidnight() <= rate().framesPerDay;
}

uint32_t KIVProjectTimecode::maximumMultiplePerDay() const noexcept
{
    return isZeroTime() ? 0 : rate().framesPerDay / framesSinceMidnight();
}

void KIVProjectTimecode::snapToSeconds(double seconds) noexcept
{
    if (seconds >= kSecondsPerDay)
    {
        addDays(1);
        seconds -= kSecondsPerDay;
    }
    setSecondsSinceMidnight(seconds);
}

void KIVProjectTimecode::snapToMinute(uint32_t minutes) noexcept
{
    (void)snapToMinutes(rate(), m_fields, minutes);
}

void KIVProjectTimecode::snapToHour(uint32_t hours) noexcept
{
    (void)snapToHours(rate(), m_fields, hours);
}

bool KIVProjectTimecode::tickDown() noexcept
{
    return KIVCS2_SUCCEEDED(kiv::timecode::subtractFrames(rate(), m_fields, 1)) && !isZeroTime();
}

void KIVProjectTimecode::adjustFrames(int32_t frames) noexcept
{
    if (frames >= 0)
        addFrames(static_cast<uint32_t>(frames));
    else
        subtractFrames(0u - static_cast<uint32_t>(frames));
}

// ---- Comparing and measuring

int32_t KIVProjectTimecode::compareToTimecode(const KIVProjectTimecode &other) const noexcept
{
    int32_t result = 0;
    (void)compareFrames(m_fields, other.m_fields, result); // 0 if either is invalid
    return result;
}

bool KIVProjectTimecode::isSameTimecode(const KIVProjectTimecode &other) const noexcept
{
    int32_t result = 0;
    return KIVCS2_SUCCEEDED(compareFrames(m_fields, other.m_fields, result)) && result == 0;
}

bool KIVProjectTimecode::isToday() const noexcept
{
    const CFRef<CFDateRef> now = makeNow();
    if (!now || !hasRate(rate()))
        return false;
    KIVProjectTimecode today;
    today.fromDate(now.get(), false);
    return isSameDay(today);
}

double KIVProjectTimecode::differenceInSecondsTo(const KIVProjectTimecode &other) const noexcept
{
    double difference = 0;
    (void)secondsBetween(rate(), m_fields, other.m_fields, difference); // 0 on failure
    return difference;
}

int64_t KIVProjectTimecode::differenceInFramesTo(const KIVProjectTimecode &other) const noexcept
{
    int64_t difference = 0;
    (void)framesBetween(rate(), m_fields, other.m_fields, difference); // 0 on failure
    return difference;
}

// ---- Dates

void KIVProjectTimecode::fromDate(CFDateRef date, bool includeTime) noexcept
{
    if (date == nullptr || !hasRate(rate()))
        return;
    const auto value = [date](size_t index)
    { return static_cast<uint32_t>(valueFromDate(date, g_class.readingFormats[index])); };
    DateReading reading{value(0), value(1), value(2), 0, 0, 0, 0};
    if (includeTime)
    {
        reading.hours = value(3);
        reading.minutes = value(4);
        reading.seconds = value(5);
        reading.milliseconds = value(6);
    }
    setFromReading(rate(), m_fields, reading, includeTime);
}

void KIVProjectTimecode::fromCFDate(CFDateRef date, bool includeTime) noexcept
{
    DateReading reading{};
    if (date == nullptr || !hasRate(rate()) ||
        KIVCS2_FAILED(readDate(g_class.formatting, date, includeTime, reading)))
        return;
    setFromReading(rate(), m_fields, reading, includeTime);
}

CFDateRef KIVProjectTimecode::toDate() const noexcept
{
    CFAbsoluteTime at = 0;
    return momentOf(m_fields, at) ? CFDateCreate(nullptr, at) : nullptr;
}

CFDateRef KIVProjectTimecode::toCFDate() const noexcept
{
    CFAbsoluteTime at = 0;
    const CFRef<CFTimeZoneRef> zone{CFTimeZoneCopyDefault()};
    if (!zone || !hasRate(rate()) || !hasMonth(m_fields) || !momentOfDigits(zone.get(), m_fields, at))
        return nullptr;
    return CFDateCreate(nullptr, at);
}

CFDateRef KIVProjectTimecode::toCalendarDate() const noexcept
{
    KIVProjectTimecode day = *this;
    day.zeroTime();
    return day.toDate();
}

int32_t KIVProjectTimecode::valueFromDate(CFDateRef date, CFStringRef format) noexcept
{
    if (date == nullptr || format == nullptr)
        return 0;
    const CFRef<CFStringRef> text{NSDate_descriptionWithCalendarFormat(date, format, nullptr, nullptr)};
    return text ? CFStringGetIntValue(text.get()) : 0;
}

// ---- Media time

CMTime KIVProjectTimecode::CMTimeValue() const noexcept
{
    const FrameDuration &frame = kFrameDurations[g_class.currentFrameRate];
    return CMTimeMake(framesSinceMidnight() * frame.duration, frame.timescale);
}

// ---- Text

size_t KIVProjectTimecode::write(Form form, char *buffer, size_t size) const noexcept
{
    const Date date = dateOf(m_fields);
    const auto frames = static_cast<int32_t>(framesSinceMidnight()); // Kept: a signed number
    const char separator = frameSeparator(rate());
    switch (form)
    {
    case Form::Time:
        return writeTime(clockOf(m_fields), separator, buffer, size);
    case Form::DateAndTime:
        return writeDateAndTime(date, clockOf(m_fields), separator, buffer, size);
    case Form::Frames:
        return writeFrames(frames, buffer, size);
    case Form::DateAndFrames:
        return writeDateAndFrames(date, frames, buffer, size);
    }
    return 0;
}

CFStringRef KIVProjectTimecode::description() const noexcept
{
    char text[kTextSize];
    return makeString(text, write(Form::Time, text, sizeof text));
}

CFStringRef KIVProjectTimecode::descriptionWithPrefix(CFStringRef prefix) const noexcept
{
    char text[kTextSize];
    Joined joined{lengthOf(prefix) + static_cast<CFIndex>(kTextSize)};
    joined.add(prefix);
    joined.add(description(text, sizeof text));
    return joined.make();
}

CFStringRef KIVProjectTimecode::descriptionWithCalendarFormat(CFStringRef format) const noexcept
{
    if (!hasRate(rate()) || !hasMonth(m_fields))
        return nullptr;
    if (format == nullptr)
        return makeString("", 0);
    const CFRef<CFCalendarRef> calendar{CFCalendarCopyCurrent()};
    const Date date = dateOf(m_fields);
    const ClockFields clock = clockOf(m_fields);
    CFAbsoluteTime at = 0;
    if (!calendar ||
        !CFCalendarComposeAbsoluteTime(calendar.get(), &at, "yMdHms", static_cast<int>(date.year),
                                       date.month + 1, date.day + 1, static_cast<int>(clock.hours),
                                       static_cast<int>(clock.minutes), static_cast<int>(clock.seconds)))
        return nullptr;
    const double fraction = static_cast<double>(clock.frames) / rate().framesPerSecond;
    const CFRef<CFDateRef> moment{CFDateCreate(nullptr, at + fraction)};
    return moment ? NSDate_descriptionWithCalendarFormat(moment.get(), format, nullptr, nullptr) : nullptr;
}

CFStringRef KIVProjectTimecode::debugDescription() const noexcept
{
    char text[kTextSize];
    return makeString(text, write(Form::DateAndTime, text, sizeof text));
}

CFStringRef KIVProjectTimecode::XMLRepresentation() const noexcept
{
    char text[kTextSize];
    return makeString(text, XMLRepresentation(text, sizeof text).size());
}

CFStringRef KIVProjectTimecode::SMPTERepresentation() const noexcept
{
    char text[kTextSize];
    return makeString(text, SMPTERepresentation(text, sizeof text).size());
}

CFStringRef KIVProjectTimecode::timecodeStringFromTimecode(const KIVProjectTimecode &timecode,
                                                           CFStringRef separatingString) noexcept
{
    const ClockFields clock = clockOf(timecode.m_fields);
    const uint32_t values[] = {clock.hours, clock.minutes, clock.seconds, clock.frames};
    Joined joined{3 * lengthOf(separatingString) + static_cast<CFIndex>(kTextSize)};
    for (size_t index = 0; index < std::size(values); ++index)
    {
        char digits[12];
        if (index > 0)
            joined.add(separatingString);
        const int length = std::snprintf(digits, sizeof digits, "%02u", values[index]);
        joined.add(std::string_view{digits, static_cast<size_t>(length)});
    }
    return joined.make();
}
