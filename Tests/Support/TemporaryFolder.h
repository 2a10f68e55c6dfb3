// A folder for one test, removed with everything in it.
#ifndef KIV_TEST_TEMPORARY_FOLDER_H
#define KIV_TEST_TEMPORARY_FOLDER_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace kiv::test
{
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "kivcs2-XXXXXX").string();
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        m_path = name;
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    [[nodiscard]] std::string path(std::string_view name) const
    {
        return (m_path / name).string();
    }
    // Writes a file and returns its path.
    std::string write(std::string_view name, std::string_view content) const
    {
        std::ofstream{path(name), std::ios::binary} << content;
        return path(name);
    }
    [[nodiscard]] std::string read(std::string_view name) const
    {
        std::ifstream file{path(name), std::ios::binary};
        return {std::istreambuf_iterator<char>{file}, {}};
    }

private:
    std::filesystem::path m_path;
};
} // namespace kiv::test

#endif
