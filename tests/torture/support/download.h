#ifndef VOINET_TESTS_TORTURE_SUPPORT_DOWNLOAD_H
#define VOINET_TESTS_TORTURE_SUPPORT_DOWNLOAD_H

#include "support/body.h"
#include "support/observers.h"
#include "support/replacement.h"
#include "support/servers.h"
#include "support/temporarydirectory.h"
#include "support/torture.h"
#include "support/transfer.h"
#include "support/workplace.h"
#include "voinet/cnetconnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tessaro_com::pkm::voInet::torture {

/// The file that servers have, and the beginning of it that a resumed download starts with.
constexpr std::size_t kFileSize = 5000;
constexpr std::size_t kPartialSize = 3000;
constexpr long kResumeOffset = static_cast<long>(kPartialSize) - 1024;

inline std::string wholeFile() {
    return wire::makeBody(kFileSize);
}
inline std::string partialFile() {
    return wholeFile().substr(0, kPartialSize);
}

/// What a download starts with and what it is called with.
struct DownloadPlan {
    /// Nothing: there is no local file.
    std::optional<std::string> oldFile = std::nullopt;
    long offset = 0;
    bool useCache = true;
    /// A monitor is set.
    bool isMonitored = false;
};

/// A connection and its server, with one download between them. The local file is the whole new one
/// after a success and the old one after anything else. When a success lacked the memory to replace
/// the local file, which is not part of the result, it is the old one as well.
template <class Connection, class Origin>
class DownloadScene : public Scene {
  public:
    using Prepare = std::function<void(DownloadScene&)>;
    using Download = std::function<voInetError(DownloadScene&)>;

    DownloadScene(std::unique_ptr<Origin> server, const DownloadPlan& plan, const Prepare& prepare,
                  Download download)
        : origin(std::move(server)),
          offset(plan.offset),
          useCache(plan.useCache),
          m_plan(plan),
          m_download(std::move(download)) {
        if (plan.oldFile) {
            m_directory.makeFile(kLocalName, *plan.oldFile);
        }
        wire::TransferSettings settings;
        settings.hostNetBios = origin->hostAndPort();
        settings.relativePath = L"repository/with-a-long-name/of-the-product";
        wire::applySettings(connection, settings);
        prepare(*this);
        EXPECT_TRUE(connection.ApplyHostInformation(connMethodNetBios));
        if (plan.isMonitored) {
            m_monitor.emplace();
        }
    }

    void setDownload(Download download) { m_download = std::move(download); }
    /// What is done when memory is back and before the local file is looked at.
    void setEnd(std::function<void()> end) { m_end = std::move(end); }

    void run() override {
        forgetCopies();
        m_result = m_download(*this);
    }

    void check(bool isDisturbed) override {
        origin->finish();
        m_end();
        expectResult(m_result, voInetErrorSuccess, isDisturbed);
        const bool lacksReplacement = m_result == voInetErrorSuccess && !isReplaced();
        EXPECT_TRUE(!lacksReplacement || errorLines() > 0) << "nobody hears of the old file";
        EXPECT_STREQ(localFileNow(), isReplaced() ? kWhole : kOld) << "after " << m_result;
        for (const std::string& name : m_directory.entries()) {
            EXPECT_EQ(name, kLocalName) << "was left beside the local file";
        }
        if (m_monitor) {
            EXPECT_EQ(m_monitor->started(), m_monitor->ended());
            EXPECT_TRUE(isDisturbed || m_monitor->started() > 0) << "nobody asked the monitor";
            m_monitor.reset();
        }
    }

    // What the operation works on.
    std::unique_ptr<Origin> origin;
    Connection connection;
    PatientSink sink;
    long offset;
    bool resume = false;
    bool useCache;
    std::wstring remoteName = L"file-with-a-long-name.zip";

    std::string localPath() const { return m_directory.path(kLocalName); }
    const std::wstring& wideLocalPath() const { return m_wideLocalPath; }

  private:
    static constexpr const char* kLocalName = "local.zip";

    static constexpr const char* kWhole = "the whole new file";
    static constexpr const char* kOld = "the old file, or none as before";

    bool isReplaced() const {
        return m_result == voInetErrorSuccess && latestCopy() != Copy::failedShort;
    }

    const char* localFileNow() const {
        std::optional<std::string> content;
        if (!m_directory.entries().empty()) {
            content = wire::readFile(localPath());
        }
        if (content == wholeFile()) {
            return kWhole;
        }
        return content == m_plan.oldFile ? kOld : "a spoilt file";
    }

    DownloadPlan m_plan;
    Download m_download;
    std::function<void()> m_end = [] {};
    Workplace m_directory;
    std::wstring m_wideLocalPath = wire::widened(localPath());
    std::optional<CountingMonitor> m_monitor;
    voInetError m_result = voInetErrorFailed;
};

/// The download as a host asks for it.
template <class AnyScene>
voInetError downloadFile(AnyScene& scene) {
    return scene.connection.DownloadFile(scene.wideLocalPath(), scene.remoteName, &scene.sink,
                                         &scene.offset, scene.resume, scene.useCache);
}

/// The same without the loop over the host forms.
template <class AnyScene>
voInetError downloadFileWithConnSpec(AnyScene& scene) {
    return scene.connection.DownloadFileWithConnSpec(connMethodNetBios, scene.wideLocalPath(),
                                                     scene.remoteName, &scene.sink, &scene.offset,
                                                     scene.resume, scene.useCache);
}

template <class AnyScene>
void asItIs(AnyScene& /*scene*/) {}

}  // namespace tessaro_com::pkm::voInet::torture

#endif  // VOINET_TESTS_TORTURE_SUPPORT_DOWNLOAD_H
