#ifndef VOINET_TESTS_UNIT_SUPPORT_CURLDOUBLE_H
#define VOINET_TESTS_UNIT_SUPPORT_CURLDOUBLE_H

#include <curl/curl.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

// A scripted double of libcurl's easy interface. The unit tests link it in place of libcurl. It
// writes down every call in order, plays back the replies that a test has put into it, and turns a
// test red that misuses a handle or a header list (leak, double free, use after free) or that sets
// an option on no handle.

namespace voinet_test {

/// @{
/// An option as the trace shows it, such as `CURLOPT_URL="http://host:80/a"`. The overloads stand
/// for the types that libcurl reads for the classes of options.
std::string option(CURLoption id, long number);
std::string option(CURLoption id, const std::string& text);
std::string option(CURLoption id, const char* text);
std::string option(CURLoption id, const void* pointer);
std::string option(CURLoption id, const std::vector<std::string>& headers);
template <class Result, class... Arguments>
std::string option(CURLoption id, Result (*function)(Arguments...)) {
    return option(id, reinterpret_cast<const void*>(function));
}
/// @}

/// The state of a handle at the start of a perform.
struct Request {
    /// Number of the handle, counted from 1; 0 for a perform without a handle.
    int handle = 0;
    /// Latest value of each option, as in the trace behind the "=".
    std::map<CURLoption, std::string> options;
    std::map<CURLoption, std::string> texts;
    std::map<CURLoption, long> numbers;
    std::vector<std::string> headers;
    /// What the read function gave during the perform.
    std::string uploaded;

    bool has(CURLoption id) const { return options.count(id) != 0; }
    /// Empty when the option is not set; `has` tells the difference.
    std::string text(CURLoption id) const;
    long number(CURLoption id) const;
};

/// What one perform does, step by step, and how it ends.
class Reply {
  public:
    explicit Reply(long status) : m_status(status) {}

    /// What curl_easy_perform answers when no callback stops it before.
    Reply& result(CURLcode code);
    /// The proxy's answer to CONNECT.
    Reply& connectCode(long code);
    /// A header line for the header function.
    Reply& header(std::string line);
    /// A piece of the body for the write function.
    Reply& body(std::string piece);
    Reply& progress(double dlTotal, double dlNow, double ulTotal = 0, double ulNow = 0);
    /// Reads the upload's body to its end through the read function.
    Reply& upload(std::size_t bufferSize = 16384);
    /// @{
    /// Anything else that happens, behind the steps so far or before them.
    Reply& then(std::function<void()> hook);
    Reply& before(std::function<void()> hook);
    /// @}

  private:
    friend class CurlDouble;
    struct Transfer;
    /// Ends the transfer with its answer unless that is CURLE_OK.
    using Step = std::function<CURLcode(Transfer&)>;

    long m_status;
    long m_connectCode = 0;
    CURLcode m_result = CURLE_OK;
    std::vector<Step> m_steps;
};

/// A reply with an HTTP status.
Reply answer(long status);
/// A transfer that fails before a status arrives.
Reply failure(CURLcode code);

class CurlDouble {
  public:
    /// Puts a reply at the end of the script.
    void play(const Reply& reply);
    /// Lets `server` make up the replies once the script has come to its end.
    void serve(std::function<Reply(const Request&)> server);
    /// The next `count` calls of curl_easy_init give null, and null handles may be configured.
    void failInits(int count);
    /// Options on a null handle do not turn the test red, as libcurl refuses them without harm.
    void tolerateNullHandles() { m_nullTolerated = true; }

    /// Every call: "init", options, "perform", "getinfo ...", "header ..." (one appended),
    /// "headers freed", "cleanup".
    const std::vector<std::string>& trace() const { return m_trace; }
    /// The options of the trace alone.
    std::vector<std::string> options() const;
    const std::vector<Request>& requests() const { return m_requests; }
    std::size_t unplayedReplies() const { return m_script.size(); }
    int handlesMade() const { return m_handlesMade; }

    /// Forgets what was written down, and keeps handles and script.
    void clearTrace();
    /// Red for every handle and list that is still alive; then back to the start state.
    void finish();

    // What the C functions do; see curldouble.cpp.

    struct Handle;
    CURL* init();
    Handle* find(CURL* handle, const char* caller);
    void setNumber(Handle& handle, CURLoption id, long number);
    void setText(Handle& handle, CURLoption id, const char* text);
    void setPointer(Handle& handle, CURLoption id, void* pointer);
    void setList(Handle& handle, CURLoption id, curl_slist* list);
    CURLcode refuseNull(CURLoption id);
    CURLcode perform(CURL* pointer);
    CURLcode getinfo(CURL* pointer, CURLINFO info, long* value);
    void cleanup(CURL* handle);
    curl_slist* append(curl_slist* list, const char* text);
    void freeList(curl_slist* list);

  private:
    void note(Handle& handle, CURLoption id, const std::string& entry);
    Reply nextReply(const Request& request);
    CURLcode run(Handle& handle, std::size_t request, const Reply& reply);

    std::deque<Reply> m_script;
    std::function<Reply(const Request&)> m_server;
    int m_initsToFail = 0;
    bool m_nullTolerated = false;
    int m_handlesMade = 0;
    std::vector<std::string> m_trace;
    std::vector<Request> m_requests;
    // Freed handles and lists are kept to the end of the test, so that no address is used twice.
    std::map<CURL*, bool> m_handles;
    std::map<curl_slist*, bool> m_lists;
};

CurlDouble& curlDouble();

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_CURLDOUBLE_H
