// The argument-check and status idiom: every operation opens with one KIV_CHECK for each argument.
#ifndef KIV_PRIVATE_SUPPORT_CHECK_H
#define KIV_PRIVATE_SUPPORT_CHECK_H

#include "KIVCS2Base.h"

#include <cassert>

// The text of the expression is part of the interface, so it is taken here with #: a nested assert
// would expand macros first and print "(data) != __null".
#ifdef NDEBUG
#define KIV_ASSERT_TEXT(expr, text) static_cast<void>(0)
#else
#define KIV_ASSERT_TEXT(expr, text)                                                                          \
    ((expr) ? static_cast<void>(0) : __assert_fail(text, __FILE__, __LINE__, __func__))
#endif

// Asserts only.
#define KIV_ASSERT(expr) KIV_ASSERT_TEXT(expr, #expr)

// Asserts, then returns the status in builds without assertions.
#define KIV_CHECK_OR(expr, status)                                                                           \
    do                                                                                                       \
    {                                                                                                        \
        KIV_ASSERT_TEXT(expr, #expr);                                                                        \
        if (!(expr)) [[unlikely]]                                                                            \
            return (status);                                                                                 \
    } while (false)

#define KIV_CHECK(expr)                                                                                      \
    do                                                                                                       \
    {                                                                                                        \
        KIV_ASSERT_TEXT(expr, #expr);                                                                        \
        if (!(expr)) [[unlikely]]                                                                            \
            return KIVCS2STATUS_PARAM_ERR;                                                                   \
    } while (false)

// For checks whose text, known to hosts, differs from the test that is made.
#define KIV_CHECK_AS(expr, text, status)                                                                     \
    do                                                                                                       \
    {                                                                                                        \
        KIV_ASSERT_TEXT(expr, text);                                                                         \
        if (!(expr)) [[unlikely]]                                                                            \
            return (status);                                                                                 \
    } while (false)

// Returns the first failing status unchanged.
#define KIV_TRY(call)                                                                                        \
    do                                                                                                       \
    {                                                                                                        \
        if (const KIVCS2Status kivTryStatus = (call); KIVCS2_FAILED(kivTryStatus)) [[unlikely]]              \
            return kivTryStatus;                                                                             \
    } while (false)

#endif
