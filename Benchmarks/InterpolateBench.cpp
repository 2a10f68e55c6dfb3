// One frame of an interpolation, compared with the same arithmetic written directly with libm.
#include <KIVCoreServices2/KIVCS2Interpolate.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>

namespace
{
constexpr uint32_t kFrames = 250; // ten seconds at 25
constexpr double kStart = 16;
constexpr double kEnd = 235;

double quadraticIn(double t)
{
    return t * t;
}

double expIn(double t)
{
    return std::exp((t - 1.0) * 6.931618662570565);
}

double sinInOut(double t)
{
    return 0.5 - 0.5 * std::sin(std::numbers::pi / 2.0 + std::numbers::pi * t);
}

KIVCS2Interpolation sequenceOf(KIVCS2InterpolationFunction function)
{
    KIVCS2Interpolation sequence;
    (void)kivCS2Interpolation_init(&sequence);
    (void)kivCS2Interpolation_addInterpolateStepInFrames(&sequence, function, kFrames, kStart, kEnd);
    (void)kivCS2Interpolation_setLooped(&sequence, 1);
    return sequence;
}

void frameOurs(benchmark::State &state, KIVCS2InterpolationFunction function, double (*plain)(double))
{
    KIVCS2Interpolation sequence = sequenceOf(function);
    double value = 0;
    for (uint32_t frame = 0; frame < kFrames; ++frame)
    {
        const double expected = kStart + (kEnd - kStart) * plain(frame * (1.0 / (kFrames - 1)));
        if (KIVCS2_FAILED(kivCS2Interpolation_execute(&sequence, &value)) || value != expected)
            state.SkipWithError("the values differ");
    }
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(kivCS2Interpolation_execute(&sequence, &value));
        benchmark::DoNotOptimize(value);
    }
}

// The code that a host would write for this one curve, without steps, holds and statuses.
template <double (*kPlain)(double)>
void framePlain(benchmark::State &state)
{
    uint32_t position = 0;
    for (auto _ : state)
    {
        double value = kStart + (kEnd - kStart) * kPlain(position * (1.0 / (kFrames - 1)));
        benchmark::DoNotOptimize(value);
        position = position + 1 == kFrames ? 0 : position + 1;
    }
}

BENCHMARK_CAPTURE(frameOurs, quadratic, KIVCS2InterpolationFunction_QuadraticIn, quadraticIn)
    ->Name("Interpolate_frame/ours/quadratic");
BENCHMARK(framePlain<quadraticIn>)->Name("Interpolate_frame/libm/quadratic");
BENCHMARK_CAPTURE(frameOurs, exponential, KIVCS2InterpolationFunction_ExpIn, expIn)
    ->Name("Interpolate_frame/ours/exponential");
BENCHMARK(framePlain<expIn>)->Name("Interpolate_frame/libm/exponential");
BENCHMARK_CAPTURE(frameOurs, sine, KIVCS2InterpolationFunction_SinInOut, sinInOut)
    ->Name("Interpolate_frame/ours/sine");
BENCHMARK(framePlain<sinInOut>)->Name("Interpolate_frame/libm/sine");
} // namespace

BENCHMARK_MAIN();
