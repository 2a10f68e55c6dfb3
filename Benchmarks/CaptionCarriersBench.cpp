// The search for ancillary packets, compared with a plain loop over the words and with memmem, in a v210 line
// of picture without a packet and in a mebibyte of 10-bit words. Before timing, each search must find the
// packet at the end.
#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace
{
using Bytes = std::vector<uint8_t>;

void require(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "CaptionCarriersBench: %s\n", what);
    exit(1);
}

// Three words in 32 bits, without any packet.
Bytes lineOf(size_t width)
{
    std::minstd_rand random{210};
    Bytes line((width + 47) / 48 * 128);
    for (size_t at = 0; at < line.size(); at += 4)
    {
        uint32_t four = 0;
        for (int sample = 0; sample < 3; ++sample)
            four = four << 10 | static_cast<uint32_t>(4 + random() % 1016);
        std::memcpy(&line[at], &four, sizeof four);
    }
    return line;
}

Bytes wordsOf(size_t size)
{
    std::minstd_rand random{291};
    Bytes words(size);
    for (size_t at = 0; at < size; at += 2)
    {
        const auto word = static_cast<uint32_t>(4 + random() % 1016);
        words[at] = static_cast<uint8_t>(word >> 8);
        words[at + 1] = static_cast<uint8_t>(word);
    }
    return words;
}

// Returns the number of bytes before the flag, or the size if there is no flag.
using Find = size_t (*)(const Bytes &);

template <KIVCS2CaptionCarrier Form>
size_t ours(const Bytes &bytes)
{
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPlace place;
    uint64_t at = 0;
    const KIVCS2Status status =
        kivCS2CaptionPacket_find(Form, bytes.data(), bytes.size(), &at, &packet, &place);
    return KIVCS2_SUCCEEDED(status) ? place.m_offset : bytes.size();
}

// Reads the channel's samples one by one and counts the words of the flag.
size_t plainLine(const Bytes &bytes)
{
    unsigned seen = 0;
    for (size_t sample = 1; sample / 3 * 4 < bytes.size(); sample += 2)
    {
        uint32_t four = 0;
        std::memcpy(&four, &bytes[sample / 3 * 4], sizeof four);
        const uint32_t word = four >> 10 * (sample % 3) & 0x3FF;
        seen = word == 0 ? 1 : word == 0x3FF && seen > 0 ? seen + 1 : 0;
        if (seen == 3)
            return (sample - 4) / 3 * 4 + (sample - 4) % 3;
    }
    return bytes.size();
}

size_t plainWords(const Bytes &bytes)
{
    unsigned seen = 0;
    for (size_t at = 0; at < bytes.size(); at += 2)
    {
        const uint32_t word = (bytes[at] << 8 | bytes[at + 1]) & 0x3FF;
        seen = word == 0 ? 1 : word == 0x3FF && seen > 0 ? seen + 1 : 0;
        if (seen == 3)
            return at - 4;
    }
    return bytes.size();
}

// Finds the flag only if its six upper bits are clear, and may also find it at an odd place.
size_t memmemWords(const Bytes &bytes)
{
    static constexpr uint8_t kFlag[] = {0, 0, 3, 0xFF, 3, 0xFF};
    const void *const found = memmem(bytes.data(), bytes.size(), kFlag, sizeof kFlag);
    return found == nullptr ? bytes.size()
                            : static_cast<size_t>(static_cast<const uint8_t *>(found) - bytes.data());
}

void add(const std::string &name, size_t argument, Find find, const Bytes &bytes, const Bytes &withPacket,
         size_t place)
{
    require(find(bytes) == bytes.size(), "a packet in the picture");
    require(find(withPacket) == place, "the packet is found elsewhere");
    benchmark::RegisterBenchmark((name + "/" + std::to_string(argument)).c_str(),
                                 [=, &bytes](benchmark::State &state)
                                 {
                                     for (auto _ : state)
                                         benchmark::DoNotOptimize(find(bytes));
                                     state.SetBytesProcessed(
                                         static_cast<int64_t>(state.iterations() * bytes.size()));
                                 });
}

KIVCS2CaptionPacket packet()
{
    KIVCS2CaptionPacket made;
    require(KIVCS2_SUCCEEDED(kivCS2CaptionPacket_build(&made, KIVCS2CaptionCounting_59_94NDF, 1, nullptr,
                                                       nullptr, nullptr, 0)),
            "no packet");
    return made;
}
} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const KIVCS2CaptionPacket one = packet();
    static std::vector<Bytes> kept;
    kept.reserve(3);
    for (const size_t width : {size_t{1920}, size_t{3840}})
    {
        const Bytes &line = kept.emplace_back(lineOf(width));
        Bytes with = line;
        KIVCS2CaptionPlace place{};
        place.m_horizontal = static_cast<uint16_t>(width - 200);
        uint64_t size = with.size();
        require(KIVCS2_SUCCEEDED(kivCS2CaptionPacket_wrap(KIVCS2CaptionCarrier_V210Luma, &one, 1, &place,
                                                          nullptr, with.data(), &size)),
                "the packet does not fit");
        const size_t at = ours<KIVCS2CaptionCarrier_V210Luma>(with);
        add("AncScan_v210/ours", width, ours<KIVCS2CaptionCarrier_V210Luma>, line, with, at);
        add("AncScan_v210/plain", width, plainLine, line, with, at);
    }
    const Bytes &words = kept.emplace_back(wordsOf(1 << 20));
    Bytes with = words;
    uint64_t size = 1000;
    const size_t at = with.size() - size;
    require(KIVCS2_SUCCEEDED(kivCS2CaptionPacket_wrap(KIVCS2CaptionCarrier_10BitWithADF, &one, 1, nullptr,
                                                      nullptr, &with[at], &size)),
            "the packet does not fit");
    add("AncScan_10bit/ours", words.size(), ours<KIVCS2CaptionCarrier_10BitWithADF>, words, with, at);
    add("AncScan_10bit/plain", words.size(), plainWords, words, with, at);
    add("AncScan_10bit/memmem", words.size(), memmemWords, words, with, at);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
