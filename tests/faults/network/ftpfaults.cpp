#include "ftpfaults.h"

#include "support/scriptedserver.h"
#include "virtualtime.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tessaro_com::pkm::voInet::faults {

namespace {

using wire::Conversation;
using wire::FtpSession;

constexpr const char kNoSize[] = "no size: the end of the data connection is the end of the file";
constexpr const char kAnnouncedSize[] = "the announced size decides";

std::string rest(const std::string& file, std::size_t from) {
    return file.substr(std::min(from, file.size()));
}

std::string part(const std::string& text, std::uint32_t place) {
    return text.empty() ? text : text.substr(0, place % text.size());
}

/// Of a server that says how long its file is: behind its end nothing can be asked for.
Reach wellReach(const std::string& file, std::size_t from, std::uint32_t /*place*/) {
    return from > file.size() ? broken(213) : Reach{voInetErrorSuccess, 226, rest(file, from)};
}

/// When there is nothing to send, no data connection is made and nothing can go wrong on it.
template <class Fault>
auto whenDataIsSent(Fault fault) {
    return [fault](const std::string& file, std::size_t from, std::uint32_t place) {
        const bool isSent = from < file.size() || (from == 0 && file.empty());
        return isSent ? fault(rest(file, from), place) : wellReach(file, from, place);
    };
}

voInetError resultOfReply(int code) {
    if (code == 550) {
        return voInetErrorFileNotFound;
    }
    return code > 400 ? voInetErrorFailed : voInetErrorTransferFailed;
}

/// Plays `step` in the data connection, with what a server that is well would send.
template <class DataStep>
std::function<void(FtpSession&, const FtpTransfer&)> withData(DataStep step,
                                                              const char* afterData) {
    return [step, afterData](FtpSession& session, const FtpTransfer& transfer) {
        session.data = {[step, transfer](Conversation& client) {
            try {
                step(rest(transfer.file, transfer.from()), transfer.place, client);
            } catch (const wire::ConnectionLost&) {
                // A client that has what it wants may leave.
            }
        }};
        session.afterData = afterData;
    };
}

void sendAll(const std::string& data, std::uint32_t /*place*/, Conversation& client) {
    client.send(data);
}

void sendPart(const std::string& data, std::uint32_t place, Conversation& client) {
    client.send(part(data, place));
}

void sendPartAndReset(const std::string& data, std::uint32_t place, Conversation& client) {
    sendPart(data, place, client);
    client.reset();
}

void sendPartAndBeSilent(const std::string& data, std::uint32_t place, Conversation& client) {
    sendPart(data, place, client);
    VirtualTime::beginSilence();
    client.awaitClose();
}

void sendBytes(const std::string& data, std::uint32_t /*place*/, Conversation& client) {
    constexpr std::size_t kBytes = 2000;
    wire::sendInPieces(data.substr(0, kBytes), 1)(client);
    client.send(std::string_view(data).substr(std::min(kBytes, data.size())));
}

FtpFault greeting(const char* name, const char* text, voInetError result) {
    FtpFault fault{name, "greetings",
                   [text](FtpSession& session, const FtpTransfer&) {
                       session.greeting = text;
                       session.closesAfterGreeting = true;
                   },
                   [result](const std::string&, std::size_t, std::uint32_t) {
                       return Reach{result, 0, {}};
                   }};
    fault.beforeTransfer = true;
    return fault;
}

/// A command that is refused, or at which the control connection ends.
struct Command {
    const char* word;
    bool beforeTransfer;
    bool onlyFromAnOffset;
    bool onlyWithData;
};

constexpr std::array<Command, 7> kNeededCommands{{{"USER", true, false, false},
                                                  {"PASS", true, false, false},
                                                  {"CWD", false, false, false},
                                                  {"EPSV", false, false, false},
                                                  {"TYPE", false, false, false},
                                                  {"REST", false, true, true},
                                                  {"RETR", false, false, true}}};

constexpr std::array<const char*, 5> kRefusals{
    {"421 Busy", "450 Not now", "500 What?", "530 Log on", "550 No such file"}};

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(c - 'A' + 'a'); });
    return text;
}

bool meets(const Command& command, const std::string& file, std::size_t from) {
    if (command.onlyFromAnOffset && from == 0) {
        return false;
    }
    return from < file.size() || (from == 0 && file.empty()) || !command.onlyWithData;
}

FtpFault atCommand(const Command& command, const std::string& reply, const char* kind,
                   const std::string& suffix, voInetError result) {
    FtpFault fault{
        lowerCase(command.word) + suffix, kind,
        [word = std::string(command.word), reply](FtpSession& session, const FtpTransfer&) {
            session.replies[word] = reply;
            if (word == "EPSV") {
                session.replies["PASV"] = reply;
            }
        },
        [command, result](const std::string& file, std::size_t from, std::uint32_t place) {
            return meets(command, file, from) ? Reach{result, 0, {}} : wellReach(file, from, place);
        }};
    fault.beforeTransfer = command.beforeTransfer;
    return fault;
}

