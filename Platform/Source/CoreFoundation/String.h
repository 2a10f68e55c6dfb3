// Inside of strings, for the other types of this folder.
#ifndef KIV_PLATFORM_STRING_H
#define KIV_PLATFORM_STRING_H

#include "CoreFoundation/Encoding.h"
#include "CoreFoundation/Object.h"

#include <string_view>

struct __CFString : kiv::cf::Object
{
    __CFString(const kiv::text::Units &content, bool canChange) noexcept;

    kiv::text::Units units; // behind this head, or in `owned`
    char16_t *owned = nullptr;
    bool isMutable;
};

namespace kiv::cf
{
// An immutable string of the same units, in 8 bits each where all are ASCII. Null without memory.
[[nodiscard]] CFStringRef createString(const text::Units &units) noexcept;
// The same from UTF-8, strict.
[[nodiscard]] CFStringRef createString(std::string_view utf8) noexcept;
} // namespace kiv::cf

#endif
