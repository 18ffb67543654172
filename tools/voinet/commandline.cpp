#include "commandline.h"

#include "commanderror.h"
#include "digest.h"
#include "errorscommand.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetProtocol;
using tessaro_com::pkm::voInet::voInetProtocolFtp;
using tessaro_com::pkm::voInet::voInetProtocolHttp;
using tessaro_com::pkm::voInet::voInetProtocolLocal;
using tessaro_com::pkm::voInet::voInetProtocolUnc;

namespace {

constexpr int kMaxPort = 65535;
constexpr const char* kServerGroup = "Server";
constexpr const char* kUnusedTlsGroup =
    "Management exchange (get and probe speak plain HTTP all the same)";
// The library's limit: libcurl counts a time-out in milliseconds, in 32 bits.
constexpr unsigned int kMaxTimeout = 2147483;

constexpr const char* kExamples = R"(Examples:
  Download one file, into the current folder:
    voinet get --host repo.example.com:8080 --repository updates pkg/base.zip base.zip

  Go on with a download that was stopped, and check what landed:
    voinet get --resume --sha256 DIGEST --host 192.0.2.7 big.img /srv/big.img

  Try an address first and a name after it, through a proxy that wants a password:
    voinet get --host-ip 192.0.2.7:80 --host-fqdn repo.example.com:80 \
        --proxy proxy.example.com:3128 --proxy-user joe --proxy-password-file ~/.proxypw \
        catalog.xml catalog.xml

  Copy from a mounted repository:
    voinet get --protocol local --repository /mnt/repo pkg/base.zip base.zip

  Download over FTP, anonymously or as a user:
    voinet get --protocol ftp --host ftp.example.com pub/base.zip base.zip
    voinet get --protocol ftp --host ftp.example.com --user joe --ask-password \
        private/base.zip base.zip

  Send a package to the management server over TLS and store its answer:
    voinet post --ssl --ssl-port 8443 --ca ca.pem --host manage.example.com \
        request.pkg /agent answer.pkg

  Is the server there? Give up after 5 seconds:
    voinet probe --timeout 5 --host repo.example.com

  Follow a download from a script:
    voinet get --json --host repo.example.com big.img big.img | jq -r .event
)";

std::string mainFooter() {
    return std::string(kExamples) + "\nExit status:\n" + exitStatusLines() +
           "\nThe results of the library that messages name are listed by: voinet errors\n";
}

/// Help that fits a terminal of 80 columns, without the rules among options: the texts say what has
/// to be said.
class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_option_text().empty() ? "" : " " + option->get_option_text();
    }
    std::string make_option_desc(const CLI::Option* option) const override {
        return Wrapped(option->get_description());
    }
    /// The positional arguments have no type worth showing.
    std::string make_positionals(const CLI::App* app) const override {
        const auto options = app->get_options([](const CLI::Option* each) {
            return each->get_positional() && !each->get_group().empty();
        });
        return options.empty() ? "" : make_group("Arguments", true, options);
    }

  private:
    static std::string Wrapped(const std::string& text) {
        std::istringstream words(text);
        std::string lines;
        std::size_t column = 0;
        for (std::string word; words >> word; column += word.size() + 1) {
            if (column > 0 && column + word.size() > kDescriptionWidth) {
                lines += '\n';
                column = 0;
            }
            lines += (column > 0 ? " " : "") + word;
        }
        return lines;
    }

    static constexpr std::size_t kDescriptionWidth = 50;
};

/// A check that names its own failure.
CLI::Validator notEmpty() {
    return {[](const std::string& text) {
                return text.empty() ? std::string("the value is empty") : std::string();
            },
            ""};
}

CLI::Option* addText(CLI::App& app, const std::string& name, std::string& target,
                     const std::string& value, const std::string& help) {
    return app.add_option(name, target, help)->option_text(value)->check(notEmpty());
}

