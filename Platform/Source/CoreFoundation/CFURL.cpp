// Locations of files: a path without slashes at its end.
#include <CoreFoundation/CFURL.h>

#include "CoreFoundation/String.h"

struct __CFURL : kiv::cf::StringValue
{
    explicit __CFURL(CFStringRef ofPath) noexcept; // takes over the reference
};

namespace
{
constexpr kiv::cf::Type kURLType = kiv::cf::stringValueType(kiv::cf::kTypeURL);
} // namespace

__CFURL::__CFURL(CFStringRef ofPath) noexcept : StringValue{kURLType, ofPath} {}

CFTypeID CFURLGetTypeID(void)
{
    return kiv::cf::kTypeURL;
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8 *buffer, CFIndex bufLen, Boolean)
{
    if (buffer == nullptr || bufLen <= 0)
        return nullptr;
    std::string_view path{reinterpret_cast<const char *>(buffer), static_cast<size_t>(bufLen)};
    if (path.find('\0') != std::string_view::npos)
        return nullptr;
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    return kiv::cf::createAround<__CFURL>(kiv::cf::createString(path));
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url)
{
    const kiv::text::Units &path = url->value->units;
    size_t start = path.length;
    while (start > 0 && path[start - 1] != '/')
        --start;
    if (start == path.length) // the root
        start = 0;
    return kiv::cf::createString(path.part(start, path.length - start));
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle)
{
    if (pathStyle != kCFURLPOSIXPathStyle)
        return nullptr;
    return static_cast<CFStringRef>(CFRetain(anURL->value));
}
