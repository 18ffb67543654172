#ifndef VOINET_TESTS_FILESERVER_H
#define VOINET_TESTS_FILESERVER_H

#include "descriptor.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace voinettest {

/// An HTTP server on a free port of the IPv4 loopback interface that has one file under every name,
/// and parts of it: a repository, and a management server that answers each post with that file.
/// One connection after the other; clients may die at any moment.
class FileServer {
  public:
    explicit FileServer(std::string file);
    FileServer(const FileServer&) = delete;
    FileServer& operator=(const FileServer&) = delete;
    ~FileServer();

    std::uint16_t port() const { return port_; }
    std::string hostAndPort() const { return "127.0.0.1:" + std::to_string(port_); }

  private:
    void serve();
    std::string answerTo(const std::string& head) const;

    std::string file_;
    Descriptor listener_;
    std::uint16_t port_ = 0;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

}  // namespace voinettest

#endif
