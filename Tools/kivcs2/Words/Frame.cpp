// kivcs2 frame: describes, converts, makes and shows raw frames.
#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Pictures/ColourBars.h"
#include "Pictures/PngFile.h"
#include "Pictures/RawFrames.h"
#include "Terminal/HalfBlocks.h"
#include "Terminal/Output.h"
#include "Words/VideoFormats.h"
#include "Words/Words.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>

namespace tool
{
namespace
{

constexpr uint32_t kMostPixels = 16384; // in a line and in a column: a gibibyte
constexpr uint32_t kLinesOfStandardDefinition = 576;

// The pixel layouts of 8 Bit, 10 Bit and RGBA in the table of video formats.
constexpr std::array kTablePixels = {"2vuy", "v210", "rgba"};

const std::map<std::string, KIVCS2PixelBufferClearColour> kClearColours = {
    {"white", KIVCS2PixelBuffer_ClearWhite},
    {"black", KIVCS2PixelBuffer_ClearBlack},
    {"grey", KIVCS2PixelBuffer_ClearGrey}};
const std::map<std::string, BarPattern> kBarPatterns = {
    {"smpte", BarPattern::Smpte}, {"ebu75", BarPattern::Ebu75}, {"ebu100", BarPattern::Ebu100}};
const std::map<std::string, Matrix> kMatrices = {{"601", Matrix::BT601}, {"709", Matrix::BT709}};

struct FrameArguments
{
    std::string source, target;
    std::string video, format, to, size;
    uint32_t width = 0, height = 0, rowBytes = 0;
    uint64_t frame = 0, frames = 1;
    std::string colour = "black", pattern = "smpte", matrix;
    bool show = false, alpha = false, json = false;
};

FrameLayout layoutOf(const FrameArguments &arguments)
{
    FrameLayout layout;
    layout.width = arguments.width;
    layout.height = arguments.height;
    if (!arguments.video.empty())
    {
        const auto video = findVideoFormat(arguments.video);
        if (!video)
            throw Failure(kExitUsage, noVideoFormat(arguments.video));
        layout.pixels = &pixelLayout(kTablePixels[video->m_pixelFormat]);
        layout.width = video->m_nativeWidth;
        layout.height = video->m_nativeHeight;
        layout.pixelAspect = static_cast<double>(video->m_hSpacing) / video->m_vSpacing;
        layout.framesPerSecond = video->m_frameRateInfo->m_exactRate;
    }
    if (!arguments.format.empty())
        layout.pixels = &pixelLayout(arguments.format);
    if (layout.pixels == nullptr || layout.width == 0 || layout.height == 0)
        throw Failure(kExitUsage, "raw frames have no header: give --video, or --width, --height and "
                                  "--format");
    layout.rowBytes = layout.pixels->rowBytes(layout.width);
    if (arguments.rowBytes > 0)
    {
        // Less than the alignment, but with all pixels.
        const size_t needed = (size_t{layout.width} + layout.pixels->blockPixels - 1) /
                              layout.pixels->blockPixels * layout.pixels->blockBytes;
        if (arguments.rowBytes < needed)
            throw Failure(kExitUsage, "--row-bytes: the pixels of a row take " + count(needed, "byte"));
        layout.rowBytes = arguments.rowBytes;
    }
    return layout;
}

Matrix matrixFor(const FrameArguments &arguments, uint32_t height)
{
    if (!arguments.matrix.empty())
        return kMatrices.at(arguments.matrix);
    return height <= kLinesOfStandardDefinition ? Matrix::BT601 : Matrix::BT709;
}

void show(const Frame &frame, const FrameArguments &arguments, uint32_t sourceHeight, double pixelAspect)
{
    const FramePicture picture{frame, matrixFor(arguments, sourceHeight), arguments.alpha};
    drawHalfBlocks(picture.view(), Output::width(), pixelAspect);
}

Json toJson(const FrameLayout &layout)
{
    return {{"width", layout.width},
            {"height", layout.height},
            {"format", layout.pixels->name},
            {"rowBytes", layout.rowBytes},
            {"frameBytes", layout.frameBytes()}};
}

std::string targetName(const FrameArguments &arguments)
{
    return arguments.target == "-" ? "standard output" : visible(arguments.target);
}

int noSuchFrame(const std::string &name, uint64_t frames, uint64_t frame)
{
    note(name + ": " + count(frames, "frame") + "; there is no frame " + std::to_string(frame) +
         ", counted from 0");
    return kExitNo;
}

// Returns the layout of an operation's result.
FrameLayout layoutOf(const Frame &frame, const FrameLayout &source)
{
    FrameLayout layout = source;
    layout.width = frame.width();
    layout.height = frame.height();
    // A picture scaled to other proportions keeps its shape.
    layout.pixelAspect *= static_cast<double>(source.width) / frame.width() * frame.height() / source.height;
    return layout.in(*frame.pixels);
}

using FrameWork = std::function<Frame(const Frame &)>;

// Passes every frame of the source through `work` to the target, with only a few in memory. Without a target
// only the frame to show.
int forEachFrame(const FrameArguments &arguments, const FrameLayout &layout, const std::string &doing,
                 const FrameWork &work)
{
    FrameReader reader{arguments.source, layout};
    FrameWriter writer{arguments.target};
    Progress progress{doing + " " + reader.input().name()};
    if (arguments.target.empty())
        reader.skip(arguments.frame);
    FrameLayout made = layout;
    bool shown = false;
    while (const Frame *frame = reader.next())
    {
        const Frame result = work(*frame);
        made = layoutOf(result, layout);
        writer.write(result);
        if (arguments.show && reader.number() == arguments.frame + 1)
        {
            show(result, arguments, layout.height, made.pixelAspect);
            shown = true;
        }
        if (arguments.target.empty())
            break;
        progress.at(reader.input().position(), reader.input().size());
    }
    if (arguments.show && !shown)
        return noSuchFrame(reader.input().name(), reader.number(), arguments.frame);
    writer.commit();
    if (arguments.target.empty())
        return kExitYes;

    Facts facts;
    facts.add("In", visible(reader.input().name()) + ", " + count(reader.number(), "frame") + " of " +
                        layout.text());
    facts.add("Out", targetName(arguments) + ", " + made.text());
    report(arguments.json,
           {{"source", reader.input().name()},
            {"target", arguments.target},
            {"frames", reader.number()},
            {"in", toJson(layout)},
            {"out", toJson(made)}},
           facts);
    return kExitYes;
}

int convert(const FrameArguments &arguments)
{
    const FrameLayout layout = layoutOf(arguments);
    const PixelLayout &to = pixelLayout(arguments.to);
    if (!canConvert(*layout.pixels, to))
        throw Failure(kExitNotHere, "there is no conversion from " + std::string{layout.pixels->name} +
                                        " to " + std::string{to.name});
    return forEachFrame(arguments, layout, "converting",
                        [&to](const Frame &frame) { return converted(frame, to); });
}

// "960x540"
std::pair<uint32_t, uint32_t> parsePictureSize(const std::string &text)
{
    const size_t cross = std::min(text.find('x'), text.size());
    const auto width = wholeNumber(std::string_view{text}.substr(0, cross));
    const auto height = wholeNumber(std::string_view{text}.substr(std::min(cross + 1, text.size())));
    const auto isSide = [](const std::optional<uint64_t> &side)
    { return side && *side > 0 && *side <= UINT32_MAX; };
    if (!isSide(width) || !isSide(height))
        throw Failure(kExitUsage, "\"" + visible(text) + "\": not a size such as 960x540");
    return {static_cast<uint32_t>(*width), static_cast<uint32_t>(*height)};
}

int scale(const FrameArguments &arguments)
{
    const FrameLayout layout = layoutOf(arguments);
    const auto [width, height] = parsePictureSize(arguments.size);
    if (width >= layout.width || height >= layout.height)
        throw Failure(kExitUsage, "--size " + arguments.size + ": scaling makes a picture of " +
                                      std::to_string(layout.width) + " x " + std::to_string(layout.height) +
                                      " smaller, in both directions");
    const bool rgb = layout.pixels->isRGB();
    // The library takes 2vuy and four-byte RGB in any order, and leaves three bytes for 2vuy.
    const PixelLayout &taken = !rgb                             ? pixelLayout("2vuy")
                               : layout.pixels->blockBytes == 4 ? *layout.pixels
                                                                : pixelLayout("rgba");
    const PixelLayout &left = rgb ? taken : pixelLayout("rgb");
    return forEachFrame(arguments, layout, "scaling",
                        [&, size = std::pair{width, height}](const Frame &frame)
                        {
                            CVPixelBufferRef made = nullptr;
                            check(kivCS2PixelBuffer_scale(converted(frame, taken).buffer.get(), &made,
                                                          size.first, size.second),
                                  "scaling a frame");
                            return converted(Frame{left, made}, rgb ? *layout.pixels : left);
                        });
}

int deinterlace(const FrameArguments &arguments)
{
    const FrameLayout layout = layoutOf(arguments);
    return forEachFrame(arguments, layout, "deinterlacing",
                        [](const Frame &frame)
                        {
                            check(kivCS2PixelBuffer_deinterlace(frame.buffer.get()), "deinterlacing a frame");
                            return converted(frame, *frame.pixels);
                        });
}

// Writes one frame as often as requested.
int repeat(const FrameArguments &arguments, const FrameLayout &layout, const Frame &frame,
           const std::string &what)
{
    FrameWriter writer{arguments.target};
    if (arguments.show)
        show(frame, arguments, layout.height, layout.pixelAspect);
    if (arguments.target.empty())
        return kExitYes;
    Progress progress{"writing " + place(arguments.target, 0)};
    while (writer.frames() < arguments.frames)
    {
        writer.write(frame);
        progress.at(writer.frames(), arguments.frames);
    }
    writer.commit();
    Facts facts;
    facts.add("Out",
              targetName(arguments) + ", " + count(arguments.frames, "frame") + " of " + layout.text());
    facts.add("Picture", what);
    report(arguments.json,
           {{"target", arguments.target},
            {"frames", arguments.frames},
            {"picture", what},
            {"out", toJson(layout)}},
           facts);
    return kExitYes;
}

// The library fills pixels: the pair of a last odd pixel lacks the shared chroma.
void completeLastPairs(const Frame &frame)
{
    const LockedPixels pixels{frame.buffer.get()};
    const size_t bytes = frame.pixels->rowBytes(frame.width());
    for (size_t row = 0; row < frame.height(); ++row)
        std::copy_n(pixels.row(row), 2, pixels.row(row) + bytes - 2);
}

int clear(const FrameArguments &arguments)
{
    const FrameLayout layout = layoutOf(arguments);
    const PixelLayout &filled = pixelLayout(layout.pixels->isRGB() ? "rgba" : "2vuy");
    if (!canConvert(filled, *layout.pixels))
        throw Failure(kExitNotHere,
                      std::string{layout.pixels->name} +
                          ": 2vuy and RGB can be filled with a colour, and there is no conversion "
                          "from them");
    Frame frame{filled, layout.width, layout.height};
    check(kivCS2PixelBuffer_clear(frame.buffer.get(), kClearColours.at(arguments.colour)), "filling a frame");
    if (!layout.pixels->isRGB() && layout.width % 2 != 0)
        completeLastPairs(frame);
    return repeat(arguments, layout, converted(frame, *layout.pixels), arguments.colour);
}

int bars(const FrameArguments &arguments)
{
    const FrameLayout layout = layoutOf(arguments);
    const Matrix matrix = matrixFor(arguments, layout.height);
    const BarPattern pattern = kBarPatterns.at(arguments.pattern);
    std::string what{barPatternName(pattern, layout.height)};
    if (!layout.pixels->isRGB())
        what += matrix == Matrix::BT601 ? ", ITU-R BT.601" : ", ITU-R BT.709";
    return repeat(arguments, layout, colourBars(pattern, matrix, *layout.pixels, layout.width, layout.height),
                  what);
}

int png(const FrameArguments &arguments)
{
    const FrameLayout layout = layoutOf(arguments);
    FrameReader reader{arguments.source, layout};
    refuseSource(arguments.target);
    reader.skip(arguments.frame);
    const Frame *frame = reader.next();
    if (frame == nullptr)
        return noSuchFrame(reader.input().name(), reader.number(), arguments.frame);
    if (arguments.show)
        show(*frame, arguments, layout.height, layout.pixelAspect);
    if (arguments.target.empty())
        return kExitYes;
    const FramePicture picture{*frame, matrixFor(arguments, layout.height), arguments.alpha};
    writePNG(arguments.target, picture.view());
    Facts facts;
    facts.add("In", visible(reader.input().name()) + ", frame " + std::to_string(arguments.frame) + " of " +
                        layout.text());
    facts.add("Out", targetName(arguments));
    report(arguments.json,
           {{"source", reader.input().name()},
            {"target", arguments.target},
            {"frame", arguments.frame},
            {"in", toJson(layout)}},
           facts);
    return kExitYes;
}

// The bytes of the whole input; an input that is not a file is read to its end. The frame to show is shown
// on the way, because a pipe can be read only once.
uint64_t sizeOf(const FrameArguments &arguments, const FrameLayout &layout)
{
    Input input{arguments.source};
    uint64_t number = 0;
    if (input.isRegularFile())
    {
        if (!arguments.show)
            return input.size();
        number = input.skip(arguments.frame, layout.frameBytes());
    }
    Progress progress{"reading " + input.name()};
    std::vector<uint8_t> block(layout.frameBytes());
    const Frame frame{layout, block};
    while (const size_t filled = input.read(block))
    {
        if (arguments.show && filled == block.size() && number++ == arguments.frame)
            show(frame, arguments, layout.height, layout.pixelAspect);
        if (input.isRegularFile())
            break;
        progress.at(input.position(), input.size());
    }
    return input.isRegularFile() ? input.size() : input.position();
}

int info(const FrameArguments &arguments)
{
    const FrameLayout layout = layoutOf(arguments);
    const uint64_t bytes = sizeOf(arguments, layout);
    const uint64_t frames = bytes / layout.frameBytes();
    const uint64_t rest = bytes % layout.frameBytes();
    const std::string name = place(arguments.source, 0);
    int code = frames == 0 || rest != 0 ? kExitMalformed : kExitYes;
    const bool timed = layout.framesPerSecond > 0;
    const double seconds = timed ? static_cast<double>(frames) / layout.framesPerSecond : 0;
    if (arguments.json)
    {
        Json value{{"file", name}, {"bytes", bytes}, {"frames", frames}, {"bytesLeftOver", rest}};
        value.update(toJson(layout));
        value["seconds"] = timed ? Json(seconds) : Json();
        out().json(value);
        return code;
    }
    Facts facts;
    facts.add("File", visible(name) + ", " + count(bytes, "byte"));
    facts.add("Size", std::to_string(layout.width) + " x " + std::to_string(layout.height) + " pixels");
    facts.add("Pixels", std::string{layout.pixels->name} + " (" + std::string{layout.pixels->meaning} + ")");
    facts.add("Row", count(layout.rowBytes, "byte"));
    facts.add("Frame", count(layout.frameBytes(), "byte"));
    facts.add("Frames", std::to_string(frames));
    if (timed)
        facts.add("Lasts", print("%.3f s at %.6g frames a second", seconds, layout.framesPerSecond));
    if (rest != 0)
        facts.add("Left over", Output::bad(count(rest, "byte")));
    facts.print();
    if (arguments.show && arguments.frame >= frames)
        code = std::max(code, noSuchFrame(name, frames, arguments.frame));
    return code;
}

using FrameWord = int (*)(const FrameArguments &);

template <class Value>
Names namesIn(const std::map<std::string, Value> &values)
{
    Names names;
    for (const auto &[name, value] : values)
        names.push_back(name);
    return names;
}

// The layout of the frames in the file, or of those to make.
void addLayout(Word &word, FrameArguments &arguments, bool hasSource)
{
    word.option("--video", arguments.video, "Size and pixels of a video format, as kivcs2 format lists them")
        .suggests("video formats", videoFormatNames);
    word.option("--width", arguments.width, {1, kMostPixels}, "Pixels of a line").excludes("--video");
    word.option("--height", arguments.height, {1, kMostPixels}, "Lines").excludes("--video");
    word.option("--format", arguments.format, "v210, 2vuy, yuvs, rgba, bgra, argb or rgb")
        .suggests("pixel formats", pixelLayoutNames);
    if (!hasSource)
    {
        word.option("--frames", arguments.frames, {1, uint64_t{1} << 32}, "How many, otherwise 1");
        return;
    }
    word.option("--row-bytes", arguments.rowBytes, {1, 1u << 20}, "From one row of the file to the next");
    word.option("--frame", arguments.frame, {}, "The frame to take, counted from 0");
}

void addLooking(Word &word, FrameArguments &arguments)
{
    word.flag("--show", arguments.show, "Draw a frame of the result on the terminal");
    word.flag("--alpha", arguments.alpha, "Use the alpha of RGB; otherwise it is opaque");
    word.option("--matrix", arguments.matrix, "601 or 709; otherwise 601 up to 576 lines and 709 above")
        .among(namesIn(kMatrices));
}

std::string pixelText()
{
    std::string text = "Pixel formats:";
    for (const PixelLayout &layout : pixelLayouts())
        text += "\n  " + std::string{layout.name} + "  " + std::string{layout.meaning};
    return text;
}

struct WordRow
{
    const char *name;
    const char *help;
    bool hasSource;
    bool hasTarget;
    FrameWord body;
    const char *example;
};

constexpr const char *kBarsExample = "kivcs2 frame bars bars.v210 --video \"1080i25 10 Bit\" --frames 2";
constexpr WordRow kWords[] = {
    {"info", "Frames, bytes and length of a file; exit 3 if the last frame is not complete", true, false,
     info, "kivcs2 frame info in.v210 --video \"625i25 10 Bit\""},
    {"convert", "Other pixels: v210 to 2vuy to RGB, and the orders of bytes", true, true, convert,
     "kivcs2 frame convert in.v210 out.2vuy --to 2vuy --video \"625i25 10 Bit\""},
    {"scale", "A smaller picture by point sampling; 4:2:2 becomes rgb", true, true, scale,
     "kivcs2 frame scale in.rgba small.rgba --size 320x180 --width 640 --height 360 --format rgba"},
    {"deinterlace", "Every odd line replaced by the line above it", true, true, deinterlace,
     "kivcs2 frame deinterlace in.2vuy out.2vuy --video 625i25"},
    {"clear", "Frames of one colour", false, true, clear,
     "kivcs2 frame clear black.2vuy --video 625i25 --colour black --frames 25"},
    {"bars", "Colour bars", false, true, bars, kBarsExample},
    {"png", "One frame as a PNG picture", true, true, png,
     "kivcs2 frame png in.v210 picture.png --video \"625i25 10 Bit\""},
};

// The options that only some words have.
void addOwnOptions(Word &frame, FrameArguments &arguments)
{
    frame.below("convert")
        .option("--to", arguments.to, "The pixel format of the target")
        .required()
        .suggests("pixel formats", pixelLayoutNames);
    frame.below("scale").option("--size", arguments.size, "Such as 960x540").required();
    frame.below("clear")
        .option("--colour", arguments.colour, "white, black or grey, otherwise black")
        .among(namesIn(kClearColours));
    frame.below("bars")
        .option("--pattern", arguments.pattern,
                "smpte (75 % over the PLUGE), ebu75 or ebu100, otherwise smpte")
        .among(namesIn(kBarPatterns));
}

// The help text of each word after its options.
void describeWords(Word &frame)
{
    frame.below("info").about(
        "Prints the bytes of a row and of a frame, the number of frames, and their length in seconds if\n"
        "the video format has a rate. Exit code 3: no frame, or the last one is not complete.");
    frame.below("convert").about(
        "Converts every frame; between 4:2:2 and RGB by the matrix of ITU-R BT.601. Prints the number of\n"
        "frames, on standard error when the target is -. Exit code 5: there is no such conversion.");
    frame.below("scale").about(
        "Takes the pixels at multiples of the proportion, without a filter; the size is to be smaller than\n"
        "the picture. Prints the number of frames, on standard error when the target is -.");
    frame.below("deinterlace")
        .about("Drops the second field and keeps the size. Prints the number of frames, on standard error if "
               "the\n"
               "target is -.");
    frame.below("clear").about(
        "Writes frames (--frames of them, otherwise one) of white, black or grey. Exit code 5: the library\n"
        "does not fill pixels of this format.");
    frame.below("bars").about(
        "Writes frames (--frames of them, otherwise one) of bars for measuring: SMPTE EG 1 with PLUGE, or\n"
        "EBU bars of 75 or 100 %. Prints the picture, on standard error when the target is -.");
    frame.below("png").about(
        "Writes RGB of 8 bits a component. --frame picks the frame, counted from 0. Prints what was "
        "written,\n"
        "on standard error when the target is -. Exit code 1: the file has no such frame.");
}

} // namespace

void addFrameCommand(Word &root, Context &context)
{
    Word &frame =
        root.word("frame", "Raw frames: described, converted, made and shown").group(kGroupPictures);
    frame.about(pixelText());
    const auto arguments = std::make_shared<FrameArguments>();
    for (const WordRow &row : kWords)
    {
        Word &word = frame.word(row.name, row.help).example(row.example);
        if (row.hasSource)
            word.option("file", arguments->source, "Raw frames; - is standard input").required().isFile();
        if (row.hasTarget)
            word.option("target", arguments->target, "The result; - is standard output").isTarget();
        addLayout(word, *arguments, row.hasSource);
        addLooking(word, *arguments);
        word.refuses(
            [&context, arguments, hasTarget = row.hasTarget]
            {
                if (hasTarget && arguments->target.empty() && !arguments->show)
                    return "target or --show is required";
                const bool isTaken = arguments->show && (context.json || arguments->target == "-");
                return isTaken ? "--show: standard output is for the picture" : "";
            });
        word.runs(
            [&context, arguments, body = row.body]
            {
                arguments->json = context.json;
                return body(*arguments);
            });
    }
    addOwnOptions(frame, *arguments);
    describeWords(frame);
}

} // namespace tool
