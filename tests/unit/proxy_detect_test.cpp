#include "voinet/proxy_detect.h"

#include "support/logcapture.h"
#include "support/networkdouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string lookedUp(const std::string& host) {
    return "addresses of " + host + ", service '', flags 1";
}

class ProxyBypass : public testing::Test {
  protected:
    ProxyBypass() {
        network().resolve("server.corp", {"10.0.0.1", "10.0.0.2"});
        network().resolve("SERVER.Corp", {"10.0.0.1"});
        network().resolve("alias.corp", {"192.168.7.7", "10.0.0.2"});
        network().resolve("other.corp", {"10.0.0.3"});
        network().resolve("v6.corp", {"fe80::AB"});
        network().resolve("v6alias.corp", {"FE80::ab"});
        network().resolve("single", {"10.0.0.9"});
        network().resolve("empty.corp", {});
    }
};

bool bypassed(const std::string& host, const std::string& list, bool local = false) {
    return isProxyBypassed(host, list, local);
}

bool match(std::vector<std::string> a, std::vector<std::string> b) {
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> result;
        result.reserve(texts.size());
        for (auto& text : texts) {
            result.push_back(text.data());
        }
        return result;
    };
    return MatchAddrList(pointers(a), pointers(b));
}

std::vector<std::string> tokens(const std::string& text, std::vector<std::string> out = {}) {
    EXPECT_TRUE(tokenize<std::string>(text, out, ",; \t\n\r"));
    return out;
}

}  // namespace

TEST(Tokenize, RunsOfDelimiters_GiveNoEmptyTokens) {
    EXPECT_THAT(tokens(",,a;; b\r\n"), ElementsAre("a", "b"));
    EXPECT_THAT(tokens("a,b;c d\te\nf\rg"), ElementsAre("a", "b", "c", "d", "e", "f", "g"));
}

TEST(Tokenize, NoTokens_AddNothing) {
    EXPECT_THAT(tokens(""), IsEmpty());
    EXPECT_THAT(tokens(",; \t\n\r"), IsEmpty());
}

TEST(Tokenize, Output_IsAppendedTo) {
    EXPECT_THAT(tokens("b", {"a"}), ElementsAre("a", "b"));
    EXPECT_THAT(tokens("", {"a"}), ElementsAre("a"));
}

TEST(Tokenize, WithoutDelimiters_TheTextIsOneToken) {
    std::vector<std::string> out;
    EXPECT_TRUE(tokenize<std::string>("a b,c", out, ""));
    EXPECT_THAT(out, ElementsAre("a b,c"));
    EXPECT_THAT(tokens("one"), ElementsAre("one"));
}

TEST(MatchAddrList, SharedEntry_MatchesWhateverItsCase) {
    EXPECT_TRUE(match({"10.0.0.1"}, {"10.0.0.1"}));
    EXPECT_TRUE(match({"a", "b"}, {"c", "B"}));
    EXPECT_TRUE(match({"FE80::AB"}, {"fe80::ab"}));
    EXPECT_TRUE(match({"x", "x"}, {"y", "x"}));
    EXPECT_TRUE(match({""}, {""}));
}

TEST(MatchAddrList, NoSharedEntry_DoesNotMatch) {
    EXPECT_FALSE(match({"10.0.0.1"}, {"10.0.0.2"}));
    EXPECT_FALSE(match({"10.0.0.1"}, {"10.0.0.11"}));
    EXPECT_FALSE(match({"10.0.0.11"}, {"10.0.0.1"}));
    EXPECT_FALSE(match({"a", "b"}, {"c", "d"}));
    EXPECT_FALSE(match({""}, {"a"}));
}

TEST(MatchAddrList, EmptyLists_DoNotMatch) {
    EXPECT_FALSE(match({}, {}));
    EXPECT_FALSE(match({"a"}, {}));
    EXPECT_FALSE(match({}, {"a"}));
}

TEST_F(ProxyBypass, SitesWithACommonAddress_AreIdentical) {
    EXPECT_TRUE(AreSitesIdentical("server.corp", "server.corp"));
    EXPECT_TRUE(AreSitesIdentical("server.corp", "alias.corp"));
    EXPECT_TRUE(AreSitesIdentical("alias.corp", "server.corp"));
    EXPECT_TRUE(AreSitesIdentical("SERVER.Corp", "server.corp"));
    EXPECT_TRUE(AreSitesIdentical("v6.corp", "v6alias.corp"));
    EXPECT_TRUE(AreSitesIdentical("https://server.corp:8443/path", "server.corp"));
}

