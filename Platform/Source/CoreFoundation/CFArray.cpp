// Arrays. An immutable array holds its values after its head, a mutable one in a block that doubles.
#include <CoreFoundation/CFArray.h>

#include "CoreFoundation/Array.h"

#include <algorithm>

namespace
{
const void *retainObject(CFAllocatorRef, const void *value)
{
    return CFRetain(value);
}
void releaseObject(CFAllocatorRef, const void *value)
{
    CFRelease(value);
}

void finalizeArray(kiv::cf::Object &object)
{
    auto &array = static_cast<__CFArray &>(object);
    if (array.callBacks.release != nullptr)
        std::for_each(array.values, array.values + array.count,
                      [&array](const void *value) { array.callBacks.release(nullptr, value); });
    if (array.isMutable)
        std::free(array.values);
}

bool equalArrays(const kiv::cf::Object &leftObject, const kiv::cf::Object &rightObject)
{
    const auto &left = static_cast<const __CFArray &>(leftObject);
    const auto &right = static_cast<const __CFArray &>(rightObject);
    return std::equal(left.values, left.values + left.count, right.values, right.values + right.count,
                      [&left](const void *one, const void *other) {
                          return one == other ||
                                 (left.callBacks.equal != nullptr && left.callBacks.equal(one, other));
                      });
}

// Equal arrays have the same count, so the count is a valid hash.
CFHashCode hashArray(const kiv::cf::Object &object)
{
    return static_cast<CFHashCode>(static_cast<const __CFArray &>(object).count);
}

constexpr kiv::cf::Type kArrayType{kiv::cf::kTypeArray, finalizeArray, equalArrays, hashArray, true};

// Makes an empty immutable array with room for `count` values.
__CFArray *createFixed(size_t count, const CFArrayCallBacks &callBacks) noexcept
{
    if (count > static_cast<size_t>(PTRDIFF_MAX) / sizeof(void *))
        return nullptr;
    auto *array = kiv::cf::create<__CFArray>(count * sizeof(void *), callBacks);
    if (array == nullptr)
        return nullptr;
    array->values = reinterpret_cast<const void **>(array + 1);
    array->capacity = static_cast<CFIndex>(count);
    return array;
}

void append(__CFArray &array, const void *value) noexcept
{
    array.values[array.count++] =
        array.callBacks.retain != nullptr ? array.callBacks.retain(nullptr, value) : value;
}
} // namespace

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, retainObject, releaseObject, nullptr, CFEqual};

__CFArray::__CFArray(const CFArrayCallBacks &forValues) noexcept : Object{kArrayType}, callBacks{forValues} {}

kiv::cf::ArrayBuilder::ArrayBuilder(size_t count) noexcept
    : m_array{createFixed(count, kCFTypeArrayCallBacks)}
{
}

kiv::cf::ArrayBuilder::~ArrayBuilder()
{
    releaseIfAny(m_array);
}

void kiv::cf::ArrayBuilder::append(CFTypeRef object) noexcept
{
    if (m_array != nullptr && object != nullptr)
    {
        m_array->values[m_array->count++] = object;
        return;
    }
    releaseIfAny(object);
    releaseIfAny(std::exchange(m_array, nullptr));
}

CFArrayRef kiv::cf::ArrayBuilder::finish() noexcept
{
    return std::exchange(m_array, nullptr);
}

CFTypeID CFArrayGetTypeID(void)
{
    return kiv::cf::kTypeArray;
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void **values, CFIndex numValues,
                         const CFArrayCallBacks *callBacks)
{
    if (numValues < 0 || (values == nullptr && numValues > 0))
        return nullptr;
    __CFArray *array =
        createFixed(static_cast<size_t>(numValues), callBacks != nullptr ? *callBacks : CFArrayCallBacks{});
    if (array == nullptr)
        return nullptr;
    for (CFIndex index = 0; index < numValues; ++index)
        append(*array, values[index]);
    return array;
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks *callBacks)
{
    auto *array = kiv::cf::create<__CFArray>(0, callBacks != nullptr ? *callBacks : CFArrayCallBacks{});
    if (array != nullptr)
        array->isMutable = true;
    return array;
}

CFIndex CFArrayGetCount(CFArrayRef theArray)
{
    return theArray->count;
}

const void *CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx)
{
    return idx >= 0 && idx < theArray->count ? theArray->values[idx] : nullptr;
}

void CFArrayAppendValue(CFMutableArrayRef theArray, const void *value)
{
    if (!theArray->isMutable)
        return;
    if (theArray->count == theArray->capacity)
    {
        const CFIndex capacity = theArray->capacity == 0 ? 8 : theArray->capacity * 2;
        void *values = std::realloc(theArray->values, static_cast<size_t>(capacity) * sizeof(void *));
        if (values == nullptr)
            return;
        theArray->values = static_cast<const void **>(values);
        theArray->capacity = capacity;
    }
    append(*theArray, value);
}
