#ifndef VOINET_SERVER_PORTFILE_H
#define VOINET_SERVER_PORTFILE_H

#include <string>
#include <vector>

namespace voinetserver {

/// A file that holds the port numbers, a line each, while the server listens, for scripts that wait
/// for it. It appears complete and is removed with this object.
class PortFile {
  public:
    /// An empty name makes no file. Throws StartError when the file cannot be written.
    PortFile(std::string file, const std::vector<int>& ports);
    PortFile(const PortFile&) = delete;
    PortFile& operator=(const PortFile&) = delete;
    ~PortFile();

  private:
    std::string file_;
};

}  // namespace voinetserver

#endif