TEST_F(ProxyBypass, SitesWithoutACommonAddress_AreNotIdentical) {
    EXPECT_FALSE(AreSitesIdentical("server.corp", "other.corp"));
    EXPECT_FALSE(AreSitesIdentical("server.corp", "v6.corp"));
    EXPECT_FALSE(AreSitesIdentical("unknown.corp", "unknown.corp"));
    EXPECT_FALSE(AreSitesIdentical("unknown.corp", "server.corp"));
    EXPECT_FALSE(AreSitesIdentical("server.corp", "unknown.corp"));
    EXPECT_FALSE(AreSitesIdentical("empty.corp", "empty.corp"));
}

TEST_F(ProxyBypass, NullSites_AreNotIdentical) {
    EXPECT_FALSE(AreSitesIdentical(nullptr, "server.corp"));
    EXPECT_FALSE(AreSitesIdentical("server.corp", nullptr));
    EXPECT_FALSE(AreSitesIdentical(nullptr, nullptr));
}

TEST_F(ProxyBypass, BothSites_AreLookedUpInOrderEvenWhenTheFirstFails) {
    AreSitesIdentical("http://unknown.corp:80/x", "server.corp/y");
    EXPECT_THAT(network().calls("addresses"),
                ElementsAre(lookedUp("unknown.corp"), lookedUp("server.corp")));
}

TEST_F(ProxyBypass, ListsOfFailedLookUps_AreReleasedAndThoseOfGoodOnesAreNot) {
    network().failWith("half.corp", {"10.0.0.1", "10.0.0.2"});
    AreSitesIdentical("server.corp", "alias.corp");
    EXPECT_THAT(network().calls("free"), IsEmpty());
    EXPECT_FALSE(AreSitesIdentical("half.corp", "server.corp"));
    EXPECT_THAT(network().calls("free"), ElementsAre("free 2"));
    EXPECT_FALSE(AreSitesIdentical("unknown.corp", "half.corp"));
    EXPECT_THAT(network().calls("free"), ElementsAre("free 2", "free 0", "free 2"));
}

TEST_F(ProxyBypass, ResolverWithoutMemory_ExemptsNobody) {
    network().failForWantOfMemory("starved.corp");
    EXPECT_FALSE(AreSitesIdentical("starved.corp", "server.corp"));
    EXPECT_FALSE(bypassed("server.corp", "starved.corp;server.corp"));
    EXPECT_FALSE(bypassed("single", "starved.corp", true));
    EXPECT_TRUE(bypassed("server.corp", "server.corp;starved.corp"));
}

TEST_F(ProxyBypass, HostInTheList_IsBypassed) {
    EXPECT_TRUE(bypassed("server.corp", "server.corp"));
    EXPECT_TRUE(bypassed("server.corp", "other.corp;server.corp"));
    EXPECT_TRUE(bypassed("server.corp", "unknown.corp, alias.corp"));
    EXPECT_TRUE(bypassed("server.corp", "SERVER.Corp"));
    EXPECT_TRUE(bypassed("server.corp", "http://server.corp:8080"));
    EXPECT_TRUE(bypassed("http://server.corp:80/path", "server.corp"));
    EXPECT_TRUE(bypassed("v6.corp", "v6alias.corp"));
    for (const std::string delimiter : {",", ";", " ", "\t", "\n", "\r"}) {
        EXPECT_TRUE(bypassed("server.corp", "other.corp" + delimiter + "server.corp"));
    }
}

TEST_F(ProxyBypass, HostNotInTheList_IsNotBypassed) {
    EXPECT_FALSE(bypassed("server.corp", ""));
    EXPECT_FALSE(bypassed("server.corp", " ,; "));
    EXPECT_FALSE(bypassed("server.corp", "other.corp"));
    EXPECT_FALSE(bypassed("server.corp", "corp"));
    EXPECT_FALSE(bypassed("server.corp", "server"));
    EXPECT_FALSE(bypassed("unknown.corp", "unknown.corp"));
    EXPECT_FALSE(bypassed("server.corp", "other.corp|server.corp"));
    EXPECT_FALSE(bypassed("", "server.corp"));
}

TEST_F(ProxyBypass, WildcardsAndMarkerWords_AreNamesLikeAnyOther) {
    EXPECT_FALSE(bypassed("server.corp", "*.corp"));
    EXPECT_FALSE(bypassed("server.corp", "*"));
    EXPECT_FALSE(bypassed("single", "<local>"));
    EXPECT_THAT(network().calls("addresses"),
                ElementsAre(lookedUp("*.corp"), lookedUp("server.corp"), lookedUp("*"),
                            lookedUp("server.corp"), lookedUp("<local>"), lookedUp("single")));
}

