// kivcs2 caption monitor: the captions of a stream of ancillary data (SMPTE ST 2110-40, RFC 8331), and its
// faults, as they come.
#include "Captions/Alarms.h"
#include "Captions/CaptionTarget.h"
#include "Captions/Decoding.h"
#include "Captions/LiveSocket.h"
#include "Captions/OpenCaptions.h"
#include "Captions/Reorder.h"
#include "Captions/Services.h"
#include "Captions/StreamTime.h"
#include "Terminal/EndSignals.h"
#include "Terminal/Output.h"
#include "Words/Caption.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

namespace tool
{
namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kNoPackets = 1s;
constexpr size_t kMostAtEnd = 65536; // datagrams that came before the end and are still taken
constexpr uint32_t kAnyType = 128;   // payload types of RTP have seven bits

struct MonitorArguments
{
    std::string from, interface, service, rate;
    std::string to; ///< empty: no file
    uint32_t window = 64, payloadType = kAnyType;
    double seconds = 0; ///< 0: until interrupted
    double silence = 0; ///< 0: silence is not watched
    bool json = false;
};

constexpr uint64_t bit(KIVCS2CaptionFault fault)
{
    return uint64_t{1} << fault;
}

constexpr uint64_t kChecksums =
    bit(KIVCS2CaptionFault_PacketChecksum) | bit(KIVCS2CaptionFault_PacketChecksumMissing) |
    bit(KIVCS2CaptionFault_CDPChecksum) | bit(KIVCS2CaptionFault_CDPChecksumMissing);
constexpr uint64_t kParities = bit(KIVCS2CaptionFault_Parity) | bit(KIVCS2CaptionFault_WordParity);

// Returns the names of faults: "parity, word parity".
std::string namesOf(uint64_t faults)
{
    std::string names;
    for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
        if ((faults & bit(fault)) != 0)
            names += (names.empty() ? "" : ", ") + std::string{kivCS2CaptionFile_getFaultName(fault)};
    return names;
}

bool isCaption(const KIVCS2CaptionPacket &packet)
{
    return packet.m_did == 0x61 && (packet.m_sdid == 0x01 || packet.m_sdid == 0x02);
}

// Returns true if the packet has more than empty pairs and padding.
bool hasCaptions(const KIVCS2CaptionPacket &packet)
{
    const auto isFilled = [](CaptionPair pair) { return !pair.isEmpty(); };
    return !dtvccOf(packet).empty() || std::ranges::any_of(pairsOf(packet, 1), isFilled) ||
           std::ranges::any_of(pairsOf(packet, 2), isFilled);
}

// Returns true if the header of RTP and the header of RFC 8331 are complete.
bool hasHeaders(std::span<const uint8_t> datagram)
{
    constexpr size_t kFixed = 12, kPayloadHead = 8;
    size_t size = kFixed;
    if (datagram.size() >= size)
    {
        size += size_t{4} * (datagram[0] & 0x0Fu); // contributing sources
        const bool isExtended = (datagram[0] & 0x10u) != 0;
        if (isExtended && datagram.size() >= size + 4)
            size += size_t{4} * (size_t{datagram[size + 2]} << 8 | datagram[size + 3]);
        size += isExtended ? 4 : 0;
    }
    return datagram.size() >= size + kPayloadHead;
}

/// The output of the monitor: lines for people, with alarms on standard error; for programs an object in each
/// line. If a line cannot be written, it is the last one, but the captions that came are kept.
class MonitorLines
{
public:
    MonitorLines(bool json, bool hasData) : m_isJson(json), m_to(hasData ? errors() : out())
    {
        if (hasData)
            giveStandardOutputToData();
    }

    void tell(const Json &object, const Shown &text)
    {
        write(
            [&]
            {
                if (m_isJson)
                    m_to.write(jsonText(object) + "\n");
                else
                    m_to.line(text);
            });
    }

