#ifndef VOINET_TESTS_UNIT_SUPPORT_DOWNLOADMODEL_H
#define VOINET_TESTS_UNIT_SUPPORT_DOWNLOADMODEL_H

#include "curldouble.h"
#include "voinet/HTTPConnection.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace voinet_test {

/// What a server does with one request of a download.
enum class Answer {
    whole200,
    part206,
    unauthorized401,
    notFound404,
    proxyAuthentication407,
    rangeNotSatisfiable416,
    serverError500,
    /// The connection breaks in the middle of the body.
    connectionBroken,
    proxyNotResolved,
    /// The sink stops the transfer in the middle of a 206.
    cancelled,
};

const std::vector<Answer>& allAnswers();

/// The server's file; an answer of 200 sends it, one of 206 the part that the request asks for,
/// every other one sends an error page.
const std::string& serverFile();

/// The double's reply to a request with the range text given ("" without one).
Reply replyOf(Answer answer, const std::string& range);

/// What all downloads of a process share, and what they leave in curl's trace and in the log.
struct DownloadWorld {
    int retries = 0;
    bool alternateUsed = false;
    bool noProxyFound = false;
    int error = 0;

    std::vector<std::string> trace;
    std::vector<std::string> log;
};

/// The rules of an HTTP download, in plain words: from the connection's settings and the server's
/// answers to the result, the calls of curl, the log, and the local file.
class DownloadModel {
  public:
    DownloadModel(DownloadWorld& world, const tessaro_com::pkm::voInet::CHttpConnection& connection,
                  std::string url, bool useCache, std::string localFile)
        : m_world(world),
          m_connection(connection),
          m_url(std::move(url)),
          m_useCache(useCache),
          m_local(std::move(localFile)) {}

    /// Something else that happens inside the request with this number, counted from 1.
    void inside(int request, std::function<void()> hook) {
        m_hookedRequest = request;
        m_hook = std::move(hook);
    }

    /// @param next  the answer to the next request.
    int run(long resumeOffset, std::function<Answer()> next);

    const std::string& local() const { return m_local; }
    long offset() const { return m_offset; }

  private:
    /// One transfer with its temporary copy, the prefix that arrived, and its handle.
    struct Pass {
        bool prefixCheck;
        long start;
        std::string temporary;
        std::size_t position;
        std::string prefix;
        bool hasHandle;
        long handleStatus;
        long status;
    };

    Pass begin(bool prefixCheck) const;
    void flush(Pass& pass) const;
    bool matches(const Pass& pass) const;
    static std::string range(const Pass& pass);
    int transfer(Pass& pass);
    bool configure(const Pass& pass);
    void useAlternate(const Pass& pass);
    int perform(Pass& pass);
    void actOnStatus(Pass& pass);
    void actOn401(Pass& pass);
    void actOn407(Pass& pass);
    void retry(Pass& pass);

    void curl(const std::string& entry) { m_world.trace.push_back(entry); }
    void info(const std::string& text);
    void debug(const std::string& text);

    DownloadWorld& m_world;
    const tessaro_com::pkm::voInet::CHttpConnection& m_connection;
    std::string m_url;
    bool m_useCache;
    std::string m_local;
    std::function<Answer()> m_next;
    std::function<void()> m_hook;
    int m_hookedRequest = 0;
    int m_requests = 0;
    long m_offset = 0;
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_DOWNLOADMODEL_H
