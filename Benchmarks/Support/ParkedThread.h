// Runs the benchmarks of a program in a process with threads, as hosts are. Without a second thread libc locks
// without atomic operations.
#pragma once

#include <benchmark/benchmark.h>

#include <latch>
#include <thread>

inline int runBesideParkedThread(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    std::latch done{1};
    std::thread parked{[&done]
                       {
                           done.wait();
                       }};
    benchmark::RunSpecifiedBenchmarks();
    done.count_down();
    parked.join();
    benchmark::Shutdown();
    return 0;
}
