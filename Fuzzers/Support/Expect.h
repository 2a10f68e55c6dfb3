// What must hold of a fuzzed call's result: the process stops where it does not.
#ifndef KIV_FUZZ_EXPECT_H
#define KIV_FUZZ_EXPECT_H

#define KIV_FUZZ_EXPECT(condition)                                                                           \
    do                                                                                                       \
    {                                                                                                        \
        if (!(condition))                                                                                    \
            __builtin_trap();                                                                                \
    } while (false)

#endif
