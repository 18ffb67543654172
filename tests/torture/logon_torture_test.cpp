// Logons without memory: a success was given by a server, by the way that the settings ask for.

#include "support/observers.h"
#include "support/servers.h"
#include "support/torture.h"
#include "support/transfer.h"
#include "voinet/FTPConnection.h"
#include "voinet/HTTPConnection.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

using namespace tessaro_com::pkm::voInet;
using namespace tessaro_com::pkm::voInet::torture;

namespace {

std::size_t contacts(const HttpOrigin& origin) {
    return origin.requests().size();
}

std::size_t contacts(const FtpOrigin& origin) {
    return origin.commands().size();
}

std::unique_ptr<HttpOrigin> httpOrigin() {
    return std::make_unique<HttpOrigin>(serving(""));
}

std::unique_ptr<FtpOrigin> ftpOrigin() {
    return std::make_unique<FtpOrigin>("");
}

/// A connection and the server that it logs on to.
template <class Connection, class Origin>
class LogonScene : public Scene {
  public:
    using Logon = std::function<voInetError(Connection&)>;

    LogonScene(std::unique_ptr<Origin> server, const wire::TransferSettings& settings, Logon logon)
        : origin(std::move(server)), m_logon(std::move(logon)) {
        wire::applySettings(connection, settings);
    }

    void run() override { m_result = m_logon(connection); }

    void check(bool isDisturbed) override {
        origin->finish();
        expectResult(m_result, voInetErrorSuccess, isDisturbed);
        if (m_result == voInetErrorSuccess) {
            EXPECT_GT(contacts(*origin), 0U) << "success without a server";
            EXPECT_EQ(connection.m_strHost, L"127.0.0.1");
            EXPECT_EQ(connection.m_strHost_utf8_rep, "127.0.0.1");
        }
        if (mustSucceed) {
            EXPECT_EQ(m_result, voInetErrorSuccess) << "another host form would have answered";
        }
        if (m_monitor) {
            EXPECT_EQ(m_monitor->started(), m_monitor->ended());
            EXPECT_TRUE(isDisturbed || m_monitor->started() > 0) << "nobody asked the monitor";
            m_monitor.reset();
        }
    }

    void setMonitor() { m_monitor.emplace(); }

    std::unique_ptr<Origin> origin;
    Connection connection;
    bool mustSucceed = false;

  private:
    Logon m_logon;
    std::optional<CountingMonitor> m_monitor;
    voInetError m_result = voInetErrorFailed;
};

using HttpLogon = LogonScene<CHttpConnection, HttpOrigin>;
using FtpLogon = LogonScene<CFtpConnection, FtpOrigin>;

voInetError logOn(CNetConnection& connection) {
    return connection.Logon(false, 0);
}

/// The active host must have been applied before.
voInetError logOnWithConnSpec(CNetConnection& connection) {
    return connection.LogonWithConnSpec(connMethodIP, false, 0);
}

template <class Origin>
wire::TransferSettings oneForm(const Origin& origin) {
    wire::TransferSettings settings;
    settings.hostIp = origin.hostAndPort();
    settings.relativePath = L"repository/with-a-long-name/of-the-product";
    return settings;
}

template <class Origin>
wire::TransferSettings threeForms(const Origin& origin) {
    wire::TransferSettings settings = oneForm(origin);
    settings.hostFqdn = origin.hostAndPort();
    settings.hostNetBios = origin.hostAndPort();
    return settings;
}

template <class AnyScene, class MakeOrigin>
std::unique_ptr<AnyScene> applied(MakeOrigin makeOrigin, const typename AnyScene::Logon& logon) {
    auto origin = makeOrigin();
    const wire::TransferSettings settings = oneForm(*origin);
    auto scene = std::make_unique<AnyScene>(std::move(origin), settings, logon);
    EXPECT_TRUE(scene->connection.ApplyHostInformation(connMethodIP));
    return scene;
}

/// A logon whose first form fails for want of memory goes on with the next.
template <class AnyScene, class MakeOrigin>
void expectOtherFormsAreTried(MakeOrigin makeOrigin) {
    const auto make = [makeOrigin](bool mustSucceed) {
        auto origin = makeOrigin();
        const wire::TransferSettings settings = threeForms(*origin);
        auto scene = std::make_unique<AnyScene>(std::move(origin), settings, logOn);
        scene->mustSucceed = mustSucceed;
        return scene;
    };
    survivesEveryShortage([&] { return make(true); }, {Shortage::once});
    survivesEveryShortage([&] { return make(false); }, {Shortage::forGood});
}

/// A proxy that the server is exempt from.
class ExemptScene : public HttpLogon {
  public:
    ExemptScene()
        : ExemptScene(httpOrigin(), std::make_unique<HttpOrigin>(serving("the proxy was here"))) {}

