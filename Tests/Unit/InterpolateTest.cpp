// Interpolation: the values of the curves, and sequences frame by frame.
#include <KIVCoreServices2/KIVCS2Interpolate.h>
#include <KIVCoreServices2/KIVCS2Timecode.h>

#include "ArgumentCheck.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace
{
static_assert(sizeof(KIVCS2InterpolationStep) == 40 && offsetof(KIVCS2InterpolationStep, m_kind) == 0 &&
              offsetof(KIVCS2InterpolationStep, m_function) == 4 &&
              offsetof(KIVCS2InterpolationStep, m_frames) == 8 &&
              offsetof(KIVCS2InterpolationStep, m_position) == 12 &&
              offsetof(KIVCS2InterpolationStep, m_dt) == 16 &&
              offsetof(KIVCS2InterpolationStep, m_start) == 24 &&
              offsetof(KIVCS2InterpolationStep, m_range) == 32);
static_assert(sizeof(KIVCS2Interpolation) == 664 && offsetof(KIVCS2Interpolation, m_steps) == 0 &&
              offsetof(KIVCS2Interpolation, m_count) == 640 &&
              offsetof(KIVCS2Interpolation, m_currentStep) == 644 &&
              offsetof(KIVCS2Interpolation, m_currentValue) == 648 &&
              offsetof(KIVCS2Interpolation, m_looped) == 656);

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kQuarters[] = {0, 0.25, 0.5, 0.75, 1};

struct Curve
{
    double (*callback)(double t);
    double values[5]; // at the quarters
};

// Exact for polynomials; the others are rounded from 60 digits.
constexpr Curve kCurves[KIVCS2InterpolationFunctionMax] = {
    // clang-format off
    {kivCS2InterpolationCallback_Linear,         {0, 0.25,     0.5,   0.75,     1}},
    {kivCS2InterpolationCallback_QuadraticIn,    {0, 0.0625,   0.25,  0.5625,   1}},
    {kivCS2InterpolationCallback_QuadraticOut,   {0, 0.4375,   0.75,  0.9375,   1}},
    {kivCS2InterpolationCallback_QuadraticInOut, {0, 0.125,    0.5,   0.875,    1}},
    {kivCS2InterpolationCallback_CubicIn,        {0, 0.015625, 0.125, 0.421875, 1}},
    {kivCS2InterpolationCallback_CubicOut,       {0, 0.578125, 0.875, 0.984375, 1}},
    {kivCS2InterpolationCallback_CubicInOut,     {0, 0.0625,   0.5,   0.9375,   1}},
    {kivCS2InterpolationCallback_ExpIn,
     {0.0009764190955193801, 0.005523663303167122, 0.03124770544407029, 0.1767702051932686, 1}},
    {kivCS2InterpolationCallback_ExpOut,
     {0, 0.8232297948067314, 0.9687522945559297, 0.9944763366968329, 0.9990235809044806}},
    {kivCS2InterpolationCallback_ExpInOut,
     {0.00048820954775969006, 0.015623852722035146, 0.5, 0.9843761472779649, 0.9995117904522403}},
    {kivCS2InterpolationCallback_SinIn,
     {0, 0.07612046748871325, 0.2928932188134525, 0.6173165676349103, 1}},
    {kivCS2InterpolationCallback_SinOut,
     {0, 0.3826834323650898, 0.7071067811865476, 0.9238795325112867, 1}},
    {kivCS2InterpolationCallback_SinInOut,       {0, 0.14644660940672624, 0.5, 0.8535533905932737, 1}},
    // clang-format on
};

class Interpolate : public testing::Test
{
protected:
    void SetUp() override
    {
        sequence.m_count = 7;
        ASSERT_OK(kivCS2Interpolation_init(&sequence));
        ASSERT_OK(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25));
    }
    void move(KIVCS2InterpolationFunction function, uint32_t frames, double start, double end)
    {
        ASSERT_OK(kivCS2Interpolation_addInterpolateStepInFrames(&sequence, function, frames, start, end));
    }
    void hold(uint32_t frames)
    {
        ASSERT_OK(kivCS2Interpolation_addHoldStepInFrames(&sequence, frames));
    }
    std::vector<double> run(size_t frames)
    {
        std::vector<double> values(frames, -1);
        for (double &value : values)
            EXPECT_OK(kivCS2Interpolation_execute(&sequence, &value));
        return values;
    }

    KIVCS2Interpolation sequence{};
};
using Values = std::vector<double>;
} // namespace

