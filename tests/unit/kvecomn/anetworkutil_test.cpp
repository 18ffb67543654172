#include "kvecomn/anetworkutil.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;

struct AddrinfoDeleter {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddrinfoList = std::unique_ptr<addrinfo, AddrinfoDeleter>;

std::vector<std::string> textsOf(const std::vector<char*>& addresses) {
    return {addresses.begin(), addresses.end()};
}

/// The link-local addresses of this machine and the interfaces that carry each.
std::map<std::string, std::set<unsigned>> linkLocalAddresses() {
    std::map<std::string, std::set<unsigned>> found;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return found;
    }
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET6) {
            const auto* address = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr);
            char text[INET6_ADDRSTRLEN];
            inet_ntop(AF_INET6, &address->sin6_addr, text, sizeof text);
            if (IN6_IS_ADDR_LINKLOCAL(&address->sin6_addr)) {
                found[text].insert(if_nametoindex(entry->ifa_name));
            }
        }
    }
    freeifaddrs(list);
    return found;
}

TEST(FormatV6addr, BareAddress_GetsBracketsForUrlOnly) {
    ANetworkUtil util;
    for (const std::string address :
         {"::1", "::", "fe80::1%eth0", "2001:db8::192.0.2.1", "1:2:3:4:5:6:7:8", "FE80::A%3"}) {
        EXPECT_EQ(util.formatV6addr(address, true), "[" + address + "]");
        EXPECT_EQ(util.formatV6addr(address, false), address);
    }
}

TEST(FormatV6addr, BracketedAddress_LosesBracketsForProgramsOnly) {
    ANetworkUtil util;

    EXPECT_EQ(util.formatV6addr("[fe80::1%eth0]", true), "[fe80::1%eth0]");
    EXPECT_EQ(util.formatV6addr("[fe80::1%eth0]", false), "fe80::1%eth0");
}

TEST(FormatV6addr, AnyOtherText_ComesBackAsItIs) {
    ANetworkUtil util;
    const std::string withZero("::1\0x", 5);
    for (const std::string& text :
         {std::string(), std::string("host"), std::string("192.0.2.1"), std::string("host:80"),
          std::string("[::1]:80"), std::string("[host]"), std::string("[]"), std::string("["),
          std::string("::1%"), std::string("1:2"), std::string("::1%a]"), std::string("[[::1]]"),
          std::string("fe80::1%e%f"), std::string(":::"), withZero}) {
        EXPECT_EQ(util.formatV6addr(text, true), text);
        EXPECT_EQ(util.formatV6addr(text, false), text);
    }
}

TEST(KveCreateAddrinfo, Ipv6AddressWithOrWithoutBrackets_GivesOneIpv6Entry) {
    ANetworkUtil util;
    for (const char* host : {"::1", "[::1]"}) {
        addrinfo* list = nullptr;
        bool hasIpv6 = false;
        ASSERT_EQ(util.kveCreateAddrinfo(host, "", &list, &hasIpv6), 0) << host;
        const AddrinfoList owner(list);
        EXPECT_TRUE(hasIpv6);
        EXPECT_EQ(list->ai_family, AF_INET6);
        EXPECT_THAT(list->ai_next, IsNull());
    }
}

TEST(KveCreateAddrinfo, Ipv4AddressAndService_GivesPortAndNoIpv6) {
    ANetworkUtil util;
    addrinfo* list = nullptr;
    bool hasIpv6 = true;

    ASSERT_EQ(util.kveCreateAddrinfo("127.0.0.1", "8080", &list, &hasIpv6), 0);

    const AddrinfoList owner(list);
    EXPECT_FALSE(hasIpv6);
    const auto* address = reinterpret_cast<const sockaddr_in*>(list->ai_addr);
    EXPECT_EQ(ntohs(address->sin_port), 8080);
}

TEST(KveCreateAddrinfo, NullFlag_IsAllowed) {
    ANetworkUtil util;
    addrinfo* list = nullptr;

    EXPECT_EQ(util.kveCreateAddrinfo("127.0.0.1", "", &list, nullptr), 0);

    const AddrinfoList owner(list);
}

TEST(KveCreateAddrinfo, HostThatCannotBeResolved_FailsWithNullList) {
    ANetworkUtil util;
    addrinfo other{};
    for (const std::string& host : {std::string(), std::string("127.0.0.1\0x", 11),
                                    std::string("[127.0.0.1]"), std::string("not a name")}) {
        addrinfo* list = &other;
        bool hasIpv6 = true;
        EXPECT_NE(util.kveCreateAddrinfo(host, "80", &list, &hasIpv6), 0) << host;
        EXPECT_THAT(list, IsNull());
        EXPECT_FALSE(hasIpv6);
    }
}

TEST(KveGetAddrinfo, NumericHost_IsAppendedOnce) {
    ANetworkUtil util;
    char first[] = "first";
    std::vector<char*> addresses{first};

    ASSERT_EQ(util.kveGetAddrinfo("127.0.0.1", "", addresses, 1), 0);
    ASSERT_EQ(util.kveGetAddrinfo("[::1]", "80", addresses, 1), 0);

    EXPECT_THAT(textsOf(addresses), ElementsAre("first", "127.0.0.1", "::1"));
}

TEST(KveGetAddrinfo, Flags_ChooseTheFamily) {
    ANetworkUtil util;
    struct Case {
        int flags;
        bool takesIpv4;
        bool takesIpv6;
    };
    for (const Case& test : {Case{1, true, true}, Case{4, true, false}, Case{6, false, true},
                             Case{0, true, true}, Case{-1, true, true}, Case{99, true, true}}) {
        std::vector<char*> addresses;
        EXPECT_EQ(util.kveGetAddrinfo("127.0.0.1", "", addresses, test.flags) == 0, test.takesIpv4);
        EXPECT_EQ(util.kveGetAddrinfo("::1", "", addresses, test.flags) == 0, test.takesIpv6);
        EXPECT_EQ(addresses.size(),
                  static_cast<std::size_t>(test.takesIpv4) + (test.takesIpv6 ? 1U : 0U));
    }
}

