// The agent server over real sockets: what passes the gate reaches the tools on
// the main loop and comes back in its JSON-RPC envelope; everything else is
// refused with the status an agent's client expects, and nothing of it reaches
// the tools or the log.
#include "agent/MCPServer.h"
#include "http/LocalAddress.h"
#include "testing/LoopbackClient.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <mutex>
#include <stdexcept>

namespace ombrelo {
namespace {

using nlohmann::json;
using testing::HttpReply;
using testing::LoopbackClient;
using testing::splitReply;
using testing::waitUntil;

const std::string token = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

std::string request(std::string_view line, const std::vector<std::string>& headers, std::string_view body) {
    std::string out = std::string(line) + "\r\n";
    for (const std::string& header : headers) out += header + "\r\n";
    out += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    out += body;
    return out;
}

HttpReply roundTrip(std::uint16_t port, const std::string& bytes) {
    LoopbackClient client(port);
    EXPECT_TRUE(client.send(bytes));
    LoopbackClient::Reply reply = client.readAll();
    EXPECT_TRUE(reply.closed);
    return splitReply(reply.bytes);
}

std::string emptyHead(std::string_view statusLine) {
    return std::string(statusLine) +
           "\r\nContent-Type: application/json\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
}

class MCPServerTest : public ::testing::Test {
protected:
    testing::ScopedLanguage french{"fr"};
    // What the tools saw; before the loop, which may still run them as it ends.
    std::mutex mutex;
    std::vector<json> seen;
    std::vector<std::thread::id> threads;
    std::vector<MCPServer::Completion> held;
    testing::LoopThread main;
    MCPServer server{token,
                     [this](json message, MCPServer::Completion done) { tools(std::move(message), std::move(done)); },
                     [this](std::function<void()> task) { main.post(std::move(task)); }};
    std::uint16_t port = server.start(0);
    const std::string authorization = "Authorization: Bearer " + token;