TEST(InterpolateValue, EveryCurveAtItsQuarters)
{
    for (uint32_t function = 0; function < KIVCS2InterpolationFunctionMax; ++function)
        for (size_t quarter = 0; quarter < std::size(kQuarters); ++quarter)
        {
            SCOPED_TRACE(std::to_string(function) + " at " + std::to_string(kQuarters[quarter]));
            const double expected = kCurves[function].values[quarter];
            const bool isPolynomial = function <= KIVCS2InterpolationFunction_CubicInOut;
            double value = kCurves[function].callback(kQuarters[quarter]);
            EXPECT_NEAR(value, expected, isPolynomial ? 0 : 2e-16);
            if (function == KIVCS2InterpolationFunction_Linear)
                continue;
            EXPECT_OK(kivCS2Interpolate_value(function, &value, kQuarters[quarter]));
            EXPECT_NEAR(value, expected, isPolynomial ? 0 : 2e-16);
        }
}

// Refused without an assertion: also the linear curve. A `t` that is not a number is accepted.
TEST(InterpolateValue, AcceptsCurves1To12AndNoTOutside0To1)
{
    const std::pair<uint32_t, double> refused[] = {{0, 0.5},
                                                   {13, 0.5},
                                                   {UINT32_MAX, 0.5},
                                                   {1, std::nextafter(0.0, -1)},
                                                   {1, std::nextafter(1.0, 2)},
                                                   {12, std::numeric_limits<double>::infinity()},
                                                   {0, kNaN}};
    for (const auto &[function, t] : refused)
    {
        double value = 7;
        EXPECT_EQ(kivCS2Interpolate_value(function, &value, t), KIVCS2STATUS_PARAM_ERR)
            << function << " " << t;
        EXPECT_EQ(value, 7);
    }
    EXPECT_EQ(kivCS2Interpolate_value(1, nullptr, 0.5), KIVCS2STATUS_PARAM_ERR);
    for (uint32_t function = 1; function < KIVCS2InterpolationFunctionMax; ++function)
    {
        double value = 7;
        EXPECT_OK(kivCS2Interpolate_value(function, &value, kNaN));
        EXPECT_TRUE(std::isnan(value)) << function;
    }
}

TEST_F(Interpolate, MovesHoldsAndStays)
{
    EXPECT_EQ(run(2), (Values{0, 0})); // no steps
    move(KIVCS2InterpolationFunction_QuadraticIn, 5, 0, 100);
    hold(2);
    move(KIVCS2InterpolationFunction_SinOut, 3, 10, -10);
    EXPECT_EQ(run(7), (Values{0, 6.25, 25, 56.25, 100, 100, 100}));
    EXPECT_EQ(sequence.m_currentStep, 2u);
    const Values rest = run(5);
    EXPECT_DOUBLE_EQ(rest[1], 10 - 20 * std::sqrt(0.5));
    EXPECT_EQ((Values{rest[0], rest[2], rest[3], rest[4]}), (Values{10, -10, -10, -10}));

    // After the end looping has no effect, but another step has.
    ASSERT_OK(kivCS2Interpolation_setLooped(&sequence, 1));
    EXPECT_EQ(run(2), (Values{-10, -10}));
    ASSERT_OK(kivCS2Interpolation_setLooped(&sequence, 0));
    move(KIVCS2InterpolationFunction_CubicIn, 2, 3, 4);
    EXPECT_EQ(run(3), (Values{3, 4, 4}));
    EXPECT_OK(kivCS2Interpolation_execute(&sequence, nullptr));
}

