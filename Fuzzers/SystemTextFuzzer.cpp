// The texts of /proc, /sys, os-release and machine-info: any bytes are accepted, and every result is in them.
#include "Require.h"
#include "System/ProcessTable.h"
#include "System/SystemText.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{
void parseAssignments(std::string_view text)
{
    for (const std::string_view name : {"VERSION_ID", "PRETTY_HOSTNAME"})
    {
        std::array<char, 24> room;
        const auto value = kiv::system::findAssignment(text, name, room);
        if (!value)
            continue;
        require(!value->empty() && value->data() == room.data() && value->size() <= room.size());
        require(text.find(name) != std::string_view::npos);
        // Quoted and read again, the value is the same.
        std::string again{name};
        again += "=\"";
        for (const char character : *value)
        {
            require(static_cast<unsigned char>(character) >= 0x20 && character != 0x7F);
            again += '\\';
            again += character;
        }
        again += "\"\n";
        std::array<char, 24> roomAgain;
        require(kiv::system::findAssignment(again, name, roomAgain) == value);
        (void)kiv::system::parseVersion(*value);
    }
}
void parseProcessLine(std::string_view line)
{
    (void)kiv::system::parseThreadState(line);
    kinfo_proc process{};
    if (!kiv::system::parseProcess(line, process))
        return;
    const extern_proc &about = process.kp_proc;
    const std::string_view name{about.p_comm, strnlen(about.p_comm, sizeof about.p_comm)};
    require(about.p_pid > 0 && name.size() < sizeof about.p_comm && line.find(name) != line.npos);
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text{reinterpret_cast<const char *>(data), size};
    if (const auto memory = kiv::system::parseMemory(text))
    {
        require(memory->total % 1024 == 0 && memory->wired % 1024 == 0);
        // No result may come from a line that is cut.
        const std::string cut = std::string{text} + "\nMemFree:  12";
        require(!kiv::system::parseMemory(cut));
    }
    if (const auto pages = kiv::system::parseProcessPages(text))
    {
        const std::string start = std::to_string(pages->mapped) + " " + std::to_string(pages->resident) + " ";
        require(text.size() >= start.size()); // longer with leading zeros
    }
    require(kiv::system::parseProcessorClock(text) <= 1000000000000);
    require(kiv::system::countProcessors(text) <= (1u << 20) + 1);
    if (const auto number = kiv::system::parseNumber(text))
        require(text.find(std::to_string(*number)) != std::string_view::npos);
    parseAssignments(text);
    parseProcessLine(text);
    return 0;
}
