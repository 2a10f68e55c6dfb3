// Strings: the encodings both ways, detection, copies, paths and the tilde, with exact texts and sizes.
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

constexpr auto kParam = KIVCS2STATUS_PARAM_ERR;

// The text of a string that was made for the caller.
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
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2String_convertEncoding, "systemEncoding", 0, nullptr),
        KIV_REQUIRES(kivCS2String_getNullTerminatorLength, "nullTerminatorLen", 0, nullptr),
        KIV_REQUIRES(kivCS2String_createCFStringWithEncoding, "source", nullptr, 0, &object, 0),
        KIV_REQUIRES(kivCS2String_createCFStringWithEncoding, "cfString", "a", 1, nullptr, 0),
        KIV_REQUIRES(kivCS2String_createCFStringWithEncoding, "encoding < KIVCS2StringEncodingMax", "a", 1,
                     &object, 8),
        KIV_REQUIRES(kivCS2String_createCStringFromCFStringWithEncoding, "cfString", nullptr, &text, 0,
                     &size),
        KIV_REQUIRES(kivCS2String_createCStringFromCFStringWithEncoding, "cString", some.get(), nullptr, 0,
                     &size),
        KIV_REQUIRES(kivCS2String_freeCString, "string", nullptr),
        KIV_REQUIRES(kivCS2String_getBytesUsed, "(string) != NULL", nullptr, 0, &size),
        KIV_REQUIRES(kivCS2String_getBytesUsed, "(bytesUsed) != NULL", some.get(), 0, nullptr),
        KIV_REQUIRES(kivCS2String_convertCString, "(source) != NULL", nullptr, 0, 0, &text, 0, &size),
        KIV_REQUIRES(kivCS2String_convertCString, "(destination) != NULL", "a", 1, 0, nullptr, 0, &size),
        KIV_REQUIRES(kivCS2String_detectEncoding, "source", nullptr, 4, &encoding, &size),
        KIV_REQUIRES(kivCS2String_detectEncoding, "encoding", "abcd", 4, nullptr, &size),
        KIV_REQUIRES(kivCS2String_OSTypeToString, "buffer", 0, nullptr, 5),
        KIV_REQUIRES(kivCS2String_copy, "dest", nullptr, "a", 2),
        KIV_REQUIRES(kivCS2String_copy, "source", buffer, nullptr, 2),
        KIV_REQUIRES(kivCS2String_createCopy, "source", &text, nullptr),
        KIV_REQUIRES(kivCS2String_createCopy, "dest", nullptr, "a"),
        KIV_REQUIRES(kivCS2String_separateCFString, "cfString", nullptr, ",", &array),
        KIV_REQUIRES(kivCS2String_separateCFString, "separator", some.get(), nullptr, &array),
        KIV_REQUIRES(kivCS2String_separateCFString, "array", some.get(), ",", nullptr),
        KIV_REQUIRES(kivCS2String_createBundleResourcePath, "name", nullptr, "txt", &object),
        KIV_REQUIRES(kivCS2String_createBundleResourcePath, "resourcePath", "a", "txt", nullptr),
        KIV_REQUIRES(kivCS2String_createUIDCFString, "cfString", nullptr),
        KIV_REQUIRES(kivCS2String_createUIDCString, "buffer", nullptr, 37),
        KIV_REQUIRES(kivCS2String_getCFStringLastPathComponent, "cfString", nullptr, &object),
        KIV_REQUIRES(kivCS2String_getCFStringLastPathComponent, "cfLastPathComponent", some.get(), nullptr),
        KIV_REQUIRES(kivCS2String_createStringByExpandingTilde, "(path) != NULL", nullptr, &text),
        KIV_REQUIRES(kivCS2String_createStringByExpandingTilde, "(expandedPath) != NULL", "~", nullptr),
    });

    // Encodings that come from a file or a setting are answered, never asserted.
    for (const KIVCS2StringEncoding unknown : {-1, 8, INT32_MIN, INT32_MAX})
    {
        EXPECT_EQ(kivCS2String_convertEncoding(unknown, &system), kParam);
        EXPECT_EQ(kivCS2String_getNullTerminatorLength(unknown, &size), kParam);
        EXPECT_EQ(kivCS2String_getBytesUsed(some.get(), unknown, &size), kParam);
        EXPECT_EQ(kivCS2String_convertCString("a", 1, unknown, &text, 2, nullptr), kParam);
        EXPECT_EQ(kivCS2String_convertCString("a", 1, 2, &text, unknown, nullptr), kParam);
        EXPECT_EQ(kivCS2String_createCStringFromCFStringWithEncoding(some.get(), &text, unknown, nullptr),
                  kParam);
    }
