// Exchanges with the management server without memory: a package that was received is whole, and a
// request that is sent is whole as well.

#include "support/body.h"
#include "support/http.h"
#include "support/observers.h"
#include "support/servers.h"
#include "support/torture.h"
#include "support/transfer.h"
#include "support/workplace.h"
#include "voinet/HTTPConnection.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

using namespace tessaro_com::pkm::voInet;
using namespace tessaro_com::pkm::voInet::torture;

namespace {

constexpr std::size_t kPackageSize = 4000;

enum class Call { ofAllForms, ofOneForm };

class ExchangeScene : public Scene {
  public:
    explicit ExchangeScene(Call call, bool isMonitored = false)
        : m_call(call), m_origin([](const wire::Request& /*request*/) {
              return wire::reply(200, wire::makeBody(kPackageSize));
          }) {
        wire::TransferSettings settings;
        settings.hostIp = m_origin.hostAndPort();
        wire::applySettings(m_connection, settings);
        EXPECT_TRUE(m_connection.ApplyHostInformation(connMethodIP));
        m_directory.makeFile("request", kRequest);
        if (isMonitored) {
            m_monitor.emplace();
        }
    }

    void run() override {
        m_result = m_call == Call::ofAllForms
                       ? m_connection.UploadFileResponse(m_request, m_path, m_response, nullptr)
                       : m_connection.UploadFileResponseWithConnSpec(connMethodIP, m_request,
                                                                     m_path, m_response, nullptr);
    }

    void check(bool isDisturbed) override {
        m_origin.finish();
        expectResult(m_result, voInetErrorPackageReceived, isDisturbed);
        EXPECT_NE(m_result, voInetErrorSuccess) << "that means a status without a meaning";
        if (m_result == voInetErrorPackageReceived) {
            EXPECT_TRUE(wire::readFile(m_directory.path("response")) ==
                        wire::makeBody(kPackageSize))
                << "the package is not whole";
        }
        EXPECT_EQ(wire::readFile(m_directory.path("request")), kRequest);
        for (const wire::Request& request : m_origin.requests()) {
            expectWhole(request);
        }
        if (m_monitor) {
            EXPECT_EQ(m_monitor->started(), m_monitor->ended());
            EXPECT_TRUE(isDisturbed || m_monitor->started() > 0) << "nobody asked the monitor";
            m_monitor.reset();
        }
    }

  private:
    static constexpr const char* kRequest = "the request of an agent that reports to its server";

    static void expectWhole(const wire::Request& request) {
        EXPECT_EQ(request.body, kRequest);
        EXPECT_EQ(request.header("Accept"), "application/octet-stream");
        EXPECT_EQ(request.header("Accept-Language"), "en-us");
        EXPECT_EQ(request.header("Host"), "127.0.0.1");
        EXPECT_EQ(request.header("Content-Type"), "application/octet-stream");
        EXPECT_EQ(request.header("User-Agent"), "Mozilla/4.0 (compatible; KESTL/3.0; Windows)");
        EXPECT_FALSE(request.header("Expect"));
    }

    Call m_call;
    HttpOrigin m_origin;
    CHttpConnection m_connection;
    Workplace m_directory;
    std::wstring m_request = wire::widened(m_directory.path("request"));
    std::wstring m_path = L"/the/path/of/the/exchange";
    std::wstring m_response = wire::widened(m_directory.path("response"));
    std::optional<CountingMonitor> m_monitor;
    voInetError m_result = voInetErrorFailed;
};

}  // namespace

TEST(ExchangeTorture, OfAllHostForms) {
    survivesEveryShortage([] { return std::make_unique<ExchangeScene>(Call::ofAllForms); });
}

TEST(ExchangeTorture, OfOneHostForm) {
    survivesEveryShortage([] { return std::make_unique<ExchangeScene>(Call::ofOneForm); });
}

TEST(ExchangeTorture, WithMonitor) {
    survivesEveryShortage([] { return std::make_unique<ExchangeScene>(Call::ofAllForms, true); });
}
