// Caption words and packets through the shared library. The expected bytes are written by hand from SMPTE
// 291M, 334 and 436M and from CEA-608 and CEA-708.
#include "CaptionFile.h"
#include "HostStream.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>
#include <KIVCoreServices2/KIVCS2String.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <ctime>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

namespace
{
// Short names of the operations.
constexpr auto &extract291M = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream;
constexpr auto &extract436M = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE436MStream;
constexpr auto &extract608 = kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet;
constexpr auto &pack608Format = kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708PacketFormat;
constexpr auto &pack608 = kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet;
constexpr auto &pack708 = kivCS2ClosedCaptions_pack708CaptionsIntoSMPTE334CDP708Packet;
constexpr auto &stamp = kivCS2ClosedCaptions_setSMPTE334CDP708PacketSequenceNumber;
constexpr auto &convertTo708 = kivCS2ClosedCaptions_convertSMPTE334CDP708PacketToCEA708DPacket;
constexpr auto &read8 = kivCS2ClosedCaptions_read8BitWord;
constexpr auto &read10 = kivCS2ClosedCaptions_read10BitParityWord;
constexpr auto &validate8 = kivCS2ClosedCaptions_validate8BitWord;
constexpr auto &validate10 = kivCS2ClosedCaptions_validate10BitParityWord;
constexpr auto &describe = kivCS2ClosedCaptions_decodeCEA608CCPair;

constexpr KIVCS2Status kOK = KIVCS2STATUS_OK, kDataError = KIVCS2STATUS_DATA_ERR,
                       kSizeError = KIVCS2STATUS_BUFFER_SIZE_ERR;

using Bytes = std::vector<uint8_t>;
using kiv::test::HostStream;
using testing::Each;
using testing::ElementsAre;

Bytes hex(const std::string &text)
{
    Bytes bytes;
    std::istringstream words{text};
    for (unsigned value; words >> std::hex >> value;)
        bytes.push_back(static_cast<uint8_t>(value));
    return bytes;
}

std::string repeated(const std::string &text, int count)
{
    std::string all;
    for (int index = 0; index < count; ++index)
        all += text;
    return all;
}

// Field 1 "resume caption loading", sequence number 0x1234.
const Bytes kPlainPacket = hex("96 69 52 4F 67 12 34 72 F4 FC 94 20 FD 80 80 " + repeated("FA 00 00 ", 18) +
                               "73 91 E1 00 00 00 C1 3F FF 74 12 34 6E");
// Both fields "erase displayed memory", sequence number 0xFFFE, SDI form.
const Bytes kSDIPacket = hex("96 69 59 4F 67 FF FE 72 F4 FC 94 2C FD 15 2C " + repeated("FA 00 00 ", 18) +
                             "73 F2 E0 20 20 20 7E 3F FF E1 65 6E 67 C1 3F FF 74 FF FE 15");

uint16_t pair(uint8_t first, uint8_t second)
{
    const uint8_t bytes[] = {first, second};
    uint16_t value;
    memcpy(&value, bytes, sizeof value);
    return value;
}

// A memory stream over a copy of the bytes, in memory of exactly their size.
struct MemoryView
{
    Bytes m_bytes;
    uint8_t m_nothing = 0; // the address if there are no bytes
    KIVCS2MemoryStream m_memory;

