// Strings and the codec, compared with ICU and with the plain loops.
#include "CFText.h"
#include "CoreFoundation/Encoding.h"

#include <gtest/gtest.h>
#include <unicode/ustring.h>

#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <vector>

using namespace std::string_view_literals;
using namespace kiv::test;

namespace
{
constexpr std::array kAllEncodings = {
    kCFStringEncodingASCII,   kCFStringEncodingISOLatin1, kCFStringEncodingUTF8,    kCFStringEncodingUTF16BE,
    kCFStringEncodingUTF16LE, kCFStringEncodingUTF32BE,   kCFStringEncodingUTF32LE,
};

// Converts UTF-8 by ICU; empty if ICU finds it malformed.
std::optional<std::u16string> icuFromUtf8(std::string_view bytes)
{
    std::u16string units(bytes.size() + 1, u'\0');
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(units.data(), static_cast<int32_t>(units.size()), &length, bytes.data(),
                  static_cast<int32_t>(bytes.size()), &status);
    if (U_FAILURE(status))
        return std::nullopt;
    units.resize(static_cast<size_t>(length));
    return units;
}

void expectLikeIcu(std::string_view bytes)
{
    const std::optional<std::u16string> expected = icuFromUtf8(bytes);
    const StringRef string = fromBytes(bytes);
    ASSERT_EQ(static_cast<bool>(string), expected.has_value()) << testing::PrintToString(bytes);
    if (expected)
    {
        ASSERT_EQ(unitsOf(string.get()), *expected) << testing::PrintToString(bytes);
    }
}

std::string wideBytes(std::u32string_view values, size_t width, bool bigEndian)
{
    std::string bytes;
    for (const char32_t value : values)
    {
        for (size_t index = 0; index < width; ++index)
            bytes += static_cast<char>(value >> 8 * (bigEndian ? width - 1 - index : index));
    }
    return bytes;
}
} // namespace

TEST(Encodings, EveryByteOfTheOneByteEncodings)
{
    for (int value = 0; value < 256; ++value)
    {
        const std::string byte(1, static_cast<char>(value));
        const StringRef latin = fromBytes(byte, kCFStringEncodingISOLatin1);
        ASSERT_TRUE(latin);
        EXPECT_EQ(CFStringGetCharacterAtIndex(latin.get(), 0), value);
        EXPECT_EQ(convert(latin.get(), kCFStringEncodingISOLatin1), (Converted{1, byte}));

        const StringRef ascii = fromBytes(byte, kCFStringEncodingASCII);
        ASSERT_EQ(static_cast<bool>(ascii), value < 0x80);
        EXPECT_EQ(convert(latin.get(), kCFStringEncodingASCII),
                  value < 0x80 ? (Converted{1, byte}) : (Converted{0, ""}));
        EXPECT_EQ(convert(latin.get(), kCFStringEncodingASCII, '?').bytes, value < 0x80 ? byte : "?");
    }
}

TEST(Encodings, EveryCodePointThereAndBackAsIcuHasIt)
{
    constexpr char32_t kStep = 0x1000;
    for (char32_t first = 0; first <= 0x10ffff; first += kStep)
    {
        std::u32string codes;
        for (char32_t code = first; code < first + kStep; ++code)
        {
            if (code < 0xd800 || code > 0xdfff)
                codes += code;
        }
        std::u16string units(2 * codes.size() + 1, u'\0');
        std::string bytes(4 * codes.size() + 1, '\0');
        int32_t length = 0;
        int32_t size = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF32(units.data(), static_cast<int32_t>(units.size()), &length,
                       reinterpret_cast<const UChar32 *>(codes.data()), static_cast<int32_t>(codes.size()),
                       &status);
        units.resize(static_cast<size_t>(length));
        u_strToUTF8(bytes.data(), static_cast<int32_t>(bytes.size()), &size, units.data(), length, &status);
        bytes.resize(static_cast<size_t>(size));
        ASSERT_TRUE(U_SUCCESS(status));

        const std::u32string asUtf16{units.begin(), units.end()};
        const std::pair<CFStringEncoding, std::string> forms[] = {
            {kCFStringEncodingUTF8, bytes},
            {kCFStringEncodingUTF16BE, wideBytes(asUtf16, 2, true)},
            {kCFStringEncodingUTF16LE, wideBytes(asUtf16, 2, false)},
            {kCFStringEncodingUTF32BE, wideBytes(codes, 4, true)},
            {kCFStringEncodingUTF32LE, wideBytes(codes, 4, false)},
        };
        for (const auto &[encoding, form] : forms)
        {
            const StringRef string = fromBytes(form, encoding);
            ASSERT_TRUE(string) << "from " << static_cast<uint32_t>(first);
            ASSERT_EQ(unitsOf(string.get()), units)
                << "from " << static_cast<uint32_t>(first) << ", encoding " << encoding;
            ASSERT_EQ(convert(string.get(), encoding), (Converted{length, form}))
                << "from " << static_cast<uint32_t>(first);
        }
    }
}

