// kivcs2 as a user runs it: what it does to the files it writes, and what it shows of names from outside.
#include "CommandRun.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <csignal>
#include <cstddef>
#include <regex>

namespace
{

using kiv::test::Command;
using kiv::test::Json;
using kiv::test::Result;
using kiv::test::slurp;
using kiv::test::spill;
using kiv::test::Words;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

class OutputCommand : public Command
{
protected:
    struct Owned
    {
        uid_t owner;
        gid_t group;
        mode_t mode;

        bool operator==(const Owned &) const = default;
    };
    static Owned ownedBy(const std::string &file)
    {
        struct stat status
        {
        };
        EXPECT_EQ(stat(file.c_str(), &status), 0) << file;
        return {status.st_uid, status.st_gid, status.st_mode & 07777u};
    }
    void make(const std::string &file, const Owned &owned) const
    {
        spill(file, "old");
        ASSERT_EQ(chown(file.c_str(), owned.owner, owned.group), 0);
        ASSERT_EQ(chmod(file.c_str(), owned.mode), 0);
    }

    // Runs a line of the shell in the test's folder, where $K is the command.
    [[nodiscard]] int shell(const std::string &line) const
    {
        const std::string whole = "cd '" + path("").string() + "' && K='" + KIV_COMMAND + "'; " + line;
        const int status = std::system(whole.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(OutputCommand, AReplacedFileKeepsOwnerGroupAndMode)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root makes files of other users";
    const std::string source = write("in", "abcd"), target = path("out").string();
    const Words words[] = {{"str", "convert", source, "-o", target, "--to", "utf8"},
                           {"audio", "convert", source, target, "--input", "s16le", "--channels", "1"}};
    for (const Owned before : {Owned{1234, 1235, 0644}, Owned{1234, 1235, 04755}, Owned{1234, 1235, 02755},
                               Owned{0, 0, 04755}, Owned{1234, 0, 06711}})
        for (const Words &line : words)
        {
            make(target, before);
            const Result result = run(line);
            EXPECT_EQ(result.code, 0) << result.err;
            EXPECT_THAT(result.err, IsEmpty());
            EXPECT_EQ(ownedBy(target), before) << std::oct << before.mode;
            EXPECT_EQ(slurp(target).size(), 4u);
        }
}

// Somebody who may write the file, and make files in its folder, is no reason to give his content another's
// rights.
TEST_F(OutputCommand, SetIdBitsGoWhereOwnerOrGroupCannotBeKept)
{
    if (geteuid() != 0 || access("/usr/bin/setpriv", X_OK) != 0)
        GTEST_SKIP() << "needs root, and setpriv to be somebody else";
    const std::string source = write("in", "abcd"), target = path("out").string();
    fs::permissions(path(""), fs::perms::all);
    m_command = "/usr/bin/setpriv";
    const struct
    {
        Owned before, after;
        std::string note;
    } rows[] = {
        {{1234, 1235, 04777},
         {65534, 65534, 0777},
         "the owner and the group could not be kept, and the set-id bits are gone"},
        {{1234, 65534, 02777},
         {65534, 65534, 0777},
         "the owner could not be kept, and the set-id bits are gone"},
        {{1234, 1235, 0676}, {65534, 65534, 0666}, "the owner and the group could not be kept\n"},
        {{65534, 65534, 06755}, {65534, 65534, 06755}, ""},
    };
    for (const auto &row : rows)
    {
        make(target, row.before);
        const Result result = run({"--reuid", "65534", "--regid", "65534", "--clear-groups", KIV_COMMAND,
                                   "str", "convert", source, "-o", target, "--to", "utf8"});
        EXPECT_EQ(result.code, 0) << result.err;
        EXPECT_THAT(result.err,
                    row.note.empty() ? testing::Matcher<std::string>(IsEmpty()) : HasSubstr(row.note));
        EXPECT_EQ(ownedBy(target), row.after) << std::oct << row.before.mode;
        EXPECT_EQ(slurp(target), "abcd");
    }
}

TEST_F(OutputCommand, ATargetWithSeveralNamesIsRefused)
{
    const std::string source = write("in", "abcd"), target = write("out", "old");
    fs::create_hard_link(target, path("other"));
    const Result result = run({"str", "convert", source, "-o", target, "--to", "utf8"});
    EXPECT_EQ(result.code, 4);
    EXPECT_THAT(result.err, HasSubstr("has 2 names"));
    EXPECT_EQ(slurp(target), "old");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("in", "out", "other"));
}

TEST_F(OutputCommand, NoWordWritesItsSource)
{
    const std::string scc = slurp(KIV_EXAMPLE_SCC) + "\n"; // whole frames of one pixel too
    for (const char *line : {
             "$K str convert s -o s --to utf16le",
             "$K str convert - -o s --to utf16le <s",
             "$K str convert s --to utf8 >>s",
             "$K str convert - --to utf8 <s >>s",
             "$K audio convert s s --input u8 --channels 1",
             "$K audio convert - l --input u8 --channels 1 <s",
             "$K frame convert s s --width 1 --height 1 --format rgb --to rgba",
             "$K frame convert - s --width 1 --height 1 --format rgb --to rgba <s",
             "$K frame scale s s --width 1 --height 1 --format rgb --size 2x2",
             "$K frame png s s --width 1 --height 1 --format rgb",
             "$K frame png - s --width 1 --height 1 --format rgb <s",
             "$K caption convert s s",
             "$K caption convert - l <s",
             "$K caption convert s - >>s",
             "$K caption show s --json >>s",
             "$K cdp find - <s >>s",
             "$K shm attach 0x4b495652 --write s --read l",
             "$K crc s >>s",
             "$K pipe <s >>s",
             "$K run --direct --stdout s -- /bin/cat <s || test $? = 125 && exit 2",
             "$K run --direct --stderr l -- /bin/cat <s || test $? = 125 && exit 2",
         })
    {
        SCOPED_TRACE(line);
        spill(path("s"), scc);
        fs::remove(path("l"));
        fs::create_symlink("s", path("l"));
        EXPECT_EQ(shell(std::string{line} + " 2>err"), 2) << slurp(path("err"));
        EXPECT_TRUE(slurp(path("s")) == scc);
    }
}

// ---- Names from outside ----

std::string onATerminal(const Words &arguments)
{
    int master = -1;
    const pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        alarm(60);
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        std::vector<char *> words{const_cast<char *>("kivcs2")};
        for (const std::string &word : arguments)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        execv(KIV_COMMAND, words.data());
        _exit(127);
    }
    std::string text;
    char block[4096];
    for (ssize_t got; (got = read(master, block, sizeof block)) > 0;)
        text.append(block, static_cast<size_t>(got));
    close(master);
    waitpid(child, nullptr, 0);
    return text;
}

// What is left of an output that may steer the terminal: anything but line ends, colours and a line renewed
// in place.
std::string steering(const std::string &output)
{
    static const std::regex kOwn{"\r\n|\x1b\\[[0-9;]*m|\r\x1b\\[K"};
    static const std::regex kSteers{"[\x01-\x1f\x7f]|\xc2[\x80-\x9f]|\xd8\x9c|\xe2\x80[\x8e\x8f\xa8-\xae]|"
                                    "\xe2\x81[\xa6-\xa9]"};
    const std::string text = std::regex_replace(output, kOwn, "");
    std::smatch found;
    return std::regex_search(text, found, kSteers) ? output.substr(0, 400) : "";
}

TEST_F(OutputCommand, NoWordLetsANameSteerTheTerminal)
{
    // A title of the window, a clear screen by the second set, turned writing, a line separator, a line end.
    const std::string hostile = "a\x1b]0;x\x07\x1b[2J\xc2\x9b"
                                "2J\xd8\x9c\xe2\x80\x8e\xe2\x80\xae\xe2\x81\xa7\xe2\x80\xa8\x7f\n=b";
    const std::string scc = write(hostile + ".scc", slurp(KIV_EXAMPLE_SCC));
    const std::string bad = write(hostile + "-bad.scc", "Scenarist_SCC V1.0\n\n" + hostile + "\n");
    const std::string mcc = path(hostile + ".mcc").string(), other = path(hostile + ".other").string();
    ASSERT_EQ(run({"caption", "convert", scc, mcc}).code, 0);
    spill(mcc, std::regex_replace(slurp(mcc), std::regex{"(Creation Program=)[^\n]*"},
                                  "$1\x1b[2J\xc2\x9b"
                                  "2J\xe2\x80\xae"));
    const std::string frame = write(hostile + ".rgb", "rgb");
    const std::vector<Words> rows = {
        {"tc", "show", hostile},
        {"tc", "show", "1", "--rate", hostile},
        {"caption", "info", scc},
        {"caption", "info", mcc},
        {"caption", "show", bad, "--keep-going"},
        {"caption", "show", scc},
        {"caption", "at", scc, hostile},
        {"caption", "convert", scc, other},
        {"caption", "convert", mcc, other},
        {"caption", "verify", mcc, "--against", scc},
        {"caption", "decode", hostile},
        {"cdp", "parse", scc},
        {"cdp", "parse", "--hex", hostile},
        {"cdp", "find", scc},
        {"cdp", "build", "-o", other},
        {"cdp", "build", "--field1", hostile},
        {"format", hostile},
        {"rate", hostile},
        {"codec", "show", hostile},
        {"codec", "unpack", hostile},
        {"curve", "plot", hostile},
        {"curve", "run", hostile},
        {"curve", "png", path(hostile + "/none").string(), "linear"},
        {"audio", "convert", scc, other, "--input", "u8", "--channels", "1"},
        {"audio", "format", hostile},
        {"audio", "weave", hostile},
        {"frame", "info", frame, "--width", "1", "--height", "1", "--format", "rgb"},
        {"frame", "bars", other, "--width", "16", "--height", "16", "--format", "rgb"},
        {"frame", "convert", frame, other, "--width", "1", "--height", "1", "--format", "rgb", "--to",
         "rgba"},
        {"frame", "png", frame, other, "--width", "1", "--height", "1", "--format", "rgb"},
        {"frame", "info", frame, "--video", hostile},
        {"crc", scc, path(hostile).string()},
        {"str", "detect", scc},
        {"str", "convert", scc, "-o", other, "--to", hostile},
        {"json", "a\xc2\x9b\xe2\x80\xae=b\xc2\x85"},
        {"json", hostile},
        {"shm", "show", hostile},
        {"shm", "attach", "0x4b495652", "--write", path(hostile).string()},
        {"sensors", hostile},
        {"run", "--", hostile},
        {"run", "--stdout", path(hostile + "/none").string(), "--", "/bin/true"},
        {"sys", hostile},
        {"doctor", hostile},
        {"pipe", "--mode", hostile},
        {"services", "browse", hostile},
        {"net", "recv", "udp", hostile, "5"},
        {"net", "send", hostile, "::", "1"},
        {"status", hostile},
        {hostile},
    };
    for (const Words &row : rows)
        for (const bool json : {false, true})
        {
            Words words = row;
            if (json)
                words.insert(words.begin(), "--json");
            const std::string text = onATerminal(words);
            EXPECT_THAT(steering(text), IsEmpty())
                << row.front() << " " << (row.size() > 1 ? row[1] : "") << json;
            EXPECT_FALSE(text.empty() && row.front() != "cdp") << row.front();
        }
    EXPECT_EQ(json({"crc", scc})[0]["file"], scc); // a program gets the name as it is
}

// ---- Ends of all kinds ----

// A file system without unnamed files, as the system calls show it.
void refuseUnnamedFiles()
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, O_TMPFILE & ~O_DIRECTORY, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{sizeof code / sizeof *code, code};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        _exit(126);
}

