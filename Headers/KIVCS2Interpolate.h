/**
 * @file
 * Interpolation: a value that moves from frame to frame, for a fade, a wipe or a moving picture.
 *
 * The caller owns the sequence: `init` clears it, up to 16 steps are added, and `execute` is called once for
 * each video frame. A step either eases from a start value to an end value along one of the curves or holds
 * the value for a number of frames. Nothing has to be released, and only `init` resets. A sequence is used by
 * one thread at a time.
 *
 * A step of n frames shows its curve at t = 0, 1/(n-1), 2/(n-1) ... 1: the first frame has the start value
 * and the last one the end value, as closely as curve and arithmetic allow. t is the position times 1/(n-1)
 * in double precision, which for some n ends at 1 - 2^-53.
 *
 * @code
 * KIVCS2Interpolation fade;
 * double level;
 * kivCS2Interpolation_init(&fade); // nothing has to be released
 * kivCS2Interpolation_addInterpolateStepInFrames(&fade, KIVCS2InterpolationFunction_QuadraticIn, 3, 0, 100);
 * for (int frame = 0; frame < 3; ++frame)
 * {
 *     if (KIVCS2_FAILED(kivCS2Interpolation_execute(&fade, &level)))
 *         return 1;
 *     printf("%.0f ", level);
 * } // prints: 0 25 100
 * @endcode
 */
#ifndef KIVCS2_INTERPOLATE_H
#define KIVCS2_INTERPOLATE_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** A curve. */
typedef uint32_t KIVCS2InterpolationFunction;
enum
{
    KIVCS2InterpolationFunction_Linear = 0, /**< may be added, but then fails when it is executed */
    KIVCS2InterpolationFunction_QuadraticIn = 1,
    KIVCS2InterpolationFunction_QuadraticOut = 2,
    KIVCS2InterpolationFunction_QuadraticInOut = 3,
    KIVCS2InterpolationFunction_CubicIn = 4,
    KIVCS2InterpolationFunction_CubicOut = 5,
    KIVCS2InterpolationFunction_CubicInOut = 6,
    KIVCS2InterpolationFunction_ExpIn = 7,
    KIVCS2InterpolationFunction_ExpOut = 8,
    KIVCS2InterpolationFunction_ExpInOut = 9,
    KIVCS2InterpolationFunction_SinIn = 10,
    KIVCS2InterpolationFunction_SinOut = 11,
    KIVCS2InterpolationFunction_SinInOut = 12,
    KIVCS2InterpolationFunctionMax = 13 /**< the count */
};

/** The kind of a step. */
typedef uint32_t KIVCS2InterpolationStepKind;
enum
{
    KIVCS2InterpolationStepKind_Interpolate = 0,
    KIVCS2InterpolationStepKind_Hold = 1
};

/** The most steps of a sequence. */
#define KIVCS2_INTERPOLATION_STEPS 16

/** One step of a sequence. */
typedef struct KIVCS2InterpolationStep
{
    KIVCS2InterpolationStepKind m_kind;     /**< moves or holds the value */
    KIVCS2InterpolationFunction m_function; /**< the curve; not used by a hold */
    uint32_t m_frames;                      /**< the step's length */
    uint32_t m_position;                    /**< the next frame within the step */
    double m_dt;                            /**< 1 / (frames - 1): infinite for one frame */
    double m_start;                         /**< the value of the first frame */
    double m_range;                         /**< end - start */
} KIVCS2InterpolationStep;

/** A sequence of steps and its position. */
typedef struct KIVCS2Interpolation
{
    KIVCS2InterpolationStep m_steps[KIVCS2_INTERPOLATION_STEPS]; /**< the first `m_count` are used */
    uint32_t m_count;                                            /**< steps added */
    uint32_t m_currentStep;                                      /**< `m_count` when the sequence has ended */
    double m_currentValue; /**< value of the last interpolated frame; 0 before the first */
    uint32_t m_looped;     /**< non-zero: the first step follows the last */
} KIVCS2Interpolation;

/**
 * Clears the sequence: no steps, not looped, the value 0.
 * @retval KIVCS2STATUS_PARAM_ERR  `interpolation` is null
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Interpolation_init(KIVCS2Interpolation *interpolation);

/**
 * Adds a step that moves from `start` on its first frame to `end` on its last.
 *
 * A step of one frame has no t between its ends: executing it gives a value that is not a number.
 * A step with the linear curve is added, and executing it fails.
 * @param[in,out] interpolation  initialised
 * @param[in]     function       below KIVCS2InterpolationFunctionMax
 * @param[in]     frames         at least 1
 * @param[in]     start          the value of the first frame
 * @param[in]     end            the value of the last frame
 * @retval KIVCS2STATUS_PARAM_ERR  `interpolation` is null, `function` or `frames` is out of its range, or
 *                                 there are 16 steps already (without an assertion); the sequence is
 *                                 unchanged
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Interpolation_addInterpolateStepInFrames(KIVCS2Interpolation *interpolation,
                                                                       KIVCS2InterpolationFunction function,
                                                                       uint32_t frames, double start,
                                                                       double end);

/**
 * As kivCS2Interpolation_addInterpolateStepInFrames(), for the whole frames in `seconds` at the frame rate of
 * the timecode module. Note the order of the arguments: the length comes last.
 * @retval KIVCS2STATUS_INVALID_TIMECODE_ERR  the seconds come to 0xFFFFFFFF frames, in the low 32 bits
 * @retval KIVCS2STATUS_PARAM_ERR  as there; also if the seconds are less than a frame or not a number, or no
 *                                 frame rate is set, because these give 0 frames
 * Thread safety: one thread at a time, while no other thread changes the frame rate.
 */
