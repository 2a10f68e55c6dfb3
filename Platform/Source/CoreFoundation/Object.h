// The common head of every object: its kind and an atomic count. An object is one block of the
// system heap: the head, the members, then the contents if their size is known.
#ifndef KIV_PLATFORM_OBJECT_H
#define KIV_PLATFORM_OBJECT_H

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace kiv::cf
{
struct Object;

// The functions of a kind of object. Null members do nothing, compare addresses and hash the address.
struct Type
{
    CFTypeID id;
    void (*finalize)(Object &object);
    bool (*equal)(const Object &left, const Object &right);
    CFHashCode (*hash)(const Object &object);
    bool nests = false; // `finalize` may end other objects of this type, and these may end more
};

enum TypeID : CFTypeID
{
    kTypeString = 1,
    kTypeArray,
    kTypeNumber,
    kTypeDate,
    kTypeLocale,
    kTypeCalendar,
    kTypeDateFormatter,
    kTypeCharacterSet,
    kTypeURL,
    kTypeBundle,
    kTypeUUID,
    kTypeBoolean,
    kTypeDictionary,
    kTypeRunLoop,
    kTypeRunLoopTimer,
    kTypeData,
    kTypeNetService,
    kTypeNetServiceBrowser,
    kTypeNetServiceMonitor,
    kTypePixelBuffer,
    kTypeTimeZone,
};

// The count of an object that is part of the library: no host releases it that often.
constexpr CFIndex kForEver = std::numeric_limits<CFIndex>::max() / 2;

struct Object
{
    explicit constexpr Object(const Type &kind, CFIndex count = 1) noexcept : type{&kind}, references{count}
    {
    }
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;

    const Type *type;
    mutable std::atomic<CFIndex> references;
};

// A new T with `extra` bytes after it, or null without memory. T has no destructor of its own:
// finalize releases its resources.
template <class T, class... Arguments>
[[nodiscard]] T *create(size_t extra, Arguments &&...arguments) noexcept
{
    static_assert(std::is_trivially_destructible_v<T>);
    if (extra > static_cast<size_t>(PTRDIFF_MAX) - sizeof(T))
        return nullptr;
    void *block = std::malloc(sizeof(T) + extra);
    if (block == nullptr)
        return nullptr;
    return new (block) T{std::forward<Arguments>(arguments)...};
}

// 64-bit FNV-1a over any sequence of small values.
template <class Values>
[[nodiscard]] CFHashCode hashValues(const Values &values) noexcept
{
    CFHashCode hash = 0xcbf29ce484222325u;
    for (const auto value : values)
        hash = (hash ^ static_cast<CFHashCode>(value)) * 0x100000001b3u;
    return hash;
}

inline void releaseIfAny(CFTypeRef object) noexcept
{
    if (object != nullptr)
        CFRelease(object);
}
} // namespace kiv::cf

#endif
