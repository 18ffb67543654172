// Whole transfers on kernels that lack the calls which spare others: one by one and all together.

#include "tracedprocess.h"
#include "transfers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace voinettest {
namespace {

using Kind = Treatment::Kind;
using testing::IsEmpty;

using MakeTransfer = Site::Transfer (Site::*)();

struct Subject {
    const char* name;
    MakeTransfer transfer;
};

struct Kernel {
    const char* name;
    std::set<std::string> missing;
};

struct Answer {
    const char* name;
    int error;
};

/// What a test runner shows of them.
void PrintTo(const Subject& subject, std::ostream* output) {
    *output << subject.name;
}
void PrintTo(const Kernel& kernel, std::ostream* output) {
    *output << kernel.name;
}
void PrintTo(const Answer& answer, std::ostream* output) {
    *output << answer.name;
}

class MissingCalls : public testing::TestWithParam<std::tuple<Subject, Kernel, Answer>> {
  protected:
    /// Transfers once and returns the wait status.
    int run(const Site::Transfer& transfer) {
        const std::set<std::string>& missing = std::get<Kernel>(GetParam()).missing;
        const Treatment refusal = {Kind::fail, std::get<Answer>(GetParam()).error};
        site_.prepare(transfer);
        TracedProcess process(site_.roots(), [&](const FileCall& call) {
            if (call.isOnWritable) {
                site_.noteWritten(call.path);
            }
            made_.insert(call.name);
            if (missing.count(call.name) > 0) {
                ++refused_;
                return refusal;
            }
            // Nothing that is written here has to survive a power cut.
            const bool isFlush = call.name == "fsync" || call.name == "fdatasync";
            return isFlush ? Treatment{Kind::pretend, 0} : Treatment{};
        });
        return process.run(transfer.work);
    }

    Site site_;
    std::set<std::string> made_;
    int refused_ = 0;
};

TEST_P(MissingCalls, AreReplacedByOthers) {
    const Site::Transfer transfer = (site_.*std::get<Subject>(GetParam()).transfer)();

    const int status = run(transfer);

    EXPECT_EQ(status, 0);
    const TransferReport report = site_.report();
    EXPECT_TRUE(report.isComplete);
    EXPECT_EQ(report.result, 0);
    EXPECT_THAT(report.errorLines, IsEmpty());
    EXPECT_EQ(report.descriptorsLeft, 0);
    EXPECT_TRUE(site_.found() == transfer.after);
    EXPECT_THAT(site_.leftovers(), IsEmpty());
    // Sendfile is the way after copy_file_range and met only where that is missing too.
    const bool isMet = std::get<Kernel>(GetParam()).missing != std::set<std::string>{"sendfile"};
    EXPECT_EQ(refused_ > 0, isMet);
    EXPECT_TRUE(made_.count("openat") > 0 || made_.count("openat2") > 0);
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Subject, Kernel, Answer>>& each) {
    const auto& [subject, kernel, answer] = each.param;
    return std::string(subject.name) + "_" + kernel.name + "_" + answer.name;
}

INSTANTIATE_TEST_SUITE_P(
    Transfers, MissingCalls,
    testing::Combine(
        testing::Values(Subject{"HttpFresh", &Site::httpFresh},
                        Subject{"HttpReplacing", &Site::httpReplacing},
                        Subject{"HttpResumed", &Site::httpResumed},
                        Subject{"FtpReplacing", &Site::ftpReplacing}),
        testing::Values(Kernel{"Openat2", {"openat2"}},
                        Kernel{"CopyFileRange", {"copy_file_range"}}, Kernel{"Ficlone", {"ioctl"}},
                        Kernel{"Sendfile", {"sendfile"}},
                        Kernel{"CopyFileRangeAndSendfile", {"copy_file_range", "sendfile"}},
                        Kernel{"All", {"openat2", "ioctl", "copy_file_range", "sendfile"}}),
        testing::Values(Answer{"NoSuchCall", ENOSYS}, Answer{"Forbidden", EPERM},
                        Answer{"Unsupported", EOPNOTSUPP})),
    nameOf);

}  // namespace
}  // namespace voinettest
