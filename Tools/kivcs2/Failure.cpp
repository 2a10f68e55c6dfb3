// The status table, exit codes and the texts of failures.
#include "Failure.h"

#include "Terminal/JSON.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace tool
{
namespace
{

#define KIV_STATUS(status, meaning)                                                                          \
    {                                                                                                        \
        status, #status, meaning                                                                             \
    }

// clang-format off
constexpr std::array<StatusRow, 53> kStatuses = {{
    KIV_STATUS(KIVCS2STATUS_OK,                    "success"),
    KIV_STATUS(KIVCS2STATUS_ERR,                   "unspecified failure"),
    KIV_STATUS(KIVCS2STATUS_PARAM_ERR,             "null pointer or out-of-range argument"),
    KIV_STATUS(KIVCS2STATUS_MEMORY_ERR,            "an allocation failed"),
    KIV_STATUS(KIVCS2STATUS_BUFFER_SIZE_ERR,       "the caller's buffer is too small"),
    KIV_STATUS(KIVCS2STATUS_DATA_ERR,              "malformed input, or a platform call failed"),
    KIV_STATUS(KIVCS2STATUS_NO_DATA_ERR,           "nothing available to read"),
    KIV_STATUS(KIVCS2STATUS_NOT_FOUND_ERR,         "key, item, caption or sensor key not found"),
    KIV_STATUS(KIVCS2STATUS_TIMEOUT_ERR,           "timed out, or would block"),
    KIV_STATUS(KIVCS2STATUS_FORMAT_ERR,            "unexpected packet or caption format"),
    KIV_STATUS(KIVCS2STATUS_EOF_ERR,               "end of stream, or the peer closed"),
    KIV_STATUS(KIVCS2STATUS_OVERFLOW_ERR,          "no room to store the data"),
    KIV_STATUS(KIVCS2STATUS_CAPTION_ERR,           "malformed caption line, or a text conversion failed"),
    KIV_STATUS(KIVCS2STATUS_HEADER_ERR,            "a caption file's header is malformed"),
    KIV_STATUS(KIVCS2STATUS_FRAME_RATE_ERR,        "frame-rate code unknown or not supported"),
    KIV_STATUS(KIVCS2STATUS_WRITE_ERR,             "a write failed"),
    KIV_STATUS(KIVCS2STATUS_READ_ERR,              "a read, seek or size query failed"),
    KIV_STATUS(KIVCS2STATUS_OPEN_ERR,              "opening a file or named pipe failed"),
    KIV_STATUS(KIVCS2STATUS_UNSUPPORTED_ERR,       "not supported by this object or input"),
    KIV_STATUS(KIVCS2STATUS_NO_ENTRY_ERR,          "multi-buffer entry not found"),
    KIV_STATUS(KIVCS2STATUS_NO_BUFFER_ERR,         "no multi-buffer available"),
    KIV_STATUS(KIVCS2STATUS_MUTEX_ERR,             "a mutex operation failed"),
    KIV_STATUS(KIVCS2STATUS_MUTEX_BUSY_ERR,        "the mutex is already locked (try-lock)"),
    KIV_STATUS(KIVCS2STATUS_FIFO_ERR,              "creating a named pipe failed"),
    KIV_STATUS(KIVCS2STATUS_PIPE_ERR,              "a pipe operation failed"),
    KIV_STATUS(KIVCS2STATUS_PIXEL_FORMAT_ERR,      "pixel format not supported"),
    KIV_STATUS(KIVCS2STATUS_THREAD_ERR,            "creating a thread failed"),
    KIV_STATUS(KIVCS2STATUS_SEMAPHORE_ERR,         "creating a semaphore failed"),
    KIV_STATUS(KIVCS2STATUS_SEMAPHORE_BUSY_ERR,    "the semaphore would block (test-wait)"),
    KIV_STATUS(KIVCS2STATUS_SYSTEM_ERR,            "a system call failed"),
    KIV_STATUS(KIVCS2STATUS_STATE_ERR,             "wrong state for the operation"),
    KIV_STATUS(KIVCS2STATUS_CONNECT_ERR,           "connecting failed, or a device could not be opened"),
    KIV_STATUS(KIVCS2STATUS_ADDRESS_ERR,           "address resolution failed"),
    KIV_STATUS(KIVCS2STATUS_SOCKET_ERR,            "a socket call failed"),
    KIV_STATUS(KIVCS2STATUS_SOCKET_INVALID_ERR,    "the socket is not open"),
    KIV_STATUS(KIVCS2STATUS_CONNECTION_CLOSED_ERR, "closed or reset by the peer, or ended by an EOT byte"),
    KIV_STATUS(KIVCS2STATUS_MULTICAST_ADDRESS_ERR, "outside the multicast range 224-239"),
    KIV_STATUS(KIVCS2STATUS_BIND_ERR,              "bind failed"),
    KIV_STATUS(KIVCS2STATUS_BIND_ADDRESS_ERR,      "no address to bind to"),
    KIV_STATUS(KIVCS2STATUS_ACCEPT_ERR,            "accept failed"),
    KIV_STATUS(KIVCS2STATUS_PATH_ERR,              "converting a resource path failed"),
    KIV_STATUS(KIVCS2STATUS_NOT_LAUNCHABLE_ERR,    "the executable cannot be launched"),
    KIV_STATUS(KIVCS2STATUS_FORK_ERR,              "fork or exec failed"),
    KIV_STATUS(KIVCS2STATUS_NOT_PIPED_ERR,         "the task's input or output is not piped"),
    KIV_STATUS(KIVCS2STATUS_TASK_READ_ERR,         "reading the task's output failed"),
    KIV_STATUS(KIVCS2STATUS_TASK_RUNNING_ERR,      "the task is running"),
    KIV_STATUS(KIVCS2STATUS_TASK_NOT_RUNNING_ERR,  "the task is not running"),
    KIV_STATUS(KIVCS2STATUS_TASK_WRITE_ERR,        "writing the task's input failed"),
    KIV_STATUS(KIVCS2STATUS_TASK_SERVER_ERR,       "the task server failed"),
    KIV_STATUS(KIVCS2STATUS_INVALID_TIMECODE_ERR,  "invalid, or names no frame of the current rate"),
    KIV_STATUS(KIVCS2STATUS_VIDEO_FORMAT_ERR,      "video format unknown"),
    KIV_STATUS(KIVCS2STATUS_NODE_LOCKED_ERR,       "a link-tree node or one of its parents is locked"),
    KIV_STATUS(KIVCS2STATUS_NOT_WRITABLE_ERR,      "the socket is not writable"),
}};
// clang-format on

struct ExitRow
{
    KIVCS2Status status;
    ExitCode code;
};

// Statuses that are not about the content of the input; every other failure is.
constexpr std::array kExits = {
    ExitRow{KIVCS2STATUS_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_PARAM_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_MEMORY_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_SYSTEM_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_STATE_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_MUTEX_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_THREAD_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_SEMAPHORE_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_FORK_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_TASK_SERVER_ERR, kExitInternal},
    ExitRow{KIVCS2STATUS_TIMEOUT_ERR, kExitTimedOut},
    ExitRow{KIVCS2STATUS_EOF_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_WRITE_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_READ_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_OPEN_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_PIPE_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_FIFO_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_CONNECT_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_ADDRESS_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_SOCKET_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_SOCKET_INVALID_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_CONNECTION_CLOSED_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_BIND_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_BIND_ADDRESS_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_ACCEPT_ERR, kExitInputOutput},
    ExitRow{KIVCS2STATUS_UNSUPPORTED_ERR, kExitNotHere},
};

} // namespace

std::span<const StatusRow> statusTable()
{
    return kStatuses;
}

std::string statusText(KIVCS2Status status)
{
    char number[16];
    std::snprintf(number, sizeof number, "0x%08x", status);
    const auto row = std::ranges::find(kStatuses, status, &StatusRow::value);
    return row == kStatuses.end() ? std::string{number} : std::string{row->name} + " " + number;
}

ExitCode exitCodeFor(KIVCS2Status status)
{
    if (!KIVCS2_FAILED(status))
        return kExitYes;
    const auto row = std::ranges::find(kExits, status, &ExitRow::status);
    return row == kExits.end() ? kExitMalformed : row->code;
}

std::string place(std::string_view file, uint64_t line)
{
    std::string text{file == "-" ? std::string_view{"standard input"} : file};
    if (line > 0)
        text += ":" + std::to_string(line);
    return text;
}

Failure::Failure(ExitCode code, Where where, const Shown &text)
    : Failure(code, Shown{place(where.file, where.line) + ": "} + text)
{
    m_where = std::move(where);
}

Failure::Failure(KIVCS2Status status, Where where, const Shown &text)
    : Failure(status, Shown{place(where.file, where.line) + ": "} + text)
{
    m_where = std::move(where);
}

Failure Failure::system(std::string_view file, int error)
{
    return {kExitInputOutput, {file.empty() ? "\"\"" : std::string{file}}, std::strerror(error)};
}

Json Failure::json() const
{
    const auto row = std::ranges::find(kStatuses, m_status, &StatusRow::value);
    const bool hasStatus = m_status != KIVCS2STATUS_OK && row != kStatuses.end();
    return {{"error",
             {{"exitCode", static_cast<int>(m_code)},
              {"status", hasStatus ? Json(row->name) : Json()},
              {"file", m_where.file.empty() ? Json() : Json(m_where.file)},
              {"line", m_where.line == 0 ? Json() : Json(m_where.line)},
              {"message", what()}}}};
}

Json errorJson(int code, std::string_view text)
{
    return Failure{static_cast<ExitCode>(code), text}.json();
}

} // namespace tool
