#ifndef VOINET_TESTS_FAULTS_NETWORK_HTTPFAULTS_H
#define VOINET_TESTS_FAULTS_NETWORK_HTTPFAULTS_H

#include "reach.h"
#include "support/conversation.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::faults {

/// One request and what a server that is well answers.
struct HttpExchange {
    int status = 200;
    std::string contentRange = {};
    std::string body = {};
    /// The whole file, of which the body may be a part.
    std::string file = {};
    /// Of a request for everything from an offset on.
    bool isRest = false;
    /// Decides where the fault happens.
    std::uint32_t place = 0;
    /// Redirects that have led here.
    int hops = 0;
    bool hasCredentials = false;
    /// "host:port" of a server that is well.
    std::string otherServer = {};
};

/// What happens when the bytes of an answer have been sent.
enum class Ending {
    close,
    reset,
    /// Nothing more, until the client closes.
    silence,
    /// The bytes are sent one by one, or a few at a time, and then the connection is closed.
    drip,
    pieces,
    /// Silence in the middle, for less and for more than the limit.
    pause,
    longPause,
    /// One byte now and then, until the client closes.
    trickle,
};

/// Where the server is.
enum class Whereabouts { here, refusing, silent, nameless };

/// What the client does about an answer by itself.
enum class Client {
    plain,
    /// Follows redirects, as HTTP downloads do.
    follows,
};

namespace httpflag {
inline constexpr unsigned kUser = 1U << 0U;          ///< the settings have server credentials
inline constexpr unsigned kProxyUser = 1U << 1U;     ///< the settings have proxy credentials
inline constexpr unsigned kUncertain = 1U << 2U;     ///< how much is delivered is not certain
inline constexpr unsigned kManySteps = 1U << 3U;     ///< several requests for one answer
inline constexpr unsigned kDirectOnly = 1U << 4U;    ///< makes no sense through a proxy
inline constexpr unsigned kDownloadOnly = 1U << 5U;  ///< of HTTP itself
/// An exchange may also see that the answer is not complete; with a later libcurl it does.
inline constexpr unsigned kMayBeSeen = 1U << 6U;
}  // namespace httpflag

struct HttpFault {
    const char* name;
    /// What it counts as in the figures.
    const char* kind;
    std::string (*bytes)(const HttpExchange&);
    Ending ending;
    Reach (*reach)(const HttpExchange&, Client);
    unsigned flags = 0;
    /// Name of what the rules say when bytes that are not the server's file may count as such.
    const char* oddity = nullptr;
    Whereabouts whereabouts = Whereabouts::here;

    bool has(unsigned flag) const { return (flags & flag) != 0; }
};

const std::vector<HttpFault>& httpFaults();

/// What reaches the client of this answer, with the lines about its range.
Reach reachOf(const HttpFault& fault, const HttpExchange& exchange, Client client);

/// The answer of a server that is well to a request for `file` with this Range header, or none
/// ("").
HttpExchange wellAnswer(const std::string& file, const std::string& range);

/// Plays an answer in a server's thread. A client that leaves is no failure.
void play(const HttpFault& fault, const HttpExchange& exchange, wire::Conversation& client);

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_HTTPFAULTS_H
