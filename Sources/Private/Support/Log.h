// Diagnostics: one message through the logging framework's handle, at the default type and only if that type
// is enabled. The handle is fetched for each message and held for its duration.
#ifndef KIV_PRIVATE_SUPPORT_LOG_H
#define KIV_PRIVATE_SUPPORT_LOG_H

#include <KIVLogger/KIVLogger.h>

#define KIV_LOG(...)                                                                                         \
    do                                                                                                       \
    {                                                                                                        \
        os_log_t kivLogHandle = KLGetHandle();                                                               \
        os_retain(kivLogHandle);                                                                             \
        if (os_log_type_enabled(kivLogHandle, OS_LOG_TYPE_DEFAULT))                                          \
            os_log_with_type(kivLogHandle, OS_LOG_TYPE_DEFAULT, __VA_ARGS__);                                \
        os_release(kivLogHandle);                                                                            \
    } while (false)

#endif
