// kivcs2 caption play: a file in real time as a stream of ancillary data (SMPTE ST 2110-40, RFC 8331).
#include "Captions/LiveSocket.h"
#include "Captions/OpenCaptions.h"
#include "Captions/StreamTime.h"
#include "Terminal/EndSignals.h"
#include "Terminal/Output.h"
#include "Words/Caption.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <random>

namespace tool
{
namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kMostBehind = 1s;     // after a stop the command must not send all missed frames in one burst
constexpr size_t kMostBytes = 1452;  // bytes of a datagram: SMPTE ST 2110-10 allows 1460 with the UDP header
constexpr size_t kMostPackets = 255; // ANC_Count has eight bits (RFC 8331)

struct PlayArguments
{
    ReadingArguments reading;
    std::string to, interface;
    uint32_t payloadType = 100, line = 9, ttl = 1;
    double speed = 1;
    bool loop = false;
    bool noTimecode = false;
};

/// The ancillary packets of one frame.
struct PlayedFrame
{
    uint32_t frame = 0; ///< since midnight
    std::vector<KIVCS2CaptionPacket> packets;
};

/// Reads a caption file frame by frame. Pairs of an SCC file are put into a CDP.
class FrameFeed
{
public:
    explicit FrameFeed(const ReadingArguments &arguments) : m_arguments(arguments)
    {
        open(true);
    }

    /// Reads the file again from its start. The sequence numbers of CDPs made here continue.
    void beginAgain()
    {
        open(false);
    }

    /// Takes the next frame that has a packet; returns false after the last. Packets that go back in time are
    /// added to the frame before.
    bool next(PlayedFrame &frame)
    {
        if (!m_isThere)
            return false;
        frame.frame = m_ahead.m_frame;
        frame.packets.clear();
        KIVCS2CaptionPairs pairs{};
        do
        {
            if (m_ahead.m_size != 0)
                frame.packets.push_back(m_ahead);
            else
                add(pairs);
            m_isThere = m_source->next(m_ahead);
        } while (m_isThere && isSameFrame(frame.frame, m_ahead.m_frame));
        if (pairs.m_count[0] + pairs.m_count[1] > 0)
            frame.packets.push_back(build(pairs));
        return true;
    }

    [[nodiscard]] CaptionSource &source()
    {
        return *m_source;
    }

private:
    void open(bool tellsLines)
    {
        m_source.emplace(m_arguments,
                         ReadingWay{.byFrame = true, .placesPackets = true, .tellsLines = tellsLines});
        m_isThere = m_source->next(m_ahead);
    }

    // A frame more than half a day earlier belongs to the next day.
    [[nodiscard]] bool isSameFrame(uint32_t frame, uint32_t next) const
    {
        KIVCS2CaptionCountingInfo info{};
        check(kivCS2CaptionCounting_getInfo(m_source->header().m_counting, &info), "counting");
        return next <= frame && frame - next < info.m_perDay / 2;
    }

    void add(KIVCS2CaptionPairs &pairs) const
    {
        KIVCS2CaptionPairs found;
        (void)kivCS2CaptionPacket_getPairs(&m_ahead, &found); // empty if there are none
        for (size_t field = 0; field < 2; ++field)
            for (size_t pair = 0; pair < found.m_count[field]; ++pair)
                if (pairs.m_count[field] < KIVCS2_CAPTION_TRIPLETS_MAX)
                    std::ranges::copy(found.m_pairs[field][pair],
                                      pairs.m_pairs[field][pairs.m_count[field]++]);
    }

    [[nodiscard]] KIVCS2CaptionPacket build(const KIVCS2CaptionPairs &pairs)
    {
        KIVCS2CaptionPacket packet;
        check(kivCS2CaptionPacket_build(&packet, m_source->header().m_counting, m_sequence++, &pairs, nullptr,
                                        nullptr, 0),
              m_source->name());
        return packet;
    }

    const ReadingArguments &m_arguments;
    std::optional<CaptionSource> m_source;
    KIVCS2CaptionPacket m_ahead{};
    bool m_isThere = false;
    uint16_t m_sequence = 0;
};

/// The times of the frames since the start. They are exact, so errors do not add up.
class Pace
{
public:
    Pace(KIVCS2CaptionCounting counting, double speed) : m_speed(speed)
    {
        check(kivCS2CaptionCounting_getInfo(counting, &m_info), "counting");
    }

    [[nodiscard]] uint64_t ticks(uint64_t frames, uint64_t aSecond) const
    {
        const uint64_t unit = m_info.m_denominator * aSecond;
        return frames / m_info.m_numerator * unit + frames % m_info.m_numerator * unit / m_info.m_numerator;
    }

