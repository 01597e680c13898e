// The window's server over real sockets: a browser that came through a ticket
// reaches the API on the main loop; another local program, a web page under a
// rebinding name or from its own origin, and a stolen cookie get nothing.
#include "testing/LoopbackClient.h"
#include "testing/TestSupport.h"
#include "ui/Assets.h"
#include "ui/WindowServer.h"

#include <gtest/gtest.h>

#include <mutex>

namespace ombrelo::ui {
namespace {

using nlohmann::json;
using ombrelo::testing::HttpReply;
using ombrelo::testing::LoopbackClient;
using ombrelo::testing::splitReply;

std::string header(const HttpReply& reply, std::string_view name) {
    std::string head = reply.head;
    std::string wanted = "\r\n" + std::string(name) + ": ";
    std::size_t at = head.find(wanted);
    if (at == std::string::npos) return {};
    std::size_t start = at + wanted.size();
    return head.substr(start, head.find("\r\n", start) - start);
}

class WindowServerTest : public ::testing::Test {
protected:
    ombrelo::testing::ScopedLanguage french{"fr"};
    std::mutex mutex;
    std::vector<Call> calls;
    ombrelo::testing::LoopThread main;
    WindowServer server{[this](const Call& call) {
                            std::lock_guard lock(mutex);
                            calls.push_back(call);
                            if (call.path == "/api/file") return Reply{200, "a;b\r\n", "text/csv", "relevé \"x\".csv"};
                            return Reply::json({{"seen", call.path}});
                        },
                        [this](std::function<void()> task) { main.post(std::move(task)); }};
    std::uint16_t port = server.start(0);
    std::string host = "Host: 127.0.0.1:" + std::to_string(port);
    std::string origin = "Origin: http://127.0.0.1:" + std::to_string(port);

    std::size_t callCount() {
        std::lock_guard lock(mutex);
        return calls.size();
    }

    HttpReply exchange(std::string_view line, const std::vector<std::string>& headers, std::string_view body = "") {
        std::string bytes = std::string(line) + "\r\n";
        for (const std::string& each : headers) bytes += each + "\r\n";
        bytes += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
        LoopbackClient client(port);
        EXPECT_TRUE(client.send(bytes));
        LoopbackClient::Reply reply = client.readAll();
        EXPECT_TRUE(reply.closed);
        return splitReply(reply.bytes);
    }

    // A session as the browser holds it: the cookie header and the token header.
    struct Browser {
        std::string cookie;
        std::string token;
    };
    Browser signIn() {
        std::string link = server.openingLink("timeline");
        HttpReply reply = exchange("GET " + link.substr(link.find("/open")) + " HTTP/1.1", {host});
        EXPECT_EQ(reply.status, 303);
        std::string setCookie = header(reply, "Set-Cookie");
        std::string location = header(reply, "Location");
        std::string token = location.substr(location.find("token=") + 6);
        token = token.substr(0, token.find('&'));
        return {"Cookie: theme=dark; " + setCookie.substr(0, setCookie.find(';')), "X-Ombrelo-Token: " + token};
    }
};

TEST_F(WindowServerTest, ATicketOpensOneSessionOnceAndSendsTheTokenOnlyInTheFragment) {
    std::string link = server.openingLink("rapports");
    EXPECT_TRUE(link.starts_with("http://127.0.0.1:" + std::to_string(port) + "/open?ticket="));
    std::string target = link.substr(link.find("/open"));
    HttpReply reply = exchange("GET " + target + " HTTP/1.1", {host});
    ASSERT_EQ(reply.status, 303);
    std::string setCookie = header(reply, "Set-Cookie");
    EXPECT_TRUE(setCookie.starts_with("ombrelo_session=")) << setCookie;
    EXPECT_NE(setCookie.find("; HttpOnly"), std::string::npos);
    EXPECT_NE(setCookie.find("; SameSite=Strict"), std::string::npos);
    EXPECT_NE(setCookie.find("; Path=/"), std::string::npos);
    EXPECT_EQ(header(reply, "Location").substr(0, 8), "/#token=");
    EXPECT_TRUE(header(reply, "Location").ends_with("&page=rapports"));

    // Used once, it is spent; an unknown one opens nothing either.
    EXPECT_EQ(exchange("GET " + target + " HTTP/1.1", {host}).status, 403);
    EXPECT_EQ(exchange("GET /open?ticket=0123 HTTP/1.1", {host}).status, 403);
    EXPECT_EQ(exchange("GET /open HTTP/1.1", {host}).status, 403);
    // A page name that is not one is not echoed into the address.
    std::string odd = server.openingLink("x\"><script>");
    EXPECT_TRUE(odd.ends_with("&page=dashboard")) << odd;
}

TEST_F(WindowServerTest, OnlyThisServersNamesAreAnswered) {
    Browser browser = signIn();
    for (std::string wrong : {std::string("Host: evil.example:") + std::to_string(port), std::string("Host: 127.0.0.1"),
                              std::string("Host: localhost:1"), std::string("Host: 127.0.0.1.evil.example:") +
                                                                    std::to_string(port)}) {
        EXPECT_EQ(exchange("GET / HTTP/1.1", {wrong}).status, 403) << wrong;
        EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {wrong, browser.cookie, browser.token}).status, 403) << wrong;
    }
    EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {browser.cookie, browser.token}).status, 403);  // no Host
    EXPECT_EQ(exchange("GET /api/x HTTP/1.1", {"Host: LOCALHOST:" + std::to_string(port), browser.cookie,
                                                browser.token})
                  .status,
              200);
    EXPECT_EQ(callCount(), 1u);
}

