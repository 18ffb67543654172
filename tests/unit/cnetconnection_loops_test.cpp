#include "support/choices.h"
#include "support/scriptedconnection.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <set>
#include <string>
#include <vector>

// Every sequence of results for the loops over the host forms, on every combination of configured
// forms and for every starting form, against a model of the rules.

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;

namespace {

const std::vector<int> kAllResults{0,   1,   2,   4,   6,   7,   8,   9,   12,  13,  21,  22,  -1,
                                   -2,  -3,  -4,  -5,  -6,  -7,  -8,  -10, -11, -12, -13, -14, -16,
                                   -19, -22, -26, -60, -88, -89, -91, -92, -93, -94, -95, -96};

// One or two results of each class that some rule tells apart.
const std::vector<int> kTransferResults{0, 7, 8, -1, -2, -5, -22, -88, -95, -96};
const std::vector<int> kLogonResults{0, 7, -1, -2};

/// What a run did: the calls in order, the result, and the state that it left.
struct Outcome {
    std::vector<std::string> calls;
    int result = 0;
    int finalKind = 0;
    std::string finalHost;

    bool operator==(const Outcome& other) const {
        return calls == other.calls && result == other.result && finalKind == other.finalKind &&
               finalHost == other.finalHost;
    }
    friend std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
        for (const auto& call : outcome.calls) {
            stream << call << "; ";
        }
        return stream << "result " << outcome.result << " kind " << outcome.finalKind << " host "
                      << outcome.finalHost;
    }
};

/// Answers each call with a result of its own choice, or with those of an earlier run.
class Results {
  public:
    explicit Results(Choices& choices) : m_choices(&choices) {}
    explicit Results(std::vector<int> given) : m_given(std::move(given)) {}

    int next(const std::string& operation) {
        if (!m_choices) {
            return m_position < m_given.size() ? m_given[m_position++] : 0;
        }
        const auto& deeper = operation == "logon" ? kLogonResults : kTransferResults;
        m_given.push_back(m_choices->of(m_given.empty() ? kAllResults : deeper));
        return m_given.back();
    }

    const std::vector<int>& given() const { return m_given; }

  private:
    Choices* m_choices = nullptr;
    std::vector<int> m_given;
    std::size_t m_position = 0;
};

/// The rules, in plain words.
class Model {
  public:
    Model(unsigned configured, int kind, std::vector<int> results)
        : m_configured(configured), m_kind(kind), m_results(std::move(results)) {
        if (isConfigured(kind)) {
            m_host = hostOf(kind);
        }
    }

    Outcome logon() {
        int result = 0;
        for (const int kind : {1, 2, 3}) {
            if (!apply(kind)) {
                continue;
            }
            result = call("logon");
            if (std::set<int>{-2, 0, 7, 12, 22}.count(result)) {
                break;
            }
        }
        return outcome(result);
    }

    Outcome download() {
        const std::set<int> movesOn{-88, -60, -26, -22, -8, -7, -1};
        return threeAttempts("download", [&](int result) { return movesOn.count(result) != 0; });
    }

    Outcome upload() { return threeAttempts("upload", uploadMovesOn); }

    Outcome uploadResponse() {
        int result = 0;
        bool go = apply(1);
        for (int attempt = 1;; ++attempt) {
            if (go) {
                result = call("response");
            }
            if (result == -96 || attempt == 3 || !uploadMovesOn(result) || m_kind == 3) {
                return outcome(result);
            }
            ++m_kind;
            go = apply(m_kind);
            if (!go) {
                return outcome(result);
            }
        }
    }

  private:
    static bool uploadMovesOn(int result) {
        return !std::set<int>{-95, -14, -13, -2, 0, 7, 8, 9, 12, 13, 22}.count(result);
    }

    static std::string hostOf(int kind) {
        return std::array{"", "ip:81", "fqdn:82", "nb:83"}[static_cast<std::size_t>(kind)];
    }

