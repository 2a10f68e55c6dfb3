// The library messages that the command passes on.
#include "Terminal/LibraryLog.h"

#include <KIVLogger/KIVLogger.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>

namespace
{

TEST(LibraryLog, PassesTheFirstMessagesOnAndCountsTheRest)
{
    setenv("KIV_LOG_STDERR", "1", 1);
    testing::internal::CaptureStderr();
    tool::capLibraryLog();
    for (int line = 1; line <= 3000; ++line)
        os_log_with_type(KLGetHandle(), OS_LOG_TYPE_DEFAULT, "line %d\x1b", line);
    tool::tellLeftOutMessages();
    KLSetSink(nullptr, nullptr);
    const std::string text = testing::internal::GetCapturedStderr();
    unsetenv("KIV_LOG_STDERR");
    EXPECT_EQ(std::ranges::count(text, '\n'), 21) << text;
    EXPECT_THAT(text, testing::EndsWith("line 20\\x1b\n2980 more messages of the library left out\n"));
}

} // namespace
