// Conversion of short texts between encodings, compared with iconv, whose converter stays open.
#include <KIVCoreServices2/KIVCS2String.h>

#include <benchmark/benchmark.h>

#include <iconv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{
struct Conversion
{
    const char *name;
    KIVCS2StringEncoding from;
    KIVCS2StringEncoding to;
    const char *iconvFrom;
    const char *iconvTo;
    const char *utf8; // the text to convert
};

// A caption row has 32 columns; the second text is typical of languages with accents.
constexpr const char *kPlain = "We now return to our programme.";
constexpr const char *kAccented = "\u00c7a ira, d\u00e9j\u00e0 vu \u00e0 No\u00ebl, s\u00fbr.";
constexpr const char *kWorld = "\u266a \u041f\u0440\u0438\u0432\u0435\u0442, \u65e5\u672c\u8a9e \u266a";

constexpr auto kUTF8 = KIVCS2StringEncoding_UTF8;
constexpr auto kUTF16LE = KIVCS2StringEncoding_UTF16LE;
constexpr auto kUTF16BE = KIVCS2StringEncoding_UTF16BE;
constexpr auto kUTF32LE = KIVCS2StringEncoding_UTF32LE;
constexpr auto kLatin1 = KIVCS2StringEncoding_ISOLatin1;

constexpr Conversion kConversions[] = {
    {"ConvertPlainUTF8toUTF16LE", kUTF8, kUTF16LE, "UTF-8", "UTF-16LE", kPlain},
    {"ConvertPlainUTF16LEtoUTF8", kUTF16LE, kUTF8, "UTF-16LE", "UTF-8", kPlain},
    {"ConvertPlainUTF8toLatin1", kUTF8, kLatin1, "UTF-8", "ISO-8859-1", kPlain},
    {"ConvertAccentedLatin1toUTF8", kLatin1, kUTF8, "ISO-8859-1", "UTF-8", kAccented},
    {"ConvertAccentedUTF8toLatin1", kUTF8, kLatin1, "UTF-8", "ISO-8859-1", kAccented},
    {"ConvertAccentedUTF8toUTF16LE", kUTF8, kUTF16LE, "UTF-8", "UTF-16LE", kAccented},
    {"ConvertWorldUTF8toUTF16BE", kUTF8, kUTF16BE, "UTF-8", "UTF-16BE", kWorld},
    {"ConvertWorldUTF16BEtoUTF8", kUTF16BE, kUTF8, "UTF-16BE", "UTF-8", kWorld},
    {"ConvertWorldUTF32LEtoUTF8", kUTF32LE, kUTF8, "UTF-32LE", "UTF-8", kWorld},
};

// A new block with the text and its terminator, like ours; at most four bytes for each byte of the source.
char *libcIconv(iconv_t converter, const std::string &source, size_t *used)
{
    const size_t room = 4 * source.size() + 4;
    auto *block = static_cast<char *>(std::malloc(room));
    char *in = const_cast<char *>(source.data()); // iconv does not write to it
    char *to = block;
    size_t inLeft = source.size();
    size_t toLeft = room - 4;
    iconv(converter, &in, &inLeft, &to, &toLeft);
    std::memset(to, 0, 4);
    *used = static_cast<size_t>(to - block);
    return block;
}

// Returns the text in the source encoding, made by iconv for our code and for the peer.
std::string sourceOf(const Conversion &conversion)
{
    const iconv_t converter = iconv_open(conversion.iconvFrom, "UTF-8");
    size_t used = 0;
    char *block = libcIconv(converter, conversion.utf8, &used);
    std::string source(block, used);
    std::free(block);
    iconv_close(converter);
    return source;
}

void runOurs(benchmark::State &state, const Conversion &conversion)
{
    const std::string source = sourceOf(conversion);
    for (auto _ : state)
    {
        char *text = nullptr;
        uint32_t used = 0;
        kivCS2String_convertCString(source.data(), static_cast<uint32_t>(source.size()), conversion.from,
                                    &text, conversion.to, &used);
        benchmark::DoNotOptimize(text);
        kivCS2String_freeCString(text);
    }
}

void runIconv(benchmark::State &state, const Conversion &conversion)
{
    const std::string source = sourceOf(conversion);
    const iconv_t converter = iconv_open(conversion.iconvTo, conversion.iconvFrom);
    for (auto _ : state)
    {
        size_t used = 0;
        char *text = libcIconv(converter, source, &used);
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
    iconv_close(converter);
}

bool agree(const Conversion &conversion)
{
    const std::string source = sourceOf(conversion);
    const iconv_t converter = iconv_open(conversion.iconvTo, conversion.iconvFrom);
    size_t expectedSize = 0;
    char *expected = libcIconv(converter, source, &expectedSize);
    iconv_close(converter);
    char *text = nullptr;
    uint32_t used = 0;
    uint32_t terminator = 0;
    kivCS2String_getNullTerminatorLength(conversion.to, &terminator);
    const bool same =
        !KIVCS2_FAILED(kivCS2String_convertCString(source.data(), static_cast<uint32_t>(source.size()),
                                                   conversion.from, &text, conversion.to, &used)) &&
        used == expectedSize + terminator && std::memcmp(text, expected, used) == 0;
    std::free(expected);
    if (text != nullptr)
        kivCS2String_freeCString(text);
    return same;
}
} // namespace

int main(int argc, char **argv)
{
    for (const Conversion &conversion : kConversions)
    {
        if (!agree(conversion))
        {
            std::fprintf(stderr, "%s: the results differ\n", conversion.name);
            return 1;
        }
        const std::string operation = conversion.name;
        benchmark::RegisterBenchmark((operation + "/ours").c_str(), runOurs, conversion);
        benchmark::RegisterBenchmark((operation + "/iconv").c_str(), runIconv, conversion);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
}
