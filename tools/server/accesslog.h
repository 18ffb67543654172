#ifndef VOINET_SERVER_ACCESSLOG_H
#define VOINET_SERVER_ACCESSLOG_H

#include "uniquefd.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace voinetserver {

/// One answered request.
struct AccessRecord {
    std::string method;
    /// As the client wrote it, still encoded.
    std::string target;
    /// The value of the Range header, if any.
    std::string range;
    int status = 0;
    /// Bytes of the body that were handed to the connection.
    std::uint64_t bytesSent = 0;
};

/// Writes a line for every answered request when its reply has ended, well or not:
///
///     2031-05-04T12:30:45.678Z GET /packages/a.bin bytes=10- 206 90
///
/// Fields are separated by one blank; what a client could use to forge fields or lines is
/// percent-encoded, and `-` stands for nothing. Every line is written in one piece at once, so that
/// a script can wait for it. Threads may write at the same time.
class AccessLog {
  public:
    /// `file` is appended to; `-` is standard output, and an empty name writes nothing.
    /// Throws StartError when the file cannot be opened.
    explicit AccessLog(const std::string& file);

    void write(const AccessRecord& record);

  private:
    UniqueFd file_;
    std::atomic<bool> failed_{false};
};

}  // namespace voinetserver

#endif