TEST(Encodings, Utf8IsAsStrictAsIcu)
{
    // Every pair, then every lead and second byte with the ends of the ranges of the bytes after them.
    constexpr std::array<char, 4> kEnds = {'\x7f', '\x80', '\xbf', '\xc0'};
    for (int lead = 0; lead < 256; ++lead)
    {
        for (int second = 0; second < 256; ++second)
        {
            const std::string pair{static_cast<char>(lead), static_cast<char>(second)};
            expectLikeIcu(pair);
            for (const char third : kEnds)
            {
                if (lead < 0xe0)
                    break;
                expectLikeIcu(pair + third);
                for (const char fourth : kEnds)
                    expectLikeIcu(pair + third + fourth);
            }
            if (HasFatalFailure())
                return;
        }
    }
}

TEST(Encodings, MalformedBytesGiveNoString)
{
    struct Row
    {
        const char *what;
        std::string_view bytes;
        CFStringEncoding encoding;
    };
    const Row rows[] = {
        {"cut short after 40 good bytes", "0123456789012345678901234567890123456789\xe2\x82"sv,
         kCFStringEncodingUTF8},
        {"surrogate in UTF-32", "\0\0\xd8\0"sv, kCFStringEncodingUTF32BE},
        {"above 10FFFF in UTF-32", "\0\0\x11\0"sv, kCFStringEncodingUTF32LE},
        {"unknown encoding", "a"sv, 0x0500},
    };
    for (const Row &row : rows)
        EXPECT_FALSE(fromBytes(row.bytes, row.encoding)) << row.what;
    EXPECT_EQ(CFStringCreateWithBytes(nullptr, nullptr, 1, kCFStringEncodingUTF8, false), nullptr);
    EXPECT_EQ(CFStringCreateWithBytes(nullptr, nullptr, -1, kCFStringEncodingUTF8, false), nullptr);
}

TEST(Encodings, OddBytesAtTheEndAreIgnoredAndLoneSurrogatesStay)
{
    EXPECT_EQ(unitsOf(fromBytes("\0a\0"sv, kCFStringEncodingUTF16BE).get()), u"a");
    EXPECT_EQ(unitsOf(fromBytes("a\0\0\0b\0\0"sv, kCFStringEncodingUTF32LE).get()), u"a");
    const StringRef lone = fromBytes("\xd8\x00\x00\x41"sv, kCFStringEncodingUTF16BE);
    EXPECT_EQ(unitsOf(lone.get()), (std::u16string{char16_t{0xd800}, u'A'}));
    EXPECT_EQ(convert(lone.get(), kCFStringEncodingUTF16LE).bytes, "\x00\xd8\x41\x00"sv);
    EXPECT_EQ(convert(lone.get(), kCFStringEncodingUTF8), (Converted{0, ""}));
    EXPECT_EQ(convert(lone.get(), kCFStringEncodingUTF32BE, '?').bytes, "\0\0\0?\0\0\0A"sv);
}

