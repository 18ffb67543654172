#include "commandline.h"

#include "commanderror.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetProtocol;
using tessaro_com::pkm::voInet::voInetProtocolFtp;
using tessaro_com::pkm::voInet::voInetProtocolHttp;
using tessaro_com::pkm::voInet::voInetProtocolLocal;
using tessaro_com::pkm::voInet::voInetProtocolUnc;
using testing::HasSubstr;
using testing::Not;

namespace {

using Arguments = std::vector<std::string>;

Options parse(const Arguments& arguments) {
    Options options;
    EXPECT_FALSE(parseCommandLine(arguments, options).has_value());
    return options;
}

/// What parsing says to arguments that it must refuse.
std::string refusal(const Arguments& arguments) {
    Options options;
    try {
        parseCommandLine(arguments, options);
    } catch (const CommandError& error) {
        EXPECT_EQ(error.Status(), ExitStatus::usage);
        return std::string(error.what()) + " / " + error.Hint();
    }
    return "accepted";
}

}  // namespace

TEST(CommandLine, Get_TakesNamesAndDefaults) {
    const Options options = parse({"get", "pkg/a.bin", "a.bin"});

    EXPECT_EQ(options.subcommand, Subcommand::get);
    EXPECT_EQ(options.get.remote, "pkg/a.bin");
    EXPECT_EQ(options.get.local, "a.bin");
    EXPECT_FALSE(options.get.resume);
    EXPECT_FALSE(options.get.noCache);
    EXPECT_EQ(options.connection.site, "default");
    EXPECT_EQ(options.connection.protocol, voInetProtocolHttp);
    EXPECT_EQ(options.output.logLevel, HostLogLevel::error);
}

TEST(CommandLine, EveryProtocol_IsAccepted) {
    const std::vector<std::pair<std::string, voInetProtocol>> protocols = {
        {"http", voInetProtocolHttp},
        {"ftp", voInetProtocolFtp},
        {"unc", voInetProtocolUnc},
        {"local", voInetProtocolLocal}};
    for (const auto& [name, protocol] : protocols) {
        EXPECT_EQ(parse({"probe", "--protocol", name}).connection.protocol, protocol) << name;
    }
    EXPECT_THAT(refusal({"probe", "--protocol", "gopher"}), Not(HasSubstr("accepted")));
}

TEST(CommandLine, EveryLogLevel_IsAccepted) {
    EXPECT_EQ(parse({"probe", "--log-level", "error"}).output.logLevel, HostLogLevel::error);
    EXPECT_EQ(parse({"probe", "--log-level", "info"}).output.logLevel, HostLogLevel::info);
    EXPECT_EQ(parse({"probe", "--log-level", "detail"}).output.logLevel, HostLogLevel::detail);
}

TEST(CommandLine, NumbersOutOfRange_AreRefused) {
    EXPECT_EQ(parse({"probe", "--timeout", "1"}).probe.timeout, 1U);
    EXPECT_EQ(parse({"probe", "--timeout", "2147483"}).probe.timeout, 2147483U);
    for (const char* timeout : {"0", "2147484", "-1", "x", "99999999999"}) {
        EXPECT_NE(refusal({"probe", "--timeout", timeout}), "accepted") << timeout;
    }
    for (const char* port : {"0", "65536", "http"}) {
        EXPECT_NE(refusal({"probe", "--ssl-port", port}), "accepted") << port;
    }
}

TEST(CommandLine, Digest_MustBe64HexadecimalDigits) {
    const std::string digest(64, 'a');

    EXPECT_EQ(parse({"get", "a", "b", "--sha256", digest}).get.sha256, digest);
    EXPECT_NE(refusal({"get", "a", "b", "--sha256", digest + "a"}), "accepted");
    EXPECT_NE(refusal({"get", "a", "b", "--sha256", std::string(64, 'g')}), "accepted");
}

TEST(CommandLine, PasswordAsArgument_IsRefusedWithoutShowingIt) {
    for (const char* option :
         {"--password", "--proxy-password", "--alt-proxy-password", "--update-token"}) {
        for (const Arguments& tail :
             {Arguments{option, "geheim"}, Arguments{std::string(option) + "=geheim"}}) {
            Arguments arguments = {"get", "a", "b", "--user", "joe"};
            arguments.insert(arguments.end(), tail.begin(), tail.end());
            EXPECT_THAT(refusal(arguments), HasSubstr(std::string(option) + "-file"));
            EXPECT_THAT(refusal(arguments), Not(HasSubstr("geheim")));
        }
    }
}