    void tell(const Alarms::Told &alarm)
    {
        // One alarm sums up several gaps.
        const bool isLost = alarm.alarm == Alarm::Lost;
        const std::string said = isLost ? count(alarm.count, "packet") + " lost" : alarm.text;
        if (m_isJson)
            return tell(Json{{"kind", "alarm"},
                             {"alarm", alarmName(alarm.alarm)},
                             {"count", alarm.count},
                             {"timecode", alarm.timecode.empty() ? Json() : Json(alarm.timecode)},
                             {"text", said}},
                        "");
        note((alarm.timecode.empty() ? "" : alarm.timecode + "  ") + said +
             (alarm.count > 1 && !isLost ? " (" + std::to_string(alarm.count) + " times in a second)" : ""));
    }

    void finish(const Json &object, const Facts &facts)
    {
        if (m_isJson)
            return tell(object, "");
        write([&] { facts.print(m_to); });
    }

    /// Returns the reason why no more lines can be written; null if they can.
    [[nodiscard]] const std::exception_ptr &failure() const
    {
        return m_failure;
    }

private:
    template <typename Body>
    void write(const Body &body)
    {
        if (m_failure)
            return;
        try
        {
            body();
            m_to.flush();
        }
        catch (...)
        {
            m_failure = std::current_exception();
        }
    }

    bool m_isJson;
    Output &m_to;
    std::exception_ptr m_failure;
};

/// The captions of a stream: turns RTP packets in order into texts, a file and alarms.
class LiveCaptions
{
public:
    LiveCaptions(const MonitorArguments &arguments, MonitorLines &lines, Alarms &alarms)
        : m_services(parseServices(arguments.service)), m_target(arguments.to),
          m_takesAll(arguments.service.empty()), m_lines(lines), m_alarms(alarms),
          m_time(arguments.rate.empty() ? KIVCS2CaptionCounting{KIVCS2CaptionCounting_FindOut}
                                        : captionCounting(countingFor(arguments.rate, std::nullopt)))
    {
    }

    void take(const Reorder::Passed &passed)
    {
        find(passed.bytes);
        const bool breaks = passed.lostBefore > 0 || passed.restarted;
        m_time.take(m_place.m_rtp.m_timestamp, m_packets, passed.restarted);
        if (passed.restarted)
            m_alarms.raise(Alarm::Restart, m_time.timecode(), "the sender has restarted");
        if (passed.lostBefore > 0)
            m_alarms.raise(Alarm::Lost, m_time.timecode(), "", passed.lostBefore);
        if (breaks)
            m_sequence.reset();
        if (m_packets.empty())
            ++m_keepAlives;
        tellTime();
        for (KIVCS2CaptionPacket &packet : m_packets)
            if (isCaption(packet))
                caption(packet);
    }

    /// Ends the captions on the screen and gives the file its name; returns false if no caption packet came.
    bool finish()
    {
        if (m_decoder)
            m_decoder->finish();
        if (const auto file = std::exchange(m_file, nullptr))
        {
            file->finish();
            file->commit();
        }
        return m_captionPackets > 0;
    }

    void tell(Json &value, Facts &facts) const
    {
        facts.add("Keep-alives", std::to_string(m_keepAlives));
        facts.add("Caption packets", std::to_string(m_captionPackets));
        facts.add("Captions", std::to_string(m_captions));
        const bool isKnown = m_time.counting() != KIVCS2CaptionCounting_FindOut;
        const std::string_view source = timeSourceName(m_time.source());
        if (isKnown)
            facts.add("Time", std::string{source} + ", " + std::string{rowOf(m_time.counting()).title});
        value.update({{"keepAlives", m_keepAlives},
                      {"captionPackets", m_captionPackets},
                      {"captions", m_captions},
                      {"timeSource", isKnown ? Json(source) : Json()},
                      {"rate", isKnown ? Json(rowOf(m_time.counting()).name) : Json()},
                      {"drop", isKnown ? Json(rowOf(m_time.counting()).drop) : Json()}});
    }

