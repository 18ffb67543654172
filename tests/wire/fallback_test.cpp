// From one host form to the next.

#include "support/wiretest.h"
#include "voinet/cnetconnection.h"

#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;

/// One server for each form of the host's name.
class Fallback : public WireTest {
  protected:
    void SetUp() override {
        for (auto& server : m_servers) {
            server.emplace();
        }
        makeTransfer(voInetProtocolHttp);
        makeLocalFile("old");
    }

    void TearDown() override {
        for (auto& server : m_servers) {
            server.reset();
        }
        WireTest::TearDown();
    }

    ScriptedServer& ip() { return *m_servers[0]; }
    ScriptedServer& fqdn() { return *m_servers[1]; }
    ScriptedServer& netBios() { return *m_servers[2]; }

    TransferSettings allForms() {
        TransferSettings settings;
        settings.hostIp = ip().hostAndPort();
        settings.hostFqdn = L"localhost:" + std::to_wstring(fqdn().port());
        settings.hostNetBios = netBios().hostAndPort();
        return settings;
    }

    TransferSettings onlyIp() {
        TransferSettings settings;
        settings.hostIp = ip().hostAndPort();
        return settings;
    }

    voInetError logOn(const TransferSettings& settings) {
        applySettings(transfer(), settings);
        return transfer().Logon(false, 0);
    }

    static void serve(ScriptedServer& server, const std::vector<int>& statuses) {
        for (const int status : statuses) {
            server.connection(answer(reply(status, status == 200 ? "new" : "")));
        }
    }

    /// What a server was asked for, in order.
    static std::vector<std::string> asked(const ScriptedServer& server) {
        std::vector<std::string> methods;
        for (const auto& request : server.requests()) {
            methods.push_back(request.method);
        }
        return methods;
    }

  private:
    std::array<std::optional<ScriptedServer>, 3> m_servers;
};

Script probe(int status = 200) {
    return answer(reply(status));
}

