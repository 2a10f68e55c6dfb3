// Strings. ASCII contents take one byte for each unit; caption lines, names and paths are nearly all ASCII.
#include <CoreFoundation/CFString.h>

#include "CoreFoundation/Array.h"
#include "CoreFoundation/CharacterSet.h"
#include "CoreFoundation/String.h"

#include <unicode/unorm2.h>

#include <algorithm>
#include <climits>
#include <cstring>

using kiv::cf::createString;
using kiv::text::Units;

namespace
{
void finalizeString(kiv::cf::Object &object)
{
    std::free(static_cast<__CFString &>(object).owned);
}

bool equalUnits(const Units &left, const Units &right) noexcept
{
    if (left.length != right.length)
        return false;
    if (left.narrow != nullptr && right.narrow != nullptr)
        return left.length == 0 || std::memcmp(left.narrow, right.narrow, left.length) == 0;
    for (size_t index = 0; index < left.length; ++index)
    {
        if (left[index] != right[index])
            return false;
    }
    return true;
}

bool equalStrings(const kiv::cf::Object &left, const kiv::cf::Object &right)
{
    return equalUnits(static_cast<const __CFString &>(left).units,
                      static_cast<const __CFString &>(right).units);
}

CFHashCode hashString(const kiv::cf::Object &object)
{
    // Hashes the units, so that a text has the same hash in both storage forms.
    const Units &units = static_cast<const __CFString &>(object).units;
    return units.narrow != nullptr ? kiv::cf::hashValues(std::span{units.narrow, units.length})
                                   : kiv::cf::hashValues(std::span{units.wide, units.length});
}

// A string with room for `length` units after its head, which the caller fills in.
struct NewString
{
    __CFString *string;
    uint8_t *narrow;
    char16_t *wide;
};

NewString allocate(size_t length, bool narrow, bool canChange) noexcept
{
    static_assert(sizeof(__CFString) % alignof(char16_t) == 0);
    if (length > static_cast<size_t>(PTRDIFF_MAX) / sizeof(char16_t))
        return {};
    // Bytes end with a zero, for CFStringGetCStringPtr().
    const size_t extra = narrow ? length + 1 : length * sizeof(char16_t);
    auto *string = kiv::cf::create<__CFString>(extra, Units{}, canChange);
    if (string == nullptr)
        return {};
    void *contents = string + 1;
    if (narrow)
        static_cast<uint8_t *>(contents)[length] = 0;
    NewString made{string, narrow ? static_cast<uint8_t *>(contents) : nullptr,
                   narrow ? nullptr : static_cast<char16_t *>(contents)};
    string->units = {made.narrow, made.wide, length};
    return made;
}

__CFString *copyUnits(const Units &units, bool canChange) noexcept
{
    const bool narrow = units.narrow != nullptr || kiv::text::isAscii({units.wide, units.length});
    const NewString made = allocate(units.length, narrow, canChange);
    if (made.string == nullptr)
        return nullptr;
    if (units.narrow != nullptr)
        std::copy_n(units.narrow, units.length, made.narrow);
    else if (narrow)
        std::transform(units.wide, units.wide + units.length, made.narrow,
                       [](char16_t unit) { return static_cast<uint8_t>(unit); });
    else
        std::copy_n(units.wide, units.length, made.wide);
    return made.string;
}

CFStringRef createFromBytes(std::span<const uint8_t> bytes, CFStringEncoding encoding) noexcept
{
    const size_t perUnit = kiv::text::maximumBytesPerUnit(encoding);
    if (perUnit == 0)
        return nullptr;
    const bool eightBit = perUnit == 1 || encoding == kCFStringEncodingUTF8;
    if (eightBit && kiv::text::asciiPrefix(bytes) == bytes.size())
        return copyUnits({bytes.data() != nullptr ? bytes.data() : reinterpret_cast<const uint8_t *>(""),
                          nullptr, bytes.size()},
                         false);

    // A short text gets a unit for each byte, the most that UTF-8 needs; counting costs more than the room.
    constexpr size_t kShort = 256;
    const bool counts = encoding != kCFStringEncodingUTF8 || bytes.size() > kShort;
    const size_t bound = counts ? kiv::text::utf16Bound(bytes, encoding) : bytes.size();
    const NewString made = allocate(bound, false, false);
    if (made.string == nullptr)
        return nullptr;
    const std::optional<size_t> length = kiv::text::decode(bytes, encoding, made.wide);
    if (!length)
    {
        CFRelease(made.string);
        return nullptr;
    }
    made.string->units.length = *length;
    return made.string;
}

std::span<const uint8_t> withoutMark(std::span<const uint8_t> bytes, CFStringEncoding encoding) noexcept
{
    uint8_t mark[4];
    const char16_t unit = 0xfeff;
    const size_t size = kiv::text::encode({nullptr, &unit, 1}, encoding, 0, mark, sizeof mark).bytes;
    if (size == 0 || bytes.size() < size || std::memcmp(bytes.data(), mark, size) != 0)
        return bytes;
    return bytes.subspan(size);
}

const UNormalizer2 *normalizer(CFStringNormalizationForm form) noexcept
{
    UErrorCode status = U_ZERO_ERROR;
    switch (form)
    {
    case kCFStringNormalizationFormD:
        return unorm2_getNFDInstance(&status);
    case kCFStringNormalizationFormKD:
        return unorm2_getNFKDInstance(&status);
    case kCFStringNormalizationFormC:
        return unorm2_getNFCInstance(&status);
    case kCFStringNormalizationFormKC:
        return unorm2_getNFKCInstance(&status);
    default:
        return nullptr;
    }
}

// The first position of `separator` at `from` or later, or kCFNotFound.
CFIndex find(const Units &units, const Units &separator, size_t from) noexcept
{
    if (separator.narrow != nullptr && separator.length == 1 && units.narrow != nullptr)
    {
        if (from == units.length)
            return kCFNotFound;
        const void *hit = std::memchr(units.narrow + from, separator.narrow[0], units.length - from);
        if (hit == nullptr)
            return kCFNotFound;
        return static_cast<const uint8_t *>(hit) - units.narrow;
    }
    for (; from + separator.length <= units.length; ++from)
    {
        if (equalUnits(units.part(from, separator.length), separator))
            return static_cast<CFIndex>(from);
    }
    return kCFNotFound;
}

// The part of the range that lies inside the string.
CFRange inside(CFStringRef string, CFRange range) noexcept
{
    const auto end = static_cast<CFIndex>(string->units.length);
    const CFIndex from = std::clamp(range.location, CFIndex{0}, end);
    // Units before the start do not count; this sum cannot overflow.
    const CFIndex length =
        range.location < 0 && range.length > 0 ? range.length + range.location : range.length;
    return CFRangeMake(from, std::clamp(length, CFIndex{0}, end - from));
}

Units inRange(CFStringRef string, CFRange range) noexcept
{
    const CFRange cut = inside(string, range);
    return string->units.part(static_cast<size_t>(cut.location), static_cast<size_t>(cut.length));
}
} // namespace

