// The system objects shared by text and date conversion: made with the first frame rate, never released.
#ifndef KIV_PRIVATE_TIMECODE_FORMATTING_H
#define KIV_PRIVATE_TIMECODE_FORMATTING_H

#include "KIVCS2Mutex.h"
#include "Private/Timecode/Record.h"

#include <CoreFoundation/CoreFoundation.h>

namespace kiv::timecode
{
// Makes a formatter of a pattern, with no locale and no styles, unless it exists; false without memory.
[[nodiscard]] bool ensureFormatter(CFDateFormatterRef &formatter, const char *pattern);

struct Formatting
{
    CFDateFormatterRef formatYear;
    CFDateFormatterRef formatMonth;
    CFDateFormatterRef formatDay;
    CFDateFormatterRef formatHour;
    CFDateFormatterRef formatMinute;
    CFDateFormatterRef formatSecond;
    CFDateFormatterRef formatMilliSecond;
    CFStringRef spaceString;
    CFStringRef dotString;
    CFStringRef colonString;
    CFCharacterSetRef invertDecimalCharSet; // everything except "0123456789"
    KIVCS2Mutex dateFormatMutex; // recursive; guards the formatters, which hold state while they work
    bool dateFormatMutexValid;
};

// Makes each object that does not exist yet. Objects made by a failed call stay for the next call.
[[nodiscard]] KIVCS2Status ensureFormatting(Formatting &formatting);

// KIVCS2STATUS_PARAM_ERR if the string holds anything but digits; an empty string passes.
[[nodiscard]] KIVCS2Status validateNumber(const Formatting &formatting, CFStringRef string);

// The number that the formatter makes of the date; 0 if it makes none.
[[nodiscard]] uint32_t getValueFromDate(Formatting &formatting, CFDateRef date, CFDateFormatterRef formatter);

// Reads a date with the formatters, with 0 for a time that is not wanted and for a field that cannot be
// formatted. KIVCS2STATUS_MUTEX_ERR, and nothing read, if the formatters cannot be locked.
[[nodiscard]] KIVCS2Status readDate(Formatting &formatting, CFDateRef date, bool withTime,
                                    DateReading &reading);

// Splits any text. The date is complete before a time field is read, and stays in `fields` if a time field
// fails. Any number of time fields other than 1, 3 or 4 is a success.
[[nodiscard]] KIVCS2Status splitText(const Formatting &formatting, CFStringRef text, TextFields &fields);
} // namespace kiv::timecode

#endif
