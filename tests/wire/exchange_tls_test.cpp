// The exchange over TLS: whom the client trusts, and what it makes of everybody else.

#include "support/exchange.h"
#include "support/tls.h"

#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::SizeIs;

constexpr const char* kHost = "127.0.0.1";

/// Why a client does not accept a server. With OpenSSL the alert says so; with mbedTLS it is
/// libcurl that judges, and its trace says so.
struct Distrust {
    Alert alert;
    const wchar_t* verdict;
};

/// Has curl's trace in the log for as long as it lives.
class CurlTrace {
  public:
    CurlTrace() { hostLogSetDetailList({"curl"}); }
    ~CurlTrace() { hostLogSetDetailList({}); }
    CurlTrace(const CurlTrace&) = delete;
    CurlTrace& operator=(const CurlTrace&) = delete;
};

constexpr Distrust kUnknownAuthority{Alert::unknownCa, L"BADCERT_NOT_TRUSTED"};
constexpr Distrust kExpired{Alert::certificateExpired, L"BADCERT_EXPIRED"};
constexpr Distrust kNotValidYet{Alert::badCertificate, L"BADCERT_FUTURE"};

class TlsExchange : public ExchangeTest {
  protected:
    void SetUp() override { makeRequestFile("request"); }

    void TearDown() override {
        m_server.reset();
        ExchangeTest::TearDown();
    }

    const CertificateAuthority& authority() const { return m_authority; }

    ScriptedServer& serve(const Identity& identity) {
        m_server.emplace(AddressFamily::ipv4, tlsTransport(identity));
        useServerAt(m_server->port());
        return *m_server;
    }

    /// The port of the address itself is not the one to use.
    void useServerAt(std::uint16_t port) {
        applySettings(transfer(), addressOnly(L"127.0.0.1:1"));
        transfer().SetOption(voInetOptionUseSSL, true);
        transfer().SetOption(voInetOptionSslPort, static_cast<int>(port));
    }

    void trust(const std::string& pem) { useCaFile(directory().makeFile("ca.pem", pem)); }

    void useCaFile(const std::string& path) {
        EXPECT_EQ(transfer().SetOption(voInetOptionCARootPath, widened(path)), voInetErrorSuccess);
    }

    /// The client trusts `pem`, which does not cover the identity, and ends the handshake.
    void expectDistrust(const std::string& pem, const Identity& identity,
                        const Distrust& distrust) {
        serve(identity).connection({expectRefusal(distrust.alert)});
        trust(pem);
        const CurlTrace trace;

        EXPECT_EQ(post(), voInetErrorCaCert);

        EXPECT_TRUE(m_server->awaitPlayed());
        expectResponse("");
        const std::size_t verdicts = clientTlsLibrary() == TlsLibrary::mbedTls ? 1 : 0;
        EXPECT_EQ(log().count(HostLogLevel::detail, distrust.verdict), verdicts);
    }

    /// The CA file cannot be used; the client does not begin the handshake.
    void expectCaFileFailure() {
        serve(authority().issue(kHost)).otherwise({awaitClose()});

        EXPECT_EQ(post(), voInetErrorTransferFailed);
    }

    /// The result when what stands at the SSL port plays this script over plain TCP.
    voInetError postToPlainServer(Script script) {
        trust(authority().pem());
        useServerAt(server().port());
        return postDuring(std::move(script));
    }

  private:
    CertificateAuthority m_authority;
    std::optional<ScriptedServer> m_server;
};

/// Takes the first message of a handshake.
Step receiveHello() {
    return [](Conversation& client) { client.receiveBytes(5); };
}

TEST_F(TlsExchange, TrustedServer_GetsTheRequestAndItsPackageIsStored) {
    ScriptedServer& server = serve(authority().issue(kHost));
    server.connection(answer(reply(200, "package")));
    trust(authority().pem());

    EXPECT_EQ(post(), voInetErrorPackageReceived);

    expectResponse("package");
    ASSERT_THAT(server.requests(), SizeIs(1));
    const Request request = server.requests().front();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/path");
    EXPECT_EQ(request.header("Host"), "127.0.0.1");
    EXPECT_EQ(request.headerCount("Content-Length"), 1U);
    EXPECT_EQ(request.header("Transfer-Encoding"), std::nullopt);
    EXPECT_EQ(request.body, "request");
}

