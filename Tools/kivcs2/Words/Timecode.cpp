// kivcs2 tc: show, add, sub, diff, convert, bcd, date.
#include "CommandLine/Numbers.h"
#include "Counting.h"
#include "Failure.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <Foundation/NSDate.h>
#include <KIVCoreServices2/KIVProjectTimecode.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <memory>
#include <optional>
#include <utility>

namespace tool
{
namespace
{

struct Arguments
{
    std::vector<std::string> timecodes;
    std::string rate;
    std::string to;
    bool keepDigits = false;
};

// The first timecode that has a separator decides for all; later ones must not contradict it.
const Counting &choose(const Arguments &arguments)
{
    std::optional<char> separator;
    for (const std::string &text : arguments.timecodes)
    {
        const std::optional<char> own = separatorOf(text);
        if (separator && own && *own != *separator)
            throw Failure(kExitUsage, "\"" + visible(arguments.timecodes.front()) + "\" and \"" +
                                          visible(text) + "\" are counted differently");
        if (own)
            separator = own;
    }
    const Counting &counting =
        arguments.rate.empty() ? countingFor(separator) : countingFor(arguments.rate, separator);
    use(counting);
    return counting;
}

std::string countingText(const Arguments &arguments, const Counting &counting)
{
    std::string text{counting.title};
    if (arguments.rate.empty())
        text += counting.drop ? " (because of \";\")" : " (no --rate given)";
    return text;
}

// One pair of digits in each byte: hours of 100 and more do not fit.
std::optional<std::string> bcdText(const KIVCS2Timecode &timecode)
{
    uint32_t bcd = 0, hours = 0;
    check(kivCS2Timecode_getBCDFromTimecode(&timecode, &bcd), "BCD");
    check(kivCS2Timecode_getHours(&timecode, &hours), "hours");
    return hours < 100 ? std::optional{print("0x%08x", bcd)} : std::nullopt;
}

Json toJson(const KIVCS2Timecode &timecode, const Counting &counting)
{
    uint32_t hours = 0, minutes = 0, seconds = 0, frames = 0;
    const auto bcd = bcdText(timecode);
    check(kivCS2Timecode_getHours(&timecode, &hours), "hours");
    check(kivCS2Timecode_getMinutes(&timecode, &minutes), "minutes");
    check(kivCS2Timecode_getSeconds(&timecode, &seconds), "seconds");
    check(kivCS2Timecode_getFrames(&timecode, &frames), "frames");
    return {{"timecode", timecodeText(timecode)},
            {"counting", counting.name},
            {"dropFrame", counting.drop},
            {"hours", hours},
            {"minutes", minutes},
            {"seconds", seconds},
            {"frames", frames},
            {"framesSinceMidnight", framesOf(timecode)},
            {"realSeconds", exactSeconds(framesOf(timecode), counting)},
            {"bcd", bcd ? Json(*bcd) : Json(nullptr)}};
}

std::string realTime(double seconds)
{
    const auto milliseconds = static_cast<uint64_t>(std::llround(seconds * 1000.0));
    return print("%02llu:%02llu:%02llu.%03llu", static_cast<unsigned long long>(milliseconds / 3600000),
                 static_cast<unsigned long long>(milliseconds / 60000 % 60),
                 static_cast<unsigned long long>(milliseconds / 1000 % 60),
                 static_cast<unsigned long long>(milliseconds % 1000));
}

std::string dayText(int64_t days)
{
    if (days == 1 || days == -1)
        return days > 0 ? "the next day" : "the day before";
    return count(static_cast<uint64_t>(std::abs(days)), "day") + (days > 0 ? " later" : " earlier");
}

// `days`: the day relative to the first timecode's, if that has no date.
int report(const KIVCS2Timecode &timecode, const Arguments &arguments, const Counting &counting, bool json,
           std::optional<int64_t> days = std::nullopt)
{
    Json value = toJson(timecode, counting);
    if (days)
        value["days"] = *days;
    if (json)
    {
        out().json(value);
        return kExitYes;
    }
    Facts facts;
    facts.add("Timecode", Output::strong(timecodeText(timecode)));
    if (days.value_or(0) != 0)
        facts.add("Day", dayText(*days));
    facts.add("Counting", countingText(arguments, counting));
    facts.add("Frames since midnight", std::to_string(framesOf(timecode)));
    facts.add("Real time", realTime(exactSeconds(framesOf(timecode), counting)) +
                               " (hours, minutes, seconds at the exact rate)");
    facts.add("BCD", bcdText(timecode).value_or("none above 99 hours"));
    facts.print();
    return kExitYes;
}

int show(const Arguments &arguments, bool json)
{
    const Counting &counting = choose(arguments);
    return report(parseTimecode(arguments.timecodes[0], counting), arguments, counting, json);
}

// "90m", "1h30m", "1.5s": a number before each of d, h, m and s, in this order; empty for any other text.
std::optional<double> durationOf(std::string_view text)
{
    constexpr std::pair<char, double> kUnits[] = {{'d', 86400}, {'h', 3600}, {'m', 60}, {'s', 1}};
    constexpr double kMost = 1e6; // seconds; more than a timecode holds at some rates
    double seconds = 0;
    size_t next = 0;
    while (!text.empty())
    {
        const size_t letter = text.find_first_not_of("0123456789.");
        const auto *unit = letter == std::string_view::npos
                               ? std::end(kUnits)
                               : std::find_if(kUnits + next, std::end(kUnits),
                                              [&](const auto &row) { return row.first == text[letter]; });
        const auto number = unit != std::end(kUnits) ? realNumber(text.substr(0, letter)) : std::nullopt;
        if (!number)
            return std::nullopt;
        seconds += *number * unit->second;
        next = static_cast<size_t>(unit - kUnits) + 1;
        text.remove_prefix(letter + 1);
    }
    return next > 0 && seconds <= kMost ? std::optional{seconds} : std::nullopt;
}

// A duration counts like the digits: an hour is 01:00:00:00. Drop-frame digits follow the clock.
KIVCS2Timecode parseAmount(const std::string &text, const Counting &counting)
{
    const auto seconds = durationOf(text);
    if (!seconds)
        return parseTimecode(text, counting);
    const double exact = static_cast<double>(counting.numerator) / counting.denominator;
    return parseTimecode(std::to_string(std::llround(*seconds * (counting.drop ? exact : std::ceil(exact)))),
                         counting);
}

bool hasDate(const KIVCS2Timecode &timecode)
{
    uint32_t year = 0;
    (void)kivCS2Timecode_getYear(&timecode, &year); // always succeeds
    return year != 0;
}

using Step = KIVCS2Status (*)(KIVCS2Timecode *timecode, uint32_t frames);

// Adds to the first timecode or subtracts from it; a result on another day shows the day.
int calculate(const Arguments &arguments, bool json, Step step, const char *what)
{
    const Counting &counting = choose(arguments);
    KIVCS2Timecode result = parseAmount(arguments.timecodes[0], counting);
    int64_t days = 0;
    uint32_t framesPerDay = 0;
    (void)kivCS2Timecode_getFramesPerDay(&framesPerDay); // always succeeds
    for (size_t index = 1; index < arguments.timecodes.size(); ++index)
    {
        const uint32_t amount = framesOf(parseAmount(arguments.timecodes[index], counting));
        const int64_t before = framesOf(result);
        check(step(&result, amount), what + (" \"" + visible(arguments.timecodes[index]) + "\""));
        const int64_t wanted = step == kivCS2Timecode_addFrames ? before + amount : before - amount;
        days += (wanted - framesOf(result)) / framesPerDay;
    }
    return report(result, arguments, counting, json, hasDate(result) ? std::nullopt : std::optional{days});
}

int add(const Arguments &arguments, bool json)
{
    return calculate(arguments, json, kivCS2Timecode_addFrames, "adding");
}

int subtract(const Arguments &arguments, bool json)
{
    return calculate(arguments, json, kivCS2Timecode_subtractFrames, "subtracting");
}

int difference(const Arguments &arguments, bool json)
{
    const Counting &counting = choose(arguments);
    const KIVCS2Timecode from = parseTimecode(arguments.timecodes[0], counting);
    const KIVCS2Timecode to = parseTimecode(arguments.timecodes[1], counting);
    if (hasDate(from) != hasDate(to))
        throw Failure(kExitUsage, "one timecode has a date and the other has none");

    // If the years differ, the library measures only forward, so call it in calendar order.
    const bool backwards = (from >> 32) != (to >> 32) && [&]
    {
        const auto day = [](KIVCS2Timecode timecode)
        { return ((timecode >> 48) << 16) | ((timecode >> 40 & 0xFFu) << 8) | (timecode >> 32 & 0xFFu); };
        return day(from) > day(to);
    }();
    int64_t frames = 0;
    check(kivCS2Timecode_differenceInFrames(backwards ? &to : &from, backwards ? &from : &to, &frames),
          "difference");
    if (backwards)
        frames = -frames;

    const auto magnitude = static_cast<uint64_t>(std::llabs(frames));
    const double seconds = static_cast<double>(frames) * counting.denominator / counting.numerator;
    const std::string text = magnitude < UINT32_MAX
                                 ? (frames < 0 ? "-" : "") + timecodeText(static_cast<uint32_t>(magnitude))
                                 : "more than a timecode holds";
    if (json)
    {
        out().json({{"from", timecodeText(from)},
                    {"to", timecodeText(to)},
                    {"counting", counting.name},
                    {"dropFrame", counting.drop},
                    {"frames", frames},
                    {"timecode", text},
                    {"realSeconds", seconds}});
        return kExitYes;
    }
    Facts facts;
    facts.add("From", timecodeText(from));
    facts.add("To", timecodeText(to));
    facts.add("Counting", countingText(arguments, counting));
    facts.add("Difference", Output::strong(text));
    facts.add("Frames", std::to_string(frames));
    facts.add("Real time", print("%.3f seconds at the exact rate", seconds));
    facts.print();
    return kExitYes;
}

int convert(const Arguments &arguments, bool json)
{
    const Counting &from = choose(arguments);
    const KIVCS2Timecode source = parseTimecode(arguments.timecodes[0], from);
    const std::string before = timecodeText(source);
    const Counting &to = countingFor(arguments.to, std::nullopt);

    KIVCS2Timecode target = source;
    if (arguments.keepDigits)
    {
        std::string digits = before;
        std::ranges::replace(digits, ';', ':');
        use(to);
        target = parseTimecode(digits, to);
    }
    else
    {
        // The same time, to the nearest frame. Exact fractions, because the two-decimal rates of the
        // library's seconds would be 30 s off at 23.98 after ten hours.
        const auto frames = static_cast<unsigned __int128>(framesOf(source));
        const auto numerator = frames * from.denominator * to.numerator;
        const uint64_t denominator = static_cast<uint64_t>(from.numerator) * to.denominator;
        const auto result = static_cast<uint64_t>((numerator + denominator / 2) / denominator);
        if (result >= UINT32_MAX)
            throw Failure(kExitMalformed,
                          before + ": more frames than a timecode holds at " + std::string{to.name});
        use(to);
        check(kivCS2Timecode_setFramesSinceMidnight(&target, static_cast<uint32_t>(result)), "conversion");
    }
    if (json)
    {
        Json value = toJson(target, to);
        value["from"] = {{"timecode", before}, {"counting", from.name}};
        out().json(value);
        return kExitYes;
    }
    Facts facts;
    facts.add("From", before + "  " + countingText(arguments, from));
    facts.add("To", Output::strong(timecodeText(target)) + "  " + std::string{to.title});
    facts.add("Frames since midnight", std::to_string(framesOf(target)));
    facts.add("Real time", print("%.3f s before, %.3f s after", exactSeconds(framesOf(source), from),
                                 exactSeconds(framesOf(target), to)));
    facts.print();
    return kExitYes;
}

// A BCD word ("0x12345612") becomes a timecode, a timecode becomes its BCD word.
int bcd(const Arguments &arguments, bool json)
{
    const std::string &text = arguments.timecodes[0];
    const Counting &counting = choose(arguments);
    if (!text.starts_with("0x") && !text.starts_with("0X"))
        return report(parseTimecode(text, counting), arguments, counting, json);

    const auto word = hexadecimalNumber(text);
    if (!word || *word > UINT32_MAX)
        throw Failure(kExitMalformed, "\"" + visible(text) + "\": not a 32-bit word in hexadecimal");
    // The library decodes any nibble and hides digits that name no frame, so the digits go through
    // the text parser, which reports them.
    std::string digits;
    for (int shift = 28; shift >= 0; shift -= 4)
    {
        const auto nibble = static_cast<uint32_t>(*word >> shift & 15u);
        if (nibble > 9)
            throw Failure(kExitMalformed, "\"" + visible(text) + "\": \"" + print("%x", nibble) +
                                              "\" is not a decimal digit (flag bits are not masked)");
        digits += static_cast<char>('0' + nibble);
        if (shift > 0 && shift % 8 == 0)
            digits += ':';
    }
    (void)parseTimecode(digits, counting);
    KIVCS2Timecode timecode = 0;
    check(kivCS2Timecode_initWithBCD(&timecode, static_cast<uint32_t>(*word)), "BCD");
    return report(timecode, arguments, counting, json);
}

struct ReleaseObject
{
    void operator()(CFTypeRef object) const
    {
        CFRelease(object);
    }
};
using DatePtr = std::unique_ptr<const std::remove_pointer_t<CFDateRef>, ReleaseObject>;

DatePtr dateAt(CFAbsoluteTime at)
{
    DatePtr date{CFDateCreate(nullptr, at)};
    if (!date)
        throw std::bad_alloc{};
    return date;
}

// "now", or "@" and the seconds since 1970.
std::optional<CFAbsoluteTime> momentOf(const std::string &text)
{
    if (text == "now")
        return CFAbsoluteTimeGetCurrent();
    if (!text.starts_with('@'))
        return std::nullopt;
    constexpr double kFarthest = 1e11; // some 3000 years
    const auto seconds = realNumber(std::string_view{text}.substr(1));
    if (!seconds || std::abs(*seconds) >= kFarthest)
        throw Failure(kExitMalformed, "\"" + visible(text) + "\": not a number of seconds since 1970");
    return *seconds - kCFAbsoluteTimeIntervalSince1970;
}

std::string wallText(const DatePtr &date, const char *format)
{
    const std::unique_ptr<const std::remove_pointer_t<CFStringRef>, ReleaseObject> pattern{
        CFStringCreateWithCString(nullptr, format, kCFStringEncodingASCII)};
    const std::unique_ptr<const std::remove_pointer_t<CFStringRef>, ReleaseObject> text{
        pattern ? NSDate_descriptionWithCalendarFormat(date.get(), pattern.get(), nullptr, nullptr)
                : nullptr};
    std::array<char, 80> buffer{};
    if (!text || !CFStringGetCString(text.get(), buffer.data(), static_cast<CFIndex>(buffer.size()),
                                     kCFStringEncodingUTF8))
        throw std::bad_alloc{};
    return buffer.data();
}

std::string utcText(double unixSeconds)
{
    const auto milliseconds = static_cast<int64_t>(std::floor(unixSeconds * 1000.0 + 0.5));
    const int64_t fraction = (milliseconds % 1000 + 1000) % 1000;
    const time_t whole = (milliseconds - fraction) / 1000;
    std::tm utc{};
    gmtime_r(&whole, &utc);
    std::array<char, 64> text{};
    (void)strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc); // fits every year
    return print("%s.%03dZ", text.data(), static_cast<int>(fraction));
}

// The number of frames by which the library's timecode of a time lies before the frame that has begun then,
// because it uses whole milliseconds and subtracts two frames at drop-frame rates. Negative next to a dropped
// number.
int framesEarlier(const KIVProjectTimecode &timecode, CFAbsoluteTime at)
{
    constexpr double kRoundsUp = 0.9995; // seconds; from here a time rounds up to the next second
    constexpr double kHair = 1e-4;       // frames: a sum of doubles may be just below its exact value
    const double fraction = at - std::floor(at);
    const double begun =
        fraction < kRoundsUp ? std::floor(fraction * KIVProjectTimecode::framesPerSecond() + kHair) : 0;
    return static_cast<int>(begun) - static_cast<int>(timecode.frames());
}

// A dated timecode becomes the time at which a local clock shows it; a time becomes its timecode.
int date(const Arguments &arguments, bool json)
{
    const std::string &text = arguments.timecodes[0];
    const Counting &counting = choose(arguments);
    KIVProjectTimecode::setFrameRate(counting.code);
    if (KIVProjectTimecode::currentFrameRate() != counting.code)
        throw std::bad_alloc{};

    KIVProjectTimecode timecode;
    DatePtr date;
    int earlier = 0;
    if (const std::optional<CFAbsoluteTime> moment = momentOf(text))
    {
        date = dateAt(*moment);
        // The record's year has no sign: an earlier date would show as a far century, or not at all.
        if (KIVProjectTimecode::valueFromDate(date.get(), "%Y") < 1)
            throw Failure(kExitMalformed,
                          "\"" + visible(text) + "\": before the year 1, where timecodes begin");
        timecode.initWithDate(date.get());
        earlier = framesEarlier(timecode, *moment);
    }
    else
    {
        timecode.setCS2Timecode(parseTimecode(text, counting));
        if (timecode.year() == 0)
            throw Failure(kExitUsage, "\"" + visible(text) + "\": without a date it is not a moment");
        // By its digits, in every year, so that a timecode taken from a clock gives the same time back.
        const DatePtr second{timecode.toCFDate()};
        if (!second)
            throw std::bad_alloc{};
        date = dateAt(CFDateGetAbsoluteTime(second.get()) +
                      static_cast<double>(timecode.frames()) * counting.denominator / counting.numerator);
    }
    const double unixSeconds = CFDateGetAbsoluteTime(date.get()) + kCFAbsoluteTimeIntervalSince1970;
    const std::string local = wallText(date, "%Y-%m-%d %H:%M:%S.%F %z");
    if (json)
    {
        out().json({{"timecode", timecodeText(timecode.CS2Timecode())},
                    {"counting", counting.name},
                    {"dropFrame", counting.drop},
                    {"framesEarlier", earlier},
                    {"local", local},
                    {"utc", utcText(unixSeconds)},
                    {"unixSeconds", unixSeconds}});
        return kExitYes;
    }
    Facts facts;
    facts.add("Timecode", Output::strong(timecodeText(timecode.CS2Timecode())));
    facts.add("Counting", countingText(arguments, counting));
    if (earlier != 0)
        facts.add("Frame", print("%d %s than the one that has begun at this moment", std::abs(earlier),
                                 earlier > 0 ? "earlier" : "later"));
    facts.add("Local time", local + " (" + wallText(date, "%A, %Z") + ")");
    facts.add("UTC", utcText(unixSeconds));
    facts.add("Unix time", print("%.3f", unixSeconds));
    facts.print();
    return kExitYes;
}

// The help text of each word after its options.
void describeWords(Word &tc)
{
    tc.below("show").about(
        "Prints the frames since midnight, the time of day in hours, minutes and seconds at the exact\n"
        "rate, and the BCD word of ST 12. Exit code 3: the rate has no such frame.");
    tc.below("add").about(
        "Adds from left to right, with a day of 24 hours; the output names the day if a sum leaves the\n"
        "first day. A plain number counts frames; a duration moves the digits on, to the nearest "
        "frame.");
    tc.below("sub").about(
        "Subtracts the others from the first, with a day of 24 hours; the output names the day if the\n"
        "result leaves the first day. Numbers and durations are read as by kivcs2 tc add.");
    tc.below("diff").about(
        "Prints the difference as a timecode, in frames, and in seconds at the exact rate; negative if\n"
        "the second timecode is earlier.");
    tc.below("convert").about(
        "Prints the frame of the other rate that lies nearest to the same time since midnight, and both\n"
        "times in seconds. --keep-digits changes only the counting, and so the time.");
    tc.below("bcd").about(
        "Takes either form and prints both, with the frames since midnight. A word has two digits a byte,\n"
        "hours first. Exit code 3: a digit above 9, or no frame of the rate.");
    tc.below("date").about(
        "Prints the moment in local time, in UTC and in seconds since 1970, to the millisecond. A moment of\n"
        "the clock belongs to the frame that has begun.");
}

} // namespace

