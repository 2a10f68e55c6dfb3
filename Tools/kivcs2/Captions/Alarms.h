// What is wrong with live captions, told as it happens: at once, and then once a second at most.
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
    NoPackets, ///< none for a second
    Lost,      ///< packets are missing
    Restart,   ///< the sender has begun anew
    Malformed, ///< not RTP, or not what RFC 8331 and SMPTE ST 334-2 say
    Checksum,
    Parity,
    Sequence, ///< a CDP does not count on
    Rate,     ///< CDPs of another rate
    NoCaption ///< for as long as the user said
};
constexpr size_t kAlarmCount = static_cast<size_t>(Alarm::NoCaption) + 1;

/// "noPackets", for programs.
[[nodiscard]] std::string_view alarmName(Alarm alarm);

/// Every alarm is counted; a cause that comes again and again is told once a second with its number.
class Alarms
{
public:
    using Clock = std::chrono::steady_clock;
    struct Told
    {
        Alarm alarm;
        uint64_t count; ///< since the last time
        std::string timecode, text;
    };
    using OnAlarm = std::function<void(const Told &)>;

    explicit Alarms(OnAlarm onAlarm) : m_onAlarm(std::move(onAlarm)) {}

    void raise(Alarm alarm, const std::string &timecode, const std::string &text, uint64_t count = 1);

    /// Tells what has been held back for a second; at the `end` all of it.
    void tick(bool end = false);

    [[nodiscard]] uint64_t count(Alarm alarm) const
    {
        return m_rows[static_cast<size_t>(alarm)].total;
    }

private:
    struct Row
    {
        uint64_t total = 0;
        Clock::time_point next{}; ///< told again from here on
        Told held{};
    };

    void tell(Row &row);

    OnAlarm m_onAlarm;
    std::array<Row, kAlarmCount> m_rows{};
};

} // namespace tool

#endif
