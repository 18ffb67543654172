// What a host may call on a connection and on its helper, without memory.

#include "support/servers.h"
#include "support/settings.h"
#include "support/torture.h"
#include "support/transfer.h"
#include "voinet/HTTPConnection.h"
#include "voinet/chttphelper.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

using namespace tessaro_com::pkm::voInet;
using namespace tessaro_com::pkm::voInet::torture;

namespace {

// Longer than what a string object holds itself, and than the host that it takes the place of.
const std::wstring kHost = L"a-host-with-a-long-name.example.org";
const std::string kHostUtf8 = "a-host-with-a-long-name.example.org";
const std::wstring kOldHost = L"before:1234";
constexpr int kPort = 4711;

/// An operation that makes another host the active one: as a whole and with true, or not at all.
class ActiveHostScene : public Scene {
  public:
    using Operation = std::function<bool(CHttpConnection&)>;

    explicit ActiveHostScene(Operation operation) : m_operation(std::move(operation)) {
        prepare(m_connection);
        m_old = settingsOf(m_connection);
        CHttpConnection other;
        prepare(other);
        EXPECT_TRUE(m_operation(other));
        m_new = settingsOf(other);
    }

    void run() override { m_answer = m_operation(m_connection); }

    void check(bool isDisturbed) override {
        EXPECT_TRUE(m_answer || isDisturbed);
        EXPECT_TRUE(settingsOf(m_connection) == (m_answer ? m_new : m_old)) << "half applied";
        EXPECT_EQ(m_connection.CheckOptionsWithConnSpec(connMethodFqdn), m_answer);
        EXPECT_EQ(m_connection.CheckOptionsWithConnSpec(connMethodIP), !m_answer);
    }

  private:
    static void prepare(CHttpConnection& connection) {
        wire::TransferSettings settings;
        settings.hostIp = kOldHost;
        settings.hostFqdn = kHost + L":4711";
        wire::applySettings(connection, settings);
        EXPECT_TRUE(connection.ApplyHostInformation(connMethodIP));
    }

    Operation m_operation;
    CHttpConnection m_connection;
    Settings m_old;
    Settings m_new;
    bool m_answer = false;
};

MakeScene activeHost(const ActiveHostScene::Operation& operation) {
    return [operation] { return std::make_unique<ActiveHostScene>(operation); };
}

/// Moves from the IP address, where a server is as well, to the next form, which logs on to another
/// server.
class NextMethodScene : public Scene {
  public:
    NextMethodScene() : m_former(serving("")), m_origin(serving("")) {
        wire::TransferSettings settings;
        settings.hostIp = m_former.hostAndPort();
        settings.hostFqdn = m_origin.hostAndPort();
        settings.hostNetBios = m_origin.hostAndPort();
        wire::applySettings(m_connection, settings);
        EXPECT_TRUE(m_connection.ApplyHostInformation(connMethodIP));
    }

    void run() override { m_answer = m_connection.SetNextConnectionMethod(); }

    void check(bool isDisturbed) override {
        m_former.finish();
        m_origin.finish();
        EXPECT_TRUE(m_answer || isDisturbed);
        if (m_answer) {
            EXPECT_GT(m_origin.requests().size(), 0U) << "no logon was made";
            EXPECT_EQ(m_connection.m_strHost, L"127.0.0.1");
            EXPECT_EQ(m_connection.m_nPort, m_origin.port());
        }
    }

  private:
    HttpOrigin m_former;
    HttpOrigin m_origin;
    CHttpConnection m_connection;
    bool m_answer = false;
};

struct EasyCleanup {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
using Easy = std::unique_ptr<CURL, EasyCleanup>;

std::size_t drop(char* /*data*/, std::size_t size, std::size_t count, void* /*userData*/) {
    return size * count;
}

/// A connection behind a proxy that wants credentials; nothing listens at the origin itself.
class ProxyScene : public Scene {
  protected:
    ProxyScene() : m_proxy(askingForProxyCredentials("through the proxy")) {
        CProxyParams record = fullProxyRecord();
        record.m_strProxyHost = L"127.0.0.1";
        record.m_nHttpProxyPort = m_proxy.port();
        record.m_bUseIEConfig = false;
        wire::TransferSettings settings;
        settings.hostIp = m_nobody.hostAndPort();
        settings.user = L"a-user-of-the-server";
        settings.password = L"password-of-the-user";
        wire::applySettings(connection(), settings);
        EXPECT_EQ(connection().SetOption(voInetOptionSite, &record), voInetErrorSuccess);
        EXPECT_TRUE(connection().ApplyHostInformation(connMethodIP));
    }

    CHttpConnection& connection() { return m_connection; }

    /// Makes a request with the handle, which must go through the proxy and be let through.
    void expectProxied(CURL* curl) {
        const std::string url =
            "http://127.0.0.1:" + std::to_string(connection().m_nPort) + "/file";
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, drop);
        EXPECT_EQ(curl_easy_perform(curl), CURLE_OK);
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        EXPECT_EQ(status, 200);
    }

    std::vector<wire::Request> requests() {
        m_proxy.finish();
        return m_proxy.requests();
    }

