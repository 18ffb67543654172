#ifndef VOINET_TESTS_FAULTS_LOAD_LOOPBACKSERVER_H
#define VOINET_TESTS_FAULTS_LOAD_LOOPBACKSERVER_H

#include "support/descriptor.h"

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace tessaro_com::pkm::voInet::load {

/// What a LoopbackServer sends for a path. It depends on the whole path, so that the file of
/// another transfer shows.
std::string contentOf(const std::string& path);

/// A small HTTP and FTP server on free ports of the loopback interface; one FTP client transfers at
/// a time. It is a process of its own, so that what it takes of memory and descriptors is not
/// counted; make it before any thread.
///
/// The path decides the answer: one with "missing" in it does not exist, one with "cut" ends in the
/// middle, one with "moved" leads to the same path without it, one with "busy" is answered 503, and
/// every other one is served, in parts too. A posted request is answered with the path's content.
class LoopbackServer {
  public:
    LoopbackServer();
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    std::wstring httpHost() const { return hostAndPort(m_httpPort); }
    std::wstring ftpHost() const { return hostAndPort(m_ftpPort); }

  private:
    static std::wstring hostAndPort(std::uint16_t port);

    std::uint16_t m_httpPort = 0;
    std::uint16_t m_ftpPort = 0;
    pid_t m_process = -1;
};

}  // namespace tessaro_com::pkm::voInet::load

#endif  // VOINET_TESTS_FAULTS_LOAD_LOOPBACKSERVER_H
