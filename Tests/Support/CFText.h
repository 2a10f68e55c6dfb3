// System strings from and to plain texts, for tests.
#ifndef KIV_TEST_CFTEXT_H
#define KIV_TEST_CFTEXT_H

// Included by its path: it needs no part of the library, so programs with the shared library use it too.
#include "../../Sources/Private/Support/CFRef.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <string_view>

namespace kiv::test
{
using StringRef = kiv::CFRef<CFStringRef>;

inline StringRef fromBytes(std::string_view bytes, CFStringEncoding encoding = kCFStringEncodingUTF8)
{
    return StringRef{CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(bytes.data()),
                                             static_cast<CFIndex>(bytes.size()), encoding, false)};
}

inline StringRef fromUnits(std::u16string_view units)
{
    return StringRef{CFStringCreateWithCharacters(nullptr, reinterpret_cast<const UniChar *>(units.data()),
                                                  static_cast<CFIndex>(units.size()))};
}

inline std::u16string unitsOf(CFStringRef string)
{
    std::u16string units(static_cast<size_t>(CFStringGetLength(string)), u'\0');
    CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)),
                          reinterpret_cast<UniChar *>(units.data()));
    return units;
}

struct Converted
{
    CFIndex units;
    std::string bytes;

    bool operator==(const Converted &) const = default;
};

// Converts as much of `string` as possible to `encoding`, in a buffer of the promised maximum size.
inline Converted convert(CFStringRef string, CFStringEncoding encoding, UInt8 lossByte = 0)
{
    const CFIndex length = CFStringGetLength(string);
    std::string bytes(static_cast<size_t>(CFStringGetMaximumSizeForEncoding(length, encoding)), '\0');
    CFIndex used = -1;
    const CFIndex units =
        CFStringGetBytes(string, CFRangeMake(0, length), encoding, lossByte, false,
                         reinterpret_cast<UInt8 *>(bytes.data()), static_cast<CFIndex>(bytes.size()), &used);
    bytes.resize(static_cast<size_t>(used));
    return {units, bytes};
}

inline std::string utf8(CFStringRef string)
{
    return convert(string, kCFStringEncodingUTF8).bytes;
}
} // namespace kiv::test

#endif
