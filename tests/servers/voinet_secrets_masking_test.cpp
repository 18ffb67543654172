#include "kvecomn/hostlog.h"
#include "kvecomn/telmcomn.h"
#include "masking.h"
#include "secrets.h"
#include "voinet/callbacks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// curl's trace as the library writes it and the command shows it, whatever pieces curl makes of it.

namespace voinettest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class MaskedTrace : public testing::Test {
  protected:
    void SetUp() override {
        hostLogSetHandler([this](HostLogLevel, const wchar_t* module, const wchar_t* message) {
            const std::string text = telmcomn_wide_to_ansi(message);
            plain += text + "\n";
            shown += masker.Mask(telmcomn_wide_to_ansi(module), text) + "\n";
        });
    }
    void TearDown() override { hostLogSetHandler({}); }

    void trace(curl_infotype type, std::string bytes) {
        tessaro_com::pkm::voInet::trace_curl(nullptr, type, bytes.data(), bytes.size(), nullptr);
    }
    void startOver() {
        masker = voinet_command::Masker();
        plain.clear();
        shown.clear();
    }

    /// Knows no secret: what it hides it hides by where it stands.
    voinet_command::Masker masker;
    std::string plain;
    std::string shown;

    const PeculiarSecret password{"pass", "joe"};
    const PeculiarSecret proxyPassword{"prox", "branch"};
    const PeculiarSecret token{"tokn"};
    const std::vector<PeculiarSecret> secrets{password, proxyPassword, token};

    const std::string httpHead =
        "GET http://server/a HTTP/1.1\r\nHost: server\r\nProxy-Authorization: Basic " +
        proxyPassword.basic() + "\r\nAuthorization: Basic " + password.basic() +
        "\r\nUser-Agent: agent\r\nUpdateToken: " + token.text() + "\r\npragma:no-cache\r\n\r\n";
};

}  // namespace

TEST_F(MaskedTrace, RequestHeadInOnePiece_ShowsEverythingElse) {
    trace(CURLINFO_HEADER_OUT, httpHead);

    EXPECT_EQ(secretsIn(plain, secrets).size(), secrets.size()) << "they are there";
    EXPECT_THAT(secretsIn(shown, secrets), IsEmpty());
    for (const char* part :
         {"GET http://server/a HTTP/1.1", "Proxy-Authorization: ***", "`0x0aAuthorization: ***",
          "User-Agent: agent", "UpdateToken: ***", "pragma:no-cache"}) {
        EXPECT_THAT(shown, HasSubstr(part));
    }
}

TEST_F(MaskedTrace, RequestHeadInAnyTwoPieces_ShowsNoSecret) {
    for (std::size_t cut = 1; cut < httpHead.size(); ++cut) {
        startOver();
        trace(CURLINFO_HEADER_OUT, httpHead.substr(0, cut));
        trace(CURLINFO_TEXT, "a line of curl's own in between");
        trace(CURLINFO_HEADER_OUT, httpHead.substr(cut));

        ASSERT_THAT(secretsIn(shown, secrets), IsEmpty()) << "cut at " << cut;
        ASSERT_THAT(shown, HasSubstr("a line of curl's own in between"));
    }
}

TEST_F(MaskedTrace, RequestHeadInPiecesOfAnySize_ShowsNoSecret) {
    for (std::size_t size = 1; size < 200; ++size) {
        startOver();
        for (std::size_t at = 0; at < httpHead.size(); at += size) {
            trace(CURLINFO_HEADER_OUT, httpHead.substr(at, size));
        }

        // Pieces of less than half a secret's end could not show one anyhow; joined they could.
        std::string joined;
        for (std::size_t at = shown.find("snd head"); at != std::string::npos;
             at = shown.find("snd head", at + 1)) {
            const auto begin = shown.find(' ', at + std::string("snd head ").size()) + 1;
            joined += shown.substr(begin, shown.find('\n', begin) - begin);
        }
        ASSERT_THAT(secretsIn(joined, secrets), IsEmpty()) << "pieces of " << size;
    }
}

TEST_F(MaskedTrace, FtpCommandsInAnyTwoPieces_ShowNoPassword) {
    const std::string commands =
        "USER joe\r\nPASS " + password.text() + "\r\nPWD\r\nRETR a.bin\r\n";
    trace(CURLINFO_HEADER_OUT, commands);
    EXPECT_TRUE(password.isWholeIn(plain));
    EXPECT_THAT(shown, HasSubstr("USER joe`0x0d`0x0aPASS ***`0x0d`0x0aPWD"));
    EXPECT_THAT(secretsIn(shown, secrets), IsEmpty());

    for (std::size_t cut = 1; cut < commands.size(); ++cut) {
        startOver();
        trace(CURLINFO_HEADER_OUT, commands.substr(0, cut));
        trace(CURLINFO_HEADER_OUT, commands.substr(cut));
        ASSERT_THAT(secretsIn(shown, secrets), IsEmpty()) << "cut at " << cut;
    }
}

TEST_F(MaskedTrace, CredentialsInUrls_AreHiddenWhateverTheirCharacters) {
    // Without what ends the host's part of every URL.
    const PeculiarSecret other("urls");
    std::string inUrl = other.text();
    for (const char ending : {'/', '\\', '?', '#', ' '}) {
        for (auto at = inUrl.find(ending); at != std::string::npos; at = inUrl.find(ending)) {
            inUrl.erase(at, 1);
        }
    }
    const std::string url = "http://joe:" + inUrl + "@server:80/a";
    trace(CURLINFO_HEADER_OUT, "GET " + url + " HTTP/1.1\r\nHost: server\r\n\r\n");
    trace(CURLINFO_HEADER_IN, "Location: " + url + "\r\n");
    trace(CURLINFO_TEXT, "Issue another request to this URL: '" + url + "'");
    EXPECT_TRUE(other.isWholeIn(plain));
    EXPECT_THAT(other.foundIn(shown), IsEmpty());
    EXPECT_THAT(shown, HasSubstr("'http://***@server:80/a'"));

    EXPECT_EQ(masker.Mask("voInet", "Open URL: " + url), "Open URL: http://***@server:80/a");
}

TEST_F(MaskedTrace, KnownSecretInAnswers_IsHiddenInEveryForm) {
    for (const PeculiarSecret& secret : secrets) {
        masker.AddSecret(secret.text());
    }
    trace(CURLINFO_HEADER_IN, "530 I do not know " + password.text() + "\r\n");
    trace(CURLINFO_TEXT, "said: " + token.text());

    EXPECT_TRUE(password.isWholeIn(plain));
    EXPECT_THAT(secretsIn(shown, secrets), IsEmpty());
    EXPECT_THAT(shown, HasSubstr("530 I do not know ***"));
}

}  // namespace voinettest