void addCommandFaults(std::vector<FtpFault>& faults) {
    for (const auto& command : kNeededCommands) {
        for (const std::string reply : kRefusals) {
            const int code = std::stoi(reply);
            faults.push_back(atCommand(command, reply, "command refused",
                                       "-" + std::to_string(code), resultOfReply(code)));
        }
        faults.push_back(atCommand(command, "", "control connection closed", "-closed",
                                   voInetErrorTransferFailed));
    }
    for (const char* word : {"PWD", "SIZE"}) {
        const Command command{word, std::string(word) == "PWD", false, false};
        faults.push_back(atCommand(command, "", "control connection closed", "-closed",
                                   voInetErrorTransferFailed));
    }
    faults.push_back(atCommand({"SIZE", false, false, false}, "550 No such file", "command refused",
                               "-550", voInetErrorFileNotFound));
}

/// Commands that a server need not know.
void addOptionalCommands(std::vector<FtpFault>& faults) {
    const auto refusing = [](const char* word, const char* reply) {
        return [word, reply](FtpSession& session, const FtpTransfer&) {
            session.replies[word] = reply;
        };
    };
    faults.push_back({"pwd-500", "command refused", refusing("PWD", "500 What?"), wellReach});
    faults.back().beforeTransfer = true;  // it is the last reply of a logon, which counts there
    faults.push_back(
        {"epsv-only-500", "command refused", refusing("EPSV", "500 What?"), wellReach});
    faults.push_back({"size-500", "command refused", refusing("SIZE", "500 What?"),
                      [](const std::string& file, std::size_t from, std::uint32_t) {
                          return Reach{voInetErrorSuccess, 226, rest(file, from)};
                      }});
}

void addGreetings(std::vector<FtpFault>& faults) {
    faults.push_back(greeting("greeting-none", "", voInetErrorTransferFailed));
    faults.push_back(greeting("greeting-421", "421 Busy\r\n", voInetErrorFailed));
    faults.push_back(greeting("greeting-500", "500 No\r\n", voInetErrorFailed));
    faults.push_back(greeting("greeting-550", "550 No\r\n", voInetErrorFileNotFound));
    faults.push_back(greeting("greeting-120", "120 Wait\r\n", voInetErrorTransferFailed));
    faults.push_back(greeting("greeting-nonsense", "nonsense\r\n", voInetErrorTransferFailed));
    faults.push_back(
        greeting("greeting-without-end", "220-Never ends\r\n", voInetErrorTransferFailed));
    faults.push_back({"replies-of-many-lines", "greetings",
                      [](FtpSession& session, const FtpTransfer&) {
                          session.greeting = "220-Welcome\r\n 220 not yet\r\n220-\r\n220 Ready\r\n";
                          session.replies["PASS"] = "230-Hello\r\nno number\r\n230 Logged on";
                          session.afterData = "226-Nearly\r\n226 Done";
                      },
                      wellReach});
}

void addEndings(std::vector<FtpFault>& faults) {
    const std::array<std::pair<const char*, const char*>, 4> replies{{{"end-426", "426 Broken"},
                                                                      {"end-451", "451 Read error"},
                                                                      {"end-550", "550 Gone"},
                                                                      {"end-400", "400 Nearly"}}};
    for (const auto& [name, reply] : replies) {
        const voInetError result = resultOfReply(std::stoi(reply));
        faults.push_back({name, "reply behind the data", withData(sendAll, reply),
                          whenDataIsSent([result](const std::string& data, std::uint32_t) {
                              return Reach{result, 0, data};
                          })});
    }
    faults.push_back(
        {"end-closed", "control connection closed", withData(sendAll, ""),
         whenDataIsSent([](const std::string& data, std::uint32_t) { return broken(0, data); })});
    faults.push_back({"cut-426", "data connection", withData(sendPart, "426 Broken"),
                      whenDataIsSent([](const std::string& data, std::uint32_t place) {
                          // That the file is short is seen before the reply is.
                          return data.empty() ? Reach{voInetErrorFailed, 426, {}}
                                              : broken(150, part(data, place));
                      })});
}

