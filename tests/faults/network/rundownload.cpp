#include "downloadoracle.h"
#include "runner.h"
#include "stage.h"
#include "support/body.h"
#include "virtualtime.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace tessaro_com::pkm::voInet::faults {

namespace {

constexpr const char kLocalName[] = "local.zip";
constexpr const char kRemoteName[] = "dir/file.zip";

constexpr const char kCancelKeeps[] = "a cancel keeps what has arrived";
constexpr const char kNothingCompared[] =
    "an offset at or behind the end: nothing is equal to nothing";
constexpr const char kRestShorter[] = "a rest that is shorter keeps the old tail";

/// The row of its protocol's table that a case is about; the other table's is not looked at.
struct Fault {
    bool isFtp;
    const HttpFault* http;
    const FtpFault* ftp;

    bool has(unsigned flag) const { return !isFtp && http->has(flag); }
    const char* oddity() const { return isFtp ? ftp->oddity : http->oddity; }
    Whereabouts whereabouts() const { return isFtp ? ftp->whereabouts : http->whereabouts; }
};

Fault wellFault(bool isFtp) {
    return {isFtp, &httpFaults().front(), &ftpFaults().front()};
}

Fault faultOf(const Scenario& s) {
    Fault fault = wellFault(s.protocol == ftp);
    if (fault.isFtp) {
        fault.ftp = &ftpFaults().at(s.fault);
    } else {
        fault.http = &httpFaults().at(s.fault);
    }
    return fault;
}

EndpointPtr makeEndpoint(const Fault& fault, const ServerPlan& plan) {
    return fault.isFtp ? makeFtpEndpoint(*fault.ftp, plan) : makeHttpEndpoint(*fault.http, plan);
}

// What the rules say.

std::string rangeText(long from, bool isCheck) {
    constexpr long kCompared = 1024;
    return from <= 0
               ? ""
               : std::to_string(from) + "-" + (isCheck ? std::to_string(from + kCompared - 1) : "");
}

/// Of a server with this fault in its answers.
ServerModel modelOf(const Fault& fault, const Scenario& s, const std::string& file) {
    ServerModel model;
    const Client client = s.protocol == http ? Client::follows : Client::plain;
    model.answer = [=](std::size_t number, long from, bool isCheck) {
        const bool bad = isBad(s.phase, number);
        if (fault.isFtp) {
            const FtpFault& row = bad ? *fault.ftp : ftpFaults().front();
            return row.reach(file, static_cast<std::size_t>(std::max(0L, from)), s.place);
        }
        const HttpFault& row = bad ? *fault.http : httpFaults().front();
        HttpExchange exchange = wellAnswer(file, rangeText(from, isCheck));
        exchange.place = s.place;
        Reach reach = reachOf(row, exchange, client);
        if (reach.transport == voInetErrorHostNotResolved && s.route != direct) {
            reach.transport = voInetErrorProxyNotResolved;
        }
        return reach;
    };
    if (fault.whereabouts() != Whereabouts::here) {
        model.logon = model.answer(0, 0, false).transport;
        model.connectionsPerLogon = 0;
    }
    return model;
}

Expectation expectationOf(const Fault& fault, const Scenario& s, const std::string& file) {
    DownloadOracle::Rules rules;
    rules.isHttp = s.protocol == http;
    rules.isProxied = s.protocol == ftpProxy;
    rules.hasUser = fault.has(httpflag::kUser);
    rules.hasProxyUser = fault.has(httpflag::kProxyUser);
    rules.hasAlternate = s.route == throughAlternate;
    rules.stopAt = stopOf(s);
    rules.local = localContent(s, file);
    rules.offset = resumeOffset(s);
    DownloadOracle oracle(rules);
    const auto bad = [&] { return modelOf(fault, s, file); };
    const auto well = [&] { return modelOf(wellFault(fault.isFtp), s, file); };
    switch (s.forms) {
        case lastForm:
            oracle.servers[2] = bad();
            break;
        case onlyFirst:
            oracle.servers[0] = bad();
            break;
        case firstOfTwo:
            oracle.servers = {bad(), well(), std::nullopt};
            break;
        default:
            oracle.servers = {bad(), bad(), well()};
    }
    return oracle.run();
}

// What the library does.

struct Observation {
    voInetError logon = voInetErrorSuccess;
    voInetError result = voInetErrorSuccess;
    long offset = 0;
    std::optional<std::string> file;
    std::size_t bytesDone = 0;
    std::array<std::size_t, 3> connections{};
    std::vector<std::string> troubles;
};

CProxyParams proxyFor(const Endpoint& endpoint, const Fault& fault, const Scenario& s) {
    CProxyParams proxy = wire::proxyAt(endpoint.port());
    proxy.m_strProxyHost = endpoint.host();
    if (fault.has(httpflag::kProxyUser)) {
        proxy.m_bHttpProxyAuthentication = true;
        proxy.m_strHttpProxyUser = L"proxy";
        proxy.m_strHttpProxyPassword = L"secret";
    }
    if (s.route == throughAlternate) {
        proxy.m_bAllowUserToConfigureProxy = true;
        proxy.m_bHttpAltCredentials = proxy.m_bFtpAltCredentials = true;
        proxy.m_strHttpAltUser = proxy.m_strFtpAltUser = L"alternate";
        proxy.m_strHttpAltPassword = proxy.m_strFtpAltPassword = L"other";
    }
    return proxy;
}

/// A transfer object and the servers of one case.
class DownloadStage {
  public:
    DownloadStage(const Scenario& s, const Fault& fault, const std::string& file)
        : m_scenario(s), m_fault(fault) {
        ServerPlan plan{file, s.phase, s.place};
        plan.spoilsLogon = s.forms == onlyFirst;
        if (fault.has(httpflag::kManySteps)) {
            m_other = makeHttpEndpoint(httpFaults().front(), plan);
            plan.otherServer = "127.0.0.1:" + std::to_string(m_other->port());
        }
        ServerPlan wellPlan = plan;
        wellPlan.phase = everyAnswer;
        m_forms = makeForms(
            s.forms, [&] { return makeEndpoint(fault, plan); },
            [&] { return makeEndpoint(wellFault(fault.isFtp), wellPlan); });
    }

