// Objects: ownership, equality, arrays, numbers, locations, bundles, identifiers.
#include "CFText.h"
#include "CoreFoundation/Bundle.h"
#include "TemporaryFolder.h"

#include <CFNetwork/CFNetServices.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

using kiv::CFRef;
using namespace kiv::test;

namespace
{
template <class T>
CFRef<CFNumberRef> number(CFNumberType type, T value)
{
    return CFRef<CFNumberRef>{CFNumberCreate(nullptr, type, &value)};
}

std::string lastComponent(std::string_view path)
{
    const CFRef<CFURLRef> url{CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8 *>(path.data()), static_cast<CFIndex>(path.size()), false)};
    return url ? utf8(StringRef{CFURLCopyLastPathComponent(url.get())}.get()) : "(none)";
}

std::string resource(CFBundleRef bundle, const char *name, const char *type, const char *folder)
{
    const StringRef typeText = type != nullptr ? fromBytes(type) : StringRef{};
    const StringRef folderText = folder != nullptr ? fromBytes(folder) : StringRef{};
    const CFRef<CFURLRef> url{
        CFBundleCopyResourceURL(bundle, fromBytes(name).get(), typeText.get(), folderText.get())};
    return url ? utf8(StringRef{CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle)}.get()) : "(none)";
}
} // namespace

TEST(Objects, CountsAndKinds)
{
    const StringRef string = fromBytes("a");
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
    EXPECT_EQ(CFRetain(string.get()), string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 2);
    CFRelease(string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);

    const CFRef<CFDateRef> date{CFDateCreate(nullptr, 0.0)};
    const CFRef<CFDateRef> negativeZero{CFDateCreate(nullptr, -0.0)};
    EXPECT_EQ(CFGetTypeID(string.get()), CFStringGetTypeID());
    EXPECT_EQ(CFGetTypeID(date.get()), CFDateGetTypeID());
    EXPECT_FALSE(CFEqual(string.get(), date.get()));
    EXPECT_TRUE(CFEqual(date.get(), negativeZero.get()));
    EXPECT_EQ(CFHash(date.get()), CFHash(negativeZero.get()));

    const CFTypeID kinds[] = {
        CFStringGetTypeID(),       CFArrayGetTypeID(),  CFNumberGetTypeID(),   CFDateGetTypeID(),
        CFLocaleGetTypeID(),       CFURLGetTypeID(),    CFCalendarGetTypeID(), CFDateFormatterGetTypeID(),
        CFCharacterSetGetTypeID(), CFBundleGetTypeID(), CFUUIDGetTypeID(),     CFBooleanGetTypeID(),
        CFDictionaryGetTypeID(),
    };
    std::set<CFTypeID> all{std::begin(kinds), std::end(kinds)};
    all.insert({CFDataGetTypeID(), CFRunLoopTimerGetTypeID(), CFNetServiceGetTypeID()});
    all.insert({CFNetServiceBrowserGetTypeID(), CFNetServiceMonitorGetTypeID()});
    EXPECT_EQ(all.size(), std::size(kinds) + 5);
}

TEST(Objects, EqualOnesHashAlike)
{
    const auto url = [](const char *path)
    {
        return CFRef<CFTypeRef>{CFURLCreateFromFileSystemRepresentation(
            nullptr, reinterpret_cast<const UInt8 *>(path), static_cast<CFIndex>(strlen(path)), false)};
    };
    const auto set = [](const char *text)
    { return CFRef<CFTypeRef>{CFCharacterSetCreateWithCharactersInString(nullptr, fromBytes(text).get())}; };
    const auto locale = [](const char *name)
    { return CFRef<CFTypeRef>{CFLocaleCreate(nullptr, fromBytes(name).get())}; };
    using Row = std::tuple<CFRef<CFTypeRef>, CFRef<CFTypeRef>, CFRef<CFTypeRef>>;
    const Row rows[] = {
        {url("/a/b"), url("/a/b/"), url("/a/c")},
        {set("ab\xe2\x82\xac"),
         set("\xe2\x82\xac"
             "baab"),
         set("ab")},
        {locale("de_DE"), locale("de_DE"), locale("de_AT")},
    };
    for (const auto &[one, same, other] : rows)
    {
        EXPECT_TRUE(CFEqual(one.get(), same.get()));
        EXPECT_EQ(CFHash(one.get()), CFHash(same.get()));
        EXPECT_FALSE(CFEqual(one.get(), other.get()));
    }
    const CFRef<CFUUIDRef> uuid{CFUUIDCreate(nullptr)};
    const CFRef<CFUUIDRef> another{CFUUIDCreate(nullptr)};
    EXPECT_FALSE(CFEqual(uuid.get(), another.get()));
    EXPECT_NE(CFHash(uuid.get()), CFHash(another.get()));
}

