// kivcs2 caption play and monitor over a cable between two namespaces.
#include "CaptionReading.h"
#include "CommandRun.h"
#include "NetworkNamespace.h"
#include "Relay.h"

#include <KIVCoreServices2/KIVCS2FileStream.h>

#include <csignal>
#include <map>
#include <optional>
#include <poll.h>
#include <random>
#include <set>
#include <sstream>
#include <sys/syscall.h>

namespace
{
using namespace kiv::test;
using Pairs = std::map<uint32_t, std::string>; // the pairs of a frame in both fields, without empty ones
using Way = DatagramRelay::Way;

constexpr int kMostSeconds = 120;

sockaddr_in at(const char *address, uint16_t port)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    inet_pton(AF_INET, address, &place.sin_addr);
    return place;
}

Pairs pairsOf(const fs::path &path)
{
    KIVCS2CaptionReadOptions options{};
    options.m_order = path.extension() == ".scc" ? KIVCS2CaptionOrder_Frame : KIVCS2CaptionOrder_File;
    Reading reading{fileText(path), options};
    Pairs found;
    for (const KIVCS2CaptionPacket &packet : reading.all().packets)
    {
        KIVCS2CaptionPairs pairs;
        (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // empty if there are none
        for (size_t field = 0; field < 2; ++field)
            for (size_t pair = 0; pair < pairs.m_count[field]; ++pair)
                if (const uint8_t *const bytes = pairs.m_pairs[field][pair];
                    ((bytes[0] | bytes[1]) & 0x7F) != 0)
                    found[packet.m_frame] +=
                        std::to_string(field) + ":" + std::to_string(bytes[0] * 256 + bytes[1]) + " ";
    }
    return found;
}

// Returns an SCC file with one caption for each second.
std::string captions(int number)
{
    std::string text = "Scenarist_SCC V1.0\n\n";
    for (int second = 0; second < number; ++second)
        text += "01:00:" + std::string{second < 10 ? "0" : ""} + std::to_string(second) +
                ";02\t94ae 94ae 9420 9420 9470 9470 c8e5 ecec efae 942f 942f\n\n";
    return text;
}

class LiveCaptions : public Command
{
protected:
    struct Process
    {
        pid_t pid;
        int out; // its standard output
        std::string text = {};
    };

    // The alarm survives exec, so that no process outlives the test.
    Process launch(const NetworkNamespace &in, const Words &arguments, bool withErrors = false,
                   int input = 0) const
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const pid_t child = fork();
        if (child == 0)
        {
            in.enter();
            alarm(kMostSeconds);
            dup2(input, 0);
            dup2(ends[1], 1);
            if (withErrors)
                dup2(ends[1], 2);
            std::vector<char *> words{const_cast<char *>("kivcs2"), const_cast<char *>("--json"),
                                      const_cast<char *>("caption")};
            for (const std::string &word : arguments)
                words.push_back(const_cast<char *>(word.c_str()));
            words.push_back(nullptr);
            execvp(m_command, words.data());
            _exit(127);
        }
        close(ends[1]);
        return {child, ends[0]};
    }

    // Reads until the text comes; false if no bytes come for so many milliseconds.
    static bool readUntil(Process &process, const std::string &text, int milliseconds)
    {
        const size_t from = process.text.size();
        for (;;)
        {
            if (!text.empty() && process.text.find(text, from) != std::string::npos)
                return true;
            pollfd asked{process.out, POLLIN, 0};
            char piece[4096];
            const ssize_t size =
                poll(&asked, 1, milliseconds) == 1 ? read(process.out, piece, sizeof piece) : 0;
            if (size <= 0)
                return false;
            process.text.append(piece, static_cast<size_t>(size));
        }
    }

    // Waits for the end of the process without reading its output; false if it does not end.
    static bool ends(const Process &process)
    {
        const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, process.pid, 0));
        pollfd asked{descriptor, POLLIN, 0};
        const bool hasEnded = poll(&asked, 1, kMostSeconds * 1000) == 1;
        close(descriptor);
        return hasEnded;
    }

    static int end(Process &process)
    {
        if (process.out >= 0)
        {
            readUntil(process, "", kMostSeconds * 1000); // to its end
            close(process.out);
        }
        int status = 0;
        waitpid(process.pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    // Plays a file and interrupts the monitor after the last packet. Returns the last line of the monitor.
    Json play(const std::string &file, const std::string &from, const std::string &to, const Words &options)
    {
        Process monitor = launch(*m_far, {"monitor", from, "--to", path("out.mcc").string()});
        EXPECT_TRUE(readUntil(monitor, "listening", kMostSeconds * 1000));
        Words words{"play", file, to};
        words.insert(words.end(), options.begin(), options.end());
        Process player = launch(*m_near, words);
        EXPECT_EQ(end(player), 0);
        // A second after the last packet the monitor reports it. If it already has, all packets have come.
        (void)readUntil(monitor, "", 0);
        (void)readUntil(monitor, "noPackets", 5000);
        kill(monitor.pid, SIGINT);
        EXPECT_EQ(end(monitor), 0) << monitor.text;
        m_text = monitor.text;
        m_played = parseJson(player.text);
        monitor.text.pop_back();
        return parseJson(monitor.text.substr(monitor.text.rfind('\n') + 1));
    }

    // Called after the check that namespaces can be made.
    void join()
    {
        m_near.emplace();
        m_far.emplace();
        m_near->join("10.9.0.1", *m_far, "10.9.0.2");
    }

    std::optional<NetworkNamespace> m_near, m_far;
    std::string m_text; // the output of the monitor
    Json m_played;      // the output of the player
};

TEST_F(LiveCaptions, EveryPairComesOnItsFrame)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    join();
    const std::string group = "udp://239.1.1.1:20000";
    const Json total = play(KIV_EXAMPLE_SCC, group, group, {"--speed", "20", "--interface", "10.9.0.1"});
    const Pairs source = pairsOf(KIV_EXAMPLE_SCC);
    EXPECT_EQ(pairsOf(path("out.mcc")), source);
    EXPECT_EQ(total["packets"], m_played["frames"]);
    EXPECT_EQ(m_played["captionFrames"], source.size());
    EXPECT_EQ(m_played["stops"], 0);
    EXPECT_EQ(total["captions"], 7); // the last one too, which the interrupt ended
    EXPECT_EQ(total["timeSource"], "ancillary timecode");
    EXPECT_EQ(total["drop"], true);
    for (const char *const none : {"lost", "doubled", "late", "reordered", "strays", "restarts", "notRTP"})
        EXPECT_EQ(total[none], 0) << none;
    for (const auto &[alarm, count] : total["alarms"].items())
        EXPECT_EQ(alarm, "noPackets");

    // The file is played unchanged. With only the RTP clock, frames count from 0.
    fs::rename(path("out.mcc"), path("in.mcc"));
    const Json again = play(path("in.mcc").string(), group, group, {"--speed", "20", "--no-timecode"});
    EXPECT_EQ(again["timeSource"], "RTP clock");
    Pairs moved;
    for (const auto &[frame, pairs] : source)
        moved[frame - source.begin()->first] = pairs;
    EXPECT_EQ(pairsOf(path("out.mcc")), moved);
}