/// The options from which a secret can come, never the command line itself.
void addSecret(CLI::App& app, const std::string& name, SecretSource& source,
               const std::string& what, bool askable, const std::string& group,
               CLI::Option* owner) {
    auto* file = addText(app, "--" + name + "-file", source.file, "FILE",
                         "read the " + what + " from the first line of FILE");
    auto* environment = addText(app, "--" + name + "-env", source.environment, "VARIABLE",
                                "take the " + what + " from an environment variable");
    std::vector<CLI::Option*> all = {file, environment};
    environment->excludes(file);
    if (askable) {
        auto* ask = app.add_flag("--ask-" + name, source.ask,
                                 "ask for the " + what + " on the terminal, without echo");
        ask->excludes(file)->excludes(environment);
        all.push_back(ask);
    }
    for (CLI::Option* option : all) {
        option->group(group);
        if (owner != nullptr) {
            option->needs(owner);
        }
    }
}

void addProtocolOption(CLI::App& app, ConnectionOptions& options) {
    static const std::map<std::string, voInetProtocol> kProtocols = {
        {"http", voInetProtocolHttp},
        {"ftp", voInetProtocolFtp},
        {"unc", voInetProtocolUnc},
        {"local", voInetProtocolLocal}};
    app.add_option("--protocol", options.protocol,
                   "http (the default), ftp, unc (answers \"not implemented\"), or local: a copy "
                   "from the folder of --repository")
        ->option_text("http|ftp|unc|local")
        ->transform(CLI::CheckedTransformer(kProtocols, CLI::ignore_case))
        ->group(kServerGroup);
}

void addHostOptions(CLI::App& app, ConnectionOptions& options, const char* hostHelp,
                    const char* addressHelp) {
    auto* host = addText(app, "--host", options.host, "HOST[:PORT]", hostHelp);
    host->group(kServerGroup);
    struct Form {
        const char* name;
        std::string& target;
        const char* help;
    };
    const Form forms[] = {
        {"--host-ip", options.hostIp, addressHelp},
        {"--host-fqdn", options.hostFqdn, "the server's fully qualified name; tried second"},
        {"--host-netbios", options.hostNetbios, "the server's NetBIOS name; tried last"}};
    for (const Form& form : forms) {
        addText(app, form.name, form.target, "HOST[:PORT]", form.help)
            ->excludes(host)
            ->group(kServerGroup);
    }
    addText(app, "--site", options.site, "NAME", "the site's name (\"default\")")
        ->group(kServerGroup);
}

void addRepositoryOptions(CLI::App& app, ConnectionOptions& options) {
    const std::string group = kServerGroup;
    addProtocolOption(app, options);
    addHostOptions(app, options,
                   "the server; the form (address, full name, NetBIOS name) follows from HOST. The "
                   "port is 80 by default, 21 for FTP. An IPv6 address with a port stands in "
                   "brackets",
                   "the server's IP address; tried first");
    addText(app, "--repository", options.repository, "PATH",
            "where the repository is on the server, or its folder for --protocol local")
        ->group(group);
    auto* user = addText(app, "--user", options.user, "NAME", "the user's name at the server");
    user->group(group);
    addSecret(app, "password", options.password, "password", true, group, user);
    addSecret(app, "update-token", options.updateToken, "update token, sent with HTTP downloads,",
              false, group, nullptr);
    addText(app, "--user-agent", options.userAgent, "TEXT",
            "kept in the settings; requests carry a user agent of their own")
        ->group(group);
}

void addTlsOptions(CLI::App& app, ConnectionOptions& options, const std::string& group) {
    addText(app, "--ca", options.caFile, "FILE", "CA certificates (PEM) to verify the server with")
        ->group(group);
    auto* port =
        app.add_option("--ssl-port", options.sslPort, "TLS port of every host form, 1 to 65535")
            ->option_text("PORT")
            ->check(CLI::Range(1, kMaxPort))
            ->group(group);
    app.add_flag("--ssl", options.ssl, "use the TLS port for every host form")
        ->needs(port)
        ->group(group);
}

