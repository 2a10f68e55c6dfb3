// kivcs2 as a user runs it: arguments and input in; output, errors, exit code and files out.
#ifndef KIV_TEST_COMMAND_RUN_H
#define KIV_TEST_COMMAND_RUN_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

// Found through PATH, as in a user's shell: CommandRun.cpp puts the folder of the build under test first.
#define KIV_COMMAND "kivcs2"

namespace kiv::test
{

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

// Whether the command under test has AddressSanitizer, which keeps freed memory.
bool keepsFreedMemory();

// The result is discarded if the text is not JSON. Out of line: the templates of the parser take seconds to
// compile.
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

// Returns the words of a line. Blanks separate them, but not inside 'a word'.
inline Words wordsOf(const std::string &line)
{
    std::istringstream text{line};
    Words words;
    for (std::string word; text >> std::quoted(word, '\'');)
        words.push_back(word);
    return words;
}

struct Result
{
    int code = -1; ///< exit code, or 128 + signal
    std::string out, err;
    long kilobytes = 0; ///< peak resident size
};

// A line that a user types, its exit code, and a part of its output or, if the code is not 0, of its errors.
struct Line
{
    std::string line;
    int code;
    std::string text = "";
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

    // Runs `prepare` in a new process and then the command, in the folder of the test. It ends with the test.
    template <class Prepare>
    pid_t start(const Words &arguments, Prepare prepare) const
    {
        const pid_t child = fork();
        if (child != 0)
            return child;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prepare();
        std::vector<char *> words{const_cast<char *>("kivcs2")};
        for (const std::string &word : arguments)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        if (chdir(m_folder.c_str()) == 0)
            execvp(m_command, words.data());
        _exit(127);
    }
    static int codeOf(int status)
    {
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    // An `out` of -1 collects standard output; any other descriptor becomes standard output.
    Result run(const Words &arguments, const std::string &input = "", int out = -1) const
    {
        const fs::path in = path(".in"), outPath = path(".out"), errPath = path(".err");
        spill(in, input);
        const pid_t child = start(arguments,
                                  [&]
                                  {
                                      dup2(open(in.c_str(), O_RDONLY), 0);
                                      dup2(out >= 0 ? out : creat(outPath.c_str(), 0600), 1);
                                      dup2(creat(errPath.c_str(), 0600), 2);
                                  });
        Result result;
        int status = 0;
        rusage usage{};
        wait4(child, &status, 0, &usage);
        result.code = codeOf(status);
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

    // Runs the words of a line. Files in the folder of the test need no path.
    Result enter(const std::string &line, const std::string &input = "") const
    {
        return run(wordsOf(line), input);
    }
    Json document(const std::string &line, int code = 0) const
    {
        return json(wordsOf(line), code);
    }
    // A success prints no errors; a failure prints one line.
    void expect(const std::vector<Line> &rows, const std::string &input = "") const
    {
        for (const Line &row : rows)
        {
            SCOPED_TRACE(row.line);
            const Result result = enter(row.line, input);
            EXPECT_EQ(result.code, row.code) << result.err;
            EXPECT_THAT(row.code == 0 ? result.out : result.err, testing::HasSubstr(row.text));
            EXPECT_THAT(result.err, testing::StartsWith(row.code == 0 ? "" : "kivcs2: "));
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), row.code == 0 ? 0 : 1)
                << result.err;
        }
    }

    // The files in the folder of the test, to check that nothing else is left.
    Words files() const
    {
        Words names;
        for (const auto &entry : fs::directory_iterator{m_folder})
            names.push_back(entry.path().filename().string());
        return names;
    }

    // Waits until the process writes a file that has no name yet, or has ended.
    void waitForUnnamedFile(pid_t process) const
    {
        siginfo_t ended{};
        while (!hasUnnamedFile(process) &&
               waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               ended.si_pid == 0)
            usleep(2000);
    }
    bool hasUnnamedFile(pid_t process) const
    {
        std::error_code ignored;
        for (const auto &entry : fs::directory_iterator{"/proc/" + std::to_string(process) + "/fd", ignored})
            if (fs::read_symlink(entry, ignored).string().starts_with((m_folder / "#").string()))
                return true;
        return false;
    }

    const char *m_command = KIV_COMMAND; // the program to run

private:
    fs::path m_folder;
};

} // namespace kiv::test

#endif
