// A relay that passes datagrams on, drops or doubles them, or sends them after the next one, as the test
// chooses and never by chance. It runs on a thread in the namespace in which it is started.
#ifndef KIV_TEST_RELAY_H
#define KIV_TEST_RELAY_H

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace kiv::test
{
// Sends the datagrams that come to the address `at` on to the address `to`.
class DatagramRelay
{
public:
    enum class Way
    {
        Pass,
        Lose,
        Double,
        Swap // sent after the next one
    };

    DatagramRelay(const sockaddr_in &at, const sockaddr_in &to) : m_to{to}
    {
        const int room = 1 << 22; // for a thread that has to wait; above the limit of ordinary users
        (void)setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
        const timeval turn{0, 20000}; // until the thread checks for its end
        EXPECT_EQ(setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &turn, sizeof turn), 0);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr *>(&at), sizeof at), 0);
        m_thread = std::jthread{[this](const std::stop_token &over)
                                {
                                    while (!over.stop_requested())
                                        take();
                                }};
    }
    DatagramRelay(const DatagramRelay &) = delete;
    DatagramRelay &operator=(const DatagramRelay &) = delete;
    ~DatagramRelay()
    {
        m_thread = {};
        close(m_socket);
    }

    // `choose` returns the way of each datagram by its number, from 0 on. The thread of the relay calls it.
    void choose(std::function<Way(size_t)> choose)
    {
        const std::lock_guard lock{m_mutex};
        m_choose = std::move(choose);
    }

private:
    void take()
    {
        std::string datagram(65536, '\0');
        const ssize_t size = recv(m_socket, datagram.data(), datagram.size(), 0);
        if (size < 0)
            return; // no datagram, or the error of an earlier one
        datagram.resize(static_cast<size_t>(size));
        const std::lock_guard lock{m_mutex};
        const Way way = m_choose ? m_choose(m_taken++) : Way::Pass;
        if (way == Way::Swap)
        {
            m_behind = std::move(datagram);
            return;
        }
        for (int copies = way == Way::Lose ? 0 : way == Way::Double ? 2 : 1; copies > 0; --copies)
            sendOn(datagram);
        if (!m_behind.empty())
            sendOn(std::exchange(m_behind, {}));
    }
    void sendOn(const std::string &datagram)
    {
        (void)sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&m_to),
                     sizeof m_to);
    }

    sockaddr_in m_to;
    int m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::mutex m_mutex;
    std::function<Way(size_t)> m_choose;
    size_t m_taken = 0;
    std::string m_behind;
    std::jthread m_thread;
};
} // namespace kiv::test

#endif
