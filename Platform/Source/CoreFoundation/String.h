// Internals of strings, for the other types of this folder.
#ifndef KIV_PLATFORM_STRING_H
#define KIV_PLATFORM_STRING_H

#include "CoreFoundation/Encoding.h"
#include "CoreFoundation/Object.h"

#include <string_view>

namespace kiv::cf
{
extern const Type kStringType;
}

struct __CFString : kiv::cf::Object
{
    constexpr __CFString(const kiv::text::Units &content, bool canChange, CFIndex count = 1) noexcept
        : Object{kiv::cf::kStringType, count}, units{content}, isMutable{canChange}
    {
    }

    kiv::text::Units units; // after this head, or in `owned`
    char16_t *owned = nullptr;
    bool isMutable;
};

namespace kiv::cf
{
// An object whose value is one string: a locale's name, a location's path.
struct StringValue : Object
{
    StringValue(const Type &kind, CFStringRef text) noexcept; // takes over the reference

    CFStringRef value;
};

void finalizeStringValue(Object &object);
[[nodiscard]] bool equalStringValues(const Object &left, const Object &right);
[[nodiscard]] CFHashCode hashStringValue(const Object &object);

constexpr Type stringValueType(TypeID id) noexcept
{
    return {id, finalizeStringValue, equalStringValues, hashStringValue};
}

// A new T with the value `text`, whose reference it takes over in
// every case. Null for null and without memory.
template <class T>
[[nodiscard]] const T *createAround(CFStringRef text) noexcept
{
    if (text == nullptr)
        return nullptr;
    const T *object = create<T>(0, text);
    if (object == nullptr)
        CFRelease(text);
    return object;
}

// An immutable string of the same units, of 8 bits each if all are ASCII. Null without memory.
[[nodiscard]] CFStringRef createString(const text::Units &units) noexcept;
// The same from UTF-8, strict.
[[nodiscard]] CFStringRef createString(std::string_view utf8) noexcept;
} // namespace kiv::cf

#endif