    [[nodiscard]] Clock::time_point lastCaption() const
    {
        return m_lastCaption;
    }
    [[nodiscard]] std::string timecode() const
    {
        return m_time.timecode();
    }

private:
    // Finds all ancillary packets of an RTP packet.
    void find(std::span<const uint8_t> bytes)
    {
        m_packets.clear();
        m_place = {};
        constexpr KIVCS2CaptionCarrier kForm = KIVCS2CaptionCarrier_RTP | KIVCS2CaptionCarrier_AnyPacket;
        uint64_t offset = 0;
        KIVCS2Status status = KIVCS2STATUS_OK;
        for (KIVCS2CaptionPacket packet; KIVCS2_SUCCEEDED(status);)
        {
            status = kivCS2CaptionPacket_find(kForm, bytes.data(), bytes.size(), &offset, &packet, &m_place);
            if (KIVCS2_SUCCEEDED(status) || status == KIVCS2STATUS_EOF_ERR)
                m_packets.push_back(packet);
        }
        uint64_t faults = 0;
        for (const KIVCS2CaptionPacket &packet : m_packets)
            faults |= packet.m_faults;
        raise(Alarm::Checksum, faults & kChecksums);
        raise(Alarm::Parity, faults & kParities);
        raise(Alarm::Malformed, faults & ~(kChecksums | kParities));
        if (m_packets.empty() && m_place.m_rtp.m_count != 0)
            raise(Alarm::Malformed, bit(KIVCS2CaptionFault_CarrierCounts));
    }

    void raise(Alarm alarm, uint64_t faults)
    {
        if (faults != 0)
            m_alarms.raise(alarm, m_time.timecode(), "damaged packet: " + namesOf(faults));
    }

    // Reports the source of the time, once for each source.
    void tellTime()
    {
        const unsigned mask = 1u << static_cast<unsigned>(m_time.source());
        if (m_time.source() == TimeSource::None || (m_toldSources & mask) != 0)
            return;
        m_toldSources |= mask;
        const Counting &row = rowOf(m_time.counting());
        const std::string_view source = timeSourceName(m_time.source());
        m_lines.tell(Json{{"kind", "time"},
                          {"source", source},
                          {"rate", row.name},
                          {"drop", row.drop},
                          {"timecode", m_time.timecode()}},
                     "time from the " + std::string{source} + ", " + std::string{row.title} + ", at " +
                         m_time.timecode());
    }

    void caption(KIVCS2CaptionPacket &packet)
    {
        ++m_captionPackets;
        packet.m_frame = m_time.frame();
        if (m_time.counting() == KIVCS2CaptionCounting_FindOut)
        {
            m_alarms.raise(Alarm::Rate, "", "captions without a frame rate (--rate gives one)");
            return;
        }
        checkSequence(packet);
        if (m_takesAll && hasCaptions(packet))
            m_lastCaption = Clock::now();
        if (!m_decoder)
            m_decoder = std::make_unique<CaptionDecoder>(
                m_services, m_time.counting(), [this](const KIVCS2CaptionText &text) { show(text); });
        m_decoder->feed(packet);
        if (!m_target.empty())
            write(packet);
    }

    // If the file cannot be written to its end, it does not get its name.
    void write(const KIVCS2CaptionPacket &packet)
    {
        try
        {
            if (!m_file)
            {
                TargetWay way;
                way.kind = KIVCS2CaptionFileKind_MCC1;
                way.counting = m_time.counting();
                m_file = std::make_unique<CaptionTarget>(m_target, way);
            }
            m_file->write(packet);
        }
        catch (const Failure &)
        {
            m_file.reset();
            m_target.clear();
            throw;
        }
    }

