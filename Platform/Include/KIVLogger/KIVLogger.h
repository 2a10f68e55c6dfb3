/**
 * @file
 * The logging framework: one handle, through which every message goes to the system log.
 *
 * Messages go to syslog (facility user, level notice), and also to standard error if the
 * environment had KIV_LOG_STDERR=1 at the first message. A host may receive them itself with KLSetSink().
 * Logging never changes errno.
 */
#ifndef KIV_LOGGER_H
#define KIV_LOGGER_H

#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

#define KL_EXPORT extern __attribute__((visibility("default")))

typedef struct os_log_s *os_log_t;
typedef uint8_t os_log_type_t;

#define OS_LOG_TYPE_DEFAULT ((os_log_type_t)0)

/** Receives one message, formatted, zero-terminated, without its line end. Several threads may call it at
    the same time. */
typedef void (*KLSinkCallback)(void *context, os_log_type_t type, const char *message);

/** The log handle; belongs to the framework. Any thread. */
KL_EXPORT os_log_t KLGetHandle(void);

/**
 * Sends every later message only to `sink`; NULL goes back to the system log. When it returns, no call of
 * the previous sink is running or will come. Not to be called from inside a sink. Any thread.
 */
KL_EXPORT void KLSetSink(KLSinkCallback sink, void *context);

/** Switches the default type on (the initial state) or off; each message costs one relaxed load for this. */
KL_EXPORT void KLSetEnabled(bool enabled);

/** Returns true if messages of that type are written; only the default type ever is. Cheap; any thread. */
KL_EXPORT bool os_log_type_enabled(os_log_t log, os_log_type_t type);

/** Formats as printf does and writes one message. Any thread. */
KL_EXPORT void os_log_with_type(os_log_t log, os_log_type_t type, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/** Adds a reference and returns `object`, which is a log handle. */
KL_EXPORT void *os_retain(void *object);
/** Removes a reference; the framework keeps its own. */
KL_EXPORT void os_release(void *object);

__END_DECLS

#endif
