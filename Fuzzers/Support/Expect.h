// What must hold of a fuzzed call's result: the process stops where it does not.
#pragma once

#define KIV_FUZZ_EXPECT(condition)                                                                           \
    do                                                                                                       \
    {                                                                                                        \
        if (!(condition))                                                                                    \
            __builtin_trap();                                                                                \
    } while (false)
