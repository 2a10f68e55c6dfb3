// Dictionaries compared with a plain model, their callbacks and ownership; booleans; releases of deep nests.
#include "CFText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

using kiv::CFRef;
using namespace kiv::test;

namespace
{
using MutableDictionary = CFRef<CFMutableDictionaryRef>;

MutableDictionary objectDictionary()
{
    return MutableDictionary{CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                       &kCFTypeDictionaryValueCallBacks)};
}

CFRef<CFNumberRef> number(int32_t value)
{
    return CFRef<CFNumberRef>{CFNumberCreate(nullptr, kCFNumberSInt32Type, &value)};
}

// A dictionary of numbers as pairs, in the order of their insertion.
using Model = std::vector<std::pair<int32_t, int32_t>>;

Model contentsOf(CFDictionaryRef dictionary)
{
    const auto count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void *> keys(count);
    std::vector<const void *> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    CFDictionaryGetKeysAndValues(dictionary, nullptr, nullptr);
    Model contents(count);
    for (size_t index = 0; index < count; ++index)
    {
        CFNumberGetValue(static_cast<CFNumberRef>(keys[index]), kCFNumberSInt32Type, &contents[index].first);
        CFNumberGetValue(static_cast<CFNumberRef>(values[index]), kCFNumberSInt32Type,
                         &contents[index].second);
    }
    return contents;
}
} // namespace

TEST(Dictionaries, BehaveAsAListOfPairs)
{
    std::mt19937 random{7};
    for (const int32_t range : {5, 40, 3000})
    {
        const MutableDictionary dictionary = objectDictionary();
        Model model;
        for (int32_t step = 0; step < 6000; ++step)
        {
            const auto key = static_cast<int32_t>(random() % static_cast<uint32_t>(range));
            const CFRef<CFNumberRef> keyObject = number(key);
            const auto found = std::find_if(model.begin(), model.end(),
                                            [key](const auto &pair) { return pair.first == key; });
            ASSERT_EQ(CFDictionaryContainsKey(dictionary.get(), keyObject.get()) != 0, found != model.end());
            switch (random() % 5)
            {
            case 0:
                CFDictionaryAddValue(dictionary.get(), keyObject.get(), number(step).get());
                if (found == model.end())
                    model.emplace_back(key, step);
                break;
            case 1:
            case 2:
                CFDictionarySetValue(dictionary.get(), keyObject.get(), number(step).get());
                if (found == model.end())
                    model.emplace_back(key, step);
                else
                    found->second = step;
                break;
            default:
                CFDictionaryRemoveValue(dictionary.get(), keyObject.get());
                if (found != model.end())
                    model.erase(found);
            }
            if (step % 64 == 0)
            {
                ASSERT_EQ(contentsOf(dictionary.get()), model) << step;
            }
        }
        EXPECT_EQ(contentsOf(dictionary.get()), model);
        CFDictionaryRemoveAllValues(dictionary.get());
        EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
        EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), number(1).get()), nullptr);
    }
}

TEST(Dictionaries, RetainWhatTheyHoldAndFindByValue)
{
    const StringRef key = fromBytes("rate");
    const StringRef alike = fromBytes("rate");
    const StringRef value = fromBytes("25");
    const void *found = nullptr;
    {
        const MutableDictionary dictionary = objectDictionary();
        CFDictionarySetValue(dictionary.get(), key.get(), value.get());
        CFDictionarySetValue(dictionary.get(), alike.get(), value.get());
        EXPECT_EQ(CFGetRetainCount(key.get()), 2);
        EXPECT_EQ(CFGetRetainCount(alike.get()), 1) << "the key that was there stays";
        EXPECT_EQ(CFGetRetainCount(value.get()), 2);
        EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary.get(), alike.get(), &found));
        EXPECT_EQ(found, value.get());
        EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary.get(), value.get(), nullptr));
        CFDictionaryRemoveValue(dictionary.get(), alike.get());
        EXPECT_EQ(CFGetRetainCount(value.get()), 1);

        // A value that only the dictionary owns is replaced by itself.
        CFDictionarySetValue(dictionary.get(), key.get(), fromBytes("50").get());
        CFDictionarySetValue(dictionary.get(), key.get(), CFDictionaryGetValue(dictionary.get(), key.get()));
        EXPECT_EQ(utf8(static_cast<CFStringRef>(CFDictionaryGetValue(dictionary.get(), key.get()))), "50");
    }
    EXPECT_EQ(CFGetRetainCount(key.get()), 1);
}

TEST(Dictionaries, OfPlainPointersCompareAddresses)
{
    int plain[2] = {1, 1};
    const void *keys[] = {&plain[0], nullptr, &plain[0]};
    const void *values[] = {&plain[1], nullptr, &plain[0]};
    const CFRef<CFDictionaryRef> dictionary{CFDictionaryCreate(nullptr, keys, values, 3, nullptr, nullptr)};
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 2);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &plain[0]), &plain[1]) << "of equal keys the first";
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &plain[1]), nullptr);
    EXPECT_TRUE(CFDictionaryContainsKey(dictionary.get(), nullptr));
    EXPECT_EQ(CFDictionaryCreate(nullptr, nullptr, values, 1, nullptr, nullptr), nullptr);

    const auto unchangeable = const_cast<CFMutableDictionaryRef>(dictionary.get());
    CFDictionarySetValue(unchangeable, &plain[1], nullptr);
    CFDictionaryAddValue(unchangeable, &plain[1], nullptr);
    CFDictionaryRemoveValue(unchangeable, &plain[0]);
    CFDictionaryRemoveAllValues(unchangeable);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 2);
}

TEST(Dictionaries, AreEqualByContentsInAnyOrder)
{
    const MutableDictionary left = objectDictionary();
    const MutableDictionary right = objectDictionary();
    for (int32_t index = 0; index < 20; ++index)
    {
        CFDictionarySetValue(left.get(), number(index).get(), number(-index).get());
        CFDictionarySetValue(right.get(), number(19 - index).get(), number(index - 19).get());
    }
    EXPECT_TRUE(CFEqual(left.get(), right.get()));
    EXPECT_EQ(CFHash(left.get()), CFHash(right.get()));
    EXPECT_EQ(CFGetTypeID(left.get()), CFDictionaryGetTypeID());
    CFDictionarySetValue(right.get(), number(7).get(), number(7).get());
    EXPECT_FALSE(CFEqual(left.get(), right.get()));
    CFDictionaryRemoveValue(right.get(), number(7).get());
    EXPECT_FALSE(CFEqual(left.get(), right.get()));
}

TEST(Objects, NestedDeeplyEndOneAfterTheOther)
{
    const StringRef key = fromBytes("k");
    CFRef<CFTypeRef> nest{CFRetain(key.get())};
    for (int depth = 0; depth < 200000; ++depth) // far more than fit on a stack
    {
        const void *value = nest.get();
        const void *name = key.get();
        nest = CFRef<CFTypeRef>{
            depth % 2 == 0 ? static_cast<CFTypeRef>(CFArrayCreate(nullptr, &value, 1, &kCFTypeArrayCallBacks))
                           : CFDictionaryCreate(nullptr, &name, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                                                &kCFTypeDictionaryValueCallBacks)};
        ASSERT_TRUE(nest);
    }
    nest = CFRef<CFTypeRef>{};
    EXPECT_EQ(CFGetRetainCount(key.get()), 1);
}

TEST(Booleans, AreTwoObjectsForEver)
{
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    for (int time = 0; time < 3; ++time)
        CFRelease(kCFBooleanTrue);
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
}