TEST(KveGetAddrinfo, NameOfThisMachine_HasNoAddressTwice) {
    ANetworkUtil util;
    std::vector<char*> addresses;

    ASSERT_EQ(util.kveGetAddrinfo("localhost", "", addresses, 1), 0);

    const std::vector<std::string> texts = textsOf(addresses);
    EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
    EXPECT_FALSE(texts.empty());
}

TEST(KveGetAddrinfo, LinkLocalAddress_KeepsItsScope) {
    ANetworkUtil util;
    std::vector<char*> addresses;

    ASSERT_EQ(util.kveGetAddrinfo("fe80::1%lo", "", addresses, 1), 0);

    EXPECT_THAT(textsOf(addresses), ElementsAre("fe80::1%lo"));
}

TEST(KveGetAddrinfo, HostThatCannotBeResolved_AppendsNothing) {
    ANetworkUtil util;
    std::vector<char*> addresses;

    EXPECT_NE(util.kveGetAddrinfo("", "80", addresses, 1), 0);
    EXPECT_NE(util.kveGetAddrinfo("not a name", "", addresses, 1), 0);
    EXPECT_NE(util.kveGetAddrinfo("::1", std::string("80\0", 3), addresses, 1), 0);

    EXPECT_THAT(addresses, IsEmpty());
}

TEST(KveFreeAddrinfo, ListWithForeignText_IsEmptiedAndTheTextLeftAlone) {
    ANetworkUtil util;
    char foreign[] = "192.0.2.9";
    std::vector<char*> addresses{foreign};
    ASSERT_EQ(util.kveGetAddrinfo("127.0.0.1", "", addresses, 1), 0);

    util.kveFreeAddrinfo(addresses);

    EXPECT_THAT(addresses, IsEmpty());
    EXPECT_STREQ(foreign, "192.0.2.9");
}

TEST(KveFreeAddrinfo, TextsOfAnotherObject_StayValid) {
    ANetworkUtil owner;
    ANetworkUtil other;
    std::vector<char*> addresses;
    ASSERT_EQ(owner.kveGetAddrinfo("127.0.0.1", "", addresses, 1), 0);
    std::vector<char*> copy = addresses;

    other.kveFreeAddrinfo(copy);

    EXPECT_THAT(copy, IsEmpty());
    EXPECT_STREQ(addresses.front(), "127.0.0.1");
    owner.kveFreeAddrinfo(addresses);
}

TEST(KveFreeAddrinfo, SameTextTwice_IsReleasedOnce) {
    ANetworkUtil util;
    std::vector<char*> addresses;
    ASSERT_EQ(util.kveGetAddrinfo("127.0.0.1", "", addresses, 1), 0);
    addresses.push_back(addresses.front());

    util.kveFreeAddrinfo(addresses);

    EXPECT_THAT(addresses, IsEmpty());
}

TEST(KveGetScopeId, ScopeByNameOrNumber_IsItsIndex) {
    ANetworkUtil util;
    const unsigned loopback = if_nametoindex("lo");
    ASSERT_NE(loopback, 0U);
    struct Case {
        std::string address;
        unsigned scope;
    };
    for (const Case& test :
         {Case{"fe80::1%lo", loopback}, Case{"[fe80::1%lo]", loopback}, Case{"febf:ffff::9%17", 17},
          Case{"fe80::1%4294967295", 4294967295U}}) {
        unsigned scope = 0;
        EXPECT_TRUE(util.kveGetScopeId(test.address, &scope)) << test.address;
        EXPECT_EQ(scope, test.scope);
    }
}

TEST(KveGetScopeId, NoLinkLocalAddressOrNoScope_IsFalseAndLeavesTheScope) {
    ANetworkUtil util;
    for (const char* address :
         {"", "host", "127.0.0.1", "169.254.1.1", "::1", "::1%lo", "2001:db8::1%1", "fec0::1%1",
          "fe7f::1%1", "ff02::1%1", "fe80::1%0", "fe80::1%4294967296", "fe80::1%no-such-if",
          "fe80::1%-1", "fe80::1%", "fe80::1%1x", "fe80::g%1"}) {
        unsigned scope = 4711;
        EXPECT_FALSE(util.kveGetScopeId(address, &scope)) << address;
        EXPECT_EQ(scope, 4711U);
    }
}

TEST(KveGetScopeId, OwnAddressWithoutScope_IsTheOnlyInterfaceThatCarriesIt) {
    ANetworkUtil util;
    for (const auto& [address, carriers] : linkLocalAddresses()) {
        unsigned scope = 0;
        EXPECT_EQ(util.kveGetScopeId(address, &scope), carriers.size() == 1) << address;
        EXPECT_EQ(scope, carriers.size() == 1 ? *carriers.begin() : 0);
    }
}

TEST(KveGetScopeId, OtherAddressWithoutScope_NeedsOneInterfaceWithLinkLocalAddresses) {
    ANetworkUtil util;
    std::set<unsigned> candidates;
    for (const auto& [address, carriers] : linkLocalAddresses()) {
        candidates.insert(carriers.begin(), carriers.end());
    }
    unsigned scope = 0;

    const bool isKnown = util.kveGetScopeId("fe80::dead:beef:0:77", &scope);

    EXPECT_EQ(isKnown, candidates.size() == 1);
    EXPECT_EQ(scope, candidates.size() == 1 ? *candidates.begin() : 0);
}

}  // namespace
