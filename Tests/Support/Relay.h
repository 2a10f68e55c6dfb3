// Relays of a test's own between two sockets: what comes is delayed, held, lost, sent in another order, cut
// off halfway or ended by a reset, when the test says so and never by chance. They run on a thread inside
// the namespace they are started in.
#ifndef KIV_TEST_RELAY_H
#define KIV_TEST_RELAY_H

#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace kiv::test
{
// One thread that waits for a socket, for what is due, or for the test, which hands it work to do.
class RelayThread
{
public:
    RelayThread(const RelayThread &) = delete;
    RelayThread &operator=(const RelayThread &) = delete;

protected:
    RelayThread() = default;
    ~RelayThread()
    {
        EXPECT_FALSE(m_thread.joinable()) << "stop() comes first";
        close(m_wake);
    }

    static int bound(int type, const sockaddr_in &address)
    {
        const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        return fd;
    }

    // Calls `ready` with each of the descriptors that can be read, until stop().
    void start(std::function<std::array<int, 2>()> descriptors, std::function<void(int)> ready)
    {
        m_thread = std::thread{[this, descriptors = std::move(descriptors), ready = std::move(ready)]
                               {
                                   while (!m_ends)
                                       turn(descriptors(), ready);
                               }};
    }
    void stop()
    {
        run([this] { m_ends = true; });
        m_thread.join();
    }

    // Runs `work` on the relay's thread, between two of its turns, and waits until it is done.
    void run(const std::function<void()> &work)
    {
        std::unique_lock lock{m_mutex};
        m_work = &work;
        const uint64_t one = 1;
        EXPECT_EQ(write(m_wake, &one, sizeof one), static_cast<ssize_t>(sizeof one));
        m_done.wait(lock, [this] { return m_work == nullptr; });
    }

    // From now on what comes goes on so much later.
    void delay(std::chrono::milliseconds time)
    {
        run([this, time] { m_delay = time; });
    }
    // On the relay's thread: `work` when the delay of what has come now is over, in the order of coming.
    void pass(std::function<void()> work)
    {
        m_due.emplace(Clock::now() + m_delay, std::move(work));
    }

private:
    using Clock = std::chrono::steady_clock;

    void turn(const std::array<int, 2> &descriptors, const std::function<void(int)> &ready)
    {
        std::array<pollfd, 3> waits{pollfd{m_wake, POLLIN, 0}, pollfd{descriptors[0], POLLIN, 0},
                                    pollfd{descriptors[1], POLLIN, 0}};
        int wait = -1;
        if (!m_due.empty())
            wait = std::max(0, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(
                                                    m_due.begin()->first - Clock::now())
                                                    .count()));
        EXPECT_GE(poll(waits.data(), waits.size(), wait), 0);
        while (!m_due.empty() && m_due.begin()->first <= Clock::now())
            m_due.extract(m_due.begin()).mapped()();
        for (size_t index = 1; index < waits.size(); ++index)
            if (waits[index].revents != 0)
                ready(waits[index].fd);
        if (waits[0].revents == 0)
            return;
        uint64_t count = 0;
        EXPECT_EQ(read(m_wake, &count, sizeof count), static_cast<ssize_t>(sizeof count));
        const std::lock_guard lock{m_mutex};
        (*m_work)();
        m_work = nullptr;
        m_done.notify_one();
    }

    int m_wake = eventfd(0, EFD_CLOEXEC);
    bool m_ends = false; // of the relay's thread, with the two below
    std::chrono::milliseconds m_delay{0};
    std::multimap<Clock::time_point, std::function<void()>> m_due;
    std::mutex m_mutex;
    std::condition_variable m_done;
    const std::function<void()> *m_work = nullptr;
    std::thread m_thread;
};

// Datagrams on their way to `to`. Whoever sends to the relay's address is relayed.
class DatagramRelay : RelayThread
{
public:
    DatagramRelay(const sockaddr_in &at, const sockaddr_in &to) : m_to{to}, m_socket{bound(SOCK_DGRAM, at)}
    {
        start([this] { return std::array{m_socket, -1}; }, [this](int) { take(); });
    }
    ~DatagramRelay()
    {
        stop();
        close(m_socket);
    }

    using RelayThread::delay;