  private:
    HttpOrigin m_proxy;
    wire::RefusingPort m_nobody;
    CHttpConnection m_connection;
};

/// A handle is there with all that it needs, or there is none.
class SetupScene : public ProxyScene {
  public:
    ~SetupScene() override { CConnectionHelper(&connection()).FreeCurlHandle(m_handle); }

    void run() override { CConnectionHelper(&connection()).SetupCurlHandle(&m_handle, nullptr); }

    void check(bool isDisturbed) override {
        EXPECT_TRUE(m_handle != nullptr || isDisturbed);
        if (m_handle != nullptr) {
            expectProxied(m_handle);
        }
        for (const wire::Request& request : requests()) {
            EXPECT_EQ(request.header("User-Agent"), "Tessaro Agent");
        }
    }

  private:
    void* m_handle = nullptr;
};

class AlternateProxyScene : public ProxyScene {
  public:
    AlternateProxyScene() : m_curl(curl_easy_init()) {
        curl_easy_setopt(m_curl.get(), CURLOPT_NOPROXY, "");
    }

    void run() override { m_answer = connection().setAlternateProxy(m_curl.get(), m_name); }

    void check(bool isDisturbed) override {
        EXPECT_TRUE(m_answer || isDisturbed);
        if (m_answer) {
            EXPECT_EQ(m_name, "127.0.0.1");
            expectProxied(m_curl.get());
        }
        requests();
    }

  private:
    Easy m_curl;
    std::string m_name;
    bool m_answer = false;
};

/// The path part of a URL.
class PathScene : public Scene {
  public:
    PathScene() { m_connection.m_strRelativePath_utf8_rep = "repository/with-a-long-name"; }

    void run() override {
        m_answer = CConnectionHelper(&m_connection).PrependRelativePathIfRequired(m_path, m_file);
    }

    void check(bool isDisturbed) override {
        EXPECT_TRUE(m_answer == 0 || isDisturbed);
        EXPECT_EQ(m_path, m_answer == 0 ? "/repository/with-a-long-name/folder/of/the/file.zip"
                                        : "as it was before the call");
    }

  private:
    CHttpConnection m_connection;
    std::string m_path = "as it was before the call";
    std::string m_file = "folder/of/the/file.zip";
    int m_answer = 1;
};

}  // namespace

TEST(ConnectionTorture, ApplyHostInformation_AppliesAllOrNothing) {
    survivesEveryShortage(
        activeHost([](CHttpConnection& c) { return c.ApplyHostInformation(connMethodFqdn); }));
}

TEST(ConnectionTorture, SetActiveHostSettings_AppliesAllOrNothing) {
    survivesEveryShortage(activeHost([](CHttpConnection& c) {
        return c.SetActiveHostSettings(connMethodFqdn, kHost, kHostUtf8, kPort);
    }));
}

TEST(ConnectionTorture, SetNextConnectionMethod_IsLoggedOnWhenTrue) {
    survivesEveryShortage([] { return std::make_unique<NextMethodScene>(); });
}

TEST(ConnectionTorture, SetNextConnectionMethodForUploading_IsAppliedWhenTrue) {
    survivesEveryShortage([] {
        auto connection = std::make_shared<CHttpConnection>();
        wire::TransferSettings settings;
        settings.hostIp = kOldHost;
        settings.hostFqdn = kHost + L":4711";
        wire::applySettings(*connection, settings);
        EXPECT_TRUE(connection->ApplyHostInformation(connMethodIP));
        return sceneOf([connection] { return connection->SetNextConnectionMethodForUploading(); },
                       [connection](bool answer, bool isDisturbed) {
                           EXPECT_TRUE(answer || isDisturbed);
                           const bool isNew = connection->m_strHost == kHost;
                           EXPECT_TRUE(isNew || !answer);
                           EXPECT_EQ(connection->m_strHost_utf8_rep == kHostUtf8, isNew);
                           EXPECT_EQ(connection->m_nPort == kPort, isNew);
                       })();
    });
}

TEST(ConnectionTorture, SetAlternateProxy_IsSetWhenTrue) {
    survivesEveryShortage([] { return std::make_unique<AlternateProxyScene>(); });
}

TEST(ConnectionTorture, SetAutoDetectProxy_IsFalse) {
    const DetailedLog log;
    survivesEveryShortage([] {
        auto connection = std::make_shared<CHttpConnection>();
        auto curl = std::shared_ptr<CURL>(curl_easy_init(), EasyCleanup());
        auto proxy = std::make_shared<std::string>();
        return sceneOf([=] { return connection->setAutoDetectProxy(curl.get(), *proxy, kHost); },
                       [proxy](bool answer, bool /*isDisturbed*/) {
                           EXPECT_FALSE(answer);
                           EXPECT_EQ(*proxy, "");
                       })();
    });
}

TEST(HelperTorture, SetupCurlHandle_GivesAWholeHandleOrNone) {
    survivesEveryShortage([] { return std::make_unique<SetupScene>(); });
}

TEST(HelperTorture, PrependRelativePath_GivesAWholePathOrLeavesItAlone) {
    survivesEveryShortage([] { return std::make_unique<PathScene>(); });
}
