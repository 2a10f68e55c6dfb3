// kivcs2 audio: samples of video frames, format codes, and raw PCM files converted and split.
#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2AudioFormat.h>
#include <KIVCoreServices2/KIVCS2PCMAudioConverter.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <numeric>
#include <span>

namespace tool
{
namespace
{

// ---- Weave ----

// Indexed by the code of the rate, without the countings, because samples do not depend on countings.
struct Rate
{
    std::string_view name;
    uint32_t numerator; ///< frames a second, exactly, as a fraction
    uint32_t denominator;
};

constexpr std::array<Rate, KIVCS2FrameRate_MAX> kRates = {{
    {"23.98", 24000, 1001},
    {"24", 24, 1},
    {"25", 25, 1},
    {"29.97", 30000, 1001},
    {"30", 30, 1},
    {"50", 50, 1},
    {"59.94", 60000, 1001},
    {"60", 60, 1},
}};

Names rateNames()
{
    Names names;
    for (const Rate &rate : kRates)
        names.emplace_back(rate.name);
    return names;
}

struct Weave
{
    std::vector<uint32_t> samples; ///< samples of each frame of the cycle
    uint32_t most = 0;
    uint64_t sum = 0;
    int64_t missed = 0; ///< the missing samples of the cycle
};

Weave weaveOf(KIVCS2FrameRate rate, uint32_t sampleRate)
{
    Weave weave;
    uint32_t frames = 0;
    check(
        kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames(rate, sampleRate, &frames, nullptr, &weave.most),
        "weave");
    weave.samples.resize(frames);
    check(kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames(rate, sampleRate, &frames, weave.samples.data(),
                                                              nullptr),
          "weave");
    weave.sum = std::accumulate(weave.samples.begin(), weave.samples.end(), uint64_t{0});
    const Rate &exact = kRates[rate];
    const uint64_t wanted = uint64_t{sampleRate} * exact.denominator * frames; // in units of 1 / numerator
    weave.missed = static_cast<int64_t>((wanted + exact.numerator / 2) / exact.numerator) -
                   static_cast<int64_t>(weave.sum);
    return weave;
}

// "1602 x 3, 1601 x 2": the larger counts come first, so a weave has at most two runs.
std::string runs(const Weave &weave)
{
    const auto larger = std::count(weave.samples.begin(), weave.samples.end(), weave.most);
    const auto smaller = static_cast<ptrdiff_t>(weave.samples.size()) - larger;
    std::string text = std::to_string(weave.most) + " x " + std::to_string(larger);
    if (smaller > 0)
        text += ", " + std::to_string(weave.samples.back()) + " x " + std::to_string(smaller);
    return text;
}

KIVCS2FrameRate rateNamed(std::string_view name)
{
    const auto found = std::ranges::find(kRates, name, &Rate::name);
    if (found == kRates.end())
        throw Failure(kExitUsage, "\"" + visible(name) +
                                      "\": the rates are 23.98, 24, 25, 29.97, 30, 50, 59.94 "
                                      "and 60");
    return static_cast<KIVCS2FrameRate>(found - kRates.begin());
}

int showWeaves(const std::string &rateName, uint32_t wantedSamples, bool json)
{
    std::vector<KIVCS2FrameRate> rates(KIVCS2FrameRate_MAX);
    std::iota(rates.begin(), rates.end(), 0u);
    if (!rateName.empty())
        rates = {rateNamed(rateName)};
    std::vector<uint32_t> sampleRates = {48000, 96000};
    if (wantedSamples != 0)
        sampleRates = {wantedSamples};

    Table table{"Rate", ">Samples/s", ">Cycle", ">Sum", "Weave", "Exact"};
    Json list = Json::array();
    for (const uint32_t sampleRate : sampleRates)
        for (const KIVCS2FrameRate rate : rates)
        {
            const Weave weave = weaveOf(rate, sampleRate);
            if (json)
                list.push_back({{"rate", kRates[rate].name},
                                {"samplesPerSecond", sampleRate},
                                {"frames", weave.samples.size()},
                                {"most", weave.most},
                                {"sum", weave.sum},
                                {"missed", weave.missed},
                                {"weave", weave.samples}});
            else
                table.add({std::string{kRates[rate].name}, std::to_string(sampleRate),
                           count(weave.samples.size(), "frame"), std::to_string(weave.sum), runs(weave),
                           weave.missed == 0  ? Output::good("yes")
                           : weave.missed > 0 ? Output::bad(std::to_string(weave.missed) + " short")
                                              : Output::bad(std::to_string(-weave.missed) + " over")});
        }
    if (json)
        out().json(list);
    else
        table.print();
    return kExitYes;
}

// ---- Format codes ----

struct CodeOptions
{
    std::string encoding = "lpcm";
    uint32_t sampleRate = 48000;
    uint32_t dataType = 0;
    uint32_t dataStream = 0;
    uint32_t endian = 0;
    uint32_t alignment = 0;
    uint32_t channels = 2;
    uint32_t bytes = 2;
    uint32_t used = 0; ///< 0: all
};

std::string characters(uint32_t code)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(code >> shift & 0xFFu);
    return visible(text);
}

int showDescription(KIVCS2AudioFormat code, bool json)
{
    KIVCS2AudioFormatDescription format{};
    check(kivCS2AudioFormat_getDescription(code, &format), "format");
    // The library describes every code; a field without a meaning gives 0.
    const bool isKnown = format.m_encoding != 0 && format.m_sampleRate != 0;
    if (json)
        out().json({{"code", print("0x%08x", code)},
                    {"known", isKnown},
                    {"encoding", format.m_encoding != 0 ? Json(characters(format.m_encoding)) : Json()},
                    {"sampleRate", format.m_sampleRate},
                    {"dataType", format.m_dataType},
                    {"dataStream", format.m_dataStream},
                    {"endian", format.m_endian},
                    {"alignment", format.m_alignment},
                    {"channels", format.m_channels},
                    {"bytesPerSample", format.m_bytesPerSample},
                    {"bytesUsedPerSample", format.m_bytesUsedPerSample}});
    else
    {
        Facts facts;
        facts.add("Code", Output::strong(print("0x%08x", code)));
        facts.add("Encoding", format.m_encoding != 0 ? "'" + characters(format.m_encoding) + "'" : "none");
        facts.add("Sample rate", format.m_sampleRate != 0 ? print("%u Hz", format.m_sampleRate) : "none");
        facts.add("Data type", std::to_string(format.m_dataType));
        facts.add("Data stream", std::to_string(format.m_dataStream));
        facts.add("Endian", std::to_string(format.m_endian));
        facts.add("Alignment", std::to_string(format.m_alignment));
        facts.add("Channels", std::to_string(format.m_channels));
        facts.add("Sample", count(format.m_bytesPerSample, "byte") + ", " +
                                std::to_string(format.m_bytesUsedPerSample) + " used");
        facts.print();
    }
    return isKnown ? kExitYes : kExitNo;
}

int makeCode(const CodeOptions &options, bool json)
{
    const uint32_t encoding = options.encoding == "aac" ? KIVCS2AFEncoding_AAC : KIVCS2AFEncoding_LPCM;
    const uint32_t sampleRate =
        options.sampleRate == 44100 ? KIVCS2AFSampleRate_44100 : KIVCS2AFSampleRate_48000;
    KIVCS2AudioFormat code = 0;
    check(kivCS2AudioFormat_getFormat(encoding, sampleRate, options.dataType, options.dataStream,
                                      options.endian, options.alignment, options.channels, options.bytes,
                                      options.used != 0 ? options.used : options.bytes, &code),
          "format");
    return showDescription(code, json);
}

int describeCode(std::string_view text, bool json)
{
    const auto code = hexadecimalNumber(text);
    if (!code || *code > UINT32_MAX)
        throw Failure(kExitUsage, "\"" + visible(text) + "\": not a 32-bit format code");
    return showDescription(static_cast<KIVCS2AudioFormat>(*code), json);
}

// ---- PCM files ----

struct SampleFormat
{
    std::string_view name;
    uint32_t bytes;
    uint32_t bits;
    AudioFormatFlags flags;
};

constexpr AudioFormatFlags kSigned = kAudioFormatFlagIsSignedInteger;
constexpr AudioFormatFlags kPacked = kAudioFormatFlagIsPacked;
constexpr AudioFormatFlags kBig = kAudioFormatFlagIsBigEndian;

constexpr std::array<SampleFormat, 10> kSampleFormats = {{
    // clang-format off
    {"u8",       1,  8, kPacked},
    {"s8",       1,  8, kPacked | kSigned},
    {"s16le",    2, 16, kPacked | kSigned},
    {"s16be",    2, 16, kPacked | kSigned | kBig},
    {"s24le",    3, 24, kPacked | kSigned},
    {"s24be",    3, 24, kPacked | kSigned | kBig},
    {"s24_32le", 4, 24, kSigned},        // the lower bits of four bytes
    {"s24_32be", 4, 24, kSigned | kBig},
    {"s32le",    4, 32, kPacked | kSigned},
    {"s32be",    4, 32, kPacked | kSigned | kBig},
    // clang-format on
}};

Names sampleFormatNames()
{
    Names names;
    for (const SampleFormat &format : kSampleFormats)
        names.emplace_back(format.name);
    return names;
}

struct PCMOptions
{
    std::string source;
    std::string target;
    std::string input; ///< a SampleFormat's name
    uint32_t channels = 0;
    uint32_t bits = 0; ///< 0: the input's
    bool swap = false;
    bool split = false;
    uint32_t only = 0; ///< the channel to keep, from 1; 0: all
    bool json = false;
};

constexpr uint32_t kBlockBytes = 1 << 20;

// The library's converter, with the lengths that it needs.
class Converter
{
public:
    Converter(const PCMOptions &options, const SampleFormat &format)
    {
        const UInt32 frame = options.channels * format.bytes;
        const AudioStreamBasicDescription input = {48000, // no conversion depends on it
                                                   kAudioFormatLinearPCM,
                                                   format.flags,
                                                   frame,
                                                   1,
                                                   frame,
                                                   options.channels,
                                                   format.bits,
                                                   0};
        const bool deinterleave = options.split || options.only != 0;
        const std::string what = std::string{format.name} + " cannot be split into samples of this width: " +
                                 (format.bits == 8    ? "8 bits never can"
                                  : format.bits == 32 ? "32 bits need --bits"
                                                      : "24 bits in 32 stay 24");
        if (KIVCS2_FAILED(
                kivCS2PCMAudioConverter_init(&m_record, &input, deinterleave, options.swap, options.bits)))
            throw Failure(kExitUsage,
                          deinterleave ? what : std::string{format.name} + " cannot be converted");
        m_positions.resize(deinterleave ? options.channels : 1);
        // The library computes sizes only for samples of two and three bytes; refuse planes that are too
        // short.
        if (deinterleave && KIVCS2_SUCCEEDED(getDistance(frame)) && m_distance < outSample())
        {
            (void)kivCS2PCMAudioConverter_free(&m_record); // made
            throw Failure(kExitUsage, what);
        }
    }
    ~Converter()
    {
        (void)kivCS2PCMAudioConverter_free(&m_record);
    } // not null: cannot fail
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    [[nodiscard]] uint32_t inFrame() const
    {
        return m_record.m_inputFormat.mBytesPerFrame;
    }
    [[nodiscard]] uint32_t outSample() const
    {
        const AudioStreamBasicDescription &format = m_record.m_outputFormat;
        return format.mBytesPerFrame / format.mChannelsPerFrame;
    }

