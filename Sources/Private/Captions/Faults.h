// The faults of caption files: name, status and the text expected.
#ifndef KIV_PRIVATE_CAPTIONS_FAULTS_H
#define KIV_PRIVATE_CAPTIONS_FAULTS_H

#include "KIVCS2CaptionPacket.h"

namespace kiv::cc
{
struct FaultRow
{
    const char *name;
    KIVCS2Status status;
    bool loses; // a line, a pair or a part of a packet
    const char *expected;
};

// Returns the row of a fault; null if it is not a fault.
[[nodiscard]] const FaultRow *faultRow(KIVCS2CaptionFault fault);
} // namespace kiv::cc

#endif
