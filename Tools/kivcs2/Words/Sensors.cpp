// kivcs2 sensors: fans, temperatures and keys of the system management controller.
#include "Failure.h"
#include "Terminal/Output.h"
#include "Terminal/Watch.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2SMC.h>

#include <array>
#include <memory>
#include <optional>

namespace tool
{
namespace
{

constexpr const char *kNothing = "-";

// Holds the connection for its lifetime.
class Controller
{
public:
    Controller()
    {
        const KIVCS2Status status = [this]
        {
            const QuietErrors quiet; // the library would print what is missing
            return kivCS2SMC_init(&smc);
        }();
        if (!KIVCS2_FAILED(status))
            return;
        (void)kivCS2SMC_free(&smc); // not null
        if (status == KIVCS2STATUS_NOT_FOUND_ERR || status == KIVCS2STATUS_CONNECT_ERR)
            throw Failure(kExitNotHere,
                          "no sensors: there is no system management controller, or only root may read it (" +
                              statusText(status) + ")");
        throw Failure(status == KIVCS2STATUS_DATA_ERR ? kExitInputOutput : exitCodeFor(status),
                      "the system management controller does not respond (" + statusText(status) + ")");
    }
    Controller(const Controller &) = delete;
    Controller &operator=(const Controller &) = delete;
    ~Controller()
    {
        (void)kivCS2SMC_free(&smc); // not null
    }

