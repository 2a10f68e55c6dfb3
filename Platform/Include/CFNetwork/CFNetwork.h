/**
 * @file
 * CFNetwork: the part of it that this system supplies. See Platform/README.md.
 */
#ifndef KIV_CFNETWORK_H
#define KIV_CFNETWORK_H

#include <CFNetwork/CFNetServices.h>

#endif
