// A UDP relay on loopback that stands between one client and a server (here the
// agent's IPMI source and the BMC simulator): it forwards every datagram, can
// hold the client's datagrams back for a while (a slow BMC) or drop everything
// (a BMC that is gone), and counts and time-stamps what it forwards, which gives
// the tests a count of the commands sent to the server that does not depend on
// the client's own bookkeeping.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace hmtest {

class UdpDelayProxy {
public:
    using Clock = std::chrono::steady_clock;

    // One forwarded datagram: when it left the relay and which way it went.
    struct Forwarded {
        Clock::time_point at;
        bool toServer;
    };

    // Relays between a port of its own on 127.0.0.1 and `serverPort` there.
    explicit UdpDelayProxy(unsigned serverPort) {
        m_front = bound();
        m_back = bound();
        sockaddr_in server = loopback(serverPort);
        if (m_back >= 0 && connect(m_back, reinterpret_cast<sockaddr*>(&server), sizeof server) != 0) {
            close(m_back);
            m_back = -1;
        }
        if (m_front >= 0 && m_back >= 0)
            m_thread = std::thread([this] { run(); });
    }
    ~UdpDelayProxy() {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
        for (int fd : {m_front, m_back})
            if (fd >= 0)
                close(fd);
    }
    UdpDelayProxy(const UdpDelayProxy&) = delete;
    UdpDelayProxy& operator=(const UdpDelayProxy&) = delete;

    bool running() const { return m_thread.joinable(); }
    // The port clients send to.
    unsigned port() const {
        sockaddr_in a{};
        socklen_t len = sizeof a;
        if (m_front < 0 || getsockname(m_front, reinterpret_cast<sockaddr*>(&a), &len) != 0)
            return 0;
        return ntohs(a.sin_port);
    }

    // Datagrams from the client reach the server this much later (answers are
    // not held back).
    void setDelay(std::chrono::milliseconds delay) { m_delayMs = delay.count(); }
    // Drops every datagram, both ways, also those already held back.
    void setSilent(bool silent) { m_silent = silent; }

    // Everything forwarded so far.
    std::vector<Forwarded> forwarded() const {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_forwarded;
    }
    uint64_t dropped() const { return m_dropped; }

private:
    struct Pending {
        Clock::time_point due;
        std::vector<char> bytes;
    };

    static sockaddr_in loopback(unsigned port) {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(uint16_t(port));
        return a;
    }
    static int bound() {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in a = loopback(0);
        if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            close(fd);
            return -1;
        }
        return fd;
    }

    void record(bool toServer) {
        std::lock_guard<std::mutex> guard(m_lock);
        m_forwarded.push_back({Clock::now(), toServer});
    }

    void run() {
        std::deque<Pending> toServer; // in arrival order; every datagram is held equally long
        std::vector<char> buffer(65536);
        while (!m_stop) {
            const auto now = Clock::now();
            while (!toServer.empty() && toServer.front().due <= now) {
                if (m_silent) {
                    ++m_dropped;
                } else if (send(m_back, toServer.front().bytes.data(), toServer.front().bytes.size(), 0) >=
                           0) {
                    record(true);
                }
                toServer.pop_front();
            }
            int waitMs = 20;
            if (!toServer.empty())
                waitMs = int(std::min<int64_t>(
                    waitMs, std::chrono::duration_cast<std::chrono::milliseconds>(toServer.front().due - now)
                                    .count() +
                                1));
            pollfd fds[2] = {{m_front, POLLIN, 0}, {m_back, POLLIN, 0}};
            if (poll(fds, 2, waitMs) <= 0)
                continue;
            if (fds[0].revents & (POLLIN | POLLERR)) {
                sockaddr_in from{};
                socklen_t len = sizeof from;
                const ssize_t n = recvfrom(m_front, buffer.data(), buffer.size(), 0,
                                           reinterpret_cast<sockaddr*>(&from), &len);
                if (n >= 0) {
                    m_client = from;
                    m_haveClient = true;
                    if (m_silent)
                        ++m_dropped;
                    else
                        toServer.push_back({Clock::now() + std::chrono::milliseconds(m_delayMs.load()),
                                            std::vector<char>(buffer.begin(), buffer.begin() + n)});
                }
            }
            if (fds[1].revents & (POLLIN | POLLERR)) { // an error is read to clear it
                const ssize_t n = recv(m_back, buffer.data(), buffer.size(), 0);
                if (n >= 0) {
                    if (m_silent || !m_haveClient)
                        ++m_dropped;
                    else if (sendto(m_front, buffer.data(), size_t(n), 0,
                                    reinterpret_cast<sockaddr*>(&m_client), sizeof m_client) >= 0)
                        record(false);
                }
            }
        }
    }

    int m_front = -1, m_back = -1;
    sockaddr_in m_client{};
    bool m_haveClient = false; // relay thread only, like m_client
    std::atomic<bool> m_stop{false}, m_silent{false};
    std::atomic<int64_t> m_delayMs{0};
    std::atomic<uint64_t> m_dropped{0};
    mutable std::mutex m_lock;
    std::vector<Forwarded> m_forwarded;
    std::thread m_thread;
};

} // namespace hmtest
