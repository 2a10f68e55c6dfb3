// kivcs2 as a user runs it: what it does to the files it writes, and what it shows of names from outside.
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
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

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
        return codeOf(std::system(whole.c_str()));
    }
};

TEST_F(OutputCommand, AReplacedFileKeepsOwnerGroupAndMode)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root makes files of other users";
    write("in", "abcd");
    for (const Owned before : {Owned{1234, 1235, 0644}, Owned{1234, 1235, 04755}, Owned{1234, 1235, 02755},
                               Owned{0, 0, 04755}, Owned{1234, 0, 06711}})
        for (const char *line :
             {"str convert in -o out --to utf8", "audio convert in out --input s16le --channels 1"})
        {
            make(path("out"), before);
            const Result result = enter(line);
            EXPECT_EQ(result.code, 0) << result.err;
            EXPECT_THAT(result.err, IsEmpty());
            EXPECT_EQ(ownedBy(path("out")), before) << std::oct << before.mode;
            EXPECT_EQ(slurp(path("out")).size(), 4u);
        }
}

// Somebody who may write the file, and make files in its folder, is no reason to give his content another's
// rights.
TEST_F(OutputCommand, SetIdBitsGoWhereOwnerOrGroupCannotBeKept)
{
    if (geteuid() != 0 || access("/usr/bin/setpriv", X_OK) != 0)
        GTEST_SKIP() << "needs root, and setpriv to be somebody else";
    write("in", "abcd");
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
        make(path("out"), row.before);
        const Result result = enter("--reuid 65534 --regid 65534 --clear-groups " KIV_COMMAND
                                    " str convert in -o out --to utf8");
        EXPECT_EQ(result.code, 0) << result.err;
        EXPECT_EQ(result.err.empty(), row.note.empty());
        EXPECT_THAT(result.err, HasSubstr(row.note));
        EXPECT_EQ(ownedBy(path("out")), row.after) << std::oct << row.before.mode;
        EXPECT_EQ(slurp(path("out")), "abcd");
    }
}

TEST_F(OutputCommand, ATargetWithSeveralNamesIsRefused)
{
    write("in", "abcd");
    fs::create_hard_link(write("out", "old"), path("other"));
    expect({{"str convert in -o out --to utf8", 4, "has 2 names"}});
    EXPECT_EQ(slurp(path("out")), "old");
    EXPECT_THAT(files(), UnorderedElementsAre("in", "out", "other"));
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
        bool named; ///< the file system knows no unnamed files
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

    // Brought to an end, either way replaces the target.
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