void addProxyOptions(CLI::App& app, ConnectionOptions& options) {
    const std::string group = "Proxy";
    auto* proxy = addText(app, "--proxy", options.proxy, "HOST:PORT",
                          "the proxy; the environment's "
                          "proxy variables are not used");
    proxy->group(group);
    auto* user =
        addText(app, "--proxy-user", options.proxyUser, "NAME", "the user's name at the proxy");
    user->needs(proxy)->group(group);
    addSecret(app, "proxy-password", options.proxyPassword, "proxy password", true, group, user);
    auto* altUser =
        addText(app, "--alt-proxy-user", options.altProxyUser, "NAME",
                "a second user at the same proxy. Takes the place of --proxy-user from the first "
                "request of an HTTP download on, even for a host of --bypass");
    altUser->needs(proxy)->group(group);
    addSecret(app, "alt-proxy-password", options.altProxyPassword, "second user's password", true,
              group, altUser);
    addText(app, "--bypass", options.bypass, "LIST",
            "hosts that are reached without the proxy, separated by commas, semicolons or blanks; "
            "no wildcards")
        ->needs(proxy)
        ->group(group);
    app.add_flag("--bypass-local", options.bypassLocal,
                 "reach hosts whose name has no dot without the proxy")
        ->needs(proxy)
        ->group(group);
}

void addOutputOptions(CLI::App& app, OutputOptions& options) {
    static const std::map<std::string, HostLogLevel> kLevels = {{"error", HostLogLevel::error},
                                                                {"info", HostLogLevel::info},
                                                                {"detail", HostLogLevel::detail}};
    const std::string group = "Output";
    auto* quiet =
        app.add_flag("--quiet", options.quiet, "print nothing; the exit status tells how it ended");
    quiet->group(group);
    app.add_flag("--json", options.json,
                 "print one JSON object per event on standard output: start, progress, attempt, "
                 "log, result")
        ->excludes(quiet)
        ->group(group);
    app.add_option("--log-level", options.logLevel,
                   "how much of the library's log to print: error (the default), info, or detail, "
                   "which shows the whole exchange. Passwords and tokens are masked")
        ->option_text("error|info|detail")
        ->transform(CLI::CheckedTransformer(kLevels))
        ->group(group);
    addText(app, "--log-file", options.logFile, "FILE",
            "append the log to FILE instead of printing it; a new file gets mode 0600")
        ->group(group);
}

CLI::App* addGet(CLI::App& app, Options& options) {
    auto* get = app.add_subcommand("get", "Download one file");
    get->add_option("REMOTE", options.get.remote,
                    "the file's name, relative to --repository; write %20 for a blank")
        ->required();
    get->add_option("LOCAL", options.get.local,
                    "the local file. It is replaced only by a complete file; LOCAL.part is what "
                    "the download works on")
        ->required();
    get->add_flag("--resume", options.get.resume,
                  "go on with the LOCAL.part of a cancelled download (http, ftp)");
    get->add_flag("--no-cache", options.get.noCache, "ask HTTP caches on the way not to answer");
    get->add_option("--sha256", options.get.sha256,
                    "the digest that the file must have, 64 hexadecimal digits")
        ->option_text("HEX")
        ->check([](const std::string& text) {
            return isSha256(text) ? std::string() : std::string("not 64 hexadecimal digits");
        });
    addRepositoryOptions(*get, options.connection);
    addProxyOptions(*get, options.connection);
    addTlsOptions(*get, options.connection, kUnusedTlsGroup);
    addOutputOptions(*get, options.output);
    get->footer("Example:\n  voinet get --host repo.example.com:8080 pkg/base.zip base.zip\n");
    return get;
}

CLI::App* addProbe(CLI::App& app, Options& options) {
    auto* probe = app.add_subcommand("probe", "Ask whether a server or a repository is there");
    probe
        ->add_option("--timeout", options.probe.timeout,
                     "give up connecting after so many seconds, 1 to 2147483; only connects then, "
                     "and sends no request")
        ->option_text("SECONDS")
        ->check(CLI::Range(1U, kMaxTimeout));
    addRepositoryOptions(*probe, options.connection);
    addProxyOptions(*probe, options.connection);
    addTlsOptions(*probe, options.connection, kUnusedTlsGroup);
    addOutputOptions(*probe, options.output);
    probe->footer("Example:\n  voinet probe --timeout 5 --host repo.example.com\n");
    return probe;
}

