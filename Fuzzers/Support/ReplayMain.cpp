// Replays files, or every file of a folder, through a fuzz target: the regression run of its seeds.
//   FuzzReplay SCCReader Fuzzers/Corpus/SCCReader
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

// What the build found: KIV_FUZZ_TARGET(SCCReader) and so on.
#define KIV_FUZZ_TARGET(entry) extern "C" int kivReplay_##entry(const uint8_t *data, size_t size);
#include "FuzzTargets.inc"
#undef KIV_FUZZ_TARGET

namespace
{
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
    if (!file)
        return false;
    const std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
    target(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return true;
}
} // namespace

int main(int argc, char **argv)
{
    const Target target = argc > 1 ? find(argv[1]) : nullptr;
    if (target == nullptr)
    {
        std::fprintf(stderr, "usage: %s <entry> <file or folder>...; the entries are\n", argv[0]);
        for (const Row &row : kTargets)
            std::fprintf(stderr, "  %s\n", row.entry.data());
        return 2;
    }
    size_t count = 0;
    for (int index = 2; index < argc; ++index)
    {
        const std::filesystem::path path{argv[index]};
        std::vector<std::filesystem::path> files;
        if (std::filesystem::is_directory(path))
            for (const auto &entry : std::filesystem::directory_iterator{path})
                files.push_back(entry.path());
        else
            files.push_back(path);
        for (const auto &file : files)
        {
            if (!replay(target, file))
            {
                std::fprintf(stderr, "%s: cannot be read\n", file.c_str());
                return 1;
            }
            ++count;
        }
    }
    if (count == 0)
    {
        std::fprintf(stderr, "no seeds were given\n");
        return 1;
    }
    std::printf("%zu inputs replayed\n", count);
    return 0;
}
