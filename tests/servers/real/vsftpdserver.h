#ifndef VOINET_TESTS_VSFTPDSERVER_H
#define VOINET_TESTS_VSFTPDSERVER_H

#include "runningserver.h"
#include "serverdirectory.h"

#include <memory>
#include <string>
#include <vector>

namespace voinettest {

/// A PAM service of a test's own. It stands in the system's directory, which only root can write,
/// because PAM looks nowhere else; it is removed at the end, and so are those that runs which were
/// killed have left.
class PamService {
  public:
    /// Knows the users of this password file and nobody else. `distinction` tells the services of
    /// one process apart.
    PamService(const std::string& usersFile, const std::string& distinction);
    PamService(const PamService&) = delete;
    PamService& operator=(const PamService&) = delete;
    ~PamService();

    const std::string& name() const { return name_; }

  private:
    std::string name_;
};

/// vsftpd with a folder for everybody, on one address.
class VsftpdServer {
  public:
    /// The users; all may read the same files.
    static constexpr const char* kPlainUser = "plain";
    static constexpr const char* kPlainPassword = "secret";
    static constexpr const char* kSpecialUser = "rea@der";
    static constexpr const char* kSpecialPassword = "p@ss:w%rd";

    explicit VsftpdServer(const std::string& address);

    const ReservedPort& port() const { return ports_.front(); }
    const ServerDirectory& directory() const { return directory_; }

    /// Other users than anonymous are known by PAM alone, so the server takes them only when root
    /// has started it. Throws std::runtime_error otherwise.
    void requireUsers() const;

  private:
    ServerDirectory directory_;
    std::vector<ReservedPort> ports_;
    std::unique_ptr<PamService> pamService_;
    RunningServer server_;
};

}  // namespace voinettest

#endif
