#include "reply.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace voinetserver {
namespace {

constexpr const char* kChallenge = "Basic realm=\"voinet-server\", charset=\"UTF-8\"";

bool hasBody(int status) {
    return status != 204 && status != 304;
}

// One body on its way. httplib calls it on the thread of the connection.
class Transmission {
  public:
    Transmission(Reply reply, std::uint64_t limit, Pacer pacer, AccessRecord record)
        : content_(std::move(reply.content)),
          position_(reply.part.offset),
          remaining_(std::min(reply.part.length, limit)),
          closes_(limit < reply.part.length || reply.closesConnection),
          pacer_(pacer),
          record_(std::move(record)) {}

    // Sends the next piece. False closes the connection: when the body is cut, the only way to tell
    // a client that has been promised a length that there is nothing more to come.
    bool sendPiece(httplib::DataSink& sink) {
        if (remaining_ == 0) {
            sink.done();
            return !closes_;
        }
        buffer_.resize(pacer_.pieceSize());
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, buffer_.size()));
        const std::size_t count = content_->read(position_, buffer_.data(), wanted);
        if (count == 0 || !sink.write(buffer_.data(), count)) {
            return false;
        }
        position_ += count;
        remaining_ -= count;
        record_.bytesSent += count;
        return remaining_ == 0 || pacer_.wait(record_.bytesSent);
    }

    const AccessRecord& record() const { return record_; }

  private:
    std::shared_ptr<const Content> content_;
    std::uint64_t position_;
    std::uint64_t remaining_;
    bool closes_;
    Pacer pacer_;
    AccessRecord record_;
    std::vector<char> buffer_;
};

}  // namespace

httplib::Headers headersOfStatus(int status) {
    switch (status) {
        case 401:
            return {{"WWW-Authenticate", kChallenge}};
        case 407:
            return {{"Proxy-Authenticate", kChallenge}};
        default:
            return {};
    }
}

Reply textReply(int status, const std::string& text, httplib::Headers headers) {
    auto content = std::make_shared<TextContent>(text + '\n');
    const std::uint64_t size = hasBody(status) ? content->size() : 0;
    return {status, "text/plain", std::move(content), ByteRange{0, size}, std::move(headers)};
}

void ReplySender::send(const httplib::Request& request, httplib::Response& response,
                       Reply reply) const {
    // The ranges that httplib has parsed would make it announce a multipart body for several of
    // them. What part is sent stands in the reply, so they are taken away; the object is httplib's
    // own and not const there.
    const_cast<httplib::Request&>(request).ranges.clear();
    response.status = reply.status;
    for (const auto& [name, value] : reply.headers) {
        response.set_header(name, value);
    }
    if (hasBody(reply.status)) {
        response.set_header("Content-Length", std::to_string(reply.part.length));
    }
    if (reply.closesConnection) {
        response.set_header("Connection", "close");
    }
    AccessRecord record{request.method, request.target, request.get_header_value("Range"),
                        reply.status, 0};
    const std::string type = reply.type;
    const auto transmission = std::make_shared<Transmission>(
        std::move(reply), cuts_.limitFor(request.path), Pacer(rate_, stop_), std::move(record));
    // The provider "without length" gets its length from the header above. Of the one with length
    // httplib would cut ranges by itself, also such as lie outside the file.
    response.set_content_provider(
        type,
        [transmission](std::size_t, httplib::DataSink& sink) {
            return transmission->sendPiece(sink);
        },
        [transmission, &log = log_](bool) { log.write(transmission->record()); });
}

bool ReplySender::isSent(const httplib::Response& response) {
    return static_cast<bool>(response.content_provider_);
}

}  // namespace voinetserver
