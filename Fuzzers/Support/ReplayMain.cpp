// Runs a fuzz target over its seeds, so that a fixed fault stays fixed, and over random inputs, which are the
// same in every run; or over single files.
//   FuzzReplay SCCReader Fuzzers/Corpus/SCCReader
//   FuzzReplay SCCReader build/fuzz/findings/SCCReader-crash
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <vector>

// The targets that the build found: KIV_FUZZ_TARGET(SCCReader) and so on.
#define KIV_FUZZ_TARGET(entry) extern "C" int kivReplay_##entry(const uint8_t *data, size_t size);
#include "FuzzTargets.inc"
#undef KIV_FUZZ_TARGET

namespace
{
constexpr int kRandomInputs = 1000;
constexpr unsigned kLongest = 512; // bytes: most models take a hundred steps

using Target = int (*)(const uint8_t *data, size_t size);

struct Row
{
    std::string_view entry;
    Target target;
};
#define KIV_FUZZ_TARGET(entry) {#entry, kivReplay_##entry},
constexpr Row kTargets[] = {
#include "FuzzTargets.inc"
};
#undef KIV_FUZZ_TARGET

Target find(std::string_view entry)
{
    for (const Row &row : kTargets)
        if (row.entry == entry)
            return row.target;
    return nullptr;
}

bool replay(Target target, const std::filesystem::path &path)
{
    std::ifstream file{path, std::ios::binary};
    const std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
    if (file.is_open())
        target(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    else
        std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
    return file.is_open();
}

// Half of the inputs have only small bytes, because many targets choose by small numbers.
void runRandomInputs(Target target)
{
    std::seed_seq seed{1}; // the same inputs in every run
    std::mt19937 random{seed};
    for (int index = 0; index < kRandomInputs; ++index)
    {
        std::vector<uint8_t> bytes(random() % kLongest);
        const uint32_t mask = index % 2 == 0 ? 0xFF : 0x1F;
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(random() & mask); });
        target(bytes.data(), bytes.size());
    }
}

bool replayFolder(Target target, const std::filesystem::path &folder)
{
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator{folder})
        count += replay(target, entry.path()) ? 1 : 0;
    std::fprintf(stderr, "%zu seeds and %d random inputs\n", count, kRandomInputs);
    runRandomInputs(target);
    return count > 0;
}
} // namespace

int main(int argc, char **argv)
{
    const Target target = argc > 2 ? find(argv[1]) : nullptr;
    if (target == nullptr)
    {
        std::fprintf(stderr, "usage: %s <entry> <file or folder>...; the entries are\n", argv[0]);
        for (const Row &row : kTargets)
            std::fprintf(stderr, "  %s\n", row.entry.data());
        return 2;
    }
    for (int index = 2; index < argc; ++index)
        if (!(std::filesystem::is_directory(argv[index]) ? replayFolder : replay)(target, argv[index]))
            return 1;
    return 0;
}