#ifdef NDEBUG
    for (const KIVCS2StringEncoding unknown : {-1, 8})
#else
    for (const KIVCS2StringEncoding unknown : {-1}) // 8 is asserted
#endif
    {
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
        EXPECT_EQ(kivCS2String_convertEncoding(from.encoding, &system), KIVCS2STATUS_OK);
        EXPECT_EQ(system, from.system);
        EXPECT_EQ(kivCS2String_getNullTerminatorLength(from.encoding, &terminator), KIVCS2STATUS_OK);
        EXPECT_EQ(terminator, from.terminator);
        // One byte before it, so that the units of the source lie at odd addresses.
        const std::string source = "\xFF" + from.bytes + std::string(from.terminator, '\0');
        for (const EncodedText &to : kEncodedTexts)
            for (const uint32_t length : {KIVCS2_STRING_MEASURE, static_cast<uint32_t>(from.bytes.size())})
            {
                SCOPED_TRACE(std::to_string(from.encoding) + " to " + std::to_string(to.encoding));
                char *text = nullptr;
                uint32_t used = 0;
                ASSERT_EQ(kivCS2String_convertCString(source.data() + 1, length, from.encoding, &text,
                                                      to.encoding, &used),
                          KIVCS2STATUS_OK);
                EXPECT_EQ(std::string(text, used), to.bytes + std::string(to.terminator, '\0'));
                EXPECT_EQ(kivCS2String_freeCString(text), KIVCS2STATUS_OK);
            }
    }
}

