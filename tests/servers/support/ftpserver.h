#ifndef VOINET_TESTS_FTPSERVER_H
#define VOINET_TESTS_FTPSERVER_H

#include "descriptor.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace voinettest {

/// What an FtpServer has and how it behaves.
struct FtpSite {
    /// By path, without a slash in front.
    std::map<std::string, std::string> files;
    /// Both empty: everybody gets in.
    std::string user = {};
    std::string password = {};
    /// After so many bytes of a file the server sends no more and waits for the client to go.
    std::size_t stallAfter = std::numeric_limits<std::size_t>::max();
    /// Replies in the place of the usual ones, by command; "" is the greeting.
    std::map<std::string, std::string> replies = {};
};

/// A small FTP server on a free port of the IPv4 loopback interface: one client at a time, binary
/// transfers over extended passive connections.
class FtpServer {
  public:
    explicit FtpServer(FtpSite site);
    FtpServer(const FtpServer&) = delete;
    FtpServer& operator=(const FtpServer&) = delete;
    /// Clients must have gone.
    ~FtpServer();

    std::uint16_t port() const { return port_; }

    /// The commands so far, with their arguments.
    std::vector<std::string> commands() const;

  private:
    void serve();
    void note(const std::string& command);

    const FtpSite site_;
    Descriptor listener_;
    std::uint16_t port_ = 0;
    std::atomic<bool> ending_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> commands_;
    std::thread thread_;
};

}  // namespace voinettest

#endif