    /// Waits for the time of a frame; returns false if the command is to end first.
    [[nodiscard]] bool await(uint64_t frames, const EndSignals &signals)
    {
        const auto since = std::chrono::nanoseconds{
            static_cast<int64_t>(static_cast<double>(ticks(frames, std::nano::den)) / m_speed)};
        if (signals.waitUntil(m_start + since))
            return false;
        const auto behind = Clock::now() - (m_start + since);
        m_mostBehind = std::max(m_mostBehind, behind);
        if (behind > kMostBehind)
        {
            m_start += behind;
            ++m_stops;
        }
        return true;
    }

    [[nodiscard]] double seconds() const
    {
        return std::chrono::duration<double>(Clock::now() - m_start).count();
    }
    [[nodiscard]] double mostBehind() const
    {
        return std::chrono::duration<double>(m_mostBehind).count();
    }
    [[nodiscard]] uint64_t stops() const
    {
        return m_stops;
    }
    [[nodiscard]] uint32_t perDay() const
    {
        return m_info.m_perDay;
    }

private:
    KIVCS2CaptionCountingInfo m_info{};
    double m_speed;
    Clock::time_point m_start = Clock::now();
    Clock::duration m_mostBehind{};
    uint64_t m_stops = 0;
};

// Returns the bytes of an ancillary packet in RTP: its place, words of ten bits, padding to 32 bits.
size_t carriedSize(const KIVCS2CaptionPacket &packet)
{
    return 4 + (size_t{packet.m_size} * 10 + 31) / 32 * 4;
}

/// Sends RTP packets, one for each frame, or as many as the frame needs.
class Player
{
public:
    Player(const PlayArguments &arguments, KIVCS2CaptionCounting counting)
        : m_arguments(arguments), m_counting(counting), m_pace(counting, arguments.speed),
          m_socket(LiveSocket::sender(LiveAddress{arguments.to}, arguments.interface, arguments.ttl))
    {
        // Random (RFC 3550), because a receiver recognises a new sender by them.
        std::random_device random;
        m_rtp.m_payloadType = static_cast<uint8_t>(arguments.payloadType);
        m_rtp.m_source = random();
        m_rtp.m_sequence = random();
        m_firstTimestamp = random();
    }

    /// Sends a file from its first frame to its last; returns false if the command is to end first.
    bool play(FrameFeed &feed)
    {
        PlayedFrame frame;
        const uint64_t begin = m_frames;
        std::optional<uint32_t> last;
        uint64_t place = 0; // frames since the first of the file
        for (; feed.next(frame); last = frame.frame)
        {
            const uint32_t day = m_pace.perDay();
            place += last ? (frame.frame + day - *last) % day : 0;
            while (m_frames < begin + place)
                if (!send({}))
                    return false;
            const size_t captions = frame.packets.size();
            // Put it in front, because further datagrams of the frame have the time of the first.
            if (!m_arguments.noTimecode && !std::ranges::any_of(frame.packets, tellsTime))
                frame.packets.insert(frame.packets.begin(), ancillaryTimecode(m_counting, frame.frame));
            if (!send(frame.packets))
                return false;
            m_captionPackets += captions;
            ++m_captionFrames;
        }
        ++m_passes;
        return true;
    }

    void tell(bool json) const
    {
        Facts facts;
        facts.add("Frames", std::to_string(m_frames) + print(" in %.3f s", m_pace.seconds()));
        if (m_datagrams != m_frames)
            facts.add("RTP packets", std::to_string(m_datagrams));
        facts.add("With captions",
                  std::to_string(m_captionFrames) + ", " + count(m_captionPackets, "caption packet"));
        facts.add("Keep-alives", std::to_string(m_frames - m_captionFrames));
        facts.add("Passes", std::to_string(m_passes));
        facts.add("Longest delay", print("%.1f ms", m_pace.mostBehind() * 1e3));
        if (m_pace.stops() > 0)
            facts.add("Stops", count(m_pace.stops(), "time"));
        report(json,
               Json{{"frames", m_frames},
                    {"packets", m_datagrams},
                    {"seconds", m_pace.seconds()},
                    {"captionFrames", m_captionFrames},
                    {"captionPackets", m_captionPackets},
                    {"keepAlives", m_frames - m_captionFrames},
                    {"passes", m_passes},
                    {"secondsBehind", m_pace.mostBehind()},
                    {"stops", m_pace.stops()}},
               facts);
    }

private:
    static bool tellsTime(const KIVCS2CaptionPacket &packet)
    {
        return (packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) != 0 || isAncillaryTimecode(packet);
    }

