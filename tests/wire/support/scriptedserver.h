#ifndef VOINET_TESTS_WIRE_SUPPORT_SCRIPTEDSERVER_H
#define VOINET_TESTS_WIRE_SUPPORT_SCRIPTEDSERVER_H

#include "support/conversation.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

/// One thing that a server does with a connection.
using Step = std::function<void(Conversation&)>;

/// What a server does with a connection, in order; it closes the connection at the end.
using Script = std::vector<Step>;

// The steps that scripts are made of; see the operations of Conversation.
Step receiveRequest();
Step receiveLine();
Step send(std::string bytes);
/// Sends `bytes` in writes of at most `pieceSize` bytes, each a TCP segment of its own.
Step sendInPieces(std::string bytes, std::size_t pieceSize);
/// Sends `bytes` to a client that may stop the transfer at any moment.
Step sendUntilClosed(std::string bytes);
Step halfClose();
Step reset();
/// Waits until the client has closed the connection; it must not send anything before.
Step awaitClose();
/// Waits for something that happens in the test.
Step await(const Event& event);
Step signal(Event& event);

/// Takes one HTTP request and answers it.
Script answer(std::string reply);
/// Takes an HTTP request before each of the replies, over one connection.
Script answers(std::vector<std::string> replies);

enum class AddressFamily { ipv4, ipv6 };

/// A TCP server on the loopback interface that plays one script per connection, in order, in a
/// thread of its own, and records what it receives. A connection without a script is a failure and
/// is reset at once.
///
/// Failures (a client that does something else than its script says, a script that was never
/// played) fail the running test when the server is destroyed, unless finish() has handed them to
/// the test before.
///
/// The test's thread makes scripts and looks at records; it may do so at any time.
class ScriptedServer : private Conversation::Recorder {
  public:
    explicit ScriptedServer(AddressFamily family = AddressFamily::ipv4,
                            TransportFactory makeTransport = makePlainTransport);
    ~ScriptedServer() override;

    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t port() const { return m_port; }
    /// "127.0.0.1" or "[::1]", ":" and the port; wide, as the library takes it.
    std::wstring hostAndPort() const;

    /// Adds the script of the next connection that has none yet.
    void connection(Script script);
    /// The script of every connection for which connection() gives none.
    void otherwise(Script script);

    /// Waits until every script was played. False when that does not happen in time or one failed.
    bool awaitPlayed();

    /// To be called when no client will connect any more: plays what has connected, ends the thread
    /// and returns the failures, one text each.
    std::vector<std::string> finish();

    std::vector<Request> requests() const;
    std::vector<std::string> lines() const;
    std::size_t connectionCount() const;
    /// Forgets the requests and lines so far, such as those of a logon.
    void forgetRecords();

  private:
    void recordRequest(const Request& request) override;
    void recordLine(const std::string& line) override;

    void run();
    Descriptor accept();
    void play(Descriptor socket);
    Script nextScript();
    void fail(const std::string& text);
    void join();

    TransportFactory m_makeTransport;
    Descriptor m_listener;
    std::uint16_t m_port = 0;
    AddressFamily m_family;
    /// No connections will come any more.
    Event m_drain;
    /// Leave everything at once.
    Event m_stop;

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Script> m_scripts;
    Script m_otherwise;
    std::vector<std::string> m_failures;
    std::vector<Request> m_requests;
    std::vector<std::string> m_lines;
    std::size_t m_connectionCount = 0;
    bool m_playing = false;

    std::thread m_thread;
};

/// A TCP port of 127.0.0.1 at which connections are refused for as long as the object lives.
class RefusingPort {
  public:
    RefusingPort();

    std::uint16_t port() const { return m_port; }
    std::wstring hostAndPort() const;

  private:
    Descriptor m_socket;
    std::uint16_t m_port = 0;
};

/// A TCP port of 127.0.0.1 at which connections are neither taken nor refused.
class SilentPort {
  public:
    SilentPort();

    std::uint16_t port() const { return m_port; }
    std::wstring hostAndPort() const;

  private:
    Descriptor m_listener;
    std::vector<Descriptor> m_clients;
    std::uint16_t m_port = 0;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_SCRIPTEDSERVER_H