TEST_F(LiveCaptions, WhatIsLostIsCountedExactly)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    join();
    const Pairs source = pairsOf(KIV_EXAMPLE_SCC);
    const uint32_t first = source.begin()->first, count = source.rbegin()->first - first + 1;
    // One of a hundred for each way, neither at the start nor at the end, and not next to each other.
    std::mt19937 random{20};
    std::map<size_t, Way> ways;
    Pairs expected = source;
    uint64_t numbers[4] = {};
    for (size_t index = 8; index + 8 < count; index += 4)
    {
        const auto way = static_cast<Way>(std::min<unsigned long>(random() % 25, 4) % 4);
        if (way == Way::Pass)
            continue;
        ways[index] = way;
        ++numbers[static_cast<size_t>(way)];
        if (way == Way::Lose)
            expected.erase(first + static_cast<uint32_t>(index));
    }
    ASSERT_LT(expected.size(), source.size());

    std::optional<DatagramRelay> relay;
    m_far->run([&] { relay.emplace(at("10.9.0.2", 20001), at("10.9.0.2", 20000)); });
    relay->choose(
        [&ways](size_t index)
        {
            const auto way = ways.find(index);
            return way == ways.end() ? Way::Pass : way->second;
        });
    const Json total =
        play(KIV_EXAMPLE_SCC, "udp://10.9.0.2:20000", "udp://10.9.0.2:20001", {"--speed", "20"});
    EXPECT_EQ(pairsOf(path("out.mcc")), expected);
    EXPECT_EQ(total["lost"], numbers[static_cast<size_t>(Way::Lose)]);
    EXPECT_EQ(total["gaps"], total["lost"]);
    EXPECT_EQ(total["doubled"], numbers[static_cast<size_t>(Way::Double)]);
    EXPECT_EQ(total["reordered"], numbers[static_cast<size_t>(Way::Swap)]);
    EXPECT_EQ(total["alarms"]["lost"], total["lost"]);
    std::istringstream lines{m_text};
    for (std::string line; std::getline(lines, line);)
        if (const Json one = parseJson(line); one["kind"] == "alarm" && one["alarm"] == "lost")
        {
            EXPECT_THAT(one["text"], testing::StartsWith(one["count"].dump() + " packet")) << line;
        }
    for (const char *const none : {"late", "strays", "restarts", "notRTP"})
        EXPECT_EQ(total[none], 0) << none;
    for (const auto &[alarm, times] : total["alarms"].items())
        EXPECT_TRUE(alarm == "lost" || alarm == "noPackets") << alarm << " " << times;
}

