// The lines of caption files.
#ifndef KIV_PRIVATE_CLOSED_CAPTIONS_LINES_H
#define KIV_PRIVATE_CLOSED_CAPTIONS_LINES_H

#include "KIVCS2Stream.h"

namespace kiv::captions
{
// The next line, as kivCS2ClosedCaptions_readLine() promises it.
[[nodiscard]] KIVCS2Status readLine(KIVCS2Stream *stream, char *buffer, uint32_t *size);

// The same, one byte a call: what streams of a host's own kind get.
[[nodiscard]] KIVCS2Status readLineByByte(KIVCS2Stream *stream, char *buffer, uint32_t *size);
} // namespace kiv::captions

#endif