    bool isConfigured(int kind) const {
        return kind >= 1 && kind <= 3 && ((m_configured >> (kind - 1)) & 1U) != 0;
    }

    bool apply(int kind) {
        if (!isConfigured(kind)) {
            return false;
        }
        m_kind = kind;
        m_host = hostOf(kind);
        return true;
    }

    int call(const std::string& operation) {
        m_calls.push_back(operation + " " + std::to_string(m_kind) + " at " + m_host);
        return m_results.next(operation);
    }

    Outcome threeAttempts(const std::string& operation, const std::function<bool(int)>& movesOn) {
        int result = call(operation);
        for (int attempt = 2; attempt <= 3 && movesOn(result) && logonWithNextForm(); ++attempt) {
            result = call(operation);
        }
        return outcome(result);
    }

    bool logonWithNextForm() {
        while (m_kind != 3) {
            m_calls.emplace_back("log out");
            ++m_kind;
            apply(m_kind);
            if (call("logon") == 0) {
                return true;
            }
        }
        return false;
    }

    Outcome outcome(int result) const { return {m_calls, result, m_kind, m_host}; }

    unsigned m_configured;
    int m_kind;
    std::string m_host = ":0";
    Results m_results;
    std::vector<std::string> m_calls;
};

/// The operation on a connection.
using Run = std::function<voInetError(ScriptedConnection&)>;

Outcome runLibrary(unsigned configured, int kind, Results& results, const Run& run) {
    ScriptedConnection connection;
    connection.configure(configured);
    if (!connection.ApplyHostInformation({kind})) {
        connection.SetActiveHostSettings({kind}, L"", "", 0);
    }
    connection.answer = [&](const std::string& operation) {
        return static_cast<voInetError>(results.next(operation));
    };
    const int result = run(connection);
    return {connection.calls, result, connection.GetCurrentConnectionMethod(),
            connection.m_strHost_utf8_rep + ":" + std::to_string(connection.m_nPort)};
}

/// Compares library and model for all sequences; returns how many there were.
std::size_t compareAll(const Run& run, Outcome (Model::*model)()) {
    std::size_t runs = 0;
    for (unsigned configured = 0; configured < 8; ++configured) {
        for (int kind = 0; kind <= 3; ++kind) {
            runs += Choices::forAll([&](Choices& choices) {
                Results results(choices);
                const auto actual = runLibrary(configured, kind, results, run);
                Model rules(configured, kind, results.given());
                EXPECT_EQ(actual, (rules.*model)())
                    << "configured " << configured << ", starting with " << kind;
            });
        }
    }
    return runs;
}

}  // namespace

TEST(LoopOverHostForms, Logon_FollowsTheRulesForAllSequences) {
    const auto runs =
        compareAll([](auto& connection) { return connection.Logon(true, 7); }, &Model::logon);
    EXPECT_GT(runs, 12 * kAllResults.size());
}

TEST(LoopOverHostForms, Download_FollowsTheRulesForAllSequences) {
    const auto runs = compareAll(
        [](auto& connection) {
            bool resume = false;
            return connection.DownloadFile(L"a", L"b", nullptr, nullptr, resume, true);
        },
        &Model::download);
    EXPECT_GT(runs, 10000U);
}

TEST(LoopOverHostForms, Upload_FollowsTheRulesForAllSequences) {
    const auto runs =
        compareAll([](auto& connection) { return connection.UploadFile(L"a", L"b", nullptr); },
                   &Model::upload);
    EXPECT_GT(runs, 10000U);
}

TEST(LoopOverHostForms, UploadResponse_FollowsTheRulesForAllSequences) {
    const auto runs = compareAll(
        [](auto& connection) { return connection.UploadFileResponse(L"a", L"b", L"c", nullptr); },
        &Model::uploadResponse);
    EXPECT_GT(runs, 1000U);
}
