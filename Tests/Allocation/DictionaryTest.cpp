// Every allocation of the dictionary and JSON modules and of the objects below them, failed once in turn.
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

using Setter = KIVCS2Status (*)(KIVCS2Dictionary *, const char *);

// An array around a dictionary of so many entries that its keys and values need the heap.
CFRef<CFMutableArrayRef> largeList()
{
    KIVCS2Dictionary dictionary{};
    EXPECT_EQ(kivCS2Dictionary_init(&dictionary), KIVCS2STATUS_OK);
    for (int32_t index = 0; index < 100; ++index)
        EXPECT_EQ(kivCS2Dictionary_setInteger(&dictionary, std::to_string(index).c_str(), index, 0),
                  KIVCS2STATUS_OK);
    CFRef<CFMutableArrayRef> list{CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks)};
    CFArrayAppendValue(list.get(), dictionary.m_dictionary);
    EXPECT_EQ(kivCS2Dictionary_free(&dictionary), KIVCS2STATUS_OK);
    return list;
}
} // namespace

TEST(DictionaryAllocation, ASetterAnswersMemoryAndTheDictionaryStaysAsItWas)
{
    const Setter kSetters[] = {
        [](KIVCS2Dictionary *d, const char *key) { return kivCS2Dictionary_setInteger(d, key, 1, 0); },
        [](KIVCS2Dictionary *d, const char *key) { return kivCS2Dictionary_setFloat(d, key, 1, 0); },
        [](KIVCS2Dictionary *d, const char *key) { return kivCS2Dictionary_setBool(d, key, 1, 0); },
        [](KIVCS2Dictionary *d, const char *key) { return kivCS2Dictionary_setCString(d, key, "v", 0); },
        [](KIVCS2Dictionary *d, const char *key)
        { return kivCS2Dictionary_setCFValue(d, key, kCFBooleanTrue, 0); },
    };
    for (const Setter set : kSetters)
    {
        EXPECT_GE(forEachAllocation(
                      [set](size_t)
                      {
                          KIVCS2Dictionary record{};
                          if (kivCS2Dictionary_init(&record) == KIVCS2STATUS_MEMORY_ERR)
                          {
                              EXPECT_TRUE(allocationFailed());
                              EXPECT_EQ(record.m_dictionary, nullptr);
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
                              EXPECT_EQ(set(&record, "after"), KIVCS2STATUS_OK);
                          }
                          EXPECT_EQ(kivCS2Dictionary_free(&record), KIVCS2STATUS_OK);
                      }),
                  1u + 9 + 2);
    }
}

TEST(DictionaryAllocation, AnImmutableDictionaryIsWholeOrNull)
{
    std::vector<const void *> keys(20);
    for (const void *&each : keys)
        each = &each;
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  {
                      const CFRef<CFDictionaryRef> made{
                          CFDictionaryCreate(nullptr, keys.data(), keys.data(), 20, nullptr, nullptr)};
                      EXPECT_EQ(!made, allocationFailed());
                  }),
              1u + 3);
}

// A measured length that came out short would have the writing pass run past the buffer.
TEST(JSONAllocation, MeasuringAnswersMemoryAlsoInsideADictionary)
{
    const auto list = largeList();
    KIVCS2Dictionary outer{};
    ASSERT_EQ(kivCS2Dictionary_init(&outer), KIVCS2STATUS_OK);
    ASSERT_EQ(kivCS2Dictionary_setCFValue(&outer, "list", list.get(), 0), KIVCS2STATUS_OK);
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  {
                      uint32_t length = 0;
                      const KIVCS2Status status =
                          kivCS2JSON_createFromPlist(outer.m_dictionary, nullptr, &length);
                      EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
                  }),
              1u);
    EXPECT_EQ(kivCS2Dictionary_free(&outer), KIVCS2STATUS_OK);
}

TEST(JSONAllocation, WritingAnswersMemoryUnlessADictionaryHidesIt)
{
    const auto list = largeList();
    KIVCS2Dictionary outer{};
    ASSERT_EQ(kivCS2Dictionary_init(&outer), KIVCS2STATUS_OK);
    ASSERT_EQ(kivCS2Dictionary_setCFValue(&outer, "list", list.get(), 0), KIVCS2STATUS_OK);
    uint32_t measured = 0;
    ASSERT_EQ(kivCS2JSON_createFromPlist(outer.m_dictionary, nullptr, &measured), KIVCS2STATUS_OK);
    std::vector<char> room(size_t{measured} + 1);
    forEachAllocation(
        [&](size_t)
        {
            char *cursor = room.data();
            uint32_t length = 0;
            const KIVCS2Status status = kivCS2JSON_createFromPlist(list.get(), &cursor, &length);
            EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            if (allocationFailed())
            {
                EXPECT_STREQ(room.data(), "[");
            }
        });
    forEachAllocation(
        [&](size_t)
        {
            char *cursor = room.data();
            uint32_t length = 0;
            EXPECT_EQ(kivCS2JSON_createFromPlist(outer.m_dictionary, &cursor, &length), KIVCS2STATUS_OK);
            if (allocationFailed())
            {
                EXPECT_STREQ(room.data(), R"({"list" : [})");
            }
        });
    EXPECT_EQ(kivCS2Dictionary_free(&outer), KIVCS2STATUS_OK);
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
    EXPECT_GE(forEachAllocation(
                  [&](size_t)
                  {
                      char room[300];
                      char *cursor = room;
                      uint32_t length = 0;
                      const KIVCS2Status status = kivCS2JSON_createFromPlist(nest.get(), &cursor, &length);
                      EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
                  }),
              2u);
}
