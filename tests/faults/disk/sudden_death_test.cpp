// Transfers whose process is killed: before each system call that it makes on its files, one after
// the other, until one comes to its end alive.

#include "tracedprocess.h"
#include "transfers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <ostream>

namespace voinettest {
namespace {

using Kind = Treatment::Kind;
using testing::IsEmpty;

constexpr int kMostCalls = 2000;
constexpr int kExchangedPackage = 8;

bool isFlush(const FileCall& call) {
    return call.name == "fsync" || call.name == "fdatasync" || call.name == "syncfs";
}

using MakeTransfer = Site::Transfer (Site::*)();

struct Case {
    const char* name;
    MakeTransfer transfer;
};

/// What a test runner shows of a case.
void PrintTo(const Case& each, std::ostream* output) {
    *output << each.name;
}

class SuddenDeath : public testing::TestWithParam<Case> {
  protected:
    /// Kills the process before the call with this number. The wait status.
    int runKilled(int number) {
        int count = 0;
        lastCall_ = "none";
        TracedProcess process(site_.roots(), [&](const FileCall& call) {
            if (call.isOnWritable) {
                site_.noteWritten(call.path);
            }
            if (count++ == number) {
                lastCall_ = call.name + " " + call.path;
                return Treatment{Kind::kill, 0};
            }
            // No power fails here: nothing has to reach the storage.
            return isFlush(call) ? Treatment{Kind::pretend, 0} : Treatment{};
        });
        return process.run(transfer_.work);
    }

    void checkDestination() const {
        const auto found = site_.found();
        if (transfer_.isInPlace) {
            const bool isPart = found && transfer_.after.compare(0, found->size(), *found) == 0;
            EXPECT_TRUE(isPart || found == transfer_.before) << "the destination is a mixture";
        } else {
            EXPECT_TRUE(found == transfer_.after || found == transfer_.before)
                << "the destination is a mixture";
        }
    }

    /// Transfers once more, undisturbed, over what the death has left.
    void checkNextRun() {
        TemporaryNames::startOver();
        const int status = runKilled(kMostCalls);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
        EXPECT_EQ(site_.found(), transfer_.after);
        if (!transfer_.isCommand) {
            const TransferReport report = site_.report();
            EXPECT_TRUE(report.result == 0 || report.result == kExchangedPackage);
            EXPECT_THAT(report.errorLines, IsEmpty());
        }
        // A temporary copy of a process that was killed stays, and its sibling until the next copy
        // into the temporary directory; nothing stays in the destination's.
        for (const std::string& left : site_.leftovers()) {
            EXPECT_NE(left.find(site_.path("")), 0U) << left << " was left behind";
        }
    }

    Site site_;
    Site::Transfer transfer_ = (site_.*GetParam().transfer)();
    std::string lastCall_;
};

TEST_P(SuddenDeath, BeforeEveryCall_LeavesOldOrNewAndTheNextRunSucceeds) {
    std::size_t leftBehind = 0;
    int number = 0;
    for (; number < kMostCalls; ++number) {
        site_.prepare(transfer_);
        const int status = runKilled(number);
        SCOPED_TRACE(testing::Message()
                     << transfer_.name << " killed at call " << number << ": " << lastCall_);
        checkDestination();
        if (!WIFSIGNALED(status)) {
            EXPECT_EQ(WEXITSTATUS(status), 0);
            EXPECT_EQ(site_.found(), transfer_.after);
            break;
        }
        EXPECT_EQ(WTERMSIG(status), SIGKILL);
        leftBehind += site_.leftovers().size();
        checkNextRun();
    }
    EXPECT_LT(number, kMostCalls);
    EXPECT_GE(number, 5);
    // There was something to clean up, unless the destination itself is written.
    EXPECT_EQ(leftBehind == 0, transfer_.isInPlace);
}

std::string nameOf(const testing::TestParamInfo<Case>& each) {
    return each.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Transfers, SuddenDeath,
    testing::Values(Case{"HttpFresh", &Site::httpFresh},
                    Case{"HttpReplacing", &Site::httpReplacing},
                    Case{"HttpResumed", &Site::httpResumed}, Case{"LocalCopy", &Site::localCopy},
                    Case{"Exchange", &Site::exchange}, Case{"GetHttp", &Site::commandHttp},
                    Case{"GetHttpResumed", &Site::commandHttpResumed},
                    Case{"GetLocal", &Site::commandLocal}, Case{"Post", &Site::commandExchange}),
    nameOf);

/// The order in which a transfer brings things to storage.
class Durability : public testing::TestWithParam<Case> {
  protected:
    std::vector<FileCall> callsOf(const Site::Transfer& transfer) {
        std::vector<FileCall> calls;
        site_.prepare(transfer);
        TracedProcess process(site_.roots(), [&](const FileCall& call) {
            calls.push_back(call);
            return isFlush(call) ? Treatment{Kind::pretend, 0} : Treatment{};
        });
        EXPECT_EQ(process.run(transfer.work), 0);
        return calls;
    }

    Site site_;
};

/// The first call behind `from` of which `matches` holds; the end when there is none.
template <typename Position, typename Matches>
Position nextCall(Position from, Position end, Matches matches) {
    return std::find_if(from, end, matches);
}

TEST_P(Durability, Contents_ReachStorageBeforeTheRenameAndTheDirectoryAfterIt) {
    const Site::Transfer transfer = (site_.*GetParam().transfer)();
    const std::vector<FileCall> calls = callsOf(transfer);
    const std::string directory = std::filesystem::path(site_.destination()).parent_path().string();

    const auto rename = nextCall(calls.begin(), calls.end(), [&](const FileCall& call) {
        return call.newPath == site_.destination();
    });
    ASSERT_NE(rename, calls.end());
    const auto flush = nextCall(calls.begin(), rename, [&](const FileCall& call) {
        return (call.name == "fdatasync" || call.name == "fsync") && call.path == rename->path;
    });
    EXPECT_NE(flush, rename);
    // Nothing is written between the two.
    EXPECT_EQ(nextCall(flush, rename,
                       [&](const FileCall& call) {
                           return call.path == rename->path &&
                                  (call.name == "write" || call.name == "copy_file_range" ||
                                   call.name == "sendfile" || call.name == "ftruncate");
                       }),
              rename);
    EXPECT_NE(nextCall(rename, calls.end(),
                       [&](const FileCall& call) {
                           return call.name == "fsync" && call.path == directory;
                       }),
              calls.end());
}

TEST_P(Durability, TemporaryFiles_AreNeverFlushed) {
    const std::vector<FileCall> calls = callsOf((site_.*GetParam().transfer)());

    std::size_t temporary = 0;
    for (const FileCall& call : calls) {
        const bool isTemporary = call.path.find("/tmp/Cbmgr") == 0 ||
                                 call.path.find("/tmp/.kvecomn-") == 0 || call.path == "/tmp";
        temporary += isTemporary ? 1U : 0U;
        EXPECT_FALSE(isTemporary && isFlush(call)) << call.name << ' ' << call.path;
    }
    EXPECT_GT(temporary, 5U);
}

INSTANTIATE_TEST_SUITE_P(Transfers, Durability,
                         testing::Values(Case{"HttpFresh", &Site::httpFresh},
                                         Case{"HttpReplacing", &Site::httpReplacing},
                                         Case{"HttpResumed", &Site::httpResumed},
                                         Case{"FtpReplacing", &Site::ftpReplacing},
                                         Case{"GetHttp", &Site::commandHttp}),
                         nameOf);

}  // namespace
}  // namespace voinettest
