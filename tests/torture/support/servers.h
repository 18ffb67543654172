#ifndef VOINET_TESTS_TORTURE_SUPPORT_SERVERS_H
#define VOINET_TESTS_TORTURE_SUPPORT_SERVERS_H

#include "support/ftp.h"
#include "support/scriptedserver.h"

#include <functional>
#include <string>
#include <vector>

// Servers in threads of their own, whose memory does not run out. A client may leave them at any
// moment.

namespace tessaro_com::pkm::voInet::torture {

/// What an HTTP server answers to a request.
using Respond = std::function<std::string(const wire::Request&)>;

/// Answers every request in the same way, over a connection of its own.
class HttpOrigin {
  public:
    explicit HttpOrigin(Respond respond);

    std::uint16_t port() const { return m_server.port(); }
    std::wstring hostAndPort() const { return m_server.hostAndPort(); }
    std::vector<wire::Request> requests() const { return m_server.requests(); }
    /// When no client will come any more.
    void finish() { m_server.finish(); }

  private:
    wire::ScriptedServer m_server;
};

/// Serves one file, from the offset that a client asks for.
class FtpOrigin {
  public:
    explicit FtpOrigin(std::string file);

    std::wstring hostAndPort() const { return m_server.hostAndPort(); }
    std::vector<std::string> commands() const { return m_server.commands(); }
    void finish() { m_server.control().finish(); }

  private:
    std::string m_file;
    wire::FtpServer m_server;
};

// Behaviours of an HTTP server with one file.

Respond serving(const std::string& file);
/// Of a range without an end the whole file is sent; the check of a resume gets its own.
Respond servingNoOpenRanges(const std::string& file);
/// Sends to another path first.
Respond redirecting(const std::string& file);
/// Asks for credentials, of the proxy for one, and takes any.
Respond askingForCredentials(const std::string& file);
Respond askingForProxyCredentials(const std::string& file);

}  // namespace tessaro_com::pkm::voInet::torture

#endif  // VOINET_TESTS_TORTURE_SUPPORT_SERVERS_H
