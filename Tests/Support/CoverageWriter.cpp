// Part of every library and program that has counters of its own (see CoverageRegistry.cpp).
extern "C" void kivCoverageRegister(void (*write)());
extern "C" void __gcov_dump();
extern "C" void __gcov_reset();

namespace
{
// A child of vfork has its parent's counters, which must count on.
void write()
{
    __gcov_dump();
    __gcov_reset();
}
[[gnu::constructor]] void enter()
{
    kivCoverageRegister(write);
}
} // namespace
