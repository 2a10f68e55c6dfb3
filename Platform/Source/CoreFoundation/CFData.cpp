// Immutable blocks of bytes, stored after their head.
#include <CoreFoundation/CFData.h>

#include "CoreFoundation/Object.h"

#include <algorithm>
#include <cstring>
#include <span>

struct __CFData : kiv::cf::Object
{
    explicit __CFData(CFIndex size) noexcept;

    [[nodiscard]] UInt8 *bytes() noexcept
    {
        return reinterpret_cast<UInt8 *>(this + 1);
    }
    [[nodiscard]] std::span<const UInt8> content() const noexcept
    {
        return {reinterpret_cast<const UInt8 *>(this + 1), static_cast<size_t>(length)};
    }

    CFIndex length;
};

namespace
{
bool equalData(const kiv::cf::Object &left, const kiv::cf::Object &right)
{
    return std::ranges::equal(static_cast<const __CFData &>(left).content(),
                              static_cast<const __CFData &>(right).content());
}

CFHashCode hashData(const kiv::cf::Object &object)
{
    return kiv::cf::hashValues(static_cast<const __CFData &>(object).content());
}

constexpr kiv::cf::Type kDataType{kiv::cf::kTypeData, nullptr, equalData, hashData};
} // namespace

__CFData::__CFData(CFIndex size) noexcept : Object{kDataType}, length{size} {}

CFTypeID CFDataGetTypeID(void)
{
    return kiv::cf::kTypeData;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8 *bytes, CFIndex length)
{
    if (length < 0)
        return nullptr;
    auto *data = kiv::cf::create<__CFData>(static_cast<size_t>(length), length);
    if (data != nullptr && length > 0)
        std::memcpy(data->bytes(), bytes, static_cast<size_t>(length));
    return data;
}

CFIndex CFDataGetLength(CFDataRef theData)
{
    return theData->length;
}

const UInt8 *CFDataGetBytePtr(CFDataRef theData)
{
    return theData->content().data();
}

void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8 *buffer)
{
    const CFIndex start = std::clamp<CFIndex>(range.location, 0, theData->length);
    const CFIndex size = std::clamp<CFIndex>(range.length, 0, theData->length - start);
    std::copy_n(theData->content().data() + start, size, buffer);
}
