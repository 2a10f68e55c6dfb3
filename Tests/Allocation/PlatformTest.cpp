// Every allocation of the platform's calls fails in turn: the result is null or nothing has changed, and
// LeakSanitizer finds no leak.
#include "CFText.h"
#include "CoreFoundation/Bundle.h"
#include "FailingAllocator.h"

#include <CoreVideo/CoreVideo.h>
#include <Foundation/NSDate.h>
#include <KIVLogger/KIVLogger.h>
#include <KIVPlatform/KIVPlatform.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <glib.h>
#include <grp.h>
#include <pthread.h>
#include <semaphore.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using kiv::CFRef;
using namespace kiv::test;

namespace
{
struct Creation
{
    const char *name;
    size_t atLeast; // of its own allocations
    std::function<CFTypeRef()> create;
};

void count(void *context, os_log_type_t, const char *message)
{
    *static_cast<size_t *>(context) = std::char_traits<char>::length(message);
}
} // namespace

TEST(Allocation, WhatCannotBeMadeIsNull)
{
    const StringRef ascii = fromBytes("a:b:c");
    const StringRef wide = fromUnits(u"\u00e9:\u20ac");
    const StringRef colon = fromBytes(":");
    const CFRef<CFMutableStringRef> changeable{CFStringCreateMutableCopy(nullptr, 0, wide.get())};
    const CFRef<CFCharacterSetRef> set{CFCharacterSetCreateWithCharactersInString(nullptr, wide.get())};
    const CFRef<CFUUIDRef> uuid{CFUUIDCreate(nullptr)};
    const CFRef<CFLocaleRef> locale{CFLocaleCreate(nullptr, ascii.get())};
    const void *values[] = {ascii.get(), wide.get()};
    const auto url = []
    {
        return CFURLCreateFromFileSystemRepresentation(nullptr, reinterpret_cast<const UInt8 *>("/a/b"), 4,
                                                       false);
    };
    const CFRef<CFURLRef> madeURL{url()};
    const int32_t value = 7;
    const CFRef<CFDateRef> date{CFDateCreate(nullptr, 1.0)};
    const StringRef longFormat = fromBytes(std::string(100, 'x').c_str());
    std::array<uint8_t, 16> pixels{};
    const auto hostPixels = [&pixels]
    {
        CVPixelBufferRef made = nullptr;
        (void)CVPixelBufferCreateWithBytes(nullptr, 2, 2, kCVPixelFormatType_32BGRA, pixels.data(), 8,
                                           nullptr, nullptr, nullptr, &made);
        return made;
    };

    const Creation creations[] = {
        {"string of ASCII", 1, [] { return fromBytes("ascii").release(); }},
        {"string of UTF-8", 1, [] { return fromBytes("\xc3\xa9").release(); }},
        {"string of units", 1, [] { return fromUnits(u"\u20ac").release(); }},
        {"mutable copy", 1, [&] { return CFStringCreateMutableCopy(nullptr, 0, wide.get()); }},
        {"frozen copy", 1, [&] { return CFStringCreateCopy(nullptr, changeable.get()); }},
        {"pieces", 4,
         [&] { return CFStringCreateArrayBySeparatingStrings(nullptr, ascii.get(), colon.get()); }},
        {"array", 1, [&] { return CFArrayCreate(nullptr, values, 2, &kCFTypeArrayCallBacks); }},
        {"growing array", 1, [] { return CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks); }},
        {"number", 1, [&] { return CFNumberCreate(nullptr, kCFNumberSInt32Type, &value); }},
        {"date", 1, [] { return CFDateCreate(nullptr, 1.0); }},
        {"locale", 1, [&] { return CFLocaleCreate(nullptr, ascii.get()); }},
        {"current locale", 2, [] { return CFLocaleCopyCurrent(); }},
        {"character set", 1, [&] { return CFCharacterSetCreateWithCharactersInString(nullptr, wide.get()); }},
        {"inverted set", 1, [&] { return CFCharacterSetCreateInvertedSet(nullptr, set.get()); }},
        {"location", 2, url},
        {"last component", 1, [&] { return CFURLCopyLastPathComponent(madeURL.get()); }},
        {"identifier", 1, [] { return CFUUIDCreate(nullptr); }},
        {"text of an identifier", 1, [&] { return CFUUIDCreateString(nullptr, uuid.get()); }},
        {"formatter", 1, [&] { return CFDateFormatterCreate(nullptr, locale.get(), 0, 0); }},
        {"long description", 2,
         [&]
         { return NSDate_descriptionWithCalendarFormat(date.get(), longFormat.get(), nullptr, nullptr); }},
        {"pixels of the host", 1, hostPixels},
        {"bundle", 1, [] { return kiv::cf::createBundle("/dev/host"); }},
    };
    for (const Creation &creation : creations)
    {
        const size_t allocations = forEachAllocation(
            [&](size_t index)
            {
                const CFRef<CFTypeRef> object{creation.create()};
                EXPECT_EQ(object.get() == nullptr, allocationFailed()) << creation.name << ' ' << index;
            });
        EXPECT_GE(allocations, creation.atLeast) << creation.name;
    }
    EXPECT_EQ(CFGetRetainCount(ascii.get()), 2) << "the locale's alone: nothing kept one on its way out";
    EXPECT_EQ(CFGetRetainCount(locale.get()), 1);
}

