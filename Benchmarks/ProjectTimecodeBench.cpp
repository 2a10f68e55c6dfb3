// Members of the project timecode, compared with the C operations that do the same, at 29.97 drop-frame.
#include <KIVCoreServices2/KIVProjectTimecode.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace
{
constexpr size_t kSamples = 1024; // a power of two, so the index wraps by masking

struct Sample
{
    KIVProjectTimecode object;
    KIVCS2Timecode record;
    std::array<uint8_t, 4> fields;
    std::array<char, 12> text; // with ":" throughout, because both read it
    uint32_t bcd;
    CFDateRef date;
};

std::vector<Sample> g_samples;

void makeSamples()
{
    std::mt19937 random{204};
    g_samples.resize(kSamples);
    for (Sample &sample : g_samples)
    {
        const uint64_t year = 1990 + random() % 40;
        const uint64_t month = random() % 12;
        const uint64_t day = random() % 28;
        sample.record = year << 48 | month << 40 | day << 32 | random() % (24 * 107892);
        sample.object.setCS2Timecode(sample.record);
        sample.fields = {
            static_cast<uint8_t>(sample.object.hours()), static_cast<uint8_t>(sample.object.minutes()),
            static_cast<uint8_t>(sample.object.seconds()), static_cast<uint8_t>(sample.object.frames())};
        (void)sample.object.description(sample.text.data(), sample.text.size());
        sample.text[8] = ':';
        sample.bcd = sample.object.bcdTimecode();
        sample.date = CFDateCreate(nullptr, (static_cast<double>(year) - 2001) * 31556952.0);
    }
}

template <class Function>
void registerOne(const std::string &name, Function function)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [function](benchmark::State &state)
                                 {
                                     size_t at = 0;
                                     for (auto _ : state)
                                         benchmark::DoNotOptimize(function(g_samples[at++ % kSamples]));
                                 });
}

// Checks that the results are equal, then times both.
template <class Ours, class Operation>
void bench(const std::string &name, Ours ours, Operation operation)
{
    for (const Sample &sample : g_samples)
        if (ours(sample) != operation(sample))
        {
            std::fprintf(stderr, "%s differs at %s\n", name.c_str(), sample.text.data());
            std::exit(1);
        }
    registerOne("ProjectTimecode_" + name + "/ours", ours);
    registerOne("ProjectTimecode_" + name + "/c", operation);
}

template <class Change>
uint64_t changed(const Sample &sample, Change change)
{
    KIVProjectTimecode object = sample.object;
    change(object);
    return object.ticks();
}

template <class Change>
uint64_t changedRecord(const Sample &sample, Change change)
{
    KIVCS2Timecode record = sample.record;
    change(&record);
    return record;
}

uint32_t fieldsOfRecord(const Sample &sample)
{
    uint32_t hours = 0, minutes = 0, seconds = 0, frames = 0;
    (void)kivCS2Timecode_getHours(&sample.record, &hours);
    (void)kivCS2Timecode_getMinutes(&sample.record, &minutes);
    (void)kivCS2Timecode_getSeconds(&sample.record, &seconds);
    (void)kivCS2Timecode_getFrames(&sample.record, &frames);
    return hours << 24 | minutes << 16 | seconds << 8 | frames;
}

double momentAndRelease(CFDateRef date)
{
    const double at = CFDateGetAbsoluteTime(date);
    CFRelease(date);
    return at;
}

void benchFields()
{
    bench(
        "fields",
        [](const Sample &sample)
        {
            const KIVProjectTimecode &tc = sample.object;
            return tc.hours() << 24 | tc.minutes() << 16 | tc.seconds() << 8 | tc.frames();
        },
        fieldsOfRecord);
    bench(
        "setFields",
        [](const Sample &sample)
        {
            const auto &[hours, minutes, seconds, frames] = sample.fields;
            return changed(sample,
                           [&](KIVProjectTimecode &tc) { tc.setHours(hours, minutes, seconds, frames, 0); });
        },
        [](const Sample &sample)
        {
            const auto &[hours, minutes, seconds, frames] = sample.fields;
            return changedRecord(
                sample, [&](KIVCS2Timecode *tc)
                { (void)kivCS2Timecode_initWithTimecodeFields(tc, hours, minutes, seconds, frames); });
        });
    bench(
        "tick",
        [](const Sample &sample) { return changed(sample, [](KIVProjectTimecode &tc) { tc.tick(); }); },
        [](const Sample &sample)
        { return changedRecord(sample, [](KIVCS2Timecode *tc) { (void)kivCS2Timecode_tick(tc); }); });
    bench(
        "addDays",
        [](const Sample &sample)
        { return changed(sample, [](KIVProjectTimecode &tc) { tc.addDays(1000); }); },
        [](const Sample &sample) {
            return changedRecord(sample, [](KIVCS2Timecode *tc) { (void)kivCS2Timecode_addDays(tc, 1000); });
        });
    bench(
        "isSameDay", [](const Sample &sample) { return sample.object.isSameDay(g_samples[0].object); },
        [](const Sample &sample)
        {
            uint32_t same = 0;
            (void)kivCS2Timecode_isSameDay(&sample.record, &g_samples[0].record, &same);
            return same != 0;
        });
    bench(
        "difference",
        [](const Sample &sample) { return sample.object.differenceInFramesTo(g_samples[0].object); },
        [](const Sample &sample)
        {
            int64_t difference = 0;
            (void)kivCS2Timecode_differenceInFrames(&sample.record, &g_samples[0].record, &difference);
            return difference;
        });
}

