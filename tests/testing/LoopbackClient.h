// A plain blocking TCP client for the tests of the loopback servers, a thread
// standing for the tracker's main loop, and a spy on a logger. Every wait has a
// deadline, so a server that never answers fails the test instead of hanging it.
#pragma once

#include "support/Log.h"

#include <asio.hpp>
#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace ombrelo::testing {

using namespace std::chrono_literals;

// Polls `condition` until it holds; false when `limit` passed first.
inline bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 5s) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// A thread running an event loop, like the tracker's main loop, for handlers
// to answer from. Runs what was posted before it ends.
class LoopThread {
public:
    LoopThread() : thread_([this] { io_.run(); }) {}
    ~LoopThread() {
        work_.reset();
        thread_.join();
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    void post(std::function<void()> task) { asio::post(io_, std::move(task)); }
    std::thread::id id() const { return thread_.get_id(); }

private:
    asio::io_context io_;
    asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(io_);
    std::thread thread_;
};

class LoopbackClient {
public:
    // Connects to `address`:`port`; connected() says whether it worked.
    explicit LoopbackClient(std::uint16_t port, const char* address = "127.0.0.1") {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in server{};
        server.sin_family = AF_INET;
        server.sin_port = htons(port);
        ::inet_pton(AF_INET, address, &server.sin_addr);
        connected_ = ::connect(fd_, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0;
    }
    ~LoopbackClient() { close(); }
    LoopbackClient(const LoopbackClient&) = delete;
    LoopbackClient& operator=(const LoopbackClient&) = delete;

    bool connected() const { return connected_; }

    // False when the server closed before taking everything.
    bool send(std::string_view bytes) {
        while (!bytes.empty()) {
            ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR) continue;
            if (sent < 0) return false;
            bytes.remove_prefix(std::size_t(sent));
        }
        return true;
    }
    void finishSending() { ::shutdown(fd_, SHUT_WR); }
    void close() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

    struct Reply {
        std::string bytes;
        bool closed = false;  // the server closed (or reset) the connection within the limit
    };
    // What arrives until the server closes, or until `limit` passes.
    Reply readAll(std::chrono::milliseconds limit = 5s) {
        Reply reply;
        auto deadline = std::chrono::steady_clock::now() + limit;
        char buffer[65536];
        for (;;) {
            auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd entry{fd_, POLLIN, 0};
            int ready = ::poll(&entry, 1, int(std::max<long long>(left.count(), 0)));
            if (ready < 0 && errno == EINTR) continue;
            if (ready <= 0) return reply;
            ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) {
                reply.closed = true;
                return reply;
            }
            reply.bytes.append(buffer, std::size_t(got));
        }
    }

private:
    int fd_ = -1;
    bool connected_ = false;
};

// A reply split into its status, head (status line included) and body.
struct HttpReply {
    int status = 0;
    std::string head;
    std::string body;
};

inline HttpReply splitReply(const std::string& bytes) {
    HttpReply reply;
    std::size_t end = bytes.find("\r\n\r\n");
    if (end == std::string::npos || bytes.size() < 12) return reply;
    reply.head = bytes.substr(0, end + 4);
    reply.body = bytes.substr(end + 4);
    reply.status = std::atoi(bytes.c_str() + 9);
    return reply;
}

// Copies what logger `category` writes, at every level, for the spy's life.
// REQUIRES: nothing logs on that logger from another thread while the spy is
// made or destroyed, nor while text() is read.
class LogSpy {
public:
    explicit LogSpy(std::string_view category)
        : logger_(Log::get(category)), sink_(std::make_shared<spdlog::sinks::ostream_sink_mt>(text_)),
          level_(logger_->level()) {
        logger_->sinks().push_back(sink_);
        logger_->set_level(spdlog::level::trace);
    }
    ~LogSpy() {
        auto& sinks = logger_->sinks();
        sinks.erase(std::remove(sinks.begin(), sinks.end(), sink_), sinks.end());
        logger_->set_level(level_);
    }
    LogSpy(const LogSpy&) = delete;
    LogSpy& operator=(const LogSpy&) = delete;

    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::shared_ptr<spdlog::logger> logger_;
    std::shared_ptr<spdlog::sinks::ostream_sink_mt> sink_;
    spdlog::level::level_enum level_;
};

} // namespace ombrelo::testing
