// Every allocation of the string module and of the objects below it fails once in turn.
#include "KIVCS2String.h"

#include "FailingAllocator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::expectOkOrMemory;
using kiv::test::forEachAllocation;

TEST(StringAllocation, ConversionsAnswerMemoryAndLeaveNothing)
{
    const std::string text(300, 'x');
    for (const KIVCS2StringEncoding encoding :
         {KIVCS2StringEncoding_ASCII, KIVCS2StringEncoding_FileSystem, KIVCS2StringEncoding_UTF16LE})
    {
        const auto convert = [&](size_t)
        {
            char *result = nullptr;
            expectOkOrMemory(kivCS2String_convertCString(text.c_str(), 300, KIVCS2StringEncoding_UTF8,
                                                         &result, encoding, nullptr));
            EXPECT_EQ(result == nullptr, allocationFailed());
            std::free(result);
        };
        EXPECT_GE(forEachAllocation(convert), 2u);
    }
}

// Only the composition of a path may fail and still give a result: the path as it is.
TEST(StringAllocation, APathThatCannotBeComposedIsGivenAsItStands)
{
    size_t given = 0;
    const auto create = [&](size_t)
    {
        CFStringRef path = nullptr;
        const KIVCS2Status status =
            kivCS2String_createCFStringWithEncoding("/e\xCC\x81", 0, &path, KIVCS2StringEncoding_FileSystem);
        EXPECT_EQ(status, path != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR);
        if (path == nullptr)
            return;
        ++given;
        CFRelease(path);
    };
    const size_t count = forEachAllocation(create);
    EXPECT_LE(given, count);
    EXPECT_GE(given, 2u); // a failed composition, and the run without a failure
}

TEST(StringAllocation, MakersAnswerMemoryAndLeaveNothing)
{
    CFStringRef source = nullptr;
    ASSERT_EQ(kivCS2String_createCFStringWithEncoding("/a,b/c", KIVCS2_STRING_MEASURE, &source,
                                                      KIVCS2StringEncoding_UTF8),
              KIVCS2STATUS_OK);
    const auto copy = [](size_t)
    {
        char *text = nullptr;
        expectOkOrMemory(kivCS2String_createCopy(&text, "abc"));
        std::free(text);
    };
    EXPECT_EQ(forEachAllocation(copy), 1u);
    const auto separate = [source](size_t)
    {
        CFArrayRef array = nullptr;
        expectOkOrMemory(kivCS2String_separateCFString(source, ",", &array));
        if (array != nullptr)
            CFRelease(array);
    };
    EXPECT_GE(forEachAllocation(separate), 2u);
    char identifier[37];
    EXPECT_GE(
        forEachAllocation([&](size_t) { expectOkOrMemory(kivCS2String_createUIDCString(identifier, 37)); }),
        1u);
    CFRelease(source);
}

// The place of the program is looked up once. This is the first call that needs it.
TEST(StringAllocation, WithoutThePlaceOfTheProgramAResourceHasNoPath)
{
    kiv::test::failAllocation(0);
    CFStringRef path = nullptr;
    EXPECT_EQ(kivCS2String_createBundleResourcePath("a", nullptr, &path), KIVCS2STATUS_PATH_ERR);
    kiv::test::allowAllocations();
    EXPECT_EQ(path, nullptr);
}

// Kept: a path without a tilde is a success even if its copy failed.
TEST(StringAllocation, ACopyThatFindsNoRoomIsASuccessWithoutAPath)
{
    setenv("HOME", "/h", 1);
    for (const char *path : {"~/x", "/x"})
    {
        const auto expand = [path](size_t)
        {
            char *text = nullptr;
            const KIVCS2Status status = kivCS2String_createStringByExpandingTilde(path, &text);
            EXPECT_EQ(status, text == nullptr && path[0] == '~' ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(text == nullptr, allocationFailed());
            std::free(text);
        };
        EXPECT_EQ(forEachAllocation(expand), 1u);
    }
}
} // namespace
