// Runs the benchmarks of a program in a process with several threads, as in hosts. Without a second thread
// libc locks without atomic operations.
#ifndef KIV_BENCH_PARKED_THREAD_H
#define KIV_BENCH_PARKED_THREAD_H

#include <benchmark/benchmark.h>

#include <latch>
#include <thread>

inline int runBesideParkedThread(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    std::latch done{1};
    std::thread parked{[&done] { done.wait(); }};
    benchmark::RunSpecifiedBenchmarks();
    done.count_down();
    parked.join();
    benchmark::Shutdown();
    return 0;
}

#endif