    void tools(json message, MCPServer::Completion done) {
        std::string method = message.value("method", "");
        {
            std::lock_guard lock(mutex);
            seen.push_back(message);
            threads.push_back(std::this_thread::get_id());
            if (method == "hold") {
                held.push_back(std::move(done));
                return;
            }
        }
        if (method == "initialize")
            done(json{{"serverInfo", {{"name", "ombrelo"}, {"version", "0.1"}}}, {"protocolVersion", "2025-03-26"}});
        else if (method == "throw")
            throw std::runtime_error("tool failure");
        else if (method != "drop")
            done(MCPServer::RPCError{MCPServer::methodNotFound, "Méthode inconnue : " + method});
    }
    std::size_t seenCount() {
        std::lock_guard lock(mutex);
        return seen.size();
    }
    HttpReply post(const std::string& body, std::vector<std::string> headers = {}) {
        headers.push_back(authorization);
        return roundTrip(port, request("POST /mcp HTTP/1.1", headers, body));
    }
    int status(std::string_view line, const std::vector<std::string>& headers,
               std::string_view body = R"({"jsonrpc":"2.0","id":1,"method":"initialize"})") {
        return roundTrip(port, request(line, headers, body)).status;
    }
};

TEST_F(MCPServerTest, AnswersRequestsOnTheMainLoopAndNotificationsAtOnce) {
    HttpReply reply = post(R"({"jsonrpc": "2.0", "id": 1, "method": "initialize", "params": {}})",
                           {"Host: 127.0.0.1:8473", "Content-Type: application/json"});
    const std::string body =
        R"({"id":1,"jsonrpc":"2.0","result":{"protocolVersion":"2025-03-26",)"
        R"("serverInfo":{"name":"ombrelo","version":"0.1"}}})";
    EXPECT_EQ(reply.head, "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                              std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(reply.body, body);

    // The id comes back exactly as sent, whatever its kind; errors are 200 too.
    EXPECT_EQ(post(R"({"id":"a-b","method":"x"})").body,
              R"({"error":{"code":-32601,"message":"Méthode inconnue : x"},"id":"a-b","jsonrpc":"2.0"})");
    EXPECT_EQ(post(R"({"id":null,"method":"x"})").body,
              R"({"error":{"code":-32601,"message":"Méthode inconnue : x"},"id":null,"jsonrpc":"2.0"})");
    EXPECT_EQ(post(R"({"id":{"z":1,"a":[2.5,true]},"method":"initialize"})").body.substr(0, 28),
              R"({"id":{"a":[2.5,true],"z":1})");

    // A notification: 202 with nothing, and the tools never see it.
    std::size_t before = seenCount();
    reply = post(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
    EXPECT_EQ(reply.head, emptyHead("HTTP/1.1 202 Accepted"));
    EXPECT_EQ(reply.body, "");
    EXPECT_EQ(seenCount(), before);

    // Split across segments, with a query after the path.
    LoopbackClient client(port);
    std::string bytes = request("POST /mcp?session=1 HTTP/1.1", {authorization}, R"({"id":9,"method":"initialize"})");
    for (std::size_t at = 0; at < bytes.size(); at += 17) ASSERT_TRUE(client.send(bytes.substr(at, 17)));
    EXPECT_EQ(splitReply(client.readAll().bytes).status, 200);

    std::lock_guard lock(mutex);
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(seen.front()["params"], json::object());
    for (std::thread::id thread : threads) EXPECT_EQ(thread, main.id());
}

TEST_F(MCPServerTest, RefusesRequestsWithoutTheRightToken) {
    HttpReply reply = roundTrip(port, request("POST /mcp HTTP/1.1", {"Host: localhost"}, R"({"id":1,"method":"x"})"));
    EXPECT_EQ(reply.head, "HTTP/1.1 401 Unauthorized\r\nContent-Type: application/json\r\nContent-Length: 0\r\n"
                          "Connection: close\r\nWWW-Authenticate: Bearer\r\n\r\n");
    EXPECT_EQ(reply.body, "");

    std::string wrong = token;
    wrong.back() = wrong.back() == '0' ? '1' : '0';
    for (const std::string& header : {"Authorization: Bearer " + wrong, "Authorization: bearer " + token,
                                      "Authorization: Bearer  " + token, "Authorization: Bearer " + token + "0",
                                      "Authorization: Bearer " + token.substr(1), "Authorization: " + token,
                                      std::string("Authorization: Bearer"), "X-Authorization: Bearer " + token})
        EXPECT_EQ(status("POST /mcp HTTP/1.1", {header}), 401) << header;
    EXPECT_EQ(seenCount(), 0u);

    // The name in any case, the value with blanks around it, are the same header.
    EXPECT_EQ(status("POST /mcp HTTP/1.1", {"AUTHORIZATION: \t Bearer " + token + " "}), 200);
}

TEST_F(MCPServerTest, RefusesHostsAndOriginsOfOtherMachines) {
    // DNS rebinding: a page on evil.example resolved to 127.0.0.1 sends its own name.
    for (const char* host : {"Host: evil.example:8473", "Host: localhost.evil.example", "Host: [::1]:8473",
                             "Host: 127.0.0.2", "Host:"})
        EXPECT_EQ(status("POST /mcp HTTP/1.1", {host, authorization}), 403) << host;
    for (const char* origin : {"Origin: https://evil.example", "Origin: null", "Origin: http://localhost.evil.example",
                               "Origin: http://localhost@evil.example"})
        EXPECT_EQ(status("POST /mcp HTTP/1.1", {origin, authorization}), 403) << origin;
    // Checked before the token, which a foreign page cannot be told apart by.
    EXPECT_EQ(status("POST /mcp HTTP/1.1", {"Host: evil.example"}), 403);
    EXPECT_EQ(seenCount(), 0u);

    for (const char* local : {"Host: 127.0.0.1:8473", "Host: LOCALHOST", "Origin: http://localhost:3000",
                              "Origin: vscode-webview://127.0.0.1"})
        EXPECT_EQ(status("POST /mcp HTTP/1.1", {local, authorization}), 200) << local;
    EXPECT_EQ(status("POST /mcp HTTP/1.1", {authorization}), 200);  // neither sent
}

TEST_F(MCPServerTest, RefusesOtherPathsMethodsAndBodiesThatAreNotObjects) {
    EXPECT_EQ(roundTrip(port, request("GET /mcp HTTP/1.1", {authorization}, "")).head,
              emptyHead("HTTP/1.1 405 Method Not Allowed"));
    EXPECT_EQ(roundTrip(port, request("POST /other HTTP/1.1", {authorization}, "{}")).head,
              emptyHead("HTTP/1.1 404 Not Found"));
    EXPECT_EQ(status("GET /other HTTP/1.1", {}), 404);  // the path before the method, the method before the token
    EXPECT_EQ(status("post /mcp HTTP/1.1", {authorization}), 405);
    for (const char* line : {"POST /MCP HTTP/1.1", "POST /mcp/ HTTP/1.1", "POST ?/mcp HTTP/1.1", "POST mcp HTTP/1.1"})
        EXPECT_EQ(status(line, {authorization}), 404) << line;

    const std::string invalid = R"({"error":{"code":-32700,"message":"JSON invalide"},"id":null,"jsonrpc":"2.0"})";
    for (const char* body : {R"([{"jsonrpc":"2.0","id":1,"method":"initialize"}])", "not json", R"("text")", "42",
                             "", R"({"id":1,"method":"initialize")", "{\"id\":\"\xff\"}"}) {
        HttpReply reply = post(body);
        EXPECT_EQ(reply.status, 400) << body;
        EXPECT_EQ(reply.body, invalid) << body;
    }
    // A Content-Length that is not a number reads as 0: an empty body.
    HttpReply unread = roundTrip(port, "POST /mcp HTTP/1.1\r\n" + authorization + "\r\nContent-Length: abc\r\n\r\n{}");
    EXPECT_EQ(unread.body, invalid);
    HttpReply tooLong =
        roundTrip(port, "POST /mcp HTTP/1.1\r\n" + authorization + "\r\nContent-Length: 1000001\r\n\r\n");
    EXPECT_EQ(tooLong.head, emptyHead("HTTP/1.1 400 Bad Request"));

    // Nesting too deep for the tracker to echo is refused; ordinary depth passes.
    auto nested = [](int depth) {
        return R"({"method":"initialize","id":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
    };
    EXPECT_EQ(post(nested(5000)).status, 400);
    EXPECT_EQ(post(nested(50)).status, 200);
    EXPECT_EQ(seenCount(), 1u);

    testing::ScopedLanguage english("en");
    MCPServer inEnglish(token, [](json, MCPServer::Completion) {}, [](std::function<void()>) {});
    std::uint16_t other = inEnglish.start(0);
    EXPECT_EQ(roundTrip(other, request("POST /mcp", {authorization}, "[]")).body,
              R"({"error":{"code":-32700,"message":"Invalid JSON"},"id":null,"jsonrpc":"2.0"})");
}

TEST_F(MCPServerTest, OutlivesToolsThatThrowDropOrAnswerAfterTheStop) {
    EXPECT_EQ(post(R"({"id":3,"method":"throw"})").body,
              R"({"error":{"code":-32603,"message":"Erreur interne"},"id":3,"jsonrpc":"2.0"})");
    // Dropped unanswered: the connection closes rather than waiting for ever.
    HttpReply dropped = post(R"({"id":4,"method":"drop"})");
    EXPECT_EQ(dropped.status, 0);
    EXPECT_TRUE(waitUntil([&] { return server.connections() == 0; }));

    LoopbackClient client(port);
    client.send(request("POST /mcp", {authorization}, R"({"id":5,"method":"hold"})"));
    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard lock(mutex);
        return held.size() == 1;
    }));
    server.stop();
    EXPECT_FALSE(server.running());
    LoopbackClient::Reply reply = client.readAll();
    EXPECT_TRUE(reply.closed);
    EXPECT_EQ(reply.bytes, "");
    // Answered on the main loop once the server is gone: dropped quietly.
    std::atomic<bool> answered{false};
    main.post([&] {
        std::lock_guard lock(mutex);
        held.front()(json::object());
        held.clear();
        answered = true;
    });
    EXPECT_TRUE(waitUntil([&] { return answered.load(); }));
}

TEST(MCPServerGate, TellsLocalNamesAndTokensApart) {
    for (std::string_view host : {"127.0.0.1", "127.0.0.1:8473", "localhost", "LocalHost:1", ":localhost"})
        EXPECT_TRUE(http::isLocalHost(host)) << host;
    for (std::string_view host : {"", ":", "evil.example:8473", "127.0.0.1.evil.example", "[::1]", "::1", "127.0.0.2",
                                  "localhost.", " localhost", "0.0.0.0"})
        EXPECT_FALSE(http::isLocalHost(host)) << host;

    for (std::string_view origin : {"http://localhost:3000", "https://127.0.0.1", "HTTP://LOCALHOST",
                                    "http://localhost/", "http://user@localhost:1/x?y#z", "app+x.y-z://localhost:"})
        EXPECT_TRUE(http::isLocalOrigin(origin)) << origin;
    for (std::string_view origin : {"null", "", "localhost", "http://", "http:localhost", "://localhost",
                                    "http://evil.example", "http://localhost.evil.example",
                                    "http://localhost@evil.example", "http://evil.example#@localhost",
                                    "http://[::1]:3000", "http://localhost:30a0", "http://local host",
                                    "http://localhost\t", "1http://localhost", "http://%6cocalhost"})
        EXPECT_FALSE(http::isLocalOrigin(origin)) << origin;

    EXPECT_TRUE(http::constantTimeEqual("", ""));
    EXPECT_TRUE(http::constantTimeEqual(token, token));
    EXPECT_FALSE(http::constantTimeEqual(token, token.substr(0, 63)));
    EXPECT_FALSE(http::constantTimeEqual("Bearer a", "Bearer b"));
    EXPECT_FALSE(http::constantTimeEqual("xearer a", "Bearer a"));

}

TEST(MCPServerLog, SaysWhereItListensOrWhyNotAndNeverTheToken) {
    testing::ScopedLanguage french("fr");
    testing::LogSpy spy("mcp");
    testing::LoopThread main;
    std::uint16_t port = 0;
    {
        MCPServer server(token, [](json, MCPServer::Completion done) { done(json::object()); },
                         [&main](std::function<void()> task) { main.post(std::move(task)); });
        port = server.start(0);

        MCPServer second(token, [](json, MCPServer::Completion) {}, [](std::function<void()>) {});
        try {
            second.start(port);
            ADD_FAILURE() << "a second server on a taken port";
        } catch (const std::system_error& failure) {
            EXPECT_EQ(MCPServer::portUnavailable(port, failure.code()),
                      "Port " + std::to_string(port) + " indisponible : " + failure.code().message());
        }

        std::string body = R"({"id":1,"method":"initialize"})";
        EXPECT_EQ(roundTrip(port, request("POST /mcp", {"Authorization: Bearer " + token}, body)).status, 200);
        EXPECT_EQ(roundTrip(port, request("POST /mcp", {"Authorization: Bearer " + token + "0"}, body)).status, 401);
        EXPECT_EQ(roundTrip(port, request("POST /mcp", {"Authorization: bearer " + token}, body)).status, 401);
        EXPECT_EQ(roundTrip(port, request("POST /mcp", {"Authorization: Bearer " + token}, "[")).status, 400);
        EXPECT_EQ(roundTrip(port, request("POST /mcp", {"Host: evil", "Authorization: Bearer " + token}, body)).status,
                  403);
    }
    std::string log = spy.text();
    EXPECT_NE(log.find("MCP à l'écoute sur 127.0.0.1:" + std::to_string(port)), std::string::npos) << log;
    EXPECT_NE(log.find("MCP : Address already in use"), std::string::npos) << log;
    EXPECT_NE(log.find("MCP : requête refusée (401)"), std::string::npos) << log;
    EXPECT_EQ(log.find(token), std::string::npos) << log;
    EXPECT_EQ(log.find(token.substr(0, 16)), std::string::npos) << log;
    EXPECT_EQ(log.find("earer"), std::string::npos) << log;
}

} // namespace
} // namespace ombrelo
