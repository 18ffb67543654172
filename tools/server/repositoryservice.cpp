#include "repositoryservice.h"

#include "requestbody.h"

#include <string>
#include <utility>
#include <variant>

namespace voinetserver {
namespace {

// A decoded path may have line ends, which a dot does not match.
constexpr const char* kAnyPath = R"([\s\S]*)";

bool isRead(const std::string& method) {
    return method == "GET" || method == "HEAD";
}

Reply unauthorized() {
    return textReply(401, "a user name and a password are needed (basic authentication)",
                     headersOfStatus(401));
}

Reply scripted(int status) {
    return textReply(status, "status " + std::to_string(status) + ", as asked for by --status",
                     headersOfStatus(status));
}

Reply wholeReply(const Found& found, const char* acceptedRanges) {
    return {200,
            found.type,
            found.content,
            ByteRange{0, found.content->size()},
            {{"Accept-Ranges", acceptedRanges}}};
}

Reply partialReply(const Found& found, const ByteRange& range) {
    const std::string contentRange = "bytes " + std::to_string(range.offset) + '-' +
                                     std::to_string(range.offset + range.length - 1) + '/' +
                                     std::to_string(found.content->size());
    return {206,
            found.type,
            found.content,
            range,
            {{"Accept-Ranges", "bytes"}, {"Content-Range", contentRange}}};
}

Reply unsatisfiableReply(const Found& found) {
    const std::string size = std::to_string(found.content->size());
    return textReply(416, "the file has " + size + " bytes, and the range lies outside of them",
                     {{"Accept-Ranges", "bytes"}, {"Content-Range", "bytes */" + size}});
}

const char* reasonOf(int status) {
    switch (status) {
        case 400:
            return "the request is not well-formed";
        case 413:
            return "the body of the request is too long";
        case 414:
            return "the path of the request is too long";
        default:
            return "the request could not be answered";
    }
}

}  // namespace

RepositoryService::RepositoryService(const Repository& repository, const ReplySender& sender,
                                     RepositorySettings settings)
    : repository_(repository),
      sender_(sender),
      credentials_(std::move(settings.credentials)),
      ignoreRanges_(settings.ignoreRanges),
      statusPlayer_(std::move(settings.scripts)) {}

void RepositoryService::install(httplib::Server& server) {
    using HandlerResponse = httplib::Server::HandlerResponse;
    // Before httplib's routes, because the regular expressions of those do not match every path.
    server.set_pre_routing_handler([this](const auto& request, auto& response) {
        if (!isRead(request.method)) {
            return HandlerResponse::Unhandled;
        }
        answer(request, response);
        return HandlerResponse::Handled;
    });
    installRefusals(server);
    server.set_error_handler(httplib::Server::Handler(
        [this](const auto& request, auto& response) { replaceError(request, response); }));
}

void RepositoryService::installRefusals(httplib::Server& server) const {
    const httplib::Server::Handler refuse = [this](const auto& request, auto& response) {
        refuseMethod(request, response);
    };
    const httplib::Server::HandlerWithContentReader drainAndRefuse =
        [this](const auto& request, auto& response, const auto& reader) {
            refuseMethod(request, response, drainBody(request, reader));
        };
    server.Post(kAnyPath, drainAndRefuse);
    server.Put(kAnyPath, drainAndRefuse);
    server.Patch(kAnyPath, drainAndRefuse);
    server.Delete(kAnyPath, drainAndRefuse);
    server.Delete(kAnyPath, refuse);
    server.Options(kAnyPath, refuse);
}

void RepositoryService::answer(const httplib::Request& request, httplib::Response& response) {
    sender_.send(request, response, replyTo(request));
}

void RepositoryService::refuseMethod(const httplib::Request& request, httplib::Response& response,
                                     bool bodyRead) const {
    Reply refusal = textReply(405, "only GET and HEAD are answered here", {{"Allow", "GET, HEAD"}});
    refusal.closesConnection = !bodyRead;
    sender_.send(request, response, std::move(refusal));
}

void RepositoryService::replaceError(const httplib::Request& request, httplib::Response& response) {
    if (ReplySender::isSent(response)) {
        return;
    }
    if (response.status == 416 && isRead(request.method)) {
        // httplib refuses a Range header that it cannot parse before anybody is asked; such a
        // header is to be ignored.
        answer(request, response);
    } else if (response.status != 416 && !request.method.empty() && !isRead(request.method)) {
        refuseMethod(request, response, false);
    } else {
        const int status = response.status == 416 ? 400 : response.status;
        Reply refusal = textReply(status, reasonOf(status));
        // Where the next request begins is unknown: this one was not read to its end.
        refusal.closesConnection = true;
        sender_.send(request, response, std::move(refusal));
    }
}

Reply RepositoryService::replyTo(const httplib::Request& request) {
    if (!isAuthenticated(request)) {
        return unauthorized();
    }
    if (const auto status = statusPlayer_.next(request.path)) {
        return scripted(*status);
    }
    const Lookup lookup = repository_.find(request.path);
    if (const auto* refusal = std::get_if<Refusal>(&lookup)) {
        return textReply(refusal->status, refusal->reason);
    }
    return replyWith(request, std::get<Found>(lookup));
}

Reply RepositoryService::replyWith(const httplib::Request& request, const Found& found) const {
    if (ignoreRanges_) {
        return wholeReply(found, "none");
    }
    if (request.method == "HEAD") {
        // Ranges have a meaning for GET only.
        return wholeReply(found, "bytes");
    }
    const RangeSelection selection =
        selectRange(request.get_header_value("Range"), found.content->size());
    if (const auto* range = std::get_if<ByteRange>(&selection)) {
        return partialReply(found, *range);
    }
    const bool outside = std::holds_alternative<UnsatisfiableRange>(selection);
    return outside ? unsatisfiableReply(found) : wholeReply(found, "bytes");
}

bool RepositoryService::isAuthenticated(const httplib::Request& request) const {
    return !credentials_ || credentials_->accept(request.get_header_value("Authorization"));
}

}  // namespace voinetserver
