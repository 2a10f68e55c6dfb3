// Locales: only their names; ICU interprets them.
#include <CoreFoundation/CFLocale.h>

#include "CoreFoundation/String.h"

struct __CFLocale : kiv::cf::StringValue
{
    explicit __CFLocale(CFStringRef name) noexcept; // takes over the reference
};

namespace
{
constexpr kiv::cf::Type kLocaleType = kiv::cf::stringValueType(kiv::cf::kTypeLocale);

// "de_DE.UTF-8@euro" gives "de_DE"; the C locale and a missing one give en_US_POSIX.
std::string_view environmentLocale() noexcept
{
    for (const char *variable : {"LC_ALL", "LC_TIME", "LANG"})
    {
        const char *value = std::getenv(variable);
        if (value == nullptr || *value == '\0')
            continue;
        const std::string_view whole{value};
        const std::string_view name = whole.substr(0, whole.find_first_of(".@"));
        return name.empty() || name == "C" || name == "POSIX" ? "en_US_POSIX" : name;
    }
    return "en_US_POSIX";
}
} // namespace

__CFLocale::__CFLocale(CFStringRef name) noexcept : StringValue{kLocaleType, name} {}

CFTypeID CFLocaleGetTypeID(void)
{
    return kiv::cf::kTypeLocale;
}

CFLocaleRef CFLocaleCreate(CFAllocatorRef allocator, CFLocaleIdentifier localeIdentifier)
{
    if (localeIdentifier == nullptr)
        return nullptr;
    return kiv::cf::createAround<__CFLocale>(CFStringCreateCopy(allocator, localeIdentifier));
}

CFLocaleRef CFLocaleCopyCurrent(void)
{
    return kiv::cf::createAround<__CFLocale>(kiv::cf::createString(environmentLocale()));
}

CFLocaleIdentifier CFLocaleGetIdentifier(CFLocaleRef locale)
{
    return locale->value;
}
