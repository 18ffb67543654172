// The development server with TLS.

#include "serversite.h"
#include "tlsclient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace voinettest {
namespace {

using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

class TlsSite : public Site {
  public:
    std::string directory() const { return (outside() / "tls").string(); }
    std::string caFile() const { return directory() + "/ca.pem"; }

    DevelopmentServer start(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"--tls", directory()});
        return serve(*this, options);
    }
};

std::string exchangeOver(const TlsConnection& connection, const std::string& request) {
    connection.send(request);
    return connection.readToEnd();
}

TEST(ServerTls, ListeningLine_SaysHttps) {
    const TlsSite site;
    const DevelopmentServer server = site.start();

    EXPECT_THAT(server.listeningLine(), HasSubstr(" https://127.0.0.1:"));
}

TEST(ServerTls, CaFile_VerifiesTheServer) {
    const TlsSite site;
    const DevelopmentServer server = site.start();
    const TlsConnection connection(server.port(), site.caFile());

    EXPECT_TRUE(connection.isVerified());
}

TEST(ServerTls, CaFileOfAnotherServer_DoesNotVerifyIt) {
    const TlsSite site;
    const TlsSite other;
    const DevelopmentServer server = site.start();
    const DevelopmentServer otherServer = other.start();

    EXPECT_FALSE(TlsConnection(server.port(), other.caFile()).isVerified());
    EXPECT_FALSE(TlsConnection(otherServer.port(), site.caFile()).isVerified());
    EXPECT_TRUE(TlsConnection(otherServer.port(), other.caFile()).isVerified());
}

TEST(ServerTls, Restart_MakesAnotherCa) {
    const TlsSite site;
    site.start().process().stop();
    const std::string first = site.readOutside("tls/ca.pem");
    const DevelopmentServer server = site.start();

    EXPECT_NE(site.readOutside("tls/ca.pem"), first);
    EXPECT_TRUE(TlsConnection(server.port(), site.caFile()).isVerified());
    const std::string old = site.writeOutside("old.pem", first);
    EXPECT_FALSE(TlsConnection(server.port(), old).isVerified());
}

TEST(ServerTls, Certificate_IsForThisServerAlone) {
    const TlsSite site;
    const DevelopmentServer server = site.start({"--bind", "127.0.0.5"});
    const TlsConnection connection(server.port(), site.caFile(), "127.0.0.5");
    const ServerCertificate certificate = connection.certificate();

    EXPECT_THAT(certificate.names,
                UnorderedElementsAre("DNS:localhost", "IP:127.0.0.1", "IP:::1", "IP:127.0.0.5"));
    EXPECT_FALSE(certificate.isAuthority);
}

TEST(ServerTls, Certificate_IsValidFromYesterdayForAYear) {
    constexpr std::time_t kHour = 3600;
    constexpr std::time_t kDay = 24 * kHour;
    const TlsSite site;
    const DevelopmentServer server = site.start();
    const ServerCertificate certificate = TlsConnection(server.port(), site.caFile()).certificate();
    const std::time_t now = std::time(nullptr);

    EXPECT_LT(certificate.validFrom, now - kDay + kHour);
    EXPECT_GT(certificate.validFrom, now - kDay - kHour);
    EXPECT_GT(certificate.validTo, now + 365 * kDay - kHour);
    EXPECT_LT(certificate.validTo, now + 365 * kDay + kHour);
}

TEST(ServerTls, Ipv6Loopback_IsServed) {
    const TlsSite site;
    const DevelopmentServer server = site.start({"--bind", "::1"});
    const TlsConnection connection(server.port(), site.caFile(), "::1");

    EXPECT_TRUE(connection.isVerified());
    EXPECT_THAT(connection.certificate().names, Contains("IP:::1"));
}

TEST(ServerTls, Directory_HasTheCertificateOfTheCaAndNoKey) {
    const TlsSite site;
    DevelopmentServer server = site.start({"--exchange", "/exchange"});
    const TlsConnection connection(server.port(), site.caFile());
    exchangeOver(connection, agentRequest("package", "/exchange", {"Connection: close"}));
    server.process().stop();

    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(site.outside())) {
        if (entry.is_regular_file()) {
            names.push_back(fs::relative(entry.path(), site.outside()).string());
            EXPECT_THAT(site.readOutside(names.back()), ::testing::Not(HasSubstr("PRIVATE")))
                << names.back();
        }
    }
    EXPECT_THAT(names,
                UnorderedElementsAre("repository/file.bin", "repository/empty.bin",
                                     "repository/folder/inner.bin", "secret.txt", "tls/ca.pem"));
    const std::string pem = site.readOutside("tls/ca.pem");
    EXPECT_THAT(pem, StartsWith("-----BEGIN CERTIFICATE-----\n"));
    EXPECT_THAT(pem, EndsWith("\n-----END CERTIFICATE-----\n"));
    EXPECT_EQ(pem.find("-----BEGIN", 1), std::string::npos);
}

