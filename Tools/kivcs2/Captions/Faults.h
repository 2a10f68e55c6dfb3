// The faults of a caption file: counted, told in lines and as JSON.
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

/// Called with every fault; it may throw to stop.
using OnFault = std::function<void(const KIVCS2CaptionFileFault &)>;

/// The faults of one file. Memory does not grow with them: the first of each cause is kept.
class FoundFaults
{
public:
    /// `file` is the name for messages.
    FoundFaults(std::string file, OnFault onFault);
    FoundFaults(const FoundFaults &) = delete;
    FoundFaults &operator=(const FoundFaults &) = delete;

    /// A KIVCS2CaptionFaultFunc, whose context is the FoundFaults. What the caller's function throws is kept
    /// for rethrow(): no exception crosses the library.
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

    /// Places at which a line, a pair or a part of a packet was lost.
    [[nodiscard]] uint64_t lost() const;

    /// One line a cause on standard error, by the places where they were met first. `besides` is told by
    /// another.
    void tell(KIVCS2CaptionFault besides = KIVCS2CaptionFault_None) const;

    /// The fault that a read ended with, as a failure; null if `status` came from none.
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

/// The same with another end than what was expected.
[[nodiscard]] std::string sentence(const KIVCS2CaptionFileFault &fault, const std::string &end);

/// What was found, at most `most` bytes of it, as it may be shown.
[[nodiscard]] std::string foundText(const KIVCS2CaptionFileFault &fault, size_t most);

/// Name, line, column, offset, frame, expected, found, lost, and the file; null for what is not known.
[[nodiscard]] Json toJson(const std::string &file, const KIVCS2CaptionFileFault &fault);

} // namespace tool

#endif
