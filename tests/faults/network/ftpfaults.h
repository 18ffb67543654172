#ifndef VOINET_TESTS_FAULTS_NETWORK_FTPFAULTS_H
#define VOINET_TESTS_FAULTS_NETWORK_FTPFAULTS_H

#include "httpfaults.h"
#include "reach.h"
#include "support/ftp.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::faults {

/// What one session is to send.
struct FtpTransfer {
    std::string file = {};
    std::uint32_t place = 0;
    /// The offset that the client asked for, once it has.
    std::function<std::size_t()> from = {};
    /// A port at which nothing listens.
    std::uint16_t deadPort = 0;
};

struct FtpFault {
    std::string name;
    const char* kind;
    std::function<void(wire::FtpSession&, const FtpTransfer&)> spoil;
    /// @param from  the offset that the client asks for.
    std::function<Reach(const std::string& file, std::size_t from, std::uint32_t place)> reach;
    /// How much of it reaches the client is not certain.
    bool isUncertain = false;
    /// A logon meets it as well.
    bool beforeTransfer = false;
    const char* oddity = nullptr;
    Whereabouts whereabouts = Whereabouts::here;
};

const std::vector<FtpFault>& ftpFaults();

/// A session in which all goes well.
wire::FtpSession wellSession(const FtpTransfer& transfer);

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_FTPFAULTS_H
