// kivcs2 sys: memory, version, processors and name of this machine.
#include "Failure.h"
#include "Terminal/Output.h"
#include "Terminal/Watch.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2SystemInfo.h>

#include <unistd.h>

#include <array>
#include <optional>

namespace tool
{
namespace
{

struct Memory
{
    uint64_t free = 0, inactive = 0, active = 0, wired = 0;
};

struct Process
{
    uint64_t resident = 0, mapped = 0;
};

// Figures that do not change while the command runs.
struct Machine
{
    std::optional<std::string> name;
    std::array<uint32_t, 3> version{};
    uint32_t processors = 0;
    uint32_t hertz = 0;
    uint64_t physical = 0;
    uint32_t physicalLow = 0; // from the library: the low 32 bits
};

std::optional<Memory> readMemory()
{
    Memory memory;
    const KIVCS2Status status = kivCS2SystemInfo_getRAMUsage(&memory.free, &memory.inactive, &memory.active,
                                                             &memory.wired, nullptr, nullptr);
    return KIVCS2_FAILED(status) ? std::nullopt : std::optional{memory};
}

std::optional<Process> readProcess()
{
    Process process;
    const KIVCS2Status status =
        kivCS2SystemInfo_getRAMUsage(nullptr, nullptr, nullptr, nullptr, &process.resident, &process.mapped);
    return KIVCS2_FAILED(status) ? std::nullopt : std::optional{process};
}

Machine readMachine()
{
    Machine machine;
    std::array<char, 1024> name{};
    if (KIVCS2_SUCCEEDED(kivCS2SystemInfo_getMachineNameString(name.data(), name.size())))
        machine.name = name.data();
    auto &version = machine.version;
    check(kivCS2SystemInfo_getSystemVersion(&version[0], &version[1], &version[2]), "system version");
    check(kivCS2SystemInfo_getCPUCoreCount(&machine.processors), "processors");
    check(kivCS2SystemInfo_getClockSpeed(&machine.hertz), "clock");
    check(kivCS2SystemInfo_getPhysicalRAMSize(&machine.physicalLow), "physical memory");
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long size = ::sysconf(_SC_PAGESIZE);
    if (pages > 0 && size > 0)
        machine.physical = static_cast<uint64_t>(pages) * static_cast<uint64_t>(size);
    return machine;
}

// "23.5 GiB"
std::string sizeText(uint64_t bytes)
{
    constexpr std::array kUnits = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    for (; value >= 1024 && unit + 1 < kUnits.size(); ++unit)
        value /= 1024;
    return unit == 0 ? print("%.0f %s", value, kUnits[unit]) : print("%.1f %s", value, kUnits[unit]);
}

constexpr const char *kUnknown = "not reported by this system";

void addMemory(Facts &facts)
{
    const auto memory = readMemory();
    facts.add("Free", memory ? sizeText(memory->free) : kUnknown);
    facts.add("Inactive", memory ? sizeText(memory->inactive) : kUnknown);
    facts.add("Active", memory ? sizeText(memory->active) : kUnknown);
    facts.add("Wired", memory ? sizeText(memory->wired) : kUnknown);
    const auto process = readProcess();
    facts.add("This process",
              process ? sizeText(process->resident) + " of " + sizeText(process->mapped) + " mapped"
                      : kUnknown);
}

Json memoryJson()
{
    Json json{{"memory", nullptr}, {"process", nullptr}};
    if (const auto memory = readMemory())
        json["memory"] = {{"free", memory->free},
                          {"inactive", memory->inactive},
                          {"active", memory->active},
                          {"wired", memory->wired}};
    if (const auto process = readProcess())
        json["process"] = {{"resident", process->resident}, {"virtual", process->mapped}};
    return json;
}

void addMachine(Facts &facts, const Machine &machine)
{
    const auto &version = machine.version;
    facts.add("Name", Output::strong(machine.name ? visible(*machine.name) : "none"));
    facts.add("System version", version == std::array<uint32_t, 3>{}
                                    ? "none"
                                    : print("%u.%u.%u", version[0], version[1], version[2]));
    facts.add("Processors", std::to_string(machine.processors));
    facts.add("Clock", machine.hertz > 0 ? print("%.0f MHz", machine.hertz / 1e6) : kUnknown);
    facts.add("Physical memory", machine.physical > 0 ? sizeText(machine.physical) : kUnknown);
}

int show(bool json)
{
    const Machine machine = readMachine();
    if (!json)
    {
        Facts facts;
        addMachine(facts, machine);
        addMemory(facts);
        facts.print();
        return kExitYes;
    }
    Json facts{{"name", nullptr},
               {"version", {machine.version[0], machine.version[1], machine.version[2]}},
               {"processors", machine.processors},
               {"clock", machine.hertz},
               {"physicalMemory", machine.physical},
               {"physicalMemoryLow32", machine.physicalLow}};
    if (machine.name)
        facts["name"] = *machine.name;
    facts.update(memoryJson());
    out().json(facts);
    return kExitYes;
}

int watchMemory(const WatchOptions &options, bool json)
{
    const Machine machine = readMachine();
    return watch(options, json,
                 {[&machine]
                  {
                      Facts facts;
                      addMachine(facts, machine);
                      addMemory(facts);
                      facts.print();
                  },
                  []
                  {
                      const auto memory = readMemory();
                      return memory ? "free " + sizeText(memory->free) + "  inactive " +
                                          sizeText(memory->inactive) + "  active " +
                                          sizeText(memory->active) + "  wired " + sizeText(memory->wired)
                                    : std::string{kUnknown};
                  },
                  memoryJson});
}

} // namespace

void addSystemCommand(Word &root, Context &context)
{
    Word &system =
        root.word("sys", "Memory, version, processors and name of this machine").group(kGroupMachine);

    Word &shown = system.word("show", "All figures now");
    shown.about(
        "Prints name and version of the system, the number of processors and their clock in MHz, and memory\n"
        "in GiB or MiB; with --json in bytes. The output names figures that the system does not report.");
    shown.example("kivcs2 sys show");
    shown.runs([&context] { return show(context.json); });

    addWatchWord(system, context.json, "The memory repeatedly, until interrupted", watchMemory)
        .about(
            "Prints free, inactive, active and wired memory: on a terminal in one place, elsewhere a line a\n"
            "reading; with --json an object a line, in bytes.")
        .example("kivcs2 sys watch --every 0.5 --count 2");
}

} // namespace tool