TEST_F(TlsExchange, LargeRequestAndPackage_AreCarriedWhole) {
    const std::string content = makeBody(std::size_t{5} * 1024 * 1024);
    const std::string package = makeBody(std::size_t{3} * 1024 * 1024, 99);
    makeRequestFile(content);
    ScriptedServer& server = serve(authority().issue(kHost));
    server.connection(answer(reply(200, package)));
    trust(authority().pem());

    EXPECT_EQ(post(), voInetErrorPackageReceived);

    expectResponse(package);
    ASSERT_THAT(server.requests(), SizeIs(1));
    EXPECT_TRUE(server.requests().front().body == content);
}

TEST_F(TlsExchange, Marker_IsSeenThroughTls) {
    serve(authority().issue(kHost))
        .connection(answer(reply(403, "", {"ORB-WHY-FORBIDDEN: UpgradeKey"})));
    trust(authority().pem());

    EXPECT_EQ(post(), voInetErrorKeysOutdated);
}

TEST_F(TlsExchange, SslPort_ServesEveryFormOfTheHost) {
    ScriptedServer& server = serve(authority().issue(kHost));
    TransferSettings settings;
    settings.hostIp = L"127.0.0.1:1";
    settings.hostFqdn = L"localhost:2";
    settings.hostNetBios = L"localhost:3";
    applySettings(transfer(), settings);
    trust(authority().pem());
    server.connection(answer(reply(404)));
    server.connection(answer(reply(400)));
    server.connection(answer(reply(202)));

    EXPECT_EQ(post(), voInetErrorNoPackage);

    ASSERT_THAT(server.requests(), SizeIs(3));
    EXPECT_EQ(server.requests()[0].header("Host"), "127.0.0.1");
    EXPECT_EQ(server.requests()[1].header("Host"), "localhost");
}

TEST_F(TlsExchange, CertificateForAnotherHost_IsAccepted) {
    // The authority vouches for management servers only; under which name is not looked at.
    serve(authority().issue("somewhere.example")).connection(answer(reply(202)));
    trust(authority().pem());

    EXPECT_EQ(post(), voInetErrorNoPackage);
}

TEST_F(TlsExchange, AuthorityAmongOthersInTheFile_IsTrusted) {
    serve(authority().issue(kHost)).connection(answer(reply(202)));
    trust(CertificateAuthority("Another CA").pem() + authority().pem());

    EXPECT_EQ(post(), voInetErrorNoPackage);
}

TEST_F(TlsExchange, ServerOfAnotherAuthority_IsRefused) {
    expectDistrust(CertificateAuthority("Another CA").pem(), authority().issue(kHost),
                   kUnknownAuthority);
}

TEST_F(TlsExchange, ServerOfAnAuthorityThatTakesTheTrustedName_IsRefused) {
    // Only the signature tells them apart; curl calls that a failed handshake.
    serve(CertificateAuthority().issue(kHost)).connection({expectRefusal(Alert::decryptError)});
    trust(authority().pem());

    EXPECT_THAT(post(), testing::AnyOf(voInetErrorSslConnect, voInetErrorCaCert));
}

TEST_F(TlsExchange, SelfSignedServer_IsRefused) {
    expectDistrust(authority().pem(), selfSigned(kHost), kUnknownAuthority);
}

TEST_F(TlsExchange, ExpiredServer_IsRefused) {
    expectDistrust(authority().pem(), authority().issue(kHost, {-10, -1}), kExpired);
}

TEST_F(TlsExchange, ServerThatIsNotValidYet_IsRefused) {
    expectDistrust(authority().pem(), authority().issue(kHost, {1, 10}), kNotValidYet);
}

TEST_F(TlsExchange, ExpiredAuthority_IsRefused) {
    const CertificateAuthority expired("Expired CA", {-10, -1});

    expectDistrust(expired.pem(), expired.issue(kHost), kExpired);
}

TEST_F(TlsExchange, ServerThatActsAsAuthority_IsRefused) {
    // A certificate for a server must not vouch for another one.
    const Identity issued = authority().issue("middle.example");

    expectDistrust(issued.certificate, authority().issue(kHost), kUnknownAuthority);
}

TEST_F(TlsExchange, RefusalAtTheAddress_IsTriedUnderTheName) {
    ScriptedServer& server = serve(selfSigned(kHost));
    TransferSettings settings;
    settings.hostIp = L"127.0.0.1:1";
    settings.hostFqdn = L"localhost:2";
    applySettings(transfer(), settings);
    trust(authority().pem());
    server.connection({expectRefusal(Alert::unknownCa)});
    server.connection({expectRefusal(Alert::unknownCa)});

    EXPECT_EQ(post(), voInetErrorCaCert);
}

