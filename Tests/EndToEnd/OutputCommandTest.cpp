// Names from outside that must not steer the terminal, and files after an interrupt.
#include "Terminal.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cstddef>
#include <regex>

namespace
{

using namespace kiv::test;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using OutputCommand = Command;

// Returns the output if it may steer the terminal: if it has any control but line ends, colours and a line
// renewed in place.
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
    // A window title, a clear screen in 7 and 8 bits, text from right to left, a line separator, a line end.
    const std::string hostile = "a\x1b]0;x\x07\x1b[2J\xc2\x9b"
                                "2J\xd8\x9c\xe2\x80\x8e\xe2\x80\xae\xe2\x81\xa7\xe2\x80\xa8\x7f\n=b";
    const std::string scc = write(hostile + ".scc", slurp(KIV_EXAMPLE_SCC));
    const fs::path mcc = path(hostile + ".mcc");
    write(hostile + "-bad.scc", "Scenarist_SCC V1.0\n\n" + hostile + "\n");
    write(hostile + ".rgb", "rgb");
    ASSERT_EQ(run({"caption", "convert", scc, mcc}).code, 0);
    spill(mcc, std::regex_replace(slurp(mcc), std::regex{"(Creation Program=)[^\n]*"},
                                  "$1\x1b[2J\xc2\x9b"
                                  "2J\xe2\x80\xae"));
    for (const std::string line : {
             "tc show H",
             "tc show 1 --rate H",
             "caption info H.scc",
             "caption info H.mcc",
             "caption show H-bad.scc --keep-going",
             "caption show H.scc",
             "caption at H.scc H",
             "caption convert H.scc H.other",
             "caption convert H.mcc H.other",
             "caption verify H.mcc --against H.scc",
             "caption decode H",
             "cdp parse H.scc",
             "cdp parse --hex H",
             "cdp find H.scc",
             "cdp build -o H.other",
             "cdp build --field1 H",
             "format H",
             "rate H",
             "codec show H",
             "codec unpack H",
             "curve plot H",
             "curve run H",
             "curve png H/none linear",
             "audio convert H.scc H.other --input u8 --channels 1",
             "audio format H",
             "audio weave H",
             "frame info H.rgb --width 1 --height 1 --format rgb",
             "frame bars H.other --width 16 --height 16 --format rgb",
             "frame convert H.rgb H.other --width 1 --height 1 --format rgb --to rgba",
             "frame png H.rgb H.other --width 1 --height 1 --format rgb",
             "frame info H.rgb --video H",
             "crc H.scc H",
             "str detect H.scc",
             "str convert H.scc -o H.other --to H",
             "json 'a\xc2\x9b\xe2\x80\xae=b\xc2\x85'",
             "json H",
             "shm show H",
             "shm attach 0x4b495652 --write H",
             "sensors H",
             "run -- H",
             "run --stdout H/none -- /bin/true",
             "sys H",
             "doctor H",
             "pipe --mode H",
             "services browse H",
             "net recv udp H 5",
             "net send H :: 1",
             "status H",
             "H",
         })
        for (const char *json : {"", "--json "})
        {
            Words words = {"sh", "-c", "cd \"$0\" && exec \"$@\" </dev/null", path(""), KIV_COMMAND};
            for (const std::string &word :
                 wordsOf(json + std::regex_replace(line, std::regex{"H(\\S*)"}, "'" + hostile + "$1'")))
                words.push_back(word);
            Terminal terminal{words};
            EXPECT_THAT(steering(terminal.all()), IsEmpty()) << json << line;
            EXPECT_FALSE(terminal.all().empty() && !line.starts_with("cdp")) << line;
        }
    EXPECT_EQ(json({"crc", scc})[0]["file"], scc); // a program receives the name unchanged
}

// Makes system calls fail as on a file system without unnamed files.
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
    // The input never ends, so the conversion is still running when its file exists.
    ASSERT_EQ(mkfifo(path("in").c_str(), 0600), 0);
    const int input = open(path("in").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::write(input, "abcdefgh", 8), 8);
    write("out", "old");
    const auto convert = [this](bool named)
    {
        return start(wordsOf("audio convert in out --input s16le --channels 2"),
                     [named]
                     {
                         for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP})
                             signal(signalNumber, SIG_DFL);
                         if (named)
                             refuseUnnamedFiles();
                     });
    };
    int status = 0;
    const struct
    {
        int signalNumber;
        bool named; ///< the file system has no unnamed files
    } rows[] = {{SIGINT, false}, {SIGKILL, false}, {SIGINT, true}, {SIGTERM, true}};
    for (const auto &row : rows)
    {
        const pid_t child = convert(row.named);
        while (row.named && files().size() < 3 && waitpid(child, &status, WNOHANG) == 0)
            usleep(2000);
        if (!row.named)
            waitForUnnamedFile(child);
        kill(child, row.signalNumber);
        waitpid(child, &status, 0);
        EXPECT_EQ(codeOf(status), 128 + row.signalNumber) << row.named;
        EXPECT_THAT(files(), UnorderedElementsAre("in", "out")) << row.signalNumber << row.named;
    }
    close(input);
    EXPECT_EQ(slurp(path("out")), "old");

    // If the conversion ends, either way replaces the target.
    fs::remove(path("in"));
    write("in", "abcd");
    for (const bool named : {false, true})
    {
        write("out", "old");
        waitpid(convert(named), &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(slurp(path("out")), "abcd");
        EXPECT_THAT(files(), UnorderedElementsAre("in", "out"));
    }
}

TEST_F(OutputCommand, APipeThatBecomesAFileIsNotWrittenOver)
{
    ASSERT_EQ(mkfifo(path("in").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo(path("out").c_str(), 0600), 0);
    const pid_t child = start(wordsOf("audio convert in out --input s16le --channels 2"),
                              [this]
                              {
                                  setenv("TMPDIR", path("").c_str(), 1);
                                  alarm(60);
                              });
    const int input = open(path("in").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::write(input, "abcd", 4), 4);
    waitForUnnamedFile(child);
    fs::remove(path("out"));
    write("out", "old content");
    close(input);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(codeOf(status), 4);
    EXPECT_EQ(slurp(path("out")), "old content");
}

} // namespace
