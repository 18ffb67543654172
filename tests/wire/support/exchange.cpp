#include "support/exchange.h"

#include <utility>

namespace tessaro_com::pkm::voInet::wire {

void ExchangeTest::SetUp() {
    makeRequestFile("a request of 19 byt");
    applySettings(transfer(), addressOnly(server().hostAndPort()));
}

void ExchangeTest::makeRequestFile(std::string_view content) const {
    directory().makeFile("request", content);
}

TransferSettings ExchangeTest::addressOnly(const std::wstring& hostAndPort) {
    TransferSettings settings;
    settings.hostIp = hostAndPort;
    return settings;
}

voInetError ExchangeTest::post(const std::wstring& serverPath) {
    return transfer().UploadFileResponse(widened(requestFile()), serverPath,
                                         widened(responseFile()), &sink());
}

voInetError ExchangeTest::postAnswered(std::string reply) {
    return postDuring(answer(std::move(reply)));
}

voInetError ExchangeTest::postDuring(Script script) {
    server().connection(std::move(script));
    return post();
}

void ExchangeTest::expectResponse(std::string_view content) const {
    EXPECT_TRUE(readFile(responseFile()) == content)
        << "the response file has " << readFile(responseFile()).size() << " bytes, "
        << content.size() << " expected, or differs";
}

}  // namespace tessaro_com::pkm::voInet::wire