constinit const kiv::cf::Type kiv::cf::kStringType{kiv::cf::kTypeString, finalizeString, equalStrings,
                                                   hashString};

CFStringRef kiv::cf::createString(const Units &units) noexcept
{
    return copyUnits(units, false);
}

CFStringRef kiv::cf::createString(std::string_view utf8) noexcept
{
    return createFromBytes({reinterpret_cast<const uint8_t *>(utf8.data()), utf8.size()},
                           kCFStringEncodingUTF8);
}

kiv::cf::StringValue::StringValue(const Type &kind, CFStringRef text) noexcept : Object{kind}, value{text} {}

void kiv::cf::finalizeStringValue(Object &object)
{
    CFRelease(static_cast<StringValue &>(object).value);
}

bool kiv::cf::equalStringValues(const Object &left, const Object &right)
{
    return CFEqual(static_cast<const StringValue &>(left).value,
                   static_cast<const StringValue &>(right).value) != 0;
}

CFHashCode kiv::cf::hashStringValue(const Object &object)
{
    return CFHash(static_cast<const StringValue &>(object).value);
}

CFTypeID CFStringGetTypeID(void)
{
    return kiv::cf::kTypeString;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8 *bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation)
{
    if (numBytes < 0 || (bytes == nullptr && numBytes > 0) || kiv::text::maximumBytesPerUnit(encoding) == 0)
        return nullptr;
    const std::span<const uint8_t> all{bytes, static_cast<size_t>(numBytes)};
    return createFromBytes(isExternalRepresentation != 0 ? withoutMark(all, encoding) : all, encoding);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char *cStr, CFStringEncoding encoding)
{
    if (cStr == nullptr)
        return nullptr;
    return CFStringCreateWithBytes(alloc, reinterpret_cast<const UInt8 *>(cStr),
                                   static_cast<CFIndex>(std::strlen(cStr)), encoding, false);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar *chars, CFIndex numChars)
{
    if (numChars < 0 || (chars == nullptr && numChars > 0))
        return nullptr;
    return createString(
        Units{nullptr, reinterpret_cast<const char16_t *>(chars), static_cast<size_t>(numChars)});
}