TEST(String, ConversionStopsBeforeWhatTheEncodingLacks)
{
    struct Row
    {
        const char *text;
        KIVCS2StringEncoding encoding;
        KIVCS2Status status;
        KIVCS2Status measured;
        std::string bytes;
    };
    for (const Row &row : std::initializer_list<Row>{
             {"ab\u00E9c", KIVCS2StringEncoding_ASCII, KIVCS2STATUS_OK, KIVCS2STATUS_OK, "ab"},
             {"a\u20AC", KIVCS2StringEncoding_ISOLatin1, KIVCS2STATUS_OK, KIVCS2STATUS_OK, "a"},
             {"\u00E9", KIVCS2StringEncoding_ASCII, KIVCS2STATUS_CAPTION_ERR, KIVCS2STATUS_UNSUPPORTED_ERR,
              ""},
             {"", KIVCS2StringEncoding_UTF8, KIVCS2STATUS_CAPTION_ERR, kParam, ""},
             {"", KIVCS2StringEncoding_UTF32LE, KIVCS2STATUS_CAPTION_ERR, kParam, ""},
             {"\U0001F600", KIVCS2StringEncoding_UTF16BE, KIVCS2STATUS_OK, KIVCS2STATUS_OK,
              "\xD8\x3D\xDE\x00"s},
         })
    {
        const StringRef object = fromBytes(row.text);
        char *text = reinterpret_cast<char *>(&text);
        uint32_t used = 77;
        uint32_t measured = 77;
        EXPECT_EQ(
            kivCS2String_createCStringFromCFStringWithEncoding(object.get(), &text, row.encoding, &used),
            row.status);
        EXPECT_EQ(kivCS2String_getBytesUsed(object.get(), row.encoding, &measured), row.measured);
        EXPECT_EQ(measured, used);
        if (row.status != KIVCS2STATUS_OK)
        {
            EXPECT_EQ(text, nullptr);
            EXPECT_EQ(used, 77u);
            continue;
        }
        uint32_t terminator = 0;
        kivCS2String_getNullTerminatorLength(row.encoding, &terminator);
        EXPECT_EQ(std::string(text, used), row.bytes + std::string(terminator, '\0'));
        kivCS2String_freeCString(text);
    }
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

TEST(String, AMarkStaysACharacterAndPathsAreComposed)
{
    CFStringRef marked = nullptr;
    ASSERT_EQ(kivCS2String_createCFStringWithEncoding("\xEF\xBB\xBFx", 4, &marked, KIVCS2StringEncoding_UTF8),
              KIVCS2STATUS_OK);
    EXPECT_EQ(taken(marked), "\uFEFFx");
    CFStringRef path = nullptr;
    ASSERT_EQ(
        kivCS2String_createCFStringWithEncoding("/e\u0301", 1, &path,
                                                KIVCS2StringEncoding_FileSystem), // the length is not used
        KIVCS2STATUS_OK);
    EXPECT_EQ(taken(path), "/\u00E9");
}

TEST(String, TheEmptyPathHasATextButNoMeasure)
{
    const StringRef empty = fromBytes("");
    char *text = nullptr;
    EXPECT_EQ(kivCS2String_createCStringFromCFStringWithEncoding(empty.get(), &text,
                                                                 KIVCS2StringEncoding_FileSystem, nullptr),
              KIVCS2STATUS_OK);
    EXPECT_STREQ(text, "");
    kivCS2String_freeCString(text);
    uint32_t used = 0;
    EXPECT_EQ(kivCS2String_createCStringFromCFStringWithEncoding(empty.get(), &text,
                                                                 KIVCS2StringEncoding_FileSystem, &used),
              kParam);
    kivCS2String_freeCString(text); // stays with the caller
}

TEST(String, DetectsMarksInTheirOrder)
{
    struct Row
    {
        std::string bytes;
        KIVCS2StringEncoding encoding; // -1: none
        uint32_t length;
    };
    for (const Row &row : std::initializer_list<Row>{
             {"\xEF\xBB\xBF", KIVCS2StringEncoding_UTF8, 3},
             {"\xEF\xBB", -1, 0},
             {"\xFE\xFF", KIVCS2StringEncoding_UTF16BE, 2},
             {"\xFF\xFE", KIVCS2StringEncoding_UTF16LE, 2},
             {"\xFF\xFE\0\0"s, KIVCS2StringEncoding_UTF16LE, 2}, // not UTF-32: the shorter mark comes first
             {"\0\0\xFE\xFF"s, KIVCS2StringEncoding_UTF32BE, 4},
             {"\0\0\xFE"s, -1, 0},
             {"abc", -1, 0},
             {"abcd", -1, 0},
             {"\xFF", -1, 0},
             {"", -1, 0},
         })
    {
        KIVCS2StringEncoding encoding = -1;
        uint32_t length = 0;
        EXPECT_EQ(kivCS2String_detectEncoding(row.bytes.data(), static_cast<uint32_t>(row.bytes.size()),
                                              &encoding, &length),
                  row.encoding < 0 ? KIVCS2STATUS_UNSUPPORTED_ERR : KIVCS2STATUS_OK);
        EXPECT_EQ(encoding, row.encoding);
        EXPECT_EQ(length, row.length);
    }
    KIVCS2StringEncoding encoding = 0;
    EXPECT_EQ(kivCS2String_detectEncoding("\xFE\xFF", 2, &encoding, nullptr), KIVCS2STATUS_OK);
}

TEST(String, WritesCodesAndCopiesWithinTheBuffer)
{
    char buffer[8] = "zzzzzzz";
    EXPECT_EQ(kivCS2String_OSTypeToString(0x63636470, buffer, 4), KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(buffer[0], 'z');
    EXPECT_EQ(kivCS2String_OSTypeToString(0x63636470, buffer, 5), KIVCS2STATUS_OK);
    EXPECT_EQ(std::string(buffer, 7), "ccdp\0zz"s);
    EXPECT_EQ(kivCS2String_OSTypeToString(0xFF000080, buffer, 5), KIVCS2STATUS_OK);
    EXPECT_EQ(std::string(buffer, 5), "\xFF\0\0\x80\0"s);

    EXPECT_EQ(kivCS2String_copy(buffer, "abc", 3), KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(kivCS2String_copy(buffer, "", 0), KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(buffer[0], '\xFF');
    EXPECT_EQ(kivCS2String_copy(buffer, "abc", 4), KIVCS2STATUS_OK);
    EXPECT_STREQ(buffer, "abc");

    char *copy = nullptr;
    ASSERT_EQ(kivCS2String_createCopy(&copy, "abc"), KIVCS2STATUS_OK);
    EXPECT_EQ(std::string(copy, 5), "abc\0\0"s);
    EXPECT_EQ(kivCS2String_freeCString(copy), KIVCS2STATUS_OK);
}

TEST(String, SeparatesAtEverySeparator)
{
    struct Row
    {
        const char *text;
        const char *separator;
        CFIndex count;
        const char *last;
    };
    for (const Row &row : std::initializer_list<Row>{{"10:00:00:00", ":", 4, "00"},
                                                     {"a--b--", "--", 3, ""},
                                                     {"", ",", 1, ""},
                                                     {"abc", ",", 1, "abc"}})
    {
        const StringRef text = fromBytes(row.text);
        CFArrayRef array = nullptr;
        ASSERT_EQ(kivCS2String_separateCFString(text.get(), row.separator, &array), KIVCS2STATUS_OK);
        ASSERT_EQ(CFArrayGetCount(array), row.count);
        const auto last = static_cast<CFStringRef>(CFArrayGetValueAtIndex(array, row.count - 1));
        const StringRef expected = fromBytes(row.last);
        EXPECT_TRUE(CFEqual(last, expected.get()));
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
    ASSERT_EQ(kivCS2String_createUIDCString(first, 37), KIVCS2STATUS_OK);
    ASSERT_EQ(kivCS2String_createUIDCString(second, 37), KIVCS2STATUS_OK);
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
        EXPECT_EQ(kivCS2String_getCFStringLastPathComponent(whole.get(), &component), KIVCS2STATUS_OK);
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
    EXPECT_EQ(kivCS2String_createBundleResourcePath("string-test", "txt", &path), KIVCS2STATUS_OK);
    EXPECT_EQ(taken(path), (resources / "string-test.txt").string());
    CFStringRef whole = nullptr;
    EXPECT_EQ(kivCS2String_createBundleResourcePath("string-test.txt", nullptr, &whole), KIVCS2STATUS_OK);
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
             {"~user/x", "/huser/x"}, // the text behind the tilde is taken as it stands
         })
    {
        setenv("HOME", "/h", 1);
        char *text = nullptr;
        EXPECT_EQ(kivCS2String_createStringByExpandingTilde(path, &text), KIVCS2STATUS_OK);
        ASSERT_STREQ(text, expanded);
#ifdef __SANITIZE_ADDRESS__
        // Its allocator knows the exact size: the two lengths, less the tilde, and the zero.
        EXPECT_EQ(path[0] != '~' || malloc_usable_size(text) == std::strlen(expanded) + 1, true);
#endif
        kivCS2String_freeCString(text);
    }
    // A service runs without the variable; the user's entry knows.
    const passwd *user = getpwuid(getuid());
    for (const bool isEmpty : {false, true})
    {
        isEmpty ? setenv("HOME", "", 1) : unsetenv("HOME");
        char *text = nullptr;
        EXPECT_EQ(kivCS2String_createStringByExpandingTilde("~/x", &text),
                  user != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_UNSUPPORTED_ERR);
        EXPECT_EQ(text != nullptr ? text : "", user != nullptr ? user->pw_dir + "/x"s : "");
        std::free(text);
    }
}
} // namespace