TEST_F(WindowServerTest, TheApiNeedsTheCookieAndTheTokenOfOneSession) {
    Browser browser = signIn(), other = signIn();
    EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {host}).status, 401);
    EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {host, browser.cookie}).status, 401);  // a cookie alone
    EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {host, browser.token}).status, 401);
    EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {host, browser.cookie, other.token}).status, 401);
    EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {host, browser.cookie, "X-Ombrelo-Token: "}).status, 401);
    EXPECT_EQ(callCount(), 0u);
    EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {host, browser.cookie, browser.token}).status, 200);
    EXPECT_EQ(exchange("GET /api/session HTTP/1.1", {host, other.cookie, other.token}).status, 200);
}

TEST_F(WindowServerTest, ChangesNeedThisOriginAndJSON) {
    Browser browser = signIn();
    const std::string json = "Content-Type: application/json";
    auto post = [&](std::vector<std::string> headers, std::string_view body = "{}") {
        headers.push_back(host);
        return exchange("POST /api/assign HTTP/1.1", headers, body).status;
    };
    EXPECT_EQ(post({browser.cookie, browser.token, json}), 403);  // no Origin
    EXPECT_EQ(post({browser.cookie, browser.token, json, "Origin: http://evil.example"}), 403);
    EXPECT_EQ(post({browser.cookie, browser.token, json, "Origin: null"}), 403);
    EXPECT_EQ(post({browser.cookie, browser.token, json, "Origin: http://127.0.0.1:1"}), 403);
    EXPECT_EQ(post({browser.cookie, browser.token, json, "Origin: https://127.0.0.1:" + std::to_string(port)}), 403);
    EXPECT_EQ(post({browser.cookie, origin, json}), 401);
    EXPECT_EQ(post({browser.cookie, browser.token, origin, "Content-Type: text/plain"}, "{}"), 415);
    EXPECT_EQ(post({browser.cookie, browser.token, origin}), 415);
    EXPECT_EQ(post({browser.cookie, browser.token, origin, json}, "[1]"), 400);
    EXPECT_EQ(post({browser.cookie, browser.token, origin, json}, "{"), 400);
    EXPECT_EQ(post({browser.cookie, browser.token, origin, json}, std::string(100, '[') + std::string(100, ']')), 400);
    EXPECT_EQ(exchange("PUT /api/assign HTTP/1.1", {host, browser.cookie, browser.token, origin, json}, "{}").status,
              405);
    EXPECT_EQ(exchange("POST / HTTP/1.1", {host, origin, json}, "{}").status, 405);
    EXPECT_EQ(callCount(), 0u);

    EXPECT_EQ(post({browser.cookie, browser.token, origin, json}, R"({"activity_ids":[1,2]})"), 200);
    std::lock_guard lock(mutex);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].method, "POST");
    EXPECT_EQ(calls[0].body, json::parse(R"({"activity_ids":[1,2]})"));
}

