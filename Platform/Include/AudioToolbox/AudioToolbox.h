/**
 * @file
 * All of the framework that is supplied.
 */
#ifndef KIV_AUDIO_TOOLBOX_H
#define KIV_AUDIO_TOOLBOX_H

#include <AudioToolbox/AudioConverter.h>

#endif