    void checkSequence(const KIVCS2CaptionPacket &packet)
    {
        if ((packet.m_flags & KIVCS2CaptionPacketFlag_CDP) == 0 || (packet.m_faults & kChecksums) != 0)
            return;
        if (m_sequence && packet.m_sequence != static_cast<uint16_t>(*m_sequence + 1))
            m_alarms.raise(
                Alarm::Sequence, m_time.timecode(),
                print("CDP %u follows CDP %u", unsigned{packet.m_sequence}, unsigned{*m_sequence}));
        m_sequence = packet.m_sequence;
        KIVCS2CaptionCountingInfo info{};
        check(kivCS2CaptionCounting_getInfo(m_time.counting(), &info), "counting");
        if (packet.m_rateCode != info.m_rateCode)
            m_alarms.raise(Alarm::Rate, m_time.timecode(),
                           "a CDP of " + std::string{cdpRateName(packet.m_rateCode)} + " among others of " +
                               std::string{rowOf(m_time.counting()).name});
    }

    void show(const KIVCS2CaptionText &text)
    {
        ++m_captions;
        m_lastCaption = Clock::now();
        const auto timecode = [this](uint32_t frame)
        {
            std::array<char, KIVCS2_CAPTION_TIMECODE_SIZE> shown{};
            check(kivCS2CaptionCounting_textFromFrame(m_time.counting(), frame, shown.data()), "timecode");
            return std::string{shown.data()};
        };
        const std::string from = timecode(text.m_from), until = timecode(text.m_until);
        const std::string service = serviceName(text.m_service);
        std::string rows = text.m_text;
        std::ranges::replace(rows, '\n', '|');
        m_lines.tell(Json{{"kind", "caption"},
                          {"from", from},
                          {"until", until},
                          {"channel", service},
                          {"mode", modeName(text.m_mode)},
                          {"text", text.m_text}},
                     Output::strong(from) + "  " + until + "  " + service + "  " + rows);
    }

    KIVCS2CaptionServices m_services;
    std::string m_target;
    bool m_takesAll;
    MonitorLines &m_lines;
    Alarms &m_alarms;
    StreamTime m_time;
    KIVCS2CaptionPlace m_place{};
    std::vector<KIVCS2CaptionPacket> m_packets;
    std::unique_ptr<CaptionDecoder> m_decoder;
    std::unique_ptr<CaptionTarget> m_file;
    std::optional<uint16_t> m_sequence;
    unsigned m_toldSources = 0;
    uint64_t m_keepAlives = 0, m_captionPackets = 0, m_captions = 0;
    Clock::time_point m_lastCaption = Clock::now();
};

/// Puts datagrams into the window, and reports if none come.
class Monitor
{
public:
    explicit Monitor(const MonitorArguments &arguments)
        : m_arguments(arguments), m_lines(arguments.json, arguments.to == "-"),
          m_alarms([this](const Alarms::Told &alarm) { m_lines.tell(alarm); }),
          m_captions(arguments, m_lines, m_alarms),
          m_order(arguments.window, [this](const Reorder::Passed &passed) { m_captions.take(passed); })
    {
    }

    void tellListening(const LiveAddress &at)
    {
        m_lines.tell(Json{{"kind", "listening"}, {"host", at.host}, {"port", at.port}},
                     "listening at " + at.host + ":" + std::to_string(at.port));
    }

    void take(std::span<const uint8_t> datagram)
    {
        KIVCS2CaptionPlace place{};
        uint64_t offset = 0;
        KIVCS2CaptionPacket packet;
        const KIVCS2Status status =
            kivCS2CaptionPacket_find(KIVCS2CaptionCarrier_RTP | KIVCS2CaptionCarrier_AnyPacket,
                                     datagram.data(), datagram.size(), &offset, &packet, &place);
        if (status == KIVCS2STATUS_FORMAT_ERR || !hasHeaders(datagram))
        {
            ++m_foreign;
            m_alarms.raise(Alarm::Malformed, m_captions.timecode(), "a datagram that is not RTP");
            return;
        }
        if (m_arguments.payloadType != kAnyType && place.m_rtp.m_payloadType != m_arguments.payloadType)
        {
            ++m_otherTypes;
            return;
        }
        m_bytes += datagram.size();
        m_lastPacket = Clock::now();
        m_isSilent = false;
        m_order.take(place.m_rtp.m_source, place.m_rtp.m_sequence, datagram);
    }

