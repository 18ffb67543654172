// Whole transfers on a disk that fails: one system call after the other, with each kind of error,
// until a transfer comes to its end without meeting the failing call.

#include "tracedprocess.h"
#include "transfers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <ostream>
#include <set>

namespace voinettest {
namespace {

using Kind = Treatment::Kind;
using testing::IsEmpty;

constexpr int kMostCalls = 2000;
/// What the library calls its success: of an exchange that it received a package.
constexpr int kResultSuccess = 0;
constexpr int kResultPackage = 8;

struct Fault {
    const char* name;
    Treatment treatment;
};

constexpr Fault kNoSpace = {"NoSpace", {Kind::fail, ENOSPC}};
constexpr Fault kQuota = {"Quota", {Kind::fail, EDQUOT}};
constexpr Fault kReadOnly = {"ReadOnly", {Kind::fail, EROFS}};
constexpr Fault kNoPermission = {"NoPermission", {Kind::fail, EACCES}};
constexpr Fault kBrokenDisk = {"BrokenDisk", {Kind::fail, EIO}};
constexpr Fault kInterrupted = {"Interrupted", {Kind::fail, EINTR}};
constexpr Fault kShortCount = {"ShortCount", {Kind::shorten, 0}};

using MakeTransfer = Site::Transfer (Site::*)();

struct Case {
    const char* name;
    MakeTransfer transfer;
    Fault fault;
};

bool isFlush(const FileCall& call) {
    return call.name == "fsync" || call.name == "fdatasync" || call.name == "syncfs";
}

bool movesData(const FileCall& call) {
    return call.name == "read" || call.name == "write" || call.name == "copy_file_range" ||
           call.name == "sendfile";
}

/// Errors with which a file server tells at the end that it could not keep the data.
bool losesData(int error) {
    return error == ENOSPC || error == EDQUOT || error == EIO;
}

bool isWrittenClose(const FileCall& call) {
    return call.name == "close" && call.isOnWritable;
}

bool isRemoval(const FileCall& call) {
    return call.name == "unlink" || call.name == "unlinkat";
}

/// One run of a transfer with at most one failing call.
struct FaultyRun {
    std::optional<FileCall> failed;
    int waitStatus = -1;
};

/// What a test runner shows of a case.
void PrintTo(const Case& each, std::ostream* output) {
    *output << each.name;
}

class DiskFault : public testing::TestWithParam<Case> {
  protected:
    /// Fails the call with this number, counted from 0 over the calls that the fault fits.
    FaultyRun runFailing(int number) {
        FaultyRun run;
        int count = 0;
        unsettled_.clear();
        site_.prepare(transfer_);
        TracedProcess process(site_.roots(), [&](const FileCall& call) {
            if (call.isOnWritable) {
                site_.noteWritten(call.path);
            }
            if (fits(call) && count++ == number) {
                run.failed = call;
                return treatmentOf(call);
            }
            follow(call);
            // Nothing that is written here has to survive a power cut.
            return isFlush(call) ? Treatment{Kind::pretend, 0} : Treatment{};
        });
        run.waitStatus = process.run(transfer_.work);
        return run;
    }

    bool fits(const FileCall& call) const {
        return GetParam().fault.treatment.kind != Kind::shorten || movesData(call);
    }

    bool isSurvivable() const {
        const Treatment& treatment = GetParam().fault.treatment;
        return treatment.kind == Kind::shorten || treatment.error == EINTR;
    }

    /// What the transfer goes on after. The streams of the C library, with which files are written
    /// in place, give up when a call is interrupted; so does the command.
    bool survives() const {
        const bool givesUp = transfer_.isInPlace || transfer_.isCommand;
        return isSurvivable() && (GetParam().fault.treatment.kind == Kind::shorten || !givesUp);
    }

    /// A file server that has no room may tell so when a file is closed: the data is gone then.
    Treatment treatmentOf(const FileCall& call) const {
        const Treatment& treatment = GetParam().fault.treatment;
        const bool isLoss =
            losesData(treatment.error) && isWrittenClose(call) && unsettled_.count(call.path) > 0;
        return isLoss ? Treatment{Kind::loseAndFail, treatment.error} : treatment;
    }

    /// Keeps in mind which files were written since they were closed: what a close has let pass
    /// is safe.
    void follow(const FileCall& call) {
        if (call.name != "read" && movesData(call)) {
            unsettled_.insert(call.path);
        } else if (isWrittenClose(call)) {
            unsettled_.erase(call.path);
        }
    }

    void check(const FaultyRun& run) const {
        ASSERT_TRUE(WIFEXITED(run.waitStatus)) << "ended by a signal: " << run.waitStatus;
        if (transfer_.isCommand) {
            checkCommand(run);
        } else {
            checkLibrary(run);
        }
        if (!run.failed || !isRemoval(*run.failed)) {
            for (const std::string& left : site_.leftovers()) {
                EXPECT_TRUE(mayStay(left, run)) << left << " was left behind";
            }
        }
    }

