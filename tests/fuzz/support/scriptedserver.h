#ifndef VOINET_TESTS_FUZZ_SUPPORT_SCRIPTEDSERVER_H
#define VOINET_TESTS_FUZZ_SUPPORT_SCRIPTEDSERVER_H

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace voinet_fuzz {

/// What the server says, taken from an input: byte 0x1D divides connections, in the order in which
/// they are made; 0x1E divides the answers of a connection; 0x1F the packets of an answer. In the
/// answers "@P" stands for the server's port and "@Q" for the two numbers of it in a PASV reply.
struct Script {
    Script(const std::string& bytes, std::uint16_t port, bool speaksFirst);

    using Packets = std::vector<std::string>;
    using Answers = std::vector<Packets>;

    std::vector<Answers> connections;
    /// The first answer of a connection is sent at once, not after a request.
    bool speaksFirst;
};

/// A server on the loopback interface that says what a script says, whatever it is asked. It closes
/// its direction of a connection behind the last answer. When nothing happens for a while it goes
/// on by itself, so that nobody waits for the other one; so an input takes bounded time.
class ScriptedServer {
  public:
    ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    std::uint16_t port() const { return m_port; }

    void play(const Script& script);

    /// What was said and heard over one connection.
    struct Record {
        std::string sent;
        std::string received;
    };

    /// Waits until all connections are closed, which is up to the clients; returns their records in
    /// the order in which they were made.
    std::vector<Record> finish();

  private:
    struct Connection;

    void run();
    void accept();
    void serve(Connection& connection);
    void speak(Connection& connection);
    bool isRequestComplete(const Connection& connection) const;

    std::uint16_t m_port = 0;
    int m_listener;
    int m_wakeUp;
    std::mutex m_mutex;
    std::condition_variable m_finished;
    enum class Phase { idle, playing, finishing, ending };
    Phase m_phase = Phase::idle;
    Script m_script;
    std::vector<Connection> m_connections;
    std::thread m_thread;
};

/// The one server of the process. Made by the first call, and from then on every connection that
/// this process makes ends at it (loopbackonly.cpp), whatever the address.
ScriptedServer& server();

}  // namespace voinet_fuzz

#endif  // VOINET_TESTS_FUZZ_SUPPORT_SCRIPTEDSERVER_H