TEST(CommandLine, PasswordInTheValueOfAnotherOption_IsNotShown) {
    // The value of --timeout is wrong, and is the next argument.
    const std::string text = refusal({"probe", "--host", "h", "--timeout", "--password=geheim"});

    EXPECT_THAT(text, HasSubstr("--password-file"));
    EXPECT_THAT(text, Not(HasSubstr("geheim")));
}

TEST(CommandLine, TwoSourcesOfOneSecret_AreRefused) {
    EXPECT_NE(
        refusal({"get", "a", "b", "--user", "joe", "--password-file", "f", "--password-env", "V"}),
        "accepted");
    EXPECT_NE(refusal({"get", "a", "b", "--user", "joe", "--password-file", "f", "--ask-password"}),
              "accepted");
    EXPECT_NE(refusal({"get", "a", "b", "--update-token-file", "f", "--update-token-env", "V"}),
              "accepted");
}

TEST(CommandLine, OptionsThatNeedOthers_AreRefusedAlone) {
    for (const Arguments& arguments :
         {Arguments{"probe", "--password-env", "V"}, Arguments{"probe", "--proxy-user", "joe"},
          Arguments{"probe", "--alt-proxy-user", "joe"}, Arguments{"probe", "--bypass", "a"},
          Arguments{"probe", "--bypass-local"}, Arguments{"probe", "--ssl"},
          Arguments{"probe", "--host", "a", "--host-ip", "b"},
          Arguments{"probe", "--quiet", "--json"}}) {
        EXPECT_NE(refusal(arguments), "accepted") << arguments[1];
    }
}

TEST(CommandLine, EmptyValues_AreRefused) {
    for (const char* option : {"--host", "--site", "--repository", "--user", "--proxy", "--ca",
                               "--log-file", "--password-file"}) {
        EXPECT_NE(refusal({"probe", "--user", "joe", std::string(option) + "="}), "accepted")
            << option;
    }
}

TEST(CommandLine, MissingOrSurplusArguments_AreRefused) {
    for (const Arguments& arguments :
         {Arguments{}, Arguments{"get"}, Arguments{"get", "a"}, Arguments{"get", "a", "b", "c"},
          Arguments{"frobnicate"}, Arguments{"get", "a", "b", "--frobnicate"}}) {
        EXPECT_NE(refusal(arguments), "accepted");
    }
}

TEST(CommandLine, Help_ShowsExamplesAndExitStatuses) {
    Options options;
    const std::string help = parseCommandLine({"--help"}, options).value_or("");

    EXPECT_THAT(help, HasSubstr("Examples:"));
    for (const ExitStatusRow& row : exitStatusTable()) {
        EXPECT_THAT(help, HasSubstr(row.meaning));
    }
}

TEST(CommandLine, Post_TakesThreeNames) {
    const Options options = parse({"post", "--host", "a", "--ssl", "--ssl-port", "8443", "--ca",
                                   "ca.pem", "request", "/path", "response"});

    EXPECT_EQ(options.subcommand, Subcommand::post);
    EXPECT_EQ(options.post.request, "request");
    EXPECT_EQ(options.post.serverPath, "/path");
    EXPECT_EQ(options.post.response, "response");
    EXPECT_TRUE(options.connection.ssl);
    EXPECT_EQ(options.connection.sslPort, 8443);
    EXPECT_EQ(options.connection.caFile, "ca.pem");
}

TEST(CommandLine, Post_HasNothingThatAnExchangeDoesNotUse) {
    for (const Arguments& more :
         {Arguments{"--proxy", "p:1"}, Arguments{"--user", "joe"}, Arguments{"--protocol", "http"},
          Arguments{"--repository", "r"}, Arguments{"--resume"}, Arguments{"--timeout", "1"},
          Arguments{"--user-agent", "x"}, Arguments{"--sha256", std::string(64, 'a')},
          Arguments{"fourth"}}) {
        Arguments arguments = {"post", "--host", "a", "request", "/path", "response"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_NE(refusal(arguments), "accepted") << more[0];
    }
    EXPECT_NE(refusal({"post", "--host", "a", "request", "/path"}), "accepted");
}

}  // namespace voinet_command