TEST_F(WindowServerTest, CallsReachTheMainLoopWithTheirQueryDecoded) {
    Browser browser = signIn();
    HttpReply reply = exchange("GET /api/search?query=Dupont%20%26%20fils+SA&from=2026-11-01&to=&x HTTP/1.1",
                               {host, browser.cookie, browser.token});
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body, R"({"seen":"/api/search"})");
    {
        std::lock_guard lock(mutex);
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].path, "/api/search");
        EXPECT_EQ(calls[0].parameter("query"), "Dupont & fils SA");
        EXPECT_EQ(calls[0].parameter("from"), "2026-11-01");
        EXPECT_EQ(calls[0].parameter("to"), std::nullopt);  // given empty
        EXPECT_EQ(calls[0].parameter("x"), std::nullopt);
    }
    // A file comes as an attachment, its name unable to break the header.
    HttpReply file = exchange("GET /api/file HTTP/1.1", {host, browser.cookie, browser.token});
    EXPECT_EQ(file.body, "a;b\r\n");
    EXPECT_EQ(header(file, "Content-Type"), "text/csv");
    EXPECT_EQ(header(file, "Content-Disposition"), "attachment; filename=\"relevé _x_.csv\"");
}

TEST_F(WindowServerTest, EveryAnswerForbidsInlineScriptsFramingAndOtherOrigins) {
    Browser browser = signIn();
    std::vector<HttpReply> replies = {
        exchange("GET / HTTP/1.1", {host}),
        exchange("GET /nothing-here HTTP/1.1", {host}),
        exchange("GET /api/session HTTP/1.1", {host}),
        exchange("GET /api/session HTTP/1.1", {host, browser.cookie, browser.token, "Origin: http://evil.example"}),
    };
    EXPECT_EQ(replies[0].status, 200);
    EXPECT_EQ(header(replies[0], "Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(replies[1].status, 404);
    for (const HttpReply& reply : replies) {
        std::string policy = header(reply, "Content-Security-Policy");
        EXPECT_NE(policy.find("script-src 'self'"), std::string::npos) << reply.head;
        EXPECT_NE(policy.find("frame-ancestors 'none'"), std::string::npos);
        EXPECT_EQ(policy.find("unsafe"), std::string::npos);
        EXPECT_EQ(header(reply, "X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(reply.head.find("Access-Control-"), std::string::npos);
    }
}

TEST_F(WindowServerTest, TheIndexAndItsModulesAreServedFromTheProgram) {
    const Asset* index = findAsset("/");
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(index->path, "/index.html");
    EXPECT_EQ(exchange("GET / HTTP/1.1", {host}).body, std::string(index->bytes));
    // Every script the index names is served, and none of them inline.
    std::string html(index->bytes);
    EXPECT_EQ(html.find("<script>"), std::string::npos);
    for (std::size_t at = html.find("src=\""); at != std::string::npos; at = html.find("src=\"", at + 1)) {
        std::string path = html.substr(at + 5, html.find('"', at + 5) - at - 5);
        HttpReply reply = exchange("GET " + path + " HTTP/1.1", {host});
        EXPECT_EQ(reply.status, 200) << path;
        EXPECT_EQ(header(reply, "Content-Type"), "text/javascript; charset=utf-8") << path;
    }
}

TEST(WindowSessions, TicketsExpireAndTheOldestSessionsEnd) {
    WindowSessions sessions;
    auto now = WindowSessions::Clock::now();
    std::string late = sessions.issueTicket(now);
    EXPECT_FALSE(sessions.redeem(late, now + WindowSessions::ticketLife + std::chrono::seconds(1)));
    EXPECT_FALSE(sessions.redeem(late, now));  // a refused ticket is spent too

    std::vector<WindowSessions::Session> opened;
    for (std::size_t i = 0; i <= WindowSessions::maxSessions; ++i)
        opened.push_back(*sessions.redeem(sessions.issueTicket(now), now + std::chrono::seconds(119)));
    EXPECT_FALSE(sessions.valid(opened.front().key, opened.front().token));
    EXPECT_TRUE(sessions.valid(opened.back().key, opened.back().token));
    EXPECT_TRUE(sessions.valid(opened[1].key, opened[1].token));
    EXPECT_FALSE(sessions.valid(opened[1].key, opened[2].token));
}

} // namespace
} // namespace ombrelo::ui
