// Locations of files: a path without slashes at its end.
#include <CoreFoundation/CFURL.h>

#include "CoreFoundation/String.h"

struct __CFURL : kiv::cf::Object
{
    explicit __CFURL(CFStringRef ofPath) noexcept; // takes the reference over

    CFStringRef path;
};

namespace
{
void finalizeURL(kiv::cf::Object &object)
{
    CFRelease(static_cast<__CFURL &>(object).path);
}

bool equalURLs(const kiv::cf::Object &left, const kiv::cf::Object &right)
{
    return CFEqual(static_cast<const __CFURL &>(left).path, static_cast<const __CFURL &>(right).path) != 0;
}

CFHashCode hashURL(const kiv::cf::Object &object)
{
    return CFHash(static_cast<const __CFURL &>(object).path);
}

constexpr kiv::cf::Type kURLType{kiv::cf::kTypeURL, finalizeURL, equalURLs, hashURL};
} // namespace

__CFURL::__CFURL(CFStringRef ofPath) noexcept : Object{kURLType}, path{ofPath} {}

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
    CFStringRef string = kiv::cf::createString(path);
    if (string == nullptr)
        return nullptr;
    CFURLRef url = kiv::cf::create<__CFURL>(0, string);
    if (url == nullptr)
        CFRelease(string);
    return url;
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url)
{
    const kiv::text::Units &path = url->path->units;
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
    return static_cast<CFStringRef>(CFRetain(anURL->path));
}
