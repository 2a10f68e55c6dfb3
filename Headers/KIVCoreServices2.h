/**
 * @file
 * The umbrella: every module of the library. A host may include single modules instead.
 */
#ifndef KIVCORESERVICES2_H
#define KIVCORESERVICES2_H

#include "KIVCS2Base.h"

#endif
