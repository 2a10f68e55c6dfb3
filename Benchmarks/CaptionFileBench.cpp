// Reading whole files with the tolerant reader, with and without decoding, compared with the older readers
// and libavformat's demuxers; seeking in a million captions. The contents read are checked before timing.
#include "Support/CaptionFiles.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

namespace
{
using namespace kiv::bench;

KIVCS2Status countText(const KIVCS2CaptionText *text, void *context)
{
    *static_cast<uint64_t *>(context) += text->m_textSize;
    return KIVCS2STATUS_OK;
}

// Reads a file whose timecodes count 25 frames a second.
struct Reading
{
    KIVCS2FileStream stream;
    KIVCS2CaptionFile file;

    explicit Reading(const std::string &path)
    {
        KIVCS2CaptionReadOptions options{};
        options.m_counting = KIVCS2CaptionCounting_25;
        require(KIVCS2_SUCCEEDED(kivCS2FileStream_init(&stream, path.c_str(), "rb")),
                "cannot open a caption file");
        require(KIVCS2_SUCCEEDED(kivCS2CaptionFile_initReading(&file, &stream.m_stream, true, &options)),
                "no reader");
    }
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;
    ~Reading()
    {
        (void)kivCS2CaptionFile_free(&file);
    }
};

template <bool Decoded, bool IsSCC>
Totals tolerant(const std::string &path)
{
    Reading reading{path};
    uint64_t text = 0;
    KIVCS2CaptionDecoder decoder{};
    if (Decoded)
        require(KIVCS2_SUCCEEDED(kivCS2CaptionDecoder_init(&decoder, nullptr, nullptr, countText, &text)),
                "no decoder");
    Totals totals;
    KIVCS2CaptionPacket packet;
    while (KIVCS2_SUCCEEDED(kivCS2CaptionFile_readPacket(&reading.file, &packet)))
    {
        ++totals.captions;
        totals.bytes += IsSCC ? 2u * packet.m_tripletCount : 3u * packet.m_tripletCount;
        if (Decoded)
            (void)kivCS2CaptionDecoder_feed(&decoder, &packet); // the callback never refuses
    }
    (void)kivCS2CaptionDecoder_free(&decoder);
    benchmark::DoNotOptimize(text);
    return totals;
}

// Seeks in a file of a million lines that has been read once.
void runSeek(benchmark::State &state)
{
    constexpr uint32_t kLines = 1'000'000;
    const std::string path = (files().folder / "seek.scc").string();
    {
        std::ofstream out{path, std::ios::binary};
        out << "Scenarist_SCC V1.0\n";
        char line[64];
        for (uint32_t frame = 0; frame < 2 * kLines; frame += 2)
        {
            std::snprintf(line, sizeof line, "%02u:%02u:%02u:%02u\t9420\n", frame / 90000, frame / 1500 % 60,
                          frame / 25 % 60, frame % 25);
            out << line;
        }
    }
    Reading reading{path};
    KIVCS2CaptionPacket packet;
    uint32_t count = 0;
    while (KIVCS2_SUCCEEDED(kivCS2CaptionFile_readPacket(&reading.file, &packet)))
        ++count;
    require(count == kLines, "the file of a million lines reads differently");
    uint32_t frame = 1;
    for (auto _ : state)
    {
        frame = frame * 1103515245u + 12345u;
        const uint32_t wanted = frame % (2 * kLines - 2);
        require(KIVCS2_SUCCEEDED(kivCS2CaptionFile_seek(&reading.file, wanted)) &&
                    KIVCS2_SUCCEEDED(kivCS2CaptionFile_readPacket(&reading.file, &packet)) &&
                    packet.m_frame == (wanted + 1) / 2 * 2,
                "a seek leads elsewhere");
    }
}
} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const Totals mcc{kCaptions, kCaptions * kTripletBytes};
    const Totals scc{kPairs, 2 * uint64_t{kPairs}};
    const auto file = [](const char *name, ReadFile read, bool isMCC, Totals expected)
    {
        benchmark::RegisterBenchmark(name, [=](benchmark::State &state)
                                     { runFile(state, read, isMCC ? files().mcc : files().scc, expected); })
            ->Unit(benchmark::kMillisecond);
    };
    file("CaptionMCC/ours", tolerant<false, false>, true, mcc);
    file("CaptionMCCDescribed/ours", tolerant<false, false>, true, mcc);
    file("CaptionMCCDescribed/described", oursMCC, true, mcc);
    file("CaptionMCCDecoded/ours", tolerant<true, false>, true, mcc);
    file("CaptionSCC/ours", tolerant<false, true>, false, scc);
    file("CaptionSCCDescribed/ours", tolerant<false, true>, false, scc);
    file("CaptionSCCDescribed/described", oursSCC, false, scc);
    file("CaptionSCCDecoded/ours", tolerant<true, true>, false, scc);
#if KIV_PEER_AVFORMAT && KIV_PEER_AVCODEC
    file("CaptionMCC/avformat", avformat, true, mcc);
    file("CaptionSCC/avformat", avformat, false, {kPairs / kPairsPerLine, 3 * uint64_t{kPairs}});
#endif
    benchmark::RegisterBenchmark("CaptionSeek/ours", runSeek)->Unit(benchmark::kMicrosecond);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
