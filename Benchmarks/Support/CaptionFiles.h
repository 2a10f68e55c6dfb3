// Makes caption files for benchmarks, reads them with the library's readers and with libavformat, and checks
// the contents before timing.
#ifndef KIV_BENCH_CAPTION_FILES_H
#define KIV_BENCH_CAPTION_FILES_H

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2FileStream.h>
#include <KIVCoreServices2/KIVCS2Timecode.h>

#include <benchmark/benchmark.h>

#if KIV_PEER_AVFORMAT && KIV_PEER_AVCODEC
extern "C"
{
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}
#endif

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace kiv::bench
{
inline void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

inline constexpr uint32_t kCaptions = 570'000; // six hours and twenty minutes at 25 frames per second
inline constexpr uint32_t kPairsPerLine = 20;
inline constexpr uint32_t kPairs = 2'000'000;
inline constexpr uint64_t kTripletBytes = 60; // 20 triplets in each packet

struct Totals
{
    uint64_t captions = 0;
    uint64_t bytes = 0; // MCC: of triplets; SCC: of pairs
    bool operator==(const Totals &) const = default;
};

// A folder for this run's files, removed at its end.
struct Files
{
    std::filesystem::path folder;
    std::string mcc;
    std::string scc;

    Files()
    {
        std::string made = (std::filesystem::temp_directory_path() / "captions-XXXXXX").string();
        require(mkdtemp(made.data()) != nullptr, "no temporary folder");
        folder = made;
        mcc = (folder / "captions.mcc").string();
        scc = (folder / "captions.scc").string();
        require(KIVCS2_SUCCEEDED(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25)), "no frame rate");
        writeMCC();
        writeSCC();
    }
    ~Files()
    {
        std::error_code ignored; // a folder that cannot be removed stays
        std::filesystem::remove_all(folder, ignored);
    }

private:
    // Every packet has counters, a field 1 pair and three triplets of changing 708 data.
    void writeMCC() const
    {
        KIVCS2FileStream stream;
        require(KIVCS2_SUCCEEDED(kivCS2FileStream_init(&stream, mcc.c_str(), "wb")),
                "cannot write the MCC file");
        KIVCS2ClosedCaptionsMCCStream out;
        (void)kivCS2ClosedCaptionsMCCStream_init(&out, &stream.m_stream, false, true);
        KIVCS2Status status =
            kivCS2ClosedCaptionsMCCStream_writeHeader(&out, 1, nullptr, "bench", nullptr, nullptr);
        for (uint32_t index = 0; index < kCaptions && KIVCS2_SUCCEEDED(status); ++index)
        {
            const uint16_t pair = static_cast<uint16_t>(0x4141u + index % 26 * 0x0101u);
            uint8_t cdp[82];
            uint32_t size = sizeof cdp;
            const auto sequence = static_cast<uint16_t>(index);
            (void)kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(&pair, 2, cdp, &size,
                                                                               sequence);
            for (size_t at = 15; at < 24; ++at)
                cdp[at] = static_cast<uint8_t>(at % 3 == 0 ? 0xFE + (at == 15 ? 1 : 0) : index * at + 17);
            (void)kivCS2ClosedCaptions_setSMPTE334CDP708PacketSequenceNumber(false, cdp, size, sequence);
            KIVCS2ClosedCaption caption;
            const KIVCS2Timecode timecode = index;
            (void)kivCS2ClosedCaptionsMCCStream_initCaptionWithSMPTE334CDP708Packet(&out, &caption, &timecode,
                                                                                    cdp, size);
            status = kivCS2ClosedCaptionsMCCStream_writeCaption(&out, &caption);
        }
        require(KIVCS2_SUCCEEDED(status), "cannot write the MCC file");
        (void)kivCS2ClosedCaptionsMCCStream_free(&out);
    }
    void writeSCC() const
    {
        std::ofstream out{scc, std::ios::binary};
        out << "Scenarist_SCC V1.0\n";
        for (uint32_t start = 0; start < kPairs; start += kPairsPerLine)
        {
            char head[32];
            std::snprintf(head, sizeof head, "\n%02u:%02u:%02u:%02u\t", start / 90000, start / 1500 % 60,
                          start / 25 % 60, start % 25);
            out << head;
            for (uint32_t index = 0; index < kPairsPerLine; ++index)
            {
                char word[8];
                std::snprintf(word, sizeof word, index == 0 ? "%04x" : " %04x",
                              0x4142 + (start + index) % 0x1F1F);
                out << word;
            }
            out << '\n';
        }
        require(out.good(), "cannot write the SCC file");
    }
};

