// The thirteen interpolation curves: their names, and plots of them in characters and in pixels.
#ifndef KIV_TOOL_CURVE_PLOT_H
#define KIV_TOOL_CURVE_PLOT_H

#include "Pictures/Picture.h"

#include <KIVCoreServices2/KIVCS2Interpolate.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace tool
{

struct Curve
{
    std::string_view name;
    std::string_view formula; ///< for people
    double (*valueAt)(double t);
};

/// Indexed by KIVCS2InterpolationFunction.
extern const std::array<Curve, KIVCS2InterpolationFunctionMax> kCurves;

[[nodiscard]] std::vector<std::string> curveNames();

/// The curve of a name in any case, of an unambiguous beginning ("quadratic-in" too), or of a number.
[[nodiscard]] std::optional<KIVCS2InterpolationFunction> findCurve(std::string_view text);

/// One curve in braille dots with axes, `columns` characters wide.
void printCurve(KIVCS2InterpolationFunction curve, size_t columns);

/// All of them: the linear curve, then a column for each family with rows for in, out and in-out.
void printCurves(size_t columns);

/// One curve with axes over a grid of quarters, the plot `side` pixels wide and high.
[[nodiscard]] Picture pictureOf(KIVCS2InterpolationFunction curve, uint32_t side);

/// All of them, arranged as by printCurves().
[[nodiscard]] Picture pictureOfCurves(uint32_t side);

} // namespace tool

#endif
