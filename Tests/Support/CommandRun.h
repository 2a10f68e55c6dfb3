// kivcs2 as a user runs it: arguments and input in; output, errors, exit code and files out.
#ifndef KIV_TEST_COMMAND_RUN_H
#define KIV_TEST_COMMAND_RUN_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace kiv::test
{

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

// Discarded where the text is no JSON. Out of line: the parser's templates take seconds to compile.
Json parseJson(const std::string &text);

inline std::string slurp(const fs::path &path)
{
    std::ifstream file{path, std::ios::binary};
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void spill(const fs::path &path, const std::string &text)
{
    std::ofstream{path, std::ios::binary} << text;
}

struct Result
{
    int code = -1; ///< exit code, or 128 + signal
    std::string out, err;
    long kilobytes = 0; ///< peak resident size
};

class Command : public testing::Test
{
protected:
    Command()
    {
        std::string name = (fs::temp_directory_path() / "kivcs2-test-XXXXXX").string();
        m_folder = mkdtemp(name.data());
    }
    ~Command() override
    {
        fs::remove_all(m_folder);
    }

    [[nodiscard]] fs::path path(const std::string &name) const
    {
        return m_folder / name;
    }
    std::string write(const std::string &name, const std::string &text) const
    {
        spill(path(name), text);
        return path(name).string();
    }

    // `out` of -1 collects standard output; otherwise it is given to the command as it is. The command finds
    // its input at byte `inputFrom`.
    Result run(const Words &arguments, const std::string &input = "", int out = -1, off_t inputFrom = 0) const
    {
        const fs::path in = path(".in"), outPath = path(".out"), errPath = path(".err");
        spill(in, input);
        const pid_t child = fork();
        if (child == 0)
        {
            const int inFile = open(in.c_str(), O_RDONLY);
            const int outFile = out >= 0 ? out : open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            const int errFile = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            lseek(inFile, inputFrom, SEEK_SET);
            dup2(inFile, 0);
            dup2(outFile, 1);
            dup2(errFile, 2);
            std::vector<char *> words{const_cast<char *>("kivcs2")};
            for (const std::string &word : arguments)
                words.push_back(const_cast<char *>(word.c_str()));
            words.push_back(nullptr);
            execv(m_command, words.data());
            _exit(127);
        }
        Result result;
        int status = 0;
        rusage usage{};
        wait4(child, &status, 0, &usage);
        result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        result.out = out >= 0 ? "" : slurp(outPath);
        result.err = slurp(errPath);
        result.kilobytes = usage.ru_maxrss;
        for (const fs::path &file : {in, outPath, errPath})
            fs::remove(file);
        return result;
    }

    Json json(Words arguments, int code = 0) const
    {
        arguments.push_back("--json");
        const Result result = run(arguments);
        EXPECT_EQ(result.code, code) << result.err;
        return parseJson(result.out);
    }

    // Files of the test's folder: what a conversion must not leave behind.
    Words files() const
    {
        Words names;
        for (const auto &entry : fs::directory_iterator{m_folder})
            names.push_back(entry.path().filename().string());
        return names;
    }

    // Whether a process is writing a file that has no name yet.
    bool hasUnnamedFile(pid_t process) const
    {
        std::error_code ignored;
        for (const auto &entry : fs::directory_iterator{"/proc/" + std::to_string(process) + "/fd", ignored})
            if (fs::read_symlink(entry, ignored).string().starts_with((m_folder / "#").string()))
                return true;
        return false;
    }

    const char *m_command = KIV_COMMAND; // what is run

private:
    fs::path m_folder;
};

} // namespace kiv::test

#endif
