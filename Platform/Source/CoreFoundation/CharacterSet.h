// Internals of character sets, for string searches.
#ifndef KIV_PLATFORM_CHARACTER_SET_H
#define KIV_PLATFORM_CHARACTER_SET_H

#include <CoreFoundation/CFCharacterSet.h>

namespace kiv::cf
{
// Membership of a code point; a lone surrogate is a code point of its own.
[[nodiscard]] bool contains(CFCharacterSetRef set, char32_t code) noexcept;
} // namespace kiv::cf

#endif