TEST_F(Interpolate, LoopsFromTheFirstFrame)
{
    hold(2);
    move(KIVCS2InterpolationFunction_QuadraticIn, 3, 0, 4);
    ASSERT_OK(kivCS2Interpolation_setLooped(&sequence, 2)); // any value but 0
    EXPECT_EQ(run(5), (Values{0, 0, 0, 1, 4}));
    EXPECT_EQ(sequence.m_currentStep, 0u);
    EXPECT_EQ(sequence.m_steps[0].m_position, 0u);
    EXPECT_EQ(run(5), (Values{4, 4, 0, 1, 4}));
}

TEST_F(Interpolate, ALinearStepIsAddedAndDoesNotExecute)
{
    move(KIVCS2InterpolationFunction_QuadraticIn, 1, 0, 0);
    move(KIVCS2InterpolationFunction_Linear, 3, 0, 1);
    (void)run(1);
    for (int call = 0; call < 2; ++call)
    {
        double value = 7;
        EXPECT_EQ(kivCS2Interpolation_execute(&sequence, &value), KIVCS2STATUS_PARAM_ERR);
        EXPECT_EQ(value, 7);
        EXPECT_EQ(sequence.m_currentStep, 1u);
        EXPECT_EQ(sequence.m_steps[1].m_position, 0u);
    }
}

TEST_F(Interpolate, AStepOfOneFrameIsNotANumber)
{
    move(KIVCS2InterpolationFunction_SinInOut, 1, 5, 6);
    hold(1);
    move(KIVCS2InterpolationFunction_CubicOut, 2, 1, 2);
    EXPECT_TRUE(std::isinf(sequence.m_steps[0].m_dt));
    const Values values = run(4);
    EXPECT_TRUE(std::isnan(values[0]) && std::isnan(values[1])); // held
    EXPECT_EQ((Values{values[2], values[3]}), (Values{1, 2}));
}

// 49 times the double nearest to 1/49 is 1 - 2^-53. No length exceeds 1.
TEST_F(Interpolate, PositionsAreTimesDtAndNeverAboveOne)
{
    move(KIVCS2InterpolationFunction_SinIn, 50, 0, 1);
    EXPECT_EQ(49 * sequence.m_steps[0].m_dt, 1 - std::ldexp(1, -53));
    for (uint32_t frames = 2; frames < 30000; ++frames)
    {
        ASSERT_OK(kivCS2Interpolation_init(&sequence));
        move(KIVCS2InterpolationFunction_QuadraticOut, frames, 0, 1);
        sequence.m_steps[0].m_position = frames - 1;
        EXPECT_NEAR(run(1)[0], 1, 1e-15) << frames;
    }
}

