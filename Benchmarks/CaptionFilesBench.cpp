// Hexadecimal text, compared with boost and a byte table; whole MCC and SCC files, compared with
// libavformat's demuxers. Packet counts and bytes are checked to be equal before timing.
#include "Private/Captions/Hex.h"
#include "Support/CaptionFiles.h"

#include <benchmark/benchmark.h>

#if KIV_PEER_BOOST
#include <boost/algorithm/hex.hpp>
#endif

#include <array>
#include <string>
#include <vector>

namespace
{
using namespace kiv::bench;

// ---- Hexadecimal digits ----

constexpr size_t kPacketSize = 86; // a 608 CDP as an ancillary packet

using Packet = std::array<uint8_t, kPacketSize>;
using DecodeHex = void (*)(const std::string &text, Packet &out);

void oursHex(const std::string &text, Packet &out)
{
    benchmark::DoNotOptimize(kiv::decodeHexPairs(text, out));
}

void tableHex(const std::string &text, Packet &out)
{
    static const std::array<int8_t, 256> table = []
    {
        std::array<int8_t, 256> made;
        made.fill(-1);
        for (int value = 0; value < 16; ++value)
            made["0123456789ABCDEF"[value]] = static_cast<int8_t>(value);
        return made;
    }();
    for (size_t index = 0; index < out.size(); ++index)
    {
        const int high = table[static_cast<uint8_t>(text[2 * index])];
        const int low = table[static_cast<uint8_t>(text[2 * index + 1])];
        if ((high | low) < 0)
            return;
        out[index] = static_cast<uint8_t>(high << 4 | low);
    }
}

#if KIV_PEER_BOOST
void boostHex(const std::string &text, Packet &out)
{
    boost::algorithm::unhex(text.begin(), text.end(), out.begin());
}
#endif

void runHex(benchmark::State &state, DecodeHex decode)
{
    Packet bytes;
    std::string text;
    for (size_t index = 0; index < bytes.size(); ++index)
    {
        bytes[index] = static_cast<uint8_t>(index * 151 + 7);
        text += "0123456789ABCDEF"[bytes[index] >> 4];
        text += "0123456789ABCDEF"[bytes[index] & 15];
    }
    Packet out{};
    decode(text, out);
    require(out == bytes, "86 bytes of digits decode differently");
    for (auto _ : state)
    {
        decode(text, out);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RegisterBenchmark("HexDecode/ours/86", runHex, oursHex);
    benchmark::RegisterBenchmark("HexDecode/table/86", runHex, tableHex);
#if KIV_PEER_BOOST
    benchmark::RegisterBenchmark("HexDecode/boost/86", runHex, boostHex);
#endif
    const Totals mcc{kCaptions, kCaptions * kTripletBytes};
    const auto file = [](const char *name, ReadFile read, bool isMCC, Totals expected)
    {
        benchmark::RegisterBenchmark(name, [=](benchmark::State &state)
                                     { runFile(state, read, isMCC ? files().mcc : files().scc, expected); })
            ->Unit(benchmark::kMillisecond);
    };
    file("MCCRead/ours", oursMCC, true, mcc);
    file("SCCRead/ours", oursSCC, false, {kPairs, 2 * uint64_t{kPairs}});
#if KIV_PEER_AVFORMAT && KIV_PEER_AVCODEC
    file("MCCRead/avformat", avformat, true, mcc);
    file("SCCRead/avformat", avformat, false, {kPairs / kPairsPerLine, 3 * uint64_t{kPairs}});
#endif
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
