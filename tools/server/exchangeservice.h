#ifndef VOINET_SERVER_EXCHANGESERVICE_H
#define VOINET_SERVER_EXCHANGESERVICE_H

#include "answerqueue.h"
#include "exchangescript.h"
#include "reply.h"
#include "requeststore.h"

#include <httplib.h>

#include <string>
#include <vector>

namespace voinetserver {

struct ExchangeSettings {
    /// Decoded, with a slash in front; empty when there is no exchange.
    std::string path;
    /// The directory of answers, and the one where requests are stored; empty for none.
    std::string answers;
    std::string requests;
    std::vector<ExchangeStep> script;
};

/// Plays the management server: takes the package that an agent posts and answers with a package or
/// a status.
///
/// A request that is not exactly as an agent sends it is answered 400 with the reason; it is not
/// stored, and the script does not go on. Bodies are streamed in both directions. Must outlive the
/// server's threads.
class ExchangeService {
  public:
    /// Throws StartError when a directory cannot be used.
    ExchangeService(const ReplySender& sender, const ExchangeSettings& settings);

    /// To be called before other services take POST requests.
    void install(httplib::Server& server);

  private:
    int refuseExpectation(const httplib::Request& request, httplib::Response& response) const;
    Reply replyTo(const httplib::Request& request, const httplib::ContentReader& reader);
    Reply receiveAndReply(const httplib::ContentReader& reader);
    Reply replyWith(const ExchangeStep& step);
    Reply replyWithAnswer(int statusWithoutAnswer);

    const ReplySender& sender_;
    std::string path_;
    AnswerQueue answers_;
    RequestStore requests_;
    ExchangeScript script_;
};

}  // namespace voinetserver

#endif