    KIVCS2SMC smc{};
};

// A figure that the controller may not have.
struct Figure
{
    std::string name;
    std::optional<double> value;
    const char *unit = "";
    int decimals = 0;
};

Json toJson(const std::optional<double> &value)
{
    return value ? Json(*value) : Json();
}

std::string toText(const Figure &figure)
{
    return figure.value ? print("%.*f%s", figure.decimals, *figure.value, figure.unit) : kNothing;
}

std::optional<double> given(bool flag, double value)
{
    return flag ? std::optional{value} : std::nullopt;
}

struct Fan
{
    std::array<Figure, 5> speeds;
    std::optional<bool> forced;
};

Fan readFan(KIVCS2SMC &smc, uint32_t number)
{
    KIVCS2SMCFanStatus status{};
    check(kivCS2SMC_getFanStatus(&smc, number, &status), "fan");
    const auto has = [&status](KIVCS2SMCFanFlags flag) { return (status.m_flags & flag) != 0; };
    const auto speed = [&has](const char *name, KIVCS2SMCFanFlags flag, float value) {
        return Figure{name, given(has(flag), static_cast<double>(value))};
    };
    Fan fan{{speed("actual", KIVCS2SMCFanFlags_Actual, status.m_actual),
             speed("minimum", KIVCS2SMCFanFlags_Minimum, status.m_minimum),
             speed("maximum", KIVCS2SMCFanFlags_Maximum, status.m_maximum),
             speed("safe", KIVCS2SMCFanFlags_Safe, status.m_safe),
             speed("target", KIVCS2SMCFanFlags_Target, status.m_target)},
            {}};
    if (has(KIVCS2SMCFanFlags_Forced))
        fan.forced = status.m_forced != 0;
    return fan;
}

struct Reading
{
    uint32_t keys = 0;
    std::vector<Fan> fans;
    std::vector<Figure> cores;
    std::vector<Figure> figures;
};

// A controller may report any number of fans; its keys name ten.
constexpr uint32_t kMostFans = 10;

Reading read(KIVCS2SMC &smc)
{
    constexpr const char *kDegrees = " °C";
    Reading reading;
    check(kivCS2SMC_getNumberOfKeys(&smc, &reading.keys), "keys");

    uint32_t fans = 0;
    (void)kivCS2SMC_getNumberOfFans(&smc, &fans); // a machine without fans has no key for them
    for (uint32_t number = 0; number < std::min(fans, kMostFans); ++number)
        reading.fans.push_back(readFan(smc, number));

    KIVCS2SMCCPUStatus cpu{};
    check(kivCS2SMC_getCPUStatus(&smc, &cpu), "processors");
    const auto has = [&cpu](KIVCS2SMCCPUFlags flag) { return (cpu.m_flags & flag) != 0; };
    for (uint32_t core = 0; core < cpu.m_coreCount; ++core)
        reading.cores.push_back({smc.m_cpuTempSet->m_keys[core],
                                 given(has(KIVCS2SMCCPUFlags_Cores), cpu.m_coreTemperatures[core]), kDegrees,
                                 1});

    KIVCS2SMCGPUStatus gpu{};
    check(kivCS2SMC_getGPUStatus(&smc, &gpu), "graphics");
    const auto hasGPU = [&gpu](KIVCS2SMCGPUFlags flag) { return (gpu.m_flags & flag) != 0; };
    const auto signedValue = [](uint32_t value) { return static_cast<double>(static_cast<int32_t>(value)); };
    const bool power = hasGPU(KIVCS2SMCGPUFlags_MSTgOrMSAg); // one flag for two figures
    reading.figures = {
        {"TG0D", given(hasGPU(KIVCS2SMCGPUFlags_TG0D), gpu.m_TG0D), kDegrees, 1},
        {"TG0H", given(hasGPU(KIVCS2SMCGPUFlags_TG0H), gpu.m_TG0H), kDegrees, 1},
        {"TG0P", given(hasGPU(KIVCS2SMCGPUFlags_TG0P), gpu.m_TG0P), kDegrees, 1},
        {"MSPC", given(has(KIVCS2SMCCPUFlags_MSPC), signedValue(cpu.m_MSPC))},
        {"MSTc", given(has(KIVCS2SMCCPUFlags_MSTc), signedValue(cpu.m_MSTc))},
        {"MSAc", given(has(KIVCS2SMCCPUFlags_MSAc), cpu.m_MSAc), "", 3},
        {"MSTg", given(power, signedValue(gpu.m_MSTg))},
        {"MSAg", given(power, gpu.m_MSAg), "", 3},
    };
    return reading;
}

Json toJson(const Reading &reading)
{
    Json fans = Json::array();
    for (const Fan &fan : reading.fans)
    {
        Json object;
        for (const Figure &speed : fan.speeds)
            object[speed.name] = toJson(speed.value);
        object["forced"] = fan.forced ? Json(*fan.forced) : Json();
        fans.push_back(std::move(object));
    }
    const auto named = [](const std::vector<Figure> &figures)
    {
        Json object = Json::object();
        for (const Figure &figure : figures)
            object[figure.name] = toJson(figure.value);
        return object;
    };
    return {{"keys", reading.keys},
            {"fans", fans},
            {"cores", named(reading.cores)},
            {"figures", named(reading.figures)}};
}

void printPage(const Reading &reading)
{
    if (!reading.fans.empty())
    {
        Table table{"Fan", ">Actual", ">Minimum", ">Maximum", ">Safe", ">Target", "Set by"};
        for (size_t number = 0; number < reading.fans.size(); ++number)
        {
            const Fan &fan = reading.fans[number];
            std::vector<Shown> cells{std::to_string(number)};
            for (const Figure &speed : fan.speeds)
                cells.emplace_back(toText(speed));
            cells.emplace_back(!fan.forced ? kNothing : *fan.forced ? "a program" : "the controller");
            table.add(std::move(cells));
        }
        table.print();
        out().line("");
    }
    Facts facts;
    for (const Figure &core : reading.cores)
        facts.add("Core " + core.name, toText(core));
    for (const Figure &figure : reading.figures)
        if (figure.value)
            facts.add(figure.name, toText(figure));
    facts.add("Keys", std::to_string(reading.keys));
    facts.print();
}

std::string toLine(const Reading &reading)
{
    std::string line;
    const auto add = [&line](const std::string &name, const Figure &figure)
    {
        if (figure.value)
            line += (line.empty() ? "" : "  ") + name + " " + toText(figure);
    };
    for (size_t number = 0; number < reading.fans.size(); ++number)
        add("fan " + std::to_string(number), reading.fans[number].speeds.front());
    for (const Figure &core : reading.cores)
        add(core.name, core);
    for (const Figure &figure : reading.figures)
        add(figure.name, figure);
    return line.empty() ? kNothing : line;
}

// The value, for types with a known meaning.
std::optional<Figure> interpret(KIVCS2SMC &smc, std::string_view type, const std::vector<uint8_t> &data)
{
    const auto size = static_cast<uint32_t>(data.size());
    double degrees = 0;
    uint32_t number = 0;
    if (type == "sp78" &&
        !KIVCS2_FAILED(kivCS2SMC_interpretDataAsTemperature(&smc, data.data(), size, &degrees)))
        return Figure{"", degrees, "", 3};
    if (type.starts_with("ui") && !data.empty() &&
        !KIVCS2_FAILED(kivCS2SMC_interpretDataAsUnsignedInteger(&smc, data.data(), size, &number)))
        return Figure{"", static_cast<double>(number)};
    return std::nullopt;
}

struct KeyRow
{
    std::string name;
    std::optional<std::string> type, bytes;
    std::optional<uint32_t> size;
    std::optional<Figure> value;
};

KeyRow readKey(KIVCS2SMC &smc, uint32_t index)
{
    std::array<char, KIVCS2_SMC_NAME_SIZE> text{};
    KeyRow row;
    check(kivCS2SMC_getKeyName(&smc, index, text.data(), text.size()), "key");
    row.name = text.data();
    uint32_t size = 0;
    if (KIVCS2_FAILED(kivCS2SMC_getKeyDataInfo(&smc, index, text.data(), text.size(), &size)))
        return row;
    row.type = text.data();
    row.size = size;
    std::vector<uint8_t> data(std::min<uint32_t>(size, KIVCS2_SMC_DATA_SIZE));
    if (data.empty() ||
        KIVCS2_FAILED(kivCS2SMC_getKeyData(&smc, index, data.data(), static_cast<uint32_t>(data.size()))))
        return row;
    std::string bytes;
    for (const uint8_t byte : data)
        bytes += print("%02x", byte);
    row.bytes = std::move(bytes);
    row.value = interpret(smc, *row.type, data);
    return row;
}

int listKeys(KIVCS2SMC &smc, bool json)
{
    uint32_t count = 0;
    check(kivCS2SMC_getNumberOfKeys(&smc, &count), "keys");
    if (json)
    {
        JsonArray array;
        for (uint32_t index = 0; index < count; ++index)
        {
            const KeyRow row = readKey(smc, index);
            array.add({{"key", row.name},
                       {"type", row.type ? Json(*row.type) : Json()},
                       {"size", row.size ? Json(*row.size) : Json()},
                       {"bytes", row.bytes ? Json(*row.bytes) : Json()},
                       {"value", row.value ? toJson(row.value->value) : Json()}});
        }
        array.close();
        return kExitYes;
    }
    Table table{"Key", "Type", ">Size", ">Value", "Bytes"};
    for (uint32_t index = 0; index < count; ++index)
    {
        const KeyRow row = readKey(smc, index);
        table.add({visible(row.name), row.type ? visible(*row.type) : kNothing,
                   row.size ? std::to_string(*row.size) : kNothing, row.value ? toText(*row.value) : kNothing,
                   row.bytes.value_or(kNothing)});
    }
    table.print();
    return kExitYes;
}

int show(bool json, bool keys)
{
    Controller controller;
    if (keys)
        return listKeys(controller.smc, json);
    const Reading reading = read(controller.smc);
    if (json)
        out().json(toJson(reading));
    else
        printPage(reading);
    return kExitYes;
}

int watchSensors(const WatchOptions &options, bool json)
{
    Controller controller;
    KIVCS2SMC &smc = controller.smc;
    return watch(options, json,
                 {[&smc] { printPage(read(smc)); }, [&smc] { return toLine(read(smc)); },
                  [&smc] { return toJson(read(smc)); }});
}

} // namespace

void addSensorsCommand(Word &root, Context &context)
{
    Word &sensors = root.word("sensors", "Fans, temperatures and keys of the machine's controller");
    sensors.group(kGroupMachine);

    const auto keys = std::make_shared<bool>(false);
    Word &shown = sensors.word("show", "Fan speeds, temperatures and power figures now");
    shown.flag("--keys", *keys, "Every key with its type and bytes instead");
    shown.about(
        "Speeds in turns a minute, temperatures in degrees Celsius; power figures as the controller "
        "has them.\n"
        "Exit code 5: the machine has no such controller, like most machines, or only root may read it.");
    shown.example("kivcs2 sensors show");
    shown.runs([&context, keys] { return show(context.json, *keys); });

    addWatchWord(sensors, context.json, "The same repeatedly, until interrupted", watchSensors)
        .about("On a terminal each reading replaces the one before, elsewhere it is a line; with "
               "--json\n"
               "an object a line. Exit code 5 as for kivcs2 sensors show.")
        .example("kivcs2 sensors watch --every 5 --count 2");
}

} // namespace tool
