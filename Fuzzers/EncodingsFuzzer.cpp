// Bytes as a string of one encoding, and that string in every other. The result must be read back as the
// same characters, and ICU must agree if UTF-8 is well formed.
#include "Require.h"

#include <CoreFoundation/CoreFoundation.h>

#include <unicode/ustring.h>

#include <array>
#include <cstring>
#include <vector>

namespace
{
constexpr std::array kEncodings = {
    kCFStringEncodingASCII,   kCFStringEncodingISOLatin1, kCFStringEncodingUTF8,    kCFStringEncodingUTF16BE,
    kCFStringEncodingUTF16LE, kCFStringEncodingUTF32BE,   kCFStringEncodingUTF32LE,
};

CFStringRef fromBytes(const uint8_t *bytes, size_t size, CFStringEncoding encoding)
{
    return CFStringCreateWithBytes(nullptr, bytes, static_cast<CFIndex>(size), encoding, false);
}

void compareWithIcu(CFStringRef string, const uint8_t *bytes, size_t size)
{
    std::vector<UChar> units(size + 1);
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(units.data(), static_cast<int32_t>(units.size()), &length,
                  reinterpret_cast<const char *>(bytes), static_cast<int32_t>(size), &status);
    require((string != nullptr) == (U_SUCCESS(status) != 0));
    if (string == nullptr)
        return;
    require(CFStringGetLength(string) == length);
    for (int32_t index = 0; index < length; ++index)
        require(CFStringGetCharacterAtIndex(string, index) == units[static_cast<size_t>(index)]);
}

// Converts the string to `encoding` and back, which gives exactly the units that were converted.
void convertAndBack(CFStringRef string, CFStringEncoding encoding)
{
    const CFIndex length = CFStringGetLength(string);
    const CFIndex room = CFStringGetMaximumSizeForEncoding(length, encoding);
    std::vector<UInt8> bytes(static_cast<size_t>(room) + 1);
    CFIndex used = 0;
    const CFIndex converted =
        CFStringGetBytes(string, CFRangeMake(0, length), encoding, 0, false, bytes.data(), room, &used);
    CFIndex measured = 0;
    require(CFStringGetBytes(string, CFRangeMake(0, length), encoding, 0, false, nullptr, 0, &measured) ==
            converted);
    require(measured == used && used <= room);

    CFStringRef back = fromBytes(bytes.data(), static_cast<size_t>(used), encoding);
    require(back != nullptr && CFStringGetLength(back) == converted);
    for (CFIndex index = 0; index < converted; ++index)
        require(CFStringGetCharacterAtIndex(back, index) == CFStringGetCharacterAtIndex(string, index));
    require(converted != length || (CFEqual(back, string) != 0 && CFHash(back) == CFHash(string)));
    CFRelease(back);

    // With a loss byte every character converts.
    require(CFStringGetBytes(string, CFRangeMake(0, length), encoding, '?', false, bytes.data(), room,
                             &used) == length);
}

void normalise(CFStringRef string)
{
    for (CFStringNormalizationForm form = kCFStringNormalizationFormD; form <= kCFStringNormalizationFormKC;
         ++form)
    {
        CFMutableStringRef once = CFStringCreateMutableCopy(nullptr, 0, string);
        CFStringNormalize(once, form);
        CFMutableStringRef twice = CFStringCreateMutableCopy(nullptr, 0, once);
        CFStringNormalize(twice, form);
        require(CFEqual(once, twice) != 0);
        CFRelease(twice);
        CFRelease(once);
    }
}

void split(CFStringRef string)
{
    CFStringRef colon = CFStringCreateWithCString(nullptr, ":", kCFStringEncodingASCII);
    CFArrayRef pieces = CFStringCreateArrayBySeparatingStrings(nullptr, string, colon);
    CFIndex length = CFArrayGetCount(pieces) - 1; // the number of separators
    for (CFIndex index = 0; index < CFArrayGetCount(pieces); ++index)
        length += CFStringGetLength(static_cast<CFStringRef>(CFArrayGetValueAtIndex(pieces, index)));
    require(length == CFStringGetLength(string));
    CFRelease(pieces);
    CFRelease(colon);
}
} // namespace

// The first byte chooses the encoding of the rest.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const CFStringEncoding from = kEncodings[data[0] % kEncodings.size()];
    CFStringRef string = fromBytes(data + 1, size - 1, from);
    if (from == kCFStringEncodingUTF8)
        compareWithIcu(string, data + 1, size - 1);
    if (string == nullptr)
        return 0;
    for (const CFStringEncoding to : kEncodings)
        convertAndBack(string, to);
    normalise(string);
    split(string);
    static_cast<void>(CFStringGetIntValue(string));
    CFRelease(string);
    return 0;
}
