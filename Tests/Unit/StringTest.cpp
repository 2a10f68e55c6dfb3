// Strings: conversion between all encodings, detection, copies, paths and the tilde, with exact texts and
// sizes.
#include <KIVCoreServices2/KIVCS2String.h>

#include "ArgumentCheck.h"
#include "CFText.h"

#include <gmock/gmock.h>
#include <malloc.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

using namespace std::string_literals;

namespace
{
using kiv::test::fromBytes;
using kiv::test::StringRef;

constexpr KIVCS2Status kOK = KIVCS2STATUS_OK, kParam = KIVCS2STATUS_PARAM_ERR;
constexpr auto toCString = kivCS2String_createCStringFromCFStringWithEncoding;

// The text of a string that the caller owns.
std::string taken(CFStringRef string)
{
    return kiv::test::utf8(StringRef{string}.get());
}

TEST(String, RefusesWhatIsMissing)
{
    const StringRef some = fromBytes("some");
    CFStringRef object = nullptr;
    CFArrayRef array = nullptr;
    char *text = nullptr;
    char buffer[8];
    uint32_t size = 0;
    KIVCS2StringEncoding encoding = 0;
    CFStringEncoding system = 0;
#define STRING(operation, ...) KIV_REQUIRES(kivCS2String_##operation, __VA_ARGS__)
    kiv::test::expectAllRefused({
        STRING(convertEncoding, "systemEncoding", 0, nullptr),
        STRING(getNullTerminatorLength, "nullTerminatorLen", 0, nullptr),
        STRING(createCFStringWithEncoding, "source", nullptr, 0, &object, 0),
        STRING(createCFStringWithEncoding, "cfString", "a", 1, nullptr, 0),
        STRING(createCFStringWithEncoding, "encoding < KIVCS2StringEncodingMax", "a", 1, &object, 8),
        STRING(createCStringFromCFStringWithEncoding, "cfString", nullptr, &text, 0, &size),
        STRING(createCStringFromCFStringWithEncoding, "cString", some.get(), nullptr, 0, &size),
        STRING(freeCString, "string", nullptr),
        STRING(getBytesUsed, "(string) != NULL", nullptr, 0, &size),
        STRING(getBytesUsed, "(bytesUsed) != NULL", some.get(), 0, nullptr),
        STRING(convertCString, "(source) != NULL", nullptr, 0, 0, &text, 0, &size),
        STRING(convertCString, "(destination) != NULL", "a", 1, 0, nullptr, 0, &size),
        STRING(detectEncoding, "source", nullptr, 4, &encoding, &size),
        STRING(detectEncoding, "encoding", "abcd", 4, nullptr, &size),
        STRING(OSTypeToString, "buffer", 0, nullptr, 5),
        STRING(copy, "dest", nullptr, "a", 2),
        STRING(copy, "source", buffer, nullptr, 2),
        STRING(createCopy, "source", &text, nullptr),
        STRING(createCopy, "dest", nullptr, "a"),
        STRING(separateCFString, "cfString", nullptr, ",", &array),
        STRING(separateCFString, "separator", some.get(), nullptr, &array),
        STRING(separateCFString, "array", some.get(), ",", nullptr),
        STRING(createBundleResourcePath, "name", nullptr, "txt", &object),
        STRING(createBundleResourcePath, "resourcePath", "a", "txt", nullptr),
        STRING(createUIDCFString, "cfString", nullptr),
        STRING(createUIDCString, "buffer", nullptr, 37),
        STRING(getCFStringLastPathComponent, "cfString", nullptr, &object),
        STRING(getCFStringLastPathComponent, "cfLastPathComponent", some.get(), nullptr),
        STRING(createStringByExpandingTilde, "(path) != NULL", nullptr, &text),
        STRING(createStringByExpandingTilde, "(expandedPath) != NULL", "~", nullptr),
    });
#undef STRING

    // Encodings may come from a file or a setting, so they are not asserted.
    for (const KIVCS2StringEncoding unknown : {-1, 8, INT32_MIN, INT32_MAX})
    {
        EXPECT_EQ(kivCS2String_convertEncoding(unknown, &system), kParam);
        EXPECT_EQ(kivCS2String_getNullTerminatorLength(unknown, &size), kParam);
        EXPECT_EQ(kivCS2String_getBytesUsed(some.get(), unknown, &size), kParam);
        EXPECT_EQ(kivCS2String_convertCString("a", 1, unknown, &text, 2, nullptr), kParam);
        EXPECT_EQ(kivCS2String_convertCString("a", 1, 2, &text, unknown, nullptr), kParam);
        EXPECT_EQ(toCString(some.get(), &text, unknown, nullptr), kParam);
    }
    for (const KIVCS2StringEncoding unknown : {-1, 8})
    {
        if (unknown == 8 && kiv::test::hasAssertions())
            continue; // one of them
        object = some.get();
        EXPECT_EQ(kivCS2String_createCFStringWithEncoding("a", 1, &object, unknown), kParam);
        EXPECT_EQ(object, nullptr);
    }
}

struct EncodedText
{
    KIVCS2StringEncoding encoding;
    CFStringEncoding system;
    uint32_t terminator;
    std::string bytes; // "aé" without terminator
};

const EncodedText kEncodedTexts[] = {
    {KIVCS2StringEncoding_FileSystem, 0x08000100, 1, "a\xC3\xA9"},
    {KIVCS2StringEncoding_UTF8, 0x08000100, 1, "a\xC3\xA9"},
    {KIVCS2StringEncoding_UTF16BE, 0x10000100, 2, "\0a\0\xE9"s},
    {KIVCS2StringEncoding_UTF16LE, 0x14000100, 2, "a\0\xE9\0"s},
    {KIVCS2StringEncoding_UTF32BE, 0x18000100, 4, "\0\0\0a\0\0\0\xE9"s},
    {KIVCS2StringEncoding_UTF32LE, 0x1C000100, 4, "a\0\0\0\xE9\0\0\0"s},
    {KIVCS2StringEncoding_ISOLatin1, 0x0201, 1, "a\xE9"},
};

TEST(String, EveryEncodingConvertsIntoEveryOther)
{
    for (const EncodedText &from : kEncodedTexts)
    {
        CFStringEncoding system = 0;
        uint32_t terminator = 0;
        EXPECT_EQ(kivCS2String_convertEncoding(from.encoding, &system), kOK);
        EXPECT_EQ(system, from.system);
        EXPECT_EQ(kivCS2String_getNullTerminatorLength(from.encoding, &terminator), kOK);
        EXPECT_EQ(terminator, from.terminator);
        // One byte before the source puts its units at odd addresses.
        const std::string source = "\xFF" + from.bytes + std::string(from.terminator, '\0');
        for (const EncodedText &to : kEncodedTexts)
            for (const uint32_t length : {KIVCS2_STRING_MEASURE, static_cast<uint32_t>(from.bytes.size())})
            {
                SCOPED_TRACE(std::to_string(from.encoding) + " to " + std::to_string(to.encoding));
                char *text = nullptr;
                uint32_t used = 0;
                ASSERT_EQ(kivCS2String_convertCString(source.data() + 1, length, from.encoding, &text,
                                                      to.encoding, &used),
                          kOK);
                EXPECT_EQ(std::string(text, used), to.bytes + std::string(to.terminator, '\0'));
                EXPECT_EQ(kivCS2String_freeCString(text), kOK);
            }
    }
}

TEST(String, ConversionStopsBeforeACharacterThatTheEncodingLacks)
{
    constexpr KIVCS2Status kCaption = KIVCS2STATUS_CAPTION_ERR, kUnsupported = KIVCS2STATUS_UNSUPPORTED_ERR;
    // Text, encoding, status, status of measuring, and the bytes with their terminator.
    const std::tuple<const char *, KIVCS2StringEncoding, KIVCS2Status, KIVCS2Status, std::string> rows[] = {
        {"ab\u00E9c", KIVCS2StringEncoding_ASCII, kOK, kOK, "ab\0"s},
        {"a\u20AC", KIVCS2StringEncoding_ISOLatin1, kOK, kOK, "a\0"s},
        {"\u00E9", KIVCS2StringEncoding_ASCII, kCaption, kUnsupported, ""},
        {"", KIVCS2StringEncoding_UTF8, kCaption, kParam, ""},
        {"", KIVCS2StringEncoding_UTF32LE, kCaption, kParam, ""},
        {"\U0001F600", KIVCS2StringEncoding_UTF16BE, kOK, kOK, "\xD8\x3D\xDE\0\0\0"s},
        {"", KIVCS2StringEncoding_FileSystem, kParam, kParam, ""},
    };
    for (const auto &[source, encoding, status, measure, bytes] : rows)
    {
        const StringRef object = fromBytes(source);
        char *text = reinterpret_cast<char *>(&text);
        uint32_t used = 77, measured = 77;
        EXPECT_EQ(toCString(object.get(), &text, encoding, &used), status);
        EXPECT_EQ(kivCS2String_getBytesUsed(object.get(), encoding, &measured), measure);
        EXPECT_EQ(measured, used);
        if (status == kOK)
            EXPECT_EQ(std::string(text, used), bytes);
        else
            EXPECT_TRUE(used == 77 && (text == nullptr || encoding == KIVCS2StringEncoding_FileSystem));
        std::free(text); // kept: the empty path is the caller's in spite of the failure
    }
    char *text = nullptr; // the empty path has a text, but not a measure
    EXPECT_EQ(toCString(fromBytes("").get(), &text, KIVCS2StringEncoding_FileSystem, nullptr), kOK);
    EXPECT_STREQ(text, "");
    kivCS2String_freeCString(text);
}

TEST(String, InvalidBytesAreRefused)
{
    for (const auto &[encoding, bytes] : std::initializer_list<std::pair<KIVCS2StringEncoding, std::string>>{
             {KIVCS2StringEncoding_UTF8, "a\xC3"},
             {KIVCS2StringEncoding_UTF8, "\xED\xA0\x80"}, // a surrogate
             {KIVCS2StringEncoding_UTF8, "\xC0\x80"},     // overlong
             {KIVCS2StringEncoding_ASCII, "caf\xE9"},
             {KIVCS2StringEncoding_UTF32BE, "\0\x11\0\0"s},
             {KIVCS2StringEncoding_FileSystem, "/tmp/\xFF"},
         })
    {
        char *text = reinterpret_cast<char *>(&text);
        EXPECT_EQ(kivCS2String_convertCString(bytes.c_str(), static_cast<uint32_t>(bytes.size()), encoding,
                                              &text, KIVCS2StringEncoding_UTF8, nullptr),
                  KIVCS2STATUS_MEMORY_ERR);
        EXPECT_EQ(text, nullptr);
    }
}

TEST(String, AByteOrderMarkStaysACharacterAndPathsAreComposed)
{
    CFStringRef marked = nullptr;
    ASSERT_EQ(kivCS2String_createCFStringWithEncoding("\xEF\xBB\xBFx", 4, &marked, KIVCS2StringEncoding_UTF8),
              kOK);
    EXPECT_EQ(taken(marked), "\uFEFFx");
    CFStringRef path = nullptr;
    ASSERT_EQ(kivCS2String_createCFStringWithEncoding("/e\u0301", 1, &path, KIVCS2StringEncoding_FileSystem),
              kOK); // the length is ignored
    EXPECT_EQ(taken(path), "/\u00E9");
}

TEST(String, DetectsMarksInTheirOrder)
{
    using Row = std::tuple<std::string, KIVCS2StringEncoding, uint32_t>; // bytes; encoding, or -1; length
    for (const auto &[bytes, expected, size] : std::initializer_list<Row>{
             {"\xEF\xBB\xBF", KIVCS2StringEncoding_UTF8, 3},
             {"\xEF\xBB", -1, 0},
             {"\xFE\xFF", KIVCS2StringEncoding_UTF16BE, 2},
             {"\xFF\xFE\0\0"s, KIVCS2StringEncoding_UTF16LE,
              2}, // not UTF-32: the shorter mark is found first
             {"\0\0\xFE\xFF"s, KIVCS2StringEncoding_UTF32BE, 4},
             {"\0\0\xFE"s, -1, 0},
             {"abcd", -1, 0},
             {"\xFF", -1, 0},
             {"", -1, 0},
         })
    {
        KIVCS2StringEncoding encoding = -1;
        uint32_t length = 0;
        EXPECT_EQ(kivCS2String_detectEncoding(bytes.data(), static_cast<uint32_t>(bytes.size()), &encoding,
                                              &length),
                  expected < 0 ? KIVCS2STATUS_UNSUPPORTED_ERR : kOK);
        EXPECT_TRUE(encoding == expected && length == size) << encoding << ", " << length;
    }
    KIVCS2StringEncoding encoding = 0;
    EXPECT_EQ(kivCS2String_detectEncoding("\xFE\xFF", 2, &encoding, nullptr), kOK);
}

TEST(String, WritesCodesAndCopiesWithinTheBuffer)
{
    char buffer[8] = "zzzzzzz";
    EXPECT_EQ(kivCS2String_OSTypeToString(0x63636470, buffer, 4), KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(buffer[0], 'z');
    EXPECT_EQ(kivCS2String_OSTypeToString(0x63636470, buffer, 5), kOK);
    EXPECT_EQ(std::string(buffer, 7), "ccdp\0zz"s);
    EXPECT_EQ(kivCS2String_OSTypeToString(0xFF000080, buffer, 5), kOK);
    EXPECT_EQ(std::string(buffer, 5), "\xFF\0\0\x80\0"s);

    EXPECT_EQ(kivCS2String_copy(buffer, "abc", 3), KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(kivCS2String_copy(buffer, "", 0), KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(buffer[0], '\xFF');
    EXPECT_EQ(kivCS2String_copy(buffer, "abc", 4), kOK);
    EXPECT_STREQ(buffer, "abc");

    char *copy = nullptr;
    ASSERT_EQ(kivCS2String_createCopy(&copy, "abc"), kOK);
    EXPECT_EQ(std::string(copy, 5), "abc\0\0"s);
    EXPECT_EQ(kivCS2String_freeCString(copy), kOK);
}

TEST(String, SeparatesAtEverySeparator)
{
    const std::tuple<const char *, const char *, CFIndex, const char *> rows[] = {
        {"10:00:00:00", ":", 4, "00"}, {"a--b--", "--", 3, ""}, {"", ",", 1, ""}, {"abc", ",", 1, "abc"}};
    for (const auto &[whole, separator, count, end] : rows)
    {
        const StringRef text = fromBytes(whole);
        CFArrayRef array = nullptr;
        ASSERT_EQ(kivCS2String_separateCFString(text.get(), separator, &array), kOK);
        ASSERT_EQ(CFArrayGetCount(array), count);
        const auto last = static_cast<CFStringRef>(CFArrayGetValueAtIndex(array, count - 1));
        EXPECT_EQ(kiv::test::utf8(last), end);
        CFRelease(array);
    }
    const StringRef text = fromBytes("a");
    CFArrayRef array = nullptr;
    EXPECT_EQ(kivCS2String_separateCFString(text.get(), "\xE9", &array), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(array, nullptr);
}

TEST(String, UIDsAreNewEachTime)
{
    char first[37];
    char second[37];
    EXPECT_EQ(kivCS2String_createUIDCString(first, 36), KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(kivCS2String_createUIDCString(first, 0), KIVCS2STATUS_BUFFER_SIZE_ERR);
    ASSERT_EQ(kivCS2String_createUIDCString(first, 37), kOK);
    ASSERT_EQ(kivCS2String_createUIDCString(second, 37), kOK);
    EXPECT_THAT(first, testing::MatchesRegex("[0-9A-F]+-[0-9A-F]+-4[0-9A-F]+-[89AB][0-9A-F]+-[0-9A-F]+"));
    EXPECT_EQ(std::strlen(first), 36u);
    EXPECT_STRNE(first, second);
}

TEST(String, TakesTheLastPathComponent)
{
    for (const auto &[path, last] : std::initializer_list<std::pair<const char *, const char *>>{
             {"/a/b.mcc", "b.mcc"}, {"/a/b/", "b"}, {"name", "name"}, {"/", "/"}, {"/a/\u00E9", "\u00E9"}})
    {
        const StringRef whole = fromBytes(path);
        CFStringRef component = nullptr;
        EXPECT_EQ(kivCS2String_getCFStringLastPathComponent(whole.get(), &component), kOK);
        EXPECT_EQ(taken(component), last);
    }
    const StringRef empty = fromBytes("");
    CFStringRef component = empty.get();
    EXPECT_EQ(kivCS2String_getCFStringLastPathComponent(empty.get(), &component), kParam);
    EXPECT_EQ(component, nullptr);
}

TEST(String, FindsResourcesBesideTheExecutable)
{
    const auto resources = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "Resources";
    const bool made = std::filesystem::create_directory(resources);
    std::ofstream{resources / "string-test.txt"} << "x";
    CFStringRef path = nullptr;
    EXPECT_EQ(kivCS2String_createBundleResourcePath("string-test", "txt", &path), kOK);
    EXPECT_EQ(taken(path), (resources / "string-test.txt").string());
    CFStringRef whole = nullptr;
    EXPECT_EQ(kivCS2String_createBundleResourcePath("string-test.txt", nullptr, &whole), kOK);
    EXPECT_EQ(taken(whole), (resources / "string-test.txt").string());
    const StringRef some = fromBytes("some");
    CFStringRef missing = some.get();
    EXPECT_EQ(kivCS2String_createBundleResourcePath("string-test", "png", &missing), KIVCS2STATUS_SYSTEM_ERR);
    EXPECT_EQ(missing, nullptr);
    EXPECT_EQ(kivCS2String_createBundleResourcePath("\xE9", "png", &missing), KIVCS2STATUS_MEMORY_ERR);
    std::filesystem::remove(resources / "string-test.txt");
    if (made)
        std::filesystem::remove(resources);
}

TEST(String, ExpandsALeadingTilde)
{
    for (const auto &[path, expanded] : std::initializer_list<std::pair<const char *, const char *>>{
             {"~/x", "/h/x"},
             {"~", "/h"},
             {"~/", "/h/"},
             {"/a/~", "/a/~"},
             {"", ""},
             {"~user/x", "/huser/x"}, // the text after the tilde is not interpreted
         })
    {
        setenv("HOME", "/h", 1);
        char *text = nullptr;
        EXPECT_EQ(kivCS2String_createStringByExpandingTilde(path, &text), kOK);
        ASSERT_STREQ(text, expanded);
#ifdef __SANITIZE_ADDRESS__
        // The exact size is the two lengths without the tilde, and the zero byte.
        EXPECT_EQ(path[0] != '~' || malloc_usable_size(text) == std::strlen(expanded) + 1, true);
#endif
        kivCS2String_freeCString(text);
    }
    // A service may run without the variable: the user's entry has the folder.
    const passwd *user = getpwuid(getuid());
    for (const bool isEmpty : {false, true})
    {
        isEmpty ? setenv("HOME", "", 1) : unsetenv("HOME");
        char *text = nullptr;
        EXPECT_EQ(kivCS2String_createStringByExpandingTilde("~/x", &text),
                  user != nullptr ? kOK : KIVCS2STATUS_UNSUPPORTED_ERR);
        EXPECT_EQ(text != nullptr ? text : "", user != nullptr ? user->pw_dir + "/x"s : "");
        std::free(text);
    }
}
} // namespace
