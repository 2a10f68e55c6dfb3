// Runs the transcripts: what a user types, and what the command prints. Transcripts/*.txt has the tests:
//
//   == Name         a new test, in an empty folder
//   $ line          typed into bash; lines that begin with two blanks continue it
//   ? 3 text        the exit code, if it is not 0; the line of errors has the text
//   > text          a part of the output, after the parts above; `$` at its end is the end of a line
//   = line          the output is exactly these lines
//   ! text          the same as `>` for the errors, each line of which needs one
//
// Without `!`, a success prints no errors, and a failure at most one line. Each line of a failure's errors
// begins with "kivcs2: ". Transcripts/functions has the functions and variables of the shell.
#include "CommandRun.h"

#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <utility>

namespace
{
using namespace kiv::test;

struct Step
{
    int place; ///< its line in the transcript
    std::string command;
    int code = 0;
    Words parts = {}, errors = {};
    std::optional<std::string> whole = {}; ///< all of the output
};

// Where a part that an expectation names ends in a text, or npos.
size_t endOf(std::string part, const std::string &text, size_t from = 0)
{
    if (part.ends_with('$'))
        part.back() = '\n';
    const size_t at = text.find(part, from);
    return at == std::string::npos ? at : at + part.size();
}

class Transcript : public Command
{
public:
    Transcript(std::string file, std::vector<Step> steps) : m_file{std::move(file)}, m_steps{std::move(steps)}
    {
        m_command = "/bin/bash";
        setenv("BASH_ENV", KIV_TRANSCRIPTS "/functions", 1);
        setenv("SCC", KIV_EXAMPLE_SCC, 1);
        setenv("WINDOWS", KIV_TEST_DATA "/windows-25.mcc", 1);
    }
    void TestBody() override
    {
        for (const Step &step : m_steps)
        {
            const testing::ScopedTrace trace{m_file.c_str(), step.place, step.command};
            const Result result = run({"-c", step.command});
            EXPECT_EQ(result.code, step.code) << result.out << result.err;
            EXPECT_EQ(step.whole.value_or(result.out), result.out);
            size_t end = 0;
            for (const std::string &part : step.parts)
            {
                end = endOf(part, result.out, end);
                ASSERT_NE(end, std::string::npos) << part << "\nis not in\n" << result.out;
            }
            expectErrors(step, result.err);
        }
    }

private:
    static void expectErrors(const Step &step, const std::string &errors)
    {
        std::istringstream text{errors};
        size_t count = 0;
        for (std::string line; std::getline(text, line); ++count)
        {
            EXPECT_TRUE(step.code == 0 || line.starts_with("kivcs2: ")) << line;
            EXPECT_TRUE(count >= step.errors.size() ||
                        endOf(step.errors[count], line + "\n") != std::string::npos)
                << line << "\nhas no " << step.errors[count];
        }
        EXPECT_GE(count, step.errors.size());
        EXPECT_LE(count, std::max<size_t>(step.errors.size(), step.code == 0 ? 0 : 1)) << errors;
    }

    std::string m_file;
    std::vector<Step> m_steps;
};

void take(const std::string &line, int place, std::vector<Step> &steps)
{
    const std::string text = line.size() > 2 ? line.substr(2) : "";
    if (line[0] == '$')
    {
        steps.push_back({place, text});
        return;
    }
    Step &step = steps.back();
    switch (line[0])
    {
    case ' ':
        step.command += "\n" + text;
        break;
    case '?':
        step.code = std::stoi(text);
        if (const size_t error = text.find(' '); error != std::string::npos)
            step.errors.push_back(text.substr(error + 1));
        break;
    case '>':
        step.parts.push_back(text);
        break;
    case '=':
        step.whole = step.whole.value_or("") + text + "\n";
        break;
    case '!':
        step.errors.push_back(text);
        break;
    default:
        throw std::invalid_argument{"not a line of a transcript: " + line};
    }
}

void registerFile(const fs::path &path)
{
    struct Section
    {
        std::string name;
        int place;
        std::vector<Step> steps = {};
    };
    std::vector<Section> sections;
    std::ifstream text{path};
    int place = 0;
    for (std::string line; std::getline(text, line);)
    {
        ++place;
        if (line.starts_with("== "))
            sections.push_back({line.substr(3), place});
        else if (!line.empty() && line[0] != '#')
            take(line, place, sections.back().steps);
    }
    for (const Section &one : sections)
        testing::RegisterTest(path.stem().c_str(), one.name.c_str(), nullptr, nullptr, path.c_str(),
                              one.place,
                              [file = path.string(), steps = one.steps]() -> Command * {
                                  return new Transcript{file, steps};
                              });
}

const bool g_areRegistered = []
{
    for (const auto &entry : fs::directory_iterator{KIV_TRANSCRIPTS})
        if (entry.path().extension() == ".txt")
            registerFile(entry.path());
    return true;
}();
} // namespace
