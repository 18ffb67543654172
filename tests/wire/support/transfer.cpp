#include "support/transfer.h"

#include <gtest/gtest.h>

#include <array>
#include <utility>

namespace tessaro_com::pkm::voInet::wire {

TransferPtr makeTransfer(voInetProtocol protocol) {
    return TransferPtr(VoInetItfFactory().CreateInterface(protocol));
}

void applySettings(TransferItf& transfer, const TransferSettings& settings) {
    const std::array<std::pair<voInetOption, const std::wstring*>, 8> texts{{
        {voInetOptionHostIP, &settings.hostIp},
        {voInetOptionHostFqdn, &settings.hostFqdn},
        {voInetOptionHostNetBios, &settings.hostNetBios},
        {voInetOptionSite, &settings.site},
        {voInetOptionRelativePath, &settings.relativePath},
        {voInetOptionUser, &settings.user},
        {voInetOptionPassword, &settings.password},
        {voInetOptionUpdateToken, &settings.updateToken},
    }};
    for (const auto& [option, text] : texts) {
        if (!text->empty()) {
            EXPECT_EQ(transfer.SetOption(option, *text), voInetErrorSuccess) << option;
        }
    }
}

CProxyParams proxyAt(std::uint16_t port) {
    CProxyParams proxy;
    proxy.m_strProxyHost = L"127.0.0.1";
    proxy.m_nHttpProxyPort = port;
    proxy.m_nFtpProxyPort = port;
    return proxy;
}

}  // namespace tessaro_com::pkm::voInet::wire
