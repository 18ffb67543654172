// An exchange of packages with a server that says what the input says. The first byte is the
// client's settings (support/download.h), the second the size of the request, the rest the script
// (support/scriptedserver.h).

#include "kvecomn/hostlog.h"
#include "kvecomn/telmcomn.h"
#include "support/download.h"
#include "support/fuzztarget.h"
#include "support/input.h"
#include "support/scratch.h"
#include "support/scriptedserver.h"
#include "voinet/voinet.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace voinet_fuzz {

namespace {

namespace voInet = tessaro_com::pkm::voInet;

using Records = std::vector<ScriptedServer::Record>;

/// Results that one of these statuses stands behind.
const std::map<voInet::voInetError, std::vector<std::string>>& statusesOf() {
    static const std::map<voInet::voInetError, std::vector<std::string>> kStatuses = {
        // Libcurl takes a status line that it cannot read for one of status 200.
        {voInet::voInetErrorPackageReceived, {"200", "http/"}},
        {voInet::voInetErrorServerBusy, {"201", "503"}},
        {voInet::voInetErrorNoPackage, {"202"}},
        {voInet::voInetErrorInvalidRequest, {"400"}},
        {voInet::voInetErrorAccessDenied, {"403"}},
        {voInet::voInetErrorKeysOutdated, {"403"}},
        {voInet::voInetErrorFileNotFound, {"404"}},
        {voInet::voInetErrorGuidExists, {"506"}},
    };
    return kStatuses;
}

std::string allSent(const Records& records) {
    std::string sent;
    for (const auto& record : records) {
        sent += record.sent;
    }
    return sent;
}

void checkResult(voInet::voInetError result, const std::string& sent) {
    require(isNetworkResult(result), "an exchange has a result of the table",
            std::to_string(result));
    const auto statuses = statusesOf().find(result);
    if (statuses == statusesOf().end()) {
        return;
    }
    const std::string lowered = lowerCase(sent);
    require(std::any_of(statuses->second.begin(), statuses->second.end(),
                        [&lowered](const std::string& status) {
                            return lowered.find(status) != std::string::npos;
                        }),
            "the server sent the status behind the result", std::to_string(result));
    require(
        result != voInet::voInetErrorKeysOutdated || sent.find("UpgradeKey") != std::string::npos,
        "only the server's marker makes keys outdated");
}

/// The server gets a head that announces the request, and then nothing but the request.
void checkRequests(const Records& records, const std::string& request) {
    for (const auto& record : records) {
        const auto end = record.received.find("\r\n\r\n");
        if (end == std::string::npos) {
            continue;
        }
        const std::string head = record.received.substr(0, end + 2);
        require(head.rfind("POST /path HTTP/1.1\r\n", 0) == 0, "an exchange is a POST", head);
        require(head.find("Content-Length: " + std::to_string(request.size()) + "\r\n") !=
                    std::string::npos,
                "the length is announced", head);
        const std::string body = record.received.substr(end + 4);
        require(request.compare(0, body.size(), body) == 0, "the request is sent as it is");
    }
}

}  // namespace

void tryInput(const std::string& bytes) {
    Input input(bytes);
    const ClientSettings settings(input.byte());
    const std::string request = positionDependentBytes(input.byte() * std::size_t{40});
    const std::string requestFile = scratchDirectory() + "/request";
    const std::string responseFile = scratchDirectory() + "/response";
    writeFile(requestFile, request);
    writeFile(responseFile, "old");
    hostLogSetDetailEnabled(settings.isTraced);
    server().play(Script(input.rest(), server().port(), false));
    const std::size_t descriptors = openDescriptors();

    const Transfer transfer = makeTransfer(voInet::voInetProtocolHttp, settings);
    const voInet::voInetError result = transfer->UploadFileResponse(
        telmcomn_ansi_to_wide(requestFile), L"/path", telmcomn_ansi_to_wide(responseFile), nullptr);
    const Records records = server().finish();

    require(!records.empty(), "the client reaches the server");
    const std::string sent = allSent(records);
    checkResult(result, sent);
    checkRequests(records, request);
    require(hasNoMoreDescriptorsThan(descriptors), "every file and connection is closed");
    require(readFile(requestFile) == request, "the request stays");
    const auto response = readFile(responseFile);
    require(response.has_value(), "there is a response file");
    require(isCoded(records) || sent.find(*response) != std::string::npos,
            "the response was sent in one piece", std::to_string(result) + ": " + *response);
}

}  // namespace voinet_fuzz
