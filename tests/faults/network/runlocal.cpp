#include "localfaults.h"
#include "runner.h"
#include "stage.h"
#include "support/body.h"
#include "support/restrictions.h"

#include <sys/stat.h>

#include <algorithm>
#include <sstream>

namespace tessaro_com::pkm::voInet::faults {

namespace {

constexpr const char kSourceName[] = "file.zip";
constexpr const char kTargetName[] = "local.zip";
constexpr std::size_t kStep = 512;

constexpr const char kTargetFirst[] =
    "local copy: the target is emptied before the source is opened";
constexpr const char kReadErrorEnds[] = "local copy: a read error ends it like the end of the file";
constexpr const char kStopKeeps[] = "local copy: a stop keeps what was copied and is a success";
constexpr const char kPartStays[] = "local copy: what was written before a full disk stays";

struct Expectation {
    voInetError result = voInetErrorSuccess;
    std::optional<std::string> target;
    const char* oddity = nullptr;
};

/// The first notification comes before the first step.
std::size_t copiedUntil(std::size_t stop, std::size_t size) {
    return std::min(size, (stop + kStep - 1) / kStep * kStep);
}

Expectation copyExpectation(const Scenario& s, const std::string& source) {
    const auto stop = stopOf(s);
    if (!stop || (*stop >= source.size() && *stop > 0)) {
        return {voInetErrorSuccess, source, nullptr};
    }
    return {voInetErrorSuccess, source.substr(0, copiedUntil(*stop, source.size())), kStopKeeps};
}

Expectation expectationOf(LocalTrouble trouble, const Scenario& s, const std::string& source,
                          const std::optional<std::string>& before) {
    switch (trouble) {
        case LocalTrouble::sourceMissing:
            return {voInetErrorFileNotFound, "", kTargetFirst};
        case LocalTrouble::sourceIsDirectory:
            return {voInetErrorSuccess, "", kReadErrorEnds};
        case LocalTrouble::targetDirectoryMissing:
        case LocalTrouble::targetIsDirectory:
            return {voInetErrorLocalFileOpen, before, nullptr};
        default:
            return copyExpectation(s, source);
    }
}

/// How much the disk takes when it is full.
std::size_t roomOf(const std::string& source) {
    return source.size() / 2;
}

/// The directories of one copy.
class LocalStage {
  public:
    LocalStage(const Scenario& s, LocalTrouble trouble, const std::string& source)
        : m_trouble(trouble), m_target(m_directory.path("target/") + kTargetName) {
        if (trouble == LocalTrouble::sourceIsDirectory) {
            m_directory.makeFile(std::string("source/") + kSourceName + "/inside", "");
        } else {
            m_directory.makeFile(trouble == LocalTrouble::sourceMissing
                                     ? "source/other"
                                     : std::string("source/") + kSourceName,
                                 source);
        }
        if (trouble == LocalTrouble::targetIsDirectory) {
            m_directory.makeFile(std::string("target/") + kTargetName + "/inside", "");
            return;
        }
        const auto before = localContent(s, source);
        if (trouble != LocalTrouble::targetDirectoryMissing) {
            m_directory.makeFile("target/beside", "");
        }
        if (before && trouble != LocalTrouble::targetDirectoryMissing) {
            m_directory.makeFile(std::string("target/") + kTargetName, *before);
        }
    }

    voInetError copy(const Scenario& s, std::size_t room) {
        const wire::TransferPtr transfer = wire::makeTransfer(voInetProtocolLocal);
        transfer->SetOption(voInetOptionRelativePath, wire::widened(m_directory.path("source")));
        wire::RecordingSink sink;
        if (const auto stop = stopOf(s)) {
            sink.stopAt(*stop);
        }
        std::optional<wire::FileSizeLimit> limit;
        if (m_trouble == LocalTrouble::diskFull) {
            limit.emplace(room);
        }
        long offset = 0;
        bool resume = true;
        return transfer->DownloadFile(wire::widened(m_target), wire::widened(kSourceName),
                                      s.sink == noSink ? nullptr : &sink, &offset, resume, true);
    }

    std::optional<std::string> target() const {
        struct stat status {};
        const bool isFile = ::stat(m_target.c_str(), &status) == 0 && S_ISREG(status.st_mode);
        return isFile ? contentOf(m_target) : std::nullopt;
    }

  private:
    Workplace m_directory;
    LocalTrouble m_trouble;
    std::string m_target;
};

/// Nothing: the disk has room for all that is to be written.
std::optional<Expectation> fullDisk(LocalTrouble trouble, const Expectation& expected,
                                    const std::string& source,
                                    const std::optional<std::string>& seen) {
    if (trouble != LocalTrouble::diskFull || expected.target->size() <= roomOf(source)) {
        return std::nullopt;
    }
    if (expected.oddity == kStopKeeps) {
        // A stop is a success whatever becomes of the last bytes.
        return Expectation{expected.result, source.substr(0, roomOf(source)), kStopKeeps};
    }
    const bool isPart = seen && seen->size() <= roomOf(source) && source.rfind(*seen, 0) == 0;
    return Expectation{voInetErrorWriteFailed, isPart ? seen : std::nullopt, kPartStays};
}

}  // namespace

Verdict runLocalCopy(const Scenario& scenario) {
    const LocalTrouble trouble = localFaults().at(scenario.fault).trouble;
    const std::string source = wire::makeBody(scenario.fileSize());
    LocalStage stage(scenario, trouble, source);
    const auto before = stage.target();
    const voInetError result = stage.copy(scenario, roomOf(source));
    const auto after = stage.target();
    Expectation expected = expectationOf(trouble, scenario, source, before);
    expected = fullDisk(trouble, expected, source, after).value_or(expected);
    Verdict verdict;
    std::ostringstream problem;
    if (expected.result != result) {
        problem << "result " << expected.result << " expected, " << result << " seen; ";
    }
    if (expected.target != after) {
        problem << "target: " << described(expected.target, std::nullopt) << " expected, "
                << described(after, expected.target) << " seen; ";
    }
    if (result == voInetErrorSuccess && after == source) {
        verdict.outcome = Verdict::Outcome::rightBytes;
    } else if (result != voInetErrorSuccess && after == before) {
        verdict.outcome = Verdict::Outcome::oldUntouched;
    } else {
        verdict.outcome = Verdict::Outcome::asDocumented;
        verdict.oddity = expected.oddity;
        problem << (verdict.oddity == nullptr ? "neither the right bytes nor the old file; " : "");
    }
    verdict.problem = problem.str();
    return verdict;
}

}  // namespace tessaro_com::pkm::voInet::faults