CFStringRef CFStringCreateWithFileSystemRepresentation(CFAllocatorRef alloc, const char *buffer)
{
    return CFStringCreateWithCString(alloc, buffer, kCFStringEncodingUTF8);
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef theString)
{
    if (!theString->isMutable)
        return static_cast<CFStringRef>(CFRetain(theString));
    return createString(theString->units);
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef theString)
{
    return copyUnits(theString->units, true);
}

void CFStringNormalize(CFMutableStringRef theString, CFStringNormalizationForm theForm)
{
    const Units &units = theString->units;
    const UNormalizer2 *form = normalizer(theForm);
    // ASCII is the same in every form. ICU counts in 32 bits.
    if (!theString->isMutable || units.narrow != nullptr || form == nullptr || units.length > INT32_MAX)
        return;

    const auto length = static_cast<int32_t>(units.length);
    UErrorCode status = U_ZERO_ERROR;
    if (unorm2_isNormalized(form, units.wide, length, &status) && U_SUCCESS(status))
        return;
    // Measure, then convert: normalisation is rare, and the result may be longer or shorter.
    status = U_ZERO_ERROR;
    const int32_t needed = unorm2_normalize(form, units.wide, length, nullptr, 0, &status);
    if (status != U_BUFFER_OVERFLOW_ERROR)
        return;
    auto *converted = static_cast<char16_t *>(std::malloc(static_cast<size_t>(needed) * sizeof(char16_t)));
    if (converted == nullptr)
        return;
    status = U_ZERO_ERROR;
    unorm2_normalize(form, units.wide, length, converted, needed, &status);
    if (U_FAILURE(status))
    {
        std::free(converted);
        return;
    }
    std::free(theString->owned);
    theString->owned = converted;
    theString->units = {nullptr, converted, static_cast<size_t>(needed)};
}

CFIndex CFStringGetLength(CFStringRef theString)
{
    return static_cast<CFIndex>(theString->units.length);
}

UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx)
{
    if (idx < 0 || static_cast<size_t>(idx) >= theString->units.length)
        return 0;
    return theString->units[static_cast<size_t>(idx)];
}

void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar *buffer)
{
    const Units units = inRange(theString, range);
    auto *out = reinterpret_cast<char16_t *>(buffer);
    if (units.narrow != nullptr)
        kiv::text::widen({units.narrow, units.length}, out);
    else
        std::copy_n(units.wide, units.length, out);
}

CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean, UInt8 *buffer, CFIndex maxBufLen, CFIndex *usedBufLen)
{
    kiv::text::Encoded done{0, 0};
    if (kiv::text::maximumBytesPerUnit(encoding) != 0)
        done = kiv::text::encode(inRange(theString, range), encoding, lossByte, buffer,
                                 maxBufLen < 0 ? 0 : static_cast<size_t>(maxBufLen));
    if (usedBufLen != nullptr)
        *usedBufLen = static_cast<CFIndex>(done.bytes);
    return static_cast<CFIndex>(done.units);
}

Boolean CFStringGetCString(CFStringRef theString, char *buffer, CFIndex bufferSize, CFStringEncoding encoding)
{
    if (bufferSize < 1)
        return false;
    CFIndex used = 0;
    const CFIndex length = CFStringGetLength(theString);
    const CFIndex converted = CFStringGetBytes(theString, CFRangeMake(0, length), encoding, 0, false,
                                               reinterpret_cast<UInt8 *>(buffer), bufferSize - 1, &used);
    buffer[converted == length ? used : 0] = '\0';
    return converted == length && kiv::text::maximumBytesPerUnit(encoding) != 0;
}

