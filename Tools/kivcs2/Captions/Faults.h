// The faults of a caption file: counted, and reported as lines and as JSON.
#ifndef KIV_TOOL_CAPTION_FAULTS_H
#define KIV_TOOL_CAPTION_FAULTS_H

#include "Failure.h"
#include "Terminal/JSON.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>

namespace tool
{

/// Called with every fault; may throw to stop.
using OnFault = std::function<void(const KIVCS2CaptionFileFault &)>;

/// The faults of one file. Keeps only the first of each cause, so that memory does not grow with them.
class FoundFaults
{
public:
    /// `file` is the name used in messages.
    FoundFaults(std::string file, OnFault onFault);
    FoundFaults(const FoundFaults &) = delete;
    FoundFaults &operator=(const FoundFaults &) = delete;

    /// A KIVCS2CaptionFaultFunc whose context is the FoundFaults. An exception of the caller's function is
    /// kept for rethrow(), because no exception may cross the library.
    static KIVCS2Status take(const KIVCS2CaptionFileFault *fault, void *context) noexcept;
    void rethrow() const;

    [[nodiscard]] uint64_t count(KIVCS2CaptionFault fault) const
    {
        return m_counts[fault];
    }
    [[nodiscard]] const KIVCS2CaptionFileFault &first(KIVCS2CaptionFault fault) const
    {
        return m_first[fault];
    }

    /// Returns the number of places at which a line, a pair or a part of a packet was lost.
    [[nodiscard]] uint64_t lost() const;

    /// Prints one line for each cause on standard error, in the order of their first places. The caller
    /// reports the fault `besides` itself.
    void tell(KIVCS2CaptionFault besides = KIVCS2CaptionFault_None) const;

    /// Returns the fault that a read ended with; null if `status` does not come from a fault.
    [[nodiscard]] const KIVCS2CaptionFileFault *endOf(KIVCS2Status status) const;

private:
    std::string m_file;
    OnFault m_onFault;
    std::exception_ptr m_thrown;
    std::array<uint64_t, KIVCS2CaptionFault_MAX> m_counts{}, m_lost{};
    std::array<KIVCS2CaptionFileFault, KIVCS2CaptionFault_MAX> m_first{};
    KIVCS2CaptionFileFault m_latest{};
};

/// `unknown character in column 17, ","; expected hexadecimal digits or letters of the format`
[[nodiscard]] std::string sentence(const KIVCS2CaptionFileFault &fault);

/// The same with `end` in place of the text expected.
[[nodiscard]] std::string sentence(const KIVCS2CaptionFileFault &fault, const std::string &end);

/// Returns at most `most` bytes of the text found, made safe to print.
[[nodiscard]] std::string foundText(const KIVCS2CaptionFileFault &fault, size_t most);

/// Returns name, line, column, offset, frame, expected, found, lost, and the file; null for unknown values.
[[nodiscard]] Json toJson(const std::string &file, const KIVCS2CaptionFileFault &fault);

} // namespace tool

#endif