    /// Reports the alarms that are due: alarms held back, and alarms about time.
    void tick()
    {
        const auto now = Clock::now();
        m_alarms.tick();
        if (!m_isSilent && now - m_lastPacket >= kNoPackets)
        {
            m_isSilent = true;
            m_order.flush(); // no packet that could fill a gap is coming
            m_alarms.raise(Alarm::NoPackets, m_captions.timecode(), "no packet for a second");
        }
        const auto quietSince = std::max(m_captions.lastCaption(), m_toldQuiet);
        if (m_arguments.silence <= 0 || now - quietSince < std::chrono::duration<double>(m_arguments.silence))
            return;
        m_toldQuiet = now;
        m_alarms.raise(Alarm::NoCaption, m_captions.timecode(),
                       print("no caption for %.1f s",
                             std::chrono::duration<double>(now - m_captions.lastCaption()).count()));
    }

    /// Ends the captions and gives the file its name. Returns the exit code.
    int finish()
    {
        std::exception_ptr failure;
        bool hasCaptions = false;
        try
        {
            m_order.flush();
            m_alarms.tick(true);
            hasCaptions = m_captions.finish();
        }
        catch (const Failure &)
        {
            failure = std::current_exception();
        }
        tell();
        if (!failure)
            failure = m_lines.failure();
        if (failure)
            std::rethrow_exception(failure);
        if (!hasCaptions)
            note(m_order.counts().taken > 0 ? "no caption packet came"
                 : m_otherTypes > 0         ? "no packet of this payload type came"
                                            : "no packet came");
        return hasCaptions ? kExitYes : kExitNo;
    }

    /// Returns true if no more output can be written.
    [[nodiscard]] bool isUnheard() const
    {
        return m_lines.failure() != nullptr;
    }

private:
    void tell()
    {
        const Reorder::Counts &counts = m_order.counts();
        Facts facts;
        Json value{{"kind", "total"},
                   {"seconds", std::chrono::duration<double>(Clock::now() - m_start).count()},
                   {"packets", counts.taken},
                   {"bytes", m_bytes},
                   {"lost", counts.lost},
                   {"gaps", counts.gaps},
                   {"doubled", counts.doubled},
                   {"late", counts.late},
                   {"reordered", counts.reordered},
                   {"strays", counts.strays},
                   {"restarts", counts.restarts},
                   {"notRTP", m_foreign},
                   {"otherTypes", m_otherTypes}};
        facts.add("Packets", std::to_string(counts.taken) + ", " + count(m_bytes, "byte"));
        facts.add("Lost", std::to_string(counts.lost) + " in " + count(counts.gaps, "gap"));
        facts.add("Doubled, late", std::to_string(counts.doubled) + ", " + std::to_string(counts.late));
        facts.add("Reordered", std::to_string(counts.reordered));
        if (counts.strays + counts.restarts + m_foreign > 0)
            facts.add("Strays, restarts, not RTP", std::to_string(counts.strays) + ", " +
                                                       std::to_string(counts.restarts) + ", " +
                                                       std::to_string(m_foreign));
        if (m_otherTypes > 0)
            facts.add("Other payload types", std::to_string(m_otherTypes));
        m_captions.tell(value, facts);
        Json alarms = Json::object();
        for (size_t index = 0; index < kAlarmCount; ++index)
            if (const auto alarm = static_cast<Alarm>(index); m_alarms.count(alarm) > 0)
            {
                alarms[alarmName(alarm)] = m_alarms.count(alarm);
                facts.add("Alarm " + std::string{alarmName(alarm)}, std::to_string(m_alarms.count(alarm)));
            }
        value["alarms"] = alarms;
        m_lines.finish(value, facts);
    }

