// The start of every test program. `UnitTests TimecodeTest [arguments of Google Test]` runs the tests of one
// source file, as the runner does, so that the tests of two modules never share a process. A filter chooses
// among them. A program with one source needs no name.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
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

// Narrows the filter to the tests of one source. Returns false if it has none.
bool takeSource(const std::string &source)
{
    std::string own;
    std::string others;
    forEachTest(
        [&](const testing::TestInfo &test)
        {
            (sourceOf(test) == source ? own : others) +=
                std::string{":"} + test.test_suite_name() + "." + test.name();
        });
    const std::string filter = GTEST_FLAG_GET(filter);
    if (filter == "*")
        GTEST_FLAG_SET(filter, own);
    else
        GTEST_FLAG_SET(filter, filter + (filter.find('-') == std::string::npos ? "-" : "") + others);
    return !own.empty();
}
} // namespace

int main(int argc, char **argv)
{
    // A shell's background commands ignore these signals, and so would the children of tests.
    for (const int number : {SIGHUP, SIGINT, SIGQUIT})
        std::signal(number, SIG_DFL);
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