    bool send(std::span<const KIVCS2CaptionPacket> packets)
    {
        if (!m_pace.await(m_frames, m_signals))
            return false;
        constexpr uint64_t kClock = 90000;
        constexpr size_t kHeads = 20; // bytes of the headers of RTP and RFC 8331
        m_rtp.m_timestamp = m_firstTimestamp + static_cast<uint32_t>(m_pace.ticks(m_frames, kClock));
        do
        {
            size_t taken = 0;
            for (size_t room = kMostBytes - kHeads; taken < std::min(packets.size(), kMostPackets); ++taken)
            {
                const size_t size = carriedSize(packets[taken]);
                if (size > room)
                    break;
                room -= size;
            }
            m_rtp.m_marker = taken == packets.size() ? 1 : 0; // the last datagram of its frame
            sendDatagram(packets.first(taken));
            packets = packets.subspan(taken);
        } while (!packets.empty());
        ++m_frames;
        return true;
    }

    void sendDatagram(std::span<const KIVCS2CaptionPacket> packets)
    {
        KIVCS2CaptionPlace place{};
        place.m_line = static_cast<uint16_t>(m_arguments.line);
        const std::vector<KIVCS2CaptionPlace> places(packets.size(), place);
        const auto number = static_cast<uint32_t>(packets.size());
        std::array<uint8_t, kMostBytes> datagram{};
        uint64_t size = datagram.size();
        check(kivCS2CaptionPacket_wrap(KIVCS2CaptionCarrier_RTP, packets.data(), number, places.data(),
                                       &m_rtp, datagram.data(), &size),
              "an RTP packet of " + count(number, "ancillary packet"));
        m_socket.send(std::span{datagram}.first(size));
        ++m_rtp.m_sequence;
        ++m_datagrams;
    }

    const PlayArguments &m_arguments;
    EndSignals m_signals;
    KIVCS2CaptionCounting m_counting;
    Pace m_pace;
    LiveSocket m_socket;
    KIVCS2CaptionRTP m_rtp{};
    uint32_t m_firstTimestamp = 0;
    uint64_t m_frames = 0, m_datagrams = 0, m_captionFrames = 0, m_captionPackets = 0, m_passes = 0;
};

int captionPlay(const PlayArguments &arguments, bool json)
{
    if (arguments.loop && arguments.reading.file == "-")
        throw Failure(kExitUsage, "--loop needs a file that can be read again, not standard input");
    FrameFeed feed{arguments.reading};
    refuseIdleOptions(arguments.reading, feed.source().isSCC());
    Player player{arguments, feed.source().header().m_counting};
    int code = kExitYes;
    try
    {
        bool goesOn = player.play(feed);
        code = feed.source().finish();
        while (arguments.loop && goesOn)
        {
            feed.beginAgain();
            goesOn = player.play(feed);
        }
    }
    catch (const Ended &)
    {
        // The totals so far are printed, as after any interrupt.
    }
    catch (const Failure &)
    {
        player.tell(json); // the totals so far
        throw;
    }
    player.tell(json);
    return code;
}

} // namespace

void addPlayWord(Word &caption, Context &context)
{
    const auto arguments = std::make_shared<PlayArguments>();
    Word &play = caption.word("play", "Send a file in real time as a stream of ancillary data over RTP");
    addReadingOptions(play, arguments->reading);
    play.option("to", arguments->to, "Where to: udp://ADDRESS:PORT, a group or a host").required();
    play.option("--interface", arguments->interface,
                "Reach a group through the interface of this address or name");
    play.option("--payload-type", arguments->payloadType, {0, 127}, "RTP payload type").shownDefault();
    play.option("--line", arguments->line, {0, 2047}, "The line that packets claim to be on").shownDefault();
    play.option("--ttl", arguments->ttl, {0, 255}, "Routers that a datagram to a group may pass, plus 1")
        .shownDefault();
    play.option("--speed", arguments->speed, {0.01, 1000.0},
                "Times the pace; time stamps stay those of real time");
    play.flag("--loop", arguments->loop, "Begin again after the last frame");
    play.flag("--no-timecode", arguments->noTimecode,
              "No ancillary timecode (SMPTE ST 12-2) for captions that have no time code");
    play.about(
        "Sends one RTP packet a frame (SMPTE ST 2110-40, RFC 8331) from the file's first frame to its\n"
        "last, a keep-alive for each frame without captions, each at its exact time. What does not fit\n"
        "into a datagram takes several. Pairs of an SCC file go into CDPs. An interrupt ends it. Prints\n"
        "the totals. Exit codes: 3 a part of the file was lost, 4 sending failed.");
    play.example("kivcs2 caption play programme.scc udp://127.0.0.1:20000 --speed 100");
    play.runs(
        [&context, arguments]
        {
            keepStandardOutput(); // the library's own messages must not appear among the lines
            return captionPlay(*arguments, context.json);
        });
}

} // namespace tool
