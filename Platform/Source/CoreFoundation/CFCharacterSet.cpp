// Character sets: a bit for each of the first 128 characters, a sorted list for the rest.
#include <CoreFoundation/CFCharacterSet.h>

#include "CoreFoundation/CharacterSet.h"
#include "CoreFoundation/String.h"

#include <algorithm>

struct __CFCharacterSet : kiv::cf::Object
{
    explicit __CFCharacterSet(bool everythingElse) noexcept;

    bool inverted;
    uint64_t ascii[2] = {0, 0};
    size_t count = 0; // number of the code points after this head, ascending, each once

    [[nodiscard]] std::span<const char32_t> others() const noexcept
    {
        return {reinterpret_cast<const char32_t *>(this + 1), count};
    }
};

namespace
{
bool equalSets(const kiv::cf::Object &leftObject, const kiv::cf::Object &rightObject)
{
    const auto &left = static_cast<const __CFCharacterSet &>(leftObject);
    const auto &right = static_cast<const __CFCharacterSet &>(rightObject);
    return left.inverted == right.inverted && std::ranges::equal(left.ascii, right.ascii) &&
           std::ranges::equal(left.others(), right.others());
}

CFHashCode hashSet(const kiv::cf::Object &object)
{
    const auto &set = static_cast<const __CFCharacterSet &>(object);
    return kiv::cf::hashValues(set.ascii) ^ kiv::cf::hashValues(set.others()) ^
           static_cast<CFHashCode>(set.inverted);
}

constexpr kiv::cf::Type kSetType{kiv::cf::kTypeCharacterSet, nullptr, equalSets, hashSet};

__CFCharacterSet *createSet(size_t room, bool inverted) noexcept
{
    return kiv::cf::create<__CFCharacterSet>(room * sizeof(char32_t), inverted);
}
} // namespace

__CFCharacterSet::__CFCharacterSet(bool everythingElse) noexcept : Object{kSetType}, inverted{everythingElse}
{
}

bool kiv::cf::contains(CFCharacterSetRef set, char32_t code) noexcept
{
    const bool listed = code < 0x80 ? (set->ascii[code / 64] >> (code % 64) & 1) != 0
                                    : std::ranges::binary_search(set->others(), code);
    return listed != set->inverted;
}

CFTypeID CFCharacterSetGetTypeID(void)
{
    return kiv::cf::kTypeCharacterSet;
}

CFCharacterSetRef CFCharacterSetCreateWithCharactersInString(CFAllocatorRef, CFStringRef theString)
{
    const kiv::text::Units &units = theString->units;
    __CFCharacterSet *set = createSet(units.narrow != nullptr ? 0 : units.length, false);
    if (set == nullptr)
        return nullptr;
    auto *others = reinterpret_cast<char32_t *>(set + 1);
    auto *end = others;
    for (size_t index = 0; index < units.length;)
    {
        const kiv::text::Character character = kiv::text::characterAt(units, index);
        if (character.code < 0x80)
            set->ascii[character.code / 64] |= uint64_t{1} << (character.code % 64);
        else
            *end++ = character.code;
        index += character.units;
    }
    std::sort(others, end);
    set->count = static_cast<size_t>(std::unique(others, end) - others);
    return set;
}

CFCharacterSetRef CFCharacterSetCreateInvertedSet(CFAllocatorRef, CFCharacterSetRef theSet)
{
    __CFCharacterSet *set = createSet(theSet->count, !theSet->inverted);
    if (set == nullptr)
        return nullptr;
    std::ranges::copy(theSet->ascii, set->ascii);
    std::ranges::copy(theSet->others(), reinterpret_cast<char32_t *>(set + 1));
    set->count = theSet->count;
    return set;
}

Boolean CFCharacterSetIsCharacterMember(CFCharacterSetRef theSet, UniChar theChar)
{
    return kiv::cf::contains(theSet, theChar);
}
