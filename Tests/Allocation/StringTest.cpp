// Every allocation of the string module and of the objects below it, failed once in turn.
#include "KIVCS2String.h"

#include "FailingAllocator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::forEachAllocation;

// The call comes first: only then is it known whether its allocation was the failing one.
void expectOkOrMemory(KIVCS2Status status)
{
    EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
}

TEST(StringAllocation, ConversionsAnswerMemoryAndLeaveNothing)
{
    const std::string text(300, 'x');
    for (const KIVCS2StringEncoding encoding :
         {KIVCS2StringEncoding_ASCII, KIVCS2StringEncoding_FileSystem, KIVCS2StringEncoding_UTF16LE})
        EXPECT_GE(forEachAllocation(
                      [&](size_t)
                      {
                          char *result = nullptr;
                          expectOkOrMemory(kivCS2String_convertCString(
                              text.c_str(), 300, KIVCS2StringEncoding_UTF8, &result, encoding, nullptr));
                          EXPECT_EQ(result == nullptr, allocationFailed());
                          std::free(result);
                      }),
                  2u);
}

// Composing a path is the one step that may fail and still give a result: the path as it stands.
TEST(StringAllocation, APathThatCannotBeComposedIsGivenAsItStands)
{
    size_t given = 0;
    const size_t count = forEachAllocation(
        [&](size_t)
        {
            CFStringRef path = nullptr;
            const KIVCS2Status status = kivCS2String_createCFStringWithEncoding(
                "/e\xCC\x81", 0, &path, KIVCS2StringEncoding_FileSystem);
            EXPECT_EQ(status, path != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR);
            if (path != nullptr)
            {
                ++given;
                CFRelease(path);
            }
        });
    EXPECT_GE(given, 2u); // a failed composition, and the run without a failure
    EXPECT_LE(given, count);
}

TEST(StringAllocation, MakersAnswerMemoryAndLeaveNothing)
{
    CFStringRef source = nullptr;
    ASSERT_EQ(kivCS2String_createCFStringWithEncoding("/a,b/c", KIVCS2_STRING_MEASURE, &source,
                                                      KIVCS2StringEncoding_UTF8),
              KIVCS2STATUS_OK);
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  {
                      char *copy = nullptr;
                      expectOkOrMemory(kivCS2String_createCopy(&copy, "abc"));
                      std::free(copy);
                  }),
              1u);
    EXPECT_GE(forEachAllocation(
                  [&](size_t)
                  {
                      CFArrayRef array = nullptr;
                      expectOkOrMemory(kivCS2String_separateCFString(source, ",", &array));
                      if (array != nullptr)
                          CFRelease(array);
                  }),
              2u);
    EXPECT_GE(forEachAllocation(
                  [&](size_t)
                  {
                      char identifier[37];
                      expectOkOrMemory(kivCS2String_createUIDCString(identifier, 37));
                  }),
              1u);
    setenv("HOME", "/h", 1);
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  {
                      char *path = nullptr;
                      expectOkOrMemory(kivCS2String_createStringByExpandingTilde("~/x", &path));
                      std::free(path);
                  }),
              1u);
    CFRelease(source);
}

// Kept: a path without a tilde is a success whatever its copy answered.
TEST(StringAllocation, ACopyThatFindsNoRoomIsASuccessWithoutAPath)
{
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  {
                      char *path = nullptr;
                      EXPECT_EQ(kivCS2String_createStringByExpandingTilde("/x", &path), KIVCS2STATUS_OK);
                      EXPECT_EQ(path == nullptr, allocationFailed());
                      std::free(path);
                  }),
              1u);
}
} // namespace
