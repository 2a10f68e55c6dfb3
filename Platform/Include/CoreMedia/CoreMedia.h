/**
 * @file
 * CoreMedia: the part of it that this system supplies. See Platform/README.md.
 */
#ifndef KIV_COREMEDIA_H
#define KIV_COREMEDIA_H

#include <CoreMedia/CMTime.h>

#endif
