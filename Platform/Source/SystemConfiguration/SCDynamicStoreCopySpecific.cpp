// The machine's name, from machine-info(5) and the kernel.
#include <SystemConfiguration/SCDynamicStoreCopySpecific.h>

#include <CoreFoundation/CFArray.h>

#include "System/SystemFile.h"
#include "System/SystemText.h"

#include <climits>
#include <mutex>
#include <string_view>
#include <unistd.h>

using kiv::system::SystemFile;

namespace
{
CFStringRef createName(std::string_view bytes) noexcept
{
    while (!bytes.empty() && bytes.back() == '\n')
        bytes.remove_suffix(1);
    if (bytes.empty())
        return nullptr;
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(bytes.data()),
                                   static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, false);
}

CFStringRef createPrettyName() noexcept
{
    char room[1024];
    const SystemFile info{"/etc/machine-info"};
    const auto value = kiv::system::findAssignment(info.text(), "PRETTY_HOSTNAME", room);
    return value ? createName(*value) : nullptr;
}

CFStringRef createHostName() noexcept
{
    const SystemFile kernels{"/proc/sys/kernel/hostname"};
    if (!kernels.text().empty())
        return createName(kernels.text());
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, sizeof name - 1) == 0 ? createName(name) : nullptr;
}

// The kept object with the text of `name`, which may be `name` itself; null if it cannot be kept.
CFStringRef copyKept(CFStringRef name) noexcept
{
    static std::mutex mutex;
    static CFMutableArrayRef names =
        nullptr; // for the life of the process; few, because machines are seldom renamed
    const std::lock_guard lock{mutex};
    if (names == nullptr)
        names = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
    CFStringRef kept = nullptr;
    const CFIndex count = names == nullptr ? 0 : CFArrayGetCount(names);
    for (CFIndex index = 0; index < count && kept == nullptr; ++index)
    {
        const auto known = static_cast<CFStringRef>(CFArrayGetValueAtIndex(names, index));
        if (CFStringCompare(known, name, 0) == kCFCompareEqualTo)
            kept = known;
    }
    if (kept == nullptr && names != nullptr)
    {
        CFArrayAppendValue(names, name);
        if (CFArrayGetCount(names) > count)
            kept = name;
    }
    if (kept != nullptr)
        CFRetain(kept);
    return kept;
}
} // namespace

CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef, CFStringEncoding *nameEncoding)
{
    CFStringRef name = createPrettyName();
    if (name == nullptr)
        name = createHostName();
    if (name == nullptr)
        return nullptr;
    if (nameEncoding != nullptr)
        *nameEncoding = kCFStringEncodingUTF8;
    CFStringRef kept = copyKept(name);
    CFRelease(name);
    return kept;
}
