// The loopback listener over real sockets: one exchange per connection, answers
// made on another thread, the limits that keep a client from holding the
// tracker's resources, and a clean stop whatever is under way.
#include "http/Listener.h"
#include "testing/LoopbackClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace ombrelo::http {
namespace {

using namespace std::chrono_literals;
using ombrelo::testing::LoopbackClient;
using ombrelo::testing::LoopThread;
using ombrelo::testing::splitReply;
using ombrelo::testing::waitUntil;

// What the handlers saw, for the test's thread to look at.
struct Seen {
    std::mutex mutex;
    std::vector<Request> requests;
    std::vector<Respond> kept;  // answers held back by the test
    std::atomic<int> count{0};

    void add(Request request) {
        std::lock_guard lock(mutex);
        requests.push_back(std::move(request));
        ++count;
    }
};

// Answers "<method> <path> <body>" from the other thread.
Handler echo(LoopThread& other, Seen& seen) {
    return [&other, &seen](Request request, Respond respond) {
        std::string text = request.method + " " + request.path + " " + request.body;
        seen.add(std::move(request));
        other.post([respond, text] { respond(Response{200, text, "text/plain", {}}); });
    };
}

std::string roundTrip(std::uint16_t port, std::initializer_list<std::string_view> pieces) {
    LoopbackClient client(port);
    EXPECT_TRUE(client.connected());
    for (std::string_view piece : pieces) EXPECT_TRUE(client.send(piece));
    LoopbackClient::Reply reply = client.readAll();
    EXPECT_TRUE(reply.closed) << "the server keeps the connection open";
    return reply.bytes;
}

TEST(Listener, AnswersOneRequestPerConnectionOnTheLoopbackOnly) {
    LoopThread other;
    Seen seen;
    Listener listener(echo(other, seen), Limits{}, "http");
    std::uint16_t port = listener.start(0);
    ASSERT_NE(port, 0);
    EXPECT_EQ(listener.port(), port);

    // Head in three pieces, the blank line itself cut, the body in two.
    EXPECT_EQ(roundTrip(port, {"POST /mcp HTTP/1.1\r\nContent-", "Length: 7\r\n\r", "\n{\"a\"", ":1}"}),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 17\r\nConnection: close\r\n\r\n"
              "POST /mcp {\"a\":1}");
    // What follows the body is not a second request.
    EXPECT_EQ(splitReply(roundTrip(port, {"GET /a\r\n\r\nGET /b\r\n\r\n"})).body, "GET /a ");
    EXPECT_EQ(seen.count, 2);
    EXPECT_TRUE(waitUntil([&] { return listener.connections() == 0; }));

    // Bound to 127.0.0.1, not to every address: 127.0.0.2 is this machine too.
    LoopbackClient elsewhere(port, "127.0.0.2");
    EXPECT_FALSE(elsewhere.connected());

    // A taken port is an error, and nothing is left running.
    Listener second(echo(other, seen), Limits{}, "http");
    EXPECT_THROW(second.start(port), std::system_error);
    EXPECT_FALSE(second.running());
    EXPECT_EQ(second.port(), 0);

    // Stopped, the port is free again and the listener can start anew.
    listener.stop();
    EXPECT_FALSE(listener.running());
    EXPECT_EQ(second.start(port), port);
    EXPECT_EQ(splitReply(roundTrip(port, {"POST /again\r\n\r\n"})).status, 200);
}

TEST(Listener, RefusesMalformedAndOversizeRequestsWithoutTheHandler) {
    LoopThread other;
    Seen seen;
    Listener listener(echo(other, seen), Limits{}, "http");
    std::uint16_t port = listener.start(0);
    const std::string empty400 =
        "HTTP/1.1 400 Bad Request\r\nContent-Type: application/json\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";

    EXPECT_EQ(roundTrip(port, {"NOTHING\r\n\r\n"}), empty400);

    // More than the limit: answered 413 although the client is still sending
    // (the rest is read and dropped, so the answer is not lost to a reset).
    std::string head = "POST /mcp\r\nX-Pad: " + std::string(20'000, 'p') + "\r\nContent-Length: 1000000\r\n\r\n";
    std::string reply = roundTrip(port, {head, std::string(1'000'000, 'b')});
    EXPECT_EQ(splitReply(reply).status, 413);
    EXPECT_EQ(splitReply(reply).body, "");
    EXPECT_EQ(splitReply(roundTrip(port, {std::string(1'100'000, 'x')})).status, 413);

    // Right at the limit is still a request.
    std::string atLimit = "POST /mcp\r\nContent-Length: 1000000\r\n\r\n";
    atLimit += std::string(1'000'000, 'b');
    EXPECT_EQ(splitReply(roundTrip(port, {atLimit})).status, 200);
    EXPECT_EQ(seen.count, 1);
}

TEST(Listener, DropsClientsThatStallOrLeaveAndAnswersNobodyTwice) {
    LoopThread other;
    Seen seen;
    std::atomic<bool> dropAnswer{false}, answerTwice{false};
    Handler handler = [&](Request request, Respond respond) {
        seen.add(std::move(request));
        if (dropAnswer) return;  // the only copy of `respond` goes with this frame
        other.post([respond, &answerTwice] {
            respond(Response{200, "first", "text/plain", {}});
            if (answerTwice) respond(Response{200, "second", "text/plain", {}});
        });
    };
    Listener listener(handler, Limits{150ms, 16}, "http");
    std::uint16_t port = listener.start(0);

    // Half a head, then the client leaves: no answer, the connection let go.
    {
        LoopbackClient client(port);
        client.send("POST /mcp HTTP/1.1\r\nHost: 127.");
        client.finishSending();
        LoopbackClient::Reply reply = client.readAll();
        EXPECT_TRUE(reply.closed);
        EXPECT_EQ(reply.bytes, "");
    }
    // Half a head, then silence: closed by the read timeout, unanswered.
    {
        LoopbackClient client(port);
        client.send("POST /mcp HTTP/1.1\r\nContent-Length: 10\r\n\r\n{\"a\"");
        auto started = std::chrono::steady_clock::now();
        LoopbackClient::Reply reply = client.readAll(10s);
        EXPECT_TRUE(reply.closed);
        EXPECT_EQ(reply.bytes, "");
        EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
    }
    EXPECT_TRUE(waitUntil([&] { return listener.connections() == 0; }));
    EXPECT_EQ(seen.count, 0);

    // An answer given twice is sent once.
    answerTwice = true;
    EXPECT_EQ(splitReply(roundTrip(port, {"POST /mcp\r\n\r\n"})).body, "first");
    // An answer dropped unmade closes the connection instead of holding it.
    dropAnswer = true;
    EXPECT_EQ(roundTrip(port, {"POST /mcp\r\n\r\n"}), "");
    EXPECT_TRUE(waitUntil([&] { return listener.connections() == 0; }));
    EXPECT_EQ(seen.count, 2);
}

TEST(Listener, ClosesConnectionsOverTheCapAtOnce) {
    LoopThread other;
    Seen seen;
    // A long timeout: only the cap can close the extra connection quickly.
    Listener listener(echo(other, seen), Limits{60s, 2}, "http");
    std::uint16_t port = listener.start(0);

    auto first = std::make_unique<LoopbackClient>(port);
    LoopbackClient second(port);
    first->send("POST /mcp");
    second.send("POST /mcp");
    ASSERT_TRUE(waitUntil([&] { return listener.connections() == 2; }));

    LoopbackClient third(port);
    LoopbackClient::Reply refused = third.readAll(10s);
    EXPECT_TRUE(refused.closed);
    EXPECT_EQ(refused.bytes, "");
    EXPECT_EQ(listener.connections(), 2u);

    // One leaves: there is room again.
    first.reset();
    ASSERT_TRUE(waitUntil([&] { return listener.connections() == 1; }));
    EXPECT_EQ(splitReply(roundTrip(port, {"POST /mcp\r\n\r\n"})).status, 200);
    EXPECT_EQ(seen.count, 1);
}

TEST(Listener, StopsWithAnswersPendingAndIgnoresThemAfterwards) {
    LoopThread other;
    Seen seen;
    Handler keep = [&seen](Request request, Respond respond) {
        std::lock_guard lock(seen.mutex);
        seen.kept.push_back(std::move(respond));
        seen.requests.push_back(std::move(request));
        ++seen.count;
    };
    auto listener = std::make_unique<Listener>(keep, Limits{}, "http");
    std::uint16_t port = listener->start(0);

    LoopbackClient waiting(port), reading(port);
    waiting.send("POST /mcp\r\n\r\n");
    reading.send("POST /m");
    ASSERT_TRUE(waitUntil([&] { return seen.count == 1 && listener->connections() == 2; }));

    // Answered from the other thread while the listener stops, then after.
    std::atomic<bool> answered{false};
    other.post([&] {
        std::lock_guard lock(seen.mutex);
        seen.kept.front()(Response{200, "late", "text/plain", {}});
        answered = true;
    });
    listener->stop();
    EXPECT_TRUE(waitUntil([&] { return answered.load(); }));
    EXPECT_EQ(listener->connections(), 0u);
    LoopbackClient::Reply gone = reading.readAll();
    EXPECT_TRUE(gone.closed);
    EXPECT_EQ(gone.bytes, "");
    EXPECT_TRUE(waiting.readAll().closed);

    // Answers, and the last copies of `respond` going, once the listener is
    // gone altogether.
    listener.reset();
    std::lock_guard lock(seen.mutex);
    seen.kept.front()(Response{200, "later still", "text/plain", {}});
    seen.kept.clear();
}

} // namespace
} // namespace ombrelo::http
