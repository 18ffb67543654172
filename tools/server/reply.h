#ifndef VOINET_SERVER_REPLY_H
#define VOINET_SERVER_REPLY_H

#include "accesslog.h"
#include "byterange.h"
#include "content.h"
#include "faults.h"
#include "stop.h"

#include <httplib.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace voinetserver {

/// The answer to a request, before it is sent.
struct Reply {
    int status;
    /// Media type of the body.
    std::string type;
    std::shared_ptr<const Content> content;
    /// What of the content is the body.
    ByteRange part;
    /// Besides those for type and length.
    httplib::Headers headers;
    /// What comes next over the connection could not be understood.
    bool closesConnection = false;
};

/// Headers that a reply of this status goes with: clients send credentials only to those who ask
/// for them.
httplib::Headers headersOfStatus(int status);

/// A reply whose body is one line for people.
Reply textReply(int status, const std::string& text, httplib::Headers headers = {});

/// Sends replies: announces their length, streams their bodies (slowed down and cut as demanded)
/// and writes them to the access log. Threads may send at the same time.
class ReplySender {
  public:
    ReplySender(AccessLog& log, StopEvent& stop, CutRules cuts, std::optional<std::uint64_t> rate)
        : log_(log), stop_(stop), cuts_(std::move(cuts)), rate_(rate) {}

    /// Hands the reply to httplib, which fetches the body piece by piece after this has returned.
    void send(const httplib::Request& request, httplib::Response& response, Reply reply) const;

    /// Whether `response` has got its reply already.
    static bool isSent(const httplib::Response& response);

  private:
    AccessLog& log_;
    StopEvent& stop_;
    CutRules cuts_;
    std::optional<std::uint64_t> rate_;
};

}  // namespace voinetserver

#endif
