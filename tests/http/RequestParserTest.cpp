// The HTTP request parser fed as a socket would feed it, and the response's
// bytes on the wire.
#include "http/RequestParser.h"
#include "http/Response.h"

#include <gtest/gtest.h>

namespace ombrelo::http {
namespace {

using Result = RequestParser::Result;

Result parse(std::string_view bytes, Request* out = nullptr) {
    RequestParser parser;
    Result result = parser.consume(bytes);
    if (out && result == Result::complete) *out = parser.take();
    return result;
}

TEST(RequestParser, CompletesOnTheLastBodyByteWhereverTheBytesAreSplit) {
    const std::string request = "POST /mcp?x=1 HTTP/1.1\r\nHost: 127.0.0.1:8473\r\nContent-Length: 11\r\n\r\n"
                                "{\"id\":1234}";
    // Every split in two, the blank line cut in each of its places among them.
    for (std::size_t cut = 1; cut < request.size(); ++cut) {
        RequestParser parser;
        ASSERT_EQ(parser.consume(std::string_view(request).substr(0, cut)), Result::incomplete) << cut;
        ASSERT_EQ(parser.consume(std::string_view(request).substr(cut)), Result::complete) << cut;
        EXPECT_EQ(parser.request().body, "{\"id\":1234}") << cut;
        EXPECT_EQ(*parser.request().header("host"), "127.0.0.1:8473") << cut;
    }

    // No Content-Length: complete at the blank line, with no body; bytes after
    // the body are not part of it.
    Request bare;
    EXPECT_EQ(parse("GET /mcp HTTP/1.1\r\n\r\n", &bare), Result::complete);
    EXPECT_EQ(bare.body, "");
    EXPECT_EQ(parse("POST /mcp HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}trailing", &bare), Result::complete);
    EXPECT_EQ(bare.body, "{}");
}

TEST(RequestParser, NormalisesTheHead) {
    Request r;
    ASSERT_EQ(parse("post   /MCP  HTTP/1.0 extra\r\n"
                    "  X-Name \t:  \tspaced value\t \r\n"
                    "HOST:first\r\n"
                    "host: second:8473\r\n"
                    "a line without colon\r\n"
                    "Empty:\r\n"
                    "Authorization: Bearer a b\r\n\r\n",
                    &r),
              Result::complete);
    EXPECT_EQ(r.method, "post");  // case kept: the gate compares exactly
    EXPECT_EQ(r.path, "/MCP");
    EXPECT_EQ(*r.header("x-name"), "spaced value");
    EXPECT_EQ(*r.header("host"), "second:8473");  // the later one wins, the value's colons kept
    EXPECT_EQ(*r.header("empty"), "");
    EXPECT_EQ(*r.header("authorization"), "Bearer a b");
    EXPECT_EQ(r.header("a line without colon"), nullptr);
    EXPECT_EQ(r.headers.size(), 4u);

    // The version may be missing; the method and target may not.
    EXPECT_EQ(parse("POST /mcp\r\n\r\n", &r), Result::complete);
    EXPECT_EQ(parse("POST\r\n\r\n"), Result::invalid);
    EXPECT_EQ(parse("   \r\nHost: x\r\n\r\n"), Result::invalid);
    EXPECT_EQ(parse("\r\n\r\n"), Result::invalid);

    // The head must be UTF-8: a stray byte, an overlong form, a surrogate.
    EXPECT_EQ(parse("POST /mcp\r\nX: caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\r\n\r\n", &r), Result::complete);
    EXPECT_EQ(parse("POST /mcp\r\nX: \xff\r\n\r\n"), Result::invalid);
    EXPECT_EQ(parse("POST /mcp\r\nX: \xc0\xaf\r\n\r\n"), Result::invalid);
    EXPECT_EQ(parse("POST /mcp\r\nX: \xed\xa0\x80\r\n\r\n"), Result::invalid);
    EXPECT_EQ(parse("POST /mcp\r\nX: \xe2\x82\r\n\r\n"), Result::invalid);
}

TEST(RequestParser, ReadsContentLengthAndItsLimit) {
    auto bodyFor = [](std::string_view length, std::string_view rest) -> std::string {
        Request r;
        std::string bytes = "POST /mcp\r\nContent-Length: " + std::string(length) + "\r\n\r\n" + std::string(rest);
        Result result = parse(bytes, &r);
        if (result == Result::incomplete) return "(incomplete)";
        if (result == Result::invalid) return "(invalid)";
        return r.body;
    };
    EXPECT_EQ(bodyFor("3", "abcdef"), "abc");
    EXPECT_EQ(bodyFor("+3", "abcdef"), "abc");
    EXPECT_EQ(bodyFor("4", "abc"), "(incomplete)");
    // What is not a whole decimal number counts as 0.
    EXPECT_EQ(bodyFor("", "abc"), "");
    EXPECT_EQ(bodyFor("abc", "abc"), "");
    EXPECT_EQ(bodyFor("3x", "abc"), "");
    EXPECT_EQ(bodyFor("+-3", "abc"), "");
    EXPECT_EQ(bodyFor("99999999999999999999", "abc"), "");
    // Over the limit, negative ones included, the request is refused at once.
    EXPECT_EQ(bodyFor("1000000", ""), "(incomplete)");
    EXPECT_EQ(bodyFor("1000001", ""), "(invalid)");
    EXPECT_EQ(bodyFor("-1", "abc"), "(invalid)");

    std::string head = "POST /mcp\r\nContent-Length: 1000000\r\n\r\n";
    RequestParser parser;
    ASSERT_EQ(parser.consume(head), Result::incomplete);
    ASSERT_EQ(parser.consume(std::string(RequestParser::maxBody - 1, 'x')), Result::incomplete);
    ASSERT_EQ(parser.consume("x"), Result::complete);
    EXPECT_EQ(parser.request().body.size(), RequestParser::maxBody);
}

TEST(RequestParser, RefusesMoreThanTheBufferedLimit) {
    // A head that never ends: refused on the byte past the limit, not before.
    RequestParser endless;
    std::string start = "POST /mcp\r\nX: ";
    ASSERT_EQ(endless.consume(start), Result::incomplete);
    ASSERT_EQ(endless.consume(std::string(RequestParser::maxBuffered - start.size(), 'x')), Result::incomplete);
    EXPECT_EQ(endless.consume("x"), Result::tooLarge);

    // A large head with a large body: each within its own bound, too much together.
    std::string head = "POST /mcp\r\nX: " + std::string(20'000, 'h') + "\r\nContent-Length: 1000000\r\n\r\n";
    RequestParser together;
    ASSERT_EQ(together.consume(head), Result::incomplete);
    Result result = Result::incomplete;
    for (int i = 0; i < 16 && result == Result::incomplete; ++i) result = together.consume(std::string(65'536, 'b'));
    EXPECT_EQ(result, Result::tooLarge);

    // A whole request arriving with enough extra bytes in the same read is too
    // large as well: the total is checked first.
    std::string request = "POST /mcp\r\nContent-Length: 2\r\n\r\n{}";
    EXPECT_EQ(parse(request + std::string(RequestParser::maxBuffered + 1 - request.size(), ' ')), Result::tooLarge);
    EXPECT_EQ(parse(request + std::string(RequestParser::maxBuffered - request.size(), ' ')), Result::complete);
}

TEST(Response, WritesTheHeadInItsFixedOrder) {
    Response ok{200, "{\"a\":\"\xc3\xa9\"}", "application/json", {}};
    EXPECT_EQ(ok.serialize(), "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 10\r\n"
                              "Connection: close\r\n\r\n{\"a\":\"\xc3\xa9\"}");

    Response refused = Response::empty(401);
    refused.headers.emplace_back("WWW-Authenticate", "Bearer");
    EXPECT_EQ(refused.serialize(), "HTTP/1.1 401 Unauthorized\r\nContent-Type: application/json\r\n"
                                   "Content-Length: 0\r\nConnection: close\r\nWWW-Authenticate: Bearer\r\n\r\n");

    EXPECT_EQ(Response::empty(202).serialize(), "HTTP/1.1 202 Accepted\r\nContent-Type: application/json\r\n"
                                                "Content-Length: 0\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(Response::empty(500).serialize().substr(0, 20), "HTTP/1.1 500 Error\r\n");
}

} // namespace
} // namespace ombrelo::http
