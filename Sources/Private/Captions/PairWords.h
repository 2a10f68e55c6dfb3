// CEA-608 byte pairs in words, as kivCS2CaptionDecoder_describePair() describes them.
#ifndef KIV_PRIVATE_CAPTIONS_PAIR_WORDS_H
#define KIV_PRIVATE_CAPTIONS_PAIR_WORDS_H

#include "KIVCS2CaptionDecoder.h"

#include <span>

namespace kiv::cc
{
using PairText = std::span<char, KIVCS2_CAPTION_DESCRIPTION_SIZE>;

// Writes the meaning of a pair, zero-terminated. The bytes have no parity bits and are not both 0.
void describePair(uint8_t first, uint8_t second, PairText text);
} // namespace kiv::cc

#endif
