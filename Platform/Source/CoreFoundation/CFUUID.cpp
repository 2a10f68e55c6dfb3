// Identifiers of RFC 4122, version 4.
#include <CoreFoundation/CFUUID.h>

#include "CoreFoundation/String.h"

#include <algorithm>
#include <array>
#include <sys/random.h>

struct __CFUUID : kiv::cf::Object
{
    explicit __CFUUID(const std::array<uint8_t, 16> &value) noexcept;

    std::array<uint8_t, 16> bytes;
};

namespace
{
bool equalUUIDs(const kiv::cf::Object &left, const kiv::cf::Object &right)
{
    return static_cast<const __CFUUID &>(left).bytes == static_cast<const __CFUUID &>(right).bytes;
}

CFHashCode hashUUID(const kiv::cf::Object &object)
{
    return kiv::cf::hashValues(static_cast<const __CFUUID &>(object).bytes);
}

constexpr kiv::cf::Type kUUIDType{kiv::cf::kTypeUUID, nullptr, equalUUIDs, hashUUID};
} // namespace

__CFUUID::__CFUUID(const std::array<uint8_t, 16> &value) noexcept : Object{kUUIDType}, bytes{value} {}

CFTypeID CFUUIDGetTypeID(void)
{
    return kiv::cf::kTypeUUID;
}

CFUUIDRef CFUUIDCreate(CFAllocatorRef)
{
    std::array<uint8_t, 16> bytes;
    // Complete or not at all. getrandom() may be interrupted until the system's pool is ready.
    if (getentropy(bytes.data(), bytes.size()) != 0)
        return nullptr;
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0f) | 0x40); // version 4
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3f) | 0x80); // the variant of the RFC
    return kiv::cf::create<__CFUUID>(0, bytes);
}

CFStringRef CFUUIDCreateString(CFAllocatorRef, CFUUIDRef uuid)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::array<char, 36> text;
    size_t at = 0;
    for (size_t index = 0; index < uuid->bytes.size(); ++index)
    {
        if (index == 4 || index == 6 || index == 8 || index == 10)
            text[at++] = '-';
        text[at++] = kDigits[uuid->bytes[index] >> 4];
        text[at++] = kDigits[uuid->bytes[index] & 0x0f];
    }
    return kiv::cf::createString(std::string_view{text.data(), text.size()});
}
