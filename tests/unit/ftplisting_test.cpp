#include "support/ftpfixture.h"
#include "voinet/transfermonitor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// Without memory for the name of the file libcurl asks for the directory that it is in, and answers
// success. The replies of the server tell.

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;

namespace {

using Texts = std::vector<std::string>;

const Texts kReplies{"229 Extended passive (|||4711|)", "200 Type is A", "150 Here it comes",
                     "226 Complete"};
constexpr auto* kBody = "drwxr-xr-x 2 ftp ftp 4096 May 9 07:08 pkg\n";

/// A transfer that libcurl takes for a success.
Reply replyWith(const Texts& lines) {
    Reply reply(226);
    for (const std::string& line : lines) {
        if (line.compare(0, 3, "226") == 0) {
            reply.body(kBody);
        }
        reply.header(line + "\r\n");
    }
    return reply;
}

class FtpListing : public FtpFixture {
  protected:
    voInetError resultOf(const Texts& lines, const std::wstring& remote = L"file.zip") {
        have("local", "the old file");
        curlDouble().play(replyWith(lines));
        return download(remote);
    }
};

/// Wants to keep everything.
class KeepingMonitor : public TransferMonitor {
  public:
    KeepingMonitor() : m_former(setTransferMonitor(this)) {}
    ~KeepingMonitor() override { setTransferMonitor(m_former); }
    KeepingMonitor(const KeepingMonitor&) = delete;
    KeepingMonitor& operator=(const KeepingMonitor&) = delete;

    bool KeepsWhatArrived(const RequestRecord& /*request*/) override { return true; }
    void OnRequestEnded(const RequestRecord& request) override { last = request; }

    RequestRecord last;

  private:
    TransferMonitor* m_former;
};

}  // namespace

TEST_F(FtpListing, InPlaceOfTheFile_IsALackOfMemoryAndLeavesTheLocalFile) {
    const std::vector<Texts> listings{
        kReplies,
        {"227 Passive (127,0,0,1,18,103)", "200 Type is A", "150 Here it comes", "226 Complete"},
        {"229 Extended passive (|||9|)", "227 Passive (127,0,0,1,18,103)", "200 Type is A",
         "150 Here it comes", "226 Complete"},
        {"500 No EPSV", "227 Passive (127,0,0,1,18,103)", "200 Type is A", "150 Here it comes",
         "226 Complete"},
        {"229 Extended passive (|||4711|)", "200-Type", "213-is", " 213 no size", "200 A",
         "125 Data connection is open", "226 Complete"}};
    for (const Texts& lines : listings) {
        EXPECT_EQ(resultOf(lines), voInetErrorOutOfMemory) << testing::PrintToString(lines);
        EXPECT_EQ(local(), "the old file");
    }
}

TEST_F(FtpListing, WithoutAnyData_IsALackOfMemoryToo) {
    EXPECT_EQ(resultOf({kReplies.begin(), kReplies.end() - 1}), voInetErrorOutOfMemory);
    EXPECT_EQ(local(), "the old file");
}

TEST_F(FtpListing, KeptByTheMonitor_IsNotKept) {
    KeepingMonitor monitor;
    EXPECT_EQ(resultOf(kReplies), voInetErrorOutOfMemory);
    EXPECT_EQ(local(), "the old file");
    EXPECT_EQ(monitor.last.curlResult, static_cast<int>(CURLE_OUT_OF_MEMORY));
    EXPECT_EQ(monitor.last.received, 0);
}

TEST_F(FtpListing, OfTheCheckOfAResume_LetsItStartOver) {
    havePartialFile(3000);
    offset = 1000;
    curlDouble().play(replyWith(kReplies));
    curlDouble().play(replyOf(FtpAnswer::sent226, ""));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(offset, 0);
    EXPECT_EQ(local(), serverFile());
}

TEST_F(FtpListing, WhenTheSizeWasAskedFor_IsNone) {
    const std::string passive = "229 Extended passive (|||4711|)";
    const std::vector<Texts> files{
        {passive, "200 Type is I", "213 42", "150 Here it comes", "226 Complete"},
        {passive, "200 Type is I", "213 42", "350 Restarting", "150 Here it comes", "226 Complete"},
        {passive, "200 Type is I", "500 What?", "150 Here it comes", "226 Complete"},
        // A reply that no standard knows.
        {passive, "200 Type is I", "200 Is 42", "150 Here it comes", "226 Complete"},
        // The type is as it was.
        {passive, "213 42", "150 Here it comes", "226 Complete"},
        {passive, "502 What?", "150 Here it comes", "226 Complete"}};
    for (const Texts& lines : files) {
        EXPECT_EQ(resultOf(lines), voInetErrorSuccess) << testing::PrintToString(lines);
        EXPECT_EQ(local(), kBody);
    }
}

TEST_F(FtpListing, WithoutTheRepliesOfFtp_IsNone) {
    for (const Texts& lines :
         {Texts{"HTTP/1.1 200 OK", "150 Here it comes", "", "226 Complete"},
          Texts{"200 Type is A", "150 Here it comes", "226 Complete"}, Texts{"226 Complete"}}) {
        EXPECT_EQ(resultOf(lines), voInetErrorSuccess) << testing::PrintToString(lines);
        EXPECT_EQ(local(), kBody);
    }
}

TEST_F(FtpListing, ThatWasAskedFor_Lands) {
    for (const auto* name : {L"/", L"dir/", L"dir/#top", L"dir/?all", L"dir;type=d"}) {
        EXPECT_EQ(resultOf(kReplies, name), voInetErrorSuccess) << testing::PrintToString(name);
        EXPECT_EQ(local(), kBody);
    }
}

TEST_F(FtpListing, InPlaceOfAnyFile_IsALackOfMemory) {
    for (const auto* name : {L"file", L"dir/file", L"dir/file;version=2", L"file?a/", L"file#a/"}) {
        EXPECT_EQ(resultOf(kReplies, name), voInetErrorOutOfMemory) << testing::PrintToString(name);
        EXPECT_EQ(local(), "the old file");
    }
}
