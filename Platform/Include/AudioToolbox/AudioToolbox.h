/**
 * @file
 * AudioToolbox: the part of it that this system supplies. See Platform/README.md.
 */
#ifndef KIV_AUDIO_TOOLBOX_H
#define KIV_AUDIO_TOOLBOX_H

#include <AudioToolbox/AudioConverter.h>

#endif