TEST(Encodings, AMarkStaysUnlessTheBytesAreExternal)
{
    for (const CFStringEncoding encoding : kAllEncodings)
    {
        const std::string mark = convert(fromUnits(u"\ufeff").get(), encoding).bytes;
        const std::string bytes = mark + convert(fromUnits(u"a").get(), encoding).bytes;
        EXPECT_EQ(unitsOf(fromBytes(bytes, encoding).get()), mark.empty() ? u"a" : u"\ufeffa");
        const StringRef external{CFStringCreateWithBytes(nullptr,
                                                         reinterpret_cast<const UInt8 *>(bytes.data()),
                                                         static_cast<CFIndex>(bytes.size()), encoding, true)};
        EXPECT_EQ(unitsOf(external.get()), u"a");
    }
}

TEST(Encodings, ConversionStopsAtWhatDoesNotConvertOrFit)
{
    EXPECT_EQ(convert(fromBytes("ab\xc3\xa9"
                                "c")
                          .get(),
                      kCFStringEncodingASCII),
              (Converted{2, "ab"}));
    EXPECT_EQ(convert(fromBytes("").get(), kCFStringEncodingUTF8), (Converted{0, ""}));

    // If one byte is missing for the last character, the whole character is left out.
    const StringRef string = fromUnits(u"a\u00e9\u20ac\U0001f600");
    for (const CFStringEncoding encoding : kAllEncodings)
    {
        const Converted whole = convert(string.get(), encoding);
        for (CFIndex room = 0; room <= static_cast<CFIndex>(whole.bytes.size()); ++room)
        {
            const auto buffer = std::make_unique<UInt8[]>(static_cast<size_t>(room)); // ASan checks its end
            CFIndex used = -1;
            const CFIndex units = CFStringGetBytes(string.get(), CFRangeMake(0, 5), encoding, 0, false,
                                                   buffer.get(), room, &used);
            ASSERT_LE(used, room);
            EXPECT_EQ(std::memcmp(buffer.get(), whole.bytes.data(), static_cast<size_t>(used)), 0);
            EXPECT_NE(units, 4) << "half of a surrogate pair";
            EXPECT_EQ(units == whole.units, room == static_cast<CFIndex>(whole.bytes.size()));
        }
        CFIndex measured = -1;
        EXPECT_EQ(
            CFStringGetBytes(string.get(), CFRangeMake(0, 5), encoding, 0, false, nullptr, 0, &measured),
            whole.units);
        EXPECT_EQ(measured, static_cast<CFIndex>(whole.bytes.size()));
    }
}

TEST(Encodings, MaximumSizes)
{
    const std::pair<CFStringEncoding, CFIndex> rows[] = {
        {kCFStringEncodingASCII, 7},    {kCFStringEncodingISOLatin1, 7}, {kCFStringEncodingUTF8, 21},
        {kCFStringEncodingUTF16BE, 14}, {kCFStringEncodingUTF32LE, 28},  {0x0500, kCFNotFound},
    };
    for (const auto &[encoding, size] : rows)
        EXPECT_EQ(CFStringGetMaximumSizeForEncoding(7, encoding), size);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(LONG_MAX / 2, kCFStringEncodingUTF8), kCFNotFound);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(-1, kCFStringEncodingUTF8), kCFNotFound);
    EXPECT_EQ(CFStringGetMaximumSizeOfFileSystemRepresentation(fromBytes("abc").get()), 28);
}