TEST(Allocation, WhatCannotChangeStaysAsItWas)
{
    const StringRef decomposed = fromUnits(u"e\u0301");
    forEachAllocation(
        [&](size_t)
        {
            const CFRef<CFMutableStringRef> string{CFStringCreateMutableCopy(nullptr, 0, decomposed.get())};
            if (!string)
                return;
            CFStringNormalize(string.get(), kCFStringNormalizationFormC);
            EXPECT_EQ(unitsOf(string.get()), allocationFailed() ? u"e\u0301" : u"\u00e9");
        });
    forEachAllocation(
        [&](size_t)
        {
            const CFRef<CFMutableArrayRef> array{CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks)};
            if (!array)
                return;
            for (int index = 0; index < 9; ++index)
                CFArrayAppendValue(array.get(), decomposed.get());
            EXPECT_EQ(CFArrayGetCount(array.get()) == 9, !allocationFailed());
        });
    EXPECT_EQ(CFGetRetainCount(decomposed.get()), 1);
}

TEST(Allocation, AResourceOrATextThatCannotBeMadeIsNull)
{
    const CFRef<CFBundleRef> bundle{kiv::cf::createBundle("/proc/self/host")};
    const StringRef name = fromBytes("a-resource-name-longer-than-any-small-string");
    const StringRef y =
        fromUnits((u"y" + std::u16string(150, u'\u5e74')).c_str()); // more than fits its buffer
    forEachAllocation(
        [&](size_t)
        {
            const CFRef<CFURLRef> url{
                CFBundleCopyResourceURL(bundle.get(), name.get(), name.get(), name.get())};
            EXPECT_FALSE(url); // and no exception
        });
    forEachAllocation(
        [&](size_t)
        {
            const CFRef<CFDateFormatterRef> formatter{CFDateFormatterCreate(nullptr, nullptr, 0, 0)};
            if (!formatter)
                return;
            CFDateFormatterSetFormat(formatter.get(), y.get());
            const StringRef text{CFDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter.get(), 1e6)};
            EXPECT_EQ(static_cast<bool>(text), !allocationFailed());
        });
}

// A thread's own loop, and that of the host's context.
TEST(Allocation, AThreadWithoutMemoryHasNoRunLoop)
{
    const auto current = [](void *context) -> void *
    {
        if (context != nullptr)
            g_main_context_push_thread_default(static_cast<GMainContext *>(context));
        return CFRunLoopGetCurrent();
    };
    for (const bool isHosts : {false, true})
    {
        const size_t count = forEachAllocation(
            [&](size_t)
            {
                GMainContext *context = isHosts ? g_main_context_new() : nullptr;
                pthread_t thread{};
                void *loop = nullptr;
                ASSERT_EQ(pthread_create(&thread, nullptr, current, context), 0);
                ASSERT_EQ(pthread_join(thread, &loop), 0);
                EXPECT_EQ(loop == nullptr, allocationFailed());
                if (context != nullptr)
                    g_main_context_unref(context);
            });
        EXPECT_GE(count, 1u);
    }
}

TEST(Allocation, ALongMessageIsCutWhereThereIsNoMemory)
{
    size_t length = 0;
    KLSetSink(count, &length);
    const std::string text(5000, 'x');
    forEachAllocation(
        [&](size_t)
        {
            os_log_with_type(KLGetHandle(), OS_LOG_TYPE_DEFAULT, "%s", text.c_str());
            EXPECT_EQ(length, allocationFailed() ? 511u : 5000u);
        });
    KLSetSink(nullptr, nullptr);
}

// A semaphore of another user, whose group may write.
TEST(Allocation, AGroupThatCannotBeAskedForIsNotTrusted)
{
    constexpr gid_t kGroup = 4321;
    const std::string name = "/kivTest" + std::to_string(getpid()) + "-group";
    const std::string path = "/dev/shm/sem." + name.substr(1);
    if (setgroups(1, &kGroup) != 0)
        GTEST_SKIP() << "only root has a group of its choice";
    sem_t *const made = sem_open(name.c_str(), O_CREAT | O_EXCL, 0660, 0);
    ASSERT_NE(made, SEM_FAILED);
    ASSERT_EQ(chown(path.c_str(), 65534, kGroup) + chmod(path.c_str(), 0660), 0);
    const auto open = [&name](size_t)
    {
        sem_t *const semaphore = KIVPSemaphoreOpen(name.c_str(), 0600);
        EXPECT_EQ(semaphore == SEM_FAILED, allocationFailed());
        EXPECT_EQ(semaphore == SEM_FAILED ? errno : sem_close(semaphore), allocationFailed() ? EPERM : 0);
    };
    EXPECT_EQ(forEachAllocation(open), 1u);
    EXPECT_EQ(sem_close(made) + sem_unlink(name.c_str()) + setgroups(0, nullptr), 0);
}