TEST_F(OutputCommand, NothingIsLeftHoweverItEnds)
{
    // The input never ends, so that the conversion is under way when its file is there.
    ASSERT_EQ(mkfifo(path("in").c_str(), 0600), 0);
    const int input = open(path("in").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::write(input, "abcdefgh", 8), 8);
    const std::string target = write("out", "old");
    const auto start = [&](bool named)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP})
                signal(signalNumber, SIG_DFL);
            if (named)
                refuseUnnamedFiles();
            execl(KIV_COMMAND, "kivcs2", "audio", "convert", path("in").c_str(), target.c_str(), "--input",
                  "s16le", "--channels", "2", nullptr);
            _exit(127);
        }
        return child;
    };
    const struct
    {
        int signalNumber;
        bool named; ///< the file system knows no unnamed files
    } rows[] = {{SIGINT, false}, {SIGKILL, false}, {SIGINT, true}, {SIGTERM, true}};
    for (const auto &row : rows)
    {
        const pid_t child = start(row.named);
        int status = 0;
        while ((row.named ? files().size() < 3 : !hasUnnamedFile(child)) &&
               waitpid(child, &status, WNOHANG) == 0)
            usleep(2000);
        kill(child, row.signalNumber);
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == row.signalNumber) << row.named;
        EXPECT_THAT(files(), testing::UnorderedElementsAre("in", "out")) << row.signalNumber << row.named;
    }
    close(input);
    EXPECT_EQ(slurp(target), "old");

    // Brought to an end, either way replaces the target.
    fs::remove(path("in"));
    spill(path("in"), "abcd");
    for (const bool named : {false, true})
    {
        spill(target, "old");
        int status = 0;
        waitpid(start(named), &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        EXPECT_EQ(slurp(target), "abcd");
        EXPECT_THAT(files(), testing::UnorderedElementsAre("in", "out"));
    }
}

TEST_F(OutputCommand, APipeThatBecomesAFileIsNotWrittenOver)
{
    ASSERT_EQ(mkfifo(path("in").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo(path("out").c_str(), 0600), 0);
    const pid_t child = fork();
    if (child == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setenv("TMPDIR", path("").c_str(), 1);
        alarm(60);
        execl(KIV_COMMAND, "kivcs2", "audio", "convert", path("in").c_str(), path("out").c_str(), "--input",
              "s16le", "--channels", "2", nullptr);
        _exit(127);
    }
    const int input = open(path("in").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::write(input, "abcd", 4), 4);
    int status = 0;
    while (!hasUnnamedFile(child) && waitpid(child, &status, WNOHANG) == 0)
        usleep(2000);
    fs::remove(path("out"));
    spill(path("out"), "old content");
    close(input);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 4) << status;
    EXPECT_EQ(slurp(path("out")), "old content");
}

} // namespace