TEST(Encodings, VectorCodeEqualsThePlainLoops)
{
    for (size_t length = 0; length <= 100; ++length)
    {
        std::vector<uint8_t> bytes(length, 'a');
        std::vector<char16_t> fast(length);
        std::vector<char16_t> plain(length);
        kiv::text::widen(bytes, fast.data());
        kiv::text::widenPortable(bytes, plain.data());
        ASSERT_EQ(fast, plain);
        EXPECT_EQ(kiv::text::utf16FromUtf8(bytes, fast.data()), length);
        ASSERT_EQ(fast, plain);
        for (size_t at = 0; at < length; ++at)
        {
            bytes[at] = 0x80;
            ASSERT_EQ(kiv::text::asciiPrefix(bytes), at);
            ASSERT_EQ(kiv::text::asciiPrefixPortable(bytes), at);
            ASSERT_EQ(kiv::text::utf16FromUtf8(bytes, fast.data()), std::nullopt);
            bytes[at] = 'a';
        }
        for (size_t at = 0; at + 2 <= length; ++at)
        {
            std::string text(length, 'a');
            text.replace(at, 2, "\xc3\xa9"); // across every block boundary
            expectLikeIcu(text);
        }
    }
}

TEST(Strings, WhollyAsciiTextsAreTheSameHoweverTheyWereMade)
{
    const StringRef fromLatin = fromBytes("caption", kCFStringEncodingISOLatin1);
    const StringRef fromUtf16 = fromUnits(u"caption");
    const kiv::CFRef<CFMutableStringRef> copy{CFStringCreateMutableCopy(nullptr, 0, fromUtf16.get())};
    EXPECT_TRUE(CFEqual(fromLatin.get(), fromUtf16.get()));
    EXPECT_TRUE(CFEqual(fromLatin.get(), copy.get()));
    EXPECT_EQ(CFHash(fromLatin.get()), CFHash(copy.get()));

    // Compatibility composition of full-width letters ends as ASCII in 16-bit units.
    const kiv::CFRef<CFMutableStringRef> wide{
        CFStringCreateMutableCopy(nullptr, 0, fromUnits(u"\uff43aption").get())};
    CFStringNormalize(wide.get(), kCFStringNormalizationFormKC);
    EXPECT_TRUE(CFEqual(fromLatin.get(), wide.get()));
    EXPECT_EQ(CFHash(fromLatin.get()), CFHash(wide.get()));
    EXPECT_FALSE(CFEqual(fromLatin.get(), fromUnits(u"Caption").get()));
}

TEST(Strings, CopiesOfImmutableStringsAreTheSameObject)
{
    const StringRef original = fromBytes("\xc3\xa9");
    const StringRef copy{CFStringCreateCopy(nullptr, original.get())};
    EXPECT_EQ(copy.get(), original.get());
    EXPECT_EQ(CFGetRetainCount(original.get()), 2);
    const kiv::CFRef<CFMutableStringRef> changeable{CFStringCreateMutableCopy(nullptr, 0, original.get())};
    const StringRef frozen{CFStringCreateCopy(nullptr, changeable.get())};
    CFStringNormalize(changeable.get(), kCFStringNormalizationFormD);
    EXPECT_EQ(unitsOf(frozen.get()), u"\u00e9");
    EXPECT_EQ(unitsOf(changeable.get()), u"e\u0301");
}

TEST(Strings, NormalisationForms)
{
    using Row = std::tuple<CFStringNormalizationForm, const char16_t *, const char16_t *>;
    const Row rows[] = {
        {kCFStringNormalizationFormC, u"e\u0301", u"\u00e9"},
        {kCFStringNormalizationFormD, u"\u00e9", u"e\u0301"},
        {kCFStringNormalizationFormC, u"\ufb01", u"\ufb01"},
        {kCFStringNormalizationFormKC, u"\ufb01e\u0301", u"fi\u00e9"},
        {kCFStringNormalizationFormKD, u"\ufb01\u00e9", u"fie\u0301"},
        {kCFStringNormalizationFormD, u"\uac00", u"\u1100\u1161"}, // Hangul, computed
        {kCFStringNormalizationFormC, u"a\u0323\u0307", u"\u1ea1\u0307"},
        {kCFStringNormalizationFormC, u"plain", u"plain"},
        {99, u"e\u0301", u"e\u0301"}, // no such form: unchanged
    };
    for (const auto &[form, from, to] : rows)
    {
        const kiv::CFRef<CFMutableStringRef> string{
            CFStringCreateMutableCopy(nullptr, 0, fromUnits(from).get())};
        CFStringNormalize(string.get(), form);
        EXPECT_EQ(unitsOf(string.get()), to);
    }
}

