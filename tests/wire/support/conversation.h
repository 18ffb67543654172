#ifndef VOINET_TESTS_WIRE_SUPPORT_CONVERSATION_H
#define VOINET_TESTS_WIRE_SUPPORT_CONVERSATION_H

#include "support/descriptor.h"
#include "support/event.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

/// A script could not be played: the client did something else, or nothing in time.
class ScriptFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The client closed or reset the connection.
class ConnectionLost : public ScriptFailure {
  public:
    using ScriptFailure::ScriptFailure;
};

/// An HTTP request as it came over the wire.
struct Request {
    /// Number of the connection it came over, from 0.
    std::size_t connection = 0;
    /// Everything up to and with the empty line, verbatim.
    std::string head;
    /// Decoded when it was sent in chunks.
    std::string body;

    std::string method;
    std::string target;
    std::string version;
    std::vector<std::pair<std::string, std::string>> headers;

    /// The value of the first header of that name; upper and lower case do not differ.
    std::optional<std::string> header(std::string_view name) const;
    std::size_t headerCount(std::string_view name) const;
};

/// Fills in everything but the connection and the body; throws ScriptFailure when it is no request.
Request parseRequest(std::string head);

/// Waits for a socket until it is ready, a deadline passes or the server is stopped; the latter two
/// throw ScriptFailure.
class SocketGate {
  public:
    SocketGate(int socket, const Event& stop) : m_socket(socket), m_stop(stop) {}

    int socket() const { return m_socket; }
    void awaitReadable(const Deadline& deadline) const;
    void awaitWritable(const Deadline& deadline) const;
    void awaitEvent(const Event& event, const Deadline& deadline) const;

  private:
    void await(int descriptor, short events, const Deadline& deadline, const char* what) const;

    int m_socket;
    const Event& m_stop;
};

/// How bytes travel over an accepted, non-blocking connection. Plain TCP is built in; another layer
/// (TLS) derives from it and is given to the server as a TransportFactory. Its destructor sends
/// nothing.
class Transport {
  public:
    virtual ~Transport() = default;

    /// At least one byte, 0 at the end of the stream. Throws ScriptFailure.
    virtual std::size_t receive(char* buffer, std::size_t size) = 0;
    /// All of it. Throws ScriptFailure.
    virtual void send(std::string_view bytes) = 0;
    /// Tells the client that nothing more will be sent.
    virtual void endSending() = 0;
};

/// Called in the server's thread for each connection; the gate outlives the transport.
using TransportFactory = std::function<std::unique_ptr<Transport>(const SocketGate&)>;

std::unique_ptr<Transport> makePlainTransport(const SocketGate& gate);

/// One connection as a script sees it. Every operation has a deadline and throws ScriptFailure when
/// the client does not do its part.
class Conversation {
  public:
    /// What a conversation is recorded in.
    class Recorder {
      public:
        virtual ~Recorder() = default;
        virtual void recordRequest(const Request& request) = 0;
        virtual void recordLine(const std::string& line) = 0;
    };

    Conversation(Descriptor socket, std::size_t number, const Event& stop,
                 const TransportFactory& makeTransport, Recorder& recorder);

    /// Number of the connection, from 0.
    std::size_t number() const { return m_number; }

    /// An HTTP request with its body, recorded.
    Request receiveRequest();
    /// A line without its CR LF, recorded.
    std::string receiveLine();
    std::string receiveBytes(std::size_t size);
    /// Everything up to the end of the stream.
    std::string receiveAll();

    void send(std::string_view bytes);
    /// Ends the server's direction; the client's stays open.
    void halfClose();
    /// Waits until the client has closed the connection, and takes nothing else from it.
    void awaitClose();
    void await(const Event& event) const { m_gate.awaitEvent(event, Deadline()); }

    void close();
    /// Closes with a TCP reset instead of an orderly end.
    void reset();

  private:
    std::string receiveUntil(std::string_view terminator);
    std::string receiveChunks();
    bool receiveMore();
    std::string take(std::size_t size);

    Descriptor m_socket;
    SocketGate m_gate;
    std::size_t m_number;
    Recorder& m_recorder;
    std::unique_ptr<Transport> m_transport;
    /// Received and not taken yet.
    std::string m_received;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_CONVERSATION_H