// Over a minute, where numbers are dropped, and with pairs of frames that share a number.
TEST_F(LiveCaptions, EveryCountingKeepsItsFrames)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    join();
    for (const KIVCS2CaptionCounting counting : {KIVCS2CaptionCounting_23_98, KIVCS2CaptionCounting_29_97NDF,
                                                 KIVCS2CaptionCounting_50, KIVCS2CaptionCounting_59_94DF})
    {
        SCOPED_TRACE(kivCS2CaptionCounting_name(counting));
        const std::string in = path("in.mcc").string();
        KIVCS2FileStream stream;
        KIVCS2CaptionFile file;
        ASSERT_EQ(kivCS2FileStream_init(&stream, in.c_str(), "w"), KIVCS2STATUS_OK);
        ASSERT_EQ(kivCS2CaptionFile_initWriting(&file, &stream.m_stream, true, KIVCS2CaptionFileKind_MCC1,
                                                counting, nullptr),
                  KIVCS2STATUS_OK);
        ASSERT_EQ(kivCS2CaptionFile_writeHeader(&file, nullptr), KIVCS2STATUS_OK);
        uint32_t minute = 0;
        ASSERT_EQ(kivCS2CaptionCounting_frameFromText(counting, "09:59:00:00", &minute, nullptr),
                  KIVCS2STATUS_OK);
        for (uint32_t frame = minute - 40; frame < minute + 41; frame += frame % 3 + 1)
        {
            const KIVCS2CaptionPairs pairs{{1, 0}, {{{0xC8, 0xE9}}}, {}};
            ASSERT_EQ(kivCS2CaptionFile_writeCaptions(&file, frame, &pairs, nullptr), KIVCS2STATUS_OK);
        }
        ASSERT_EQ(kivCS2CaptionFile_finish(&file), KIVCS2STATUS_OK);
        ASSERT_EQ(kivCS2CaptionFile_free(&file), KIVCS2STATUS_OK);
        const Json total = play(in, "udp://10.9.0.2:20000", "udp://10.9.0.2:20000", {"--speed", "5"});
        EXPECT_EQ(total["rate"], kivCS2CaptionCounting_name(counting));
        EXPECT_EQ(total["packets"], m_played["frames"]);
        EXPECT_EQ(pairsOf(path("out.mcc")), pairsOf(in));
    }
}

