#ifndef VOINET_TESTS_UNIT_SUPPORT_FTPDOWNLOADMODEL_H
#define VOINET_TESTS_UNIT_SUPPORT_FTPDOWNLOADMODEL_H

#include "curldouble.h"
#include "voinet/FTPConnection.h"

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace voinet_test {

/// What an FTP server, or the HTTP proxy before it, does with one request of a download.
enum class FtpAnswer {
    sent226,
    noSuchFile550,
    notLoggedIn530,
    /// The proxy's error page; curl takes it for the file.
    proxyPage400,
    /// The connection breaks in the middle of the data.
    connectionBroken,
    /// The sink stops the transfer in the middle of the data.
    cancelled,
    hostNotResolved,
};

const std::vector<FtpAnswer>& allFtpAnswers();

/// The double's reply to a request with the range text given ("" without one). The server's file is
/// serverFile() of downloadmodel.h.
Reply replyOf(FtpAnswer answer, const std::string& range);

/// What all FTP downloads of a process share, and what they leave in curl's trace and in the log.
struct FtpWorld {
    bool alternateUsed = false;

    std::vector<std::string> trace;
    std::vector<std::string> log;
};

/// The rules of an FTP download, in plain words: from the connection's settings and the answers to
/// the result, the calls of curl, the log, and the local file.
class FtpDownloadModel {
  public:
    /// @param remotePath  as the log names it; the URL is made of it and the relative path.
    FtpDownloadModel(FtpWorld& world, const tessaro_com::pkm::voInet::CFtpConnection& connection,
                     std::string remotePath, std::string localFile);

    /// Something else that happens inside the request with this number, counted from 1.
    void inside(int request, std::function<void()> hook) {
        m_hookedRequest = request;
        m_hook = std::move(hook);
    }

    /// @param next  the answer to the next request.
    int run(long resumeOffset, std::function<FtpAnswer()> next);

    const std::string& local() const { return m_local; }
    long offset() const { return m_offset; }

  private:
    /// One transfer with its temporary copy and the prefix that arrived.
    struct Pass {
        bool prefixCheck;
        long start;
        std::string temporary;
        std::size_t position;
        std::string prefix;
        bool hasHandle;
    };

    Pass begin(bool prefixCheck) const;
    void flush(Pass& pass) const;
    bool matches(const Pass& pass) const;
    static std::string range(const Pass& pass);
    int transfer(Pass& pass);
    void configure(const Pass& pass);
    void setCredentials();
    std::string useAlternate(const Pass& pass);
    int perform(Pass& pass);
    static void receive(Pass& pass, const std::string& body);

    void curl(const std::string& entry) { m_world.trace.push_back(entry); }
    void log(const std::string& line) { m_world.log.push_back(line); }

    FtpWorld& m_world;
    const tessaro_com::pkm::voInet::CFtpConnection& m_connection;
    std::string m_remotePath;
    std::string m_url;
    std::string m_local;
    long m_offset = 0;
    std::function<FtpAnswer()> m_next;
    int m_requests = 0;
    int m_hookedRequest = 0;
    std::function<void()> m_hook;
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_FTPDOWNLOADMODEL_H