    Observation play(const std::optional<std::string>& local) {
        const Workplace directory;
        if (local) {
            directory.makeFile(kLocalName, *local);
        }
        Observation seen;
        transfer(directory.path(kLocalName), seen);
        seen.file = contentOf(directory.path(kLocalName));
        if (directory.entries().size() > (seen.file ? 1U : 0U)) {
            seen.troubles.emplace_back("something was left beside the local file");
        }
        for (std::size_t form = 0; form < m_forms.size(); ++form) {
            finish(form, seen);
        }
        if (m_other) {
            m_other->finish();
        }
        return seen;
    }

  private:
    void transfer(const std::string& localFile, Observation& seen) {
        const wire::TransferPtr transfer = wire::makeTransfer(
            m_fault.isFtp || m_scenario.protocol == ftpProxy ? voInetProtocolFtp
                                                             : voInetProtocolHttp);
        configure(*transfer);
        wire::RecordingSink sink;
        if (const auto stop = stopOf(m_scenario)) {
            sink.stopAt(*stop);
        }
        const VirtualTime::Client client;
        seen.logon = transfer->Logon(false, 0);
        seen.offset = resumeOffset(m_scenario);
        bool resume = seen.offset > 0;
        seen.result = transfer->DownloadFile(wire::widened(localFile), wire::widened(kRemoteName),
                                             m_scenario.sink == noSink ? nullptr : &sink,
                                             &seen.offset, resume, true);
        transfer->LogOut();
        seen.bytesDone = sink.bytesDone();
    }

    void configure(TransferItf& transfer) {
        wire::TransferSettings settings = settingsFor(m_forms);
        if (m_scenario.route != direct) {
            CProxyParams proxy = proxyFor(*m_forms[2], m_fault, m_scenario);
            transfer.SetOption(voInetOptionSite, &proxy);
            settings.hostNetBios = m_origin.hostAndPort();
        }
        if (m_fault.has(httpflag::kUser)) {
            settings.user = L"user";
            settings.password = L"password";
        }
        wire::applySettings(transfer, settings);
    }

    void finish(std::size_t form, Observation& seen) {
        if (!m_forms.at(form)) {
            return;
        }
        for (const auto& failure : m_forms.at(form)->finish()) {
            seen.troubles.push_back("server: " + failure);
        }
        seen.connections.at(form) = m_forms.at(form)->connectionCount();
    }

