#ifndef VOINET_SERVER_REPOSITORYSERVICE_H
#define VOINET_SERVER_REPOSITORYSERVICE_H

#include "credentials.h"
#include "faults.h"
#include "reply.h"
#include "repository.h"

#include <httplib.h>

#include <optional>

namespace voinetserver {

/// What the service demands and does wrong on request.
struct RepositorySettings {
    std::optional<Credentials> credentials;
    bool ignoreRanges = false;
    StatusScripts scripts;
};

/// Answers GET and HEAD requests from a repository, and refuses the other methods.
///
/// A service knows nothing of sockets: it installs its handlers into whatever httplib server it is
/// given. Another service that takes some POST paths installs its own first; this one refuses what
/// is left. Must outlive the server's threads.
class RepositoryService {
  public:
    RepositoryService(const Repository& repository, const ReplySender& sender,
                      RepositorySettings settings);

    void install(httplib::Server& server);

  private:
    void answer(const httplib::Request& request, httplib::Response& response);
    void refuseMethod(const httplib::Request& request, httplib::Response& response,
                      bool bodyRead = true) const;
    void installRefusals(httplib::Server& server) const;
    void replaceError(const httplib::Request& request, httplib::Response& response);
    Reply replyTo(const httplib::Request& request);
    Reply replyWith(const httplib::Request& request, const Found& found) const;
    bool isAuthenticated(const httplib::Request& request) const;

    const Repository& repository_;
    const ReplySender& sender_;
    std::optional<Credentials> credentials_;
    bool ignoreRanges_;
    StatusPlayer statusPlayer_;
};

}  // namespace voinetserver

#endif