    /// What the command keeps on purpose after a failure.
    bool mayStay(const std::string& left, const FaultyRun& run) const {
        if (!transfer_.isCommand || !run.failed || WEXITSTATUS(run.waitStatus) == 0) {
            return false;
        }
        if (left == site_.destination() + ".part") {
            // To be resumed; a package that the server may not send twice; or a file that could not
            // be looked at.
            return transfer_.isResumed || contentOf(left) == transfer_.after;
        }
        // A lock that could not be taken may be another process's.
        return left == site_.destination() + ".part.lock" && run.failed->name == "flock";
    }

    void checkCommand(const FaultyRun& run) const {
        const auto found = site_.found();
        const bool isNew = found == transfer_.after;
        EXPECT_TRUE(isNew || found == transfer_.before) << "the destination is a mixture";
        EXPECT_TRUE(isNew || WEXITSTATUS(run.waitStatus) != 0) << "success without the file";
        if (survives()) {
            EXPECT_EQ(WEXITSTATUS(run.waitStatus), 0);
            EXPECT_TRUE(isNew);
        }
    }

    void checkLibrary(const FaultyRun& run) const {
        const TransferReport report = site_.report();
        ASSERT_TRUE(report.isComplete);
        EXPECT_EQ(report.descriptorsLeft, 0);
        const bool isSuccess = report.result == kResultSuccess || report.result == kResultPackage;
        const auto found = site_.found();
        const bool isNew = found == transfer_.after;
        if (transfer_.isInPlace) {
            checkInPlace(isSuccess, found, run);
        } else {
            EXPECT_TRUE(isNew || found == transfer_.before) << "the destination is a mixture";
            EXPECT_TRUE(isNew || !isSuccess || !report.errorLines.empty())
                << "success without the file and without an error line";
        }
        if (survives()) {
            EXPECT_TRUE(isSuccess) << report.result;
            EXPECT_TRUE(isNew);
            EXPECT_THAT(report.errorLines, IsEmpty());
        }
    }

    /// What is written in place may be a part after a failure, but never of anything else.
    void checkInPlace(bool isSuccess, const std::optional<std::string>& found,
                      const FaultyRun& run) const {
        const bool isNew = found == transfer_.after;
        const bool isPart = found && transfer_.after.compare(0, found->size(), *found) == 0;
        EXPECT_TRUE(isPart || found == transfer_.before) << "the destination is a mixture";
        // A source that cannot be read on ends a copy like its end does; that is intended.
        const bool isSourceLost =
            run.failed && run.failed->name == "read" && transfer_.name == "local copy";
        EXPECT_TRUE(isNew || !isSuccess || isSourceLost) << "success without the file";
    }

    Site site_;
    std::set<std::string> unsettled_;
    Site::Transfer transfer_ = (site_.*GetParam().transfer)();
};

TEST_P(DiskFault, AtEveryCall_LeavesOldOrNewAndTellsTheTruth) {
    int number = 0;
    for (; number < kMostCalls; ++number) {
        const FaultyRun run = runFailing(number);
        SCOPED_TRACE(testing::Message()
                     << transfer_.name << ", " << GetParam().fault.name << " at call " << number
                     << ": " << (run.failed ? run.failed->name + " " + run.failed->path : "none"));
        check(run);
        if (!run.failed) {
            EXPECT_EQ(WEXITSTATUS(run.waitStatus), 0);
            EXPECT_EQ(site_.found(), transfer_.after);
            break;
        }
    }
    EXPECT_LT(number, kMostCalls);
    // At least the source is read and the destination written.
    EXPECT_GE(number, 2);
}

std::vector<Case> allCases() {
    struct Row {
        const char* name;
        MakeTransfer transfer;
        std::vector<Fault> faults;
    };
    const std::vector<Fault> all = {kNoSpace,    kQuota,       kReadOnly,  kNoPermission,
                                    kBrokenDisk, kInterrupted, kShortCount};
    // Where a transfer makes many calls one error stands for those that no code tells apart.
    const std::vector<Fault> kinds = {kNoSpace, kInterrupted, kShortCount};
    const std::vector<Row> rows = {
        {"HttpFresh", &Site::httpFresh, kinds},
        {"HttpReplacing", &Site::httpReplacing, all},
        {"HttpResumed", &Site::httpResumed, {kBrokenDisk, kInterrupted, kShortCount}},
        {"FtpReplacing", &Site::ftpReplacing, kinds},
        {"FtpResumed", &Site::ftpResumed, {kBrokenDisk, kInterrupted, kShortCount}},
        {"LocalCopy", &Site::localCopy, all},
        {"Exchange", &Site::exchange, all},
        {"GetHttp", &Site::commandHttp, kinds},
        {"GetHttpResumed", &Site::commandHttpResumed, {kBrokenDisk, kShortCount}},
        {"GetLocal", &Site::commandLocal, all},
        {"Post", &Site::commandExchange, all},
    };
    std::vector<Case> cases;
    for (const Row& row : rows) {
        for (const Fault& fault : row.faults) {
            cases.push_back({row.name, row.transfer, fault});
        }
    }
    return cases;
}

std::string nameOf(const testing::TestParamInfo<Case>& each) {
    return std::string(each.param.name) + "_" + each.param.fault.name;
}

INSTANTIATE_TEST_SUITE_P(Transfers, DiskFault, testing::ValuesIn(allCases()), nameOf);

}  // namespace
}  // namespace voinettest