// Each damaged packet is reported once, and its neighbours are not affected.
TEST_F(LiveCaptions, AlarmsNameWhatIsWrong)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    join();
    Process monitor = launch(*m_far, {"monitor", "udp://10.9.0.2:20000", "--silence", "0.2", "--to",
                                      path("out.mcc").string(), "--payload-type", "100"});
    ASSERT_TRUE(readUntil(monitor, "listening", kMostSeconds * 1000));
    int sender = -1;
    m_near->run([&sender] { sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
    const sockaddr_in to = at("10.9.0.2", 20000);
    const auto send = [&](const std::string &bytes)
    {
        EXPECT_EQ(
            sendto(sender, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to),
            static_cast<ssize_t>(bytes.size()));
    };
    KIVCS2CaptionRTP rtp{};
    rtp.m_sequence = UINT32_MAX - 1;
    rtp.m_payloadType = 100;
    const auto datagram = [&rtp](uint16_t sequence, KIVCS2CaptionCounting counting, uint8_t first)
    {
        const KIVCS2CaptionPairs pairs{{1, 0}, {{{first, 0xE9}}}, {}};
        KIVCS2CaptionPacket packet;
        EXPECT_EQ(kivCS2CaptionPacket_build(&packet, counting, sequence, &pairs, nullptr, nullptr, 0),
                  KIVCS2STATUS_OK);
        std::string bytes(1500, '\0');
        uint64_t size = bytes.size();
        EXPECT_EQ(kivCS2CaptionPacket_wrap(KIVCS2CaptionCarrier_RTP, &packet, 1, nullptr, &rtp,
                                           reinterpret_cast<uint8_t *>(bytes.data()), &size),
                  KIVCS2STATUS_OK);
        bytes.resize(size);
        ++rtp.m_sequence;
        rtp.m_timestamp += 3600;
        return bytes;
    };
    constexpr KIVCS2CaptionCounting k25 = KIVCS2CaptionCounting_25;
    send(datagram(7, k25, 0xC8));
    send(datagram(8, k25, 0x48)); // parity
    std::string damaged = datagram(9, k25, 0xC8);
    damaged[60] ^= 0x10; // checksums
    send(damaged);
    send(datagram(20, k25, 0xC8)); // 9 could not be read, so this is a break
    send(datagram(21, KIVCS2CaptionCounting_24, 0xC8));
    send("");
    send("not RTP");
    send(std::string("\x80\x64", 2) + std::string(9, '\0'));
    send(datagram(22, k25, 0xC8).substr(0, 50)); // cut
    rtp = {0, 0, 77, 96, 1, 0, 0, {}};
    send(datagram(0, k25, 0xC8)); // another payload type
    rtp = {0, 0, 77, 100, 1, 0, 0, {}};
    send(datagram(0, k25, 0xC8)); // another sender
    send(datagram(1, k25, 0xC8));
    for (const char *const kind : {"noPackets", "noCaption"})
        EXPECT_TRUE(monitor.text.find(kind) != std::string::npos ||
                    readUntil(monitor, kind, kMostSeconds * 1000));
    kill(monitor.pid, SIGTERM);
    EXPECT_EQ(end(monitor), 0);
    close(sender);
    monitor.text.pop_back();
    const Json total = parseJson(monitor.text.substr(monitor.text.rfind('\n') + 1));
    EXPECT_EQ(total["notRTP"], 3);
    EXPECT_EQ(total["otherTypes"], 1);
    EXPECT_EQ(total["restarts"], 1);
    EXPECT_EQ(total["lost"], 0);
    EXPECT_EQ(total["rate"], "25");
    Json alarms = total["alarms"];
    EXPECT_GE(alarms["noCaption"], 1);
    alarms.erase("noCaption");
    alarms.erase("noPackets");
    EXPECT_EQ(alarms.dump(), R"({"checksum":1,"malformed":4,"parity":2,"rate":1,"restart":1,"sequence":1})");
    EXPECT_EQ(pairsOf(path("out.mcc")).size(), 8u); // the damaged ones have whole triplets
}

// The file is whole, whatever happens to the lines: their reader has gone, does not read while an interrupt
// comes, or reads the file itself.
TEST_F(LiveCaptions, TheFileOutlivesItsReader)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    join();
    const std::string here = "udp://10.9.0.2:20000", file = path("out.mcc").string();
    const std::string in = write("in.scc", captions(60));
    const Pairs source = pairsOf(in);
    const auto begin = [&] { return launch(*m_near, {"play", in, here, "--speed", "20"}); };
    const auto play = [&]
    {
        Process player = begin();
        EXPECT_EQ(end(player), 0);
    };
    Process gone = launch(*m_far, {"monitor", here, "--to", file});
    ASSERT_TRUE(readUntil(gone, "listening", kMostSeconds * 1000));
    Process player = begin();
    // Before, the next line may be an alarm: nothing has come for a second.
    ASSERT_TRUE(readUntil(gone, "\"kind\":\"caption\"", kMostSeconds * 1000));
    close(gone.out); // the next line has no reader
    gone.out = -1;
    EXPECT_EQ(end(player), 0);
    ASSERT_TRUE(ends(gone));
    EXPECT_EQ(end(gone), 0);
    EXPECT_TRUE(fs::remove(file)); // with the captions until then

    Process full = launch(*m_far, {"monitor", here, "--to", file});
    ASSERT_TRUE(readUntil(full, "listening", kMostSeconds * 1000));
    ASSERT_EQ(fcntl(full.out, F_SETPIPE_SZ, 4096), 4096);
    play(); // more lines than fit
    kill(full.pid, SIGINT);
    EXPECT_TRUE(ends(full)) << kill(full.pid, SIGKILL);
    EXPECT_EQ(end(full), 0);
    EXPECT_EQ(pairsOf(file), source);

    Process data = launch(*m_far, {"monitor", here, "--to", "-"}, true);
    ASSERT_TRUE(readUntil(data, "listening", kMostSeconds * 1000));
    play();
    kill(data.pid, SIGINT);
    EXPECT_EQ(end(data), 0);
    const size_t at = data.text.find("File Format=MacCaption_MCC");
    ASSERT_NE(at, std::string::npos) << data.text;
    spill(file, data.text.substr(at, data.text.find("{\"kind\":\"total\"") - at));
    EXPECT_EQ(pairsOf(file), source);
}