TEST_F(ProxyBypass, EachEntry_IsLookedUpWithTheHostUntilTheFirstMatch) {
    EXPECT_TRUE(bypassed("server.corp", "other.corp;server.corp;alias.corp"));
    EXPECT_THAT(network().calls("addresses"),
                ElementsAre(lookedUp("other.corp"), lookedUp("server.corp"),
                            lookedUp("server.corp"), lookedUp("server.corp")));
}

TEST_F(ProxyBypass, BypassLocal_ExemptsSingleLabelNames) {
    EXPECT_TRUE(bypassed("single", "", true));
    EXPECT_TRUE(bypassed("http://single", "", true));
    EXPECT_TRUE(bypassed("unknown", "", true));
    EXPECT_TRUE(bypassed("single/path", "", true));
    EXPECT_TRUE(bypassed("http://[single", "", true));
    EXPECT_TRUE(bypassed("", "", true));
    EXPECT_TRUE(bypassed("single", "other.corp", true));
}

TEST_F(ProxyBypass, BypassLocal_DoesNotExemptDotsAndColons) {
    EXPECT_FALSE(bypassed("server.corp", "", true));
    EXPECT_FALSE(bypassed("http://server.corp", "", true));
    EXPECT_FALSE(bypassed("10.0.0.1", "", true));
    EXPECT_FALSE(bypassed("fe80::1", "", true));
    EXPECT_FALSE(bypassed("http://[fe80::1]", "", true));
    EXPECT_FALSE(bypassed("single/file.zip", "", true));
    EXPECT_FALSE(bypassed("single:80", "", true));
    EXPECT_FALSE(bypassed("http:/single", "", true));
}

TEST_F(ProxyBypass, BypassLocalOff_ExemptsNoLocalName) {
    for (const auto* host : {"single", "http://single", "", "unknown", "fe80::1", "server.corp"}) {
        EXPECT_FALSE(bypassed(host, "")) << host;
    }
}

TEST_F(ProxyBypass, ListAndBypassLocal_EitherSuffices) {
    EXPECT_TRUE(bypassed("server.corp", "server.corp", true));
    EXPECT_TRUE(bypassed("single", "single", false));
    EXPECT_FALSE(bypassed("server.corp", "other.corp", true));
}

TEST_F(ProxyBypass, Wide_JoinsItsEntriesAndSplitsThemAgain) {
    const std::vector<std::wstring> list{L"unknown.corp", L"other.corp;alias.corp"};
    EXPECT_TRUE(isProxyBypassed(std::wstring(L"server.corp"), list, false));
    EXPECT_THAT(
        network().calls("addresses"),
        ElementsAre(lookedUp("unknown.corp"), lookedUp("server.corp"), lookedUp("other.corp"),
                    lookedUp("server.corp"), lookedUp("alias.corp"), lookedUp("server.corp")));
}

TEST_F(ProxyBypass, Wide_NamesReachTheResolverInUtf8) {
    network().resolve("b\xC3\xBCro", {"10.1.1.1"});
    EXPECT_TRUE(isProxyBypassed(std::wstring(L"b\u00FCro"), {L"b\u00FCro"}, false));
}

TEST_F(ProxyBypass, Wide_EmptyListAndForeignEntriesDoNotMatch) {
    EXPECT_FALSE(isProxyBypassed(std::wstring(L"server.corp"), {}, false));
    EXPECT_FALSE(isProxyBypassed(std::wstring(L"server.corp"), {L""}, false));
    EXPECT_FALSE(isProxyBypassed(std::wstring(L"server.corp"), {L"other.corp", L"v6.corp"}, true));
    EXPECT_TRUE(isProxyBypassed(std::wstring(L"single"), {}, true));
}

TEST_F(ProxyBypass, IllFormedAndAbsurdlyLongNames_MatchNothing) {
    const std::string absurd(1 << 20, 'x');
    EXPECT_FALSE(bypassed(absurd, absurd + "," + absurd));
    EXPECT_FALSE(bypassed("\xFF\xFE", "server.corp"));
    EXPECT_FALSE(isProxyBypassed(std::wstring(1, static_cast<wchar_t>(0xD800)), {L"x"}, false));
}

TEST_F(ProxyBypass, FailedLookUps_AreNotLogged) {
    EXPECT_FALSE(bypassed("unknown.corp", "a,b,c"));
    EXPECT_THAT(logLines(), IsEmpty());
}
