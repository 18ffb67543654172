#include "endpoint.h"

#include "commanderror.h"

#include <gtest/gtest.h>

namespace voinet_command {

namespace {

void expectEndpoint(const std::string& text, const std::string& host, int port) {
    const Endpoint endpoint = parseEndpoint(text, 80, "--host");
    EXPECT_EQ(endpoint.host, host) << text;
    EXPECT_EQ(endpoint.port, port) << text;
}

}  // namespace

TEST(Endpoint, EveryForm_IsTakenApart) {
    expectEndpoint("depot", "depot", 80);
    expectEndpoint("depot:8080", "depot", 8080);
    expectEndpoint("repo.example.com:65535", "repo.example.com", 65535);
    expectEndpoint("192.0.2.7:1", "192.0.2.7", 1);
    expectEndpoint("::1", "::1", 80);
    expectEndpoint("[::1]", "::1", 80);
    expectEndpoint("[::1]:8080", "::1", 8080);
    expectEndpoint("[fe80::1%eth0]:8080", "fe80::1%eth0", 8080);
}

TEST(Endpoint, BadTexts_AreUsageErrors) {
    for (const std::string text :
         {"",     ":80",    "a:",    "a:0",   "a:65536",     "a:-1", "a:80x",  "a: 80",
          "[::1", "[::1]x", "[]:80", "a:b:c", "http://a:80", "a/b",  "user@a", "a b",
          "a\tb", "a?b",    "a#b",   "a\\b",  "a\xff:80",    "a\x01"}) {
        try {
            parseEndpoint(text, 80, "--host");
            ADD_FAILURE() << "accepted: " << text;
        } catch (const CommandError& error) {
            EXPECT_EQ(error.Status(), ExitStatus::usage) << text;
        }
    }
    EXPECT_THROW(parseEndpoint(std::string(5000, 'a'), 80, "--host"), CommandError);
}

TEST(Endpoint, WithoutDefaultPort_APortIsObligatory) {
    EXPECT_THROW(parseEndpoint("proxy", 0, "--proxy"), CommandError);
    EXPECT_EQ(parseEndpoint("proxy:3128", 0, "--proxy").port, 3128);
}

TEST(Endpoint, Form_FollowsFromTheHost) {
    EXPECT_EQ(hostFormOf("192.0.2.7"), HostForm::ip);
    EXPECT_EQ(hostFormOf("::1"), HostForm::ip);
    EXPECT_EQ(hostFormOf("fe80::1%eth0"), HostForm::ip);
    EXPECT_EQ(hostFormOf("repo.example.com"), HostForm::fqdn);
    EXPECT_EQ(hostFormOf("DEPOT"), HostForm::netbios);
}

TEST(Endpoint, OnlyIpv6Addresses_GetBrackets) {
    EXPECT_EQ(bracketed("::1"), "[::1]");
    EXPECT_EQ(bracketed("192.0.2.7"), "192.0.2.7");
}

}  // namespace voinet_command