TEST(Strings, IntegerValues)
{
    const std::pair<const char *, SInt32> rows[] = {
        {"", 0},
        {"0", 0},
        {"42", 42},
        {"007x9", 7},
        {" \t-12", -12},
        {"+5", 5},
        {"- 5", 0},
        {"x1", 0},
        {"2147483647", 2147483647},
        {"2147483648", 2147483647},
        {"-2147483648", -2147483647 - 1},
        {"-99999999999999999999999", -2147483647 - 1},
        {"\xd9\xa3", 0}, // an Arabic digit is not a digit here
    };
    for (const auto &[text, value] : rows)
        EXPECT_EQ(CFStringGetIntValue(fromBytes(text).get()), value) << text;
}

TEST(Strings, Splitting)
{
    using Row = std::tuple<const char *, const char *, std::vector<std::string>>;
    const Row rows[] = {
        {"", ":", {""}},
        {"10:00:00:00", ":", {"10", "00", "00", "00"}},
        {":a:", ":", {"", "a", ""}},
        {"a", "", {"a"}},
        {"aXYbXYXYc", "XY", {"a", "b", "", "c"}},
        {"aaa", "aa", {"", "a"}},
        {"\xc3\xa9:\xe2\x82\xac", ":", {"\xc3\xa9", "\xe2\x82\xac"}},
        {"a\xe2\x82\xac"
         "b",
         "\xe2\x82\xac",
         {"a", "b"}},
    };
    for (const auto &[text, separator, expected] : rows)
    {
        const kiv::CFRef<CFArrayRef> array{CFStringCreateArrayBySeparatingStrings(
            nullptr, fromBytes(text).get(), fromBytes(separator).get())};
        ASSERT_TRUE(array);
        std::vector<std::string> pieces;
        for (CFIndex index = 0; index < CFArrayGetCount(array.get()); ++index)
            pieces.push_back(utf8(static_cast<CFStringRef>(CFArrayGetValueAtIndex(array.get(), index))));
        EXPECT_EQ(pieces, expected) << text;
    }
}

TEST(Strings, ComparingGoesByUnits)
{
    const char16_t *ascending[] = {u"", u"A", u"AA", u"a", u"a\u00e9", u"\u00e9", u"\U0001f600", u"\uffee"};
    for (size_t left = 0; left < std::size(ascending); ++left)
    {
        for (size_t right = 0; right < std::size(ascending); ++right)
        {
            const CFComparisonResult expected = left == right  ? kCFCompareEqualTo
                                                : left < right ? kCFCompareLessThan
                                                               : kCFCompareGreaterThan;
            EXPECT_EQ(CFStringCompare(fromUnits(ascending[left]).get(), fromUnits(ascending[right]).get(), 0),
                      expected)
                << left << ' ' << right;
        }
    }
}

