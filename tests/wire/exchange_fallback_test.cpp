// The exchange under several forms of the server's name.

#include "support/exchange.h"

#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kMarker = "ORB-WHY-FORBIDDEN: UpgradeKey";

/// The server of the base is the one behind the address.
class ExchangeFallback : public ExchangeTest {
  protected:
    void SetUp() override {
        ExchangeTest::SetUp();
        m_name.emplace();
        m_netBios.emplace();
        applySettings(transfer(), allForms());
    }

    void TearDown() override {
        m_name.reset();
        m_netBios.reset();
        ExchangeTest::TearDown();
    }

    ScriptedServer& byAddress() { return server(); }
    ScriptedServer& byName() { return *m_name; }
    ScriptedServer& byNetBios() { return *m_netBios; }

    TransferSettings allForms() {
        TransferSettings settings;
        settings.hostIp = byAddress().hostAndPort();
        settings.hostFqdn = L"localhost:" + std::to_wstring(byName().port());
        settings.hostNetBios = byNetBios().hostAndPort();
        return settings;
    }

    void kill(ScriptedServer& server, int connections = 1) {
        for (int i = 0; i < connections; ++i) {
            server.connection({reset()});
        }
    }

  private:
    std::optional<ScriptedServer> m_name;
    std::optional<ScriptedServer> m_netBios;
};

/// Results of an answer with which the exchange is over.
constexpr std::pair<int, voInetError> kFinalAnswers[] = {
    {200, voInetErrorPackageReceived}, {201, voInetErrorServerBusy}, {202, voInetErrorNoPackage},
    {500, voInetErrorSuccess},         {503, voInetErrorServerBusy}, {506, voInetErrorGuidExists},
};

/// Results of an answer that another form may better.
constexpr std::pair<int, voInetError> kOtherAnswers[] = {
    {400, voInetErrorInvalidRequest},
    {403, voInetErrorAccessDenied},
    {404, voInetErrorFileNotFound},
};

TEST_F(ExchangeFallback, FinalAnswerAtTheAddress_GoesNowhereElse) {
    for (const auto& [status, result] : kFinalAnswers) {
        EXPECT_EQ(postAnswered(reply(status)), result) << status;
    }
    EXPECT_EQ(byName().connectionCount(), 0U);
    EXPECT_EQ(byNetBios().connectionCount(), 0U);
}

TEST_F(ExchangeFallback, OutdatedKeysAtTheAddress_GoNowhereElse) {
    EXPECT_EQ(postAnswered(reply(403, "", {kMarker})), voInetErrorKeysOutdated);

    EXPECT_EQ(byName().connectionCount(), 0U);
}

TEST_F(ExchangeFallback, AddressDead_PostsToTheName) {
    const RefusingPort dead;
    TransferSettings settings = allForms();
    settings.hostIp = dead.hostAndPort();
    applySettings(transfer(), settings);
    byName().connection(answer(reply(200, "package")));

    EXPECT_EQ(post(), voInetErrorPackageReceived);

    expectResponse("package");
    ASSERT_THAT(byName().requests(), SizeIs(1));
    EXPECT_EQ(byName().requests().front().header("Host"), "localhost");
    EXPECT_EQ(byName().requests().front().body, readFile(requestFile()));
    EXPECT_EQ(byNetBios().connectionCount(), 0U);
}

TEST_F(ExchangeFallback, OtherAnswerAtTheAddress_PostsToTheName) {
    for (const auto& [status, result] : kOtherAnswers) {
        byName().connection(answer(reply(202)));
        EXPECT_EQ(postAnswered(reply(status, "refused")), voInetErrorNoPackage) << status;
        expectResponse("");
    }
    EXPECT_EQ(byNetBios().connectionCount(), 0U);
}

TEST_F(ExchangeFallback, PackageThatCannotBeStored_IsPostedToEveryForm) {
    for (ScriptedServer* server : {&byAddress(), &byName(), &byNetBios()}) {
        server->connection(answer(reply(200, "package")));
    }

    EXPECT_EQ(
        transfer().UploadFileResponse(widened(requestFile()), L"/path", L"/dev/full", &sink()),
        voInetErrorWriteFailed);

    EXPECT_THAT(byAddress().requests(), SizeIs(1));
    EXPECT_THAT(byName().requests(), SizeIs(1));
    EXPECT_THAT(byNetBios().requests(), SizeIs(1));
}

