// UTF-8 to UTF-16: the text codec, compared with ICU and iconv, and the making of whole system strings.
#include <CoreFoundation/CoreFoundation.h>

#include "CoreFoundation/Encoding.h"

#include <benchmark/benchmark.h>

#include <iconv.h>
#ifdef KIV_PEER_ICU
#include <unicode/ustring.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{
using Convert = size_t (*)(const std::string &bytes, std::vector<char16_t> &out);

size_t ours(const std::string &bytes, std::vector<char16_t> &out)
{
    return kiv::text::utf16FromUtf8({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()},
                                    out.data())
        .value_or(0);
}

#ifdef KIV_PEER_ICU
size_t libicu(const std::string &bytes, std::vector<char16_t> &out)
{
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &length, bytes.data(),
                  static_cast<int32_t>(bytes.size()), &status);
    return static_cast<size_t>(length);
}
#endif

size_t libcIconv(const std::string &bytes, std::vector<char16_t> &out)
{
    static const iconv_t converter = iconv_open("UTF-16LE", "UTF-8"); // opening is not timed
    char *in = const_cast<char *>(bytes.data());                      // iconv does not write to it
    size_t inLeft = bytes.size();
    char *to = reinterpret_cast<char *>(out.data());
    size_t toLeft = out.size() * sizeof(char16_t);
    iconv(converter, &in, &inLeft, &to, &toLeft);
    return out.size() - toLeft / sizeof(char16_t);
}

std::string sample(bool mixed, size_t size)
{
    const std::string piece =
        mixed ? "Caf\xc3\xa9 \xe2\x99\xaa na\xc3\xafve \xd0\x9f\xd1\x80\xd0\xb8 text \xf0\x9f\x98\x80 "
              : "The quick brown fox jumps over it. ";
    std::string text;
    while (text.size() + piece.size() <= size)
        text += piece;
    return text.append(size - text.size(), '.');
}

void run(benchmark::State &state, Convert convert, bool mixed)
{
    const std::string bytes = sample(mixed, static_cast<size_t>(state.range(0)));
    std::vector<char16_t> out(bytes.size());
    std::vector<char16_t> expected(bytes.size());
    if (convert(bytes, out) != ours(bytes, expected) || out != expected)
    {
        std::fprintf(stderr, "the results differ\n");
        std::exit(1);
    }
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(bytes.data());
        benchmark::DoNotOptimize(convert(bytes, out));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// The cost of making a system string from a caption line and releasing it.
void stringObject(benchmark::State &state, bool mixed)
{
    const std::string bytes = sample(mixed, static_cast<size_t>(state.range(0)));
    for (auto _ : state)
    {
        CFStringRef string =
            CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(bytes.data()),
                                    static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, false);
        benchmark::DoNotOptimize(string);
        CFRelease(string);
    }
}
} // namespace

int main(int argc, char **argv)
{
    struct Peer
    {
        const char *name;
        Convert convert;
    };
    const Peer peers[] = {
        {"ours", ours},
#ifdef KIV_PEER_ICU
        {"icu", libicu},
#endif
        {"iconv", libcIconv},
    };
    for (const bool mixed : {false, true})
    {
        const std::string operation = mixed ? "UTF8toUTF16mixed/" : "UTF8toUTF16/";
        for (const Peer &peer : peers)
            benchmark::RegisterBenchmark((operation + peer.name).c_str(), run, peer.convert, mixed)
                ->Arg(64)
                ->Arg(4096);
        benchmark::RegisterBenchmark(mixed ? "StringMixed/ours" : "String/ours", stringObject, mixed)
            ->Arg(64);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
}
