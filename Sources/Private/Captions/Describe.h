// CEA-608 byte pairs in words, as the operations of KIVCS2ClosedCaptions.h describe them.
#ifndef KIV_PRIVATE_CAPTIONS_DESCRIBE_H
#define KIV_PRIVATE_CAPTIONS_DESCRIBE_H

#include "KIVCS2ClosedCaptions.h"

#include <span>

namespace kiv::captions
{
// Writes the zero-terminated description of a pair. KIVCS2STATUS_DATA_ERR: the pair is empty; the text is
// unchanged.
[[nodiscard]] KIVCS2Status describePair(uint8_t byte1, uint8_t byte2,
                                        std::span<char, KIVCS2_CEA608_DESCRIPTION_SIZE> text);
} // namespace kiv::captions

#endif
