#include "ui/WindowServer.h"

#include "http/LocalAddress.h"
#include "support/L10n.h"
#include "support/Log.h"
#include "ui/Assets.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>

namespace ombrelo::ui {

using nlohmann::json;

namespace {

// Deeper bodies are refused: parsing recurses once per level.
constexpr int maxDepth = 64;

constexpr std::string_view policy =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
    "object-src 'none'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'";

http::Response secured(http::Response response) {
    response.headers.emplace_back("Content-Security-Policy", policy);
    response.headers.emplace_back("X-Content-Type-Options", "nosniff");
    response.headers.emplace_back("X-Frame-Options", "DENY");
    response.headers.emplace_back("Referrer-Policy", "no-referrer");
    response.headers.emplace_back("Cross-Origin-Opener-Policy", "same-origin");
    response.headers.emplace_back("Cross-Origin-Resource-Policy", "same-origin");
    response.headers.emplace_back("Cache-Control", "no-store");
    return response;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// "a%20b+c" → "a b c"; a broken escape is kept as it stands.
std::string decode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '+') {
            out += ' ';
        } else if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
            out += char(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::map<std::string, std::string, std::less<>> queryOf(std::string_view target) {
    std::map<std::string, std::string, std::less<>> query;
    std::size_t mark = target.find('?');
    if (mark == std::string_view::npos) return query;
    std::string_view rest = target.substr(mark + 1);
    rest = rest.substr(0, rest.find('#'));
    while (!rest.empty()) {
        std::string_view pair = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        if (pair.empty()) continue;
        std::size_t equals = pair.find('=');
        std::string name = decode(pair.substr(0, equals));
        std::string value = equals == std::string_view::npos ? "" : decode(pair.substr(equals + 1));
        query.emplace(std::move(name), std::move(value));  // the first of a name counts
    }
    return query;
}

std::string_view pathOf(std::string_view target) { return target.substr(0, target.find_first_of("?#")); }

// The value of cookie `name` in a Cookie header, or nothing.
std::optional<std::string_view> cookie(const http::Request& request, std::string_view name) {
    const std::string* header = request.header("cookie");
    if (!header) return std::nullopt;
    std::string_view rest(*header);
    while (!rest.empty()) {
        std::string_view pair = rest.substr(0, rest.find(';'));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        while (pair.starts_with(' ')) pair.remove_prefix(1);
        if (pair.starts_with(name) && pair.size() > name.size() && pair[name.size()] == '=')
            return pair.substr(name.size() + 1);
    }
    return std::nullopt;
}

// A page name as the router knows them: lower-case letters only.
std::string pageName(std::string_view asked) {
    bool plain = !asked.empty() && asked.size() <= 32 &&
                 std::all_of(asked.begin(), asked.end(), [](char c) { return c >= 'a' && c <= 'z'; });
    return plain ? std::string(asked) : "dashboard";
}

http::Response toResponse(Reply reply) {
    http::Response response{reply.status, std::move(reply.body), std::move(reply.contentType), {}};
    if (reply.fileName) {
        std::string safe;
        for (char c : *reply.fileName)
            safe += (c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20) ? '_' : c;
        response.headers.emplace_back("Content-Disposition", "attachment; filename=\"" + safe + "\"");
    }
    return response;
}

} // namespace

std::optional<std::string> Call::parameter(std::string_view name) const {
    auto found = query.find(name);
    if (found == query.end() || found->second.empty()) return std::nullopt;
    return found->second;
}

Reply Reply::json(const nlohmann::json& value, int status) {
    // Broken UTF-8 (a window title, say) is replaced rather than failing the reply.
    return Reply{status, value.dump(-1, ' ', false, json::error_handler_t::replace), "application/json", {}};
}

Reply Reply::error(int status, std::string_view message) { return json({{"error", message}}, status); }

struct WindowServer::Main {
    Dispatch dispatch;
    Poster post;
    std::shared_ptr<spdlog::logger> log;
    std::atomic<std::uint16_t> port{0};
    std::string internalError;
    std::string invalidJSON;
};

WindowServer::WindowServer(Dispatch dispatch, Poster postToMain, http::Limits limits)
    : main_(std::make_shared<Main>()),
      // Made here, on the main loop: the language belongs to that thread.
      expiredPage_(fmt::format("<!doctype html><meta charset=utf-8><title>Ombrelo</title><p>{}</p>",
                               L10n::text("Ce lien a déjà servi ou a expiré. Rouvrez l'interface avec « ombrelo ui ».",
                                          "This link was already used or has expired. Open the interface again "
                                          "with `ombrelo ui`."))),
      listener_([this](http::Request request,
                       http::Respond respond) { handle(std::move(request), std::move(respond)); },
                limits, "ui") {
    main_->dispatch = std::move(dispatch);
    main_->post = std::move(postToMain);
    main_->log = Log::get("ui");
    main_->internalError = L10n::text("Erreur interne", "Internal error");
    main_->invalidJSON = L10n::text("JSON invalide", "Invalid JSON");
}

WindowServer::~WindowServer() { stop(); }

std::uint16_t WindowServer::start(std::uint16_t port) {
    try {
        std::uint16_t bound = listener_.start(port);
        main_->port = bound;
        main_->log->info("Interface sur http://127.0.0.1:{}", bound);
        return bound;
    } catch (const std::system_error& failure) {
        main_->log->error("Interface : port {} : {}", port, failure.code().message());
        throw;
    }
}

void WindowServer::stop() {
    if (!listener_.running()) return;
    listener_.stop();
    main_->port = 0;
}

std::string WindowServer::openingLink(std::string_view page) {
    return fmt::format("http://127.0.0.1:{}/open?ticket={}&page={}", main_->port.load(), sessions_.issueTicket(),
                       pageName(page));
}

std::optional<http::Response> WindowServer::checkCall(const http::Request& request) const {
    std::optional<std::string_view> key = cookie(request, cookieName);
    const std::string* token = request.header(tokenHeader);
    if (!key || !token || !sessions_.valid(*key, *token)) return http::Response::empty(401);
    if (request.method == "POST") {
        const std::string* origin = request.header("origin");
        if (!origin || !http::isOriginOf(*origin, main_->port)) return http::Response::empty(403);
        const std::string* type = request.header("content-type");
        if (!type || !type->starts_with("application/json")) return http::Response::empty(415);
    }
    return std::nullopt;
}

http::Response WindowServer::open(const http::Request& request) {
    auto query = queryOf(request.path);
    auto ticket = query.find("ticket");
    std::optional<WindowSessions::Session> session;
    if (ticket != query.end()) session = sessions_.redeem(ticket->second);
    if (!session) {
        main_->log->info("Interface : ticket refusé");
        return http::Response{403, expiredPage_, "text/html; charset=utf-8", {}};
    }
    auto page = query.find("page");
    http::Response redirect = http::Response::empty(303);
    redirect.contentType = "text/plain";
    redirect.headers.emplace_back(
        "Location", fmt::format("/#token={}&page={}", session->token,
                                pageName(page == query.end() ? std::string_view() : std::string_view(page->second))));
    redirect.headers.emplace_back("Set-Cookie", fmt::format("{}={}; Path=/; HttpOnly; SameSite=Strict", cookieName,
                                                            session->key));
    return redirect;
}

void WindowServer::handle(http::Request request, http::Respond respond) {
    auto answer = [&respond](http::Response response) { respond(secured(std::move(response))); };
    const std::string* host = request.header("host");
    if (!host || !http::isHostOf(*host, main_->port)) return answer(http::Response::empty(403));
    if (request.method != "GET" && request.method != "POST") return answer(http::Response::empty(405));
    std::string path(pathOf(request.path));

    if (!path.starts_with("/api/")) {
        if (request.method != "GET") return answer(http::Response::empty(405));
        if (path == "/open") return answer(open(request));
        const Asset* asset = findAsset(path);
        if (!asset) return answer(http::Response::empty(404));
        return answer(http::Response{200, std::string(asset->bytes), std::string(asset->contentType), {}});
    }

    if (auto refusal = checkCall(request)) {
        main_->log->info("Interface : appel refusé ({} {}, {})", request.method, path, refusal->status);
        return answer(std::move(*refusal));
    }
    Call call{request.method, path, queryOf(request.path), json::object()};
    if (request.method == "POST" && !request.body.empty()) {
        bool tooDeep = false;
        call.body = json::parse(
            request.body,
            [&tooDeep](int depth, json::parse_event_t, json&) {
                if (depth > maxDepth) tooDeep = true;
                return true;
            },
            false);
        if (tooDeep || !call.body.is_object())
            return answer(toResponse(Reply::error(400, main_->invalidJSON)));
    }
    main_->post([main = main_, call = std::move(call), respond = std::move(respond)]() mutable {
        Reply reply;
        try {
            reply = main->dispatch(call);
        } catch (const std::exception& failure) {
            main->log->error("Interface : {} {} : {}", call.method, call.path, failure.what());
            reply = Reply::error(500, main->internalError);
        }
        respond(secured(toResponse(std::move(reply))));
    });
}

} // namespace ombrelo::ui
