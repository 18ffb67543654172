#ifndef VOINET_TESTS_WIRE_SUPPORT_TRANSFER_H
#define VOINET_TESTS_WIRE_SUPPORT_TRANSFER_H

#include "voinet/voitffactory.h"

#include <cstdint>
#include <memory>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

struct TransferDeleter {
    void operator()(TransferItf* transfer) const { VoInetItfFactory().DestroyInterface(transfer); }
};

/// Owns a transfer object of the library's factory.
using TransferPtr = std::unique_ptr<TransferItf, TransferDeleter>;

TransferPtr makeTransfer(voInetProtocol protocol);

/// The settings of an HTTP or FTP transfer; an empty text is not set.
struct TransferSettings {
    std::wstring hostIp;
    std::wstring hostFqdn;
    std::wstring hostNetBios;
    std::wstring site = L"default";
    std::wstring relativePath;
    std::wstring user;
    std::wstring password;
    std::wstring updateToken;
};

/// Sets the options; a refused one fails the test.
void applySettings(TransferItf& transfer, const TransferSettings& settings);

/// A proxy at 127.0.0.1 for HTTP and FTP.
CProxyParams proxyAt(std::uint16_t port);

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_TRANSFER_H
