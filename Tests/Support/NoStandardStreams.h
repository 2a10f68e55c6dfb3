// Closes standard input or all three standard streams for a while, as in a daemon.
#ifndef KIV_TEST_NO_STANDARD_STREAMS_H
#define KIV_TEST_NO_STANDARD_STREAMS_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <vector>

namespace kiv::test
{
class NoStandardStreams
{
public:
    // Closes the first `count` of standard input, output and error; the destructor restores them.
    explicit NoStandardStreams(int count = 1)
    {
        for (int stream = 0; stream < count; ++stream)
            m_kept.push_back(fcntl(stream, F_DUPFD_CLOEXEC, 10));
        for (int stream = 0; stream < count; ++stream)
            close(stream);
    }
    ~NoStandardStreams()
    {
        for (size_t stream = 0; stream < m_kept.size(); ++stream)
        {
            const int number = static_cast<int>(stream);
            const bool isFree = fcntl(number, F_GETFD) < 0;
            if (m_kept[stream] >= 0)
            {
                dup2(m_kept[stream], number);
                close(m_kept[stream]);
            }
            EXPECT_TRUE(isFree) << "descriptor " << number << " was taken";
        }
    }
    NoStandardStreams(const NoStandardStreams &) = delete;
    NoStandardStreams &operator=(const NoStandardStreams &) = delete;

private:
    std::vector<int> m_kept;
};
} // namespace kiv::test

#endif
