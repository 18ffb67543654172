#include "runner.h"
#include "stage.h"
#include "support/body.h"
#include "virtualtime.h"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace tessaro_com::pkm::voInet::faults {

namespace {

constexpr const char kResponseName[] = "response";
constexpr const char kEmptied[] = "exchange: the response file is emptied and keeps what arrives";
constexpr const char kAnyStatus[] = "exchange: any other status counts as success";

constexpr std::uint64_t kRequestBody = 3'000'000;
constexpr std::size_t kRequestSize = 700;

struct StatusResult {
    int status;
    voInetError result;
};

/// Any other status is a success.
constexpr StatusResult kResults[] = {
    {200, voInetErrorPackageReceived}, {201, voInetErrorServerBusy},
    {202, voInetErrorNoPackage},       {400, voInetErrorInvalidRequest},
    {403, voInetErrorAccessDenied},    {404, voInetErrorFileNotFound},
    {503, voInetErrorServerBusy},      {506, voInetErrorGuidExists},
};

constexpr voInetError kNoOtherForm[] = {
    voInetErrorGuidExists,      voInetErrorMaxRetries, voInetErrorSuccess,   voInetErrorCancelled,
    voInetErrorPackageReceived, voInetErrorServerBusy, voInetErrorNoPackage, voInetErrorShutdown,
};

voInetError resultOf(const Reach& reach) {
    if (reach.transport != voInetErrorSuccess) {
        return reach.transport;
    }
    const auto* known =
        std::find_if(std::begin(kResults), std::end(kResults),
                     [&](const StatusResult& row) { return row.status == reach.status; });
    return known == std::end(kResults) ? voInetErrorSuccess : known->result;
}

bool mayMoveOn(voInetError result) {
    return std::find(std::begin(kNoOtherForm), std::end(kNoOtherForm), result) ==
           std::end(kNoOtherForm);
}

struct Expectation {
    voInetError result = voInetErrorSuccess;
    std::string response;
    std::array<std::size_t, 3> connections{};
    int status = 0;
};

/// How many forms with the fault come before the one that is well; 0 of those: there is none.
std::vector<bool> formsOf(Forms forms) {
    switch (forms) {
        case firstOfTwo:
            return {true, false};
        case firstOfThree:
            return {true, true, false};
        default:
            return {true};
    }
}

Expectation expectationOf(const HttpFault& fault, const Scenario& s, const std::string& package,
                          bool mayBeSeen) {
    Expectation expected;
    HttpExchange exchange = wellAnswer(package, "");
    exchange.place = s.place;
    const auto forms = formsOf(s.forms);
    for (std::size_t form = 0; form < forms.size(); ++form) {
        const HttpFault& row = forms[form] ? fault : httpFaults().front();
        Reach reach = reachOf(row, exchange, Client::plain);
        if (mayBeSeen && row.has(httpflag::kMayBeSeen)) {
            reach.transport = voInetErrorTransferFailed;
        }
        expected.result = resultOf(reach);
        expected.response = reach.body;
        expected.connections.at(form) = reach.connections;
        expected.status = reach.status;
        if (!mayMoveOn(expected.result)) {
            break;
        }
    }
    return expected;
}

struct Observation {
    voInetError result = voInetErrorSuccess;
    std::optional<std::string> response;
    std::array<std::size_t, 3> connections{};
    std::vector<std::string> troubles;
};

void finish(std::array<EndpointPtr, 3>& forms, const std::string& request, Observation& seen) {
    for (std::size_t form = 0; form < forms.size(); ++form) {
        if (!forms.at(form)) {
            continue;
        }
        for (const auto& failure : forms.at(form)->finish()) {
            seen.troubles.push_back("server: " + failure);
        }
        seen.connections.at(form) = forms.at(form)->connectionCount();
        for (const auto& body : forms.at(form)->posted()) {
            if (body != request) {
                seen.troubles.emplace_back("the request did not arrive as it is");
            }
        }
    }
}

Observation exchangePackages(const HttpFault& fault, const Scenario& s,
                             const std::string& package) {
    ServerPlan plan{package, everyAnswer, s.place};
    plan.otherServer = "127.0.0.1:1";
    auto forms = makeForms(
        s.forms, [&] { return makeHttpEndpoint(fault, plan); },
        [&] { return makeHttpEndpoint(httpFaults().front(), plan); });
    const Workplace directory;
    const std::string request = wire::makeBody(kRequestSize, kRequestBody);
    const std::string requestFile = directory.makeFile("request", request);
    if (const auto before = localContent(s, package)) {
        directory.makeFile(kResponseName, *before);
    }
    Observation seen;
    {
        const wire::TransferPtr transfer = wire::makeTransfer(voInetProtocolHttp);
        wire::applySettings(*transfer, settingsFor(forms));
        const VirtualTime::Client client;
        seen.result =
            transfer->UploadFileResponse(wire::widened(requestFile), L"/path",
                                         wire::widened(directory.path(kResponseName)), nullptr);
    }
    seen.response = contentOf(directory.path(kResponseName));
    finish(forms, request, seen);
    return seen;
}

bool isResponseRight(const HttpFault& fault, const Expectation& expected, const Observation& seen) {
    if (!seen.response) {
        return false;
    }
    // A reset may take with it what had been sent.
    const bool mayBeLess = fault.has(httpflag::kUncertain) && expected.result < 0;
    return mayBeLess ? expected.response.rfind(*seen.response, 0) == 0
                     : *seen.response == expected.response;
}

std::string differences(const HttpFault& fault, const Expectation& expected,
                        const Observation& seen) {
    std::ostringstream text;
    if (expected.result != seen.result) {
        text << "result " << expected.result << " expected, " << seen.result << " seen; ";
    }
    if (!isResponseRight(fault, expected, seen)) {
        text << "response: " << expected.response.size() << " bytes expected, "
             << described(seen.response, expected.response) << " seen; ";
    }
    if (expected.connections != seen.connections) {
        text << "other connections than expected; ";
    }
    for (const auto& trouble : seen.troubles) {
        text << trouble << "; ";
    }
    return text.str();
}

Verdict judge(const HttpFault& fault, const Expectation& expected, const Observation& seen,
              const std::string& package) {
    Verdict verdict;
    verdict.problem = differences(fault, expected, seen);
    if (seen.result == voInetErrorPackageReceived && seen.response == package) {
        verdict.outcome = Verdict::Outcome::rightBytes;
        return verdict;
    }
    verdict.outcome = Verdict::Outcome::asDocumented;
    verdict.oddity = seen.result == voInetErrorSuccess ? kAnyStatus : kEmptied;
    if (seen.result == voInetErrorPackageReceived) {
        verdict.oddity = fault.oddity;
    }
    if (verdict.oddity == nullptr) {
        verdict.problem += "a package that is none; ";
    }
    return verdict;
}

}  // namespace

Verdict runExchange(const Scenario& scenario) {
    const HttpFault& fault = httpFaults().at(scenario.fault);
    const std::string package = wire::makeBody(scenario.fileSize());
    const Observation seen = exchangePackages(fault, scenario, package);
    Verdict verdict = judge(fault, expectationOf(fault, scenario, package, false), seen, package);
    if (!verdict.problem.empty() && fault.has(httpflag::kMayBeSeen)) {
        return judge(fault, expectationOf(fault, scenario, package, true), seen, package);
    }
    return verdict;
}

}  // namespace tessaro_com::pkm::voInet::faults