TEST_F(TlsExchange, MissingCaFile_IsATransferFailure) {
    useCaFile(directory().path("missing.pem"));

    expectCaFileFailure();
}

TEST_F(TlsExchange, CaFileThatIsADirectory_IsATransferFailure) {
    useCaFile(directory().path());

    expectCaFileFailure();
}

TEST_F(TlsExchange, CaFileWithoutACertificate_IsATransferFailure) {
    trust("nothing of that kind\n");

    expectCaFileFailure();
}

TEST_F(TlsExchange, EmptyCaFile_IsATransferFailure) {
    trust("");

    expectCaFileFailure();
}

TEST_F(TlsExchange, NoCaFileSet_IsATransferFailure) {
    expectCaFileFailure();
}

TEST_F(TlsExchange, PlainServerAtTheSslPort_FailsTheHandshake) {
    EXPECT_EQ(postToPlainServer({receiveHello(), send(reply(400, "speak TLS")), halfClose()}),
              voInetErrorSslConnect);

    expectResponse("");
}

TEST_F(TlsExchange, CloseAtTheHello_FailsTheHandshake) {
    EXPECT_EQ(postToPlainServer({receiveHello()}), voInetErrorSslConnect);
}

TEST_F(TlsExchange, ResetBeforeTheHello_FailsTheHandshakeOrTheConnect) {
    // The reset can be there before curl has seen that the connection stands.
    EXPECT_THAT(postToPlainServer({reset()}),
                testing::AnyOf(voInetErrorSslConnect, voInetErrorTransferFailed));
}

TEST_F(TlsExchange, CutInTheAnswerToTheHello_FailsTheHandshake) {
    // The beginning of a record that announces more.
    const std::string record("\x16\x03\x03\x00\x7a\x02\x00", 7);

    EXPECT_EQ(postToPlainServer({receiveHello(), send(record)}), voInetErrorSslConnect);
}

TEST_F(TlsExchange, AlertAsAnswerToTheHello_FailsTheHandshake) {
    const std::string handshakeFailure("\x15\x03\x03\x00\x02\x02\x28", 7);

    EXPECT_EQ(postToPlainServer({receiveHello(), send(handshakeFailure)}), voInetErrorSslConnect);
}

TEST_F(TlsExchange, CloseBehindTheHandshake_IsATransferFailure) {
    serve(authority().issue(kHost)).connection({receiveRequest()});
    trust(authority().pem());

    EXPECT_EQ(post(), voInetErrorTransferFailed);

    expectResponse("");
}

TEST_F(TlsExchange, CutInTheBody_IsATransferFailureAndKeepsWhatHasArrived) {
    const std::string whole = reply(200, "package");
    serve(authority().issue(kHost)).connection(answer(whole.substr(0, whole.size() - 3)));
    trust(authority().pem());

    EXPECT_EQ(post(), voInetErrorTransferFailed);

    expectResponse("pack");
}

TEST_F(TlsExchange, BodyWithoutALength_EndsWithTheConnection) {
    ScriptedServer& server = serve(authority().issue(kHost));
    trust(authority().pem());
    const std::string unmeasured = "HTTP/1.1 200 OK\r\n\r\npackage";

    server.connection({receiveRequest(), send(unmeasured), halfClose()});
    EXPECT_EQ(post(), voInetErrorPackageReceived);
    expectResponse("package");

    // With OpenSSL libcurl does not wait for the end of TLS: who can cut the connection can shorten
    // such a package. With mbedTLS it takes that for an error.
    server.connection(answer(unmeasured));
    EXPECT_EQ(post(), clientTlsLibrary() == TlsLibrary::openSsl ? voInetErrorPackageReceived
                                                                : voInetErrorTransferFailed);
    expectResponse("package");
}

TEST_F(TlsExchange, WithoutUseSsl_ThePortOfTheAddressAndPlainHttpAreUsed) {
    applySettings(transfer(), addressOnly(server().hostAndPort()));
    transfer().SetOption(voInetOptionSslPort, 1);
    trust(authority().pem());

    EXPECT_EQ(postAnswered(reply(202)), voInetErrorNoPackage);
}

TEST_F(TlsExchange, LogonWithUseSsl_IsPlainHttpAtTheSslPort) {
    useServerAt(server().port());
    server().connection(answer(reply(200)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_EQ(requests().front().method, "HEAD");
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