    /// Converts whole interleaved frames; the result is valid until the next call.
    std::span<const uint8_t> convert(std::span<const uint8_t> input)
    {
        m_output.resize(input.size() / inFrame() * m_record.m_outputFormat.mBytesPerFrame);
        auto size = static_cast<uint32_t>(m_output.size());
        check(kivCS2PCMAudioConverter_convertInterleaved(
                  &m_record, input.data(), static_cast<uint32_t>(input.size()), m_output.data(), &size),
              "converting");
        return {m_output.data(), size};
    }

    /// Splits whole interleaved frames; channel() returns them until the next call.
    void split(std::span<const uint8_t> input)
    {
        const auto length = static_cast<uint32_t>(input.size());
        check(getDistance(length), "splitting");
        m_output.resize(size_t{m_distance} * m_positions.size());
        check(kivCS2PCMAudioConverter_convert(&m_record, input.data(), length, m_output.data(),
                                              static_cast<uint32_t>(m_positions.size()), m_positions.data(),
                                              &m_distance),
              "splitting");
        m_used = input.size() / inFrame() * outSample();
    }

    [[nodiscard]] std::span<const uint8_t> channel(size_t index) const
    {
        return {static_cast<const uint8_t *>(m_positions[index]), m_used};
    }

private:
    KIVCS2Status getDistance(uint32_t length)
    {
        uint32_t bytes = 0;
        const KIVCS2Status status =
            kivCS2PCMAudioConverter_getOutputBytesForInputLength(&m_record, length, &bytes);
        m_distance = bytes / static_cast<uint32_t>(m_positions.size());
        return status;
    }

