// kivcs2 run: exit codes as env and timeout have them, output files, and the end of all that was started.
#include "CommandRun.h"

#include <csignal>
#include <pty.h>
#include <sys/stat.h>
#include <utility>

namespace
{
using namespace kiv::test;

class Run : public Command
{
};

TEST_F(Run, ExitCodesAreThoseOfTheCommand)
{
    const std::string plain = write("plain", "");
    const std::string none = path("none").string();
    struct Row
    {
        Words words;
        int code;
    };
    for (const std::string way : {"", "--direct", "--async"})
        for (const Row &row :
             {Row{{"--", "true"}, 0}, Row{{"--", "sh", "-c", "exit 3"}, 3},
              Row{{"--", "sh", "-c", "kill -9 $$"}, 137}, Row{{"--", plain}, 126}, Row{{"--", none}, 127},
              Row{{"--", "no-such-command"}, 127}, Row{{"--bogus", "--", "true"}, 125}, Row{{}, 125},
              Row{{"--timeout", "0.2", "--", "sh", "-c", "sleep 60 & sleep 60"}, 124},
              Row{{"--", "/usr"}, 126}, Row{{"--timeout", "nan", "--", "true"}, 125},
              Row{{"--timeout", "60", "--", "sh", "-c", "exit 4"}, 4}})
        {
            Words words{"run"};
            if (!way.empty())
                words.push_back(way);
            words.insert(words.end(), row.words.begin(), row.words.end());
            EXPECT_EQ(run(words).code, row.code) << way << " " << testing::PrintToString(row.words);
        }
}

TEST_F(Run, StreamsAndFiles)
{
    const Result piped = run({"run", "--", "sh", "-c", "cat; echo --json; echo problem >&2"}, "input\n");
    EXPECT_EQ(piped.out, "input\n--json\n");
    EXPECT_EQ(piped.err, "problem\n");
    for (const std::string way : {"--direct", "--async"})
    {
        const std::string out = path("out" + way).string(), err = path("err" + way).string();
        const Result result =
            run({"run", way, "--stdout", out, "--stderr", err, "--", "sh", "-c", "echo a; echo b >&2"});
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(slurp(out) + slurp(err), "a\nb\n");
    }
    EXPECT_EQ(run({"run", "--stdout", path("x").string(), "--", "true"}).code, 125);
    // A writer whose reader has gone ends as it would without us.
    EXPECT_EQ(run({"run", "--", "sh", "-c", "yes | head -n 1; kill -PIPE $$"}).code, 128 + SIGPIPE);
}

// A command on a terminal of its own.
class Terminal
{
public:
    Terminal(const char *command, const Words &arguments)
    {
        m_child = forkpty(&m_master, nullptr, nullptr, nullptr);
        if (m_child != 0)
            return;
        std::vector<char *> words{const_cast<char *>(command)};
        for (const std::string &word : arguments)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        execv(command, words.data());
        _exit(127);
    }
    ~Terminal()
    {
        hangUp();
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // Reads until `text` has been seen, or nothing is left to be read.
    [[nodiscard]] bool shows(const std::string &text)
    {
        char byte = 0;
        while (m_shown.find(text) == std::string::npos && read(m_master, &byte, 1) == 1)
            m_shown += byte;
        return m_shown.find(text) != std::string::npos;
    }
    void type(char key) const
    {
        EXPECT_EQ(write(m_master, &key, 1), 1);
    }
    void tell(int signal) const
    {
        kill(m_child, signal);
    }
    void hangUp()
    {
        if (m_master >= 0)
            close(std::exchange(m_master, -1));
    }
    [[nodiscard]] int code()
    {
        while (shows("nothing that is ever shown"))
        {
        }
        int status = 0;
        waitpid(m_child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    [[nodiscard]] const std::string &shown() const
    {
        return m_shown;
    }

private:
    int m_master = -1;
    pid_t m_child = 0;
    std::string m_shown;
};

// A key tells the command once, as without us; a signal to us alone is handed on; and all that is left goes.
TEST_F(Run, InterruptsReachTheCommandOnceAndEndTheTree)
{
    struct Row
    {
        char key; // 0: SIGINT to kivcs2 alone; kHangUp: the terminal goes
        const char *script;
        int code;
    };
    constexpr char kHangUp = 'h';
    const std::string fifo = path("fifo").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string left = "(trap '' INT; exec sleep 60 3>'" + fifo + "') & ";
    for (const std::string way : {"--timeout=60", "--direct", "--async"})
        for (const Row &row :
             {Row{'\003', "echo ready; wait", 128 + SIGINT}, Row{'\034', "echo ready; wait", 128 + SIGQUIT},
              Row{kHangUp, "echo ready; wait", 128 + SIGHUP},
              Row{'\003', "trap 'echo told; n=1$n' INT; echo ready; read x; read x; exit ${n:-0}", 1},
              Row{'\0', "trap 'echo told; n=1$n' INT; echo ready; read x; read x; exit ${n:-0}", 1}})
        {
            SCOPED_TRACE(way + " " + row.script);
            Terminal terminal{m_command, {"run", way, "--", "sh", "-c", left + row.script}};
            const int reader = open(fifo.c_str(), O_RDONLY); // ends with the last of the tree
            ASSERT_TRUE(terminal.shows("ready"));
            if (row.key == kHangUp)
                terminal.hangUp();
            else if (row.key != 0)
                terminal.type(row.key);
            else
                terminal.tell(SIGINT);
            if (row.code == 1)
            {
                EXPECT_TRUE(terminal.shows("told"));
                terminal.type('\n');
                terminal.type('\n');
            }
            EXPECT_EQ(terminal.code(), row.code) << terminal.shown();
            char byte = 0;
            EXPECT_EQ(read(reader, &byte, 1), 0);
            close(reader);
        }
}
} // namespace