    explicit MemoryView(Bytes bytes) : m_bytes{std::move(bytes)}
    {
        m_bytes.shrink_to_fit();
        uint8_t *start = m_bytes.empty() ? &m_nothing : m_bytes.data();
        EXPECT_EQ(kivCS2MemoryStream_initWithBytes(&m_memory, start, m_bytes.size()), kOK);
    }
    KIVCS2Stream *stream()
    {
        return &m_memory.m_stream;
    }
};

TEST(CaptionWords, OddParityOfEveryByte)
{
    for (unsigned byte = 0; byte < 256; ++byte)
    {
        const uint8_t odd = kivCS2ClosedCaptions_oddParityByte(static_cast<uint8_t>(byte));
        EXPECT_EQ(odd & 0x7F, byte & 0x7F);
        EXPECT_EQ(std::popcount(odd) % 2, 1) << byte;
    }
}

TEST(CaptionDescription, OfEveryPairIsTheText)
{
    constexpr char kUntouched = '\x55';
    size_t longest = 0;
    std::string all;
    for (unsigned value = 0; value <= UINT16_MAX; ++value)
    {
        char text[KIVCS2_CEA608_DESCRIPTION_SIZE + 1];
        memset(text, kUntouched, sizeof text);
        const auto byte1 = static_cast<uint8_t>(value >> 8);
        const auto byte2 = static_cast<uint8_t>(value);
        const KIVCS2Status status = describe(byte1, byte2, text);
        const bool empty = (value & 0x7F7F) == 0;
        ASSERT_EQ(status, empty ? kDataError : kOK) << value;
        ASSERT_EQ(text[empty ? 0 : KIVCS2_CEA608_DESCRIPTION_SIZE], kUntouched) << value;
        if (empty)
            continue;
        longest = std::max(longest, strlen(text));
        all.append(text).push_back('\n');
    }
    EXPECT_EQ(longest + 1, KIVCS2_CEA608_DESCRIPTION_SIZE);
    // Hosts store these texts, so a checksum covers every word. It was computed without the library.
    uint32_t crc = 0;
    EXPECT_EQ(all.size(), 1235648u);
    ASSERT_EQ(kivCS2Utils_calcCRC32(reinterpret_cast<const uint8_t *>(all.data()),
                                    static_cast<uint32_t>(all.size()), &crc),
              kOK);
    EXPECT_EQ(crc, 0x877DD1FAu);
}

TEST(CaptionWords, AreCountedAndCompared)
{
    MemoryView bytes{hex("61 01 FD 61 02 5A")};
    ASSERT_EQ(kivCS2Stream_beginReadBits(bytes.stream()), kOK);
    uint8_t value = 0;
    uint8_t parity = 0;
    uint32_t checksum = 0x1000;
    EXPECT_EQ(read8(bytes.stream(), &value, &checksum), kOK);
    EXPECT_TRUE(value == 0x61 && checksum == 0x1061);
    EXPECT_EQ(validate8(bytes.stream(), 0x02, &checksum), kDataError);
    EXPECT_EQ(checksum, 0x1062u) << "counted before it is compared";
    EXPECT_EQ(read10(bytes.stream(), true, &value, &parity, &checksum), kOK);
    EXPECT_TRUE(value == 0x61 && parity == 1 && checksum == 0x11C3);
    ASSERT_EQ(kivCS2Stream_skipBits(bytes.stream(), 6), kOK);
    EXPECT_EQ(validate10(bytes.stream(), false, 0x5A, 2, nullptr), kOK);

    for (const auto &[expected, expectedParity] : {std::array<uint8_t, 2>{0x5A, 1}, {0x5B, 2}})
    {
        MemoryView word{hex("02 5A")};
        ASSERT_EQ(kivCS2Stream_beginReadBits(word.stream()), kOK);
        EXPECT_EQ(validate10(word.stream(), true, expected, expectedParity, nullptr), kDataError);
    }
}

TEST(CaptionWords, FailingReadCountsNothing)
{
    HostStream host{hex("01 61 01")};
    host.m_failsAt = 1; // the read after the first byte
    ASSERT_EQ(kivCS2Stream_beginReadBits(&host.m_stream), kOK);
    uint8_t value = 0;
    uint8_t parity = 0;
    uint32_t checksum = 7;
    EXPECT_EQ(read10(&host.m_stream, true, &value, &parity, &checksum), KIVCS2STATUS_READ_ERR);
    EXPECT_EQ(checksum, 7u);
}

// One packet of three user data words, 96 69 03, in the four forms.
const Bytes kAnc[] = {
    hex("FF A0 09 61 01 03 96 69 03 67"),
    hex("61 01 03 96 69 03 67"),
    hex("00 00 03 FF 03 FF 01 61 01 01 02 03 02 96 02 69 02 03 01 67"),
    hex("01 61 01 01 02 03 02 96 02 69 02 03 01 67"),
};

struct Extraction
{
    KIVCS2Status status;
    uint32_t size;
    Bytes buffer;
    int64_t position;
};

// The fuzz target compares a memory stream, which is read directly, with the bit reader.
Extraction extract(const Bytes &bytes, KIVCS2CaptionANCFormat format, bool withAtom, uint32_t room)
{
    MemoryView view{bytes};
    Extraction got{0, room, Bytes(room), 0};
    uint8_t none = 0; // the address if there is no room
    got.status =
        extract291M(view.stream(), format, withAtom, room == 0 ? &none : got.buffer.data(), &got.size);
    got.position = view.m_memory.m_position;
    return got;
}

TEST(Caption291M, PacketOfEveryForm)
{
    for (KIVCS2CaptionANCFormat format = 0; format < 4; ++format)
    {
        SCOPED_TRACE(format);
        Bytes bytes = kAnc[format];
        bytes.push_back(0xEE); // a byte follows, so the 8-bit checksum is compared
        const Extraction plain = extract(bytes, format, false, 3);
        EXPECT_EQ(plain.status, kOK);
        EXPECT_EQ(plain.buffer, hex("96 69 03"));
        EXPECT_EQ(plain.position, static_cast<int64_t>(bytes.size())) << "one byte fetched ahead";

        const Extraction atom = extract(bytes, format, true, 11);
        EXPECT_EQ(atom.status, kOK);
        EXPECT_EQ(atom.buffer, hex("00 00 00 0B 63 63 64 70 96 69 03"));
        EXPECT_EQ(extract(bytes, format, true, 10).status, kSizeError);
    }
    const Extraction unknown = extract(kAnc[1], 4, false, 3);
    EXPECT_EQ(unknown.status, kOK);
    EXPECT_EQ(unknown.position, 0);
    EXPECT_THAT(unknown.buffer, Each(0));
}

TEST(Caption291M, EveryChangedByteIsFound)
{
    for (KIVCS2CaptionANCFormat format = 0; format < 4; ++format)
        for (size_t at = 0; at < kAnc[format].size(); ++at)
        {
            SCOPED_TRACE(testing::Message() << "format " << format << ", byte " << at);
            Bytes bytes = kAnc[format];
            bytes.resize(bytes.size() + 2);
            bytes[at] ^= 0x01; // in the high byte of a 10-bit word this is bit 8, the parity
            EXPECT_EQ(extract(bytes, format, false, 255).status, kDataError);
        }

    Bytes unusedBits = kAnc[3];
    for (size_t at = 0; at < unusedBits.size(); at += 2)
        unusedBits[at] |= 0xFC;
    EXPECT_EQ(extract(unusedBits, 3, false, 3).status, kOK);
    // Nine right bits, and a tenth that does not invert the ninth.
    EXPECT_EQ(extract(hex("01 61 01 01 02 03 02 96 02 69 02 03 03 67"), 3, false, 3).status, kDataError);
}

TEST(Caption291M, EndsOfTheStreamAreReadLeniently)
{
    // An 8-bit checksum at the end of the stream is not compared.
    EXPECT_EQ(extract(hex("61 01 03 96 69 03 00"), 1, false, 3).status, kOK);
    EXPECT_EQ(extract(hex("61 01 03 96 69 03 00 00"), 1, false, 3).status, kDataError);
    HostStream unable{hex("61 01 03 96 69 03 00 00")}; // cannot report its end
    unable.m_stream.m_isEndOfStream = [](KIVCS2Stream *, uint32_t *) { return KIVCS2STATUS_UNSUPPORTED_ERR; };
    uint8_t buffer[3];
    uint32_t size = sizeof buffer;
    EXPECT_EQ(extract291M(&unable.m_stream, 1, false, buffer, &size), kOK);

    const Extraction early = extract(hex("61 01 05 96 69"), 1, false, 5); // the last byte is repeated
    EXPECT_EQ(early.status, kOK);
    EXPECT_EQ(early.buffer, hex("96 69 69 69 69"));
}

TEST(Caption291M, CountWithAtomWrapsAndIsRefused)
{
    for (unsigned count : {0u, 247u, 248u, 255u})
    {
        Bytes bytes{0x61, 0x01, static_cast<uint8_t>(count)};
        bytes.resize(3 + count + 2);
        bytes[3 + count] = static_cast<uint8_t>(0x62 + count);
        const Extraction got = extract(bytes, 1, true, 300);
        const bool wraps = count > 247;
        EXPECT_EQ(got.status, wraps ? kSizeError : kOK) << count;
        EXPECT_EQ(got.size, (count + 8) % 256);
        EXPECT_TRUE(!wraps || got.buffer == Bytes(300)) << "nothing written";
        EXPECT_EQ(extract(bytes, 1, false, count).status, kOK) << "fits exactly without an atom";
    }
}

TEST(Caption291M, FailingStreamGivesItsStatus)
{
    for (KIVCS2CaptionANCFormat format = 0; format < 4; ++format)
        for (size_t failsAt = 0; failsAt < kAnc[format].size(); ++failsAt)
        {
            HostStream host{kAnc[format]};
            host.m_failsAt = failsAt;
            uint8_t buffer[3];
            uint32_t size = sizeof buffer;
            EXPECT_EQ(extract291M(&host.m_stream, format, false, buffer, &size), KIVCS2STATUS_READ_ERR)
                << format << " at " << failsAt;
        }
}

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// A line record of SMPTE 436M with its payload in elements of one byte.
Bytes wrapped(uint16_t line, uint8_t coding, const Bytes &payload)
{
    Bytes header = hex("00 00 02 00 00 00 00 00 00 00 00 00 00 01");
    header[0] = static_cast<uint8_t>(line >> 8);
    header[1] = static_cast<uint8_t>(line);
    header[3] = coding;
    header[9] = static_cast<uint8_t>(payload.size());
    return joined({header, payload});
}

struct Unwrapped
{
    KIVCS2Status status;
    Bytes bytes;
    int64_t position;
};

Unwrapped unwrap(const Bytes &bytes, uint32_t room = 64, bool withAtom = false)
{
    MemoryView view{bytes};
    view.m_memory.m_stream.m_setPosition =
        [](KIVCS2Stream *stream, int64_t offset, KIVCS2StreamPosition mode, int64_t *position)
    {
        EXPECT_GE(offset, 0) << "moves backwards";
        return kivCS2MemoryStream_setPosition(stream, offset, mode, position);
    };
    Bytes buffer(room);
    uint32_t size = room;
    const KIVCS2Status status = extract436M(view.stream(), withAtom, buffer.data(), &size);
    EXPECT_TRUE(KIVCS2_SUCCEEDED(status) || size == room) << "changed by a failure";
    buffer.resize(KIVCS2_FAILED(status) ? 0 : size);
    return {status, buffer, view.m_memory.m_position};
}

TEST(Caption436M, FirstLineThatHoldsACaption)
{
    const Bytes none = hex("61 02 00 63"); // another kind of packet
    for (uint16_t line : std::array<uint16_t, 3>{4, 9, 21})
        for (uint8_t coding = 4; coding <= 9; ++coding)
        {
            const Unwrapped got = unwrap(joined({hex("00 03"), wrapped(10, 4, kAnc[1]), wrapped(9, 4, none),
                                                 wrapped(line, coding, kAnc[coding <= 6 ? 1 : 3])}));
            EXPECT_EQ(got.status, kOK) << line << ' ' << int{coding};
            EXPECT_EQ(got.bytes, hex("96 69 03"));
            EXPECT_EQ(got.position, 2 + 14 + 7 + 14 + 4 + 14) << "in front of the payload";
        }
    const Unwrapped atom = unwrap(joined({hex("00 01"), wrapped(9, 4, kAnc[1])}), 64, true);
    EXPECT_EQ(atom.bytes, hex("00 00 00 0B 63 63 64 70 96 69 03"));

    // A line that fails leaves the whole room to the next.
    const Bytes badChecksum = hex("61 01 01 96 00 00");
    EXPECT_EQ(unwrap(joined({hex("00 02"), wrapped(9, 4, badChecksum), wrapped(21, 4, kAnc[1])}), 3).bytes,
              hex("96 69 03"));
}

TEST(Caption436M, RefusesWhatIsCutOrTooLarge)
{
    const Bytes good = wrapped(9, 4, kAnc[1]);
    const Bytes cutPayload = Bytes(good.begin(), good.end() - 1);
    const std::tuple<const char *, Bytes, KIVCS2Status> rows[] = {
        {"no lines", hex("00 00"), kDataError},
        {"cut line count", hex("00"), KIVCS2STATUS_FORMAT_ERR},
        {"no line header", hex("00 01"), KIVCS2STATUS_FORMAT_ERR},
        {"cut line header", joined({hex("00 01"), Bytes(good.begin(), good.begin() + 13)}),
         KIVCS2STATUS_FORMAT_ERR},
        {"one line missing", joined({hex("00 02"), wrapped(8, 4, kAnc[1])}), KIVCS2STATUS_FORMAT_ERR},
        {"other lines", joined({hex("00 02"), wrapped(8, 4, kAnc[1]), wrapped(265, 4, kAnc[1])}), kDataError},
        {"other codings", joined({hex("00 02"), wrapped(9, 3, kAnc[1]), wrapped(9, 10, kAnc[3])}),
         kDataError},
        {"payload beyond the block", joined({hex("00 01"), cutPayload}), KIVCS2STATUS_PARAM_ERR},
        {"2^16 x 2^16, 0 in 32 bits",
         joined({hex("00 01 00 09 02 04 00 00 00 01 00 00 00 01 00 00"), kAnc[1]}), KIVCS2STATUS_PARAM_ERR},
        {"2^64 and more with the position",
         joined({hex("00 01 00 09 02 04 00 00 FF FF FF FF FF FF FF FF"), kAnc[1]}), KIVCS2STATUS_PARAM_ERR},
        {"2^31 x 2^32 - 2^31, of another line",
         joined({hex("00 01 00 0A 02 04 00 00 80 00 00 00 FF FF FF FF"), kAnc[1]}), KIVCS2STATUS_PARAM_ERR},
    };
    for (const auto &[what, bytes, status] : rows)
        EXPECT_EQ(unwrap(bytes).status, status) << what;
}

TEST(Caption436M, StreamsThatCannotBeMovedCannotBeSearched)
{
    HostStream host{joined({hex("00 01"), wrapped(9, 4, kAnc[1])})};
    uint8_t buffer[64];
    uint32_t size = sizeof buffer;
    EXPECT_EQ(extract436M(&host.m_stream, false, buffer, &size), KIVCS2STATUS_UNSUPPORTED_ERR);
}

TEST(CaptionAtom, IsWrittenAndPassed)
{
    uint8_t buffer[9] = {};
    uint8_t *at = buffer;
    EXPECT_EQ(kivCS2ClosedCaptions_writeQuickTimeAtom(&at, 7), kSizeError);
    EXPECT_EQ(at, buffer);
    EXPECT_EQ(kivCS2ClosedCaptions_writeQuickTimeAtom(&at, 0x0102035A), kOK);
    EXPECT_EQ(at, buffer + 8);
    EXPECT_THAT(buffer, ElementsAre(0x01, 0x02, 0x03, 0x5A, 'c', 'c', 'd', 'p', 0));
}

struct Pairs
{
    KIVCS2Status status;
    uint16_t fields[2];
};

Pairs pairsOf(const Bytes &packet, bool withAtom = false)
{
    const Bytes exact{packet}; // without a spare byte at the end
    Pairs got{};
    const uint32_t room = sizeof got.fields;
    got.status = extract608(exact.data(), static_cast<uint32_t>(exact.size()), withAtom, got.fields, &room);
    return got;
}

// A packet of these sections with its header and a checksum byte, which is not compared.
Bytes packetOf(const std::string &sections)
{
    Bytes packet = hex("96 69 00 4F 67 00 00 " + sections + " 00");
    packet[2] = static_cast<uint8_t>(packet.size());
    return packet;
}

TEST(CaptionPackets, PairsOfBothFields)
{
    const Pairs plain = pairsOf(kPlainPacket);
    EXPECT_EQ(plain.status, kOK);
    EXPECT_THAT(plain.fields, ElementsAre(pair(0x94, 0x20), pair(0x80, 0x80)));
    const Pairs sdi = pairsOf(joined({hex("00 00 00 61 63 63 64 70"), kSDIPacket}), true);
    EXPECT_EQ(sdi.status, kOK);
    EXPECT_THAT(sdi.fields, ElementsAre(pair(0x94, 0x2C), pair(0x15, 0x2C)));

    EXPECT_EQ(pairsOf(hex("00 00 00 08 63 63 64"), true).status, kSizeError);
    uint16_t fields[2] = {1, 2};
    const uint32_t room = 3;
    EXPECT_EQ(extract608(kPlainPacket.data(), 82, false, fields, &room), kSizeError);
    EXPECT_THAT(fields, ElementsAre(1, 2));
}

TEST(CaptionPackets, BuiltFromPairs)
{
    const uint16_t fields[] = {pair(0x94, 0x20), pair(0x15, 0x2C)};
    Bytes packet(KIVCS2_CDP_SIZE);
    uint32_t size = KIVCS2_CDP_SIZE;
    EXPECT_EQ(pack608(fields, 2, packet.data(), &size, 0x1234), kOK);
    EXPECT_EQ(size, KIVCS2_CDP_SIZE);
    EXPECT_EQ(packet, kPlainPacket);

    const uint16_t both[] = {pair(0x94, 0x2C), pair(0x15, 0x2C)};
    packet.assign(KIVCS2_CDP_SDI_SIZE, 0);
    size = 1000;
    EXPECT_EQ(pack608Format(both, 4, packet.data(), &size, 0xFFFE, true), kOK);
    EXPECT_EQ(size, KIVCS2_CDP_SDI_SIZE);
    EXPECT_EQ(packet, kSDIPacket);

    const std::tuple<uint32_t, uint32_t, bool> refused[] = {{0, 89, false}, {1, 89, false}, {3, 89, false},
                                                            {6, 89, false}, {2, 81, false}, {2, 88, true}};
    for (const auto &[pairBytes, room, sdi] : refused)
    {
        Bytes untouched(89, 0x55);
        size = room;
        EXPECT_EQ(pack608Format(fields, pairBytes, untouched.data(), &size, 0, sdi), kSizeError);
        EXPECT_THAT(untouched, Each(0x55));
        EXPECT_EQ(size, room);
    }
}

TEST(CaptionPackets, BuiltFrom708Data)
{
    const std::string triplets = "FC 94 20 " + repeated("FE 11 22 ", 19);
    const Bytes data = hex(triplets);
    Bytes packet(KIVCS2_CDP_ROOM_FOR_708_DATA(60));
    uint32_t size = static_cast<uint32_t>(packet.size());
    EXPECT_EQ(pack708(data.data(), 60, packet.data(), &size, 7), kOK);
    EXPECT_EQ(size, 90u);
    EXPECT_EQ(packet, hex("00 00 00 5A 63 63 64 70 96 69 52 4F 67 00 07 72 F4 " + triplets +
                          "73 91 E1 00 00 00 C1 3F FF 74 00 07 DA"));
    size = 81;
    EXPECT_EQ(pack708(data.data(), 60, packet.data(), &size, 7), kSizeError);
}

TEST(CaptionPackets, SizesOf708DataAreTakenModulo256)
{
    for (const uint32_t dataSize : {0u, 225u, 226u, 243u, 244u, 255u, 300u})
    {
        const Bytes data(dataSize + 1, 0x11);
        Bytes packet(std::max(82u, KIVCS2_CDP_ROOM_FOR_708_DATA(dataSize)));
        uint32_t size = 82; // all that is compared
        const uint8_t total = static_cast<uint8_t>(30 + dataSize);
        const bool stamped = total >= 18;
        EXPECT_EQ(pack708(data.data(), dataSize, packet.data(), &size, 0xABCD), stamped ? kOK : kSizeError)
            << dataSize;
        EXPECT_EQ(size, stamped ? total : 82u);
        EXPECT_EQ(packet[(17 + dataSize) % 256], 0x73);
        if (stamped)
        {
            EXPECT_EQ(std::accumulate(packet.begin() + 8, packet.begin() + total, 0u) % 256, 0u);
        }
    }
}

TEST(CaptionPackets, Stamped)
{
    for (const bool withAtom : {false, true})
        for (const uint32_t length : {10u, 11u, 17u, 18u, 82u, 89u, 2048u, 5000u})
        {
            const uint32_t atom = withAtom ? 8 : 0;
            Bytes packet(atom + length, 0xFF);
            EXPECT_EQ(stamp(withAtom, packet.data(), atom + length, 0x0102), kOK);
            EXPECT_TRUE(packet[atom + 5] == 1 && packet[atom + 6] == 2);
            EXPECT_TRUE(packet[packet.size() - 3] == 1 && packet[packet.size() - 2] == 2);
            EXPECT_EQ(std::accumulate(packet.begin() + atom, packet.end(), 0u) % 256, 0u) << length;
            EXPECT_THAT(Bytes(packet.begin(), packet.begin() + atom + 5), Each(0xFF));
            EXPECT_EQ(stamp(withAtom, packet.data(), atom + 9, 1), kSizeError);
        }
}

TEST(CaptionPackets, ConvertedToACaptionDataBlock)
{
    const Bytes packet = packetOf("71 C1 02 03 04 72 E2 FC 94 20 F8 03 04 74 00 00");
    const auto convert = [&](const Bytes &from, uint8_t *block, uint32_t &size)
    { return convertTo708(from.data(), static_cast<uint32_t>(from.size()), false, block, &size); };
    uint32_t size = 0;
    EXPECT_EQ(convert(packet, nullptr, size), kOK);
    EXPECT_EQ(size, 8u);
    Bytes block(8);
    size = 7;
    EXPECT_EQ(convert(packet, block.data(), size), kSizeError);
    size = 100;
    EXPECT_EQ(convert(packet, block.data(), size), kOK);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(block, hex("C2 FF FC 94 20 F8 03 04"));

    // Asked for the size, it reads no further than `cc_count`; a conversion walks to the end.
    const Bytes unknownBehind = packetOf("72 E0 75");
    EXPECT_EQ(convert(unknownBehind, nullptr, size), kOK);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(convert(unknownBehind, block.data(), size), kDataError);
    // Of a cut section the whole triplets are returned.
    size = 100;
    std::fill(block.begin(), block.end(), uint8_t{0x55});
    EXPECT_EQ(convert(packetOf("72 E2 FC 94 20 F8 03"), block.data(), size), kSizeError);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(block, hex("C2 FF FC 94 20 55 55 55"));
    // No caption data: a success that leaves the size.
    size = 77;
    EXPECT_EQ(convert(packetOf("74 00 00"), block.data(), size), kOK);
    EXPECT_EQ(size, 77u);
}

// A line, or a word for the status if there is none.
std::string nextLine(KIVCS2Stream *stream, uint32_t room)
{
    std::vector<char> buffer(room + 1, 'x');
    uint32_t size = room;
    const KIVCS2Status status = kivCS2ClosedCaptions_readLine(stream, buffer.data(), &size);
    EXPECT_EQ(buffer[room], 'x') << "written past the room";
    if (status == KIVCS2STATUS_NO_DATA_ERR || status == KIVCS2STATUS_NOT_FOUND_ERR)
    {
        EXPECT_EQ(size, room);
        return status == KIVCS2STATUS_NO_DATA_ERR ? "<end>" : "<long>";
    }
    EXPECT_EQ(status, kOK);
    EXPECT_EQ(strlen(buffer.data()), size);
    return buffer.data();
}

// The tests of the streams and the fuzz target compare the kinds of streams with each other.
TEST(CaptionLines, AreReadWithoutCommentsAndEmptyLines)
{
    const std::tuple<const char *, uint32_t, std::vector<std::string>> rows[] = {
        {"", 8, {"<end>", "<end>"}},
        {"a\nbc\r\nd", 8, {"a", "bc", "d", "<end>"}},
        {"\n\r\r\n\n", 8, {"<end>"}},
        {"/\n//x\n/ /\n//\n/", 8, {"/", "/ /", "/", "<end>"}},
        {"a\n//", 8, {"a", "<end>"}},
        {"1234567\n", 8, {"1234567", "<end>"}},
        {"1234567", 8, {"1234567", "<end>"}},
        {"12345678\n9\n", 8, {"<long>", "9", "<end>"}}, // its line feed remains: an empty line
        {"123456789\n", 8, {"<long>", "9", "<end>"}},
        {"12345678", 8, {"<long>", "<end>"}},
        {"//345678// 9\nx\n", 8, {"<long>", "x", "<end>"}}, // a long comment is a long line
        {"a\n", 1, {"<long>", "<end>"}},
        {"\n\na", 1, {"<long>", "<end>"}},
        {"a\n", 0, {"<long>", "<long>"}},
    };
    for (const auto &[text, room, lines] : rows)
    {
        SCOPED_TRACE(text);
        MemoryView memory{Bytes(text, text + strlen(text))};
        for (const std::string &line : lines)
            EXPECT_EQ(nextLine(memory.stream(), room), line);
    }
}

TEST(CaptionLines, FailingReadEndsTheInput)
{
    HostStream host{hex("61 62 63 0A")};
    host.m_failsAt = 2;
    EXPECT_EQ(nextLine(&host.m_stream, 8), "ab");
    EXPECT_EQ(nextLine(&host.m_stream, 8), "<end>");

    HostStream failedPipe{{}}; // a pipe reports a failed read as a success with a count of all ones
    failedPipe.m_stream.m_readBytes = [](KIVCS2Stream *, void *, uint64_t, uint64_t *count)
    {
        *count = UINT64_MAX;
        return kOK;
    };
    EXPECT_EQ(nextLine(&failedPipe.m_stream, 8), "<end>");
}

TEST(CaptionDate, IsTheCurrentTimeInUSEnglish)
{
    const auto today = []
    {
        const time_t now = time(nullptr);
        tm parts;
        char text[64];
        strftime(text, sizeof text, "%A, %Y-%m-%d", localtime_r(&now, &parts)); // C locale: English
        return std::string{text};
    };
    CFStringRef format = CFStringCreateWithCString(nullptr, "EEEE, yyyy-MM-dd", kCFStringEncodingASCII);
    const std::string before = today();
    char *text = nullptr;
    ASSERT_EQ(kivCS2ClosedCaptions_createDateStringWithFormat(format, &text), kOK);
    EXPECT_TRUE(text == before || text == today()) << text;
    EXPECT_EQ(kivCS2String_freeCString(text), kOK);
    CFRelease(format);

    CFStringRef empty = CFStringCreateWithCString(nullptr, "", kCFStringEncodingASCII);
    EXPECT_EQ(kivCS2ClosedCaptions_createDateStringWithFormat(empty, &text), KIVCS2STATUS_CAPTION_ERR);
    EXPECT_EQ(text, nullptr);
    CFRelease(empty);
}

TEST(CaptionArguments, AreChecked)
{
    MemoryView view{hex("00 00")};
    KIVCS2Stream *stream = view.stream();
    uint8_t byte = 0;
    uint8_t bytes[128] = {};
    uint8_t *nowhere = nullptr;
    uint16_t pairs[2] = {};
    uint32_t size = sizeof bytes;
    char text[128] = {};
    char *result = nullptr;
    CFStringRef format = CFStringCreateWithCString(nullptr, "y", kCFStringEncodingASCII);

#define ROW(name, text, ...) KIV_REFUSED(kivCS2ClosedCaptions_##name, text, __VA_ARGS__)
    kiv::test::expectAllRefused({
        ROW(decodeCEA608CCPair, "buffer", 0, 0, nullptr),
        ROW(read8BitWord, "stream", nullptr, &byte, nullptr),
        ROW(read8BitWord, "value", stream, nullptr, nullptr),
        ROW(read10BitParityWord, "stream", nullptr, true, &byte, &byte, nullptr),
        ROW(read10BitParityWord, "value", stream, true, nullptr, &byte, nullptr),
        ROW(read10BitParityWord, "parity", stream, true, &byte, nullptr, nullptr),
        ROW(validate8BitWord, "stream", nullptr, 0, nullptr),
        ROW(validate10BitParityWord, "stream", nullptr, true, 0, 0, nullptr),
        ROW(extractSMPTE334CDP708PacketFromSMPTE291MStream, "stream", nullptr, 9, false, bytes, &size),
        ROW(extractSMPTE334CDP708PacketFromSMPTE291MStream, "buffer", stream, 9, false, nullptr, &size),
        ROW(extractSMPTE334CDP708PacketFromSMPTE291MStream, "bufferSize", stream, 9, false, bytes, nullptr),
        ROW(extractSMPTE334CDP708PacketFromSMPTE436MStream, "stream", nullptr, false, bytes, &size),
        ROW(extractSMPTE334CDP708PacketFromSMPTE436MStream, "buffer", stream, false, nullptr, &size),
        ROW(extractSMPTE334CDP708PacketFromSMPTE436MStream, "bufferSize", stream, false, bytes, nullptr),
        ROW(writeQuickTimeAtom, "buffer", nullptr, 8),
        ROW(writeQuickTimeAtom, "*buffer", &nowhere, 8),
        ROW(extract608CaptionsFromSMPTE334CDP708Packet, "buffer708", nullptr, 82, false, pairs, &size),
        ROW(extract608CaptionsFromSMPTE334CDP708Packet, "buffer608", bytes, 82, false, nullptr, &size),
        ROW(extract608CaptionsFromSMPTE334CDP708Packet, "bufferSize608", bytes, 82, false, pairs, nullptr),
        ROW(pack608CaptionsIntoSMPTE334CDP708PacketFormat, "buffer708", pairs, 4, nullptr, &size, 0, true),
        ROW(pack608CaptionsIntoSMPTE334CDP708PacketFormat, "buffer608", nullptr, 4, bytes, &size, 0, true),
        ROW(pack608CaptionsIntoSMPTE334CDP708PacketFormat, "bufferSize708", pairs, 4, bytes, nullptr, 0,
            true),
        ROW(pack708CaptionsIntoSMPTE334CDP708Packet, "buffer708Data", nullptr, 60, bytes, &size, 0),
        ROW(pack708CaptionsIntoSMPTE334CDP708Packet, "buffer708", bytes, 60, nullptr, &size, 0),
        ROW(pack708CaptionsIntoSMPTE334CDP708Packet, "bufferSize708", bytes, 60, bytes, nullptr, 0),
        ROW(setSMPTE334CDP708PacketSequenceNumber, "buffer708Data", false, nullptr, 82, 0),
        ROW(convertSMPTE334CDP708PacketToCEA708DPacket, "bufferCDP708", nullptr, 82, false, bytes, &size),
        ROW(convertSMPTE334CDP708PacketToCEA708DPacket, "bufferSizeCEA708", bytes, 82, false, bytes, nullptr),
        ROW(readLine, "stream", nullptr, text, &size),
        ROW(readLine, "buffer", stream, nullptr, &size),
        ROW(readLine, "size", stream, text, nullptr),
        ROW(createDateStringWithFormat, "format", nullptr, &result),
        ROW(createDateStringWithFormat, "result", format, nullptr),
    });
#undef ROW
    CFRelease(format);
}
} // namespace
