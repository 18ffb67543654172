#include "support/ftp.h"

#include <array>
#include <utility>

namespace tessaro_com::pkm::voInet::wire {

namespace {

constexpr std::array<std::pair<const char*, const char*>, 10> kUsualReplies{{
    {"USER", "331 Password, please"},
    {"PASS", "230 Logged on"},
    {"PWD", "257 \"/\" is the directory"},
    {"CWD", "250 Done"},
    {"TYPE", "200 Done"},
    {"REST", "350 Go on"},
    {"RETR", "150 Here it comes"},
    {"LIST", "150 Here it comes"},
    {"ABOR", "225 Nothing to abort"},
    {"QUIT", "221 Bye"},
}};

std::string wordOf(const std::string& command) {
    return command.substr(0, command.find(' '));
}

bool startsData(const std::string& command, const std::string& reply) {
    const std::string word = wordOf(command);
    return (word == "RETR" || word == "LIST") && reply.front() == '1';
}

}  // namespace

std::string epsvReply(std::uint16_t port) {
    return "229 Extended passive (|||" + std::to_string(port) + "|)";
}

std::string pasvReply(std::uint16_t port, const std::string& host) {
    return "227 Passive (" + host + "," + std::to_string(port / 256) + "," +
           std::to_string(port % 256) + ")";
}

FtpSession sending(const std::string& file, std::size_t from) {
    FtpSession session;
    session.size = file.size();
    session.data = {sendUntilClosed(file.substr(from))};
    return session;
}

/// The data connection of one session, at a port of its own: what a client opens in one session
/// and does not use cannot be taken for that of the next.
class FtpServer::DataConnection {
  public:
    DataConnection(AddressFamily family, Script script, bool mayStayUnused)
        : m_mayStayUnused(mayStayUnused), m_server(family) {
        m_server.otherwise({awaitClose()});
        if (script.empty()) {
            return;
        }
        m_isUsed = true;
        script.insert(script.begin(), await(m_asked));
        script.emplace_back([this](Conversation& client) {
            client.close();
            m_played.set();
        });
        m_server.connection(std::move(script));
    }

    ~DataConnection() {
        if (m_mayStayUnused) {
            m_asked.set();  // whoever waits for it finds that the client has gone
            m_server.finish();
        }
    }

    DataConnection(const DataConnection&) = delete;
    DataConnection& operator=(const DataConnection&) = delete;

    std::uint16_t port() const { return m_server.port(); }
    bool isUsed() const { return m_isUsed; }

    /// Plays the script while the control connection of `client` stays as it is.
    void play(const Conversation& client) {
        m_asked.set();
        client.await(m_played);
    }

  private:
    Event m_asked;
    Event m_played;
    bool m_isUsed = false;
    bool m_mayStayUnused;
    ScriptedServer m_server;
};

FtpServer::FtpServer(AddressFamily family) : m_family(family), m_control(family) {}

void FtpServer::session(FtpSession session) {
    m_control.connection(
        {[this, session = std::move(session)](Conversation& client) { play(session, client); }});
}

void FtpServer::otherwise(std::function<FtpSession(std::size_t number)> makeSession) {
    m_control.otherwise({[this, makeSession = std::move(makeSession)](Conversation& client) {
        play(makeSession(client.number()), client);
    }});
}

std::vector<std::string> FtpServer::commands() const {
    std::vector<std::string> commands;
    for (const auto& line : m_control.lines()) {
        if (line != "QUIT") {
            commands.push_back(line);
        }
    }
    return commands;
}

void FtpServer::play(const FtpSession& session, Conversation& client) const {
    DataConnection data(m_family, session.data, session.dataMayStayUnused);
    try {
        client.send(session.greeting);
        bool isOpen = !session.greeting.empty() && !session.closesAfterGreeting;
        while (isOpen) {
            isOpen = reply(session, client.receiveLine(), data, client);
        }
    } catch (const ConnectionLost&) {
        // A client may leave at any moment; what it did before is in the records.
    }
    // The client keeps its data connection for as long as it waits here.
    client.close();
}

bool FtpServer::reply(const FtpSession& session, const std::string& command, DataConnection& data,
                      Conversation& client) {
    const std::string reply = replyTo(session, command, data.port());
    if (reply.empty()) {
        return false;
    }
    client.send(reply + "\r\n");
    if (data.isUsed() && startsData(command, reply)) {
        data.play(client);
        if (session.afterData.empty()) {
            return false;
        }
        client.send(session.afterData + "\r\n");
    }
    return wordOf(command) != "QUIT";
}

std::string FtpServer::replyTo(const FtpSession& session, const std::string& command,
                               std::uint16_t dataPort) {
    const std::string word = wordOf(command);
    const auto own = session.replies.find(word);
    if (own != session.replies.end()) {
        return own->second;
    }
    if (word == "EPSV") {
        return epsvReply(dataPort);
    }
    if (word == "PASV") {
        return pasvReply(dataPort, session.pasvHost);
    }
    if (word == "SIZE" && session.size.has_value()) {
        return "213 " + std::to_string(*session.size);
    }
    for (const auto& [usualWord, usualReply] : kUsualReplies) {
        if (word == usualWord) {
            return usualReply;
        }
    }
    return "500 What?";
}

FtpTest::FtpTest() {
    m_server.emplace();
    makeTransfer(voInetProtocolFtp);
}

FtpTest::~FtpTest() = default;

void FtpTest::TearDown() {
    m_server.reset();
    WireTest::TearDown();
}

TransferSettings FtpTest::settings() const {
    TransferSettings settings;
    settings.hostNetBios = m_server->hostAndPort();
    return settings;
}

void FtpTest::logOn(const TransferSettings& settings) {
    applySettings(transfer(), settings);
    server().session({});
    ASSERT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    ASSERT_TRUE(server().control().awaitPlayed());
    server().forgetCommands();
}

voInetError FtpTest::downloadIn(FtpSession session) {
    server().session(std::move(session));
    return download().result;
}

}  // namespace tessaro_com::pkm::voInet::wire
