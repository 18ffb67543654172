// HTTP downloads without memory: the local file is the whole new one or the old one.

#include "support/download.h"
#include "voinet/HTTPConnection.h"
#include "voinet/cbmgr.h"

#include <gtest/gtest.h>

using namespace tessaro_com::pkm::voInet;
using namespace tessaro_com::pkm::voInet::torture;

namespace {

using HttpDownload = DownloadScene<CHttpConnection, HttpOrigin>;

MakeScene download(const Respond& respond, const DownloadPlan& plan,
                   const HttpDownload::Prepare& prepare = asItIs<HttpDownload>,
                   const HttpDownload::Download& how = downloadFile<HttpDownload>) {
    return [=] {
        return std::make_unique<HttpDownload>(std::make_unique<HttpOrigin>(respond), plan, prepare,
                                              how);
    };
}

DownloadPlan fresh() {
    return {};
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

DownloadPlan monitored(DownloadPlan plan) {
    plan.isMonitored = true;
    return plan;
}

void withCredentials(HttpDownload& scene) {
    EXPECT_EQ(scene.connection.SetOption(voInetOptionUser, std::wstring(L"a-user-of-the-server")),
              voInetErrorSuccess);
    EXPECT_EQ(
        scene.connection.SetOption(voInetOptionPassword, std::wstring(L"password-of-the-user")),
        voInetErrorSuccess);
}

/// The server is a proxy, and nothing listens where the origin is said to be.
class ThroughProxy {
  public:
    void operator()(HttpDownload& scene) const {
        CProxyParams proxy = wire::proxyAt(scene.origin->port());
        proxy.m_bHttpProxyAuthentication = true;
        proxy.m_strHttpProxyUser = L"a-user-of-the-proxy";
        proxy.m_strHttpProxyPassword = L"password-at-the-proxy";
        EXPECT_EQ(scene.connection.SetOption(voInetOptionSite, &proxy), voInetErrorSuccess);
        EXPECT_EQ(scene.connection.SetOption(voInetOptionHostNetBios, m_nobody->hostAndPort()),
                  voInetErrorSuccess);
    }

  private:
    std::shared_ptr<wire::RefusingPort> m_nobody = std::make_shared<wire::RefusingPort>();
};

std::string urlOf(const HttpDownload& scene) {
    return "http://127.0.0.1:" + std::to_string(scene.origin->port()) + "/a/long/path/to/file.zip";
}

/// Requests that lack what the settings ask for are answered with an error.
Respond servingWithToken(const std::string& file) {
    return [inner = serving(file)](const wire::Request& request) {
        EXPECT_TRUE(request.header("UpdateToken")) << "a request without its token";
        EXPECT_TRUE(request.header("pragma")) << "a request for a cache";
        return inner(request);
    };
}

/// A request for another file is answered with this one: nobody else would notice.
Respond servingOnly(const std::string& target, const std::string& file) {
    return [target, inner = serving(file)](const wire::Request& request) {
        EXPECT_EQ(request.target, target) << "another file was asked for";
        return inner(request);
    };
}

}  // namespace

TEST(HttpDownloadTorture, Fresh) {
    survivesEveryShortage(download(serving(wholeFile()), fresh()));
}

TEST(HttpDownloadTorture, WithTheLogInDetail) {
    const DetailedLog log;
    survivesEveryShortage(download(serving(wholeFile()), fresh()));
}

TEST(HttpDownloadTorture, OverAnOldFile) {
    survivesEveryShortage(download(serving(wholeFile()), overAnOldFile()));
}

TEST(HttpDownloadTorture, WithTokenAndWithoutCache_EveryRequestHasItsHeaders) {
    DownloadPlan plan = overAnOldFile();
    plan.useCache = false;
    survivesEveryShortage(download(servingWithToken(wholeFile()), plan, [](HttpDownload& scene) {
        EXPECT_EQ(scene.connection.SetOption(voInetOptionUpdateToken,
                                             std::wstring(L"a-token-that-needs-memory")),
                  voInetErrorSuccess);
    }));
}

TEST(HttpDownloadTorture, LongName_IsNeverCut) {
    const std::string name(300, 'n');
    survivesEveryShortage(download(
        servingOnly("/repository/with-a-long-name/of-the-product/" + name, wholeFile()),
        overAnOldFile(), [&name](HttpDownload& s) { s.remoteName = wire::widened(name); }));
}

TEST(HttpDownloadTorture, Resumed) {
    survivesEveryShortage(download(serving(wholeFile()), resumed()));
}

TEST(HttpDownloadTorture, RestartedAfter200ToARange) {
    survivesEveryShortage(download(servingNoOpenRanges(wholeFile()), resumed()));
}

TEST(HttpDownloadTorture, Redirected) {
    survivesEveryShortage(download(redirecting(wholeFile()), overAnOldFile()));
}

TEST(HttpDownloadTorture, WithCredentials) {
    survivesEveryShortage(
        download(askingForCredentials(wholeFile()), overAnOldFile(), withCredentials));
}

TEST(HttpDownloadTorture, ThroughAProxyWithCredentials) {
    survivesEveryShortage(
        download(askingForProxyCredentials(wholeFile()), overAnOldFile(), ThroughProxy()));
}

TEST(HttpDownloadTorture, WithMonitor) {
    survivesEveryShortage(download(serving(wholeFile()), monitored(overAnOldFile())));
}

TEST(HttpDownloadTorture, ResumedWithMonitor) {
    survivesEveryShortage(download(servingNoOpenRanges(wholeFile()), monitored(resumed())));
}

TEST(HttpDownloadTorture, RedirectedWithMonitor) {
    survivesEveryShortage(download(redirecting(wholeFile()), monitored(overAnOldFile())));
}

TEST(HttpDownloadTorture, OfOneHostForm) {
    survivesEveryShortage(download(serving(wholeFile()), resumed(), asItIs<HttpDownload>,
                                   downloadFileWithConnSpec<HttpDownload>));
}

TEST(HttpDownloadTorture, OfAUrl) {
    survivesEveryShortage([] {
        auto scene = std::make_unique<HttpDownload>(
            std::make_unique<HttpOrigin>(serving(wholeFile())), resumed(), asItIs<HttpDownload>,
            HttpDownload::Download());
        const std::string url = urlOf(*scene);
        const std::string localPath = scene->localPath();
        scene->setDownload([url, localPath](HttpDownload& s) {
            return s.connection.downloadFile(localPath.c_str(), url.c_str(), &s.sink, &s.offset,
                                             s.useCache);
        });
        return scene;
    });
}

TEST(HttpDownloadTorture, IntoAManager) {
    survivesEveryShortage([] {
        auto scene = std::make_unique<HttpDownload>(
            std::make_unique<HttpOrigin>(serving(wholeFile())), overAnOldFile(),
            asItIs<HttpDownload>, HttpDownload::Download());
        auto manager = std::make_shared<CallbackManager>(CallbackManager::TransferDownload,
                                                         scene->wideLocalPath(), L"site", L"host",
                                                         wire::widened(urlOf(*scene)), 0, false);
        auto result = std::make_shared<voInetError>(voInetErrorFailed);
        scene->setDownload([manager, result](HttpDownload& s) {
            int status = 0;
            *result = s.connection.DoHttpDownload(manager.get(), s.useCache, &status, nullptr);
            return *result;
        });
        scene->setEnd([manager, result] {
            if (*result == voInetErrorSuccess) {
                EXPECT_TRUE(manager->FinishTransfer());
            }
        });
        return scene;
    });
}