const char *CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding)
{
    const bool sameBytes = encoding == kCFStringEncodingASCII || encoding == kCFStringEncodingUTF8 ||
                           encoding == kCFStringEncodingISOLatin1;
    return sameBytes ? reinterpret_cast<const char *>(theString->units.narrow) : nullptr;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding)
{
    const auto perUnit = static_cast<CFIndex>(kiv::text::maximumBytesPerUnit(encoding));
    if (perUnit == 0 || length < 0 || length > LONG_MAX / perUnit)
        return kCFNotFound;
    return length * perUnit;
}

CFIndex CFStringGetMaximumSizeOfFileSystemRepresentation(CFStringRef string)
{
    // Three bytes for each unit, and three for each of the two marks that a unit may gain on a file system
    // that decomposes names; hosts size their buffers by this.
    return 9 * CFStringGetLength(string) + 1;
}

Boolean CFStringGetFileSystemRepresentation(CFStringRef string, char *buffer, CFIndex maxBufLen)
{
    return CFStringGetCString(string, buffer, maxBufLen, kCFStringEncodingUTF8);
}

SInt32 CFStringGetIntValue(CFStringRef str)
{
    const Units &units = str->units;
    size_t index = 0;
    while (index < units.length && (units[index] == ' ' || (units[index] >= '\t' && units[index] <= '\r')))
        ++index;
    const bool negative = index < units.length && units[index] == '-';
    if (index < units.length && (units[index] == '-' || units[index] == '+'))
        ++index;

    constexpr int64_t kBeyond = 1LL << 31; // the magnitude of the smallest value
    int64_t value = 0;
    for (; index < units.length && units[index] >= '0' && units[index] <= '9'; ++index)
        value = std::min(value * 10 + (units[index] - '0'), kBeyond);
    return static_cast<SInt32>(negative ? -value : std::min(value, kBeyond - 1));
}

CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2, CFStringCompareFlags)
{
    const Units &left = theString1->units;
    const Units &right = theString2->units;
    for (size_t index = 0; index < left.length && index < right.length; ++index)
    {
        if (left[index] != right[index])
            return left[index] < right[index] ? kCFCompareLessThan : kCFCompareGreaterThan;
    }
    if (left.length == right.length)
        return kCFCompareEqualTo;
    return left.length < right.length ? kCFCompareLessThan : kCFCompareGreaterThan;
}

CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef, CFStringRef theString,
                                                  CFStringRef separatorString)
{
    const Units &units = theString->units;
    const Units &separator = separatorString->units;
    size_t pieces = 1;
    if (separator.length > 0)
    {
        for (CFIndex at = 0; (at = find(units, separator, static_cast<size_t>(at))) != kCFNotFound; ++pieces)
            at += static_cast<CFIndex>(separator.length);
    }

    kiv::cf::ArrayBuilder array{pieces};
    size_t from = 0;
    for (size_t piece = 0; piece < pieces; ++piece)
    {
        const size_t to =
            piece + 1 < pieces ? static_cast<size_t>(find(units, separator, from)) : units.length;
        array.append(createString(units.part(from, to - from)));
        from = to + separator.length;
    }
    return array.finish();
}

Boolean CFStringFindCharacterFromSet(CFStringRef theString, CFCharacterSetRef theSet, CFRange rangeToSearch,
                                     CFStringCompareFlags, CFRange *result)
{
    const CFRange searched = inside(theString, rangeToSearch);
    const Units units = inRange(theString, searched);
    for (size_t index = 0; index < units.length;)
    {
        const kiv::text::Character character = kiv::text::characterAt(units, index);
        if (kiv::cf::contains(theSet, character.code))
        {
            if (result != nullptr)
                *result = CFRangeMake(searched.location + static_cast<CFIndex>(index),
                                      static_cast<CFIndex>(character.units));
            return true;
        }
        index += character.units;
    }
    return false;
}
