// BCD words and record arithmetic: every call returns, and digits that name a frame come back the same.
// A rate byte, then a word, an operation byte and a count, repeated.
#include "TimecodeRate.h"

#include <KIVLogger/KIVLogger.h>

#include <cstring>
#include <iterator>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{
constexpr KIVCS2Status (*kOperations[])(KIVCS2Timecode *, uint32_t) = {
    kivCS2Timecode_addFrames,
    kivCS2Timecode_subtractFrames,
    kivCS2Timecode_addDays,
    kivCS2Timecode_subtractDays,
    kivCS2Timecode_addMonths,
    kivCS2Timecode_subtractMonths,
    kivCS2Timecode_addYears,
    kivCS2Timecode_subtractYears,
    kivCS2Timecode_setHours,
    kivCS2Timecode_setMinutes,
    kivCS2Timecode_setSeconds,
    kivCS2Timecode_setFrames,
    kivCS2Timecode_addSeconds,
    kivCS2Timecode_subtractHours,
    kivCS2Timecode_snapToMinute,
    kivCS2Timecode_snapToHour,
    kivCS2Timecode_setFramesSinceMidnight,
};
constexpr size_t kStepSize = 9;

uint32_t wordAt(const uint8_t *data)
{
    uint32_t word;
    std::memcpy(&word, data, sizeof word);
    return word;
}

// Close to 2 to the 32nd the sums of a product wrap, and each is a step: there the factor stays short.
uint32_t factorFor(KIVCS2Timecode tc, uint32_t count)
{
    constexpr uint32_t kLongestDay = 24 * 216000;
    return static_cast<uint32_t>(tc) > UINT32_MAX - kLongestDay ? count & 0xFF : count;
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    KLSetEnabled(false); // most words name no frame
    kiv::fuzz::setRate(data[0]);
    for (++data, --size; size >= kStepSize; data += kStepSize, size -= kStepSize)
    {
        const uint32_t word = wordAt(data);
        KIVCS2Timecode tc = 0;
        KIVCS2Timecode again = 0;
        uint32_t bcd = 0;
        uint32_t hours = 0;
        require(kivCS2Timecode_initWithBCD(&tc, word) == KIVCS2STATUS_OK);
        require(kivCS2Timecode_getBCDFromTimecode(&tc, &bcd) == KIVCS2STATUS_OK);
        require(kivCS2Timecode_getHours(&tc, &hours) == KIVCS2STATUS_OK);
        require(kivCS2Timecode_initWithBCD(&again, bcd) == KIVCS2STATUS_OK);
        require(hours >= 100 || again == tc);

        // A day and month of the word too, so that the calendar meets months it does not have.
        tc |= static_cast<KIVCS2Timecode>(word) << 32;
        const uint32_t count = wordAt(data + 5);
        const KIVCS2Timecode before = tc;
        const KIVCS2Status status = kOperations[data[4] % std::size(kOperations)](&tc, count);
        require(status != KIVCS2STATUS_PARAM_ERR || tc == before); // refused: unchanged
        (void)kivCS2Timecode_multiply(&tc, factorFor(tc, count));
    }
    return 0;
}
