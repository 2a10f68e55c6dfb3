/**
 * @file
 * Other controllers than the machine's own behind "AppleSMC", for tests and simulations. Connections that
 * are open keep the one they were opened with. Not to be called while another thread opens a service.
 */
#ifndef KIVP_APPLE_SMC_H
#define KIVP_APPLE_SMC_H

#include <IOKit/IOKitLib.h>

CF_EXTERN_C_BEGIN

/** A controller that a program plays. */
typedef struct KIVPSMCController
{
    kern_return_t masterPort; /**< answered by IOMasterPort */
    kern_return_t matching;   /**< answered by IOServiceGetMatchingServices */
    kern_return_t open;       /**< answered by IOServiceOpen */
    /** Answers IOConnectCallStructMethod; `outputSize` is the room and then what was stored. */
    kern_return_t (*method)(void *context, uint32_t selector, const void *input, size_t inputSize,
                            void *output, size_t *outputSize);
    void *context; /**< handed to `method` unchanged */
} KIVPSMCController;

/** Puts a copy of `controller` in the place of the machine's; NULL takes it away again. */
CF_EXPORT void KIVPSetSMCController(const KIVPSMCController *controller);

/**
 * Reads the applesmc driver's files in `folder`, which is not copied, instead of the machine's; NULL for the
 * machine's. Where plain files stand for the driver's, `indexWritten` puts behind them the key whose index
 * "key_at_index" has just received; NULL when the files do so themselves.
 */
CF_EXPORT void KIVPSetSMCFolder(const char *folder, void (*indexWritten)(const char *folder));

/** IOKit objects and connections that were not given back. */
CF_EXPORT size_t KIVPCountIOObjects(void);

CF_EXTERN_C_END

#endif