    const Scenario& m_scenario;
    Fault m_fault;
    EndpointPtr m_other;
    std::array<EndpointPtr, 3> m_forms;
    /// The server behind a proxy: nobody may go there.
    wire::RefusingPort m_origin;
};

// Expectation and observation.

/// The local file as the rules want it; what a cancel keeps depends on how far the sink was told.
std::optional<std::string> expectedFile(const Expectation& expected, const Observation& seen) {
    if (!expected.keepsCancelled || !expected.file) {
        return expected.file;
    }
    const std::string arrived = expected.body.substr(0, seen.bytesDone);
    std::string file = *expected.file;
    if (!arrived.empty()) {
        file.resize(std::max(file.size(), expected.start + arrived.size()), '\0');
        file.replace(expected.start, arrived.size(), arrived);
    }
    return file;
}

bool areConnectionsRight(const Expectation& expected, const Observation& seen, bool isStopped) {
    for (std::size_t form = 0; form < seen.connections.size(); ++form) {
        const std::size_t bound = expected.connections.at(form);
        const std::size_t count = seen.connections.at(form);
        if (count > bound || (!isStopped && count < bound)) {
            return false;
        }
    }
    return true;
}

std::string listed(const std::array<std::size_t, 3>& counts) {
    return std::to_string(counts[0]) + "+" + std::to_string(counts[1]) + "+" +
           std::to_string(counts[2]);
}

std::string differences(const Expectation& expected, const Observation& seen, const Scenario& s) {
    std::ostringstream text;
    const auto compare = [&text](const char* what, long want, long got) {
        if (want != got) {
            text << what << " " << want << " expected, " << got << " seen; ";
        }
    };
    compare("logon", expected.logon, seen.logon);
    compare("result", expected.result, seen.result);
    compare("offset", expected.offset, seen.offset);
    const auto file = expectedFile(expected, seen);
    if (file != seen.file) {
        text << "file: " << described(file, std::nullopt) << " expected, "
             << described(seen.file, file) << " seen; ";
    }
    const auto stop = stopOf(s);
    if (!areConnectionsRight(expected, seen, stop.has_value())) {
        text << "connections " << listed(expected.connections) << " expected, "
             << listed(seen.connections) << " seen; ";
    }
    if (expected.keepsCancelled &&
        (seen.bytesDone < *stop || seen.bytesDone > expected.body.size())) {
        text << "the sink was told of " << seen.bytesDone << " bytes; ";
    }
    for (const auto& trouble : seen.troubles) {
        text << trouble << "; ";
    }
    return text.str();
}

const char* oddityOf(const Expectation& expected, const Observation& seen, const Fault& fault) {
    if (seen.result == voInetErrorCancelled) {
        return kCancelKeeps;
    }
    if (seen.result != voInetErrorSuccess) {
        return nullptr;
    }
    if (fault.oddity() != nullptr) {
        return fault.oddity();
    }
    if (expected.nothingWasCompared) {
        return kNothingCompared;
    }
    return expected.restWasShorter ? kRestShorter : nullptr;
}

Verdict judge(const Expectation& expected, const Observation& seen, const Fault& fault,
              const Scenario& s, const std::string& file) {
    Verdict verdict;
    verdict.problem = differences(expected, seen, s);
    const bool isUntouched = seen.file == localContent(s, file);
    if (seen.result == voInetErrorSuccess && seen.file == file) {
        verdict.outcome = Verdict::Outcome::rightBytes;
    } else if (seen.result != voInetErrorSuccess && isUntouched) {
        verdict.outcome = Verdict::Outcome::oldUntouched;
    } else {
        verdict.outcome = Verdict::Outcome::asDocumented;
        verdict.oddity = oddityOf(expected, seen, fault);
        if (verdict.oddity == nullptr) {
            verdict.problem += "neither the right bytes nor the old file; ";
        }
    }
    return verdict;
}

}  // namespace

Verdict runDownload(const Scenario& scenario) {
    const Fault fault = faultOf(scenario);
    const std::string file = wire::makeBody(scenario.fileSize());
    const Observation seen =
        DownloadStage(scenario, fault, file).play(localContent(scenario, file));
    return judge(expectationOf(fault, scenario, file), seen, fault, scenario, file);
}

}  // namespace tessaro_com::pkm::voInet::faults