    KIVCS2PCMAudioConverter m_record{};
    std::vector<uint8_t> m_output;
    std::vector<void *> m_positions;
    uint32_t m_distance = 0; ///< bytes from one plane to the next
    size_t m_used = 0;       ///< bytes of a plane
};

const SampleFormat &formatNamed(std::string_view name)
{
    const Names known = sampleFormatNames();
    if (const auto found = findName(known, name))
        return kSampleFormats[*found];
    std::string names;
    for (const SampleFormat &format : kSampleFormats)
        names += (names.empty() ? "" : ", ") + std::string{format.name};
    throw Failure(kExitUsage,
                  "\"" + visible(name) + "\": the formats of samples are " + names + hint(known, name));
}

// Calls `take` with the frames of the input, block by block; returns their number.
template <class Take>
uint64_t readFrames(Input &input, uint32_t frameBytes, const std::string &target, Take take)
{
    Progress progress{"converting " + input.name() + " to " + place(target, 0)};
    std::vector<uint8_t> block(std::max(kBlockBytes / frameBytes, 1u) * size_t{frameBytes});
    uint64_t frames = 0;
    while (const size_t size = input.read(block))
    {
        if (size % frameBytes != 0)
            throw Failure(kExitMalformed, Where{input.name()},
                          count(size % frameBytes, "byte") + " left over after " +
                              count(frames + size / frameBytes, "frame") + " of " +
                              count(frameBytes, "byte"));
        take(std::span<const uint8_t>{block.data(), size}, frames);
        frames += size / frameBytes;
        progress.at(input.position(), input.size());
    }
    return frames;
}

// Writes the planes one after the other: each block goes to a place in every channel's plane.
uint64_t splitFile(const PCMOptions &options, Input &input, Converter &converter, OutputFile &output)
{
    if (!input.isRegularFile())
        throw Failure(kExitUsage, "--split needs the length of the input: give it as a file, or take single "
                                  "channels with --channel");
    const uint64_t plane = input.size() / converter.inFrame() * converter.outSample();
    return readFrames(input, converter.inFrame(), options.target,
                      [&](std::span<const uint8_t> bytes, uint64_t before)
                      {
                          converter.split(bytes);
                          const uint64_t start = before * converter.outSample();
                          if (start + converter.channel(0).size() > plane)
                              throw Failure(kExitInputOutput, Where{input.name()},
                                            "it grows while it is read");
                          for (size_t channel = 0; channel < options.channels; ++channel)
                              output.writeAt(converter.channel(channel), channel * plane + start);
                      });
}

uint64_t convertFile(const PCMOptions &options, Input &input, Converter &converter, OutputFile &output)
{
    return readFrames(input, converter.inFrame(), options.target,
                      [&](std::span<const uint8_t> bytes, uint64_t)
                      {
                          if (options.only != 0)
                          {
                              converter.split(bytes);
                              output.write(converter.channel(options.only - 1));
                          }
                          else
                              output.write(converter.convert(bytes));
                      });
}

int convertPCM(const PCMOptions &options)
{
    const SampleFormat &format = formatNamed(options.input);
    if (options.split && options.only != 0)
        throw Failure(kExitUsage, "--split keeps all channels, --channel one");
    if (options.only > options.channels)
        throw Failure(kExitUsage, "there is no channel " + std::to_string(options.only) + " of " +
                                      std::to_string(options.channels));
    Converter converter{options, format};
    Input input{options.source};
    OutputFile output{options.target};
    const uint64_t frames = options.split ? splitFile(options, input, converter, output)
                                          : convertFile(options, input, converter, output);
    if (options.split && frames != input.size() / converter.inFrame())
        throw Failure(kExitInputOutput, Where{input.name()}, "it became shorter while it was read");
    output.commit();

    const uint32_t channels = options.only != 0 ? 1 : options.channels;
    const uint64_t written = frames * channels * converter.outSample();
    const std::string layout = options.split ? "planes" : "interleaved";
    Facts facts;
    facts.add("In", std::string{format.name} + ", " + count(options.channels, "channel") + ", " +
                        count(input.position(), "byte"));
    facts.add("Out", count(channels, options.split ? "plane" : "channel") + ", " +
                         count(converter.outSample(), "byte") + " a sample, " + count(written, "byte"));
    facts.add("Frames", std::to_string(frames));
    report(options.json,
           {{"source", input.name()},
            {"target", options.target},
            {"frames", frames},
            {"in", {{"format", format.name}, {"channels", options.channels}, {"bytes", input.position()}}},
            {"out",
             {{"layout", layout},
              {"channels", channels},
              {"bytesPerSample", converter.outSample()},
              {"bytes", written}}}},
           facts);
    return kExitYes;
}

// ---- Words ----

void addWeaveWord(Word &audio, Context &context)
{
    const auto rate = std::make_shared<std::string>();
    const auto samples = std::make_shared<uint32_t>(0);
    Word &word = audio.word("weave", "Samples of each channel that belong to the frames of a cycle");
    word.option("rate", *rate, "A frame rate; without it all").suggests("frame rates", rateNames);
    word.option("--samples", *samples, Bounds{1}, "Samples a second; without it 48000 and 96000");
    word.about(
        "A frame of 29.97 a second has 1601.6 samples at 48000 Hz: so frames have 1602 or 1601 in turns.\n"
        "Prints the numbers of a cycle in order, their sum, and whether the sum is exact.");
    word.example("kivcs2 audio weave 29.97 --samples 48000");
    word.runs([&context, rate, samples] { return showWeaves(*rate, *samples, context.json); });
}

void addCodeWords(Word &audio, Context &context)
{
    const auto options = std::make_shared<CodeOptions>();
    constexpr Bounds kFlag{0, 1};
    constexpr Bounds kBytes{1, 7}; // builds with assertions stop at 8
    Word &packing = audio.word("code", "Pack a 32-bit format code");
    packing.option("--encoding", options->encoding, "Encoding of the samples").among({"lpcm", "aac"});
    packing.option("--sample-rate", options->sampleRate, {}, "Samples a second").among({"44100", "48000"});
    packing.option("--channels", options->channels, {1, 16}, "1 to 16");
    packing.option("--bytes", options->bytes, kBytes, "Bytes of a sample, 1 to 7");
    packing.option("--used", options->used, kBytes, "Bytes of it that are used; without it all");
    packing.option("--data-type", options->dataType, kFlag, "0 or 1, as the host has it");
    packing.option("--data-stream", options->dataStream, kFlag, "0 or 1, as the host has it");
    packing.option("--endian", options->endian, kFlag, "0 or 1, as the host has it");
    packing.option("--alignment", options->alignment, kFlag, "0 or 1, as the host has it");
    packing.about(
        "Prints the code in hexadecimal and its fields, as kivcs2 audio describe reads them: samples a\n"
        "second, channels, bytes of a sample and how many of them are used.");
    packing.example("kivcs2 audio code --channels 16 --bytes 3");
    packing.runs([&context, options] { return makeCode(*options, context.json); });

    const auto code = std::make_shared<std::string>();
    Word &describing = audio.word("describe", "Take a format code apart");
    describing.option("code", *code, "Hexadecimal: 0x0010011a").required();
    describing.about("Takes any 32-bit number. Exit code 1: its encoding or its sample rate has no meaning.");
    describing.example("kivcs2 audio describe 0x0010011a");
    describing.runs([&context, code] { return describeCode(*code, context.json); });
}

void addConvertWord(Word &audio, Context &context)
{
    const auto options = std::make_shared<PCMOptions>();
    Word &word = audio.word("convert", "Convert the width and byte order of raw PCM, or split it");
    word.about(
        "Formats of samples: u8 s8 s16le s16be s24le s24be s24_32le s24_32be (24 bits in the lower part of\n"
        "four bytes) s32le s32be. Narrowing drops the low bits without rounding.\n"
        "--split writes one channel after the other into the target, --channel only one channel.");
    word.option("source", options->source, "Raw samples, interleaved; - for standard input")
        .required()
        .isFile();
    word.option("target", options->target, "The result; - for standard output").required().isTarget();
    word.option("--input", options->input, "Format of the samples")
        .required()
        .suggests("sample formats", sampleFormatNames);
    word.option("--channels", options->channels, {1, 1024}, "Channels of the input").required();
    word.option("--bits", options->bits, {}, "Width of the result; without it the input's")
        .among({"16", "24"});
    word.flag("--swap", options->swap, "The other byte order");
    word.flag("--split", options->split, "One plane for each channel");
    word.option("--channel", options->only, {1, 1024}, "Only this channel, from 1 on");
    word.example("kivcs2 audio convert in.raw out.raw --input s16le --channels 16 --split");
    word.runs(
        [&context, options]
        {
            options->json = context.json;
            return convertPCM(*options);
        });
}

} // namespace

void addAudioCommand(Word &root, Context &context)
{
    Word &audio = root.word("audio", "Samples of video frames, format codes, raw PCM").group(kGroupPictures);
    addWeaveWord(audio, context);
    addCodeWords(audio, context);
    addConvertWord(audio, context);
}

} // namespace tool
