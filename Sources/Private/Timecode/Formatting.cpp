// Text and date conversion over the system's strings, character sets and date formatters.
#include "Private/Timecode/Formatting.h"

#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"
#include "Private/Support/MutexLock.h"

#include <cstdio>
#include <iterator>

namespace kiv::timecode
{
namespace
{
using StringRef = CFRef<CFStringRef>;
using ArrayRef = CFRef<CFArrayRef>;

StringRef makeASCII(const char *text)
{
    return StringRef{CFStringCreateWithCString(nullptr, text, kCFStringEncodingASCII)};
}

bool ensureString(CFStringRef &string, const char *text)
{
    if (string == nullptr)
        string = makeASCII(text).release();
    return string != nullptr;
}

bool ensureCharacterSet(CFCharacterSetRef &set)
{
    if (set != nullptr)
        return true;
    const StringRef digits = makeASCII("0123456789");
    if (!digits)
        return false;
    const CFRef<CFCharacterSetRef> decimal{CFCharacterSetCreateWithCharactersInString(nullptr, digits.get())};
    if (decimal)
        set = CFCharacterSetCreateInvertedSet(nullptr, decimal.get());
    return set != nullptr;
}

ArrayRef split(CFStringRef text, CFStringRef separator)
{
    return ArrayRef{CFStringCreateArrayBySeparatingStrings(nullptr, text, separator)};
}

CFStringRef piece(const ArrayRef &pieces, CFIndex index)
{
    return static_cast<CFStringRef>(CFArrayGetValueAtIndex(pieces.get(), index));
}

// Stores the values of `count` fields; fails at a field that holds anything but digits.
KIVCS2Status readFields(const Formatting &formatting, const ArrayRef &pieces, CFIndex count, uint32_t *values)
{
    for (CFIndex index = 0; index < count; ++index)
        KIV_TRY(validateNumber(formatting, piece(pieces, index)));
    for (CFIndex index = 0; index < count; ++index)
        values[index] = static_cast<uint32_t>(CFStringGetIntValue(piece(pieces, index)));
    return KIVCS2STATUS_OK;
}

KIVCS2Status splitDate(const Formatting &formatting, CFStringRef text, TextFields &fields)
{
    constexpr CFIndex kDateFields = 3;
    const ArrayRef pieces = split(text, formatting.dotString);
    if (!pieces)
        return KIVCS2STATUS_MEMORY_ERR;
    if (CFArrayGetCount(pieces.get()) != kDateFields)
        return KIVCS2STATUS_OK; // Kept: a date of another shape is ignored

    uint32_t values[kDateFields];
    KIV_TRY(readFields(formatting, pieces, kDateFields, values));
    fields.hasDate = true;
    fields.date = dateOfFields(values[0], values[1], values[2]);
    return KIVCS2STATUS_OK;
}
} // namespace

bool ensureFormatter(CFDateFormatterRef &formatter, const char *pattern)
{
    if (formatter != nullptr)
        return true;
    const StringRef format = makeASCII(pattern);
    if (!format)
        return false;
    formatter = CFDateFormatterCreate(nullptr, nullptr, kCFDateFormatterNoStyle, kCFDateFormatterNoStyle);
    if (formatter == nullptr)
        return false;
    CFDateFormatterSetFormat(formatter, format.get());
    return true;
}

KIVCS2Status ensureFormatting(Formatting &formatting)
{
    if (!formatting.dateFormatMutexValid)
    {
        KIV_TRY(kivCS2Mutex_init(&formatting.dateFormatMutex, KIVCS2MutexOptions_Recursive));
        formatting.dateFormatMutexValid = true;
    }
    const bool complete =
        ensureFormatter(formatting.formatYear, "y") && ensureFormatter(formatting.formatMonth, "M") &&
        ensureFormatter(formatting.formatDay, "d") && ensureFormatter(formatting.formatHour, "H") &&
        ensureFormatter(formatting.formatMinute, "m") && ensureFormatter(formatting.formatSecond, "s") &&
        ensureFormatter(formatting.formatMilliSecond, "SSS") && ensureString(formatting.spaceString, " ") &&
        ensureString(formatting.dotString, ".") && ensureString(formatting.colonString, ":") &&
        ensureCharacterSet(formatting.invertDecimalCharSet);
    return complete ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status validateNumber(const Formatting &formatting, CFStringRef string)
{
    const CFRange whole = CFRangeMake(0, CFStringGetLength(string));
    return CFStringFindCharacterFromSet(string, formatting.invertDecimalCharSet, whole, 0, nullptr)
               ? KIVCS2STATUS_PARAM_ERR
               : KIVCS2STATUS_OK;
}

uint32_t getValueFromDate(Formatting &formatting, CFDateRef date, CFDateFormatterRef formatter)
{
    const MutexLock lock{formatting.dateFormatMutex};
    if (KIVCS2_FAILED(lock.status()))
    {
        std::printf("getValueFormDate failed!\n"); // Kept: this spelling; hosts match the line
        return 0;
    }
    const StringRef text{CFDateFormatterCreateStringWithDate(nullptr, formatter, date)};
    return text ? static_cast<uint32_t>(CFStringGetIntValue(text.get())) : 0;
}

KIVCS2Status readDate(Formatting &formatting, CFDateRef date, bool withTime, DateReading &reading)
{
    const MutexLock lock{formatting.dateFormatMutex};
    KIV_TRY(lock.status());
    const auto value = [&](CFDateFormatterRef formatter)
    { return getValueFromDate(formatting, date, formatter); };
    reading.day = value(formatting.formatDay);
    reading.month = value(formatting.formatMonth);
    reading.year = value(formatting.formatYear);
    if (!withTime)
        return KIVCS2STATUS_OK;
    reading.hours = value(formatting.formatHour);
    reading.minutes = value(formatting.formatMinute);
    reading.seconds = value(formatting.formatSecond);
    reading.milliseconds = value(formatting.formatMilliSecond);
    return KIVCS2STATUS_OK;
}

KIVCS2Status splitText(const Formatting &formatting, CFStringRef text, TextFields &fields)
{
    fields = {};
    const ArrayRef parts = split(text, formatting.spaceString);
    if (!parts)
        return KIVCS2STATUS_MEMORY_ERR;
    const bool dated = CFArrayGetCount(parts.get()) == 2;
    if (dated)
        KIV_TRY(splitDate(formatting, piece(parts, 0), fields));

    const ArrayRef pieces = split(piece(parts, dated ? 1 : 0), formatting.colonString);
    if (!pieces)
        return KIVCS2STATUS_MEMORY_ERR;
    const CFIndex count = CFArrayGetCount(pieces.get());
    if (count != 1 && count != 3 && count != 4)
        return KIVCS2STATUS_OK; // Kept: any other number of fields is midnight, not an error
    KIV_TRY(readFields(formatting, pieces, count, fields.time.data()));
    fields.timeFields = static_cast<uint32_t>(count);
    return KIVCS2STATUS_OK;
}
} // namespace kiv::timecode
