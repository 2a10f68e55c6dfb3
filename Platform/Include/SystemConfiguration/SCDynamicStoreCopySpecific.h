/**
 * @file
 * The names of the machine.
 */
#ifndef KIV_SC_DYNAMIC_STORE_COPY_SPECIFIC_H
#define KIV_SC_DYNAMIC_STORE_COPY_SPECIFIC_H

#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

/** The store of settings; there is none here, and NULL means the system's. */
typedef const struct __SCDynamicStore *SCDynamicStoreRef;

/**
 * The name that people gave the machine (PRETTY_HOSTNAME of machine-info), otherwise its host
 * name; NULL if there is neither. The platform keeps every name that it has returned, so a caller
 * that does not release one leaks nothing.
 * @param[out] nameEncoding  an encoding that holds the name, UTF-8; may be NULL
 * Any thread.
 */
CF_EXPORT CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding *nameEncoding);

CF_EXTERN_C_END

#endif
