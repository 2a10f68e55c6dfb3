// One line for each argument check: with assertions the call must stop the process with the exact text,
// without them it must return the status. Both builds run the same tables.
#ifndef KIV_TEST_ARGUMENT_CHECK_H
#define KIV_TEST_ARGUMENT_CHECK_H

#include "Status.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

// The call of a row, made only when the check runs.
#define KIV_CALL(...) [&] { return __VA_ARGS__; }

// A row that calls the operation that refuses.
#define KIV_REFUSES(status, operation, text, ...)                                                            \
    kiv::test::ArgumentCheck                                                                                 \
    {                                                                                                        \
#operation, text, status, KIV_CALL(operation(__VA_ARGS__))                                           \
    }

// A row of an operation that returns the status of a wrong argument.
#define KIV_REQUIRES(operation, text, ...) KIV_REFUSES(KIVCS2STATUS_PARAM_ERR, operation, text, __VA_ARGS__)

namespace kiv::test
{
struct ArgumentCheck
{
    const char *operation; // as __func__ names it
    const char *text;      // the failed expression
    KIVCS2Status status;   // without assertions
    std::function<KIVCS2Status()> call;
};

// The line of the assertion as a POSIX extended expression that matches it literally.
inline std::string assertionPattern(std::string_view operation, std::string_view text)
{
    std::string pattern;
    for (const char c : std::string{operation} + ": Assertion `" + std::string{text} + "' failed")
    {
        if (std::string_view{"\\^$.[]|()?*+{}"}.find(c) != std::string_view::npos)
            pattern += '\\';
        pattern += c;
    }
    return pattern;
}

// Whether the library under test has assertions. A host test may be compiled with assertions but run against
// the library of a build without them, which the runner reports in the environment.
inline bool hasAssertions()
{
#ifdef NDEBUG
    return false;
#else
    return std::getenv("KIV_NO_ASSERTIONS") == nullptr;
#endif
}

// For tests of calls that an assertion would stop.
class WithoutAssertions : public testing::Test
{
protected:
    void SetUp() override
    {
        if (hasAssertions())
            GTEST_SKIP() << "an assertion stops these calls";
    }
};

inline void expectRefused(const ArgumentCheck &check)
{
    SCOPED_TRACE(std::string{check.operation} + ": " + check.text);
    if (hasAssertions())
    {
        EXPECT_DEATH(static_cast<void>(check.call()), assertionPattern(check.operation, check.text));
    }
    else
    {
        EXPECT_EQ(check.call(), check.status);
    }
}

inline void expectAllRefused(std::initializer_list<ArgumentCheck> checks)
{
    for (const ArgumentCheck &check : checks)
        expectRefused(check);
}
} // namespace kiv::test

#endif
