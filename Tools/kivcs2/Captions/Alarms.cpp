// The alarms of live captions.
#include "Captions/Alarms.h"

#include <utility>

namespace tool
{

using namespace std::chrono_literals;

std::string_view alarmName(Alarm alarm)
{
    constexpr std::array<std::string_view, kAlarmCount> kNames = {
        "noPackets", "lost", "restart", "malformed", "checksum", "parity", "sequence", "rate", "noCaption"};
    return kNames[static_cast<size_t>(alarm)];
}

void Alarms::raise(Alarm alarm, const std::string &timecode, const std::string &text, uint64_t count)
{
    Row &row = m_rows[static_cast<size_t>(alarm)];
    row.total += count;
    row.held = {alarm, row.held.count + count, timecode, text};
    if (Clock::now() >= row.next)
        tell(row);
}

void Alarms::tick(bool end)
{
    const auto now = Clock::now();
    for (Row &row : m_rows)
        if (row.held.count > 0 && (end || now >= row.next))
            tell(row);
}

void Alarms::tell(Row &row)
{
    row.next = Clock::now() + 1s;
    m_onAlarm(std::exchange(row.held, {}));
}

} // namespace tool
