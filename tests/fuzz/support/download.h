#ifndef VOINET_TESTS_FUZZ_SUPPORT_DOWNLOAD_H
#define VOINET_TESTS_FUZZ_SUPPORT_DOWNLOAD_H

#include "support/scriptedserver.h"
#include "voinet/netsessionsink.h"
#include "voinet/transferitf.h"

#include <memory>
#include <string>
#include <vector>

namespace voinet_fuzz {

/// The first byte of an input: how the client goes about it.
struct ClientSettings {
    explicit ClientSettings(unsigned byte)
        : resumes((byte & 1U) != 0),
          hasUser((byte & 2U) != 0),
          hasProxy((byte & 4U) != 0),
          hasProxyUser((byte & 8U) != 0),
          mayUseAlternate((byte & 16U) != 0),
          cancels((byte & 32U) != 0),
          isTraced((byte & 64U) != 0),
          isPlain((byte & 128U) != 0) {}

    bool resumes;
    bool hasUser;
    bool hasProxy;
    bool hasProxyUser;
    bool mayUseAlternate;
    /// The sink stops the transfer once some bytes have come.
    bool cancels;
    bool isTraced;
    /// Without update token, and caches may answer.
    bool isPlain;
};

struct DestroyTransfer {
    void operator()(tessaro_com::pkm::voInet::TransferItf* transfer) const;
};
using Transfer = std::unique_ptr<tessaro_com::pkm::voInet::TransferItf, DestroyTransfer>;

/// An object whose one host form is the scripted server.
Transfer makeTransfer(tessaro_com::pkm::voInet::voInetProtocol protocol,
                      const ClientSettings& settings);

/// A result that an operation over the network can have.
bool isNetworkResult(tessaro_com::pkm::voInet::voInetError result);

/// ASCII letters only.
std::string lowerCase(std::string text);

/// Whether a transfer coding may stand between what was sent and what it means.
bool isCoded(const std::vector<ScriptedServer::Record>& records);

/// Logs on and downloads from a server that says what the input says, and looks at what landed:
/// unless the result is a success or a cancel the local file is the old one; else it is made of the
/// bytes before the resume offset and of one piece of what the server said.
void tryDownload(tessaro_com::pkm::voInet::voInetProtocol protocol, const std::string& bytes,
                 bool serverSpeaksFirst);

}  // namespace voinet_fuzz

#endif  // VOINET_TESTS_FUZZ_SUPPORT_DOWNLOAD_H
