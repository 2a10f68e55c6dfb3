// The main bundle: the resources are next to the executable (a build tree, a relocated folder) or in
// share/<name> next to its bin folder (an installation).
#include <CoreFoundation/CFBundle.h>

#include "CoreFoundation/Bundle.h"
#include "CoreFoundation/String.h"

#include <climits>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <unistd.h>

struct __CFBundle : kiv::cf::Object
{
    explicit __CFBundle(size_t ofDirectory) noexcept;

    size_t directoryLength; // bytes of the zero-terminated path that follows this head

    [[nodiscard]] std::string_view directory() const noexcept
    {
        return {reinterpret_cast<const char *>(this + 1), directoryLength};
    }
    [[nodiscard]] std::string_view name() const noexcept
    {
        return reinterpret_cast<const char *>(this + 1) + directoryLength + 1;
    }
};

namespace
{
constexpr kiv::cf::Type kBundleType{kiv::cf::kTypeBundle, nullptr, nullptr, nullptr};

CFBundleRef openMainBundle() noexcept
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return nullptr;
    path[length] = '\0';
    return kiv::cf::createBundle(path);
}

std::string utf8(CFStringRef string)
{
    const CFRange all = CFRangeMake(0, CFStringGetLength(string));
    CFIndex size = 0;
    if (CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size) != all.length)
        return {};
    std::string bytes(static_cast<size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, reinterpret_cast<UInt8 *>(bytes.data()),
                     size, nullptr);
    return bytes;
}

CFURLRef copyResource(const __CFBundle &bundle, CFStringRef name, CFStringRef type, CFStringRef folder)
{
    std::string resource = utf8(name);
    if (resource.empty())
        return nullptr;
    if (type != nullptr && CFStringGetLength(type) > 0)
        resource.append(".").append(utf8(type));
    if (folder != nullptr && CFStringGetLength(folder) > 0)
        resource.insert(0, utf8(folder).append("/"));

    const std::string beside = std::string{bundle.directory()}.append("/Resources/");
    const std::string shared =
        std::string{bundle.directory()}.append("/../share/").append(bundle.name()).append("/");
    for (const std::string &place : {beside, shared})
    {
        const std::string path = place + resource;
        if (access(path.c_str(), F_OK) == 0)
            return CFURLCreateFromFileSystemRepresentation(nullptr,
                                                           reinterpret_cast<const UInt8 *>(path.data()),
                                                           static_cast<CFIndex>(path.size()), false);
    }
    return nullptr;
}
} // namespace

__CFBundle::__CFBundle(size_t ofDirectory) noexcept : Object{kBundleType}, directoryLength{ofDirectory} {}

CFBundleRef kiv::cf::createBundle(const char *executable) noexcept
{
    const char *slash = std::strrchr(executable, '/');
    if (slash == nullptr)
        return nullptr;
    const size_t size = std::strlen(executable) + 1;
    auto *bundle = create<__CFBundle>(size, static_cast<size_t>(slash - executable));
    if (bundle != nullptr)
        std::memcpy(reinterpret_cast<char *>(bundle + 1), executable, size);
    return bundle;
}

CFTypeID CFBundleGetTypeID(void)
{
    return kiv::cf::kTypeBundle;
}

CFBundleRef CFBundleGetMainBundle(void)
{
    static std::mutex mutex;
    static CFBundleRef bundle = nullptr; // once made, kept for the life of the process
    const std::lock_guard lock{mutex};
    if (bundle == nullptr)
        bundle = openMainBundle();
    return bundle;
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName, CFStringRef resourceType,
                                 CFStringRef subDirName)
{
    try
    {
        return copyResource(*bundle, resourceName, resourceType, subDirName);
    }
    catch (const std::bad_alloc &)
    {
        return nullptr;
    }
}
