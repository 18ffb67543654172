// Files beyond 2 GiB and 4 GiB: where `long` has 32 bits their sizes and offsets no longer fit.

#include "support/wiretest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

static_assert(sizeof(off_t) == 8, "these tests make files beyond 4 GiB");

constexpr std::int64_t kTwoGiB = std::int64_t{1} << 31;
constexpr std::int64_t kFourGiB = std::int64_t{1} << 32;
constexpr std::size_t kPrefix = 1024;
constexpr std::size_t kRest = 5000;
constexpr std::int64_t kLargestLong = std::numeric_limits<long>::max();

/// What a figure of the caller's type shows of a size.
template <class Figure>
Figure shown(std::int64_t size) {
    constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<Figure>::max());
    return static_cast<Figure>(std::min(static_cast<std::uint64_t>(size), kLargest));
}

/// Offsets with the border inside the compared bytes, inside the rest and before both. Those that a
/// caller cannot name where `long` has 32 bits are left out: all but the first.
std::vector<std::int64_t> nameableOffsets() {
    std::vector<std::int64_t> offsets{kTwoGiB - 1024};
    for (const std::int64_t border : {kTwoGiB, kFourGiB}) {
        for (const std::int64_t offset : {border - 2048, border - 512, border, border + 4096}) {
            if (offset + static_cast<std::int64_t>(kPrefix) - 1 <= kLargestLong) {
                offsets.push_back(offset);
            }
        }
    }
    return offsets;
}

/// The file's bytes from the offset on; before it there is a hole.
std::string restFrom(std::int64_t offset) {
    return makeBody(kRest, static_cast<std::uint64_t>(offset));
}

void writeAt(const std::string& path, std::int64_t position, const std::string& bytes) {
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), position),
              static_cast<ssize_t>(bytes.size()));
}

class LargeFile : public HttpTest {
  protected:
    void TearDown() override {
        ::unlink(localFile().c_str());
        HttpTest::TearDown();
    }

    /// A new sparse partial file that ends 1,024 bytes behind the offset.
    void makePartialFile(std::int64_t offset) {
        ::unlink(localFile().c_str());
        writeAt(localFile(), offset, restFrom(offset).substr(0, kPrefix));
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

    DownloadOutcome resumeAt(std::int64_t offset) {
        server().connection(answer(reply(206, restFrom(offset).substr(0, kPrefix))));
        server().connection(answer(reply(206, restFrom(offset))));
        DownloadArguments arguments;
        arguments.offset = static_cast<long>(offset);
        return download(L"large.zip", arguments);
    }
};

TEST_F(LargeFile, ResumeAround2And4GiB_FetchesOnlyTheRest) {
    logOn();
    for (const std::int64_t offset : nameableOffsets()) {
        SCOPED_TRACE(offset);
        makePartialFile(offset);
        const std::size_t before = requests().size();

        const auto outcome = resumeAt(offset);

        EXPECT_EQ(outcome.result, voInetErrorSuccess);
        EXPECT_EQ(outcome.offset, static_cast<long>(offset));
        ASSERT_EQ(requests().size(), before + 2);
        const std::string from = "bytes=" + std::to_string(offset) + "-";
        EXPECT_EQ(requests()[before].header("Range"), from + std::to_string(offset + 1023));
        EXPECT_EQ(requests()[before + 1].header("Range"), from);
        EXPECT_EQ(localSize(), offset + static_cast<std::int64_t>(kRest));
        EXPECT_EQ(localBytes(offset, kRest), restFrom(offset));
        EXPECT_EQ(localBytes(offset - 4096, 4096), std::string(4096, '\0'));
    }
}

TEST_F(LargeFile, ResumeInsideALocalFileBeyond4GiB_KeepsWhatLiesBehind) {
    const std::int64_t offset = kTwoGiB - 2048;
    const std::string end = "the end";
    makePartialFile(offset);
    writeAt(localFile(), kFourGiB + 4096, end);
    logOn();

    EXPECT_EQ(resumeAt(offset).result, voInetErrorSuccess);

    EXPECT_EQ(localBytes(offset, kRest), restFrom(offset));
    EXPECT_EQ(localBytes(kFourGiB + 4096, end.size()), end);
    EXPECT_EQ(localSize(), kFourGiB + 4096 + static_cast<std::int64_t>(end.size()));
}

TEST_F(LargeFile, AnnouncedSizes_AreReportedAsFarAsTheFigureReaches) {
    logOn();
    for (const std::int64_t size :
         {kTwoGiB - 1, kTwoGiB, kFourGiB - 1, kFourGiB, kFourGiB + 5000}) {
        SCOPED_TRACE(size);
        makeLocalFile("old");
        server().connection(
            {receiveRequest(),
             send(replyHead(200, {"Content-Length: " + std::to_string(size)}) + "first bytes"),
             awaitClose()});
        sink().stopWhen([](const Notification& now) { return now.total > 0; });

        EXPECT_EQ(download(L"large.zip").result, voInetErrorCancelled);

        EXPECT_EQ(sink().notifications().back().total, shown<long>(size));
    }
}

TEST_F(LargeFile, LargestOffsetOfACaller_StartsOverWithoutOverflow) {
    // No file reaches so far on most systems, and nothing of this one does.
    makeLocalFile("old");
    logOn();
    server().connection(answer(reply(416, "not satisfiable")));
    server().connection(answer(reply(200, "new")));

    DownloadArguments arguments;
    arguments.offset = std::numeric_limits<long>::max();
    const auto outcome = download(L"large.zip", arguments);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile("new");
    const std::string from = "bytes=" + std::to_string(std::numeric_limits<long>::max()) + "-";
    ASSERT_EQ(requests().size(), 2U);
    EXPECT_THAT(requests()[0].header("Range").value_or(""), testing::StartsWith(from));
    EXPECT_EQ(requests()[1].header("Range"), std::nullopt);
}

/// Keeps nothing of the millions of notifications but their course.
class Course : public CNetSessionSink {
  public:
    void OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* /*status*/,
                            const wchar_t* /*siteText1*/, const wchar_t* /*siteText2*/,
                            const wchar_t* /*remoteUrl*/, bool* /*goOn*/) override {
        neverGoesBack = neverGoesBack && *bytesDone >= done;
        done = *bytesDone;
        total = *bytesTotal;
    }

    unsigned long done = 0;
    long total = 0;
    bool neverGoesBack = true;
};

class LargeLocalCopy : public WireTest {};

TEST_F(LargeLocalCopy, SourceBeyond4GiB_IsReadToItsEnd) {
    makeTransfer(voInetProtocolLocal);
    TransferSettings settings;
    settings.relativePath = widened(directory().path("repository"));
    applySettings(transfer(), settings);
    const std::string source = directory().makeFile("repository/large.zip", "");
    const std::string end = "the end";
    writeAt(source, kFourGiB + 4096, end);
    Course course;
    long offset = 0;
    bool resume = false;

    // What takes the bytes is of no interest, and has no room for them on a small disk.
    const auto result =
        transfer().DownloadFile(L"/dev/null", L"large.zip", &course, &offset, resume, true);

    EXPECT_EQ(result, voInetErrorSuccess);
    const std::int64_t size = kFourGiB + 4096 + static_cast<std::int64_t>(end.size());
    EXPECT_EQ(course.done, shown<unsigned long>(size));
    EXPECT_EQ(course.total, shown<long>(size));
    EXPECT_TRUE(course.neverGoesBack);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