// Two senders to the same group and port, each on its own interface.
TEST_F(LiveCaptions, AnInterfaceIsThatOneAlone)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    join();
    m_near->join("10.9.1.1", *m_far, "10.9.1.2", "pair1");
    const std::string group = "udp://239.1.1.1:20000";
    std::vector<Process> monitors, players;
    for (const char *const interface : {"10.9.0.2", "pair1"})
    {
        monitors.push_back(launch(*m_far, {"monitor", group, "--interface", interface}));
        ASSERT_TRUE(readUntil(monitors.back(), "listening", kMostSeconds * 1000));
    }
    for (const char *const interface : {"10.9.0.1", "10.9.1.1"})
        players.push_back(
            launch(*m_near, {"play", KIV_EXAMPLE_SCC, group, "--interface", interface, "--speed", "20"}));
    for (Process &player : players)
        EXPECT_EQ(end(player), 0);
    for (Process &monitor : monitors)
    {
        kill(monitor.pid, SIGINT);
        EXPECT_EQ(end(monitor), 0);
        monitor.text.pop_back();
        const Json total = parseJson(monitor.text.substr(monitor.text.rfind('\n') + 1));
        for (const char *const none : {"lost", "strays", "restarts"})
            EXPECT_EQ(total[none], 0) << none;
        EXPECT_EQ(total["captions"], 7);
    }
}

// A frame with more packets than a datagram holds, from a pipe that stays open; then a file in a loop.
TEST_F(LiveCaptions, FullFramesAndLoopsGoOn)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    join();
    const std::string here = "udp://10.9.0.2:20000", file = path("in.mcc").string();
    ASSERT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, file}).code, 0);
    std::string text = slurp(file);
    const size_t row = text.find("\n01:00:00");
    const std::string first = text.substr(row, text.find('\n', row + 1) - row);
    for (int more = 0; more < 300; ++more)
        text.insert(row, first);
    spill(file, text);
    const Pairs pairs = pairsOf(file);

    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    ASSERT_GE(fcntl(pipe[1], F_SETPIPE_SZ, static_cast<int>(text.size())), static_cast<int>(text.size()));
    ASSERT_EQ(::write(pipe[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    Process monitor = launch(*m_far, {"monitor", here, "--to", path("out.mcc").string()});
    ASSERT_TRUE(readUntil(monitor, "listening", kMostSeconds * 1000));
    Process player = launch(*m_near, {"play", "-", here, "--speed", "20"}, false, pipe[0]);
    ASSERT_TRUE(readUntil(monitor, "GOOD EVENING", kMostSeconds * 1000));
    ASSERT_TRUE(readUntil(monitor, "noPackets", kMostSeconds * 1000)); // it waits for its input
    kill(player.pid, SIGINT);
    EXPECT_TRUE(ends(player)) << kill(player.pid, SIGKILL);
    EXPECT_EQ(end(player), 0);
    close(pipe[0]);
    close(pipe[1]);
    const Json played = parseJson(player.text);
    EXPECT_GT(played["packets"], played["frames"]);

    const size_t before = monitor.text.size();
    Process loop = launch(*m_near, {"play", write("in.scc", captions(2)), here, "--speed", "5", "--loop"});
    for (int caption = 0; caption < 5; ++caption)
        ASSERT_TRUE(readUntil(monitor, "Hello.", kMostSeconds * 1000));
    kill(loop.pid, SIGINT);
    EXPECT_EQ(end(loop), 0);
    EXPECT_GE(parseJson(loop.text)["passes"], 2);
    kill(monitor.pid, SIGINT);
    EXPECT_EQ(end(monitor), 0);
    monitor.text.pop_back();
    const Json total = parseJson(monitor.text.substr(monitor.text.rfind('\n') + 1));
    EXPECT_EQ(total["lost"], 0);
    EXPECT_EQ(total["alarms"]["sequence"], 300); // for the repeated packets, but not for the loop
    EXPECT_EQ(monitor.text.find(R"("alarm":"sequence")", before), std::string::npos);
    const Pairs found = pairsOf(path("out.mcc"));
    EXPECT_EQ(found.begin()->first, pairs.begin()->first);
    EXPECT_THAT(found.begin()->second, testing::StartsWith(pairs.begin()->second));
}

} // namespace
