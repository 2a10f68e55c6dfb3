// kivcs2 curve: the interpolation curves as a table, as plots, and as sequences run frame by frame.
#include "CommandLine/Numbers.h"
#include "Counting.h"
#include "Failure.h"
#include "Pictures/CurvePlot.h"
#include "Pictures/PngFile.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <cmath>
#include <memory>

namespace tool
{
namespace
{

constexpr uint32_t kMostFrames = 10000000; // the most for a step and for a run; more than a day
constexpr uint32_t kSecondsPerDay = 86400;
constexpr size_t kWidestPlot = 72; // characters; wider ones are flat

[[nodiscard]] Failure usage(const std::string &text)
{
    return {kExitUsage, text};
}

KIVCS2InterpolationFunction curveNamed(const std::string &text)
{
    const auto curve = findCurve(text);
    if (!curve)
    {
        const std::string nearest = hint(curveNames(), text);
        throw usage("\"" + text + "\" is not a curve" +
                    (nearest.empty() ? "; kivcs2 curve list has them" : nearest));
    }
    return *curve;
}

int listCurves(bool json)
{
    constexpr double kQuarters[] = {0, 0.25, 0.5, 0.75, 1};
    Table table{">Code", "Curve", ">f(0)", ">f(0.25)", ">f(0.5)", ">f(0.75)", ">f(1)", "Formula"};
    JsonArray *array = nullptr;
    std::optional<JsonArray> opened;
    if (json)
        array = &opened.emplace();
    for (KIVCS2InterpolationFunction code = 0; code < kCurves.size(); ++code)
    {
        const Curve &curve = kCurves[code];
        std::vector<Shown> cells = {std::to_string(code), std::string{curve.name}};
        Json values = Json::array();
        for (const double t : kQuarters)
        {
            values.push_back(curve.valueAt(t));
            cells.emplace_back(print("%.6f", curve.valueAt(t)));
        }
        cells.emplace_back(curve.formula);
        double value = 0;
        if (array != nullptr)
            array->add({{"code", code},
                        {"name", curve.name},
                        {"formula", curve.formula},
                        {"executes", KIVCS2_SUCCEEDED(kivCS2Interpolate_value(code, &value, 0))},
                        {"quarters", values}});
        else
            table.add(std::move(cells));
    }
    if (array != nullptr)
    {
        array->close();
        return kExitYes;
    }
    table.print();
    out().line("");
    out().line("Two formulas: up to t = 0.5, and above. k is 6.931618662570565. A step with Linear does not "
               "execute.");
    return kExitYes;
}

int plotCurves(const std::string &wanted, bool json)
{
    if (json)
        throw Failure(kExitUsage, "a plot cannot be JSON; kivcs2 curve list has values");
    if (wanted.empty())
        printCurves(Output::width());
    else
        printCurve(curveNamed(wanted), std::min(Output::width(), kWidestPlot));
    return kExitYes;
}

int drawCurves(const std::string &target, const std::string &wanted, uint32_t side)
{
    const Picture picture = wanted.empty() ? pictureOfCurves(side != 0 ? side : 200)
                                           : pictureOf(curveNamed(wanted), side != 0 ? side : 480);
    writePNG(target, picture.view());
    return kExitYes;
}

// ---- Sequences

struct RunOptions
{
    std::vector<std::string> steps;
    std::string rate = "25";
    uint32_t frames = 0; // 0: as many as the steps have
    bool looped = false;
};

double number(std::string_view text, const std::string &step)
{
    const auto value = realNumber(text);
    if (!value)
        throw usage("\"" + step + "\": \"" + std::string{text} + "\" is not a number");
    return *value;
}

std::vector<std::string_view> split(std::string_view text)
{
    std::vector<std::string_view> parts;
    for (;;)
    {
        const size_t colon = std::min(text.find(':'), text.size());
        parts.push_back(text.substr(0, colon));
        if (colon == text.size())
            return parts;
        text.remove_prefix(colon + 1);
    }
}

// "25" frames or "1.5s". Both are validated before they reach the library.
struct Length
{
    double seconds = 0;
    uint32_t frames = 0; // 0: the seconds count
};

Length lengthOf(std::string_view text, const std::string &step)
{
    const bool inSeconds = text.ends_with('s');
    const double value = number(inSeconds ? text.substr(0, text.size() - 1) : text, step);
    const double most = inSeconds ? kSecondsPerDay : kMostFrames;
    uint32_t frames = 0;
    if (value > 0 && value <= most && inSeconds)
    {
        KIVCS2Timecode whole = 0;
        check(kivCS2Timecode_initWithSeconds(&whole, value), step);
        frames = framesOf(whole);
    }
    else if (value > 0 && value <= most && value == std::floor(value))
        frames = static_cast<uint32_t>(value);
    if (frames == 0)
        throw usage("\"" + step + "\": a step has 1 to " + std::to_string(kMostFrames) +
                    " frames, or a frame to a day in seconds");
    return inSeconds ? Length{value, 0} : Length{0, frames};
}

void addStep(KIVCS2Interpolation &sequence, const std::string &step)
{
    const auto parts = split(step);
    const bool isHold = parts[0] == "hold";
    if (parts.size() != (isHold ? 2u : 4u))
        throw usage("\"" + step + "\": a step is CURVE:LENGTH:START:END or hold:LENGTH");
    const auto curve = isHold ? 0 : curveNamed(std::string{parts[0]});
    const Length length = lengthOf(parts[1], step);
    if (isHold)
    {
        check(length.frames > 0 ? kivCS2Interpolation_addHoldStepInFrames(&sequence, length.frames)
                                : kivCS2Interpolation_addHoldStepInSeconds(&sequence, length.seconds),
              step);
        return;
    }
    const double start = number(parts[2], step);
    const double end = number(parts[3], step);
    check(length.frames > 0
              ? kivCS2Interpolation_addInterpolateStepInFrames(&sequence, curve, length.frames, start, end)
              : kivCS2Interpolation_addInterpolateStepInSeconds(&sequence, curve, start, end, length.seconds),
          step);
}

int runSequence(const RunOptions &options, bool json)
{
    if (options.steps.size() > KIVCS2_INTERPOLATION_STEPS)
        throw usage("a sequence has at most " + count(KIVCS2_INTERPOLATION_STEPS, "step"));
    use(countingFor(options.rate, std::nullopt));
    KIVCS2Interpolation sequence;
    check(kivCS2Interpolation_init(&sequence), "sequence");
    for (const std::string &step : options.steps)
        addStep(sequence, step);
    check(kivCS2Interpolation_setLooped(&sequence, options.looped ? 1 : 0), "sequence");

    uint64_t frames = options.frames;
    for (uint32_t step = 0; options.frames == 0 && step < sequence.m_count; ++step)
        frames += sequence.m_steps[step].m_frames;

    std::optional<JsonArray> array;
    if (json)
        array.emplace();
    else
        out().line(Output::strong("Frame  Step         Value"));
    for (uint64_t frame = 0; frame < frames; ++frame)
    {
        const uint32_t step = sequence.m_currentStep;
        const bool hasEnded = step == sequence.m_count;
        double value = 0;
        const KIVCS2Status status = kivCS2Interpolation_execute(&sequence, &value);
        if (KIVCS2_FAILED(status))
            throw usage(options.steps[step] + ": the step does not execute (" + statusText(status) + ")");
        if (array)
            array->add({{"frame", frame},
                        {"step", hasEnded ? Json{} : Json(step + 1)},
                        {"value", std::isfinite(value) ? Json(value) : Json{}}});
        else
            out().line(print("%5llu  %4s  %12s", static_cast<unsigned long long>(frame),
                             hasEnded ? "-" : std::to_string(step + 1).c_str(),
                             std::isnan(value) ? "nan" : print("%.6g", value).c_str())); // both signs
    }
    if (array)
        array->close();
    return kExitYes;
}

void addRunWord(Word &curve, Context &context)
{
    const auto options = std::make_shared<RunOptions>();
    Word &word = curve.word("run", "The values of a sequence, frame by frame");
    word.about("A step is CURVE:LENGTH:START:END or hold:LENGTH; the length is in frames, or in seconds as "
               "\"1.5s\".\n"
               "A step of one frame has no value. Prints the frame, from 0, the step and its value.");
    word.option("step", options->steps, "The steps, 16 at most").required();
    word.option("--rate", options->rate, "Frames a second, for lengths in seconds; otherwise 25")
        .suggests("rates", rateNames);
    word.option("--frames", options->frames, {1, kMostFrames},
                "This many frames instead of those of the steps");
    word.flag("--looped", options->looped, "The first step follows the last");
    word.example("kivcs2 curve run QuadraticIn:5:0:100 hold:3 SinOut:1s:100:0 --rate 25");
    word.example("kivcs2 curve run SinInOut:25:0:1 SinInOut:25:1:0 --looped --frames 200");
    word.runs([&context, options] { return runSequence(*options, context.json); });
}

} // namespace

void addCurveCommand(Word &root, Context &context)
{
    Word &curve = root.word("curve", "Interpolation curves: table, plots, sequences").group(kGroupPictures);

    Word &list = curve.word("list", "The curves, their formulas and values");
    list.about(
        "Prints number, name, formula, and the values at five moments t from 0 to 1. These are the names\n"
        "that the other words take, in any case.");
    list.example("kivcs2 curve list");
    list.runs([&context] { return listCurves(context.json); });

    const auto plotted = std::make_shared<std::string>();
    Word &plot = curve.word("plot", "A plot in characters, of one curve or of all");
    plot.option("curve", *plotted, "A name or a number; without it all").suggests("curves", curveNames);
    plot.about(
        "Draws f(t) for t from 0 to 1, as wide as the terminal. There is no --json: kivcs2 curve list has\n"
        "the values.");
    plot.example("kivcs2 curve plot ExpInOut");
    plot.runs([&context, plotted] { return plotCurves(*plotted, context.json); });

    const auto target = std::make_shared<std::string>();
    const auto drawn = std::make_shared<std::string>();
    const auto side = std::make_shared<uint32_t>(0);
    Word &png = curve.word("png", "The same as a picture");
    png.option("file", *target, "The PNG file; - is standard output").required().isTarget();
    png.option("curve", *drawn, "A name or a number; without it all").suggests("curves", curveNames);
    png.option("--side", *side, {64, 2000},
               "Pixels of a plot, wide and high; otherwise 480, or 200 for each of several");
    png.about(
        "Draws f(t) for t from 0 to 1, one plot for each curve. The file appears complete or not at all.");
    png.example("kivcs2 curve png curve.png SinOut --side 1000");
    png.runs([target, drawn, side] { return drawCurves(*target, *drawn, *side); });

    addRunWord(curve, context);
}

} // namespace tool