    // From now on nothing goes on until release().
    void hold()
    {
        run([this] { m_holds = true; });
    }
    // Waits until so many are held.
    void awaitHeld(size_t count)
    {
        while (m_heldCount.load() < count)
            std::this_thread::yield();
    }
    // Sends what was held on, in the order given: indices of the datagrams; those not named are lost.
    void release(std::initializer_list<size_t> order)
    {
        run(
            [this, order]
            {
                for (const size_t index : order)
                    sendOn(m_held.at(index));
                m_held.clear();
                m_heldCount = 0;
                m_holds = false;
            });
    }

    enum class Way
    {
        Pass,
        Lose,
        Double,
        Swap // behind the next one
    };
    // From now on `choose` says what becomes of each datagram, by its number from 0. On the relay's thread.
    void choose(std::function<Way(size_t)> choose)
    {
        run([this, &choose] { m_choose = std::move(choose); });
    }

private:
    void treat(std::string datagram)
    {
        const Way way = m_choose(m_taken++);
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
    void take()
    {
        std::string datagram(65536, '\0');
        const ssize_t size = recv(m_socket, datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (size < 0)
            return; // an error that an earlier datagram came back with
        datagram.resize(static_cast<size_t>(size));
        if (m_choose)
            return treat(std::move(datagram));
        if (!m_holds)
            return pass([this, datagram] { sendOn(datagram); });
        m_held.push_back(std::move(datagram));
        ++m_heldCount;
    }
    void sendOn(const std::string &datagram)
    {
        (void)sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&m_to),
                     sizeof m_to);
    }

    sockaddr_in m_to;
    int m_socket;
    bool m_holds = false;
    std::deque<std::string> m_held;
    std::function<Way(size_t)> m_choose;
    size_t m_taken = 0;
    std::string m_behind;
    std::atomic<size_t> m_heldCount = 0;
};

// One connection to the relay's address, passed on to `to` byte by byte.
class StreamRelay : RelayThread
{
public:
    StreamRelay(const sockaddr_in &at, const sockaddr_in &to) : m_to{to}, m_listener{bound(SOCK_STREAM, at)}
    {
        EXPECT_EQ(listen(m_listener, 1), 0);
        start(
            [this]
            {
                return m_near < 0 ? std::array{m_listener, -1}
                                  : std::array{m_nearEnded ? -1 : m_near, m_farEnded ? -1 : m_far};
            },
            [this](int fd) { fd == m_listener ? join() : take(fd == m_near); });
    }
    ~StreamRelay()
    {
        stop();
        for (const int fd : {m_listener, m_near, m_far})
            if (fd >= 0)
                close(fd);
    }

    using RelayThread::delay;

    // The near side sees no more data, while its own still goes on.
    void halfClose()
    {
        run([this] { EXPECT_EQ(shutdown(m_near, SHUT_WR), 0); });
    }
    // The near side is reset; the far one sees an end.
    void reset()
    {
        run(
            [this]
            {
                const linger now{1, 0};
                EXPECT_EQ(setsockopt(m_near, SOL_SOCKET, SO_LINGER, &now, sizeof now), 0);
                close(m_near);
                close(m_far);
                m_near = m_far = -1;
            });
    }

private:
    void join()
    {
        m_near = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        m_far = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(connect(m_far, reinterpret_cast<sockaddr *>(&m_to), sizeof m_to), 0);
    }
    void take(bool fromNear)
    {
        std::string bytes(4096, '\0');
        const ssize_t size = recv(fromNear ? m_near : m_far, bytes.data(), bytes.size(), 0);
        bytes.resize(size > 0 ? static_cast<size_t>(size) : 0);
        if (bytes.empty())
            (fromNear ? m_nearEnded : m_farEnded) = true; // nothing more to wait for
        pass(
            [this, fromNear, bytes]
            {
                const int to = fromNear ? m_far : m_near;
                if (bytes.empty())
                    (void)shutdown(to, SHUT_WR);
                else
                    (void)send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            });
    }

    sockaddr_in m_to;
    int m_listener;
    int m_near = -1;
    int m_far = -1;
    bool m_nearEnded = false;
    bool m_farEnded = false;
};
} // namespace kiv::test

#endif
