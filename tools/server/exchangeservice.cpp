#include "exchangeservice.h"

#include "exchangerules.h"
#include "requestbody.h"

#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <utility>

namespace voinetserver {
namespace {

constexpr const char* kPackageType = "application/octet-stream";
constexpr int kFirstFailure = 300;

Reply closing(Reply reply) {
    reply.closesConnection = true;
    return reply;
}

Reply packageReply(int status, std::shared_ptr<const Content> content) {
    const std::uint64_t size = content->size();
    return {status, kPackageType, std::move(content), ByteRange{0, size}, {}};
}

// An agent keeps the body as an answer package, so there is none unless something is wrong.
Reply emptyReply(int status) {
    return packageReply(status, std::make_shared<TextContent>(""));
}

// The agent looks for the two words in one header line, whatever else stands there.
httplib::Headers headersOf(const ExchangeStep& step) {
    const bool updatesKeys = step.kind == ExchangeStep::Kind::statusWithKeyUpdate;
    return updatesKeys ? httplib::Headers{{"ORB-WHY-FORBIDDEN", "UpgradeKey"}}
                       : headersOfStatus(step.status);
}

Reply failureReply(const ExchangeStep& step) {
    const std::string text =
        "status " + std::to_string(step.status) + ", as asked for by --exchange-status";
    return textReply(step.status, text, headersOf(step));
}

std::string patternOf(const std::string& path) {
    constexpr const char* kSpecial = "^$\\.*+?()[]{}|";
    std::string pattern;
    for (const char character : path) {
        if (std::string(kSpecial).find(character) != std::string::npos) {
            pattern += '\\';
        }
        pattern += character;
    }
    return pattern;
}

}  // namespace

ExchangeService::ExchangeService(const ReplySender& sender, const ExchangeSettings& settings)
    : sender_(sender),
      path_(settings.path),
      answers_(settings.answers),
      requests_(settings.requests),
      script_(settings.script) {}

void ExchangeService::install(httplib::Server& server) {
    server.Post(patternOf(path_), [this](const auto& request, auto& response, const auto& reader) {
        sender_.send(request, response, replyTo(request, reader));
    });
    server.set_expect_100_continue_handler([this](const auto& request, auto& response) {
        return refuseExpectation(request, response);
    });
}

// httplib would encourage the client to send the body before anybody could refuse it.
int ExchangeService::refuseExpectation(const httplib::Request& request,
                                       httplib::Response& response) const {
    constexpr int kGoOn = 100;
    if (request.method != "POST" || request.path != path_) {
        return kGoOn;
    }
    // Whether the body follows is the client's choice, so what follows can mean anything.
    sender_.send(request, response, closing(textReply(400, "no header 'Expect' is expected")));
    return response.status;
}

Reply ExchangeService::replyTo(const httplib::Request& request,
                               const httplib::ContentReader& reader) {
    if (const auto fault = headerFault(request)) {
        Reply refusal = textReply(400, *fault);
        refusal.closesConnection = !drainBody(request, reader);
        return refusal;
    }
    try {
        return receiveAndReply(reader);
    } catch (const std::exception& error) {
        // An agent takes 500 for a success, so this one must be seen here.
        std::cerr << std::string("voinet-server: ") + error.what() + '\n';
        return closing(textReply(500, error.what()));
    }
}

Reply ExchangeService::receiveAndReply(const httplib::ContentReader& reader) {
    ArrivingRequest arriving(requests_);
    const bool complete = reader([&arriving](const char* data, std::size_t size) {
        arriving.append(data, size);
        return true;
    });
    if (!complete) {
        return closing(textReply(400, "the body ended before its announced length"));
    }
    arriving.keep();
    return replyWith(script_.next());
}

Reply ExchangeService::replyWith(const ExchangeStep& step) {
    if (step.kind == ExchangeStep::Kind::answer) {
        return replyWithAnswer(202);
    }
    if (step.status == 200) {
        return replyWithAnswer(200);
    }
    if (step.status < kFirstFailure) {
        return emptyReply(step.status);
    }
    return failureReply(step);
}

Reply ExchangeService::replyWithAnswer(int statusWithoutAnswer) {
    auto answer = answers_.next();
    return answer ? packageReply(200, std::move(answer)) : emptyReply(statusWithoutAnswer);
}

}  // namespace voinetserver
