// FTP downloads and local copies without memory.

#include "support/download.h"
#include "voinet/FTPConnection.h"
#include "voinet/lnxLocalConnection.h"

#include <gtest/gtest.h>

using namespace tessaro_com::pkm::voInet;
using namespace tessaro_com::pkm::voInet::torture;

namespace {

using FtpDownload = DownloadScene<CFtpConnection, FtpOrigin>;

void withUser(FtpDownload& scene) {
    EXPECT_EQ(scene.connection.SetOption(voInetOptionUser, std::wstring(L"a-user-of-the-server")),
              voInetErrorSuccess);
    EXPECT_EQ(
        scene.connection.SetOption(voInetOptionPassword, std::wstring(L"password-of-the-user")),
        voInetErrorSuccess);
}

MakeScene download(const DownloadPlan& plan,
                   const FtpDownload::Download& how = downloadFile<FtpDownload>) {
    return [=] {
        return std::make_unique<FtpDownload>(std::make_unique<FtpOrigin>(wholeFile()), plan,
                                             withUser, how);
    };
}

DownloadPlan overAnOldFile() {
    DownloadPlan plan;
    plan.oldFile = "the old file";
    return plan;
}

DownloadPlan resumed() {
    DownloadPlan plan;
    plan.oldFile = partialFile();
    plan.offset = kResumeOffset;
    return plan;
}

/// A copy out of a repository directory.
class CopyScene : public Scene {
  public:
    CopyScene() {
        m_directory.makeFile("source.zip", wholeFile());
        m_connection.m_strRelativePath = wire::widened(m_directory.path(""));
    }

    void run() override {
        m_result =
            m_connection.DownloadFile(m_target, m_source, &m_sink, nullptr, m_resume, m_useCache);
    }

    /// A copy writes into the target directly, so a failed one may leave a part.
    void check(bool isDisturbed) override {
        expectResult(m_result, voInetErrorSuccess, isDisturbed);
        if (m_result == voInetErrorSuccess) {
            EXPECT_TRUE(wire::readFile(m_directory.path("target.zip")) == wholeFile());
        }
        EXPECT_EQ(wire::readFile(m_directory.path("source.zip")), wholeFile());
    }

  private:
    Workplace m_directory;
    CLocalConnection m_connection;
    PatientSink m_sink;
    std::wstring m_target = wire::widened(m_directory.path("target.zip"));
    std::wstring m_source = L"source.zip";
    bool m_resume = true;
    bool m_useCache = true;
    voInetError m_result = voInetErrorFailed;
};

}  // namespace

TEST(FtpDownloadTorture, Fresh) {
    survivesEveryShortage(download({}));
}

TEST(FtpDownloadTorture, OverAnOldFile) {
    survivesEveryShortage(download(overAnOldFile()));
}

TEST(FtpDownloadTorture, Resumed) {
    survivesEveryShortage(download(resumed()));
}

TEST(FtpDownloadTorture, OfOneHostForm) {
    survivesEveryShortage(download(overAnOldFile(), downloadFileWithConnSpec<FtpDownload>));
}

TEST(FtpDownloadTorture, WithMonitor) {
    DownloadPlan plan = overAnOldFile();
    plan.isMonitored = true;
    survivesEveryShortage(download(plan));
}

TEST(FtpDownloadTorture, ResumedWithMonitor) {
    DownloadPlan plan = resumed();
    plan.isMonitored = true;
    survivesEveryShortage(download(plan));
}

TEST(LocalCopyTorture, SuccessIsAWholeCopy) {
    survivesEveryShortage([] { return std::make_unique<CopyScene>(); });
}