inline const Files &files()
{
    static const Files made;
    return made;
}

// Opens a caption file, reads every frame and returns the totals that `look` counts.
template <class ReadHeader, class Read, class Look>
Totals readFrames(const std::string &path, uint32_t frames, ReadHeader readHeader, Read read, Look look)
{
    KIVCS2FileStream stream;
    require(KIVCS2_SUCCEEDED(kivCS2FileStream_init(&stream, path.c_str(), "rb")),
            "cannot open a caption file");
    KIVCS2ClosedCaptionsMCCStream mcc;
    (void)kivCS2ClosedCaptionsMCCStream_init(&mcc, &stream.m_stream, true, true);
    require(KIVCS2_SUCCEEDED(readHeader(&mcc)), "a caption file's header is wrong");
    Totals totals;
    for (uint32_t frame = 0; frame < frames; ++frame)
    {
        const KIVCS2Timecode timecode = frame;
        KIVCS2ClosedCaption caption;
        if (KIVCS2_FAILED(read(&mcc, &timecode, &caption)))
            break;
        ++totals.captions;
        totals.bytes += look(caption);
    }
    (void)kivCS2ClosedCaptionsMCCStream_free(&mcc);
    return totals;
}

inline Totals oursMCC(const std::string &path)
{
    return readFrames(path, kCaptions, kivCS2ClosedCaptionsMCCStream_readHeader,
                      kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode,
                      [](const KIVCS2ClosedCaption &caption)
                      {
                          const uint32_t triplets = caption.m_captionData[3 + 8] & 0x1Fu;
                          return uint64_t{3} * triplets;
                      });
}

inline Totals oursSCC(const std::string &path)
{
    return readFrames(path, kPairs, kivCS2ClosedCaptionsSCCStream_readHeader,
                      kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode,
                      [](const KIVCS2ClosedCaption &caption) { return uint64_t{caption.m_captionSize}; });
}

#if KIV_PEER_AVFORMAT && KIV_PEER_AVCODEC
// The demuxers deliver triplets: those of a CDP unchanged, and one for every SCC pair.
inline Totals avformat(const std::string &path)
{
    AVFormatContext *context = nullptr;
    require(avformat_open_input(&context, path.c_str(), nullptr, nullptr) == 0,
            "libavformat cannot open a file");
    AVPacket *packet = av_packet_alloc();
    Totals totals;
    while (av_read_frame(context, packet) == 0)
    {
        ++totals.captions;
        totals.bytes += static_cast<uint64_t>(packet->size);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
    return totals;
}
#endif

// A value of /proc/self/status in KiB.
inline double memoryOf(const std::string &name)
{
    std::ifstream status{"/proc/self/status"};
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name + ":"))
            return std::strtod(line.c_str() + name.size() + 1, nullptr);
    return 0;
}

using ReadFile = Totals (*)(const std::string &path);

inline void runFile(benchmark::State &state, ReadFile read, const std::string &path, Totals expected)
{
    // The peak of one run above the memory resident before it; "5" resets the kernel's peak.
    std::ofstream{"/proc/self/clear_refs"} << 5 << std::flush;
    const double before = memoryOf("VmRSS");
    const Totals totals = read(path);
    state.counters["peakKiB"] = memoryOf("VmHWM") - before;
    if (totals != expected)
        std::fprintf(stderr, "%llu captions, %llu bytes\n", static_cast<unsigned long long>(totals.captions),
                     static_cast<unsigned long long>(totals.bytes));
    require(totals == expected, "a caption file reads differently");
    for (auto _ : state)
        benchmark::DoNotOptimize(read(path));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(std::filesystem::file_size(path)));
}
} // namespace kiv::bench

#endif
