// Requests to the task server as they stand in the pipe: a command byte, and for a launch the path, the
// number of arguments and the arguments. A text is its 32-bit length and its bytes; integers are in the
// machine's order.
#ifndef KIV_PRIVATE_TASKS_SERVER_WIRE_H
#define KIV_PRIVATE_TASKS_SERVER_WIRE_H

#include "Private/Tasks/ServerRecord.h"

#include "KIVCS2Task.h"

#include <cstdlib>
#include <memory>

// ---- Transport, by index of the descriptor ----

// Writes all of it; a reader that is gone is a failure and raises nothing. KIVCS2STATUS_TIMEOUT_ERR if there
// is no room for longer than a host waits.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_writeBytes(uint32_t index, const void *bytes, size_t size);
// The 32-bit length, then the text.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_writeString(uint32_t index, const char *text);

// Reads all of it, waiting as long as it takes. With the orphan watch on, a second without a byte is
// the time to look whether the host lives: where it does not the wait fails, and so it does at the end of the
// pipe.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_readBytes(uint32_t index, void *bytes, size_t size,
                                                         bool watch);
// A new text, released with free(), or null: the pipe failed, or there is no room. `left` is what may still
// be read with a zero byte each, and becomes less.
[[nodiscard]] char *kivCS2TaskServerPrv_readString(uint32_t index, bool watch, size_t &left,
                                                   KIVCS2Status &status);

namespace kiv
{
constexpr uint8_t kCommandExec = 0;
constexpr uint8_t kCommandQuit = 1;

// What one request may hold: no system executes more than 6 MiB of arguments, whatever a length claims.
constexpr size_t kMostRequestText = size_t{6} << 20; // bytes of all texts, a zero byte each included
constexpr uint32_t kMostArguments = 65536;

// How long the host waits for a server that neither reads nor tells a process id, in absolute time: it holds
// the server's mutex meanwhile.
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