TEST_F(Fallback, AllFormsAlive_UsesTheAddress) {
    ip().connection(probe());
    serve(ip(), {200});

    EXPECT_EQ(logOn(allForms()), voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
    EXPECT_EQ(fqdn().connectionCount(), 0U);
}

TEST_F(Fallback, AddressDeadAtLogon_UsesTheName) {
    const RefusingPort dead;
    TransferSettings settings = allForms();
    settings.hostIp = dead.hostAndPort();
    fqdn().connection(probe());
    serve(fqdn(), {200});

    EXPECT_EQ(logOn(settings), voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
    EXPECT_EQ(fqdn().requests().back().header("Host"),
              "localhost:" + std::to_string(fqdn().port()));
    EXPECT_EQ(netBios().connectionCount(), 0U);
}

TEST_F(Fallback, TwoFormsDeadAtLogon_UsesTheThird) {
    const RefusingPort dead;
    TransferSettings settings = allForms();
    settings.hostIp = dead.hostAndPort();
    fqdn().connection(probe(404));
    netBios().connection(probe());
    serve(netBios(), {200});

    EXPECT_EQ(logOn(settings), voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
}

TEST_F(Fallback, AllFormsDeadAtLogon_EndsWithTheLastResult) {
    const RefusingPort dead;
    TransferSettings settings;
    settings.hostIp = ip().hostAndPort();
    settings.hostFqdn = fqdn().hostAndPort();
    settings.hostNetBios = dead.hostAndPort();
    ip().connection(probe(404));
    fqdn().connection(probe(500));

    EXPECT_EQ(logOn(settings), voInetErrorTransferFailed);
}

TEST_F(Fallback, AddressWithoutAUsablePort_IsPassedOver) {
    TransferSettings settings = allForms();
    settings.hostIp = L"127.0.0.1:none";
    fqdn().connection(probe());

    EXPECT_EQ(logOn(settings), voInetErrorSuccess);
}

TEST_F(Fallback, DownloadFailsAtTheAddress_LogsOnToTheNameAndDownloadsThere) {
    ip().connection(probe());
    serve(ip(), {503});
    fqdn().connection(probe());
    serve(fqdn(), {200});
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
    EXPECT_THAT(asked(ip()), ElementsAre("HEAD", "GET"));
    EXPECT_THAT(asked(fqdn()), ElementsAre("HEAD", "GET"));
}

TEST_F(Fallback, PlainUpload_LogsOnToTheOtherFormsBeforeItIsRefused) {
    ip().connection(probe());
    fqdn().connection(probe());
    netBios().connection(probe());
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);

    EXPECT_EQ(transfer().UploadFile(widened(localFile()), L"file.zip", &sink()),
              voInetErrorNotSupported);

    EXPECT_THAT(asked(fqdn()), ElementsAre("HEAD"));
    EXPECT_THAT(asked(netBios()), ElementsAre("HEAD"));
}

TEST_F(Fallback, NameFailsTheLogonDuringADownload_GoesOnToTheThirdForm) {
    ip().connection(probe());
    serve(ip(), {500});
    fqdn().connection(probe(404));
    netBios().connection(probe());
    serve(netBios(), {200});
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
}

TEST_F(Fallback, EveryFormFailsTheDownload_EndsWithTheLastResultAndTheOldFile) {
    ip().connection(probe());
    serve(ip(), {503});
    fqdn().connection(probe());
    serve(fqdn(), {500});
    netBios().connection(probe());
    serve(netBios(), {404});
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorFileNotFound);

    expectLocalFile("old");
}

TEST_F(Fallback, BodyCutAtTheAddress_IsDownloadedWholeFromTheName) {
    const std::string body = makeBody(100'000);
    ip().connection(probe());
    ip().connection(answer(reply(200, body).substr(0, 50'000)));
    fqdn().connection(probe());
    fqdn().connection(answer(reply(200, body)));
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body);
}

TEST_F(Fallback, ResultsThatAreNotTheHostsFault_DoNotMoveOn) {
    const std::vector<std::pair<int, voInetError>> answers = {
        {401, voInetErrorLoginIncorrect},
        {404, voInetErrorFileNotFound},
        {407, voInetErrorProxyAuthRequired},
    };
    ip().connection(probe());
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);
    for (const auto& [status, result] : answers) {
        serve(ip(), {status});
        EXPECT_EQ(download().result, result) << status;
        expectLocalFile("old");
    }
    EXPECT_EQ(fqdn().connectionCount(), 0U);
}

TEST_F(Fallback, Cancel_DoesNotMoveOn) {
    ip().connection(probe());
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);
    ip().connection(
        {receiveRequest(), send(reply(200, makeBody(1000)).substr(0, 500)), awaitClose()});
    sink().stopAt(1);

    EXPECT_EQ(download().result, voInetErrorCancelled);

    EXPECT_EQ(fqdn().connectionCount(), 0U);
}

TEST_F(Fallback, AfterMovingOn_TheNextDownloadStartsThere) {
    ip().connection(probe());
    serve(ip(), {503});
    fqdn().connection(probe());
    serve(fqdn(), {200, 200});
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);
    ASSERT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(asked(fqdn()), ElementsAre("HEAD", "GET", "GET"));
    EXPECT_THAT(asked(ip()), ElementsAre("HEAD", "GET"));
}

TEST_F(Fallback, OnlyFormFailsButAnswersTheProbe_EndsInBadOptions) {
    // The next form is not configured: the logon goes to the host that is active still, and the
    // next attempt finds its form without a host. The final result hides the 503.
    ip().connection(probe());
    serve(ip(), {503});
    ip().connection(probe());
    ASSERT_EQ(logOn(onlyIp()), voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorBadOptions);

    EXPECT_THAT(asked(ip()), ElementsAre("HEAD", "GET", "HEAD"));
    expectLocalFile("old");
}

TEST_F(Fallback, OnlyFormFailsTheProbesToo_EndsWithItsOwnResult) {
    ip().connection(probe());
    serve(ip(), {503});
    ip().connection(probe(404));
    ip().connection(probe(404));
    ASSERT_EQ(logOn(onlyIp()), voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    EXPECT_THAT(asked(ip()), ElementsAre("HEAD", "GET", "HEAD", "HEAD"));
    expectLocalFile("old");
}

TEST_F(Fallback, LastFormFails_MakesNoFurtherAttempt) {
    TransferSettings settings;
    settings.hostNetBios = netBios().hostAndPort();
    netBios().connection(probe());
    serve(netBios(), {503});
    ASSERT_EQ(logOn(settings), voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    EXPECT_THAT(asked(netBios()), ElementsAre("HEAD", "GET"));
}

TEST_F(Fallback, ResumeOffset_IsKeptForTheNextForm) {
    const std::string body = makeBody(10'000);
    makeLocalFile(body.substr(0, 5000));
    DownloadArguments arguments;
    arguments.offset = 5000 - 1024;
    const auto offset = static_cast<std::size_t>(arguments.offset);
    const std::string checked = reply(206, body.substr(offset, 1024));
    ip().connection(probe());
    ip().connection(answer(checked));
    ip().connection({receiveRequest(), reset()});
    fqdn().connection(probe());
    fqdn().connection(answer(checked));
    fqdn().connection(answer(reply(206, body.substr(offset))));
    ASSERT_EQ(logOn(allForms()), voInetErrorSuccess);

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorSuccess);

    expectLocalFile(body);
    EXPECT_EQ(fqdn().requests().back().header("Range"), "bytes=3976-");
}

TEST_F(Fallback, ActiveHost_IsTheOneThatAnswered) {
    const RefusingPort dead;
    TransferSettings settings = allForms();
    settings.hostIp = dead.hostAndPort();
    fqdn().connection(probe());

    ASSERT_EQ(logOn(settings), voInetErrorSuccess);

    EXPECT_EQ(transfer().m_strHost, L"localhost");
    EXPECT_EQ(transfer().m_strHost_utf8_rep, "localhost");
    EXPECT_EQ(transfer().m_nPort, fqdn().port());
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
