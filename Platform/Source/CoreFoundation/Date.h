// Dates inside: the way to ICU's time.
#ifndef KIV_PLATFORM_DATE_H
#define KIV_PLATFORM_DATE_H

#include <CoreFoundation/CFDate.h>

#include <cmath>

namespace kiv::cf
{
// ICU counts milliseconds from 1970. The half keeps an exact millisecond, which as a sum of doubles
// often lies a little low, from printing one less.
[[nodiscard]] inline double icuTime(CFAbsoluteTime at) noexcept
{
    return std::floor((at + kCFAbsoluteTimeIntervalSince1970) * 1000.0 + 0.5);
}
} // namespace kiv::cf

#endif
