// A sink of the log that stops after some messages.
#include "Terminal/LibraryLog.h"

#include "Terminal/Shown.h"

#include <KIVLogger/KIVLogger.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <string_view>
#include <syslog.h>
#include <unistd.h>

namespace tool
{
namespace
{

constexpr uint64_t kMostMessages = 20;

std::atomic<uint64_t> theMessages = 0; // from all threads

void writeMessage(std::string_view message)
{
    static const bool toErrors = []
    {
        const char *value = std::getenv("KIV_LOG_STDERR");
        return value != nullptr && std::string_view{value} == "1";
    }();
    const std::string text = visible(message); // it may quote a file
    ::syslog(LOG_USER | LOG_NOTICE, "%s", text.c_str());
    if (toErrors)
        ::dprintf(STDERR_FILENO, "%s\n", text.c_str());
}

void take(void *, os_log_type_t, const char *message)
{
    if (theMessages.fetch_add(1, std::memory_order_relaxed) >= kMostMessages)
        return;
    try
    {
        writeMessage(message);
    }
    catch (...)
    {
        // Without memory the message is lost; an exception must not cross the library.
    }
}

} // namespace

void capLibraryLog()
{
    KLSetSink(take, nullptr);
}

void tellLeftOutMessages()
{
    if (const uint64_t messages = theMessages.load(); messages > kMostMessages)
    {
        const uint64_t more = messages - kMostMessages;
        writeMessage(std::to_string(more) + (more == 1 ? " more message" : " more messages") +
                     " of the library left out");
    }
}

} // namespace tool
