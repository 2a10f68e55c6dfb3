// Requests to the task server as they stand in the pipe: a command byte, and for a launch the path, the number
// of arguments and the arguments. A text is its 32-bit length and its bytes; integers are in the machine's order.
#ifndef KIV_PRIVATE_TASKS_SERVER_WIRE_H
#define KIV_PRIVATE_TASKS_SERVER_WIRE_H

#include "KIVCS2Task.h"

#include <cstdlib>
#include <memory>

namespace kiv
{
constexpr uint8_t kCommandExec = 0;
constexpr uint8_t kCommandQuit = 1;

// What one request may hold: no system executes more than 6 MiB of arguments, whatever a length claims.
constexpr size_t kMostRequestText = size_t{6} << 20; // bytes of all texts, a zero byte each included
constexpr uint32_t kMostArguments = 65536;

// How long the host waits for a server that neither reads nor tells a process id, in absolute time: it holds the
// server's mutex meanwhile.
inline constinit uint64_t g_answerTime = 10'000'000'000;

// A launch as the server has read it.
class ExecRequest
{
public:
    ExecRequest() = default;
    ~ExecRequest();
    ExecRequest(const ExecRequest &) = delete;
    ExecRequest &operator=(const ExecRequest &) = delete;

    // Reads what follows the command byte from the request pipe.
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

// A launch as the host writes it, in one piece.
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
