// PCM conversion, compared with libswresample, GStreamer's audio library and a plain
// loop, for the audio of one or several video frames: a frame has 1602 samples of each
// channel at 48000 Hz and 29.97 frames a second.
#include <KIVCoreServices2/KIVCS2PCMAudioConverter.h>

#include <benchmark/benchmark.h>

#if KIV_PEER_SWRESAMPLE
extern "C"
{
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}
#endif
#if KIV_PEER_GSTAUDIO
#include <gst/audio/audio.h>
#endif

#include <cstdint>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace
{
// Buffers begin at cache lines, as those of media frames do. Where malloc puts them is chance, and changes
// the times of small ones by a third.
template <class T>
struct AtCacheLine
{
    using value_type = T;

    static T *allocate(size_t count)
    {
        return static_cast<T *>(::operator new(count * sizeof(T), kLine));
    }
    static void deallocate(T *block, size_t)
    {
        ::operator delete(block, kLine);
    }
    bool operator==(const AtCacheLine &) const = default;

    static constexpr std::align_val_t kLine{64};
};
using Bytes = std::vector<uint8_t, AtCacheLine<uint8_t>>;

constexpr size_t kSplitFrames = 1602;
constexpr UInt32 kRate = 48000;

Bytes randomBytes(size_t size)
{
    std::mt19937 random{7};
    Bytes bytes(size);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

// ---- Ours ----

class Converter
{
public:
    Converter(uint32_t channels, bool deinterleave, bool swap, uint32_t bits)
    {
        const UInt32 frame = channels * 2;
        const AudioStreamBasicDescription input = {kRate,
                                                   kAudioFormatLinearPCM,
                                                   kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked,
                                                   frame,
                                                   1,
                                                   frame,
                                                   channels,
                                                   16,
                                                   0};
        m_isMade =
            KIVCS2_SUCCEEDED(kivCS2PCMAudioConverter_init(&m_record, &input, deinterleave, swap, bits));
    }
    ~Converter()
    {
        (void)kivCS2PCMAudioConverter_free(&m_record);
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    bool split(const Bytes &in, Bytes &out)
    {
        void *positions[16];
        uint32_t distance = 0;
        return m_isMade && KIVCS2_SUCCEEDED(kivCS2PCMAudioConverter_convert(
                               &m_record, in.data(), static_cast<uint32_t>(in.size()), out.data(),
                               m_record.m_inputFormat.mChannelsPerFrame, positions, &distance));
    }
    bool convert(const Bytes &in, Bytes &out)
    {
        auto size = static_cast<uint32_t>(out.size());
        return m_isMade && KIVCS2_SUCCEEDED(kivCS2PCMAudioConverter_convertInterleaved(
                               &m_record, in.data(), static_cast<uint32_t>(in.size()), out.data(), &size));
    }

private:
    KIVCS2PCMAudioConverter m_record{};
    bool m_isMade = false;
};

// Times `run` from `in` to `out` if it gives `expected`.
template <class Run>
void timeRun(benchmark::State &state, const Bytes &in, const Bytes &expected, Run run)
{
    Bytes out(expected.size());
    if (!run(in, out) || out != expected)
    {
        state.SkipWithError("another result");
        return;
    }
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(run(in, out));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(in.size()));
}

// ---- Channels into planes ----

Bytes splitPlain(const Bytes &in, size_t channels)
{
    Bytes out(in.size());
    for (size_t channel = 0; channel < channels; ++channel)
        for (size_t frame = 0; frame < kSplitFrames; ++frame)
            std::memcpy(&out[(channel * kSplitFrames + frame) * 2], &in[(frame * channels + channel) * 2], 2);
    return out;
}

void splitOurs(benchmark::State &state)
{
    const auto channels = static_cast<uint32_t>(state.range(0));
    const Bytes in = randomBytes(kSplitFrames * channels * 2);
    Converter converter{channels, true, false, 0};
    timeRun(state, in, splitPlain(in, channels),
            [&](const Bytes &from, Bytes &to) { return converter.split(from, to); });
}
BENCHMARK(splitOurs)->Name("PCM_split/ours")->Arg(2)->Arg(4)->Arg(6)->Arg(8)->Arg(16);

void splitLoop(benchmark::State &state)
{
    const auto channels = static_cast<size_t>(state.range(0));
    const Bytes in = randomBytes(kSplitFrames * channels * 2);
    timeRun(state, in, splitPlain(in, channels),
            [&](const Bytes &from, Bytes &to)
            {
                const auto *source = reinterpret_cast<const int16_t *>(from.data());
                auto *planes = reinterpret_cast<int16_t *>(to.data());
                for (size_t frame = 0; frame < kSplitFrames; ++frame)
                    for (size_t channel = 0; channel < channels; ++channel)
                        planes[channel * kSplitFrames + frame] = source[frame * channels + channel];
                return true;
            });
}
BENCHMARK(splitLoop)->Name("PCM_split/plain_loop")->Arg(2)->Arg(4)->Arg(6)->Arg(8)->Arg(16);

#if KIV_PEER_SWRESAMPLE
void splitSwresample(benchmark::State &state)
{
    const auto channels = static_cast<int>(state.range(0));
    const Bytes in = randomBytes(kSplitFrames * static_cast<size_t>(channels) * 2);
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, channels);
    SwrContext *context = nullptr;
    if (swr_alloc_set_opts2(&context, &layout, AV_SAMPLE_FMT_S16P, kRate, &layout, AV_SAMPLE_FMT_S16, kRate,
                            0, nullptr) < 0 ||
        swr_init(context) < 0)
        state.SkipWithError("no context");
    else
        timeRun(state, in, splitPlain(in, static_cast<size_t>(channels)),
                [&](const Bytes &from, Bytes &to)
                {
                    const uint8_t *source = from.data();
                    uint8_t *planes[16];
                    for (int channel = 0; channel < channels; ++channel)
                        planes[channel] = to.data() + static_cast<size_t>(channel) * kSplitFrames * 2;
                    return swr_convert(context, planes, kSplitFrames, &source, kSplitFrames) == kSplitFrames;
                });
    swr_free(&context);
}
BENCHMARK(splitSwresample)->Name("PCM_split/swresample")->Arg(2)->Arg(4)->Arg(6)->Arg(8)->Arg(16);
#endif

// ---- Width and byte order; the argument is the number of samples of two channels ----

constexpr int64_t kFewSamples = 3204;
constexpr int64_t kManySamples = 1 << 20;

Bytes widenPlain(const Bytes &in)
{
    Bytes out(in.size() / 2 * 3);
    for (size_t index = 0; index < in.size() / 2; ++index)
        std::memcpy(&out[index * 3 + 1], &in[index * 2], 2);
    return out;
}

Bytes swapPlain(const Bytes &in)
{
    Bytes out = in;
    for (size_t index = 0; index < in.size(); index += 2)
        std::swap(out[index], out[index + 1]);
    return out;
}

Bytes samplesOf(const benchmark::State &state)
{
    return randomBytes(static_cast<size_t>(state.range(0)) * 2);
}

void widenOurs(benchmark::State &state)
{
    const Bytes in = samplesOf(state);
    Converter converter{2, false, false, 24};
    timeRun(state, in, widenPlain(in),
            [&](const Bytes &from, Bytes &to) { return converter.convert(from, to); });
}
BENCHMARK(widenOurs)->Name("PCM_s16ToS24/ours")->Arg(kFewSamples)->Arg(kManySamples);

void swapOurs(benchmark::State &state)
{
    const Bytes in = samplesOf(state);
    Converter converter{2, false, true, 0};
    timeRun(state, in, swapPlain(in),
            [&](const Bytes &from, Bytes &to) { return converter.convert(from, to); });
}
BENCHMARK(swapOurs)->Name("PCM_swap16/ours")->Arg(kFewSamples)->Arg(kManySamples);

void widenLoop(benchmark::State &state)
{
    const Bytes in = samplesOf(state);
    timeRun(state, in, widenPlain(in),
            [](const Bytes &from, Bytes &to)
            {
                for (size_t index = 0; index < from.size() / 2; ++index)
                {
                    to[3 * index] = 0;
                    to[3 * index + 1] = from[2 * index];
                    to[3 * index + 2] = from[2 * index + 1];
                }
                return true;
            });
}
BENCHMARK(widenLoop)->Name("PCM_s16ToS24/plain_loop")->Arg(kFewSamples)->Arg(kManySamples);

void swapLoop(benchmark::State &state)
{
    const Bytes in = samplesOf(state);
    timeRun(state, in, swapPlain(in),
            [](const Bytes &from, Bytes &to)
            {
                const auto *source = reinterpret_cast<const uint16_t *>(from.data());
                auto *swapped = reinterpret_cast<uint16_t *>(to.data());
                for (size_t index = 0; index < from.size() / 2; ++index)
                    swapped[index] = __builtin_bswap16(source[index]);
                return true;
            });
}
BENCHMARK(swapLoop)->Name("PCM_swap16/plain_loop")->Arg(kFewSamples)->Arg(kManySamples);

// Beyond the second-level cache a conversion is as fast as a copy of its output.
void copyOf(benchmark::State &state, Bytes (*plain)(const Bytes &))
{
    const Bytes in = plain(samplesOf(state));
    timeRun(state, in, in,
            [](const Bytes &from, Bytes &to)
            {
                std::memcpy(to.data(), from.data(), to.size());
                return true;
            });
}
BENCHMARK_CAPTURE(copyOf, s16ToS24, widenPlain)->Name("PCM_s16ToS24/memcpy")->Arg(kManySamples);
BENCHMARK_CAPTURE(copyOf, swap16, swapPlain)->Name("PCM_swap16/memcpy")->Arg(kManySamples);

#if KIV_PEER_GSTAUDIO
void timeGStreamer(benchmark::State &state, GstAudioFormat format, Bytes (*plain)(const Bytes &))
{
    static const bool isReady = (gst_init(nullptr, nullptr), true);
    (void)isReady;
    const Bytes in = samplesOf(state);
    GstAudioInfo from;
    GstAudioInfo to;
    gst_audio_info_set_format(&from, GST_AUDIO_FORMAT_S16LE, kRate, 2, nullptr);
    gst_audio_info_set_format(&to, format, kRate, 2, nullptr);
    GstAudioConverter *converter =
        gst_audio_converter_new(GST_AUDIO_CONVERTER_FLAG_NONE, &from, &to, nullptr);
    if (converter == nullptr)
    {
        state.SkipWithError("no converter");
        return;
    }
    timeRun(state, in, plain(in),
            [&](const Bytes &source, Bytes &converted)
            {
                gpointer inputs[1] = {const_cast<uint8_t *>(source.data())};
                gpointer outputs[1] = {converted.data()};
                const size_t frames = source.size() / 4;
                return gst_audio_converter_samples(converter, GST_AUDIO_CONVERTER_FLAG_NONE, inputs, frames,
                                                   outputs, frames) != FALSE;
            });
    gst_audio_converter_free(converter);
}

void widenGStreamer(benchmark::State &state)
{
    timeGStreamer(state, GST_AUDIO_FORMAT_S24LE, widenPlain);
}
BENCHMARK(widenGStreamer)->Name("PCM_s16ToS24/gstreamer")->Arg(kFewSamples)->Arg(kManySamples);

void swapGStreamer(benchmark::State &state)
{
    timeGStreamer(state, GST_AUDIO_FORMAT_S16BE, swapPlain);
}
BENCHMARK(swapGStreamer)->Name("PCM_swap16/gstreamer")->Arg(kFewSamples)->Arg(kManySamples);
#endif
} // namespace

BENCHMARK_MAIN();
