// A download that is resumed where a file crosses 2 GiB.

#include "support/wiretest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

static_assert(sizeof(off_t) == 8, "these tests make files beyond 2 GiB");

constexpr std::int64_t kTwoGiB = std::int64_t{1} << 31;
constexpr std::size_t kPrefix = 1024;
constexpr std::size_t kRest = 5000;
constexpr bool kLongHas64Bits = sizeof(long) == 8;

/// Where `long` has 32 bits the caller cannot name an offset beyond 2 GiB; the last one whose
/// compared bytes end before it leads to a file beyond 2 GiB as well.
constexpr std::int64_t kOffset =
    kLongHas64Bits ? kTwoGiB + 4096 : kTwoGiB - static_cast<std::int64_t>(kPrefix);

static_assert(kOffset <= std::numeric_limits<long>::max());
static_assert(kOffset + static_cast<std::int64_t>(kRest) > kTwoGiB);

/// The file's bytes from the offset on; before it there is a hole.
std::string rest() {
    return makeBody(kRest, static_cast<std::uint64_t>(kOffset));
}

class LargeFile : public HttpTest {
  protected:
    /// A sparse partial file that ends 1,024 bytes behind the offset.
    void makePartialFile() {
        const Descriptor file(::open(localFile().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        const std::string end = rest().substr(0, kPrefix);
        ASSERT_EQ(::pwrite(file.get(), end.data(), end.size(), kOffset),
                  static_cast<ssize_t>(end.size()));
    }

    std::int64_t localSize() const {
        struct stat status {};
        EXPECT_EQ(::stat(localFile().c_str(), &status), 0);
        return status.st_size;
    }

    std::string localBytes(std::int64_t from, std::size_t size) const {
        const Descriptor file(::open(localFile().c_str(), O_RDONLY | O_CLOEXEC));
        std::string bytes(size, 'x');
        EXPECT_EQ(::pread(file.get(), bytes.data(), size, from), static_cast<ssize_t>(size));
        return bytes;
    }

    DownloadOutcome resumeAt(long offset) {
        DownloadArguments arguments;
        arguments.offset = offset;
        return download(L"large.zip", arguments);
    }
};

TEST_F(LargeFile, ResumeAcross2GiB_FetchesOnlyTheRest) {
    makePartialFile();
    logOn();
    server().connection(answer(reply(206, rest().substr(0, kPrefix))));
    server().connection(answer(reply(206, rest())));

    const auto outcome = resumeAt(static_cast<long>(kOffset));

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, static_cast<long>(kOffset));
    ASSERT_EQ(requests().size(), 2U);
    const std::string from = "bytes=" + std::to_string(kOffset) + "-";
    EXPECT_EQ(requests()[0].header("Range"), from + std::to_string(kOffset + 1023));
    EXPECT_EQ(requests()[1].header("Range"), from);
    EXPECT_EQ(localSize(), kOffset + static_cast<std::int64_t>(kRest));
    EXPECT_EQ(localBytes(kOffset, kRest), rest());
    EXPECT_EQ(localBytes(kOffset - 4096, 4096), std::string(4096, '\0'));
}

TEST_F(LargeFile, LargestOffsetOfACaller_StartsOverWithoutOverflow) {
    // No file reaches so far on most systems, and nothing of this one does.
    makeLocalFile("old");
    logOn();
    server().connection(answer(reply(416, "not satisfiable")));
    server().connection(answer(reply(200, "new")));

    const auto outcome = resumeAt(std::numeric_limits<long>::max());

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile("new");
    const std::string from = "bytes=" + std::to_string(std::numeric_limits<long>::max()) + "-";
    ASSERT_EQ(requests().size(), 2U);
    EXPECT_THAT(requests()[0].header("Range").value_or(""), testing::StartsWith(from));
    EXPECT_EQ(requests()[1].header("Range"), std::nullopt);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
