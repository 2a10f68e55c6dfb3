// Captions at another frame rate, or under another numbering.
#include "KIVCS2CaptionRetime.h"

#include "Private/Captions/Counting.h"
#include "Private/Captions/Retimer.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <new>

namespace
{
kiv::cc::Retimer *retimerOf(const KIVCS2CaptionRetime *retime)
{
    return static_cast<kiv::cc::Retimer *>(retime->m_state);
}

// Film at 25 frames a second runs 4 % faster than at 24; no broadcaster speeds it up more.
bool areNear(const KIVCS2CaptionCountingInfo &a, const KIVCS2CaptionCountingInfo &b)
{
    const auto [less, more] =
        std::minmax({uint64_t{a.m_numerator} * b.m_denominator, uint64_t{b.m_numerator} * a.m_denominator});
    return more * 100 <= less * 105;
}
} // namespace

KIVCS2Status kivCS2CaptionRetime_init(KIVCS2CaptionRetime *retime, const KIVCS2CaptionRetimeOptions *options,
                                      KIVCS2CaptionRetimeFunc onPacket, void *context)
{
    KIV_CHECK(retime);
    KIV_CHECK(options);
    KIV_CHECK(onPacket);
    retime->m_state = nullptr;
    const KIVCS2CaptionRetimeMode mode = kiv::cc::modeOf(*options);
    KIV_CHECK(mode <= KIVCS2CaptionRetimeMode_SameFrames);
    KIV_CHECK(!kiv::cc::hasLast(*options) || (options->m_first <= options->m_last));
    for (const uint64_t reserved : options->m_reserved)
        KIV_CHECK(reserved == 0);

    const KIVCS2CaptionCountingInfo *const from = kiv::cc::countingInfo(options->m_from);
    const KIVCS2CaptionCountingInfo *const to = kiv::cc::countingInfo(options->m_to);
    if (from == nullptr || to == nullptr)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    if (mode == KIVCS2CaptionRetimeMode_SameFrames && !areNear(*from, *to))
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    retime->m_state = new (std::nothrow) kiv::cc::Retimer{*options, onPacket, context};
    return retime->m_state != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR;
}

KIVCS2Status kivCS2CaptionRetime_feed(KIVCS2CaptionRetime *retime, const KIVCS2CaptionPacket *packet)
{
    KIV_CHECK(retime);
    KIV_CHECK(packet);
    KIV_CHECK(retime->m_state);

    return retimerOf(retime)->feed(*packet);
}

KIVCS2Status kivCS2CaptionRetime_finish(KIVCS2CaptionRetime *retime, KIVCS2CaptionRetimeReport *report)
{
    KIV_CHECK(retime);
    KIV_CHECK(retime->m_state);

    return retimerOf(retime)->finish(report);
}

KIVCS2Status kivCS2CaptionRetime_free(KIVCS2CaptionRetime *retime)
{
    KIV_CHECK(retime);

    delete retimerOf(retime);
    retime->m_state = nullptr;
    return KIVCS2STATUS_OK;
}