void benchTexts()
{
    bench(
        "toText",
        [](const Sample &sample)
        {
            char text[KIVProjectTimecode::kTextSize];
            (void)sample.object.debugDescription(text, sizeof text);
            benchmark::DoNotOptimize(text);
            return text[8];
        },
        [](const Sample &sample)
        {
            char text[KIVProjectTimecode::kTextSize];
            (void)kivCS2Timecode_timecodeToString(&sample.record, text, sizeof text);
            benchmark::DoNotOptimize(text);
            return text[8];
        });
    bench(
        "fromText",
        [](const Sample &sample) {
            return KIVProjectTimecode::timecodeWithString({sample.text.data(), 11}).ticks();
        },
        [](const Sample &sample)
        {
            return changedRecord(sample, [&](KIVCS2Timecode *tc)
                                 { (void)kivCS2Timecode_initWithString(tc, sample.text.data()); });
        });
    bench(
        "fromBCD",
        [](const Sample &sample)
        { return changed(sample, [&](KIVProjectTimecode &tc) { tc.setBcdTimecode(sample.bcd); }); },
        [](const Sample &sample)
        {
            return changedRecord(sample, [&](KIVCS2Timecode *tc)
                                 { (void)kivCS2Timecode_initWithBCD(tc, sample.bcd); });
        });
}

void benchDates()
{
    const auto dateOfOperation = [](const Sample &sample)
    {
        return changedRecord(sample, [&](KIVCS2Timecode *tc)
                             { (void)kivCS2Timecode_initWithDate(tc, sample.date, 1); });
    };
    bench(
        "fromDate",
        [](const Sample &sample) { return KIVProjectTimecode::timecodeWithDate(sample.date).ticks(); },
        dateOfOperation);
    bench(
        "fromCFDate",
        [](const Sample &sample) { return KIVProjectTimecode::timecodeWithCFDate(sample.date).ticks(); },
        dateOfOperation);
    // The results are not compared: the C operation gives a date one month and one day earlier.
    const auto create = [](const Sample &sample)
    {
        CFDateRef date = nullptr;
        (void)kivCS2Timecode_createCFDate(&sample.record, &date);
        return momentAndRelease(date);
    };
    registerOne("ProjectTimecode_toDateByTable/ours",
                [](Sample sample)
                {
                    sample.object.takeDateValues(KIVProjectTimecode::timecodeWithString("15.3.2019 0"));
                    return momentAndRelease(sample.object.toDate());
                });
    registerOne("ProjectTimecode_toDateByTable/c", create);
    registerOne("ProjectTimecode_toCFDate/ours",
                [](const Sample &sample) { return momentAndRelease(sample.object.toCFDate()); });
    registerOne("ProjectTimecode_toCFDate/c", create);
}

void benchRates()
{
    benchmark::RegisterBenchmark("ProjectTimecode_setFrameRate/ours",
                                 [](benchmark::State &state)
                                 {
                                     bool other = true;
                                     for (auto _ : state)
                                     {
                                         KIVProjectTimecode::setFrameRate(other ? KIVCS2FrameRate_60
                                                                                : KIVCS2FrameRate_59_94);
                                         other = !other;
                                     }
                                     KIVProjectTimecode::fps2997();
                                 });
    benchmark::RegisterBenchmark("ProjectTimecode_setFrameRate/c",
                                 [](benchmark::State &state)
                                 {
                                     bool other = true;
                                     for (auto _ : state)
                                     {
                                         (void)kivCS2Timecode_setFrameRate(other ? KIVCS2FrameRate_60
                                                                                 : KIVCS2FrameRate_59_94);
                                         other = !other;
                                     }
                                     (void)kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97);
                                 });
}
} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    KIVProjectTimecode::fps2997();
    if (!KIVProjectTimecode::hasValidFrameRate() ||
        KIVCS2_FAILED(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97)))
        return 1;
    makeSamples();

    benchFields();
    benchTexts();
    benchDates();
    benchRates();
    benchmark::RunSpecifiedBenchmarks();
    for (const Sample &sample : g_samples)
        CFRelease(sample.date);
    return 0;
}
