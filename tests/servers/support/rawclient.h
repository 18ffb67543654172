#ifndef VOINET_TESTS_RAWCLIENT_H
#define VOINET_TESTS_RAWCLIENT_H

#include "deadline.h"
#include "descriptor.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace voinettest {

/// A reply as it came over the wire.
struct RawReply {
    int status = 0;
    /// The first line, without its end.
    std::string statusLine;
    /// In order, names as they were spelled.
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    /// Whether as many bytes came as were announced.
    bool complete = false;

    /// The value of the first header of this name, in any letter case.
    std::optional<std::string> header(const std::string& name) const;
};

/// What a reply's body length depends on besides its headers.
enum class BodyExpected { yes, no };

/// A TCP connection on which a test writes what it likes, byte by byte. Reading fails with
/// std::runtime_error at the deadline and on anything that is no HTTP. Used by one thread.
class RawConnection {
  public:
    /// Connects to a numeric address. A small `receiveBuffer` (bytes) keeps the kernel from taking
    /// a whole reply that the test does not want to read yet; 0 leaves it as it is.
    explicit RawConnection(std::uint16_t port, const std::string& address = "127.0.0.1",
                           int receiveBuffer = 0, Deadline deadline = Deadline::generous());

    void send(const std::string& bytes) const;

    /// Tells the other side that nothing more will be sent; reading goes on.
    void finishSending() const;

    /// Reads one reply and leaves what comes after it for the next call. `BodyExpected::no` is for
    /// the answer to HEAD.
    RawReply readReply(BodyExpected body = BodyExpected::yes);

    /// Reads the head of a reply; its body is left to readBytes.
    RawReply readHead();

    /// Reads up to `count` bytes, fewer only when the other side closes first.
    std::string readBytes(std::size_t count);

    /// Waits until the other side closes. False when it sends something instead.
    bool readsEnd();

  private:
    bool receive();
    std::string readHeadText();

    Deadline deadline_;
    Descriptor socket_;
    std::string received_;
};

/// A request to be sent in one piece: the line, `Host`, then `headers` (each without its end).
std::string rawRequest(const std::string& method, const std::string& target,
                       const std::vector<std::string>& headers = {});

/// Sends one request on a connection of its own and returns the reply.
RawReply exchange(std::uint16_t port, const std::string& method, const std::string& target,
                  const std::vector<std::string>& headers = {});

}  // namespace voinettest

#endif