TEST_F(ExchangeFallback, NoLogonIsMade_OnTheWay) {
    kill(byAddress());
    kill(byName());
    byNetBios().connection(answer(reply(202)));

    EXPECT_EQ(post(), voInetErrorNoPackage);

    ASSERT_THAT(byNetBios().requests(), SizeIs(1));
    EXPECT_EQ(byNetBios().requests().front().method, "POST");
    EXPECT_THAT(byName().requests(), IsEmpty());
}

TEST_F(ExchangeFallback, FinalAnswerAtTheName_GoesNowhereElse) {
    for (const auto& [status, result] : kFinalAnswers) {
        kill(byAddress());
        byName().connection(answer(reply(status)));
        EXPECT_EQ(post(), result) << status;
    }
    EXPECT_EQ(byNetBios().connectionCount(), 0U);
}

TEST_F(ExchangeFallback, OutdatedKeysAtTheName_GoNowhereElse) {
    kill(byAddress());
    byName().connection(answer(reply(403, "", {kMarker})));

    EXPECT_EQ(post(), voInetErrorKeysOutdated);

    EXPECT_EQ(byNetBios().connectionCount(), 0U);
}

TEST_F(ExchangeFallback, ThirdAnswer_IsTheResultWhateverItIs) {
    std::vector<std::pair<int, voInetError>> all(std::begin(kFinalAnswers),
                                                 std::end(kFinalAnswers));
    all.insert(all.end(), std::begin(kOtherAnswers), std::end(kOtherAnswers));
    kill(byAddress(), static_cast<int>(all.size()));
    kill(byName(), static_cast<int>(all.size()));
    for (const auto& [status, result] : all) {
        byNetBios().connection(answer(reply(status)));
        EXPECT_EQ(post(), result) << status;
    }
    EXPECT_EQ(byNetBios().connectionCount(), all.size());
}

TEST_F(ExchangeFallback, EveryFormDead_EndsWithTheLastFailure) {
    kill(byAddress());
    kill(byName());
    kill(byNetBios());

    EXPECT_EQ(post(), voInetErrorTransferFailed);
}

TEST_F(ExchangeFallback, NextExchange_BeginsAtTheAddressAgain) {
    kill(byAddress());
    byName().connection(answer(reply(202)));
    ASSERT_EQ(post(), voInetErrorNoPackage);

    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);
}

TEST_F(ExchangeFallback, PartOfAnAnswer_IsNotKeptForTheNextForm) {
    const std::string whole = reply(200, "half a package");
    byAddress().connection(answer(whole.substr(0, whole.size() - 5)));
    byName().connection(answer(reply(202, "n")));

    EXPECT_EQ(post(), voInetErrorNoPackage);

    expectResponse("n");
}

TEST_F(ExchangeFallback, WithoutAnAddress_NothingIsSentAndThatIsSuccess) {
    makeTransfer(voInetProtocolHttp);
    TransferSettings settings = allForms();
    settings.hostIp.clear();
    applySettings(transfer(), settings);

    EXPECT_EQ(post(), voInetErrorSuccess);

    EXPECT_EQ(byName().connectionCount(), 0U);
    EXPECT_EQ(byNetBios().connectionCount(), 0U);
    EXPECT_THAT(directory().entries(), ElementsAre("request"));
}

TEST_F(ExchangeFallback, NameNotConfigured_EndsWithTheResultOfTheAddress) {
    makeTransfer(voInetProtocolHttp);
    TransferSettings settings = allForms();
    settings.hostFqdn.clear();
    applySettings(transfer(), settings);

    EXPECT_EQ(postAnswered(reply(404)), voInetErrorFileNotFound);

    EXPECT_EQ(byNetBios().connectionCount(), 0U);
}

TEST_F(ExchangeFallback, AddressWithoutAUsablePort_PostsToTheName) {
    TransferSettings settings = allForms();
    settings.hostIp = L"127.0.0.1:none";
    applySettings(transfer(), settings);
    byName().connection(answer(reply(202)));

    EXPECT_EQ(post(), voInetErrorNoPackage);
}

TEST_F(ExchangeFallback, WithoutASite_NoFormIsUsed) {
    makeTransfer(voInetProtocolHttp);
    TransferSettings settings = allForms();
    settings.site.clear();
    applySettings(transfer(), settings);

    EXPECT_EQ(post(), voInetErrorBadOptions);

    EXPECT_EQ(byAddress().connectionCount(), 0U);
    EXPECT_EQ(byName().connectionCount(), 0U);
    EXPECT_EQ(byNetBios().connectionCount(), 0U);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
