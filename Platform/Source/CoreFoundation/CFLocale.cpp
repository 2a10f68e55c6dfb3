// Locales: their name. What a locale means is ICU's business.
#include <CoreFoundation/CFLocale.h>

#include "CoreFoundation/String.h"

struct __CFLocale : kiv::cf::Object
{
    explicit __CFLocale(CFStringRef name) noexcept; // takes the reference over

    CFStringRef identifier;
};

namespace
{
void finalizeLocale(kiv::cf::Object &object)
{
    CFRelease(static_cast<__CFLocale &>(object).identifier);
}

bool equalLocales(const kiv::cf::Object &left, const kiv::cf::Object &right)
{
    return CFEqual(static_cast<const __CFLocale &>(left).identifier,
                   static_cast<const __CFLocale &>(right).identifier) != 0;
}

CFHashCode hashLocale(const kiv::cf::Object &object)
{
    return CFHash(static_cast<const __CFLocale &>(object).identifier);
}

constexpr kiv::cf::Type kLocaleType{kiv::cf::kTypeLocale, finalizeLocale, equalLocales, hashLocale};

CFLocaleRef createLocale(CFStringRef identifier) noexcept
{
    if (identifier == nullptr)
        return nullptr;
    CFLocaleRef locale = kiv::cf::create<__CFLocale>(0, identifier);
    if (locale == nullptr)
        CFRelease(identifier);
    return locale;
}

// "de_DE.UTF-8@euro" is "de_DE" here; the C locale and none at all are en_US_POSIX.
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

__CFLocale::__CFLocale(CFStringRef name) noexcept : Object{kLocaleType}, identifier{name} {}

CFTypeID CFLocaleGetTypeID(void)
{
    return kiv::cf::kTypeLocale;
}

CFLocaleRef CFLocaleCreate(CFAllocatorRef allocator, CFLocaleIdentifier localeIdentifier)
{
    return localeIdentifier != nullptr ? createLocale(CFStringCreateCopy(allocator, localeIdentifier))
                                       : nullptr;
}

CFLocaleRef CFLocaleCopyCurrent(void)
{
    return createLocale(kiv::cf::createString(environmentLocale()));
}

CFLocaleIdentifier CFLocaleGetIdentifier(CFLocaleRef locale)
{
    return locale->identifier;
}
