// A controller for the command of this program: two fans and four cores.
#include "ScriptedSMC.h"

#include <cstdint>
#include <cstdlib>

namespace
{
using kiv::test::ScriptedKey;
using kiv::test::ScriptedSMC;

std::vector<ScriptedKey> keys()
{
    std::vector<ScriptedKey> all = {
        {"FNum", "ui8 ", {2}},          {"F0Ac", "fpe2", {0x17, 0x70}}, {"F0Mn", "fpe2", {0x0f, 0xa0}},
        {"F0Mx", "fpe2", {0x4e, 0x20}}, {"F1Ac", "fpe2", {0x18, 0x00}}, {"FS! ", "ui16", {0, 2}},
        {"TC0c", "sp78", {0x2a, 0x00}}, {"TC1c", "sp78", {0x2a, 0x40}}, {"TC2c", "sp78", {0x29, 0x00}},
        {"TC3c", "sp78", {0x2b, 0x20}}, {"TG0D", "sp78", {0x30, 0x00}}, {"MSPC", "ui8 ", {0xfe}},
        {"MSAc", "sp78", {0x01, 0x40}}, {"Mute", "flag", {1}, 0, 9},
    };
    if (std::getenv("KIV_BROKEN_CONTROLLER") != nullptr)
        all.push_back({"#KEY", "ui32", {}, 0, 9});
    return all;
}

const ScriptedSMC g_controller{keys()};
} // namespace
