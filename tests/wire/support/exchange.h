#ifndef VOINET_TESTS_WIRE_SUPPORT_EXCHANGE_H
#define VOINET_TESTS_WIRE_SUPPORT_EXCHANGE_H

#include "support/wiretest.h"

#include <string>
#include <string_view>

namespace tessaro_com::pkm::voInet::wire {

/// Base of the tests of the exchange with a management server: a request file and the place of the
/// response file.
class ExchangeTest : public HttpTest {
  protected:
    void SetUp() override;

    std::string requestFile() const { return directory().path("request"); }
    std::string responseFile() const { return directory().path("response"); }
    void makeRequestFile(std::string_view content) const;

    /// The settings with which a server is known by its address only, so that a result comes back
    /// as the attempt gave it.
    static TransferSettings addressOnly(const std::wstring& hostAndPort);

    /// Posts the request file.
    voInetError post(const std::wstring& serverPath = L"/path");
    /// The result when the server answers with these bytes.
    voInetError postAnswered(std::string reply);
    /// The result when the server plays this script.
    voInetError postDuring(Script script);

    void expectResponse(std::string_view content) const;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_EXCHANGE_H