void addDataFaults(std::vector<FtpFault>& faults) {
    const auto cutData = [](const std::string& data, std::uint32_t place) {
        return data.empty() ? Reach{voInetErrorSuccess, 226, data} : broken(226, part(data, place));
    };
    faults.push_back(
        {"data-cut", "data connection", withData(sendPart, "226 Done"), whenDataIsSent(cutData)});
    faults.push_back({"data-cut-closed", "data connection", withData(sendPart, ""),
                      whenDataIsSent([](const std::string& data, std::uint32_t place) {
                          return broken(150, part(data, place));
                      })});
    faults.push_back({"data-reset", "data connection", withData(sendPartAndReset, ""),
                      whenDataIsSent([](const std::string&, std::uint32_t) { return broken(150); }),
                      true});
    faults.push_back({"data-nowhere", "data connection",
                      [](FtpSession& session, const FtpTransfer& transfer) {
                          session.replies["EPSV"] = wire::epsvReply(transfer.deadPort);
                          session.replies["PASV"] = wire::pasvReply(transfer.deadPort);
                      },
                      [](const std::string&, std::size_t, std::uint32_t) { return broken(227); }});
    faults.push_back({"data-nowhere-by-epsv", "data connection",
                      [](FtpSession& session, const FtpTransfer& transfer) {
                          session.replies["EPSV"] = wire::epsvReply(transfer.deadPort);
                      },
                      wellReach});
    faults.push_back({"data-port-nonsense", "data connection",
                      [](FtpSession& session, const FtpTransfer&) {
                          session.replies["EPSV"] = "229 (|||x|)";
                          session.replies["PASV"] = "227 nonsense";
                      },
                      [](const std::string&, std::size_t, std::uint32_t) { return broken(227); }});
    faults.push_back(
        {"byte-by-byte", "data connection", withData(sendBytes, "226 Done"), wellReach});
}

void addSizeFaults(std::vector<FtpFault>& faults) {
    FtpFault cut{"data-cut-without-size", "sizes",
                 [](FtpSession& session, const FtpTransfer& transfer) {
                     withData(sendPart, "226 Done")(session, transfer);
                     session.replies["SIZE"] = "500 What?";
                 },
                 [](const std::string& file, std::size_t from, std::uint32_t place) {
                     return Reach{voInetErrorSuccess, 226, part(rest(file, from), place)};
                 }};
    cut.oddity = kNoSize;
    faults.push_back(cut);
    FtpFault tooSmall{"size-too-small", "sizes",
                      [](FtpSession& session, const FtpTransfer& transfer) {
                          session.size = transfer.file.size() - (transfer.file.empty() ? 0 : 1);
                      },
                      [](const std::string& file, std::size_t from, std::uint32_t place) {
                          return wellReach(file.substr(0, file.size() - (file.empty() ? 0 : 1)),
                                           from, place);
                      }};
    tooSmall.oddity = kAnnouncedSize;
    faults.push_back(tooSmall);
    faults.push_back({"size-too-large", "sizes",
                      [](FtpSession& session, const FtpTransfer& transfer) {
                          session.size = transfer.file.size() + 1;
                      },
                      [](const std::string& file, std::size_t from, std::uint32_t) {
                          if (from == file.size() + 1) {
                              return Reach{voInetErrorSuccess, 213, {}};
                          }
                          return from > file.size() + 1 ? broken(213)
                                                        : broken(226, rest(file, from));
                      }});
}

void addSilences(std::vector<FtpFault>& faults) {
    faults.push_back({"data-silent", "silence", withData(sendPartAndBeSilent, "226 Done"),
                      whenDataIsSent([](const std::string& data, std::uint32_t place) {
                          return Reach{voInetErrorTimeout, 150, part(data, place)};
                      })});
}

FtpFault nobody(const char* name, voInetError result, Whereabouts whereabouts) {
    FtpFault fault{name, "no connection", [](FtpSession&, const FtpTransfer&) {},
                   [result](const std::string&, std::size_t, std::uint32_t) {
                       return Reach{result, 0, {}, 0};
                   }};
    fault.beforeTransfer = true;
    fault.whereabouts = whereabouts;
    return fault;
}

std::vector<FtpFault> makeFtpFaults() {
    std::vector<FtpFault> faults;
    faults.push_back({"none", "no fault", [](FtpSession&, const FtpTransfer&) {}, wellReach});
    faults.push_back(nobody("refused", voInetErrorTransferFailed, Whereabouts::refusing));
    faults.push_back(nobody("silent-host", voInetErrorTimeout, Whereabouts::silent));
    faults.push_back(nobody("unknown-name", voInetErrorHostNotResolved, Whereabouts::nameless));
    addGreetings(faults);
    addCommandFaults(faults);
    addOptionalCommands(faults);
    addEndings(faults);
    addDataFaults(faults);
    addSizeFaults(faults);
    addSilences(faults);
    return faults;
}

}  // namespace

const std::vector<FtpFault>& ftpFaults() {
    static const std::vector<FtpFault> kFaults = makeFtpFaults();
    return kFaults;
}

FtpSession wellSession(const FtpTransfer& transfer) {
    FtpSession session;
    session.size = transfer.file.size();
    session.dataMayStayUnused = true;
    withData(sendAll, "226 Transfer complete")(session, transfer);
    return session;
}

}  // namespace tessaro_com::pkm::voInet::faults