TEST(ServerTls, FilesAndExchange_AreServed) {
    const TlsSite site;
    const std::string body = positionDependent(5 << 20);
    const std::string answer = site.writeOutside("answers/1", positionDependent(3 << 20));
    const DevelopmentServer server = site.start(
        {"--exchange", "/exchange", "--exchange-answers", (site.outside() / "answers").string(),
         "--exchange-requests", (site.outside() / "requests").string()});

    const std::string file = exchangeOver(TlsConnection(server.port(), site.caFile()),
                                          rawRequest("GET", "/file.bin", {"Connection: close"}));
    EXPECT_THAT(file, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(file, EndsWith("\r\n\r\n" + fileData()));

    const std::string reply = exchangeOver(TlsConnection(server.port(), site.caFile()),
                                           agentRequest(body, "/exchange", {"Connection: close"}));
    EXPECT_THAT(reply.substr(0, 17), "HTTP/1.1 200 OK\r\n");
    EXPECT_TRUE(reply.substr(reply.find("\r\n\r\n") + 4) == site.readOutside("answers/1"));
    EXPECT_TRUE(site.readOutside("requests/000001.bin") == body);

    const std::string refused =
        exchangeOver(TlsConnection(server.port(), site.caFile()),
                     postHead("/exchange", {"Host: localhost", "Connection: close"}));
    EXPECT_THAT(refused, StartsWith("HTTP/1.1 400 "));
}

TEST(ServerTls, PlainRequest_GetsNoReply) {
    const TlsSite site;
    const DevelopmentServer server = site.start();
    RawConnection connection(server.port());
    connection.send(rawRequest("GET", "/file.bin"));

    EXPECT_THROW(connection.readReply(), std::runtime_error);
    EXPECT_TRUE(TlsConnection(server.port(), site.caFile()).isVerified());
}

TEST(ServerTls, TlsPort_LeavesThePlainPort) {
    const TlsSite site;
    const std::string portFile = (site.outside() / "port.txt").string();
    DevelopmentServer server =
        site.start({"--tls-port", "0", "--exchange", "/exchange", "--exchange-status",
                    "503,404,202", "--port-file", portFile});
    const std::string secondLine = server.process().readLine().value_or("");
    const std::uint16_t tlsPort = portOfLine(secondLine);

    EXPECT_THAT(server.listeningLine(), HasSubstr(" http://127.0.0.1:"));
    EXPECT_THAT(secondLine, HasSubstr(" https://127.0.0.1:"));
    EXPECT_EQ(site.readOutside("port.txt"),
              std::to_string(server.port()) + '\n' + std::to_string(tlsPort) + '\n');
    EXPECT_EQ(get(server, "/file.bin").body, fileData());
    // Both ports lead to the same exchange.
    const TlsConnection connection(tlsPort, site.caFile());
    EXPECT_THAT(exchangeOver(connection, agentRequest("a", "/exchange", {"Connection: close"})),
                StartsWith("HTTP/1.1 503 "));
    RawConnection plain(server.port());
    plain.send(agentRequest("a"));
    EXPECT_EQ(plain.readReply().status, 404);
    EXPECT_THAT(server.process().stop(), Optional(0));
    EXPECT_FALSE(fs::exists(portFile));
}

TEST(ServerTls, TlsPortInUse_IsSaidAndLeavesTheCaFile) {
    const TlsSite site;
    const DevelopmentServer first = site.start();
    const std::string ca = site.readOutside("tls/ca.pem");

    const ProcessResult second =
        runToEnd({{kProgram, "--port", "0", "--tls", site.directory(), "--tls-port",
                   std::to_string(first.port()), site.root().string()}});

    EXPECT_EQ(second.status, 1);
    EXPECT_TRUE(isOneLine(second.standardError)) << second.standardError;
    EXPECT_THAT(second.standardError, HasSubstr("in use"));
    EXPECT_EQ(site.readOutside("tls/ca.pem"), ca);
}

TEST(ServerTls, Stop_EndsConnectionsThatIdleOrHaveNotShakenHands) {
    const TlsSite site;
    DevelopmentServer server = site.start();
    RawConnection silent(server.port());
    const TlsConnection idle(server.port(), site.caFile());

    // Half of the time for which a connection may idle.
    EXPECT_THAT(server.process().stop(Deadline::in(std::chrono::seconds(15))), Optional(0));
    EXPECT_THAT(idle.readToEnd(), IsEmpty());
    EXPECT_TRUE(silent.readsEnd());
    EXPECT_THAT(server.process().standardError(), IsEmpty());
}

}  // namespace
}  // namespace voinettest
