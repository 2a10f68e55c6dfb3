// Inside of arrays, for the other types of this folder.
#ifndef KIV_PLATFORM_ARRAY_H
#define KIV_PLATFORM_ARRAY_H

#include <CoreFoundation/CFArray.h>

#include "CoreFoundation/Object.h"

struct __CFArray : kiv::cf::Object
{
    explicit __CFArray(const CFArrayCallBacks &forValues) noexcept;

    CFArrayCallBacks callBacks;
    const void **values = nullptr; // behind this head, or a block of its own where it grows
    CFIndex count = 0;
    CFIndex capacity = 0;
    bool isMutable = false;
};

namespace kiv::cf
{
// Makes an array of exactly so many new objects, which it takes over; one that is null (it could not
// be made) makes the whole null.
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
