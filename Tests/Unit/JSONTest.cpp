// JSON: fractions, counts, depth, results that hosts rely on. Fuzzers/JSONFuzzer.cpp compares whole texts.
#include <KIVCoreServices2/KIVCS2Dictionary.h>
#include <KIVCoreServices2/KIVCS2JSON.h>

#include "CFText.h"
#include "JSONText.h"
#include "RequiredPointers.h"

#include <bit>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>

namespace
{
using kiv::CFRef;
using kiv::test::fromBytes;
using kiv::test::fromUnits;
using kiv::test::jsonOf;
using kiv::test::JSONText;
using kiv::test::StringRef;
using Array = CFRef<CFArrayRef>;
using Dictionary = CFRef<CFDictionaryRef>;

template <class T>
CFRef<CFNumberRef> number(CFNumberType type, T value)
{
    return CFRef<CFNumberRef>{CFNumberCreate(nullptr, type, &value)};
}

Array array(std::vector<CFTypeRef> values)
{
    return Array{
        CFArrayCreate(nullptr, values.data(), static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks)};
}

Dictionary dictionary(std::vector<CFTypeRef> keys, std::vector<CFTypeRef> values)
{
    return Dictionary{CFDictionaryCreate(nullptr, keys.data(), values.data(),
                                         static_cast<CFIndex>(keys.size()), &kCFTypeDictionaryKeyCallBacks,
                                         &kCFTypeDictionaryValueCallBacks)};
}

std::string printed(double value)
{
    char text[400];
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

const StringRef &a()
{
    static const StringRef name = fromBytes("a");
    return name;
}
// Half of a surrogate pair, which UTF-8 cannot write.
const StringRef &lone()
{
    static const StringRef string = fromUnits(u"ok\xd800");
    return string;
}
} // namespace

TEST(JSON, MeasuresTheLongestUTF8)
{
    const JSONText umlaut = jsonOf(fromUnits(u"\u00e9\u20ac\U0001f600").get());
    EXPECT_EQ(umlaut.text, "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\"");
    EXPECT_EQ(umlaut.measured, 4u * 3 + 2);
}

// Kept.
TEST(JSON, ACharacterHasALetterAfterItsNumber)
{
    const JSONText written = jsonOf(number(kCFNumberCharType, int64_t{-1}).get());
    EXPECT_EQ(written.text, "255i");
    EXPECT_EQ(written.measured, 4u);
}

TEST(JSON, FractionsAreExactlyWhatPrintfWrites)
{
    const double infinity = std::numeric_limits<double>::infinity();
    std::vector<double> values = {0.0, -0.0, infinity, -infinity, std::nan(""), -std::nan("")};
    // The largest, the smallest, and values at or near a tie of the sixth decimal.
    for (const double value :
         {std::numeric_limits<double>::max(), 5e-324, 0.5e-6, 1.5e-6, 2.5e-6, 0.9999995, 999999.9999995,
          4503599627370497.5, 0.0000019073486328125, 0.000003814697265625})
        values.insert(values.end(), {value, -value});
    std::mt19937_64 random{3};
    for (int index = 0; index < 20000; ++index)
    {
        values.push_back(std::bit_cast<double>(random()));
        // Around one, in steps of powers of two: ties of the sixth decimal are among them.
        values.push_back(
            std::ldexp(static_cast<double>(random() % 100000), -static_cast<int>(random() % 30)));
    }
    for (const double value : values)
    {
        ASSERT_EQ(jsonOf(number(kCFNumberFloat64Type, value).get()).text, printed(value));
        const auto single = static_cast<float>(value);
        ASSERT_EQ(jsonOf(number(kCFNumberFloat32Type, single).get()).text,
                  printed(static_cast<double>(single)));
    }
}

TEST(JSON, TheProcessLocaleDoesNotMatter)
{
    const char *comma = nullptr;
    for (const char *name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE"})
        comma = comma != nullptr ? comma : std::setlocale(LC_ALL, name);
    if (comma == nullptr)
        GTEST_SKIP() << "no locale with a comma is installed";
    const std::string text = jsonOf(number(kCFNumberFloat32Type, 1.5f).get()).text;
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(text, "1.500000");
}

// Kept.
TEST(JSON, NothingIsEscaped)
{
    EXPECT_EQ(jsonOf(fromBytes({"a\"b\\c\n\0d", 8}).get()).text, std::string("\"a\"b\\c\n\0d\"", 10));
}

// Kept.
TEST(JSON, OtherTypesWriteNothing)
{
    const CFRef<CFDateRef> date{CFDateCreate(nullptr, 0)};
    EXPECT_EQ(jsonOf(kCFBooleanTrue).text, "");
    char untouched = '?';
    char *cursor = &untouched;
    uint32_t length = 0;
    EXPECT_EQ(kivCS2JSON_createFromPlist(kCFBooleanTrue, &cursor, &length), KIVCS2STATUS_OK);
    EXPECT_TRUE(cursor == &untouched && untouched == '?' && length == 0) << "a zero byte was written";
    EXPECT_EQ(jsonOf(array({kCFBooleanTrue, date.get()}).get()).text, "[, ]");
    EXPECT_EQ(jsonOf(dictionary({a().get()}, {kCFBooleanFalse}).get()).text, R"({"a" : })");
    KIVCS2Dictionary flags{};
    ASSERT_EQ(kivCS2Dictionary_init(&flags), KIVCS2STATUS_OK);
    ASSERT_EQ(kivCS2Dictionary_setBool(&flags, "on", true, KIVCS2DictionaryKey_CString), KIVCS2STATUS_OK);
    EXPECT_EQ(jsonOf(flags.m_dictionary).text, R"({"on" : 1})");
    EXPECT_EQ(kivCS2Dictionary_free(&flags), KIVCS2STATUS_OK);
}

// Kept.
TEST(JSON, ADictionaryHidesTheFailureOfAnEntryAndAnArrayDoesNot)
{
    const Array failing = array({a().get(), lone().get(), a().get()});
    const JSONText handedOn = jsonOf(failing.get());
    EXPECT_EQ(handedOn.status, KIVCS2STATUS_UNSUPPORTED_ERR);
    EXPECT_EQ(handedOn.text, R"(["a", )");
    const JSONText hidden = jsonOf(array({dictionary({a().get()}, {failing.get()}).get(), a().get()}).get());
    EXPECT_EQ(hidden.status, KIVCS2STATUS_OK);
    EXPECT_EQ(hidden.text, R"([{"a" : ["a", }, "a"])");
}

TEST(JSON, TextIsAppendedAndCountsAreAdded)
{
    char room[32];
    char *cursor = room;
    uint32_t length = 100;
    EXPECT_EQ(kivCS2JSON_createFromPlist(a().get(), &cursor, &length), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2JSON_createFromPlist(a().get(), &cursor, &length), KIVCS2STATUS_OK);
    EXPECT_STREQ(room, R"("a""a")");
    EXPECT_EQ(length, 106u);
    cursor = nullptr; // a null cursor measures, as without a cursor
    EXPECT_EQ(kivCS2JSON_createFromPlist(a().get(), &cursor, &length), KIVCS2STATUS_OK);
    EXPECT_EQ(length, 106u + 5);
}

// If a count wrapped, the writing pass would run past the caller's buffer, so not even a dictionary hides the
// failure.
TEST(JSON, ACountBeyond32BitsIsRefusedAtEveryDepth)
{
    const auto seven = number(kCFNumberIntType, 7);
    const Dictionary entry = dictionary({a().get()}, {seven.get()}); // 9 bytes, 11 when measured
    const Array inside = array({entry.get(), entry.get()});
    const StringRef accents = fromUnits(u"\u00e9\u00e9");
    const Dictionary converted = dictionary({accents.get()}, {accents.get()});
    for (const uint32_t left : {0u, 1u, 5u, 8u})
    {
        for (const CFTypeRef list :
             {static_cast<CFTypeRef>(entry.get()), static_cast<CFTypeRef>(inside.get()),
              static_cast<CFTypeRef>(converted.get())})
        {
            char room[32];
            char *cursor = room;
            uint32_t length = UINT32_MAX - left;
            EXPECT_EQ(kivCS2JSON_createFromPlist(list, nullptr, &length), KIVCS2STATUS_MEMORY_ERR) << left;
            EXPECT_GE(length, UINT32_MAX - left);
            length = UINT32_MAX - left;
            EXPECT_EQ(kivCS2JSON_createFromPlist(list, &cursor, &length), KIVCS2STATUS_MEMORY_ERR) << left;
            EXPECT_LE(cursor - room, left);
        }
    }
    char room[32];
    char *cursor = room;
    uint32_t length = UINT32_MAX - 9;
    EXPECT_EQ(kivCS2JSON_createFromPlist(entry.get(), &cursor, &length), KIVCS2STATUS_OK);
    EXPECT_EQ(length, UINT32_MAX);
}

TEST(JSON, NestsDeeperThanAnyStackUpToTheLimit)
{
    CFRef<CFTypeRef> nest{array({}).release()};
    for (uint32_t depth = 1; depth < KIVCS2_JSON_MAX_DEPTH; ++depth)
        nest = CFRef<CFTypeRef>{depth % 2 == 0 ? static_cast<CFTypeRef>(array({nest.get()}).release())
                                               : dictionary({a().get()}, {nest.get()}).release()};
    const JSONText deepest = jsonOf(nest.get());
    EXPECT_EQ(deepest.status, KIVCS2STATUS_OK);
    EXPECT_EQ(deepest.text.size(), KIVCS2_JSON_MAX_DEPTH / 2 * (2 + 8));
    EXPECT_EQ(jsonOf(array({nest.get()}).get()).status, KIVCS2STATUS_OK) << "a dictionary is one further in";

    const CFRef<CFMutableArrayRef> endless{CFArrayCreateMutable(nullptr, 0, nullptr)};
    CFArrayAppendValue(endless.get(), endless.get());
    EXPECT_EQ(jsonOf(endless.get()).status, KIVCS2STATUS_UNSUPPORTED_ERR);
}

TEST(JSON, ArgumentChecks)
{
    KIV_REQUIRES_NOT_NULL(kivCS2JSON_createFromPlist, "plist, -, length");
}