    const MonitorArguments &m_arguments;
    MonitorLines m_lines;
    Alarms m_alarms;
    LiveCaptions m_captions;
    Reorder m_order;
    uint64_t m_bytes = 0, m_foreign = 0, m_otherTypes = 0;
    Clock::time_point m_start = Clock::now(), m_lastPacket = m_start, m_toldQuiet = m_start;
    bool m_isSilent = false;
};

// Receives until the command is to end, or its time is over.
void listen(Monitor &monitor, LiveSocket &socket, double seconds, const EndSignals &signals)
{
    const auto start = Clock::now();
    std::vector<uint8_t> datagram;
    while (!monitor.isUnheard() && signals.waitFor(0ns) != EndSignals::Event::End)
    {
        if (seconds > 0 && Clock::now() - start >= std::chrono::duration<double>(seconds))
            break;
        if (socket.receive(datagram, true))
            monitor.take(datagram);
        monitor.tick();
    }
    for (size_t left = kMostAtEnd; left > 0 && socket.receive(datagram, false); --left)
        monitor.take(datagram);
}

int captionMonitor(const MonitorArguments &arguments)
{
    const LiveAddress at{arguments.from};
    if (!arguments.to.empty())
        const OutputFile isPossible{arguments.to}; // fails now, and not when captions come
    Monitor monitor{arguments};
    LiveSocket socket = LiveSocket::receiver(at, arguments.interface);
    const EndSignals signals; // before it says that it listens: from then on an interrupt keeps the captions
    monitor.tellListening(at);
    std::exception_ptr failure;
    try
    {
        listen(monitor, socket, arguments.seconds, signals);
    }
    catch (const Failure &)
    {
        failure = std::current_exception(); // the captions so far still get their file and their totals
    }
    const int code = monitor.finish();
    if (failure)
        std::rethrow_exception(failure);
    return code;
}

} // namespace

void addMonitorWord(Word &caption, Context &context)
{
    const auto arguments = std::make_shared<MonitorArguments>();
    Word &monitor =
        caption.word("monitor", "The captions of a stream of ancillary data over RTP, as they come");
    monitor.option("from", arguments->from, "Where from: udp://ADDRESS:PORT, a group or a local address")
        .required();
    monitor.option("--interface", arguments->interface,
                   "Join a group on the interface of this address or name");
    monitor
        .option("--service", arguments->service, "Only these services: CC1, T1, S1, or several with commas")
        .suggests("services", serviceNames);
    monitor.option("--to", arguments->to, "Write the captions to this MCC file; - is standard output")
        .isTarget();
    monitor.option("--rate", arguments->rate, "Count at this rate instead of the rate of the CDPs")
        .suggests("rates", rateNames);
    monitor.option("--payload-type", arguments->payloadType, {0, 127},
                   "Take only packets of this RTP payload type");
    monitor.option("--window", arguments->window, {1, 4096}, "Packets that may wait for one that is missing")
        .shownDefault();
    monitor.option("--for", arguments->seconds, {0.0, 1e9}, "End after this many seconds");
    monitor.option("--silence", arguments->silence, {0.0, 1e9},
                   "Alarm if no caption comes for this many seconds");
    monitor.about(
        "Joins the group and takes RTP packets of ancillary data (SMPTE ST 2110-40, RFC 8331) until an\n"
        "interrupt or --for seconds. A caption is shown when it ends. Time comes from the CDPs, else from\n"
        "ancillary timecode, else from the RTP clock. Alarms go to standard error; with --json every line is "
        "an\n"
        "object. The file gets its name at the end. Exit code 1: no caption packet came.");
    monitor.example("kivcs2 caption monitor udp://127.0.0.1:20000 --to programme.mcc --for 1");
    monitor.runs(
        [&context, arguments]
        {
            keepStandardOutput(); // the library's own messages must not appear among the lines
            arguments->json = context.json;
            return captionMonitor(*arguments);
        });
}

} // namespace tool
