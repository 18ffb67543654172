#ifndef VOINET_TESTS_FAULTS_NETWORK_REACH_H
#define VOINET_TESTS_FAULTS_NETWORK_REACH_H

#include "voinet/voineterror.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::faults {

/// What reaches the client of one request, by the rules of the protocol.
struct Reach {
    /// Success when the answer counts as complete, else the result of the failure.
    voInetError transport = voInetErrorSuccess;
    /// HTTP's status or FTP's last reply, 0 without any.
    int status = 0;
    /// What is delivered, also of an answer that fails.
    std::string body = {};
    /// That the server sees for it.
    std::size_t connections = 1;
    /// Values of the Content-Range lines of an HTTP answer.
    std::vector<std::string> contentRanges = {};
    /// The connection ended within the header lines.
    bool isHeadCut = false;
};

inline Reach broken(int status = 0, std::string delivered = {}) {
    return {voInetErrorTransferFailed, status, std::move(delivered)};
}

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_REACH_H
