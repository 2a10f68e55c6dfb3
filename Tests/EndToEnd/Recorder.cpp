// Records the output of the command under --json, for Tests/Documents/json_schemas.py. The linker passes the
// command's calls of write() to this file (--wrap), so neither its processes nor its timing change.
#include "Terminal/Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

extern "C" ssize_t __real_write(int descriptor, const void *bytes, size_t size);
// Visible, because the linker finds calls in the libraries too.
extern "C" __attribute__((visibility("default"))) ssize_t __wrap_write(int descriptor, const void *bytes,
                                                                       size_t size);

namespace
{
std::string g_file; // empty: nothing is recorded
pid_t g_process = 0;

// A record has pieces, each a line and bytes: "0 SIZE" is the command line, "1 SIZE" standard output,
// "2 SIZE" standard error. The line at its end is "code CODE".
void append(const std::string &text)
{
    const int before = errno;
    if (const int file = open(g_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666); file >= 0)
    {
        (void)!__real_write(file, text.data(), text.size());
        close(file);
    }
    errno = before;
}

[[maybe_unused]] const bool kIsRecorded = []
{
    std::ifstream arguments{"/proc/self/cmdline"};
    const std::string words{std::istreambuf_iterator<char>{arguments}, {}};
    const char *folder = std::getenv("KIV_JSON_RECORDS");
    if (folder == nullptr || words.find(std::string{"\0--json\0", 8}) == std::string::npos)
        return false;
    std::string name = std::string{folder} + "/XXXXXX";
    close(mkstemp(name.data()));
    g_file = name;
    g_process = getpid();
    append("0 " + std::to_string(words.size()) + "\n" + words);
    return on_exit([](int code, void *)
                   { g_process == getpid() ? append("code " + std::to_string(code) + "\n") : void(); },
                   nullptr) == 0;
}();
} // namespace

ssize_t __wrap_write(int descriptor, const void *bytes, size_t size)
{
    const ssize_t written = __real_write(descriptor, bytes, size);
    const bool isOut = descriptor == STDOUT_FILENO || descriptor == tool::standardOutput();
    if (g_process == getpid() && written > 0 && (isOut || descriptor == STDERR_FILENO))
        append((isOut ? "1 " : "2 ") + std::to_string(written) + "\n" +
               std::string{static_cast<const char *>(bytes), static_cast<size_t>(written)});
    return written;
}
