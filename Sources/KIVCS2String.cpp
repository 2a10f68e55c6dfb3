// Strings: texts in eight encodings to and from string objects, and the helpers around them.
#include "KIVCS2String.h"

#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"

#include <glob.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

namespace
{
struct Encoding
{
    CFStringEncoding system;
    uint32_t terminatorBytes; // one unit of the encoding
};

constexpr std::array<Encoding, KIVCS2StringEncodingMax> kEncodings = {{
    {kCFStringEncodingASCII, 1},     // ASCII
    {kCFStringEncodingUTF8, 1},      // FileSystem
    {kCFStringEncodingUTF8, 1},      // UTF8
    {kCFStringEncodingUTF16BE, 2},   // UTF16BE
    {kCFStringEncodingUTF16LE, 2},   // UTF16LE
    {kCFStringEncodingUTF32BE, 4},   // UTF32BE
    {kCFStringEncodingUTF32LE, 4},   // UTF32LE
    {kCFStringEncodingISOLatin1, 1}, // ISOLatin1
}};

struct Mark
{
    std::array<uint8_t, 4> bytes;
    uint32_t length;
    KIVCS2StringEncoding encoding;
};

// In the order in which they are tried. Kept: UTF-16 little-endian comes before UTF-32 little-endian, whose
// mark begins with it, so the last row never matches; hosts rely on that result.
constexpr std::array<Mark, 5> kMarks = {{
    {{0xEF, 0xBB, 0xBF}, 3, KIVCS2StringEncoding_UTF8},
    {{0xFE, 0xFF}, 2, KIVCS2StringEncoding_UTF16BE},
    {{0xFF, 0xFE}, 2, KIVCS2StringEncoding_UTF16LE},
    {{0x00, 0x00, 0xFE, 0xFF}, 4, KIVCS2StringEncoding_UTF32BE},
    {{0xFF, 0xFE, 0x00, 0x00}, 4, KIVCS2StringEncoding_UTF32LE},
}};

constexpr uint64_t kLargestText = std::numeric_limits<uint32_t>::max();
constexpr uint32_t kOSTypeTextSize = 5; // four characters and the terminator

struct Free
{
    void operator()(void *block) const
    {
        std::free(block);
    }
};
using Text = std::unique_ptr<char, Free>;

[[nodiscard]] const Encoding *findEncoding(KIVCS2StringEncoding encoding)
{
    return encoding >= 0 && encoding < KIVCS2StringEncodingMax ? &kEncodings[static_cast<size_t>(encoding)]
                                                               : nullptr;
}

// Counts the bytes before the first unit of `unit` zero bytes; units are counted from the start.
[[nodiscard]] size_t measureText(const void *source, uint32_t unit)
{
    const char *bytes = static_cast<const char *>(source);
    if (unit == 1)
        return std::strlen(bytes);
    static constexpr std::array<char, 4> kZero{};
    size_t length = 0;
    while (std::memcmp(bytes + length, kZero.data(), unit) != 0)
        length += unit;
    return length;
}

// Returns a path from the file system in composed form; the file system may have decomposed it.
[[nodiscard]] CFStringRef createFromPath(const char *path)
{
    kiv::CFRef<CFStringRef> plain{CFStringCreateWithFileSystemRepresentation(kCFAllocatorDefault, path)};
    if (!plain)
        return nullptr;
    const CFMutableStringRef composed = CFStringCreateMutableCopy(kCFAllocatorDefault, 0, plain.get());
    if (composed == nullptr)
        return plain.release(); // an unchanged path is better than no path
    CFStringNormalize(composed, kCFStringNormalizationFormC);
    return composed;
}

[[nodiscard]] KIVCS2Status createPathText(CFStringRef cfString, char **cString, uint32_t *bytesUsed)
{
    const CFIndex room = CFStringGetMaximumSizeOfFileSystemRepresentation(cfString) + 1;
    *cString = static_cast<char *>(kivCS2ZeroMalloc(static_cast<size_t>(room)));
    if (*cString == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    // Kept: the caller keeps the block if the string has no file-system form.
    if (CFStringGetFileSystemRepresentation(cfString, *cString, room) == 0)
        return KIVCS2STATUS_MEMORY_ERR;
    return bytesUsed != nullptr
               ? kivCS2String_getBytesUsed(cfString, KIVCS2StringEncoding_FileSystem, bytesUsed)
               : KIVCS2STATUS_OK;
}

[[nodiscard]] CFRange wholeRange(CFStringRef cfString)
{
    return CFRangeMake(0, CFStringGetLength(cfString));
}

// "~" as the system's pattern matcher expands it.
class HomeDirectory
{
public:
    HomeDirectory()
    {
        if (glob("~", GLOB_TILDE, nullptr, &m_matches) != 0 || m_matches.gl_pathc == 0)
            return;
        m_path = m_matches.gl_pathv[0];
        if (std::strcmp(m_path, "~") == 0) // "~" stays if it was not expanded
            m_path = findByUser();
    }
    HomeDirectory(const HomeDirectory &) = delete;
    HomeDirectory &operator=(const HomeDirectory &) = delete;
    ~HomeDirectory()
    {
        globfree(&m_matches);
    }

    // Returns null if the system has no home directory for the user.
    [[nodiscard]] const char *path() const
    {
        return m_path;
    }

private:
    // Without HOME the system's matcher looks for the user who logged in on the terminal; a service has none.
    [[nodiscard]] const char *findByUser()
    {
        passwd entry{};
        passwd *user = nullptr;
        const int failure = getpwuid_r(getuid(), &entry, m_text.data(), m_text.size(), &user);
        return failure == 0 && user != nullptr ? user->pw_dir : nullptr;
    }

    glob_t m_matches{};
    std::array<char, 4096> m_text{}; // texts of the user's entry
    const char *m_path = nullptr;
};
} // namespace

KIVCS2Status kivCS2String_convertEncoding(KIVCS2StringEncoding encoding, CFStringEncoding *systemEncoding)
{
    KIV_CHECK(systemEncoding);

    const Encoding *known = findEncoding(encoding);
    if (known == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    *systemEncoding = known->system;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2String_getNullTerminatorLength(KIVCS2StringEncoding encoding, uint32_t *nullTerminatorLen)
{
    KIV_CHECK(nullTerminatorLen);

    const Encoding *known = findEncoding(encoding);
    if (known == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    *nullTerminatorLen = known->terminatorBytes;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2String_createCFStringWithEncoding(const void *source, uint32_t length,
                                                     CFStringRef *cfString, KIVCS2StringEncoding encoding)
{
    KIV_CHECK(source);
    KIV_CHECK(cfString);
    *cfString = nullptr;
    KIV_CHECK(encoding < KIVCS2StringEncodingMax);

    const Encoding *known = findEncoding(encoding);
    if (known == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    if (encoding == KIVCS2StringEncoding_FileSystem)
    {
        *cfString = createFromPath(static_cast<const char *>(source));
    }
    else
    {
        const size_t bytes =
            length == KIVCS2_STRING_MEASURE ? measureText(source, known->terminatorBytes) : length;
        *cfString = CFStringCreateWithBytes(kCFAllocatorDefault, static_cast<const UInt8 *>(source),
                                            static_cast<CFIndex>(bytes), known->system, false);
    }
    return *cfString != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2String_createCStringFromCFStringWithEncoding(CFStringRef cfString, char **cString,
                                                                KIVCS2StringEncoding encoding,
                                                                uint32_t *bytesUsed)
{
    KIV_CHECK(cfString);
    KIV_CHECK(cString);

    *cString = nullptr;
    const Encoding *known = findEncoding(encoding);
    if (known == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    if (encoding == KIVCS2StringEncoding_FileSystem)
        return createPathText(cfString, cString, bytesUsed);

    const CFIndex room = CFStringGetMaximumSizeForEncoding(CFStringGetLength(cfString), known->system);
    if (room < 0)
        return KIVCS2STATUS_MEMORY_ERR;
    Text text{static_cast<char *>(kivCS2ZeroMalloc(static_cast<size_t>(room) + known->terminatorBytes))};
    if (!text)
        return KIVCS2STATUS_MEMORY_ERR;
    CFIndex used = 0;
    const CFIndex converted = CFStringGetBytes(cfString, wholeRange(cfString), known->system, 0, false,
                                               reinterpret_cast<UInt8 *>(text.get()), room, &used);
    if (converted == 0)
        return KIVCS2STATUS_CAPTION_ERR; // Kept: the status of a failed conversion, for the empty string too
    const uint64_t bytes = static_cast<uint64_t>(used) + known->terminatorBytes;
    if (bytes > kLargestText)
        return KIVCS2STATUS_MEMORY_ERR;
    if (bytesUsed != nullptr)
        *bytesUsed = static_cast<uint32_t>(bytes);
    *cString = text.release();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2String_getBytesUsed(CFStringRef string, KIVCS2StringEncoding encoding, uint32_t *bytesUsed)
{
    KIV_CHECK_AS(string != nullptr, "(string) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(bytesUsed != nullptr, "(bytesUsed) != NULL", KIVCS2STATUS_PARAM_ERR);

    const Encoding *known = findEncoding(encoding);
    if (known == nullptr || CFStringGetLength(string) == 0)
        return KIVCS2STATUS_PARAM_ERR;
    CFIndex used = 0;
    if (CFStringGetBytes(string, wholeRange(string), known->system, 0, false, nullptr, 0, &used) == 0)
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    const uint64_t bytes = static_cast<uint64_t>(used) + known->terminatorBytes;
    if (bytes > kLargestText)
        return KIVCS2STATUS_MEMORY_ERR;
    *bytesUsed = static_cast<uint32_t>(bytes);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2String_convertCString(const void *source, uint32_t length,
                                         KIVCS2StringEncoding sourceEncoding, char **destination,
                                         KIVCS2StringEncoding destinationEncoding, uint32_t *bytesUsed)
{
    KIV_CHECK_AS(source != nullptr, "(source) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(destination != nullptr, "(destination) != NULL", KIVCS2STATUS_PARAM_ERR);
    if (findEncoding(sourceEncoding) == nullptr || findEncoding(destinationEncoding) == nullptr)
        return KIVCS2STATUS_PARAM_ERR;

    *destination = nullptr;
    CFStringRef object = nullptr;
    KIV_TRY(kivCS2String_createCFStringWithEncoding(source, length, &object, sourceEncoding));
    const kiv::CFRef<CFStringRef> string{object};
    return kivCS2String_createCStringFromCFStringWithEncoding(string.get(), destination, destinationEncoding,
                                                              bytesUsed);
}

KIVCS2Status kivCS2String_freeCString(char *string)
{
    KIV_CHECK(string);

    std::free(string);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2String_detectEncoding(const void *source, uint32_t length, KIVCS2StringEncoding *encoding,
                                         uint32_t *bomLength)
{
    KIV_CHECK(source);
    KIV_CHECK(encoding);

    for (const Mark &mark : kMarks)
    {
        if (length < mark.length || std::memcmp(source, mark.bytes.data(), mark.length) != 0)
            continue;
        *encoding = mark.encoding;
        if (bomLength != nullptr)
            *bomLength = mark.length;
        return KIVCS2STATUS_OK;
    }
    return KIVCS2STATUS_UNSUPPORTED_ERR;
}

KIVCS2Status kivCS2String_OSTypeToString(uint32_t code, char *buffer, uint32_t size)
{
    KIV_CHECK(buffer);
    if (size < kOSTypeTextSize)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;

    for (int shift = 24; shift >= 0; shift -= 8)
        *buffer++ = static_cast<char>((code >> shift) & 0xFF);
    *buffer = '\0';
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2String_copy(char *dest, const char *source, uint32_t size)
{
    KIV_CHECK(dest);
    KIV_CHECK(source);

    const size_t length = std::strlen(source);
    if (length >= size)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;
    std::memcpy(dest, source, length + 1);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2String_createCopy(char **dest, const char *source)
{
    KIV_CHECK(source);
    KIV_CHECK(dest);

    const size_t length = std::strlen(source);
    // Room for the terminator of a 16-bit text as well.
    *dest = static_cast<char *>(std::malloc(length + 2));
    if (*dest == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    std::memcpy(*dest, source, length);
    std::memset(*dest + length, 0, 2);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2String_separateCFString(CFStringRef cfString, const char *separator, CFArrayRef *array)
{
    KIV_CHECK(cfString);
    KIV_CHECK(separator);
    KIV_CHECK(array);

    *array = nullptr;
    CFStringRef object = nullptr;
    KIV_TRY(kivCS2String_createCFStringWithEncoding(separator, KIVCS2_STRING_MEASURE, &object,
                                                    KIVCS2StringEncoding_ASCII));
    const kiv::CFRef<CFStringRef> separatorString{object};
    *array = CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, cfString, separatorString.get());
    return *array != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2String_createBundleResourcePath(const char *name, const char *type,
                                                   CFStringRef *resourcePath)
{
    KIV_CHECK(name);
    KIV_CHECK(resourcePath);

    *resourcePath = nullptr;
    const CFBundleRef bundle = CFBundleGetMainBundle();
    if (bundle == nullptr)
        return KIVCS2STATUS_PATH_ERR;

    CFStringRef object = nullptr;
    KIV_TRY(kivCS2String_createCFStringWithEncoding(name, KIVCS2_STRING_MEASURE, &object,
                                                    KIVCS2StringEncoding_ASCII));
    const kiv::CFRef<CFStringRef> nameString{object};
    object = nullptr;
    if (type != nullptr)
        KIV_TRY(kivCS2String_createCFStringWithEncoding(type, KIVCS2_STRING_MEASURE, &object,
                                                        KIVCS2StringEncoding_ASCII));
    const kiv::CFRef<CFStringRef> typeString{object};

    const kiv::CFRef<CFURLRef> location{
        CFBundleCopyResourceURL(bundle, nameString.get(), typeString.get(), nullptr)};
    if (location)
        *resourcePath = CFURLCopyFileSystemPath(location.get(), kCFURLPOSIXPathStyle);
    return *resourcePath != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_SYSTEM_ERR;
}

KIVCS2Status kivCS2String_createUIDCFString(CFStringRef *cfString)
{
    KIV_CHECK(cfString);

    *cfString = nullptr;
    const kiv::CFRef<CFUUIDRef> identifier{CFUUIDCreate(kCFAllocatorDefault)};
    if (identifier)
        *cfString = CFUUIDCreateString(kCFAllocatorDefault, identifier.get());
    return *cfString != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2String_createUIDCString(char *buffer, uint32_t size)
{
    KIV_CHECK(buffer);

    CFStringRef object = nullptr;
    KIV_TRY(kivCS2String_createUIDCFString(&object));
    const kiv::CFRef<CFStringRef> identifier{object};
    const bool fits = CFStringGetCString(identifier.get(), buffer, size, kCFStringEncodingASCII) != 0;
    return fits ? KIVCS2STATUS_OK : KIVCS2STATUS_BUFFER_SIZE_ERR;
}

KIVCS2Status kivCS2String_getCFStringLastPathComponent(CFStringRef cfString, CFStringRef *cfLastPathComponent)
{
    KIV_CHECK(cfString);
    KIV_CHECK(cfLastPathComponent);

    *cfLastPathComponent = nullptr;
    char *block = nullptr;
    uint32_t bytes = 0;
    const KIVCS2Status status = kivCS2String_createCStringFromCFStringWithEncoding(
        cfString, &block, KIVCS2StringEncoding_FileSystem, &bytes);
    const Text path{block}; // also releases the block of a failed conversion
    KIV_TRY(status);

    const kiv::CFRef<CFURLRef> location{CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8 *>(path.get()), static_cast<CFIndex>(bytes) - 1,
        false)};
    *cfLastPathComponent =
        location ? CFURLCopyLastPathComponent(location.get()) : static_cast<CFStringRef>(CFRetain(cfString));
    return *cfLastPathComponent != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2String_createStringByExpandingTilde(const char *path, char **expandedPath)
{
    KIV_CHECK_AS(path != nullptr, "(path) != NULL", KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(expandedPath != nullptr, "(expandedPath) != NULL", KIVCS2STATUS_PARAM_ERR);

    *expandedPath = nullptr;
    if (path[0] != '~')
    {
        // Kept: success whatever the copy returned; callers test the pointer.
        (void)kivCS2String_createCopy(expandedPath, path);
        return KIVCS2STATUS_OK;
    }
    const HomeDirectory home;
    if (home.path() == nullptr)
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    // The "~" is dropped and the terminator added, so the size is exactly the sum of both lengths.
    const size_t size = std::strlen(home.path()) + std::strlen(path);
    *expandedPath = static_cast<char *>(std::malloc(size));
    if (*expandedPath == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    std::snprintf(*expandedPath, size, "%s%s", home.path(), path + 1);
    return KIVCS2STATUS_OK;
}
