#ifndef VOINET_TESTS_WIRE_SUPPORT_FTP_H
#define VOINET_TESTS_WIRE_SUPPORT_FTP_H

#include "support/scriptedserver.h"
#include "support/wiretest.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

/// What an FTP server does during one session. As it stands, everything goes well.
struct FtpSession {
    /// With the ends of its lines. Without a greeting the server closes the control connection.
    std::string greeting = "220 Ready\r\n";

    /// The replies that differ from those of FtpServer, by the command's word, without the end of
    /// the last line. An empty one closes the control connection at that command.
    std::map<std::string, std::string> replies = {};

    /// Closes the control connection right after the greeting.
    bool closesAfterGreeting = false;

    /// The host that the reply to PASV names.
    std::string pasvHost = "127,0,0,1";

    /// What SIZE answers; nothing: the server does not know the command.
    std::optional<std::uint64_t> size = std::nullopt;

    /// Played over the data connection once RETR or LIST has come. Empty: no data is sent; a data
    /// connection that is opened all the same is held until the client closes it.
    Script data = {};
    /// Nobody minds when the client never comes as far as RETR or LIST.
    bool dataMayStayUnused = false;

    /// Sent when the data script has been played; empty: the control connection is closed then.
    std::string afterData = "226 Transfer complete";
};

/// A session that sends a file, whole or from an offset.
FtpSession sending(const std::string& file, std::size_t from = 0);

/// An FTP server with passive data connections (EPSV and PASV), made of scripted sockets.
class FtpServer {
  public:
    explicit FtpServer(AddressFamily family = AddressFamily::ipv4);

    /// Adds what happens in the next session that has none yet.
    void session(FtpSession session);
    /// Makes the sessions for which session() gives none; they are numbered from 0, with those.
    void otherwise(std::function<FtpSession(std::size_t number)> makeSession);

    /// Commands so far, other than QUIT, which comes when the client has its result.
    std::vector<std::string> commands() const;
    void forgetCommands() { m_control.forgetRecords(); }

    ScriptedServer& control() { return m_control; }
    std::uint16_t port() const { return m_control.port(); }
    std::wstring hostAndPort() const { return m_control.hostAndPort(); }
    std::size_t sessionCount() const { return m_control.connectionCount(); }

  private:
    class DataConnection;

    void play(const FtpSession& session, Conversation& client) const;
    /// False at the end of the session.
    static bool reply(const FtpSession& session, const std::string& command, DataConnection& data,
                      Conversation& client);
    static std::string replyTo(const FtpSession& session, const std::string& command,
                               std::uint16_t dataPort);

    AddressFamily m_family;
    ScriptedServer m_control;
};

/// Replies to EPSV and PASV that name a port of the loopback interface.
std::string epsvReply(std::uint16_t port);
std::string pasvReply(std::uint16_t port, const std::string& host = "127,0,0,1");

/// Base of the FTP tests: a server and a transfer object that knows it.
class FtpTest : public WireTest {
  public:
    ~FtpTest() override;

  protected:
    FtpTest();

    void TearDown() override;

    FtpServer& server() { return *m_server; }

    /// The settings with which the server is known under the last host form only, so that a result
    /// comes back as the attempt gave it.
    TransferSettings settings() const;

    /// Logs on with these settings, and forgets the commands of that.
    void logOn(const TransferSettings& settings);
    void logOn() { logOn(settings()); }

    /// The result of a download that meets this session.
    voInetError downloadIn(FtpSession session);

  private:
    std::optional<FtpServer> m_server;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_FTP_H
