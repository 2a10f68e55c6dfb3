// The one place where tests of the command have JSON parsed.
#include "CommandRun.h"

namespace kiv::test
{

Json parseJson(const std::string &text)
{
    return Json::parse(text, nullptr, false);
}

} // namespace kiv::test
