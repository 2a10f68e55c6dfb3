// Dates: an absolute time in an object.
#include <CoreFoundation/CFDate.h>

#include "CoreFoundation/Object.h"

#include <bit>
#include <ctime>

struct __CFDate : kiv::cf::Object
{
    explicit __CFDate(CFAbsoluteTime at) noexcept;

    CFAbsoluteTime time;
};

namespace
{
bool equalDates(const kiv::cf::Object &left, const kiv::cf::Object &right)
{
    return static_cast<const __CFDate &>(left).time == static_cast<const __CFDate &>(right).time;
}

CFHashCode hashDate(const kiv::cf::Object &object)
{
    // 0.0 and -0.0 are equal; adding zero gives both the same bits.
    return std::bit_cast<CFHashCode>(static_cast<const __CFDate &>(object).time + 0.0);
}

constexpr kiv::cf::Type kDateType{kiv::cf::kTypeDate, nullptr, equalDates, hashDate};
constexpr int64_t kSecondsTo2001 = 978307200;
} // namespace

const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = static_cast<double>(kSecondsTo2001);

__CFDate::__CFDate(CFAbsoluteTime at) noexcept : Object{kDateType}, time{at} {}

CFTypeID CFDateGetTypeID(void)
{
    return kiv::cf::kTypeDate;
}

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec - kSecondsTo2001) + static_cast<double>(now.tv_nsec) / 1e9;
}

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime at)
{
    return kiv::cf::create<__CFDate>(0, at);
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate)
{
    return theDate->time;
}
