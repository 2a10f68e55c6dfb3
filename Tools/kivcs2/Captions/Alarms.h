// The alarms of live captions. Each is reported at once, and then at most once a second.
#ifndef KIV_TOOL_CAPTION_ALARMS_H
#define KIV_TOOL_CAPTION_ALARMS_H

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tool
{

enum class Alarm : uint8_t
{
    NoPackets, ///< no packet for a second
    Lost,      ///< packets are missing
    Restart,   ///< the sender has restarted
    Malformed, ///< not RTP, or not as RFC 8331 and SMPTE ST 334-2 require
    Checksum,
    Parity,
    Sequence, ///< a CDP's counter does not follow the one before
    Rate,     ///< CDPs of another rate
    NoCaption ///< no caption for the time that the user set
};
constexpr size_t kAlarmCount = static_cast<size_t>(Alarm::NoCaption) + 1;

/// Returns the name for programs: "noPackets".
[[nodiscard]] std::string_view alarmName(Alarm alarm);

/// Counts every alarm. A cause that repeats is reported once a second with its count.
class Alarms
{
public:
    using Clock = std::chrono::steady_clock;
    struct Told
    {
        Alarm alarm;
        uint64_t count; ///< since the last report
        std::string timecode, text;
    };
    using OnAlarm = std::function<void(const Told &)>;

    explicit Alarms(OnAlarm onAlarm) : m_onAlarm(std::move(onAlarm)) {}

    void raise(Alarm alarm, const std::string &timecode, const std::string &text, uint64_t count = 1);

    /// Reports the alarms held back for a second; at the `end` all that are held back.
    void tick(bool end = false);

    [[nodiscard]] uint64_t count(Alarm alarm) const
    {
        return m_rows[static_cast<size_t>(alarm)].total;
    }

private:
    struct Row
    {
        uint64_t total = 0;
        Clock::time_point next{}; ///< the next report may be made from here on
        Told held{};
    };

    void tell(Row &row);

    OnAlarm m_onAlarm;
    std::array<Row, kAlarmCount> m_rows{};
};

} // namespace tool

#endif
