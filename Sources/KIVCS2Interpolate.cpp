// Interpolation: the curves, and sequences of moves and holds along them.
#include "KIVCS2Interpolate.h"

#include "KIVCS2Timecode.h"

#include "Private/Support/Check.h"

#include <array>
#include <cmath>
#include <numbers>

// ---- Curves

namespace
{
// Kept: hosts rely on this constant, a little above ln 1024, and therefore on exponential curves that start
// at 0.000976.
constexpr double kExponent = 6.931618662570565;

constexpr double kHalfPi = std::numbers::pi / 2.0;
} // namespace

double kivCS2InterpolationCallback_Linear(double t)
{
    return t;
}

double kivCS2InterpolationCallback_QuadraticIn(double t)
{
    return t * t;
}

double kivCS2InterpolationCallback_QuadraticOut(double t)
{
    return -(t * t) + 2.0 * t;
}

double kivCS2InterpolationCallback_QuadraticInOut(double t)
{
    return t <= 0.5 ? 2.0 * t * t : 2.0 * t * (2.0 - t) - 1.0;
}

double kivCS2InterpolationCallback_CubicIn(double t)
{
    return t * t * t;
}

double kivCS2InterpolationCallback_CubicOut(double t)
{
    const double u = t - 1.0;
    return 1.0 + u * u * u;
}

double kivCS2InterpolationCallback_CubicInOut(double t)
{
    const double u = 2.0 * t - 2.0;
    return t <= 0.5 ? 4.0 * t * t * t : 0.5 * u * u * u + 1.0;
}

double kivCS2InterpolationCallback_ExpIn(double t)
{
    return std::exp((t - 1.0) * kExponent);
}

double kivCS2InterpolationCallback_ExpOut(double t)
{
    return 1.0 - std::exp(-kExponent * t);
}

double kivCS2InterpolationCallback_ExpInOut(double t)
{
    const double u = 2.0 * t - 1.0;
    return t <= 0.5 ? 0.5 * std::exp(kExponent * u) : 1.0 - 0.5 * std::exp(-kExponent * u);
}

double kivCS2InterpolationCallback_SinIn(double t)
{
    return 1.0 - std::sin(kHalfPi + kHalfPi * t);
}

double kivCS2InterpolationCallback_SinOut(double t)
{
    return std::sin(kHalfPi * t);
}

double kivCS2InterpolationCallback_SinInOut(double t)
{
    return 0.5 - 0.5 * std::sin(kHalfPi + std::numbers::pi * t);
}

namespace
{
constexpr std::array<double (*)(double), KIVCS2InterpolationFunctionMax> callbackTable = {
    kivCS2InterpolationCallback_Linear,         //
    kivCS2InterpolationCallback_QuadraticIn,    //
    kivCS2InterpolationCallback_QuadraticOut,   //
    kivCS2InterpolationCallback_QuadraticInOut, //
    kivCS2InterpolationCallback_CubicIn,        //
    kivCS2InterpolationCallback_CubicOut,       //
    kivCS2InterpolationCallback_CubicInOut,     //
    kivCS2InterpolationCallback_ExpIn,          //
    kivCS2InterpolationCallback_ExpOut,         //
    kivCS2InterpolationCallback_ExpInOut,       //
    kivCS2InterpolationCallback_SinIn,          //
    kivCS2InterpolationCallback_SinOut,         //
    kivCS2InterpolationCallback_SinInOut,       //
};

[[nodiscard]] bool isFull(const KIVCS2Interpolation &interpolation)
{
    return interpolation.m_count >= KIVCS2_INTERPOLATION_STEPS;
}

// Stores the whole frames of a time at the rate of the timecode module.
[[nodiscard]] KIVCS2Status framesIn(double seconds, uint32_t &frames)
{
    KIVCS2Timecode length = 0;
    KIV_TRY(kivCS2Timecode_initWithSeconds(&length, seconds));
    return kivCS2Timecode_getFramesSinceMidnight(&length, &frames);
}

// Goes to the step's next frame, or to the next step.
void advance(KIVCS2Interpolation &interpolation)
{
    KIVCS2InterpolationStep &step = interpolation.m_steps[interpolation.m_currentStep];
    if (++step.m_position < step.m_frames)
        return;
    ++interpolation.m_currentStep;
    if (interpolation.m_currentStep == interpolation.m_count && interpolation.m_looped != 0)
        interpolation.m_currentStep = 0;
    if (interpolation.m_currentStep < interpolation.m_count)
        interpolation.m_steps[interpolation.m_currentStep].m_position = 0;
}
} // namespace

