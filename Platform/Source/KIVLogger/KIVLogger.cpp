// The log: one handle, one sink.
#include <KIVLogger/KIVLogger.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <syslog.h>
#include <unistd.h>

struct os_log_s
{
    std::atomic<int64_t> references{1}; // the library never releases its own reference
};

namespace
{
struct Sink
{
    KLSinkCallback callback;
    void *context;
};

void writeToSystem(void *context, os_log_type_t type, const char *message);

os_log_s g_handle;
std::atomic<bool> g_enabled{true};
// A message holds this mutex shared, so KLSetSink() returns only when the previous sink is idle. The mutex
// prefers readers, so a sink that logs does not wait, nor does the child of a fork during a message.
std::shared_mutex g_sinkMutex;
Sink g_sink{writeToSystem, nullptr};

bool alsoToStandardError() noexcept
{
    static const bool wanted = []
    {
        const char *value = std::getenv("KIV_LOG_STDERR");
        return value != nullptr && std::strcmp(value, "1") == 0;
    }();
    return wanted;
}

void writeToSystem(void *, os_log_type_t, const char *message)
{
    syslog(LOG_USER | LOG_NOTICE, "%s", message);
    if (alsoToStandardError())
        dprintf(STDERR_FILENO, "%s\n", message);
}

// Returns the message, cut if there is no memory for all of it. The caller frees it if it is not `small`.
char *format(char *small, size_t smallSize, const char *pattern, va_list arguments) noexcept
{
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(small, smallSize, pattern, arguments);
    char *text = small;
    if (length < 0)
    {
        small[0] = '\0';
    }
    else if (static_cast<size_t>(length) >= smallSize)
    {
        const size_t size = static_cast<size_t>(length) + 1;
        if (auto *large = static_cast<char *>(std::malloc(size)); large != nullptr)
        {
            std::vsnprintf(large, size, pattern, again);
            text = large;
        }
    }
    va_end(again);
    return text;
}
} // namespace

os_log_t KLGetHandle(void)
{
    return &g_handle;
}

void KLSetSink(KLSinkCallback sink, void *context)
{
    const std::lock_guard lock{g_sinkMutex};
    g_sink = sink != nullptr ? Sink{sink, context} : Sink{writeToSystem, nullptr};
}

void KLSetEnabled(bool enabled)
{
    g_enabled.store(enabled, std::memory_order_relaxed);
}

bool os_log_type_enabled(os_log_t, os_log_type_t type)
{
    return type == OS_LOG_TYPE_DEFAULT && g_enabled.load(std::memory_order_relaxed);
}

void os_log_with_type(os_log_t log, os_log_type_t type, const char *formatText, ...)
{
    if (!os_log_type_enabled(log, type))
        return;
    const int savedErrno = errno;
    char small[512];
    va_list arguments;
    va_start(arguments, formatText);
    char *text = format(small, sizeof small, formatText, arguments);
    va_end(arguments);
    if (const size_t length = std::strlen(text); length > 0 && text[length - 1] == '\n')
        text[length - 1] = '\0';
    {
        const std::shared_lock lock{g_sinkMutex};
        g_sink.callback(g_sink.context, type, text);
    }
    if (text != small)
        std::free(text);
    errno = savedErrno;
}

void *os_retain(void *object)
{
    static_cast<os_log_s *>(object)->references.fetch_add(1, std::memory_order_relaxed);
    return object;
}

void os_release(void *object)
{
    static_cast<os_log_s *>(object)->references.fetch_sub(1, std::memory_order_relaxed);
}
