// Failures as a user sees them: one line, and the exit code that scripts test.
#ifndef KIV_TOOL_FAILURE_H
#define KIV_TOOL_FAILURE_H

#include "Terminal/Shown.h"

#include <KIVCoreServices2/KIVCS2Base.h>

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tool
{

class Json;

/// The command's exit codes. Scripts depend on the values.
enum ExitCode : int
{
    kExitYes = 0,         ///< done, or the answer is yes
    kExitNo = 1,          ///< the answer is no: nothing found, or a check failed
    kExitUsage = 2,       ///< the command line is invalid
    kExitMalformed = 3,   ///< the input is malformed
    kExitInputOutput = 4, ///< opening, reading or writing failed
    kExitNotHere = 5,     ///< not possible on this machine or with this input
    kExitTimedOut = 6,    ///< time-out
    kExitRunFailed = 125, ///< a failure of the word "run"; its other codes are those of its command
    kExitInternal = 70,   ///< a fault of the command or of the library
};

/// One row of the library's status table.
struct StatusRow
{
    KIVCS2Status value;
    std::string_view name;
    std::string_view meaning;
};

[[nodiscard]] std::span<const StatusRow> statusTable();

/// "KIVCS2STATUS_DATA_ERR 0x80000004"; a value outside the table gives only the number.
[[nodiscard]] std::string statusText(KIVCS2Status status);

/// Returns the exit code for a failing status.
[[nodiscard]] ExitCode exitCodeFor(KIVCS2Status status);

/// The place of a fault in the input; line 0 means the whole file.
[[nodiscard]] std::string place(std::string_view file, uint64_t line);

/// The place as values; a failure's text begins with it.
struct Where
{
    std::string file = {}; ///< empty: no file
    uint64_t line = 0;
};

/// Ends the command: main prints the text after "kivcs2: " and exits with the code.
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode code, const Shown &text) : std::runtime_error(text.text()), m_code(code) {}
    Failure(ExitCode code, Where where, const Shown &text);

    /// A library operation failed: the line names the status, which decides the exit code.
    Failure(KIVCS2Status status, const Shown &text)
        : std::runtime_error(text.text() + " (" + statusText(status) + ")"), m_code(exitCodeFor(status)),
          m_status(status)
    {
    }
    Failure(KIVCS2Status status, Where where, const Shown &text);

    /// A system call failed on `file` with `error` (an errno).
    static Failure system(std::string_view file, int error);

    [[nodiscard]] ExitCode code() const
    {
        return m_code;
    }

    /// The document of --json: {"error": {...}} with the exit code, the status, file and line, and the text;
    /// unknown values are null.
    [[nodiscard]] Json json() const;

private:
    ExitCode m_code;
    KIVCS2Status m_status = KIVCS2STATUS_OK;
    Where m_where;
};

/// The same for an exception that is not a Failure.
[[nodiscard]] Json errorJson(int code, std::string_view text);

/// Throws the failure of `status`, if it is one.
inline void check(KIVCS2Status status, std::string_view text)
{
    if (KIVCS2_FAILED(status))
        throw Failure(status, text);
}

} // namespace tool

#endif
