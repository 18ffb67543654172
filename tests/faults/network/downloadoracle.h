#ifndef VOINET_TESTS_FAULTS_NETWORK_DOWNLOADORACLE_H
#define VOINET_TESTS_FAULTS_NETWORK_DOWNLOADORACLE_H

#include "reach.h"
#include "scenario.h"

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::faults {

/// What a server does about the requests of a download, in order.
struct ServerModel {
    /// Of the answer with this number to a request from an offset; `isCheck` asks for 1,024 bytes.
    std::function<Reach(std::size_t number, long from, bool isCheck)> answer;
    /// Of a logon.
    voInetError logon = voInetErrorSuccess;
    std::size_t connectionsPerLogon = 1;

    std::size_t answers = 0;
    std::size_t connections = 0;
};

/// What the rules promise of a download.
struct Expectation {
    voInetError logon = voInetErrorSuccess;
    voInetError result = voInetErrorSuccess;
    /// As the caller gets it back.
    long offset = 0;
    /// The local file afterwards; nothing: there is none.
    std::optional<std::string> file;
    /// Of each server, by host form.
    std::array<std::size_t, 3> connections{};

    /// When the sink has stopped the transfer and what has come is kept: that is put over `file`
    /// from `start` on, as far as the sink was told.
    bool keepsCancelled = false;
    std::size_t start = 0;
    std::string body;
    /// Which of the rules that bring other bytes than the server's file has been met.
    bool restWasShorter = false;
    bool nothingWasCompared = false;
};

/// The rules of a download: which requests are made, what they give, what becomes of the local
/// file. Knows nothing of the library.
class DownloadOracle {
  public:
    struct Rules {
        /// Of a download over HTTP; else of one over FTP.
        bool isHttp = true;
        /// FTP's results are chosen by the status of a proxy.
        bool isProxied = false;
        bool hasUser = false;
        bool hasProxyUser = false;
        bool hasAlternate = false;
        /// The sink stops the transfer once it was told of so many bytes.
        std::optional<std::size_t> stopAt;
        /// Before the transfer.
        std::optional<std::string> local;
        long offset = 0;
    };

    explicit DownloadOracle(Rules rules) : m_rules(std::move(rules)) {}

    /// By host form; those that are not configured are empty.
    std::array<std::optional<ServerModel>, 3> servers;

    Expectation run();

  private:
    struct Pass {
        long from = 0;
        bool isCheck = false;
        /// What a restart over FTP does not tell the sink cannot be stopped by it.
        bool hasSink = true;
        /// Size of the file at the server as the check has seen it.
        std::optional<long> total = {};
        std::string delivered = {};
        int status = 0;
        /// What the last answer's header lines say, also of one that fails.
        int headStatus = 0;
        std::vector<std::string> contentRanges = {};
    };

    /// What a Content-Range says, as numbers of bytes.
    struct Range {
        long first;
        long last;
        long total;
    };

    voInetError logOn(std::size_t form);
    bool moveOn();
    voInetError attempt();
    voInetError transfer(Pass& pass);
    voInetError transferOverHttp(Pass& pass);
    voInetError transferOverFtp(Pass& pass);
    /// One request: the transport's result, a cancel and a failed write included.
    voInetError request(Pass& pass, int& status);
    bool retriesAfter(int status) const;
    voInetError resultOfHttp(int status, const Pass& pass) const;
    bool matches(const Pass& check) const;
    Pass checkOffset();
    /// Whether it is a 206 that says which part it is.
    bool namesPart(const Pass& pass) const;
    /// That of all its lines.
    static std::optional<Range> rangeOf(const Pass& pass);
    /// False when the header lines say that this is not what was asked for.
    bool bringsWhatWasAsked(const Pass& pass, bool isComplete) const;
    void takeResult(const Pass& pass, voInetError result, bool hasRestarted);
    void commit(const Pass& pass);

    std::string localBytes() const { return m_rules.local.value_or(""); }

    Rules m_rules;
    std::size_t m_form = 0;    // the current one, which need not be configured
    std::size_t m_active = 0;  // the one whose server is asked
    long m_offset = 0;
    Expectation m_expected;
};

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_DOWNLOADORACLE_H
