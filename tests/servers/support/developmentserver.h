#ifndef VOINET_TESTS_DEVELOPMENTSERVER_H
#define VOINET_TESTS_DEVELOPMENTSERVER_H

#include "process.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace voinettest {

/// The port in the line that the server prints when it listens; 0 when there is none.
std::uint16_t portOfLine(const std::string& listeningLine);

/// A running voinet-server on a free port of the loopback interface.
class DevelopmentServer {
  public:
    /// `program` is the path of the executable; `options` come before the directory. Returns when
    /// the server listens; throws std::runtime_error with its words when it does not.
    DevelopmentServer(const std::string& program, const std::string& directory,
                      const std::vector<std::string>& options = {},
                      const std::map<std::string, std::string>& environment = {});

    std::uint16_t port() const { return port_; }
    const std::string& listeningLine() const { return listeningLine_; }
    Process& process() { return process_; }

  private:
    Process process_;
    std::string listeningLine_;
    std::uint16_t port_ = 0;
};

}  // namespace voinettest

#endif