TEST_F(Interpolate, SixteenStepsAndTheRestOfAHold)
{
    sequence.m_steps[0] = {9, 3, 9, 0, 0.5, 0.25, 0.125};
    hold(4);
    const KIVCS2InterpolationStep &held = sequence.m_steps[0];
    EXPECT_TRUE(held.m_kind == KIVCS2InterpolationStepKind_Hold && held.m_frames == 4);
    EXPECT_TRUE(held.m_function == 3 && held.m_dt == 0.5 && held.m_start == 0.25 && held.m_range == 0.125);

    for (uint32_t step = 1; step < KIVCS2_INTERPOLATION_STEPS; ++step)
        move(KIVCS2InterpolationFunction_CubicInOut, 2, step, step + 1);
    const KIVCS2InterpolationStep &last = sequence.m_steps[15];
    EXPECT_EQ((Values{last.m_dt, last.m_start, last.m_range}), (Values{1, 15, 1}));
    EXPECT_EQ(kivCS2Interpolation_addInterpolateStepInFrames(&sequence, 1, 2, 0, 1), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2Interpolation_addHoldStepInSeconds(&sequence, 1), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(sequence.m_count, 16u);
    EXPECT_EQ(run(4 + 30 + 1).back(), 16);
}

TEST_F(Interpolate, SecondsAreWholeFramesOfTheRate)
{
    const struct
    {
        KIVCS2FrameRate rate;
        double seconds;
        uint32_t frames;
    } cases[] = {{KIVCS2FrameRate_25, 0.2, 5},
                 {KIVCS2FrameRate_25, 0.0799, 1},
                 {KIVCS2FrameRate_29_97, 1, 29},
                 {KIVCS2FrameRate_59_94, 1.01, 60},
                 {KIVCS2FrameRate_25, -2, 0u - 50}}; // the low 32 bits
    for (const auto &[rate, seconds, frames] : cases)
    {
        ASSERT_OK(kivCS2Timecode_setFrameRate(rate));
        ASSERT_OK(kivCS2Interpolation_init(&sequence));
        EXPECT_OK(kivCS2Interpolation_addInterpolateStepInSeconds(&sequence, 1, 3, 5, seconds));
        EXPECT_OK(kivCS2Interpolation_addHoldStepInSeconds(&sequence, seconds));
        EXPECT_EQ(sequence.m_steps[0].m_frames, frames) << seconds;
        EXPECT_EQ(sequence.m_steps[1].m_frames, frames) << seconds;
        EXPECT_EQ((Values{sequence.m_steps[0].m_start, sequence.m_steps[0].m_range}), (Values{3, 2}));
    }
    // One frame before midnight is the mark of an invalid timecode.
    ASSERT_OK(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25));
    ASSERT_OK(kivCS2Interpolation_init(&sequence));
    EXPECT_EQ(kivCS2Interpolation_addInterpolateStepInSeconds(&sequence, 1, 0, 1, -0.04),
              KIVCS2STATUS_INVALID_TIMECODE_ERR);
    EXPECT_EQ(kivCS2Interpolation_addHoldStepInSeconds(&sequence, -0.04), KIVCS2STATUS_INVALID_TIMECODE_ERR);
    EXPECT_EQ(sequence.m_count, 0u);
}

TEST_F(Interpolate, RefusesArguments)
{
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2Interpolation_init, "interpolation", nullptr),
        KIV_REQUIRES(kivCS2Interpolation_setLooped, "interpolation", nullptr, 1),
        KIV_REQUIRES(kivCS2Interpolation_execute, "interpolation", nullptr, nullptr),
        KIV_REQUIRES(kivCS2Interpolation_addHoldStepInFrames, "interpolation", nullptr, 1),
        KIV_REQUIRES(kivCS2Interpolation_addHoldStepInFrames, "frames > 0", &sequence, 0),
        KIV_REQUIRES(kivCS2Interpolation_addHoldStepInSeconds, "interpolation", nullptr, 1),
        KIV_REQUIRES(kivCS2Interpolation_addInterpolateStepInFrames, "interpolation", nullptr, 1, 1, 0, 1),
        KIV_REQUIRES(kivCS2Interpolation_addInterpolateStepInFrames,
                     "function < KIVCS2InterpolationFunctionMax", &sequence, 13, 1, 0, 1),
        KIV_REQUIRES(kivCS2Interpolation_addInterpolateStepInFrames, "frames > 0", &sequence, 1, 0, 0, 1),
        KIV_REQUIRES(kivCS2Interpolation_addInterpolateStepInSeconds, "interpolation", nullptr, 1, 0, 1, 1),
    });
    // Times shorter than a frame are refused as frames are.
    for (const double seconds : {0.0, 0.039, kNaN, 1e300})
        kiv::test::expectAllRefused({
            {"kivCS2Interpolation_addHoldStepInFrames", "frames > 0", KIVCS2STATUS_PARAM_ERR,
             KIV_CALL(kivCS2Interpolation_addHoldStepInSeconds(&sequence, seconds))},
            {"kivCS2Interpolation_addInterpolateStepInFrames", "frames > 0", KIVCS2STATUS_PARAM_ERR,
             KIV_CALL(kivCS2Interpolation_addInterpolateStepInSeconds(&sequence, 1, 0, 1, seconds))},
        });
    EXPECT_EQ(sequence.m_count, 0u);
}
