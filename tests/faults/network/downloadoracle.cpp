#include "downloadoracle.h"

#include <algorithm>
#include <iterator>
#include <regex>

namespace tessaro_com::pkm::voInet::faults {

namespace {

constexpr std::size_t kCompared = 1024;
constexpr int kMostRequests = 4;
constexpr int kMostAttempts = 3;
constexpr std::size_t kLastForm = 2;

/// Results after which another host form is tried.
constexpr voInetError kOtherFormMayDo[] = {
    voInetErrorTransferFailed, voInetErrorTimeout,         voInetErrorCodeMinus26,
    voInetErrorAccessDenied,   voInetErrorHostNotResolved, voInetErrorProxyNotResolved,
    voInetErrorFailed,
};

bool mayMoveOn(voInetError result) {
    return std::find(std::begin(kOtherFormMayDo), std::end(kOtherFormMayDo), result) !=
           std::end(kOtherFormMayDo);
}

struct StatusResult {
    int status;
    voInetError result;
};

/// What is not here is a transfer failure.
constexpr StatusResult kHttpResults[] = {
    {200, voInetErrorSuccess},           {206, voInetErrorSuccess},
    {401, voInetErrorLoginIncorrect},    {404, voInetErrorFileNotFound},
    {407, voInetErrorProxyAuthRequired}, {416, voInetErrorRangeNotSatisfiable},
};

std::string padded(const std::string& bytes) {
    std::string block = bytes.substr(0, kCompared);
    block.resize(kCompared, '\0');
    return block;
}

std::size_t sizeOf(long offset) {
    return static_cast<std::size_t>(std::max(offset, 0L));
}

/// `body` written over `base` from an offset on; a gap is filled with zeros.
std::string written(std::string base, std::size_t from, const std::string& body) {
    if (body.empty()) {
        return base;
    }
    base.resize(std::max(base.size(), from + body.size()), '\0');
    return base.replace(from, body.size(), body);
}

/// Nothing when it does not fit.
std::optional<long> numberOf(const std::string& digits) {
    constexpr std::size_t kMostDigits = 9;  // no file here is larger
    return digits.size() <= kMostDigits ? std::optional<long>(std::stol(digits)) : std::nullopt;
}

}  // namespace

Expectation DownloadOracle::run() {
    m_offset = m_rules.offset;
    m_expected.file = m_rules.local;
    for (std::size_t form = 0; form <= kLastForm; ++form) {
        if (!servers.at(form)) {
            continue;
        }
        m_form = m_active = form;
        m_expected.logon = logOn(form);
        if (m_expected.logon == voInetErrorSuccess) {
            break;
        }
    }
    m_expected.result = attempt();
    for (int attempts = 1; attempts < kMostAttempts && mayMoveOn(m_expected.result) && moveOn();
         ++attempts) {
        m_expected.result = attempt();
    }
    m_expected.offset = m_offset;
    for (std::size_t form = 0; form <= kLastForm; ++form) {
        m_expected.connections.at(form) = servers.at(form) ? servers.at(form)->connections : 0;
    }
    return m_expected;
}

voInetError DownloadOracle::logOn(std::size_t form) {
    ServerModel& server = *servers.at(form);
    server.connections += server.connectionsPerLogon;
    return server.logon;
}

/// A form that is not configured leaves the server of the one before it active.
bool DownloadOracle::moveOn() {
    while (m_form < kLastForm) {
        ++m_form;
        if (servers.at(m_form)) {
            m_active = m_form;
        }
        if (logOn(m_active) == voInetErrorSuccess) {
            return true;
        }
    }
    return false;
}

voInetError DownloadOracle::attempt() {
    if (m_rules.isHttp && m_form != m_active) {
        return voInetErrorBadOptions;
    }
    Pass main = checkOffset();
    voInetError result = transfer(main);
    const bool restarts =
        result == voInetErrorRangeIgnored || result == voInetErrorRangeNotSatisfiable;
    if (restarts) {
        m_offset = 0;
        main = Pass{};
        main.hasSink = m_rules.isHttp;
        result = transfer(main);
    }
    takeResult(main, result, restarts);
    return result;
}

/// The transfer that is left to do.
DownloadOracle::Pass DownloadOracle::checkOffset() {
    std::optional<long> total;
    if (m_offset > 0) {
        Pass check{m_offset, true};
        transfer(check);
        const auto range = rangeOf(check);
        const bool isElsewhere = namesPart(check) && (!range || range->first != check.from);
        if (isElsewhere || !matches(check)) {
            m_offset = 0;
        } else if (namesPart(check)) {
            total = range->total;
        }
        m_expected.nothingWasCompared = m_offset > 0 && check.delivered.size() < kCompared;
    }
    Pass main{m_offset};
    main.total = total;
    return main;
}

void DownloadOracle::takeResult(const Pass& pass, voInetError result, bool hasRestarted) {
    if (m_rules.isHttp && pass.status != 200 && pass.status != 206) {
        return;
    }
    if (result == voInetErrorSuccess) {
        commit(pass);
    }
    if (result == voInetErrorCancelled && !hasRestarted && bringsWhatWasAsked(pass, false)) {
        m_expected.keepsCancelled = true;
        m_expected.start = sizeOf(pass.from);
        m_expected.file = pass.from > 0 ? m_rules.local : "";
        m_expected.body = pass.delivered;
    }
}

voInetError DownloadOracle::transfer(Pass& pass) {
    return m_rules.isHttp ? transferOverHttp(pass) : transferOverFtp(pass);
}

voInetError DownloadOracle::transferOverHttp(Pass& pass) {
    for (int requests = 0; requests < kMostRequests; ++requests) {
        pass.delivered.clear();
        int status = 0;
        const voInetError result = request(pass, status);
        if (result == voInetErrorCancelled) {
            pass.status = status;
        }
        if (result != voInetErrorSuccess) {
            return result;
        }
        pass.status = status;
        if (!retriesAfter(status)) {
            return resultOfHttp(status, pass);
        }
    }
    pass.delivered.clear();
    return voInetErrorMaxRetries;
}

voInetError DownloadOracle::transferOverFtp(Pass& pass) {
    voInetError result = voInetErrorSuccess;
    for (int requests = 0; requests < (m_rules.hasAlternate ? 2 : 1); ++requests) {
        pass.delivered.clear();
        result = request(pass, pass.status);
        if (m_rules.isProxied && pass.status > 400) {
            result = pass.status == 550 ? voInetErrorFileNotFound : voInetErrorFailed;
        }
        if (result == voInetErrorSuccess) {
            return bringsWhatWasAsked(pass, true) ? result : voInetErrorRangeIgnored;
        }
    }
    return result;
}

voInetError DownloadOracle::request(Pass& pass, int& status) {
    ServerModel& server = *servers.at(m_active);
    const Reach reach = server.answer(server.answers++, pass.from, pass.isCheck);
    server.connections += reach.connections;
    const bool isTold = !pass.isCheck && pass.hasSink;
    const auto stopAt = isTold ? m_rules.stopAt : std::nullopt;
    pass.headStatus = 0;
    if (stopAt && *stopAt == 0) {
        status = 0;
        return voInetErrorCancelled;
    }
    status = pass.headStatus = reach.status;
    pass.contentRanges = reach.contentRanges;
    pass.delivered = reach.body;
    if (!pass.isCheck && pass.from > 0 && !m_rules.local && !reach.body.empty()) {
        return voInetErrorWriteFailed;  // there is nothing that could be continued
    }
    if (stopAt && reach.body.size() >= *stopAt) {
        return voInetErrorCancelled;
    }
    const bool isCut = reach.transport == voInetErrorSuccess && reach.isHeadCut;
    return isCut ? voInetErrorTransferFailed : reach.transport;
}

bool DownloadOracle::retriesAfter(int status) const {
    return (status == 401 && m_rules.hasUser) || (status == 407 && m_rules.hasProxyUser);
}

voInetError DownloadOracle::resultOfHttp(int status, const Pass& pass) const {
    if (!bringsWhatWasAsked(pass, true)) {
        return voInetErrorRangeIgnored;
    }
    const auto* known = std::find_if(std::begin(kHttpResults), std::end(kHttpResults),
                                     [=](const StatusResult& row) { return row.status == status; });
    return known == std::end(kHttpResults) ? voInetErrorTransferFailed : known->result;
}

bool DownloadOracle::namesPart(const Pass& pass) const {
    const bool hasHead = m_rules.isHttp || m_rules.isProxied;
    return hasHead && pass.headStatus == 206 && !pass.contentRanges.empty();
}

std::optional<DownloadOracle::Range> DownloadOracle::rangeOf(const Pass& pass) {
    static const std::regex kForm("bytes ([0-9]+)-([0-9]+)/([0-9]+)");
    const auto& lines = pass.contentRanges;
    const bool agree = std::all_of(lines.begin(), lines.end(),
                                   [&](const std::string& line) { return line == lines.front(); });
    std::smatch parts;
    if (lines.empty() || !agree || !std::regex_match(lines.front(), parts, kForm)) {
        return std::nullopt;
    }
    const auto first = numberOf(parts[1]);
    const auto last = numberOf(parts[2]);
    const auto total = numberOf(parts[3]);
    if (!first || !last || !total || *first > *last || *last >= *total) {
        return std::nullopt;
    }
    return Range{*first, *last, *total};
}

bool DownloadOracle::bringsWhatWasAsked(const Pass& pass, bool isComplete) const {
    const bool hasHead = m_rules.isHttp || m_rules.isProxied;
    if (hasHead && pass.headStatus == 200) {
        return pass.from <= 0;
    }
    if (!namesPart(pass)) {
        return true;
    }
    const auto range = rangeOf(pass);
    return range && range->first == std::max(pass.from, 0L) && range->last == range->total - 1 &&
           pass.total.value_or(range->total) == range->total &&
           (!isComplete || pass.delivered.size() == sizeOf(range->last - range->first + 1));
}

bool DownloadOracle::matches(const Pass& check) const {
    const std::string local = localBytes();
    return padded(local.substr(std::min(local.size(), sizeOf(check.from)))) ==
           padded(check.delivered);
}

void DownloadOracle::commit(const Pass& pass) {
    if (pass.from > 0 && !m_rules.local) {
        return;  // nothing was made that could be put in place
    }
    const std::string base = pass.from > 0 ? localBytes() : "";
    m_expected.restWasShorter = sizeOf(pass.from) + pass.delivered.size() < base.size();
    m_expected.file = written(base, sizeOf(pass.from), pass.delivered);
}

}  // namespace tessaro_com::pkm::voInet::faults
