// A property list as JSON text, compared with rapidjson and snprintf: one object of 16 entries (integers,
// texts, flags and fractions).
#include <KIVCoreServices2/KIVCS2Dictionary.h>
#include <KIVCoreServices2/KIVCS2JSON.h>

#include "Private/JSON/Number.h"

#include <benchmark/benchmark.h>

#ifdef KIV_PEER_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace
{
enum class Kind : uint8_t
{
    integer,
    text,
    flag,
    fraction,
};
struct Entry
{
    const char *key;
    Kind kind;
    int32_t integer;
    float fraction;
    const char *text;
};

// A monitor's report about one channel.
constexpr std::array<Entry, 16> kEntries = {{
    {"channel", Kind::integer, 12, 0, nullptr},
    {"name", Kind::text, 0, 0, "Studio 2 clean feed"},
    {"format", Kind::text, 0, 0, "1080i50"},
    {"locked", Kind::flag, 1, 0, nullptr},
    {"frames", Kind::integer, 2160000, 0, nullptr},
    {"dropped", Kind::integer, 3, 0, nullptr},
    {"rate", Kind::fraction, 0, 29.97f, nullptr},
    {"timecode", Kind::text, 0, 0, "10:00:00:00"},
    {"captions", Kind::flag, 1, 0, nullptr},
    {"loudness", Kind::fraction, 0, -23.4f, nullptr},
    {"width", Kind::integer, 1920, 0, nullptr},
    {"height", Kind::integer, 1080, 0, nullptr},
    {"reference", Kind::text, 0, 0, "black burst"},
    {"recording", Kind::flag, 0, 0, nullptr},
    {"bytes", Kind::integer, 1234567890, 0, nullptr},
    {"remaining", Kind::integer, -1, 0, nullptr},
}};

[[noreturn]] void stop(const char *why)
{
    std::fprintf(stderr, "%s\n", why);
    std::exit(1);
}

KIVCS2Dictionary &plist()
{
    static KIVCS2Dictionary dictionary = []
    {
        KIVCS2Dictionary made{};
        KIVCS2Status status = kivCS2Dictionary_init(&made);
        for (const Entry &entry : kEntries)
        {
            KIVCS2Status set = KIVCS2STATUS_OK;
            switch (entry.kind)
            {
            case Kind::integer:
                set = kivCS2Dictionary_setInteger(&made, entry.key, entry.integer, 0);
                break;
            case Kind::text:
                set = kivCS2Dictionary_setCString(&made, entry.key, entry.text, 0);
                break;
            case Kind::flag:
                set = kivCS2Dictionary_setBool(&made, entry.key, static_cast<uint32_t>(entry.integer), 0);
                break;
            case Kind::fraction:
                set = kivCS2Dictionary_setFloat(&made, entry.key, entry.fraction, 0);
                break;
            }
            status |= set;
        }
        if (KIVCS2_FAILED(status))
            stop("no property list");
        return made;
    }();
    return dictionary;
}

using Room = std::array<char, 4096>;

size_t write(Room &room)
{
    char *cursor = room.data();
    uint32_t length = 0;
    (void)kivCS2JSON_createFromPlist(plist().m_dictionary, &cursor, &length);
    return length;
}

size_t printAll(Room &room)
{
    char *at = room.data();
    const char *const end = at + room.size();
    const auto print = [&at, end](const char *format, auto... values)
    { at += std::snprintf(at, static_cast<size_t>(end - at), format, values...); };
    const char *before = "{";
    for (const Entry &entry : kEntries)
    {
        switch (entry.kind)
        {
        case Kind::integer:
        case Kind::flag:
            print("%s\"%s\" : %i", before, entry.key, entry.integer);
            break;
        case Kind::text:
            print("%s\"%s\" : \"%s\"", before, entry.key, entry.text);
            break;
        case Kind::fraction:
            print("%s\"%s\" : %f", before, entry.key, static_cast<double>(entry.fraction));
            break;
        }
        before = ", ";
    }
    print("}");
    return static_cast<size_t>(at - room.data());
}

void ours(benchmark::State &state)
{
    Room room;
    Room printed;
    if (write(room) != printAll(printed) || std::strcmp(room.data(), printed.data()) != 0)
        stop("the texts differ");
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(write(room));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(ours)->Name("JSONObject/ours/16");

void oursTwoPasses(benchmark::State &state)
{
    for (auto _ : state)
    {
        uint32_t length = 0;
        (void)kivCS2JSON_createFromPlist(plist().m_dictionary, nullptr, &length);
        auto *text = static_cast<char *>(std::malloc(size_t{length} + 1));
        char *cursor = text;
        length = 0;
        (void)kivCS2JSON_createFromPlist(plist().m_dictionary, &cursor, &length);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
        std::free(text);
    }
}
BENCHMARK(oursTwoPasses)->Name("JSONMeasureAndWrite/ours/16");

void peerSnprintf(benchmark::State &state)
{
    Room room;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(printAll(room));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(peerSnprintf)->Name("JSONObject/snprintf/16");

#ifdef KIV_PEER_RAPIDJSON
// The same entries in rapidjson's own document, written into a reused buffer.
rapidjson::Document document()
{
    rapidjson::Document made{rapidjson::kObjectType};
    for (const Entry &entry : kEntries)
    {
        rapidjson::Value value;
        if (entry.kind == Kind::text)
            value.SetString(rapidjson::StringRef(entry.text));
        else if (entry.kind == Kind::fraction)
            value.SetFloat(entry.fraction);
        else
            value.SetInt(entry.integer);
        made.AddMember(rapidjson::StringRef(entry.key), value, made.GetAllocator());
    }
    return made;
}

// rapidjson writes a fraction as the shortest text that reads back to the
// same value; that is the only difference.
void requireEqual(const rapidjson::StringBuffer &theirs)
{
    Room room;
    write(room);
    rapidjson::Document parsed;
    rapidjson::Document parsedOurs;
    parsed.Parse(theirs.GetString());
    parsedOurs.Parse(room.data());
    if (parsed.HasParseError() || parsedOurs.HasParseError() ||
        parsed.MemberCount() != parsedOurs.MemberCount())
        stop("the objects differ");
    for (const auto &member : parsed.GetObject())
    {
        const rapidjson::Value &other = parsedOurs[member.name];
        const bool fraction = member.value.IsDouble();
        if (fraction
                ? static_cast<float>(member.value.GetDouble()) != static_cast<float>(other.GetDouble()) &&
                      std::abs(member.value.GetDouble() - other.GetDouble()) > 1e-6
                : member.value != other)
            stop("the objects differ");
    }
}

void peerRapidjson(benchmark::State &state)
{
    const rapidjson::Document list = document();
    rapidjson::StringBuffer buffer;
    const auto writeAll = [&list, &buffer]
    {
        buffer.Clear();
        rapidjson::Writer<rapidjson::StringBuffer> writer{buffer};
        list.Accept(writer);
        return buffer.GetString();
    };
    writeAll();
    requireEqual(buffer);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(writeAll());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(peerRapidjson)->Name("JSONObject/rapidjson/16");

void peerRapidjsonTwoPasses(benchmark::State &state)
{
    const rapidjson::Document list = document();
    for (auto _ : state)
    {
        rapidjson::StringBuffer buffer; // grows as needed; our code measures the text first
        rapidjson::Writer<rapidjson::StringBuffer> writer{buffer};
        list.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetString());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(peerRapidjsonTwoPasses)->Name("JSONMeasureAndWrite/rapidjson/16");
#endif

// Times only fractions, in the form of "%f".
constexpr std::array<double, 8> kFractions = {1.5, 29.97, -23.4, 0.000123, 1e6 / 3, 48000, 0, 59.94};

template <class Format>
void fractions(benchmark::State &state, Format format)
{
    kiv::json::NumberText buffer;
    for (const double value : kFractions)
    {
        char printed[400];
        std::snprintf(printed, sizeof printed, "%f", value);
        if (format(value, buffer) != printed)
            stop("the fractions differ");
    }
    size_t index = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(format(kFractions[index++ % kFractions.size()], buffer));
}
BENCHMARK_CAPTURE(fractions, ours, kiv::json::fixedText)->Name("JSONFraction/ours");
BENCHMARK_CAPTURE(fractions, to_chars, kiv::json::fixedTextPortable)->Name("JSONFraction/to_chars");
BENCHMARK_CAPTURE(fractions, snprintf,
                  [](double value, kiv::json::NumberText &buffer)
                  {
                      const int length = std::snprintf(buffer.data(), buffer.size(), "%f", value);
                      return std::string_view{buffer.data(), static_cast<size_t>(length)};
                  })
    ->Name("JSONFraction/snprintf");
} // namespace

BENCHMARK_MAIN();
