// kivcs2 run on a terminal: interrupts, and the end of all started processes.
#include "Terminal.h"

#include <sys/stat.h>

namespace
{
using namespace kiv::test;

using RunCommand = Command;

// A key interrupts the command once, as without kivcs2. A signal only to kivcs2 is passed on. All processes
// that are left then end.
TEST_F(RunCommand, InterruptsReachTheCommandOnceAndEndTheTree)
{
    struct Row
    {
        char key; // 0: SIGINT only to kivcs2; kHangUp: the terminal closes
        const char *script;
        int code;
    };
    constexpr char kHangUp = 'h';
    const char *const waits = "echo ready; wait";
    const char *const counts = "trap 'echo told; n=1$n' INT; echo ready; read x; read x; exit ${n:-0}";
    const std::string fifo = path("fifo").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string left = "(trap '' INT; exec sleep 60 3>'" + fifo + "') & ";
    for (const std::string way : {"--timeout=60", "--direct", "--async"})
        for (const Row &row : {Row{'\003', waits, 128 + SIGINT},
                               {'\034', waits, 128 + SIGQUIT},
                               {kHangUp, waits, 128 + SIGHUP},
                               {'\003', counts, 1},
                               {'\0', counts, 1}})
        {
            SCOPED_TRACE(way + " " + row.script);
            Terminal terminal{{m_command, "run", way, "--", "sh", "-c", left + row.script}};
            const int reader = open(fifo.c_str(), O_RDONLY); // ends with the last process of the tree
            ASSERT_TRUE(terminal.shows("ready"));
            if (row.key == kHangUp)
                terminal.hangUp();
            else if (row.key != 0)
                terminal.type({row.key});
            else
                terminal.tell(SIGINT);
            if (row.code == 1)
            {
                EXPECT_TRUE(terminal.shows("told"));
                terminal.type("\n\n");
            }
            EXPECT_EQ(terminal.code(), row.code);
            char byte = 0;
            EXPECT_EQ(read(reader, &byte, 1), 0);
            close(reader);
        }
}
} // namespace