void addTimecodeCommand(Word &root, Context &context)
{
    Word &tc = root.word("tc", "Timecode: show, add, subtract, measure, convert, BCD, dates");
    tc.group(kGroupCaptions);
    tc.about("\";\" before the frames counts drop-frame, \":\" does not; the output names the counting.");
    const auto arguments = std::make_shared<Arguments>();

    const auto word = [&, arguments](const char *name, const char *help, const char *names, size_t least,
                                     size_t most, int (*body)(const Arguments &, bool)) -> Word &
    {
        Word &sub = tc.word(name, help);
        sub.option(names, arguments->timecodes, "HH:MM:SS:FF, HH:MM:SS;FF, frames, or \"D.M.YYYY ...\"")
            .required()
            .times(least, most);
        sub.option("--rate", arguments->rate, "23.98, 24, 25, 29.97[df|ndf], 30, 50, 59.94[df|ndf] or 60")
            .suggests("rates", rateNames);
        return sub.runs([&context, arguments, body] { return body(*arguments, context.json); });
    };
    constexpr size_t kMany = 1000;
    word("show", "Digits, frame count, real time and BCD of a timecode", "timecode", 1, 1, show)
        .example("kivcs2 tc show \"00:01:00;02\"");
    word("add", "Add timecodes, numbers of frames, or durations such as 90m and 1h30m", "timecodes", 2, kMany,
         add)
        .example("kivcs2 tc add 10:00:00:00 1h30m --rate 25");
    word("sub", "Subtract timecodes, numbers of frames, or durations", "timecodes", 2, kMany, subtract)
        .example("kivcs2 tc sub 10:00:00:00 00:59:58:12 --rate 25");
    word("diff", "The difference of two timecodes, in frames and seconds", "timecodes", 2, 2, difference)
        .example("kivcs2 tc diff 10:00:00:00 10:30:00:00 --rate 25");
    Word &conversion = word("convert", "The same instant in another counting", "timecode", 1, 1, convert);
    conversion.option("--to", arguments->to, "The rate to convert to")
        .required()
        .suggests("rates", rateNames);
    conversion.flag("--keep-digits", arguments->keepDigits, "Keep the digits, not the instant");
    conversion.example("kivcs2 tc convert \"01:00:00;00\" --to 25");
    word("bcd", "A timecode as a BCD word, or a BCD word (0x12345612) as a timecode", "timecode", 1, 1, bcd)
        .example("kivcs2 tc bcd 12:34:56:12 --rate 25");
    word("date", "The moment of a dated timecode, or the timecode of a moment (now, @SECONDS since 1970)",
         "timecode", 1, 1, date)
        .example("kivcs2 tc date \"15.3.2024 10:00:00:00\" --rate 25");
    describeWords(tc);
}

} // namespace tool