    void check(bool isDisturbed) override {
        m_proxy->finish();
        EXPECT_EQ(contacts(*m_proxy), 0U) << "an exempt server was asked through the proxy";
        HttpLogon::check(isDisturbed);
    }

  private:
    ExemptScene(std::unique_ptr<HttpOrigin> server, std::unique_ptr<HttpOrigin> proxy)
        : HttpLogon(nullptr, oneForm(*server), logOn), m_proxy(std::move(proxy)) {
        origin = std::move(server);
        CProxyParams record = wire::proxyAt(m_proxy->port());
        record.m_strExclusionList = L"127.0.0.2 ; 127.0.0.1";
        EXPECT_EQ(connection.SetOption(voInetOptionSite, &record), voInetErrorSuccess);
    }

    std::unique_ptr<HttpOrigin> m_proxy;
};

}  // namespace

TEST(HttpLogonTorture, OneHostForm) {
    survivesEveryShortage([] {
        auto origin = httpOrigin();
        const auto settings = oneForm(*origin);
        return std::make_unique<HttpLogon>(std::move(origin), settings, logOn);
    });
}

TEST(HttpLogonTorture, ThreeHostForms_GoesOnWithTheNext) {
    expectOtherFormsAreTried<HttpLogon>(httpOrigin);
}

TEST(HttpLogonTorture, ExemptFromTheProxy_NeverGoesThroughIt) {
    survivesEveryShortage([] { return std::make_unique<ExemptScene>(); });
}

TEST(HttpLogonTorture, WithMonitor) {
    survivesEveryShortage([] {
        auto scene = applied<HttpLogon>(httpOrigin, logOn);
        scene->setMonitor();
        return scene;
    });
}

TEST(HttpLogonTorture, OfOneHostForm) {
    survivesEveryShortage([] { return applied<HttpLogon>(httpOrigin, logOnWithConnSpec); });
}

TEST(HttpLogonTorture, Probe) {
    survivesEveryShortage([] {
        return applied<HttpLogon>(httpOrigin, [](CHttpConnection& c) { return c.doConnect(); });
    });
}

TEST(FtpLogonTorture, OneHostForm) {
    survivesEveryShortage([] {
        auto origin = ftpOrigin();
        const auto settings = oneForm(*origin);
        return std::make_unique<FtpLogon>(std::move(origin), settings, logOn);
    });
}

TEST(FtpLogonTorture, ThreeHostForms_GoesOnWithTheNext) {
    expectOtherFormsAreTried<FtpLogon>(ftpOrigin);
}

TEST(FtpLogonTorture, WithMonitor) {
    survivesEveryShortage([] {
        auto scene = applied<FtpLogon>(ftpOrigin, logOn);
        scene->setMonitor();
        return scene;
    });
}

TEST(FtpLogonTorture, OfOneHostForm) {
    survivesEveryShortage([] { return applied<FtpLogon>(ftpOrigin, logOnWithConnSpec); });
}

TEST(FtpLogonTorture, AnonymousUser_IsRecognized) {
    survivesEveryShortage([] {
        return sceneOf(
            [connection = std::make_shared<CFtpConnection>()] {
                return connection->IsAnonymousUser();
            },
            [](bool answer, bool /*isDisturbed*/) { EXPECT_FALSE(answer); })();
    });
}