KIVCS2_API KIVCS2Status kivCS2Interpolation_addInterpolateStepInSeconds(KIVCS2Interpolation *interpolation,
                                                                        KIVCS2InterpolationFunction function,
                                                                        double start, double end,
                                                                        double seconds);

/**
 * Adds a step that keeps the value for `frames` frames, at least 1.
 * @retval KIVCS2STATUS_PARAM_ERR  `interpolation` is null, `frames` is 0, or there are 16 steps already
 *                                 (without an assertion); the sequence is unchanged
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Interpolation_addHoldStepInFrames(KIVCS2Interpolation *interpolation,
                                                                uint32_t frames);

/**
 * As kivCS2Interpolation_addHoldStepInFrames(), with the length and the further statuses of
 * kivCS2Interpolation_addInterpolateStepInSeconds().
 */
KIVCS2_API KIVCS2Status kivCS2Interpolation_addHoldStepInSeconds(KIVCS2Interpolation *interpolation,
                                                                 double seconds);

/**
 * Stores whether the first step follows the last one. A sequence that has ended does not start again.
 * @retval KIVCS2STATUS_PARAM_ERR  `interpolation` is null
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Interpolation_setLooped(KIVCS2Interpolation *interpolation, uint32_t looped);

/**
 * Stores the value of the current frame and advances to the next. A hold step, an ended sequence and a
 * sequence without steps give the last value again.
 * @param[in,out] interpolation  initialised
 * @param[out]    outValue       may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `interpolation` is null, or the step's curve is the linear one (without an
 *         assertion); nothing has advanced and nothing is stored
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Interpolation_execute(KIVCS2Interpolation *interpolation, double *outValue);

/**
 * Stores a curve's value at `t`.
 * @param[in]  function  1 to 12: the linear curve is refused
 * @param[out] outValue  the value
 * @param[in]  t         0 to 1; a NaN gives a NaN
 * @retval KIVCS2STATUS_PARAM_ERR  `function` or `t` is out of its range, or `outValue` is null (all without
 *         an assertion); nothing is stored
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Interpolate_value(KIVCS2InterpolationFunction function, double *outValue,
                                                double t);

/* The curves as plain functions of t, which is not checked. Thread safety: any thread. */

/** t. */
KIVCS2_API double kivCS2InterpolationCallback_Linear(double t);
/** t^2. */
KIVCS2_API double kivCS2InterpolationCallback_QuadraticIn(double t);
/** -t^2 + 2t. */
KIVCS2_API double kivCS2InterpolationCallback_QuadraticOut(double t);
/** 2t^2; above 0.5: 2t(2 - t) - 1. */
KIVCS2_API double kivCS2InterpolationCallback_QuadraticInOut(double t);
/** t^3. */
KIVCS2_API double kivCS2InterpolationCallback_CubicIn(double t);
/** 1 + (t - 1)^3. */
KIVCS2_API double kivCS2InterpolationCallback_CubicOut(double t);
/** 4t^3; above 0.5: 0.5(2t - 2)^3 + 1. */
KIVCS2_API double kivCS2InterpolationCallback_CubicInOut(double t);
/** exp((t - 1)k) with k = 6.931618662570565: begins at 0.000976, not at 0. */
KIVCS2_API double kivCS2InterpolationCallback_ExpIn(double t);
/** 1 - exp(-kt): ends at 0.999024, not at 1. */
KIVCS2_API double kivCS2InterpolationCallback_ExpOut(double t);
/** 0.5 exp(k(2t - 1)); above 0.5: 1 - 0.5 exp(-k(2t - 1)): from 0.000488 to 0.999512. */
KIVCS2_API double kivCS2InterpolationCallback_ExpInOut(double t);
/** 1 - sin(pi/2 + pi/2 t). */
KIVCS2_API double kivCS2InterpolationCallback_SinIn(double t);
/** sin(pi/2 t). */
KIVCS2_API double kivCS2InterpolationCallback_SinOut(double t);
/** 0.5 - 0.5 sin(pi/2 + pi t). */
KIVCS2_API double kivCS2InterpolationCallback_SinInOut(double t);

KIVCS2_END_DECLS

#endif
