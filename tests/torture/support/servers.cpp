#include "support/servers.h"

#include "support/http.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace tessaro_com::pkm::voInet::torture {

namespace {

constexpr std::string_view kRestart = "REST ";
constexpr std::string_view kRange = "bytes=";

struct ByteRange {
    std::size_t first;
    std::size_t last;
    bool isOpen;
};

std::optional<ByteRange> rangeOf(const wire::Request& request, std::size_t size) {
    const auto range = request.header("Range");
    if (!range) {
        return std::nullopt;
    }
    const std::string text = range->substr(kRange.size());
    const auto dash = text.find('-');
    const std::string last = text.substr(dash + 1);
    return ByteRange{std::stoul(text.substr(0, dash)), last.empty() ? size - 1 : std::stoul(last),
                     last.empty()};
}

std::string part(const std::string& file, const ByteRange& range) {
    return wire::reply(206, file.substr(range.first, range.last - range.first + 1),
                       {"Content-Range: bytes " + std::to_string(range.first) + "-" +
                        std::to_string(range.last) + "/" + std::to_string(file.size())});
}

/// An answer to HEAD has the head only.
std::string forMethod(const wire::Request& request, const std::string& reply) {
    constexpr std::string_view kEndOfHead = "\r\n\r\n";
    return request.method == "HEAD" ? reply.substr(0, reply.find(kEndOfHead) + kEndOfHead.size())
                                    : reply;
}

std::string served(const std::string& file, const wire::Request& request) {
    const auto range = rangeOf(request, file.size());
    return forMethod(request, range ? part(file, *range) : wire::reply(200, file));
}

Respond askingFor(const std::string& file, const char* header, int status, const char* challenge) {
    return [=](const wire::Request& request) {
        return request.header(header)
                   ? served(file, request)
                   : forMethod(request, wire::reply(status, "who are you?", {challenge}));
    };
}

/// Sends the file from where the latest session asked for it.
wire::Step sendAsAsked(const wire::FtpServer& server, const std::string& file) {
    return [&server, &file](wire::Conversation& client) {
        std::size_t from = 0;
        for (const std::string& command : server.commands()) {
            if (command.compare(0, kRestart.size(), kRestart) == 0) {
                from = std::stoul(command.substr(kRestart.size()));
            } else if (command.compare(0, 4, "USER") == 0) {
                from = 0;
            }
        }
        wire::sendUntilClosed(file.substr(std::min(from, file.size())))(client);
    };
}

}  // namespace

HttpOrigin::HttpOrigin(Respond respond) {
    m_server.otherwise({[respond = std::move(respond)](wire::Conversation& client) {
        client.send(respond(client.receiveRequest()));
    }});
}

FtpOrigin::FtpOrigin(std::string file) : m_file(std::move(file)) {
    m_server.otherwise([this](std::size_t /*number*/) {
        wire::FtpSession session;
        session.size = m_file.size();
        session.data = {sendAsAsked(m_server, m_file)};
        session.dataMayStayUnused = true;
        return session;
    });
}

Respond serving(const std::string& file) {
    return [file](const wire::Request& request) { return served(file, request); };
}

Respond servingNoOpenRanges(const std::string& file) {
    return [file](const wire::Request& request) {
        const auto range = rangeOf(request, file.size());
        return range && range->isOpen ? wire::reply(200, file) : served(file, request);
    };
}

Respond redirecting(const std::string& file) {
    return [file](const wire::Request& request) {
        const std::string there = "/elsewhere";
        return request.target == there
                   ? served(file, request)
                   : forMethod(request, wire::reply(302, "over there", {"Location: " + there}));
    };
}

Respond askingForCredentials(const std::string& file) {
    return askingFor(file, "Authorization", 401, "WWW-Authenticate: Basic realm=\"files\"");
}

Respond askingForProxyCredentials(const std::string& file) {
    return askingFor(file, "Proxy-Authorization", 407, "Proxy-Authenticate: Basic realm=\"proxy\"");
}

}  // namespace tessaro_com::pkm::voInet::torture
