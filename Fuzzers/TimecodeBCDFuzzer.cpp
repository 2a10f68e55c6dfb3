// BCD words and record arithmetic: every call returns, and digits that name a frame come back the same.
// A rate byte, a word, an operation byte and a count, repeated.
#include "KIVCS2Timecode.h"

#include <KIVLogger/KIVLogger.h>

#include <cstdlib>
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
constexpr size_t kStepSize = 10;

uint32_t wordAt(const uint8_t *data)
{
    uint32_t word;
    std::memcpy(&word, data, sizeof word);
    return word;
}

// Tables are built only when the rate changes: that is what an input would mostly wait for.
bool setRate(KIVCS2FrameRate rate)
{
    static KIVCS2FrameRate current = KIVCS2FrameRate_MAX;
    return rate == current || KIVCS2_SUCCEEDED(kivCS2Timecode_setFrameRate(current = rate));
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    KLSetEnabled(false); // most words name no frame
    for (; size >= kStepSize; data += kStepSize, size -= kStepSize)
    {
        if (!setRate(data[0] % KIVCS2FrameRate_MAX))
            std::abort();
        KIVCS2Timecode tc = 0;
        uint32_t bcd = 0;
        if (KIVCS2_FAILED(kivCS2Timecode_initWithBCD(&tc, wordAt(data + 1))) ||
            KIVCS2_FAILED(kivCS2Timecode_getBCDFromTimecode(&tc, &bcd)))
            std::abort();
        KIVCS2Timecode again = 0;
        uint32_t hours = 0;
        if (KIVCS2_FAILED(kivCS2Timecode_getHours(&tc, &hours)) ||
            KIVCS2_FAILED(kivCS2Timecode_initWithBCD(&again, bcd)))
            std::abort();
        if (hours < 100 && again != tc)
            std::abort();

        // A day and month of the word too, so that the calendar meets months it does not have.
        tc |= static_cast<KIVCS2Timecode>(wordAt(data + 1)) << 32;
        const uint32_t count = wordAt(data + 6);
        const KIVCS2Timecode before = tc;
        const KIVCS2Status status = kOperations[data[5] % std::size(kOperations)](&tc, count);
        if (status == KIVCS2STATUS_PARAM_ERR && tc != before)
            std::abort(); // a refused argument changes nothing
        (void)kivCS2Timecode_multiply(&tc, count);
    }
    return 0;
}
