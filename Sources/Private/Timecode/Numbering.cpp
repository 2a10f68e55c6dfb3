// Builds the digit tables of a frame rate and searches them.
#include "Private/Timecode/Numbering.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace kiv::timecode
{
namespace
{
constexpr uint32_t kSecondsPerHour = kMinutesPerHour * kSecondsPerMinute;

// Fills the frame and second digits of one minute from index `at` and returns the index after it.
uint32_t fillMinute(Numbering &numbering, uint32_t at, uint32_t firstNumber)
{
    uint32_t frame = firstNumber;
    for (uint32_t second = 0; second < kSecondsPerMinute; ++second)
    {
        const uint32_t count = numbering.framesPerSecond - frame;
        std::memset(numbering.convertSecond + at, static_cast<int>(second), count);
        for (; frame < numbering.framesPerSecond; ++frame)
            numbering.convertFrame[at++] = static_cast<uint8_t>(frame);
        frame = 0;
    }
    return at;
}

// The numbers of minute 0 hold for every tenth minute, those of minute 1 for all others.
void fillDigits(Numbering &numbering)
{
    const uint32_t wholeLength = fillMinute(numbering, 0, 0);
    const uint32_t droppedLength =
        fillMinute(numbering, wholeLength, numbering.droppedPerMinute) - wholeLength;
    uint32_t at = 0;
    for (uint32_t minute = 0; minute < kMinutesPerHour; ++minute)
    {
        const bool whole = minute % 10 == 0;
        const uint32_t pattern = whole ? 0 : wholeLength;
        const uint32_t length = whole ? wholeLength : droppedLength;
        if (minute > 1)
        {
            std::memcpy(numbering.convertFrame + at, numbering.convertFrame + pattern, length);
            std::memcpy(numbering.convertSecond + at, numbering.convertSecond + pattern, length);
        }
        std::memset(numbering.convertMinute + at, static_cast<int>(minute), length);
        for (uint32_t second = 0, first = at; second < kSecondsPerMinute; ++second)
        {
            numbering.firstFrameOfSecond[minute * kSecondsPerMinute + second] = first;
            first += numbering.framesPerSecond - numbering.convertFrame[first];
        }
        at += length;
    }
}

uint32_t clampToHour(const Numbering &numbering, uint64_t frame)
{
    return static_cast<uint32_t>(std::min<uint64_t>(frame, numbering.framesPerHour - 1));
}
} // namespace

bool makeNumbering(const Rate &rate, Numbering &numbering)
{
    numbering = {};
    const size_t digitBytes = rate.framesPerHour;
    void *block = std::malloc(kSecondsPerHour * sizeof(uint32_t) + 3 * digitBytes);
    if (block == nullptr)
        return false;
    numbering.framesPerSecond = rate.framesPerSecond;
    numbering.framesPerHour = rate.framesPerHour;
    numbering.droppedPerMinute = rate.droppedPerMinute;
    numbering.firstFrameOfSecond = static_cast<uint32_t *>(block);
    numbering.convertFrame = reinterpret_cast<uint8_t *>(numbering.firstFrameOfSecond + kSecondsPerHour);
    numbering.convertSecond = numbering.convertFrame + digitBytes;
    numbering.convertMinute = numbering.convertSecond + digitBytes;
    fillDigits(numbering);
    return true;
}

void freeNumbering(Numbering &numbering)
{
    std::free(numbering.firstFrameOfSecond);
    numbering = {};
}

uint32_t frameOfClockTime(const Numbering &numbering, uint32_t minute, uint32_t second, uint32_t millisecond)
{
    const uint8_t *minutes = numbering.convertMinute;
    const uint8_t *seconds = numbering.convertSecond;
    const uint32_t last = numbering.framesPerHour - 1;

    // The first frame of the minute, searched from its place without dropped numbers.
    uint32_t i = clampToHour(numbering, uint64_t{numbering.framesPerSecond} * kSecondsPerMinute * minute);
    while (minutes[i] >= minute && i > 0 && minutes[i - 1] >= minute)
        --i;
    while (minutes[i] < minute && i < last)
        ++i;

    // The first frame of the second within the minute.
    uint32_t j = clampToHour(numbering, uint64_t{numbering.framesPerSecond} * second + i);
    while (seconds[j] >= second && j > 0 && minutes[j - 1] == minute && seconds[j - 1] >= second)
        --j;
    while (seconds[j] < second && j < last && minutes[j + 1] == minute)
        ++j;

    // Kept: hosts rely on 2 frames less also at 59.94, and in every second, not only if numbers are dropped.
    uint64_t frame = uint64_t{millisecond} * numbering.framesPerSecond / 1000;
    if (numbering.droppedPerMinute > 0 && frame >= 2)
        frame -= 2;
    uint32_t k = clampToHour(numbering, j + frame);
    while (k > 0 && (seconds[k] > second || minutes[k] != minute))
        --k;
    return k;
}
} // namespace kiv::timecode
