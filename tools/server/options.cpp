#include "options.h"

#include "credentials.h"

#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <string_view>
#include <vector>

namespace voinetserver {
namespace {

constexpr int kUsageError = 2;

constexpr int kLowestStatus = 200;
constexpr int kHighestStatus = 599;

constexpr const char* kDescription =
    "voinet-server serves a directory as a repository over HTTP, and plays the management server.\n"
    "It is for development and rehearsal only, never for production: its TLS proves nothing, and "
    "it\n"
    "goes wrong on request.";

constexpr const char* kExamples = R"(Examples:
  Serve ./repository on http://127.0.0.1:8080/:
    voinet-server ./repository
  Choose a free port and tell it to a script:
    voinet-server --port 0 --port-file port.txt --access-log - ./repository
  Demand a user name and a password:
    voinet-server --user agent --password-file secret.txt ./repository
  Answer 503 twice, then serve the file:
    voinet-server --status /packages/a.bin=503,503,file ./repository
  Break every reply off after 1 MiB, at 256 KiB per second:
    voinet-server --cut 1M --rate 256K ./repository
  Break off one file only, and never resume:
    voinet-server --cut /packages/a.bin=4096 --ignore-ranges ./repository
  Play the management server: keep the packages that agents post, answer with those in ./answers:
    voinet-server --exchange /exchange --exchange-requests ./requests \
      --exchange-answers ./answers ./repository
  Be busy twice, then ask for new keys, then answer:
    voinet-server --exchange /exchange --exchange-status 503,201,403-keys,answer \
      --exchange-answers ./answers ./repository
  Downloads over plain HTTP on port 8080, exchanges over TLS on port 8443, CA file ./tls/ca.pem:
    voinet-server --exchange /exchange --tls ./tls --tls-port 8443 ./repository

Sizes are in bytes; K, M and G stand for 1024, 1024^2 and 1024^3 of them.
--status and --cut compare PATH with the decoded path of a request; both may be given several
times, and the last one for a path counts. A status takes a GET as well as a HEAD to go on to the
next; with --user only requests with the right credentials count. 0 or "file" serves the file.
A path with ".." is refused, and so is a symbolic link that leads out of DIRECTORY. Every directory
without a SiteStat.xml seems to have one.
The password is the first line of FILE or, without --password-file, the variable
VOINET_SERVER_PASSWORD.

The exchange takes a POST that is exactly what an agent sends. Anything else is answered 400 with
the reason, is not stored, and does not take the script on.
LIST is CODE[,CODE...], one step per request:
  answer    200 with the next answer, 202 when none is left; the same happens without a list
  200       200 with the next answer, with an empty body when none is left
  403-keys  403 with the header that tells the agent to update its keys
  others    from 201 to 299 an empty body, from 300 to 599 a line of text
Answers are handed out in the order of their names, each once, whether or not it arrives. Files that
are added later count; files with a dot in front do not.
Requests are stored as 000001.bin, 000002.bin, ... behind those that are there already. While one
arrives, and when the server is stopped meanwhile, it is named NNNNNN.part.
--cut, --rate and --access-log concern replies of the exchange as they do others; requests are not
slowed down. --user and --status do not concern it: agents send no credentials there, and it has a
script of its own.

With --tls the port speaks nothing but TLS; with --tls-port it stays plain, and a second port speaks
TLS and serves the same. Clients verify the server with DIR/ca.pem, which is made anew at every
start; its private keys are never written. The certificate is for localhost, 127.0.0.1, ::1 and the
address of --bind. The port file has the port of --port in its first line and that of --tls-port in
its second.
An agent logs on and downloads over plain HTTP even where it is set to TLS, so these need a plain
port; exchanges alone work over TLS.

The exit status is 0 after SIGINT or SIGTERM, 1 when the server cannot start, 2 for a wrong
command line.)";

struct RawOptions {
    std::vector<std::string> statuses;
    std::vector<std::string> cuts;
    std::string rate;
    std::string exchangeSteps;
};

CLI::ValidationError wrongValue(const std::string& option, const std::string& value,
                                const std::string& expected) {
    return CLI::ValidationError(option, "'" + value + "' is not " + expected);
}

std::optional<std::uint64_t> parseNumber(std::string_view text) {
    std::uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && stop == end ? std::optional(number) : std::nullopt;
}

unsigned shiftOfSuffix(char suffix) {
    switch (suffix) {
        case 'k':
        case 'K':
            return 10;
        case 'm':
        case 'M':
            return 20;
        case 'g':
        case 'G':
            return 30;
        default:
            return 0;
    }
}

std::optional<std::uint64_t> parseSize(std::string_view text) {
    const unsigned shift = text.empty() ? 0 : shiftOfSuffix(text.back());
    if (shift != 0) {
        text.remove_suffix(1);
    }
    const auto number = parseNumber(text);
    if (!number || *number > std::numeric_limits<std::uint64_t>::max() >> shift) {
        return std::nullopt;
    }
    return *number << shift;
}

std::optional<int> parseStatus(std::string_view text) {
    const auto number = parseNumber(text);
    if (!number || *number < kLowestStatus || *number > kHighestStatus) {
        return std::nullopt;
    }
    return static_cast<int>(*number);
}

std::optional<int> parseStep(std::string_view text) {
    return text == "file" || parseNumber(text) == kServeFile ? kServeFile : parseStatus(text);
}

std::optional<ExchangeStep> parseExchangeStep(std::string_view text) {
    using Kind = ExchangeStep::Kind;
    if (text == "answer") {
        return ExchangeStep{};
    }
    if (text == "403-keys") {
        return ExchangeStep{Kind::statusWithKeyUpdate, 403};
    }
    const auto status = parseStatus(text);
    return status ? std::optional(ExchangeStep{Kind::status, *status}) : std::nullopt;
}

// None when one of the steps, divided by commas, is wrong.
template <class Step>
std::optional<std::vector<Step>> parseSteps(std::string_view text,
                                            std::optional<Step> (&parse)(std::string_view)) {
    std::vector<Step> steps;
    while (true) {
        const std::size_t comma = text.find(',');
        const auto step = parse(text.substr(0, comma));
        if (!step) {
            return std::nullopt;
        }
        steps.push_back(*step);
        if (comma == std::string_view::npos) {
            return steps;
        }
        text.remove_prefix(comma + 1);
    }
}

void addStatus(const std::string& value, StatusScripts& scripts) {
    const std::size_t equals = value.rfind('=');
    const auto steps = equals != std::string::npos ? parseSteps(value.substr(equals + 1), parseStep)
                                                   : std::nullopt;
    if (!steps || value.front() != '/') {
        throw wrongValue("--status", value,
                         "/PATH=CODE,... with codes from 200 to 599, or 0 for the file");
    }
    scripts[value.substr(0, equals)] = *steps;
}

void addCut(const std::string& value, CutRules& cuts) {
    const std::size_t equals = value.rfind('=');
    const bool hasPath = equals != std::string::npos;
    const auto size = parseSize(hasPath ? value.substr(equals + 1) : value);
    if (!size || (hasPath && value.front() != '/')) {
        throw wrongValue("--cut", value, "a number of bytes or /PATH=BYTES");
    }
    if (hasPath) {
        cuts.byPath[value.substr(0, equals)] = *size;
    } else {
        cuts.everywhere = *size;
    }
}

void setRate(const std::string& value, Options& options) {
    if (value.empty()) {
        return;
    }
    options.rate = parseSize(value);
    if (options.rate.value_or(0) == 0) {
        throw wrongValue("--rate", value, "a number of bytes per second above 0");
    }
}

void setExchangeScript(const std::string& value, ExchangeSettings& exchange) {
    const auto steps = parseSteps(value, parseExchangeStep);
    if (!steps) {
        throw wrongValue("--exchange-status", value,
                         "CODE,... with codes from 200 to 599, 403-keys or answer");
    }
    exchange.script = *steps;
}

std::string checkExchangePath(const std::string& path) {
    const bool valid = !path.empty() && path.front() == '/';
    return valid ? "" : "'" + path + "' has no slash in front";
}

// An empty name must not turn an option off in silence.
std::string checkDirectoryName(const std::string& name) {
    return name.empty() ? "the name of a directory is empty" : "";
}

std::string checkAddress(const std::string& address) {
    in_addr ipv4{};
    in6_addr ipv6{};
    const bool numeric = ::inet_pton(AF_INET, address.c_str(), &ipv4) == 1 ||
                         ::inet_pton(AF_INET6, address.c_str(), &ipv6) == 1;
    return numeric ? "" : "'" + address + "' is not a numeric IPv4 or IPv6 address";
}

// An empty name must not turn authentication off in silence.
std::string checkUserName(const std::string& user) {
    const bool valid = !user.empty() && user.find(':') == std::string::npos;
    return valid ? "" : "'" + user + "' is no user name: it is empty or has a colon";
}

void choosePassword(Options& options) {
    if (options.user.empty() || !options.passwordFile.empty()) {
        return;
    }
    const char* password = std::getenv(kPasswordVariable);
    if (password == nullptr) {
        throw CLI::ValidationError(
            "--user", std::string("needs --password-file or the variable ") + kPasswordVariable);
    }
    options.password = password;
}

void declareExchange(CLI::App& app, Options& options, RawOptions& raw) {
    auto* exchange = app.add_option("--exchange", options.exchange.path,
                                    "Play the management server: take packages posted to PATH")
                         ->type_name("PATH")
                         ->check(checkExchangePath);
    app.add_option("--exchange-answers", options.exchange.answers,
                   "Has the packages to answer with; each is handed out once, by name")
        ->type_name("DIR")
        ->check(checkDirectoryName)
        ->needs(exchange);
    app.add_option("--exchange-requests", options.exchange.requests,
                   "Store the packages that were posted; made when it is missing")
        ->type_name("DIR")
        ->check(checkDirectoryName)
        ->needs(exchange);
    app.add_option("--exchange-status", raw.exchangeSteps,
                   "Answer posted packages like this, one step per request; the last one stays")
        ->type_name("LIST")
        ->needs(exchange);
}

void declareTls(CLI::App& app, Options& options) {
    auto* tls = app.add_option("--tls", options.tlsDirectory,
                               "Speak TLS, and write the CA file ca.pem to DIR; made when missing")
                    ->type_name("DIR")
                    ->check(checkDirectoryName);
    app.add_option("--tls-port", options.tlsPort,
                   "Speak TLS on this port and plain HTTP on that of --port; 0 chooses a free one")
        ->type_name("N")
        ->needs(tls);
}

void declareOptions(CLI::App& app, Options& options, RawOptions& raw) {
    app.add_option("DIRECTORY", options.directory, "The directory to serve")->required();
    app.add_option("--port", options.port, "Port to listen on; 0 chooses a free one")
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--bind", options.address, "Numeric address to listen on")
        ->type_name("ADDRESS")
        ->check(checkAddress)
        ->capture_default_str();
    app.add_option("--port-file", options.portFile,
                   "Holds the port number (or both) while listening")
        ->type_name("FILE");
    auto* user = app.add_option("--user", options.user, "Demand basic authentication as this user")
                     ->type_name("NAME")
                     ->check(checkUserName);
    app.add_option("--password-file", options.passwordFile, "Has the password in its first line")
        ->type_name("FILE")
        ->needs(user);
    app.add_flag("--ignore-ranges", options.ignoreRanges, "Answer ranges with the whole file");
    app.add_option("--status", raw.statuses,
                   "Answer these statuses for this path, one per request; the last one stays")
        ->type_name("PATH=CODE[,CODE...]")
        ->allow_extra_args(false);
    app.add_option("--cut", raw.cuts, "Close the connection after N bytes of a body")
        ->type_name("[PATH=]N")
        ->allow_extra_args(false);
    app.add_option("--rate", raw.rate, "Send every body at N bytes per second")->type_name("N");
    declareExchange(app, options, raw);
    declareTls(app, options);
    app.add_option("--access-log", options.accessLog,
                   "Append a line per answered request: time, method, path, range, status, bytes; "
                   "- is standard output")
        ->type_name("FILE");
    app.add_flag("--quiet", options.quiet, "Do not print the address");
}

void interpret(const CLI::App& app, const RawOptions& raw, Options& options) {
    for (const std::string& value : raw.statuses) {
        addStatus(value, options.scripts);
    }
    for (const std::string& value : raw.cuts) {
        addCut(value, options.cuts);
    }
    setRate(raw.rate, options);
    if (app.count("--exchange-status") > 0) {
        setExchangeScript(raw.exchangeSteps, options.exchange);
    }
    choosePassword(options);
}

ExitNow explain(const CLI::Error& error) {
    std::string sentence = error.what();
    std::replace(sentence.begin(), sentence.end(), '\n', ' ');
    std::cerr << "voinet-server: " << sentence << " (--help explains the options)\n";
    return {kUsageError};
}

}  // namespace

std::variant<Options, ExitNow> parseOptions(int argc, char** argv) {
    Options options;
    RawOptions raw;
    CLI::App app(kDescription, "voinet-server");
    app.footer(kExamples);
    declareOptions(app, options, raw);
    try {
        app.parse(argc, argv);
        interpret(app, raw, options);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return ExitNow{EXIT_SUCCESS};
    } catch (const CLI::Error& error) {
        return explain(error);
    }
    return options;
}

bool isLoopback(const std::string& address) {
    constexpr std::uint32_t kIpv4LoopbackNet = 127;
    in_addr ipv4{};
    if (::inet_pton(AF_INET, address.c_str(), &ipv4) == 1) {
        return ntohl(ipv4.s_addr) >> 24U == kIpv4LoopbackNet;
    }
    in6_addr ipv6{};
    return ::inet_pton(AF_INET6, address.c_str(), &ipv6) == 1 && IN6_IS_ADDR_LOOPBACK(&ipv6);
}

}  // namespace voinetserver
