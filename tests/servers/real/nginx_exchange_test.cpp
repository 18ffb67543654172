// The exchange with the management server through nginx.

#include "nginxserver.h"
#include "servertest.h"
#include "support/tls.h"

#include <ostream>
#include <string>

namespace tessaro_com::pkm::voInet {

namespace {

using testing::IsEmpty;
using voinettest::kMediumSize;
using voinettest::NginxServer;
using voinettest::ReservedPort;
using voinettest::servedText;
using wire::clientTlsLibrary;
using wire::TlsLibrary;

class NginxExchange : private voinettest::Needs<voinettest::shared<NginxServer>>,
                      public voinettest::ServerTest {
  protected:
    static const NginxServer& server() { return voinettest::shared<NginxServer>(); }

    void SetUp() override {
        server().takeBodies();
        makeTransfer(voInetProtocolHttp);
        knowServerAt(server().port());
    }

    void knowServerAt(const ReservedPort& port) {
        TransferSettings settings;
        settings.hostIp = hostAndPort(port);
        applySettings(transfer(), settings);
    }

    /// From here on over TLS; the server's certificate must come from this authority.
    void useTls(const std::string& authorityFile, const ReservedPort& port = server().portTls()) {
        transfer().SetOption(voInetOptionUseSSL, true);
        transfer().SetOption(voInetOptionSslPort, static_cast<int>(port.number()));
        transfer().SetOption(voInetOptionCARootPath, wide(authorityFile));
    }

    voInetError post(std::string_view body, const std::wstring& serverPath) {
        const std::string request = directory().makeFile("request.bin", body);
        return transfer().UploadFileResponse(wide(request), serverPath, wide(localFile()), nullptr);
    }

    /// Posts the beginning of the served text, which must be stored whole, and gets a package.
    void exchanges(std::size_t size) {
        EXPECT_EQ(post(servedText(size), L"/management/package"), voInetErrorPackageReceived);

        expectLocalText(servedText(kMediumSize));
        expectStored(size);
    }

    static void expectStored(std::size_t size) {
        const auto bodies = server().takeBodies();
        ASSERT_EQ(bodies.size(), 1U);
        EXPECT_TRUE(bodies.front() == servedText(size)) << bodies.front().size() << " bytes";
    }
};

TEST_F(NginxExchange, EmptyRequest_IsStored) {
    exchanges(0);
}

TEST_F(NginxExchange, NineteenBytes_AreStored) {
    exchanges(19);
}

TEST_F(NginxExchange, FiveMebibytes_AreStored) {
    exchanges(kMediumSize);
}

TEST_F(NginxExchange, OverIpv6_IsStored) {
    knowServerAt(server().portIpv6());

    exchanges(kMediumSize);
}

TEST_F(NginxExchange, Head_IsThatOfOnePlainPost) {
    EXPECT_EQ(post(servedText(kMediumSize), L"/head"), voInetErrorPackageReceived);

    expectLocalFile(
        "method=POST\n"
        "host=127.0.0.1\n"
        "length=5242880\n"
        "encoding=\n"
        "expect=\n"
        "accept=application/octet-stream\n"
        "language=en-us\n"
        "type=application/octet-stream\n"
        "agent=Mozilla/4.0 (compatible; KESTL/3.0; Windows)\n");
}

TEST_F(NginxExchange, Tls_IsStored) {
    useTls(server().authorityFile());

    exchanges(kMediumSize);
}

TEST_F(NginxExchange, Tls12_IsSpoken) {
    useTls(server().authorityFile(), server().portTls12());

    EXPECT_EQ(post("request", L"/"), voInetErrorPackageReceived);

    expectLocalFile("TLSv1.2");
}

// mbedTLS 2.28 has no TLS 1.3.
TEST_F(NginxExchange, Tls13_IsSpokenWhereTheTlsLibraryHasIt) {
    const bool isSpoken = clientTlsLibrary() == TlsLibrary::openSsl;
    useTls(server().authorityFile(), server().portTls13());

    EXPECT_EQ(post("request", L"/"), isSpoken ? voInetErrorPackageReceived : voInetErrorSslConnect);

    expectLocalFile(isSpoken ? "TLSv1.3" : "");
}

TEST_F(NginxExchange, TlsWithAnotherAuthority_SendsNothing) {
    useTls(server().otherAuthorityFile());

    EXPECT_EQ(post("request", L"/management/package"), voInetErrorCaCert);

    expectLocalFile("");
    EXPECT_THAT(server().takeBodies(), IsEmpty());
}

TEST_F(NginxExchange, TlsWithoutTheAuthorityFile_SendsNothing) {
    useTls(directory().path("absent.pem"));

    EXPECT_EQ(post("request", L"/management/package"), voInetErrorTransferFailed);

    EXPECT_THAT(server().takeBodies(), IsEmpty());
}

TEST_F(NginxExchange, TlsToThePlainPort_FailsTheHandshake) {
    useTls(server().authorityFile(), server().port());

    EXPECT_EQ(post("request", L"/management/package"), voInetErrorSslConnect);

    EXPECT_THAT(server().takeBodies(), IsEmpty());
}

// nginx answers 400 to that, with its own page.
TEST_F(NginxExchange, PlainTextToTheTlsPort_IsAnInvalidRequest) {
    knowServerAt(server().portTls());

    EXPECT_EQ(post("request", L"/management/package"), voInetErrorInvalidRequest);

    EXPECT_THAT(server().takeBodies(), IsEmpty());
}

// An answer that is not listed counts as success, and nothing has been stored.
TEST_F(NginxExchange, RequestThatIsTooLarge_CountsAsSuccess) {
    EXPECT_EQ(post(servedText(kMediumSize), L"/narrow"), voInetErrorSuccess);

    EXPECT_THAT(server().takeBodies(), IsEmpty());
}

struct Answer {
    const wchar_t* serverPath;
    const char* name;
    voInetError result;
};

void PrintTo(const Answer& answer, std::ostream* stream) {
    *stream << answer.name;
}

class NginxAnswer : public NginxExchange, public testing::WithParamInterface<Answer> {};

TEST_P(NginxAnswer, Status_DecidesAndTheRequestIsStored) {
    EXPECT_EQ(post(servedText(kMediumSize), GetParam().serverPath), GetParam().result);

    expectStored(kMediumSize);
}

INSTANTIATE_TEST_SUITE_P(
    All, NginxAnswer,
    testing::Values(Answer{L"/management/created", "201", voInetErrorServerBusy},
                    Answer{L"/management/nothing", "202", voInetErrorNoPackage},
                    Answer{L"/management/invalid", "400", voInetErrorInvalidRequest},
                    Answer{L"/management/denied", "403", voInetErrorAccessDenied},
                    Answer{L"/management/keys", "403WithTheMarker", voInetErrorKeysOutdated},
                    Answer{L"/management/absent", "404", voInetErrorFileNotFound},
                    Answer{L"/management/failing", "500", voInetErrorSuccess},
                    Answer{L"/management/busy", "503", voInetErrorServerBusy},
                    Answer{L"/management/exists", "506", voInetErrorGuidExists}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace

}  // namespace tessaro_com::pkm::voInet