// ---- Sequences

KIVCS2Status kivCS2Interpolation_init(KIVCS2Interpolation *interpolation)
{
    KIV_CHECK(interpolation);

    *interpolation = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Interpolation_addInterpolateStepInFrames(KIVCS2Interpolation *interpolation,
                                                            KIVCS2InterpolationFunction function,
                                                            uint32_t frames, double start, double end)
{
    KIV_CHECK(interpolation);
    // Kept: the linear curve is accepted too, although it does not execute
    KIV_CHECK(function < KIVCS2InterpolationFunctionMax);
    KIV_CHECK(frames > 0);

    if (isFull(*interpolation))
        return KIVCS2STATUS_PARAM_ERR;
    interpolation->m_steps[interpolation->m_count++] = {
        .m_kind = KIVCS2InterpolationStepKind_Interpolate,
        .m_function = function,
        .m_frames = frames,
        .m_position = 0,
        .m_dt = 1.0 / (frames - 1), // Kept: infinite for one frame
        .m_start = start,
        .m_range = end - start,
    };
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Interpolation_addInterpolateStepInSeconds(KIVCS2Interpolation *interpolation,
                                                             KIVCS2InterpolationFunction function,
                                                             double start, double end, double seconds)
{
    KIV_CHECK(interpolation);

    uint32_t frames = 0;
    KIV_TRY(framesIn(seconds, frames));
    return kivCS2Interpolation_addInterpolateStepInFrames(interpolation, function, frames, start, end);
}

KIVCS2Status kivCS2Interpolation_addHoldStepInFrames(KIVCS2Interpolation *interpolation, uint32_t frames)
{
    KIV_CHECK(interpolation);
    KIV_CHECK(frames > 0);

    if (isFull(*interpolation))
        return KIVCS2STATUS_PARAM_ERR;
    // The other members of the record are unchanged.
    KIVCS2InterpolationStep &step = interpolation->m_steps[interpolation->m_count++];
    step.m_kind = KIVCS2InterpolationStepKind_Hold;
    step.m_frames = frames;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Interpolation_addHoldStepInSeconds(KIVCS2Interpolation *interpolation, double seconds)
{
    KIV_CHECK(interpolation);

    uint32_t frames = 0;
    KIV_TRY(framesIn(seconds, frames));
    return kivCS2Interpolation_addHoldStepInFrames(interpolation, frames);
}

KIVCS2Status kivCS2Interpolation_setLooped(KIVCS2Interpolation *interpolation, uint32_t looped)
{
    KIV_CHECK(interpolation);

    interpolation->m_looped = looped;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Interpolation_execute(KIVCS2Interpolation *interpolation, double *outValue)
{
    KIV_CHECK(interpolation);

    if (interpolation->m_currentStep < interpolation->m_count)
    {
        const KIVCS2InterpolationStep &step = interpolation->m_steps[interpolation->m_currentStep];
        if (step.m_kind == KIVCS2InterpolationStepKind_Interpolate)
        {
            double value = 0;
            KIV_TRY(kivCS2Interpolate_value(step.m_function, &value, step.m_position * step.m_dt));
            interpolation->m_currentValue = step.m_start + step.m_range * value;
        }
        advance(*interpolation);
    }
    if (outValue != nullptr)
        *outValue = interpolation->m_currentValue;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Interpolate_value(KIVCS2InterpolationFunction function, double *outValue, double t)
{
    // Without assertions, because a host may try values. Kept: the linear curve is out of range, and a NaN as
    // t, which a step of one frame gives, is in range.
    const bool isCurve =
        function > KIVCS2InterpolationFunction_Linear && function < KIVCS2InterpolationFunctionMax;
    const bool isOutside = t < 0.0 || t > 1.0;
    if (!isCurve || isOutside || outValue == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    *outValue = callbackTable[function](t);
    return KIVCS2STATUS_OK;
}