TEST(Strings, CharacterSetsAndTheirSearch)
{
    const kiv::CFRef<CFCharacterSetRef> digits{
        CFCharacterSetCreateWithCharactersInString(nullptr, fromBytes("0123456789:;<=>?@").get())};
    const kiv::CFRef<CFCharacterSetRef> others{CFCharacterSetCreateInvertedSet(nullptr, digits.get())};
    for (int unit = 0; unit < 0x10000; ++unit)
    {
        const bool digit = unit >= '0' && unit <= '@'; // and what stands behind them in ASCII
        ASSERT_EQ(CFCharacterSetIsCharacterMember(digits.get(), static_cast<UniChar>(unit)) != 0, digit)
            << unit;
        ASSERT_EQ(CFCharacterSetIsCharacterMember(others.get(), static_cast<UniChar>(unit)) != 0, !digit)
            << unit;
    }
    const kiv::CFRef<CFCharacterSetRef> again{CFCharacterSetCreateInvertedSet(nullptr, others.get())};
    EXPECT_TRUE(CFEqual(digits.get(), again.get()));
    EXPECT_FALSE(CFEqual(digits.get(), others.get()));

    const kiv::CFRef<CFCharacterSetRef> mixed{
        CFCharacterSetCreateWithCharactersInString(nullptr, fromUnits(u"\u20ac\U0001f600a\u20ac").get())};
    using Row = std::tuple<CFCharacterSetRef, const char16_t *, CFRange, bool, CFRange>;
    const Row rows[] = {
        {others.get(), u"12/34", {0, 5}, true, {2, 1}},
        {others.get(), u"12/34", {3, 2}, false, {}},
        {others.get(), u"12/34", {-2, 4}, false, {}},
        {others.get(), u"12/34", {-2, 5}, true, {2, 1}},
        {others.get(), u"12/34", {LONG_MIN, LONG_MAX}, false, {}},
        {others.get(), u"12/34", {9, 1}, false, {}},
        {others.get(), u"", {0, 0}, false, {}},
        {others.get(), u"1\U0001f600", {0, 3}, true, {1, 2}},
        {mixed.get(), u"xy\U0001f600", {0, 4}, true, {2, 2}},
        {mixed.get(), u"xy\u20ac", {1, 99}, true, {2, 1}},
        {mixed.get(), u"xy\U0001f601", {0, 4}, false, {}},
    };
    for (const auto &[set, text, range, found, expected] : rows)
    {
        CFRange where{};
        EXPECT_EQ(CFStringFindCharacterFromSet(fromUnits(text).get(), set, range, 0, &where) != 0, found);
        EXPECT_EQ(where.location, expected.location);
        EXPECT_EQ(where.length, expected.length);
        EXPECT_EQ(CFStringFindCharacterFromSet(fromUnits(text).get(), set, range, 0, nullptr) != 0, found);
    }
}

TEST(Strings, CStringsAndPathsNeedRoomForTheirZeroByte)
{
    const StringRef path = fromBytes("/tmp/\xc3\xa9");
    char buffer[8] = "xxxxxxx";
    EXPECT_FALSE(CFStringGetFileSystemRepresentation(path.get(), buffer, 7));
    EXPECT_STREQ(buffer, "");
    EXPECT_TRUE(CFStringGetFileSystemRepresentation(path.get(), buffer, 8));
    EXPECT_STREQ(buffer, "/tmp/\xc3\xa9");
    EXPECT_FALSE(CFStringGetCString(path.get(), buffer, 8, kCFStringEncodingASCII));
    EXPECT_FALSE(CFStringGetCString(fromBytes("").get(), buffer, 8, 0x0500));
    EXPECT_FALSE(CFStringGetCString(path.get(), buffer, 0, kCFStringEncodingUTF8));
    const StringRef back{CFStringCreateWithFileSystemRepresentation(nullptr, "/tmp/\xc3\xa9")};
    EXPECT_TRUE(CFEqual(path.get(), back.get()));
    EXPECT_EQ(CFStringCreateWithFileSystemRepresentation(nullptr, "/tmp/\xe9"), nullptr);
    EXPECT_EQ(CFStringGetCharacterAtIndex(path.get(), 6), 0);
    EXPECT_EQ(CFStringGetCharacterAtIndex(path.get(), -1), 0);
}

TEST(Strings, ASCIIGivesItsOwnBytes)
{
    const StringRef ascii = fromBytes("abc");
    EXPECT_STREQ(CFStringGetCStringPtr(ascii.get(), kCFStringEncodingASCII), "abc");
    EXPECT_STREQ(CFStringGetCStringPtr(ascii.get(), kCFStringEncodingUTF8), "abc");
    EXPECT_STREQ(CFStringGetCStringPtr(fromBytes("").get(), kCFStringEncodingISOLatin1), "");
    EXPECT_EQ(CFStringGetCStringPtr(ascii.get(), kCFStringEncodingUTF16LE), nullptr);
    EXPECT_EQ(CFStringGetCStringPtr(fromBytes("\xc3\xa9").get(), kCFStringEncodingUTF8), nullptr);
}
