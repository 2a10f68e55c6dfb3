// The start of every test program: `UnitTests TimecodeTest [arguments of Google Test]` runs the tests of one
// source file, as the runner does, so that no module's tests share a process with another's. A filter picks
// among them. A program of one source needs no name.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fnmatch.h>
#include <set>
#include <string>

namespace
{
using Names = std::set<std::string>;

template <class Action>
void forEachTest(Action action)
{
    const testing::UnitTest &all = *testing::UnitTest::GetInstance();
    for (int suite = 0; suite < all.total_test_suite_count(); ++suite)
        for (int test = 0; test < all.GetTestSuite(suite)->total_test_count(); ++test)
            action(*all.GetTestSuite(suite)->GetTestInfo(test));
}

std::string sourceOf(const testing::TestInfo &test)
{
    return std::filesystem::path{test.file()}.stem();
}

// Whether any pattern of a list "A.*:B.c" fits.
bool matchesAny(const std::string &patterns, const std::string &name)
{
    for (size_t from = 0; from <= patterns.size();)
    {
        const size_t to = std::min(patterns.find(':', from), patterns.size());
        if (fnmatch(patterns.substr(from, to - from).c_str(), name.c_str(), 0) == 0)
            return true;
        from = to + 1;
    }
    return false;
}

// Google Test's filter: "these:and these-but:not these".
bool fits(const std::string &filter, const std::string &name)
{
    const size_t minus = filter.find('-');
    const std::string wanted = filter.substr(0, minus);
    const std::string unwanted = minus != std::string::npos ? filter.substr(minus + 1) : "";
    return (wanted.empty() || matchesAny(wanted, name)) && !matchesAny(unwanted, name);
}

// Narrows the filter to the tests of one source. Returns false if it has none.
bool takeSource(const std::string &source)
{
    const std::string filter = GTEST_FLAG_GET(filter);
    std::string chosen;
    bool isKnown = false;
    forEachTest(
        [&](const testing::TestInfo &test)
        {
            if (sourceOf(test) != source)
                return;
            isKnown = true;
            const std::string name = std::string{test.test_suite_name()} + "." + test.name();
            if (fits(filter, name))
                chosen += name + ":";
        });
    GTEST_FLAG_SET(filter, chosen.empty() ? "-*" : chosen);
    return isKnown;
}
} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    Names sources;
    forEachTest([&sources](const testing::TestInfo &test) { sources.insert(sourceOf(test)); });
    const std::string source = argc > 1 ? argv[1] : sources.size() == 1 ? *sources.begin() : "";
    if (!GTEST_FLAG_GET(list_tests) && !takeSource(source))
    {
        std::fprintf(stderr, "usage: %s <source> [--gtest_filter=...]; the sources are\n", argv[0]);
        for (const std::string &name : sources)
            std::fprintf(stderr, "  %s\n", name.c_str());
        return 2;
    }
    return RUN_ALL_TESTS();
}
