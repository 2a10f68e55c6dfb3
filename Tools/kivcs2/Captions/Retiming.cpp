// A caption file's packets at another rate, through the library's retimer.
#include "Captions/Retiming.h"

#include "Captions/Services.h"
#include "CommandLine/Numbers.h"
#include "Failure.h"

#include <algorithm>
#include <utility>

namespace tool
{
namespace
{

constexpr std::array<const char *, 3> kQueues = {"field1", "field2", "cea708"};

Failure wrong(const std::string &what)
{
    return {kExitInternal, "retimed wrong: " + what};
}

std::string timecode(KIVCS2CaptionCounting counting, uint32_t frame)
{
    std::array<char, KIVCS2_CAPTION_TIMECODE_SIZE> text{};
    check(kivCS2CaptionCounting_textFromFrame(counting, frame, text.data()), "timecode");
    return text.data();
}

int32_t offsetOf(const std::string &text)
{
    constexpr int64_t kMost = 1'000'000'000;
    const std::optional<int64_t> number = text.empty() ? 0 : signedNumber(text);
    if (!number || *number > kMost || *number < -kMost)
        throw Failure(kExitUsage, "--offset: \"" + visible(text) + "\" is not a number of frames");
    return static_cast<int32_t>(*number);
}

} // namespace

void addRetimeOptions(Word &word, RetimeArguments &arguments)
{
    word.option("--to-rate", arguments.toRate, "Write at this rate: every caption at the same moment")
        .suggests("rates", rateNames)
        .excludes("--to-counting");
    word.option("--to-counting", arguments.toCounting,
                "Write under this numbering: every caption on the frame of the same number")
        .suggests("rates", rateNames);
    word.option("--from", arguments.from, "The first timecode of the source to convert");
    word.option("--until", arguments.until, "The last timecode of the source to convert");
    word.option("--offset", arguments.offset, "Frames of the result to add to each frame; -25 is earlier");
    word.flag("--start-at-zero", arguments.startsAtZero,
              "The frame of --from, without it the first of the file, becomes 00:00:00:00");
}

KIVCS2CaptionCounting retimedCounting(const RetimeArguments &arguments, const CaptionSource &source)
{
    const std::string &name = arguments.toRate.empty() ? arguments.toCounting : arguments.toRate;
    if (name.empty())
        return source.header().m_counting;
    const Counting &counting = source.counting();
    const bool countsAll = !counting.drop && counting.denominator == 1001 && counting.numerator >= 30000;
    return captionCounting(countingFor(name, countsAll ? std::optional{':'} : std::nullopt));
}

Retiming::Retiming(const CaptionSource &source, const RetimeArguments &arguments, bool keepGoing,
                   OnPacket onPacket)
    : m_source(source), m_arguments(arguments), m_keepGoing(keepGoing),
      m_isSameFrames(!arguments.toCounting.empty()), m_hasLast(!arguments.until.empty()),
      m_onPacket(std::move(onPacket))
{
    m_options.m_from = source.header().m_counting;
    m_options.m_to = retimedCounting(arguments, source);
    m_options.m_mode =
        m_isSameFrames ? KIVCS2CaptionRetimeMode_SameFrames : KIVCS2CaptionRetimeMode_SameMoment;
    if (m_hasLast)
        m_options.m_mode |= KIVCS2CaptionRetimeMode_HasLast;
    check(kivCS2CaptionCounting_getInfo(m_options.m_from, &m_from), "counting");
    check(kivCS2CaptionCounting_getInfo(m_options.m_to, &m_to), "counting");
    m_offset = offsetOf(arguments.offset);
    for (const std::string &text : {arguments.from, arguments.until})
        if (!text.empty())
            (void)source.frameOf(text); // report a mistyped value before anything is read
    const double change = double{1} * m_to.m_numerator * m_from.m_denominator /
                          (double{1} * m_to.m_denominator * m_from.m_numerator);
    if (m_isSameFrames && (change > 1.05 || change < 0.95))
        throw Failure(KIVCS2STATUS_UNSUPPORTED_ERR,
                      "--to-counting " + arguments.toCounting + ": too far from " +
                          std::string{source.counting().name} + "; --to-rate keeps the moments");
}

Retiming::~Retiming()
{
    (void)kivCS2CaptionRetime_free(&m_retime);
}

int64_t Retiming::due(uint64_t frame) const
{
    if (!m_isSameFrames)
        frame = frame * m_from.m_denominator * m_to.m_numerator /
                (uint64_t{m_from.m_numerator} * m_to.m_denominator);
    return static_cast<int64_t>(frame) + m_options.m_offset;
}

// Takes the day of --from and --until, and the frame that becomes frame 0, from the first packet.
void Retiming::begin(const KIVCS2CaptionPacket &first)
{
    const auto after = [&](const std::string &text, uint32_t frame)
    {
        const uint32_t found = m_source.frameOf(text);
        return found + m_from.m_perDay / 2 < frame ? found + m_from.m_perDay : found;
    };
    m_frame = first.m_frame;
    if (!m_arguments.from.empty())
        m_options.m_first = after(m_arguments.from, first.m_frame);
    if (m_hasLast)
        m_options.m_last = after(m_arguments.until, std::max(m_options.m_first, first.m_frame));
    if (m_hasLast && m_options.m_last < m_options.m_first)
        throw Failure(kExitUsage, "--until is before --from");
    if (m_arguments.startsAtZero)
        m_options.m_offset -=
            static_cast<int32_t>(due(m_arguments.from.empty() ? first.m_frame : m_options.m_first));
    m_options.m_offset += m_offset;
    check(kivCS2CaptionRetime_init(&m_retime, &m_options, takeResult, this), "retiming");
    m_isBegun = true;
}

bool Retiming::take(const KIVCS2CaptionPacket &packet)
{
    if (!m_isBegun)
        begin(packet);
    const bool isNextDay = packet.m_frame + m_from.m_perDay / 2 < m_frame;
    const uint64_t frame = m_day + (isNextDay ? m_from.m_perDay : 0) + packet.m_frame;
    const bool isTaken = frame >= m_options.m_first && (!m_hasLast || frame <= m_options.m_last);
    m_added = {};
    if (isTaken)
        expect(packet, frame);
    const KIVCS2Status status = kivCS2CaptionRetime_feed(&m_retime, &packet);
    if (m_thrown)
        std::rethrow_exception(m_thrown);
    if (KIVCS2_FAILED(status))
        return refuse(status, packet, frame);
    m_day += isNextDay ? m_from.m_perDay : 0;
    m_frame = packet.m_frame;
    return isTaken;
}

// Records the pairs that must come out, and the frame on which each is due.
void Retiming::expect(const KIVCS2CaptionPacket &packet, uint64_t frame)
{
    KIVCS2CaptionPairs pairs;
    (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // empty if there are none
    for (size_t field = 0; field < 2; ++field)
        for (const auto &pair : std::span{pairs.m_pairs[field], pairs.m_count[field]})
            if (!isEmpty(pair))
            {
                m_due[field].push_back({due(frame), {pair[0], pair[1]}});
                ++m_added[field];
            }
}

bool Retiming::refuse(KIVCS2Status status, const KIVCS2CaptionPacket &packet, uint64_t frame)
{
    for (size_t field = 0; field < 2; ++field)
        m_due[field].resize(m_due[field].size() - m_added[field]);
    std::string why = "cannot be retimed";
    if (status == KIVCS2STATUS_OVERFLOW_ERR)
        why = "more captions than " + std::string{m_to.m_name} + " carries: an hour of them waits";
    else if (status == KIVCS2STATUS_INVALID_TIMECODE_ERR)
        why = due(frame) < 0 ? "falls before frame 0 of the result; --from can leave it out"
                             : "is earlier than the packet before";
    if (!m_keepGoing || status == KIVCS2STATUS_MEMORY_ERR)
        throw Failure(status, Where{m_source.name(), packet.m_line},
                      m_source.timecode(packet.m_frame) + " " + why +
                          "; --keep-going leaves such packets out");
    return false;
}

KIVCS2Status Retiming::takeResult(const KIVCS2CaptionPacket *packet, void *context) noexcept
{
    auto &self = *static_cast<Retiming *>(context);
    try
    {
        self.follow(*packet);
        KIVCS2CaptionPacket placed = *packet;
        placed.m_frame %= self.m_to.m_perDay;
        self.m_onPacket(placed);
        return KIVCS2STATUS_OK;
    }
    catch (...)
    {
        self.m_thrown = std::current_exception(); // no exception crosses the library
        return KIVCS2STATUS_ERR;
    }
}

void Retiming::follow(const KIVCS2CaptionPacket &packet)
{
    KIVCS2CaptionPairs pairs;
    (void)kivCS2CaptionPacket_getPairs(&packet, &pairs);
    for (size_t field = 0; field < 2; ++field)
        for (const auto &pair : std::span{pairs.m_pairs[field], pairs.m_count[field]})
        {
            if (isEmpty(pair))
                continue;
            std::deque<Pair> &waiting = m_due[field];
            if (waiting.empty() || !std::ranges::equal(waiting.front().bytes, pair))
                throw wrong("another pair at " + timecode(m_options.m_to, packet.m_frame));
            const int64_t late = int64_t{packet.m_frame} - waiting.front().frame;
            m_latest[field] = std::max(m_latest[field], late);
            m_earliest[field] = std::min(m_earliest[field], late);
            waiting.pop_front();
        }
}

void Retiming::finish()
{
    const KIVCS2Status status =
        m_isBegun ? kivCS2CaptionRetime_finish(&m_retime, &m_report) : KIVCS2Status{KIVCS2STATUS_NO_DATA_ERR};
    if (m_thrown)
        std::rethrow_exception(m_thrown);
    if (status == KIVCS2STATUS_NO_DATA_ERR)
        throw Failure(status, Where{m_source.name()}, "has no captions in that part");
    check(status, "retiming");
    // The repeat of a code takes the next place, up to two frames of the source early.
    const int64_t repeat = 2 + int64_t{2} * m_to.m_numerator * m_from.m_denominator /
                                   (int64_t{m_to.m_denominator} * m_from.m_numerator);
    for (size_t field = 0; field < 2; ++field)
    {
        if (!m_due[field].empty())
            throw wrong(count(m_due[field].size(), "pair") + " lost");
        if (m_latest[field] > m_report.m_wait[field] || -m_earliest[field] > repeat)
            throw wrong("a pair is " + std::to_string(m_latest[field]) + " frames late or " +
                        std::to_string(-m_earliest[field]) + " early");
    }
    if (m_report.m_bytesIn != m_report.m_bytesOut)
        throw wrong("bytes of CEA-708 lost");
}

void Retiming::compare(const Tally &in, const Tally &out) const
{
    // A CEA-708 packet may begin on the last frame taken and end after it.
    const bool isPart = m_options.m_first != 0 || m_hasLast;
    for (const auto &[service, texts] : in.texts)
    {
        const auto other = out.texts.find(service);
        const bool isSame = other != out.texts.end() && other->second == texts;
        if (!isSame && !(isPart && service <= KIVCS2CaptionService_S63))
            throw wrong("other captions of " + serviceName(service));
    }
}

std::string Retiming::waitText() const
{
    constexpr std::array<const char *, 3> kNames = {"field 1", "field 2", "CEA-708"};
    const std::array<uint64_t, 3> amounts = {m_report.m_pairsIn[0], m_report.m_pairsIn[1],
                                             m_report.m_bytesIn};
    std::string text;
    for (size_t queue = 0; queue < kNames.size(); ++queue)
        if (amounts[queue] > 0)
            text += (text.empty() ? "" : ", ") + std::string{kNames[queue]} + " " +
                    count(m_report.m_wait[queue], "frame") +
                    print(" (%.2f s)", static_cast<double>(m_report.m_waitTime[queue]) / 1e9);
    return text;
}

void Retiming::tell(Facts &facts, Json &value) const
{
    const std::string first = timecode(m_options.m_to, m_report.m_firstFrame);
    const std::string last = timecode(m_options.m_to, m_report.m_lastFrame);
    facts.add("Retimed",
              "to " + std::string{rowOf(m_options.m_to).title} + ", " +
                  (m_isSameFrames ? "same frames" : "same moments") +
                  (m_options.m_offset != 0 ? ", offset " + std::to_string(m_options.m_offset) : ""));
    facts.add("Result", first + " until " + last + ", " + count(m_report.m_packetsOut, "frame"));
    facts.add("Longest wait", waitText());
    if (m_report.m_packetsRefused > 0)
        facts.add("No place", count(m_report.m_packetsRefused, "packet") + " (--keep-going)");
    if (m_report.m_packetsOther > 0)
        facts.add("Remade", count(m_report.m_packetsOther, "packet") + " without a CDP");
    Json frames = Json::object(), seconds = Json::object();
    for (size_t queue = 0; queue < kQueues.size(); ++queue)
    {
        frames[kQueues[queue]] = m_report.m_wait[queue];
        seconds[kQueues[queue]] = static_cast<double>(m_report.m_waitTime[queue]) / 1e9;
    }
    value["retimed"] = {{"counting", m_to.m_name},
                        {"sameFrames", m_isSameFrames},
                        {"offset", m_options.m_offset},
                        {"first", first},
                        {"last", last},
                        {"frames", m_report.m_packetsOut},
                        {"framesBehind", m_report.m_packetsBehind},
                        {"packetsLeftOut", m_report.m_packetsLeftOut},
                        {"packetsRefused", m_report.m_packetsRefused},
                        {"bytes708LeftOut", m_report.m_bytesLeftOut},
                        {"longestWaitFrames", frames},
                        {"longestWaitSeconds", seconds}};
}

} // namespace tool
