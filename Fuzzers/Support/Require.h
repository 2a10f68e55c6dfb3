// Stops the process if a result of a fuzzed call is wrong.
#ifndef KIV_FUZZ_REQUIRE_H
#define KIV_FUZZ_REQUIRE_H

inline void require(bool holds)
{
    if (!holds)
        __builtin_trap();
}

#endif
