// Replays files, or every file of a folder, through a fuzz target: the regression run of its seeds.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{
bool replay(const std::filesystem::path &path)
{
    std::ifstream file{path, std::ios::binary};
    if (!file)
        return false;
    const std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return true;
}
} // namespace

int main(int argc, char **argv)
{
    size_t count = 0;
    for (int index = 1; index < argc; ++index)
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
            if (!replay(file))
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
