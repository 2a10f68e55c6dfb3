// Date formatters over ICU, which is opened with the first text: it then loads its locale data, half a
// millisecond with a warm cache and more from disk, and most formatters of a process never write one.
#include <CoreFoundation/CFDateFormatter.h>

#include "CoreFoundation/Date.h"
#include "CoreFoundation/String.h"

#include <unicode/udat.h>

#include <array>
#include <memory>

struct __CFDateFormatter : kiv::cf::Object
{
    explicit __CFDateFormatter(CFLocaleRef forLocale) noexcept; // takes the reference over

    CFLocaleRef locale; // may be null
    CFStringRef pattern = nullptr;
    UDateFormat *format = nullptr; // open for `pattern`, or null
};

namespace
{
constexpr const char *kNoLocale = "en_US_POSIX";

void close(__CFDateFormatter &formatter) noexcept
{
    if (formatter.format != nullptr)
        udat_close(std::exchange(formatter.format, nullptr));
}

void finalizeFormatter(kiv::cf::Object &object)
{
    auto &formatter = static_cast<__CFDateFormatter &>(object);
    close(formatter);
    kiv::cf::releaseIfAny(formatter.pattern);
    kiv::cf::releaseIfAny(formatter.locale);
}

constexpr kiv::cf::Type kFormatterType{kiv::cf::kTypeDateFormatter, finalizeFormatter, nullptr, nullptr};

struct FreeBlock
{
    void operator()(void *block) const noexcept
    {
        std::free(block);
    }
};

// Room for a few units without the heap, more with it.
class UnitBuffer
{
public:
    [[nodiscard]] char16_t *ofSize(size_t units) noexcept
    {
        if (units <= m_small.size())
            return m_small.data();
        m_large.reset(static_cast<char16_t *>(std::malloc(units * sizeof(char16_t))));
        return m_large.get();
    }
    [[nodiscard]] static constexpr size_t smallSize() noexcept
    {
        return 128;
    }

private:
    std::array<char16_t, 128> m_small;
    std::unique_ptr<char16_t[], FreeBlock> m_large;
};

// The units of a string in `buffer`; null for one longer than ICU takes and without memory.
char16_t *unitsOf(CFStringRef string, CFRange range, UnitBuffer &buffer) noexcept
{
    char16_t *units = range.length <= INT32_MAX ? buffer.ofSize(static_cast<size_t>(range.length)) : nullptr;
    if (units != nullptr)
        CFStringGetCharacters(string, range, reinterpret_cast<UniChar *>(units));
    return units;
}

bool open(__CFDateFormatter &formatter) noexcept
{
    char locale[ULOC_FULLNAME_CAPACITY];
    if (formatter.locale != nullptr && !CFStringGetCString(CFLocaleGetIdentifier(formatter.locale), locale,
                                                           sizeof locale, kCFStringEncodingASCII))
        return false;
    const CFIndex length = CFStringGetLength(formatter.pattern);
    UnitBuffer buffer;
    const char16_t *pattern = unitsOf(formatter.pattern, CFRangeMake(0, length), buffer);
    if (pattern == nullptr)
        return false;

    UErrorCode status = U_ZERO_ERROR;
    UDateFormat *opened =
        udat_open(UDAT_PATTERN, UDAT_PATTERN, formatter.locale != nullptr ? locale : kNoLocale, nullptr, 0,
                  pattern, static_cast<int32_t>(length), &status);
    if (U_FAILURE(status))
    {
        udat_close(opened);
        return false;
    }
    formatter.format = opened;
    return true;
}
} // namespace

__CFDateFormatter::__CFDateFormatter(CFLocaleRef forLocale) noexcept
    : Object{kFormatterType}, locale{forLocale}
{
}

CFTypeID CFDateFormatterGetTypeID(void)
{
    return kiv::cf::kTypeDateFormatter;
}

CFDateFormatterRef CFDateFormatterCreate(CFAllocatorRef, CFLocaleRef locale, CFDateFormatterStyle dateStyle,
                                         CFDateFormatterStyle timeStyle)
{
    if (dateStyle != kCFDateFormatterNoStyle || timeStyle != kCFDateFormatterNoStyle)
        return nullptr;
    CFDateFormatterRef formatter = kiv::cf::create<__CFDateFormatter>(0, locale);
    if (formatter != nullptr && locale != nullptr)
        CFRetain(locale);
    return formatter;
}

void CFDateFormatterSetFormat(CFDateFormatterRef formatter, CFStringRef formatString)
{
    CFStringRef pattern = CFStringCreateCopy(nullptr, formatString);
    if (pattern == nullptr)
        return;
    close(*formatter);
    kiv::cf::releaseIfAny(std::exchange(formatter->pattern, pattern));
}

CFStringRef CFDateFormatterCreateStringWithDate(CFAllocatorRef allocator, CFDateFormatterRef formatter,
                                                CFDateRef date)
{
    return CFDateFormatterCreateStringWithAbsoluteTime(allocator, formatter, CFDateGetAbsoluteTime(date));
}

CFStringRef CFDateFormatterCreateStringWithAbsoluteTime(CFAllocatorRef, CFDateFormatterRef formatter,
                                                        CFAbsoluteTime at)
{
    if (!std::isfinite(at))
        return nullptr;
    if (formatter->pattern == nullptr || CFStringGetLength(formatter->pattern) == 0)
        return kiv::cf::createString(std::string_view{});
    if (formatter->format == nullptr && !open(*formatter))
        return nullptr;

    UnitBuffer buffer;
    char16_t *text = buffer.ofSize(UnitBuffer::smallSize());
    UErrorCode status = U_ZERO_ERROR;
    const double time = kiv::cf::icuTime(at);
    int32_t length = udat_format(formatter->format, time, text, static_cast<int32_t>(UnitBuffer::smallSize()),
                                 nullptr, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR)
    {
        status = U_ZERO_ERROR;
        text = buffer.ofSize(static_cast<size_t>(length));
        if (text == nullptr)
            return nullptr;
        length = udat_format(formatter->format, time, text, length, nullptr, &status);
    }
    if (U_FAILURE(status))
        return nullptr;
    return kiv::cf::createString(kiv::text::Units{nullptr, text, static_cast<size_t>(length)});
}

CFDateRef CFDateFormatterCreateDateFromString(CFAllocatorRef allocator, CFDateFormatterRef formatter,
                                              CFStringRef string, CFRange *rangep)
{
    if (formatter->pattern == nullptr || (formatter->format == nullptr && !open(*formatter)))
        return nullptr;
    const CFRange range = rangep != nullptr ? *rangep : CFRangeMake(0, CFStringGetLength(string));
    UnitBuffer buffer;
    const char16_t *text = unitsOf(string, range, buffer);
    if (text == nullptr)
        return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    int32_t end = 0;
    const double time =
        udat_parse(formatter->format, text, static_cast<int32_t>(range.length), &end, &status);
    if (U_FAILURE(status))
        return nullptr;
    if (rangep != nullptr)
        rangep->length = end;
    return CFDateCreate(allocator, time / 1000.0 - kCFAbsoluteTimeIntervalSince1970);
}
