// Timecode conversions, compared with {fmt}, libavutil, the C library
// and a plain search, at 29.97 drop frame.
#include <KIVCoreServices2/KIVCS2Timecode.h>

#include <benchmark/benchmark.h>

#if KIV_PEER_FMT
#include <fmt/format.h>
#endif
#if KIV_PEER_AVUTIL
extern "C"
{
#include <libavutil/timecode.h>
}
#endif

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace
{
constexpr size_t kSamples = 1024; // a power of two, so the index wraps by masking
constexpr uint32_t kFramesPerHour = 107892;

struct Fields
{
    uint8_t hours, minutes, seconds, frames;
};

struct Sample
{
    KIVCS2Timecode tc;
    Fields fields;
    std::array<char, 12> text;   // as written
    std::array<char, 12> parsed; // with ":" throughout, as ours and sscanf need it
};

// The three tables of digits, filled by plain counters, for the peer that searches frame by frame.
struct PlainTables
{
    std::vector<uint8_t> frames, seconds, minutes;

    void fill()
    {
        frames.resize(kFramesPerHour);
        seconds.resize(kFramesPerHour);
        minutes.resize(kFramesPerHour);
        uint32_t f = 0, s = 0, m = 0;
        for (uint32_t i = 0; i < kFramesPerHour; ++i)
        {
            frames[i] = static_cast<uint8_t>(f);
            seconds[i] = static_cast<uint8_t>(s);
            minutes[i] = static_cast<uint8_t>(m);
            if (++f < 30)
                continue;
            if (++s == 60)
            {
                s = 0;
                ++m;
            }
            f = s == 0 && m % 10 != 0 ? 2 : 0;
        }
    }

    uint32_t find(const Fields &fields) const
    {
        for (uint32_t i = 0; i < kFramesPerHour; ++i)
            if (frames[i] == fields.frames && seconds[i] == fields.seconds && minutes[i] == fields.minutes)
                return i;
        return kFramesPerHour;
    }
};

PlainTables g_tables;
std::vector<Sample> g_samples;

// ---- The conversions

KIVCS2Timecode oursFromFields(const Sample &sample)
{
    KIVCS2Timecode tc = 0;
    (void)kivCS2Timecode_initWithTimecodeFields(&tc, sample.fields.hours, sample.fields.minutes,
                                                sample.fields.seconds, sample.fields.frames);
    return tc;
}

KIVCS2Timecode searchFromFields(const Sample &sample)
{
    return sample.fields.hours * kFramesPerHour + g_tables.find(sample.fields);
}

KIVCS2Timecode oursFromText(const Sample &sample)
{
    KIVCS2Timecode tc = 0;
    (void)kivCS2Timecode_initWithString(&tc, sample.parsed.data());
    return tc;
}

// The formula of SMPTE ST 12-1 after the scan, as a program without tables would do it.
KIVCS2Timecode sscanfFromText(const Sample &sample)
{
    unsigned h = 0, m = 0, s = 0, f = 0;
    if (std::sscanf(sample.parsed.data(), "%u:%u:%u:%u", &h, &m, &s, &f) != 4)
        return 0;
    const unsigned minutes = h * 60 + m;
    return (minutes * 60 + s) * 30 + f - 2 * (minutes - minutes / 10);
}

using Text = std::array<char, 64>;

void oursToText(const Sample &sample, Text &text)
{
    (void)kivCS2Timecode_timecodeToString(&sample.tc, text.data(), static_cast<uint32_t>(text.size()));
}

Fields fieldsOf(KIVCS2Timecode tc)
{
    const auto frame = static_cast<uint32_t>(tc);
    const uint32_t i = frame % kFramesPerHour;
    return {static_cast<uint8_t>(frame / kFramesPerHour), g_tables.minutes[i], g_tables.seconds[i],
            g_tables.frames[i]};
}

void snprintfToText(const Sample &sample, Text &text)
{
    const Fields fields = fieldsOf(sample.tc);
    std::snprintf(text.data(), text.size(), "%02u:%02u:%02u;%02u", fields.hours, fields.minutes,
                  fields.seconds, fields.frames);
}

#if KIV_PEER_FMT
void fmtToText(const Sample &sample, Text &text)
{
    const Fields fields = fieldsOf(sample.tc);
    *fmt::format_to(text.data(), "{:02}:{:02}:{:02};{:02}", fields.hours, fields.minutes, fields.seconds,
                    fields.frames) = '\0';
}
#endif

#if KIV_PEER_AVUTIL
KIVCS2Timecode avutilFromText(const Sample &sample)
{
    AVTimecode timecode;
    (void)av_timecode_init_from_string(&timecode, AVRational{30000, 1001}, sample.text.data(), nullptr);
    return static_cast<uint32_t>(timecode.start);
}

void avutilToText(const Sample &sample, Text &text)
{
    static_assert(sizeof(Text) >= AV_TIMECODE_STR_SIZE);
    static const AVTimecode timecode = {0, AV_TIMECODE_FLAG_DROPFRAME, AVRational{30000, 1001}, 30};
    (void)av_timecode_make_string(&timecode, text.data(), static_cast<int>(sample.tc));
}
#endif

// ---- Checks that results are equal, then timing

void require(bool equal, const char *who, const Sample &sample)
{
    if (equal)
        return;
    std::fprintf(stderr, "%s differs at %s\n", who, sample.text.data());
    std::exit(1);
}

template <class Convert>
void benchNumber(const std::string &name, Convert convert)
{
    for (const Sample &sample : g_samples)
        require(convert(sample) == sample.tc, name.c_str(), sample);
    benchmark::RegisterBenchmark(name.c_str(),
                                 [convert](benchmark::State &state)
                                 {
                                     size_t at = 0;
                                     for (auto _ : state)
                                         benchmark::DoNotOptimize(convert(g_samples[at++ % kSamples]));
                                 });
}

template <class Convert>
void benchText(const std::string &name, Convert convert)
{
    Text text;
    for (const Sample &sample : g_samples)
    {
        convert(sample, text);
        require(std::strcmp(text.data(), sample.text.data()) == 0, name.c_str(), sample);
    }
    benchmark::RegisterBenchmark(name.c_str(),
                                 [convert](benchmark::State &state)
                                 {
                                     size_t at = 0;
                                     Text buffer;
                                     for (auto _ : state)
                                     {
                                         convert(g_samples[at++ % kSamples], buffer);
                                         benchmark::DoNotOptimize(buffer.data());
                                         benchmark::ClobberMemory();
                                     }
                                 });
}

void makeSamples()
{
    std::mt19937 random{108};
    g_samples.resize(kSamples);
    for (Sample &sample : g_samples)
    {
        sample.tc = random() % (24 * kFramesPerHour);
        sample.fields = fieldsOf(sample.tc);
        Text text;
        snprintfToText(sample, text);
        std::memcpy(sample.text.data(), text.data(), sample.text.size());
        sample.parsed = sample.text;
        sample.parsed[8] = ':';
    }
}
} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    g_tables.fill();
    makeSamples();
    if (KIVCS2_FAILED(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97)))
        return 1;

    benchNumber("Timecode_fieldsToFrames/ours", oursFromFields);
    benchNumber("Timecode_fieldsToFrames/search", searchFromFields);
    benchText("Timecode_framesToText/ours", oursToText);
    benchText("Timecode_framesToText/snprintf", snprintfToText);
    benchNumber("Timecode_textToFrames/ours", oursFromText);
    benchNumber("Timecode_textToFrames/sscanf", sscanfFromText);
#if KIV_PEER_FMT
    benchText("Timecode_framesToText/fmt", fmtToText);
#endif
#if KIV_PEER_AVUTIL
    benchText("Timecode_framesToText/avutil", avutilToText);
    benchNumber("Timecode_textToFrames/avutil", avutilFromText);
#endif
    // Times the largest tables, then goes back to the rate of the other rows.
    benchmark::RegisterBenchmark("Timecode_setFrameRate/ours",
                                 [](benchmark::State &state)
                                 {
                                     bool other = true;
                                     for (auto _ : state)
                                     {
                                         benchmark::DoNotOptimize(kivCS2Timecode_setFrameRate(
                                             other ? KIVCS2FrameRate_60 : KIVCS2FrameRate_59_94));
                                         other = !other;
                                     }
                                     (void)kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97);
                                 });
    benchmark::RegisterBenchmark("Timecode_setFrameRate/counters",
                                 [](benchmark::State &state)
                                 {
                                     for (auto _ : state)
                                     {
                                         PlainTables tables;
                                         tables.fill();
                                         benchmark::DoNotOptimize(tables.minutes.data());
                                     }
                                 });
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
