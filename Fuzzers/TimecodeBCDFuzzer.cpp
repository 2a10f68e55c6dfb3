// BCD words: digits that name a frame come back the same. The input: a rate byte, then words.
#include "TimecodeRate.h"

#include <KIVLogger/KIVLogger.h>

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    KLSetEnabled(false); // most words do not name a frame
    kiv::fuzz::setRate(data[0]);
    uint32_t word = 0;
    for (++data, --size; size >= sizeof word; data += sizeof word, size -= sizeof word)
    {
        std::memcpy(&word, data, sizeof word);
        KIVCS2Timecode tc = 0;
        KIVCS2Timecode again = 0;
        uint32_t bcd = 0;
        uint32_t hours = 0;
        require(kivCS2Timecode_initWithBCD(&tc, word) == KIVCS2STATUS_OK);
        require(kivCS2Timecode_getBCDFromTimecode(&tc, &bcd) == KIVCS2STATUS_OK);
        require(kivCS2Timecode_getHours(&tc, &hours) == KIVCS2STATUS_OK);
        require(kivCS2Timecode_initWithBCD(&again, bcd) == KIVCS2STATUS_OK);
        require(hours >= 100 || again == tc);
    }
    return 0;
}
