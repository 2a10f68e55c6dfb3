// Every allocation of the dictionary and JSON modules and of the objects below them fails once in turn.
#include "KIVCS2Dictionary.h"
#include "KIVCS2JSON.h"

#include "CFText.h"
#include "FailingAllocator.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using kiv::CFRef;
using kiv::test::allocationFailed;
using kiv::test::forEachAllocation;

// A dictionary with an array with a dictionary whose keys and values need the heap.
struct Lists
{
    CFRef<CFMutableArrayRef> list{CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks)};
    KIVCS2Dictionary outer{};

    Lists()
    {
        KIVCS2Dictionary inner{};
        EXPECT_OK(kivCS2Dictionary_init(&inner));
        for (int32_t index = 0; index < 100; ++index)
            EXPECT_OK(kivCS2Dictionary_setInteger(&inner, std::to_string(index).c_str(), index, 0));
        CFArrayAppendValue(list.get(), inner.m_dictionary);
        EXPECT_OK(kivCS2Dictionary_free(&inner));
        EXPECT_OK(kivCS2Dictionary_init(&outer));
        EXPECT_OK(kivCS2Dictionary_setCFValue(&outer, "list", list.get(), 0));
    }
    Lists(const Lists &) = delete;
    Lists &operator=(const Lists &) = delete;
    ~Lists()
    {
        EXPECT_OK(kivCS2Dictionary_free(&outer));
    }
};

// A pass whose allocation fails must return the memory status, unless it hides the failure.
void expectMemory(CFTypeRef list, char *cursor, bool hides = false)
{
    uint32_t length = 0;
    const KIVCS2Status status =
        kivCS2JSON_createFromPlist(list, cursor != nullptr ? &cursor : nullptr, &length);
    EXPECT_EQ(status, allocationFailed() && !hides ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
}
} // namespace

TEST(DictionaryAllocation, ASetterAnswersMemoryAndTheDictionaryStaysAsItWas)
{
    using Setter = KIVCS2Status (*)(KIVCS2Dictionary *, const char *);
    const Setter kSetters[] = {
        [](auto *d, auto *key) { return kivCS2Dictionary_setInteger(d, key, 1, 0); },
        [](auto *d, auto *key) { return kivCS2Dictionary_setFloat(d, key, 1, 0); },
        [](auto *d, auto *key) { return kivCS2Dictionary_setBool(d, key, 1, 0); },
        [](auto *d, auto *key) { return kivCS2Dictionary_setCString(d, key, "v", 0); },
        [](auto *d, auto *key) { return kivCS2Dictionary_setCFValue(d, key, kCFBooleanTrue, 0); },
    };
    for (const Setter set : kSetters)
    {
        const auto fill = [set](size_t)
        {
            KIVCS2Dictionary record{};
            if (kivCS2Dictionary_init(&record) == KIVCS2STATUS_MEMORY_ERR)
            {
                EXPECT_TRUE(allocationFailed() && record.m_dictionary == nullptr);
                return;
            }
            // Nine keys, so that the first table has to grow.
            CFIndex stored = 0;
            bool refused = false;
            for (const char *key : {"a", "b", "c", "d", "e", "f", "g", "h", "i"})
            {
                const KIVCS2Status status = set(&record, key);
                refused = refused || status == KIVCS2STATUS_MEMORY_ERR;
                stored += status == KIVCS2STATUS_OK ? 1 : 0;
                EXPECT_EQ(CFDictionaryGetCount(record.m_dictionary), stored);
            }
            EXPECT_EQ(refused, allocationFailed());
            EXPECT_EQ(stored, refused ? 8 : 9);
            if (refused)
            {
                EXPECT_OK(set(&record, "after"));
            }
            EXPECT_OK(kivCS2Dictionary_free(&record));
        };
        EXPECT_GE(forEachAllocation(fill), 1u + 9 + 2);
    }
}

TEST(DictionaryAllocation, AnImmutableDictionaryIsWholeOrNull)
{
    std::vector<const void *> keys(20);
    for (const void *&each : keys)
        each = &each;
    const auto make = [&](size_t)
    {
        const CFRef<CFDictionaryRef> made{
            CFDictionaryCreate(nullptr, keys.data(), keys.data(), 20, nullptr, nullptr)};
        EXPECT_EQ(!made, allocationFailed());
    };
    EXPECT_EQ(forEachAllocation(make), 1u + 3);
}

// If the measured length were too short, the writing pass would run past the buffer.
TEST(JSONAllocation, MeasuringAnswersMemoryAlsoInsideADictionary)
{
    const Lists lists;
    EXPECT_EQ(forEachAllocation([&](size_t) { expectMemory(lists.outer.m_dictionary, nullptr); }), 1u);
}

TEST(JSONAllocation, WritingAnswersMemoryUnlessADictionaryHidesIt)
{
    const Lists lists;
    uint32_t measured = 0;
    ASSERT_OK(kivCS2JSON_createFromPlist(lists.outer.m_dictionary, nullptr, &measured));
    std::vector<char> room(size_t{measured} + 1);
    const auto write = [&](CFTypeRef list, bool hides, const char *text)
    {
        expectMemory(list, room.data(), hides);
        if (allocationFailed())
        {
            EXPECT_STREQ(room.data(), text);
        }
    };
    EXPECT_GE(forEachAllocation([&](size_t) { write(lists.list.get(), false, "["); }), 1u);
    EXPECT_GE(forEachAllocation([&](size_t) { write(lists.outer.m_dictionary, true, R"({"list" : [})"); }),
              1u);
}

TEST(JSONAllocation, ADeepNestAnswersMemory)
{
    CFRef<CFMutableArrayRef> nest{CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks)};
    for (int depth = 0; depth < 100; ++depth)
    {
        CFRef<CFMutableArrayRef> around{CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks)};
        CFArrayAppendValue(around.get(), nest.get());
        nest = std::move(around);
    }
    char room[300];
    EXPECT_GE(forEachAllocation([&](size_t) { expectMemory(nest.get(), room); }), 2u);
}