TEST(Objects, CountsFromManyThreads)
{
    StringRef string = fromBytes("shared");
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index)
    {
        threads.emplace_back(
            [mine = StringRef{static_cast<CFStringRef>(CFRetain(string.get()))}]
            {
                for (int round = 0; round < 2000; ++round)
                {
                    CFRetain(mine.get());
                    CFRelease(mine.get());
                }
            });
    }
    string = StringRef{}; // the last thread frees it, under ASan and TSan
    for (std::thread &thread : threads)
        thread.join();
}

TEST(Arrays, HoldTheirValues)
{
    StringRef first = fromBytes("one");
    const StringRef second = fromBytes("two");
    const void *values[] = {first.get(), second.get()};
    const CFRef<CFArrayRef> fixed{CFArrayCreate(nullptr, values, 2, &kCFTypeArrayCallBacks)};
    const CFRef<CFMutableArrayRef> growing{CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks)};
    for (int index = 0; index < 20; ++index)
        CFArrayAppendValue(growing.get(), values[index % 2]);
    EXPECT_EQ(CFGetRetainCount(first.get()), 12);
    const void *gone = first.get();
    first = StringRef{};
    EXPECT_EQ(CFArrayGetCount(growing.get()), 20);
    EXPECT_EQ(CFArrayGetValueAtIndex(growing.get(), 18), gone);
    EXPECT_EQ(CFArrayGetValueAtIndex(growing.get(), 20), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(growing.get(), -1), nullptr);

    const StringRef alike = fromBytes("one");
    const void *equalValues[] = {alike.get(), second.get()};
    const CFRef<CFArrayRef> equal{CFArrayCreate(nullptr, equalValues, 2, &kCFTypeArrayCallBacks)};
    EXPECT_TRUE(CFEqual(fixed.get(), equal.get()));
    EXPECT_EQ(CFHash(fixed.get()), CFHash(equal.get()));
    EXPECT_FALSE(CFEqual(fixed.get(), growing.get()));

    int plain[2] = {1, 1};
    const void *pointers[] = {&plain[0], &plain[1]};
    const CFRef<CFArrayRef> untouched{CFArrayCreate(nullptr, pointers, 2, nullptr)};
    EXPECT_EQ(CFArrayGetValueAtIndex(untouched.get(), 1), &plain[1]);
    EXPECT_EQ(CFArrayCreate(nullptr, nullptr, 1, nullptr), nullptr);
}

TEST(Numbers, KeepTheTypeAndTheValueOfEveryType)
{
    const int64_t kBytes = static_cast<int64_t>(0x8182838485868788u);
    for (CFNumberType type = 1; type <= kCFNumberMaxType; ++type)
    {
        const CFRef<CFNumberRef> made = number(type, kBytes); // the low bytes are a number of the type
        ASSERT_TRUE(made);
        EXPECT_EQ(CFNumberGetType(made.get()), type);
        int64_t back = 0;
        EXPECT_TRUE(CFNumberGetValue(made.get(), type, &back)) << type;
        const CFRef<CFNumberRef> again = number(type, back);
        EXPECT_TRUE(CFEqual(made.get(), again.get())) << type;
    }
    EXPECT_FALSE(number(0, kBytes));
    EXPECT_FALSE(number(17, kBytes));
}

TEST(Numbers, TellWhenAValueIsLost)
{
    const double kHuge = 1e300;
    struct Row
    {
        CFRef<CFNumberRef> from;
        CFNumberType to;
        bool kept;
        double value; // the stored value, read back through its type
    };
    const Row rows[] = {
        {number(kCFNumberSInt32Type, int32_t{-1}), kCFNumberSInt8Type, true, -1},
        {number(kCFNumberSInt32Type, int32_t{300}), kCFNumberSInt8Type, false, 44},
        {number(kCFNumberSInt64Type, int64_t{1} << 53), kCFNumberDoubleType, true, 9007199254740992.0},
        {number(kCFNumberSInt64Type, (int64_t{1} << 53) + 1), kCFNumberDoubleType, false, 9007199254740992.0},
        {number(kCFNumberSInt32Type, int32_t{16777217}), kCFNumberFloatType, false, 16777216.0},
        {number(kCFNumberDoubleType, -2.75), kCFNumberIntType, false, -2},
        {number(kCFNumberDoubleType, 1e9), kCFNumberSInt32Type, true, 1e9},
        {number(kCFNumberDoubleType, kHuge), kCFNumberSInt16Type, false, 32767},
        {number(kCFNumberDoubleType, -kHuge), kCFNumberSInt32Type, false, -2147483648.0},
        {number(kCFNumberDoubleType, std::nan("")), kCFNumberSInt32Type, false, 0},
        {number(kCFNumberDoubleType, 0.5), kCFNumberFloat32Type, true, 0.5},
        {number(kCFNumberFloatType, 0.5f), kCFNumberCGFloatType, true, 0.5},
    };
    for (const Row &row : rows)
    {
        int64_t stored = 0;
        EXPECT_EQ(CFNumberGetValue(row.from.get(), row.to, &stored) != 0, row.kept) << row.value;
        const CFRef<CFNumberRef> read = number(row.to, stored);
        double value = 0;
        CFNumberGetValue(read.get(), kCFNumberDoubleType, &value);
        EXPECT_EQ(value, row.value);
    }
    int64_t top = 0;
    EXPECT_FALSE(CFNumberGetValue(number(kCFNumberDoubleType, 9223372036854775808.0).get(),
                                  kCFNumberSInt64Type, &top));
    EXPECT_EQ(top, std::numeric_limits<int64_t>::max());
    int64_t untouched = 7;
    EXPECT_FALSE(CFNumberGetValue(rows[0].from.get(), 17, &untouched));
    EXPECT_EQ(untouched, 7);
}

