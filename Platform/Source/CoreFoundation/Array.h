// Internals of arrays, for the other types of this folder.
#ifndef KIV_PLATFORM_ARRAY_H
#define KIV_PLATFORM_ARRAY_H

#include <CoreFoundation/CFArray.h>

#include "CoreFoundation/Object.h"

struct __CFArray : kiv::cf::Object
{
    explicit __CFArray(const CFArrayCallBacks &forValues) noexcept;

    CFArrayCallBacks callBacks;
    const void **values = nullptr; // after this head, or in a block of its own if the array is mutable
    CFIndex count = 0;
    CFIndex capacity = 0;
    bool isMutable = false;
};

namespace kiv::cf
{
// Makes an array of exactly `count` new objects and takes over their references. If an object is null because
// it could not be made, the result is null.
class ArrayBuilder
{
public:
    explicit ArrayBuilder(size_t count) noexcept;
    ArrayBuilder(const ArrayBuilder &) = delete;
    ArrayBuilder &operator=(const ArrayBuilder &) = delete;
    ~ArrayBuilder();

    void append(CFTypeRef object) noexcept;
    [[nodiscard]] CFArrayRef finish() noexcept;

private:
    __CFArray *m_array;
};
} // namespace kiv::cf

#endif
