/**
 * @file
 * Replaces the machine's own controller as "AppleSMC", for tests and simulations. Open connections keep the
 * controller they were opened with. Not to be called while another thread opens a service.
 */
#ifndef KIVP_APPLE_SMC_H
#define KIVP_APPLE_SMC_H

#include <IOKit/IOKitLib.h>

CF_EXTERN_C_BEGIN

/** A controller that a program simulates. */
typedef struct KIVPSMCController
{
    kern_return_t masterPort; /**< result of IOMasterPort */
    kern_return_t matching;   /**< result of IOServiceGetMatchingServices */
    kern_return_t open;       /**< result of IOServiceOpen */
    /** Serves IOConnectCallStructMethod; `outputSize` is the room and then the bytes stored. */
    kern_return_t (*method)(void *context, uint32_t selector, const void *input, size_t inputSize,
                            void *output, size_t *outputSize);
    void *context; /**< passed to `method` unchanged */
} KIVPSMCController;

/** Uses a copy of `controller` instead of the machine's; NULL goes back to the machine's. */
CF_EXPORT void KIVPSetSMCController(const KIVPSMCController *controller);

/**
 * Reads the applesmc driver's files in `folder` instead of the machine's; NULL goes back to the machine's.
 * The path is not copied. Plain files need `indexWritten`: it stores in them the key whose index was just
 * written to "key_at_index". NULL if the files do so themselves.
 */
CF_EXPORT void KIVPSetSMCFolder(const char *folder, void (*indexWritten)(const char *folder));

/** The number of IOKit objects and connections that were not released. */
CF_EXPORT size_t KIVPCountIOObjects(void);

CF_EXTERN_C_END

#endif
