#include "CommandRun.h"

#include <cstdlib>

namespace kiv::test
{

namespace
{
// Returns the folder that the runner names if these tests are for the command of another build.
const char *otherBuild()
{
    return std::getenv("KIV_COMMANDS");
}

[[maybe_unused]] const bool kIsOnPath = []
{
    const std::string folder = otherBuild() != nullptr ? otherBuild() : KIV_OWN_COMMANDS;
    return setenv("PATH", (folder + ":" + std::getenv("PATH")).c_str(), 1) == 0;
}();
} // namespace

bool keepsFreedMemory()
{
#ifdef __SANITIZE_ADDRESS__
    return otherBuild() == nullptr;
#else
    return false;
#endif
}

Json parseJson(const std::string &text)
{
    return Json::parse(text, nullptr, false);
}

} // namespace kiv::test