TEST(Numbers, AreEqualByValue)
{
    EXPECT_TRUE(CFEqual(number(kCFNumberSInt8Type, int8_t{2}).get(), number(kCFNumberDoubleType, 2.0).get()));
    EXPECT_EQ(CFHash(number(kCFNumberSInt8Type, int8_t{2}).get()),
              CFHash(number(kCFNumberDoubleType, 2.0).get()));
    EXPECT_FALSE(
        CFEqual(number(kCFNumberSInt8Type, int8_t{2}).get(), number(kCFNumberDoubleType, 2.5).get()));
    EXPECT_TRUE(CFEqual(number(kCFNumberFloatType, 2.5f).get(), number(kCFNumberDoubleType, 2.5).get()));
    EXPECT_TRUE(CFEqual(number(kCFNumberDoubleType, std::nan("")).get(),
                        number(kCFNumberFloatType, std::nanf("")).get()));
}

TEST(Locations, LastPathComponents)
{
    const std::pair<const char *, const char *> rows[] = {
        {"/a/b.mcc", "b.mcc"}, {"b.mcc", "b.mcc"},          {"/a/b/", "b"}, {"a//", "a"},        {"/", "/"},
        {"///", "/"},          {"/a/\xc3\xa9", "\xc3\xa9"}, {"", "(none)"}, {"/\xe9", "(none)"},
    };
    for (const auto &[path, last] : rows)
        EXPECT_EQ(lastComponent(path), last) << path;
    EXPECT_EQ(lastComponent(std::string_view{"a\0b", 3}), "(none)");
}

TEST(Bundles, ResourcesStandBesideTheExecutableOrInShare)
{
    const TemporaryFolder folder;
    const std::filesystem::path root{folder.path("")};
    for (const char *file :
         {"bin/Resources/both.png", "share/host/both.png", "share/host/sub/only.png", "bin/Resources/plain"})
    {
        std::filesystem::create_directories((root / file).parent_path());
        std::ofstream{root / file} << "x";
    }
    const CFRef<CFBundleRef> bundle{kiv::cf::createBundle((root / "bin/host").c_str())};
    const std::string bin = (root / "bin").string();
    EXPECT_EQ(resource(bundle.get(), "both", "png", nullptr), bin + "/Resources/both.png");
    EXPECT_EQ(resource(bundle.get(), "plain", nullptr, nullptr), bin + "/Resources/plain");
    EXPECT_EQ(resource(bundle.get(), "plain", "", ""), bin + "/Resources/plain");
    EXPECT_EQ(resource(bundle.get(), "only", "png", "sub"), bin + "/../share/host/sub/only.png");
    EXPECT_EQ(resource(bundle.get(), "only", "png", nullptr), "(none)");
    EXPECT_EQ(resource(bundle.get(), "", nullptr, nullptr), "(none)");
    EXPECT_EQ(kiv::cf::createBundle("host"), nullptr);

    EXPECT_NE(CFBundleGetMainBundle(), nullptr);
    EXPECT_EQ(CFBundleGetMainBundle(), CFBundleGetMainBundle());
    EXPECT_EQ(resource(CFBundleGetMainBundle(), "no-such-resource", "png", nullptr), "(none)");
}

TEST(Identifiers, AreRandomVersion4)
{
    const char *form = "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}";
    std::set<std::string> seen;
    for (int index = 0; index < 200; ++index)
    {
        const CFRef<CFUUIDRef> uuid{CFUUIDCreate(nullptr)};
        const std::string text = utf8(StringRef{CFUUIDCreateString(nullptr, uuid.get())}.get());
        EXPECT_THAT(text, testing::MatchesRegex(form));
        EXPECT_TRUE(seen.insert(text).second) << text;
    }
}
