// A command on its own terminal, which ends with the test.
#ifndef KIV_TEST_TERMINAL_H
#define KIV_TEST_TERMINAL_H

#include "CommandRun.h"

#include <pty.h>
#include <sys/prctl.h>

#include <csignal>

namespace kiv::test
{

class Terminal
{
public:
    explicit Terminal(const Words &line, const winsize &size = {})
    {
        m_child = forkpty(&m_master, nullptr, nullptr, &size);
        if (m_child != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        alarm(60);
        std::vector<char *> words;
        for (const std::string &word : line)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        execvp(words[0], words.data());
        _exit(127);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal()
    {
        hangUp();
        if (m_child > 0)
            kill(m_child, SIGKILL);
        (void)code();
    }

    // Reads until `text` has come so many times, or the command has ended.
    bool shows(const std::string &text, int times = 1)
    {
        const auto seen = [&]
        {
            int count = 0;
            for (size_t at = m_text.find(text); at != std::string::npos; at = m_text.find(text, at + 1))
                ++count;
            return count;
        };
        char block[512];
        for (ssize_t got = 1; seen() < times && got > 0;)
            if ((got = read(m_master, block, sizeof block)) > 0)
                m_text.append(block, static_cast<size_t>(got));
        return seen() >= times;
    }
    // Returns all output until the command has ended.
    const std::string &all()
    {
        (void)shows("\x01");
        return m_text;
    }
    void type(const std::string &keys) const
    {
        EXPECT_EQ(write(m_master, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    void tell(int signalNumber) const
    {
        kill(m_child, signalNumber);
    }
    void hangUp()
    {
        if (m_master >= 0)
            close(std::exchange(m_master, -1));
    }
    // Reads all output and returns the exit code, or 128 + signal.
    int code()
    {
        all();
        int status = 0;
        if (m_child > 0)
            waitpid(std::exchange(m_child, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t m_child = -1;
    int m_master = -1;
    std::string m_text;
};

} // namespace kiv::test

#endif
