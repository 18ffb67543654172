#ifndef VOINET_TESTS_SERVERTEST_H
#define VOINET_TESTS_SERVERTEST_H

#include "runningserver.h"
#include "serverdirectory.h"
#include "support/wiretest.h"

#include <cstddef>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace voinettest {

/// A server that all tests of a program share. When it does not start, it is not tried again, and
/// every test that asks for it fails with the reason.
template <class Server>
class SharedServer {
  public:
    template <class... Arguments>
    explicit SharedServer(const Arguments&... arguments) {
        try {
            server_ = std::make_unique<Server>(arguments...);
        } catch (const std::exception& exception) {
            failure_ = exception.what();
        }
    }

    const Server& get() const {
        if (server_ == nullptr) {
            throw std::runtime_error(failure_);
        }
        return *server_;
    }

  private:
    std::unique_ptr<Server> server_;
    std::string failure_;
};

/// The one server of this type, which starts when it is asked for first.
template <class Server>
const Server& shared() {
    static const SharedServer<Server> kServer;
    return kServer.get();
}

/// First base of a fixture that uses these servers: they have started before the fixture looks at
/// what the test leaves open. (A failure in SetUpTestSuite would make the tests count as skipped.)
template <auto&... servers>
class Needs {
  protected:
    Needs() { (servers(), ...); }
};

/// Base of the tests against installed servers.
class ServerTest : public tessaro_com::pkm::voInet::wire::WireTest {
  protected:
    using TransferSettings = tessaro_com::pkm::voInet::wire::TransferSettings;

    static std::wstring wide(const std::string& text) {
        return tessaro_com::pkm::voInet::wire::widened(text);
    }

    static std::wstring hostAndPort(const ReservedPort& port) {
        const bool isIpv6 = port.address().find(':') != std::string::npos;
        const std::string host = isIpv6 ? "[" + port.address() + "]" : port.address();
        return wide(host + ":" + port.text());
    }

    /// Known under the last host form only, so that a result comes back as the attempt gave it.
    static TransferSettings settingsFor(const ReservedPort& port) {
        TransferSettings settings;
        settings.hostNetBios = hostAndPort(port);
        return settings;
    }

    tessaro_com::pkm::voInet::voInetError logOn(const TransferSettings& settings) {
        applySettings(transfer(), settings);
        return transfer().Logon(false, 0);
    }

    /// The same as expectLocalFile, fast enough for large files in a build for debugging.
    void expectLocalText(std::string_view text) const;

    /// A local file that holds the first half of medium.bin. Where a resumed transfer leaves the
    /// file as it is, the bytes are other ones, so that it shows when they are fetched again; the
    /// last kilobyte, which a resumed transfer compares, is right.
    void makeHalf() const {
        makeLocalFile(std::string(kResumeOffset, 'x') +
                      std::string(servedText(kHalfSize).substr(kResumeOffset)));
    }

    void expectResumed() const {
        expectLocalText(std::string(kResumeOffset, 'x') +
                        std::string(servedText(kMediumSize).substr(kResumeOffset)));
    }

    static constexpr std::size_t kHalfSize = kMediumSize / 2;
    static constexpr std::size_t kResumeOffset = kHalfSize - 1024;
};

}  // namespace voinettest

#endif
