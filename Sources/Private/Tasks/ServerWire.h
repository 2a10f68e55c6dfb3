// Requests to the task server in their form in the pipe: a command byte, and for a launch the path, the
// number of arguments and the arguments. A text is its 32-bit length and its bytes; integers are in the
// machine's byte order.
#ifndef KIV_PRIVATE_TASKS_SERVER_WIRE_H
#define KIV_PRIVATE_TASKS_SERVER_WIRE_H

#include "Private/Tasks/ServerRecord.h"

#include "KIVCS2Task.h"

#include <cstdlib>
#include <memory>

// ---- Transport, by index of the descriptor ----

// Writes all bytes; a reader that is gone is a failure and raises no signal. KIVCS2STATUS_TIMEOUT_ERR if
// there is no room for longer than a host waits.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_writeBytes(uint32_t index, const void *bytes, size_t size);
// Writes the 32-bit length, then the text.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_writeString(uint32_t index, const char *text);

// Reads all bytes and waits as long as it takes. With the orphan watch on, each second without a byte checks
// whether the host lives: if it does not, the wait fails. The wait also fails at the end of the pipe.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_readBytes(uint32_t index, void *bytes, size_t size,
                                                         bool watch);
// Returns a new text, released with free(), or null: the pipe failed, or there is no room. `left` is the
// number of bytes that may still be read, counting a zero byte for each text, and is reduced.
[[nodiscard]] char *kivCS2TaskServerPrv_readString(uint32_t index, bool watch, size_t &left,
                                                   KIVCS2Status &status);

namespace kiv
{
constexpr uint8_t kCommandExec = 0;
constexpr uint8_t kCommandQuit = 1;

// The most that one request may hold: no system executes more than 6 MiB of arguments, whatever a length
// claims.
constexpr size_t kMostRequestText = size_t{6} << 20; // bytes of all texts, a zero byte each included
constexpr uint32_t kMostArguments = 65536;

// How long the host waits for a server that neither reads nor returns a process id, in absolute time: it
// holds the server's mutex meanwhile.
inline constinit uint64_t g_answerTime = 10'000'000'000;

// A launch as read by the server.
class ExecRequest
{
public:
    ExecRequest() = default;
    ~ExecRequest();
    ExecRequest(const ExecRequest &) = delete;
    ExecRequest &operator=(const ExecRequest &) = delete;

    // Reads the bytes after the command byte from the request pipe.
    [[nodiscard]] KIVCS2Status read(bool watch);

    [[nodiscard]] const char *command() const
    {
        return m_command;
    }
    [[nodiscard]] char *const *argv() const
    {
        return m_argv;
    }

private:
    [[nodiscard]] KIVCS2Status readText(bool watch, char *&text);

    size_t m_left = kMostRequestText;
    char *m_command = nullptr;
    char **m_argv = nullptr;
};

// A launch as written by the host, in one piece.
class ExecMessage
{
public:
    [[nodiscard]] KIVCS2Status make(const KIVCS2Task &task);
    // Writes it to the request pipe.
    [[nodiscard]] KIVCS2Status send() const;

private:
    struct Free
    {
        void operator()(void *block) const
        {
            std::free(block);
        }
    };

    std::unique_ptr<uint8_t, Free> m_bytes;
    size_t m_size = 0;
};
} // namespace kiv

#endif