CLI::App* addPost(CLI::App& app, Options& options) {
    auto* post = app.add_subcommand(
        "post", "Send a package to the management server and store the package it answers with");
    post->add_option("REQUEST", options.post.request, "the package to send")->required();
    post->add_option("SERVER-PATH", options.post.serverPath,
                     "the path on the server, beginning with a slash; write %20 for a blank")
        ->required();
    post->add_option(
            "RESPONSE", options.post.response,
            "the file for the answer. It is replaced only when the server sends a package; "
            "RESPONSE.part is what the exchange works on")
        ->required();
    addHostOptions(*post, options.connection,
                   "the server, by address or by name. The port is 80 by default. An IPv6 address "
                   "with a port stands in brackets",
                   "the server's IP address, or a name in its place; tried first, and so needed "
                   "when --host is not given");
    addTlsOptions(*post, options.connection,
                  "TLS (the host's name is not compared with the "
                  "certificate)");
    addOutputOptions(*post, options.output);
    post->footer(
        "The exchange never goes through a proxy. Ctrl-C ends it at once; RESPONSE stays as it "
        "was.\n\nExamples:\n"
        "  voinet post --host 192.0.2.7 request.pkg /agent answer.pkg\n"
        "  voinet post --ssl --ssl-port 8443 --ca ca.pem --host manage.example.com \\\n"
        "      request.pkg /agent answer.pkg\n");
    return post;
}

CLI::App* addErrors(CLI::App& app, Options& options) {
    auto* errors = app.add_subcommand("errors", "List the library's results and the exit statuses");
    errors->add_flag("--json", options.output.json, "print one JSON object per row");
    return errors;
}

/// Options that people expect, and that would show a secret to other users.
constexpr const char* kRefusedOptions[] = {"--password", "--proxy-password", "--alt-proxy-password",
                                           "--update-token"};

bool isRefused(const std::string& argument) {
    const std::string name = argument.substr(0, argument.find('='));
    return std::find(std::begin(kRefusedOptions), std::end(kRefusedOptions), name) !=
           std::end(kRefusedOptions);
}

CommandError refused(const std::string& argument) {
    const std::string name = argument.substr(0, argument.find('='));
    return {ExitStatus::usage,
            name + " does not exist: other users could read the value in the process list",
            "use " + name + "-file or " + name + "-env"};
}

/// The option that was not expected, without a value: that may be a secret.
CommandError unexpected(const CLI::App& app) {
    const std::vector<std::string> extras = app.remaining(true);
    const auto option = std::find_if(extras.begin(), extras.end(), [](const std::string& each) {
        return each.size() > 1 && each.front() == '-';
    });
    if (option == extras.end()) {
        return {ExitStatus::usage, "there are too many arguments", "voinet --help"};
    }
    // Behind one dash stands one letter, and then a value.
    const bool isShort = option->at(1) != '-';
    const std::string name = isShort ? option->substr(0, 2) : option->substr(0, option->find('='));
    if (isRefused(name)) {
        return refused(name);
    }
    return {ExitStatus::usage, "there is no option " + name, "voinet --help"};
}

}  // namespace

std::optional<std::string> parseCommandLine(const std::vector<std::string>& arguments,
                                            Options& options) {
    CLI::App app("Moves files and packages between servers and this machine.", "voinet");
    app.require_subcommand(1);
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_help_flag("-h,--help", "print this help");
    app.set_help_all_flag("--help-all", "print the help of every subcommand");
    app.set_version_flag("--version", "voinet " VOINET_VERSION, "print the version");
    app.footer(mainFooter());
    const CLI::App* get = addGet(app, options);
    const CLI::App* post = addPost(app, options);
    const CLI::App* probe = addProbe(app, options);
    addErrors(app, options);
    try {
        // CLI11 takes the arguments from the end of the vector.
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::CallForHelp&) {
        return app.help();
    } catch (const CLI::CallForAllHelp&) {
        return app.help("", CLI::AppFormatMode::All);
    } catch (const CLI::CallForVersion&) {
        return app.version() + "\n";
    } catch (const CLI::ExtrasError&) {
        throw unexpected(app);
    } catch (const CLI::ParseError& error) {
        // Its text holds the value that is wrong, which may be such an option with its secret.
        const auto secret = std::find_if(arguments.begin(), arguments.end(), isRefused);
        if (secret != arguments.end()) {
            throw refused(*secret);
        }
        throw CommandError(ExitStatus::usage, error.what(), "voinet --help");
    }
    options.subcommand = get->parsed()     ? Subcommand::get
                         : post->parsed()  ? Subcommand::post
                         : probe->parsed() ? Subcommand::probe
                                           : Subcommand::errors;
    return std::nullopt;
}

}  // namespace voinet_command
