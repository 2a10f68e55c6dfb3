// Countings, and one caption packet: parsed, built, and found in its carriers.
#include "KIVCS2CaptionPacket.h"

#include "Private/Captions/Counting.h"
#include "Private/Captions/Packet.h"
#include "Private/Carriers/RTP.h"
#include "Private/Carriers/WordForms.h"
#include "Private/Carriers/Wrapped.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <cstring>

KIVCS2Status kivCS2CaptionCounting_getInfo(KIVCS2CaptionCounting counting, KIVCS2CaptionCountingInfo *info)
{
    KIV_CHECK(info);

    const KIVCS2CaptionCountingInfo *const row = kiv::cc::countingInfo(counting);
    if (row == nullptr)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    *info = *row;
    return KIVCS2STATUS_OK;
}

const char *kivCS2CaptionCounting_name(KIVCS2CaptionCounting counting)
{
    const KIVCS2CaptionCountingInfo *const info = kiv::cc::countingInfo(counting);
    return info == nullptr ? nullptr : info->m_name;
}

KIVCS2Status kivCS2CaptionCounting_frameFromText(KIVCS2CaptionCounting counting, const char *text,
                                                 uint32_t *frame, bool *exists)
{
    KIV_CHECK(text);
    KIV_CHECK(frame);

    const KIVCS2CaptionCountingInfo *const info = kiv::cc::countingInfo(counting);
    if (info == nullptr)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    const std::string_view whole{text, strnlen(text, kiv::cc::kTimecodeSize + 1)};
    const auto time = kiv::cc::takeTime(whole);
    const auto found =
        time && whole.size() == kiv::cc::kTimecodeSize ? kiv::cc::frameOf(*info, *time) : std::nullopt;
    if (!found)
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    *frame = *found;
    if (exists != nullptr)
        *exists = !kiv::cc::isDropped(*info, *time);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionCounting_textFromFrame(KIVCS2CaptionCounting counting, uint32_t frame, char *text)
{
    KIV_CHECK(text);

    const KIVCS2CaptionCountingInfo *const info = kiv::cc::countingInfo(counting);
    if (info == nullptr)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    kiv::cc::writeTimecode(*info, frame, info->m_drop != 0 ? ';' : ':', text);
    text[kiv::cc::kTimecodeSize] = '\0';
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionCounting_nanosecondsOfFrame(KIVCS2CaptionCounting counting, uint32_t frame,
                                                      uint64_t *nanoseconds)
{
    KIV_CHECK(nanoseconds);

    const KIVCS2CaptionCountingInfo *const info = kiv::cc::countingInfo(counting);
    if (info == nullptr)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    // In two steps, because the product does not fit: first the whole multiples of the numerator.
    constexpr uint64_t kSecond = 1'000'000'000;
    const uint64_t whole = frame / info->m_numerator;
    const uint64_t rest = frame % info->m_numerator;
    *nanoseconds =
        whole * info->m_denominator * kSecond + rest * info->m_denominator * kSecond / info->m_numerator;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionPacket_parse(KIVCS2CaptionPacket *packet, const uint8_t *bytes, uint32_t size)
{
    KIV_CHECK(packet);
    KIV_CHECK(bytes);

    KIVCS2CaptionPacket made{};
    KIVCS2Status status = KIVCS2STATUS_OK;
    const bool isCDP = size >= 2 && bytes[0] == 0x96 && bytes[1] == 0x69;
    const uint32_t around = isCDP ? 4 : 0; // DID, SDID, count, and the checksum
    if (size == 0)
        status = KIVCS2STATUS_NO_DATA_ERR;
    else if (size > KIVCS2_CAPTION_ANC_SIZE - around)
        status = KIVCS2STATUS_OVERFLOW_ERR;
    else if (isCDP)
    {
        const uint8_t head[] = {0x61, 0x01, static_cast<uint8_t>(size)};
        std::copy_n(bytes, size, std::copy(std::begin(head), std::end(head), made.m_anc));
        uint8_t sum = 0;
        for (uint32_t index = 0; index < size + 3; ++index)
            sum = static_cast<uint8_t>(sum + made.m_anc[index]);
        made.m_anc[size + 3] = sum;
    }
    else
        std::copy_n(bytes, size, made.m_anc);
    if (KIVCS2_SUCCEEDED(status))
    {
        made.m_size = static_cast<uint16_t>(size + around);
        kiv::cc::takeApart(made);
        kiv::cc::takePair(made);
    }
    *packet = made;
    return status;
}

KIVCS2Status kivCS2CaptionPacket_build(KIVCS2CaptionPacket *packet, KIVCS2CaptionCounting counting,
                                       uint16_t sequence, const KIVCS2CaptionPairs *pairs,
                                       const KIVCS2CaptionDTVCC *dtvcc,
                                       const KIVCS2CaptionServiceEntry *services, uint32_t serviceCount)
{
    KIV_CHECK(packet);
    KIV_CHECK((pairs == nullptr) || ((pairs->m_count[0] <= 31) && (pairs->m_count[1] <= 31)));
    KIV_CHECK((dtvcc == nullptr) || ((dtvcc->m_count <= 62) && (dtvcc->m_count % 2 == 0)));
    KIV_CHECK((services == nullptr) || (serviceCount <= KIVCS2_CAPTION_SERVICES_MAX));

    kiv::cc::Contents contents{pairs, dtvcc, kiv::cc::kDefaultServices, sequence};
    if (services != nullptr)
        contents.services = {services, serviceCount};
    for (const KIVCS2CaptionServiceEntry &entry : contents.services)
        KIV_CHECK(kiv::cc::isService(entry.m_service));
    const KIVCS2CaptionCountingInfo *const info = kiv::cc::countingInfo(counting);
    if (info == nullptr)
        return KIVCS2STATUS_FRAME_RATE_ERR;

    KIVCS2CaptionPacket made;
    KIV_TRY(kiv::cc::makePacket(*info, sequence, contents, made));
    *packet = made;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2CaptionPacket_getPairs(const KIVCS2CaptionPacket *packet, KIVCS2CaptionPairs *pairs)
{
    KIV_CHECK(packet);
    KIV_CHECK(pairs);

    *pairs = {};
    const size_t count = std::min<size_t>(packet->m_tripletCount, KIVCS2_CAPTION_TRIPLETS_MAX);
    for (size_t index = 0; index < count; ++index)
    {
        const uint8_t *triplet = packet->m_triplets[index];
        const size_t field = triplet[0] & kiv::cc::kTypeMask;
        if (field < 2 && (triplet[0] & kiv::cc::kValid) != 0)
            std::memcpy(pairs->m_pairs[field][pairs->m_count[field]++], triplet + 1, 2);
    }
    return pairs->m_count[0] + pairs->m_count[1] > 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_NO_DATA_ERR;
}

KIVCS2Status kivCS2CaptionPacket_getDTVCC(const KIVCS2CaptionPacket *packet, KIVCS2CaptionDTVCC *dtvcc)
{
    KIV_CHECK(packet);
    KIV_CHECK(dtvcc);

    *dtvcc = {};
    const size_t count = std::min<size_t>(packet->m_tripletCount, KIVCS2_CAPTION_TRIPLETS_MAX);
    for (size_t index = 0; index < count; ++index)
    {
        const uint8_t *triplet = packet->m_triplets[index];
        const bool start = kiv::cc::isValidOf(triplet, kiv::cc::kDTVCCStart);
        if (!start && !kiv::cc::isValidOf(triplet, kiv::cc::kDTVCCData))
            continue;
        dtvcc->m_starts |= static_cast<uint32_t>(start) << dtvcc->m_count / 2;
        dtvcc->m_bytes[dtvcc->m_count++] = triplet[1];
        dtvcc->m_bytes[dtvcc->m_count++] = triplet[2];
    }
    return dtvcc->m_count > 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_NO_DATA_ERR;
}

KIVCS2Status kivCS2CaptionPacket_find(KIVCS2CaptionCarrier form, const uint8_t *bytes, uint64_t size,
                                      uint64_t *offset, KIVCS2CaptionPacket *packet,
                                      KIVCS2CaptionPlace *place)
{
    const KIVCS2CaptionCarrier carrier = form & ~uint32_t{KIVCS2CaptionCarrier_AnyPacket};
    KIV_CHECK(carrier < KIVCS2CaptionCarrier_MAX);
    KIV_CHECK((carrier == form) || kiv::carriers::hasFlag(carrier));
    KIV_CHECK((bytes != nullptr) || (size == 0));
    KIV_CHECK(offset);
    KIV_CHECK(*offset <= size);
    KIV_CHECK(packet);

    kiv::carriers::Search search{{bytes, size}, *offset, carrier != form, {}, {}};
    const KIVCS2Status status = carrier == KIVCS2CaptionCarrier_436M ? kiv::carriers::findInWrapped(search)
                                : carrier == KIVCS2CaptionCarrier_RTP
                                    ? kiv::carriers::findInRTP(search)
                                    : kiv::carriers::findInWords(carrier, search);
    *offset = search.offset;
    if (place != nullptr)
        *place = search.place;
    if (KIVCS2_SUCCEEDED(status) || status == KIVCS2STATUS_EOF_ERR)
    {
        kiv::cc::takeApart(search.packet);
        kiv::cc::takePair(search.packet);
        *packet = search.packet;
    }
    return status;
}

KIVCS2Status kivCS2CaptionPacket_wrap(KIVCS2CaptionCarrier form, const KIVCS2CaptionPacket *packets,
                                      uint32_t count, const KIVCS2CaptionPlace *places,
                                      const KIVCS2CaptionRTP *rtp, uint8_t *bytes, uint64_t *size)
{
    KIV_CHECK(form < KIVCS2CaptionCarrier_MAX);
    KIV_CHECK((packets != nullptr) || (count == 0));
    KIV_CHECK(size);
    KIV_CHECK((bytes != nullptr) || (*size == 0));
    const bool isRTP = form == KIVCS2CaptionCarrier_RTP;
    KIV_CHECK(!isRTP || ((rtp != nullptr) && kiv::carriers::isSendable(*rtp)));
    for (uint32_t index = 0; places != nullptr && index < count; ++index)
    {
        const KIVCS2CaptionPlace &place = places[index];
        KIV_CHECK(!isRTP || kiv::carriers::isSendable(place));
        KIV_CHECK((form != KIVCS2CaptionCarrier_436M) || kiv::carriers::isWrappable(place));
    }

    const kiv::carriers::Load load{{packets, count}, places, rtp};
    KIV_CHECK(kiv::carriers::areApart(form, load));
    const std::span<uint8_t> room{bytes, *size};
    if (isRTP)
        return kiv::carriers::wrapInRTP(load, room, *size);
    if (form == KIVCS2CaptionCarrier_436M)
        return kiv::carriers::wrapInFrame(load, room, *size);
    return kiv::carriers::wrapInWords(form, load, room, *size);
}
