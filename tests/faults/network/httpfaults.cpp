#include "httpfaults.h"

#include "support/http.h"
#include "support/scriptedserver.h"
#include "virtualtime.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <utility>

namespace tessaro_com::pkm::voInet::faults {

namespace {

using wire::replyHead;

constexpr std::size_t kMiB = std::size_t{1024} * 1024;
constexpr std::size_t kPieceSize = 100;

// Shorter and longer than the 600 seconds without progress that end a transfer.
constexpr std::chrono::seconds kShortSilence{590};
constexpr std::chrono::seconds kLongSilence{620};
constexpr std::chrono::seconds kBetweenTrickles{100};
constexpr int kMostTrickles = 60;

constexpr int kMostHops = 5;

constexpr const char kStatusLine[] = "HTTP/1.1 200 Reason\r\n";

constexpr const char kNoLength[] = "no length: the end of the connection is the end of the file";
constexpr const char kAnnounced[] = "the announced length decides";
constexpr const char kHeaderCut[] = "exchange: an answer cut within its header lines";
constexpr const char kOtherRange[] = "a 206 is taken for the range that was asked for";
constexpr const char kErrorPage[] = "a proxy's page counts as the file (FTP)";

std::string length(std::size_t size) {
    return "Content-Length: " + std::to_string(size);
}

/// The head of the well answer with these lines in the place of the length.
std::string headWith(const HttpExchange& exchange, std::vector<std::string> lines) {
    if (!exchange.contentRange.empty()) {
        lines.push_back("Content-Range: " + exchange.contentRange);
    }
    lines.emplace_back("Connection: close");
    return replyHead(exchange.status, lines);
}

std::string headOf(const HttpExchange& exchange) {
    return headWith(exchange, {length(exchange.body.size())});
}

std::string wellBytes(const HttpExchange& exchange) {
    return headOf(exchange) + exchange.body;
}

/// Of `text`, at least `least` bytes and never all.
std::string cut(const std::string& text, const HttpExchange& exchange, std::size_t least = 0) {
    return text.size() <= least ? text
                                : text.substr(0, least + exchange.place % (text.size() - least));
}

std::string cutBody(const HttpExchange& exchange) {
    return cut(exchange.body, exchange);
}

std::string allButOne(const HttpExchange& exchange) {
    return exchange.body.substr(0, exchange.body.empty() ? 0 : exchange.body.size() - 1);
}

std::string chunkedHead(const HttpExchange& exchange) {
    return headWith(exchange, {"Transfer-Encoding: chunked"});
}

std::size_t chunkSize(const HttpExchange& exchange) {
    return 1 + exchange.body.size() / 3;
}

std::string chunkedBody(const HttpExchange& exchange) {
    return wire::chunked(exchange.body, chunkSize(exchange));
}

/// The chunks without the last one, of size 0.
std::string openChunks(const HttpExchange& exchange) {
    const std::string chunks = chunkedBody(exchange);
    return chunks.substr(0, chunks.size() - std::string("0\r\n\r\n").size());
}

std::string statusPage(int status) {
    return wire::reply(status, "page of status " + std::to_string(status));
}

template <int status>
std::string statusBytes(const HttpExchange&) {
    return statusPage(status);
}

template <int status>
Reach statusReach(const HttpExchange&, Client) {
    return {voInetErrorSuccess, status, "page of status " + std::to_string(status)};
}

std::string redirectTo(const std::string& location) {
    return wire::reply(302, "moved", {"Location: " + location});
}

Reach refusedRedirect(const HttpExchange&, Client client) {
    return client == Client::follows ? broken(302) : Reach{voInetErrorSuccess, 302, "moved"};
}

/// Redirects without an end.
Reach endlessRedirects(const HttpExchange&, Client client) {
    if (client == Client::plain) {
        return {voInetErrorSuccess, 302, "moved"};
    }
    return {voInetErrorTransferFailed, 302, {}, kMostHops + 1};
}

std::string redirectsUpTo(int last, const HttpExchange& exchange) {
    return exchange.hops < last ? redirectTo("/hop" + std::to_string(exchange.hops + 1))
                                : wellBytes(exchange);
}

// What reaches the client.

Reach well(const HttpExchange& exchange, Client) {
    return {voInetErrorSuccess, exchange.status, exchange.body};
}
Reach nothing(const HttpExchange&, Client) {
    return broken();
}
Reach onlyStatus(const HttpExchange& exchange, Client) {
    return broken(exchange.status);
}
Reach cutHead200(const HttpExchange&, Client) {
    Reach reach{voInetErrorSuccess, 200, {}};
    reach.isHeadCut = true;
    return reach;
}
Reach wholeBodyButBroken(const HttpExchange& exchange, Client) {
    return broken(exchange.status, exchange.body);
}
Reach only200(const HttpExchange&, Client) {
    return broken(200);
}
/// Nothing can be missing of an empty body.
Reach cutReach(const HttpExchange& exchange, Client client) {
    return exchange.body.empty() ? well(exchange, client)
                                 : broken(exchange.status, cutBody(exchange));
}
Reach allButOneReach(const HttpExchange& exchange, Client client) {
    return exchange.body.empty() ? well(exchange, client)
                                 : broken(exchange.status, allButOne(exchange));
}
Reach headOnlyReach(const HttpExchange& exchange, Client client) {
    return exchange.body.empty() ? well(exchange, client) : broken(exchange.status);
}
Reach timedOut(const HttpExchange&, Client) {
    return {voInetErrorTimeout, 0, {}};
}
Reach timedOutInBody(const HttpExchange& exchange, Client client) {
    return exchange.body.empty() ? well(exchange, client)
                                 : Reach{voInetErrorTimeout, exchange.status, cutBody(exchange)};
}
std::string firstByte(const HttpExchange& exchange) {
    return exchange.body.empty() ? "x" : exchange.body.substr(0, 1);
}
/// What comes before a pause in the middle.
Reach timedOutInTheMiddle(const HttpExchange& exchange, Client) {
    const std::size_t head = headOf(exchange).size();
    const std::size_t sent = (head + exchange.body.size()) / 2;
    return {voInetErrorTimeout, exchange.status,
            sent > head ? exchange.body.substr(0, sent - head) : ""};
}
Reach firstByteReach(const HttpExchange& exchange, Client) {
    return broken(exchange.status, firstByte(exchange));
}

/// A part of the file, but not the one that was asked for.
std::string otherPart(const HttpExchange& exchange) {
    const std::size_t size = exchange.body.size();
    const std::size_t last = exchange.file.size() - std::min(exchange.file.size(), size);
    return exchange.file.substr(last == 0 ? 0 : exchange.place % last, size);
}

std::size_t numberAt(const std::string& text, std::size_t position) {
    std::size_t number = 0;
    std::from_chars(text.data() + position, text.data() + text.size(), number);
    return number;
}

/// The well answer with other lines about its range.
Reach withRanges(const HttpExchange& exchange, std::vector<std::string> ranges) {
    Reach reach{voInetErrorSuccess, exchange.status, exchange.body};
    reach.contentRanges = std::move(ranges);
    return reach;
}

std::vector<std::string> linesOf(const HttpExchange& exchange) {
    return exchange.contentRange.empty() ? std::vector<std::string>()
                                         : std::vector<std::string>{exchange.contentRange};
}

/// The line of a 206 in which one thing is wrong, or one that would be right for an empty file.
std::string invalidRange(const HttpExchange& exchange) {
    const std::string right = exchange.contentRange.empty() ? "bytes 0-0/1" : exchange.contentRange;
    const std::string numbers = right.substr(std::string("bytes ").size());
    const std::string span = numbers.substr(0, numbers.find('/'));
    const std::string first = span.substr(0, span.find('-'));
    const std::array<std::string, 9> lines = {
        "octets " + numbers,
        "bytes +" + numbers,
        "bytes -" + numbers,
        "bytes " + span + "/*",
        "bytes " + span + "/" + first,
        "bytes " + span,
        "bytes */" + first,
        "bytes " + numbers + "x",
        "bytes " + first + "-" + std::string(20, '9') + "/1" + std::string(20, '0')};
    return lines.at(exchange.place % lines.size());
}

std::string rangeText(std::size_t first, std::size_t size, std::size_t total) {
    return "bytes " + std::to_string(first) + "-" + std::to_string(first + size - 1) + "/" +
           std::to_string(total);
}

std::size_t firstOf(const HttpExchange& exchange) {
    return numberAt(exchange.contentRange, std::string("bytes ").size());
}

/// The rest of a file that has grown since the check.
HttpExchange grown(HttpExchange exchange) {
    if (exchange.status == 206 && exchange.isRest) {
        exchange.body += 'x';
        exchange.contentRange =
            rangeText(firstOf(exchange), exchange.body.size(), exchange.file.size() + 1);
    }
    return exchange;
}

/// A part that is what it says, but ends too early.
HttpExchange withoutLastByte(HttpExchange exchange) {
    if (exchange.status != 206 || exchange.body.size() < 2) {
        return exchange;
    }
    exchange.body.pop_back();
    exchange.contentRange =
        rangeText(firstOf(exchange), exchange.body.size(), exchange.file.size());
    return exchange;
}

std::string endlessHeaders() {
    const std::string line = "X-Header: " + std::string(1000, 'x') + "\r\n";
    std::string bytes = kStatusLine;
    while (bytes.size() < kMiB) {
        bytes += line;
    }
    return bytes;
}

using E = HttpExchange;

// NOLINTNEXTLINE(readability-function-size): a table
std::vector<HttpFault> makeHttpFaults() {
    using httpflag::kDirectOnly;
    using httpflag::kDownloadOnly;
    using httpflag::kManySteps;
    using httpflag::kMayBeSeen;
    using httpflag::kProxyUser;
    using httpflag::kUncertain;
    using httpflag::kUser;
    constexpr auto kClose = Ending::close;
    constexpr auto kReset = Ending::reset;
    constexpr auto kSilence = Ending::silence;
    const auto none = [](const E&) { return std::string(); };
    return {
        {"none", "no fault", wellBytes, kClose, well},
        {"refused", "no connection", none, kClose,
         [](const E&, Client) {
             return Reach{voInetErrorTransferFailed, 0, {}, 0};
         },
         0, nullptr, Whereabouts::refusing},
        {"silent-host", "no connection", none, kClose,
         [](const E&, Client) {
             return Reach{voInetErrorTimeout, 0, {}, 0};
         },
         0, nullptr, Whereabouts::silent},
        {"unknown-name", "no connection", none, kClose,
         [](const E&, Client) {
             return Reach{voInetErrorHostNotResolved, 0, {}, 0};
         },
         0, nullptr, Whereabouts::nameless},

        {"closed-without-answer", "connection closed", none, kClose, nothing},
        {"cut-in-status-line", "connection closed",
         [](const E& e) { return cut(std::string(kStatusLine, sizeof kStatusLine - 2), e, 1); },
         kClose, nothing},
        {"cut-in-headers", "connection closed",
         [](const E& e) { return kStatusLine + cut("X-First: 1\r\nContent-Le", e); }, kClose,
         cutHead200, kMayBeSeen, kHeaderCut},
        {"cut-behind-length", "connection closed",
         [](const E& e) { return kStatusLine + length(7) + "\r\n" + cut("X-Last: 1\r\n\r", e); },
         kClose, only200},
        {"cut-behind-head", "connection closed", headOf, kClose, headOnlyReach},
        {"cut-in-body", "connection closed", [](const E& e) { return headOf(e) + cutBody(e); },
         kClose, cutReach},
        {"cut-before-last-byte", "connection closed",
         [](const E& e) { return headOf(e) + allButOne(e); }, kClose, allButOneReach},
        {"cut-without-length", "connection closed",
         [](const E& e) { return headWith(e, {}) + cutBody(e); }, kClose,
         [](const E& e, Client) {
             return Reach{voInetErrorSuccess, e.status, cutBody(e)};
         },
         0, kNoLength},

        {"reset-without-answer", "connection reset", none, kReset, nothing, kUncertain},
        {"reset-in-status-line", "connection reset",
         [](const E& e) { return cut(kStatusLine, e, 1); }, kReset, nothing, kUncertain},
        {"reset-in-headers", "connection reset",
         [](const E& e) { return kStatusLine + cut("X-First: 1\r\nContent-Le", e); }, kReset,
         nothing, kUncertain},
        {"reset-in-body", "connection reset",
         [](const E& e) { return headWith(e, {length(e.body.size() + 1)}) + cutBody(e); }, kReset,
         [](const E& e, Client) { return broken(e.status, cutBody(e)); }, kUncertain},
        {"reset-before-last-byte", "connection reset",
         [](const E& e) { return headWith(e, {length(e.body.size() + 1)}) + e.body; }, kReset,
         wholeBodyButBroken, kUncertain},

        {"silence-before-answer", "silence", none, kSilence, timedOut},
        {"silence-in-head", "silence",
         [](const E& e) { return cut(kStatusLine + length(7) + "\r\n", e, 1); }, kSilence,
         timedOut},
        {"silence-in-body", "silence", [](const E& e) { return headOf(e) + cutBody(e); }, kSilence,
         timedOutInBody},
        {"silence-below-limit", "silence", wellBytes, Ending::pause, well},
        {"silence-beyond-limit", "silence", wellBytes, Ending::longPause, timedOutInTheMiddle},
        {"trickle", "silence", [](const E&) { return std::string(kStatusLine) + "X-Slow: "; },
         Ending::trickle, timedOut},
        {"byte-by-byte", "small pieces",
         [](const E& e) { return e.body.size() > 2100 ? headOf(e) : wellBytes(e); }, Ending::drip,
         [](const E& e, Client c) {
             return e.body.size() > 2100 ? headOnlyReach(e, c) : well(e, c);
         }},
        {"in-pieces", "small pieces", wellBytes, Ending::pieces, well},

        {"length-too-long", "wrong length",
         [](const E& e) { return headWith(e, {length(e.body.size() + 1)}) + e.body; }, kClose,
         wholeBodyButBroken},
        {"length-too-short", "wrong length",
         [](const E& e) { return headWith(e, {length(cutBody(e).size())}) + e.body; }, kClose,
         [](const E& e, Client) {
             return Reach{voInetErrorSuccess, e.status, cutBody(e)};
         },
         0, kAnnounced},
        {"length-negative", "wrong length",
         [](const E& e) { return headWith(e, {"Content-Length: -1"}) + e.body; }, kClose,
         onlyStatus},
        {"length-no-number", "wrong length",
         [](const E& e) { return headWith(e, {"Content-Length: many"}) + e.body; }, kClose,
         onlyStatus},
        {"length-largest", "wrong length",
         [](const E& e) { return headWith(e, {"Content-Length: 9223372036854775807"}) + e.body; },
         kClose, wholeBodyButBroken},
        {"length-beyond-64-bits", "wrong length",
         [](const E& e) { return headWith(e, {"Content-Length: 99999999999999999999"}) + e.body; },
         kClose, well},
        {"without-length", "wrong length", [](const E& e) { return headWith(e, {}) + e.body; },
         kClose, well},

        {"chunked", "chunks", [](const E& e) { return chunkedHead(e) + chunkedBody(e); }, kClose,
         well},
        {"chunks-cut", "chunks", [](const E& e) { return chunkedHead(e) + openChunks(e); }, kClose,
         wholeBodyButBroken},
        {"chunks-cut-in-size", "chunks",
         [](const E& e) { return chunkedHead(e) + openChunks(e) + "4"; }, kClose,
         wholeBodyButBroken},
        {"chunks-garbage-size", "chunks",
         [](const E& e) { return chunkedHead(e) + "no size\r\n" + e.body; }, kClose, onlyStatus},
        {"chunks-negative-size", "chunks",
         [](const E& e) { return chunkedHead(e) + "-1\r\n" + e.body; }, kClose, onlyStatus},
        {"chunks-huge-size", "chunks",
         [](const E& e) { return chunkedHead(e) + "fffffffffffffffffff\r\n" + e.body; }, kClose,
         onlyStatus},
        {"chunk-longer-than-it-says", "chunks",
         [](const E& e) { return chunkedHead(e) + "1\r\n" + firstByte(e) + "garbage\r\n"; }, kClose,
         firstByteReach, kUncertain},

        {"other-range", "ranges",
         [](const E& e) {
             E other = e;
             other.body = otherPart(e);
             return wellBytes(other);
         },
         kClose,
         [](const E& e, Client) {
             return Reach{voInetErrorSuccess, e.status, otherPart(e)};
         },
         0, kOtherRange},
        {"content-range-of-another", "ranges",
         [](const E& e) {
             E other = e;
             other.contentRange = "bytes 7-8/9";
             return wellBytes(other);
         },
         kClose, [](const E& e, Client) { return withRanges(e, {"bytes 7-8/9"}); }},
        {"content-range-not-valid", "ranges",
         [](const E& e) {
             E other = e;
             other.contentRange = invalidRange(e);
             return wellBytes(other);
         },
         kClose, [](const E& e, Client) { return withRanges(e, {invalidRange(e)}); }},
        {"content-ranges-that-differ", "ranges",
         [](const E& e) {
             return headWith(e, {length(e.body.size()), "Content-Range: bytes 0-0/1"}) + e.body;
         },
         kClose,
         [](const E& e, Client) {
             return withRanges(e, {"bytes 0-0/1", e.contentRange});
         }},
        {"file-that-grows", "ranges", [](const E& e) { return wellBytes(grown(e)); }, kClose,
         [](const E& e, Client) {
             const E other = grown(e);
             return withRanges(other, linesOf(other));
         }},
        {"part-of-the-range", "ranges", [](const E& e) { return wellBytes(withoutLastByte(e)); },
         kClose,
         [](const E& e, Client) {
             const E part = withoutLastByte(e);
             return withRanges(part, linesOf(part));
         }},
        {"part-for-whole", "ranges",
         [](const E& e) {
             E part = e;
             part.status = 206;
             part.body = cutBody(e);
             return wellBytes(part);
         },
         kClose,
         [](const E& e, Client) {
             return Reach{voInetErrorSuccess, 206, cutBody(e)};
         },
         0, kOtherRange},
        {"whole-for-range", "ranges", [](const E& e) { return wellBytes(wellAnswer(e.file, {})); },
         kClose,
         [](const E& e, Client) {
             return Reach{voInetErrorSuccess, 200, e.file};
         }},
        {"not-satisfiable", "ranges", statusBytes<416>, kClose, statusReach<416>},
        {"not-satisfiable-empty", "ranges", [](const E&) { return wire::reply(416); }, kClose,
         [](const E&, Client) {
             return Reach{voInetErrorSuccess, 416, {}};
         }},

        {"redirect-five-times", "redirects", [](const E& e) { return redirectsUpTo(kMostHops, e); },
         kClose,
         [](const E& e, Client c) {
             return c == Client::plain ? Reach{voInetErrorSuccess, 302, "moved"}
                                       : Reach{voInetErrorSuccess, e.status, e.body, kMostHops + 1};
         },
         kManySteps, kErrorPage},
        {"redirect-six-times", "redirects",
         [](const E& e) { return redirectsUpTo(kMostHops + 1, e); }, kClose, endlessRedirects,
         kManySteps, kErrorPage},
        {"redirect-loop", "redirects", [](const E&) { return redirectTo("/hop1"); }, kClose,
         endlessRedirects, kManySteps, kErrorPage},
        {"redirect-to-https", "redirects",
         [](const E& e) { return redirectTo("https://" + e.otherServer + "/f"); }, kClose,
         refusedRedirect, kManySteps, kErrorPage},
        {"redirect-to-ftp", "redirects",
         [](const E& e) { return redirectTo("ftp://" + e.otherServer + "/f"); }, kClose,
         refusedRedirect, kManySteps, kErrorPage},
        {"redirect-to-file", "redirects",
         [](const E&) { return redirectTo("file:///proc/self/status"); }, kClose, refusedRedirect,
         kManySteps, kErrorPage},
        {"redirect-to-other-host", "redirects",
         [](const E& e) { return redirectTo("http://" + e.otherServer + "/hop1"); }, kClose,
         [](const E& e, Client c) {
             return c == Client::plain ? Reach{voInetErrorSuccess, 302, "moved"} : well(e, c);
         },
         kManySteps | kDirectOnly, kErrorPage},
        {"redirect-to-nowhere", "redirects", [](const E&) { return wire::reply(302, "moved"); },
         kClose,
         [](const E&, Client) {
             return Reach{voInetErrorSuccess, 302, "moved"};
         },
         0, kErrorPage},

        {"no-http", "garbage", [](const E&) { return std::string("SSH-2.0-Something\r\n"); },
         kClose, nothing},
        {"status-no-number", "garbage",
         [](const E&) { return std::string("HTTP/1.1 abc\r\n\r\n"); }, kClose, nothing},
        {"status-of-two-digits", "garbage",
         [](const E&) { return std::string("HTTP/1.1 20\r\n\r\n"); }, kClose, nothing},
        {"status-of-four-digits", "garbage",
         [](const E&) { return std::string("HTTP/1.1 2000 OK\r\n\r\n"); }, kClose, nothing},
        {"unknown-version", "garbage",
         [](const E&) { return std::string("HTTP/9.9 200 OK\r\n\r\nbody"); }, kClose, nothing},
        {"zero-byte-in-header", "garbage",
         [](const E& e) {
             return kStatusLine + std::string("X: a\0b\r\n", 8) + length(e.body.size()) +
                    "\r\n\r\n" + e.body;
         },
         kClose, only200},
        {"header-without-colon", "garbage",
         [](const E& e) {
             return headWith(e, {"no colon", length(e.body.size())}) + e.body;
         },
         kClose, onlyStatus},
        {"headers-of-200-kib", "large headers",
         [](const E& e) {
             return headWith(e, std::vector<std::string>(200, "X: " + std::string(1000, 'x'))) +
                    e.body;
         },
         kClose, well},
        {"headers-of-1-mib", "large headers", [](const E&) { return endlessHeaders(); }, kClose,
         nothing},
        {"header-line-of-1-mib", "large headers",
         [](const E&) { return kStatusLine + ("X: " + std::string(kMiB, 'x')) + "\r\n\r\n"; },
         kClose,
         [](const E&, Client) {
             return Reach{voInetErrorOutOfMemory, 0, {}};
         }},

        {"interim-answers", "interim answers",
         [](const E& e) {
             std::string bytes;
             for (std::uint32_t i = 0; i <= e.place % 20; ++i) {
                 bytes += i % 2 == 0 ? replyHead(100) : replyHead(103, {"Link: </style>"});
             }
             return bytes + wellBytes(e);
         },
         kClose, well},
        {"only-interim-answers", "interim answers",
         [](const E& e) { return e.place % 2 == 0 ? replyHead(100) : replyHead(103); }, kClose,
         nothing},

        {"encoded-unasked", "encodings",
         [](const E& e) {
             return headWith(e, {"Content-Encoding: gzip", length(e.body.size())}) + e.body;
         },
         kClose, well},

        {"status-204", "statuses", [](const E&) { return replyHead(204); }, kClose,
         [](const E&, Client) {
             return Reach{voInetErrorSuccess, 204, {}};
         },
         0, kErrorPage},
        {"status-304", "statuses", [](const E&) { return replyHead(304); }, kClose,
         [](const E&, Client) {
             return Reach{voInetErrorSuccess, 304, {}};
         },
         0, kErrorPage},
        {"status-400", "statuses", statusBytes<400>, kClose, statusReach<400>, 0, kErrorPage},
        {"status-401", "statuses", statusBytes<401>, kClose, statusReach<401>},
        {"status-403", "statuses", statusBytes<403>, kClose, statusReach<403>},
        {"status-404", "statuses", statusBytes<404>, kClose, statusReach<404>},
        {"status-407", "statuses", statusBytes<407>, kClose, statusReach<407>},
        {"status-410", "statuses", statusBytes<410>, kClose, statusReach<410>},
        {"status-500", "statuses", statusBytes<500>, kClose, statusReach<500>},
        {"status-502", "statuses", statusBytes<502>, kClose, statusReach<502>},
        {"status-503", "statuses", statusBytes<503>, kClose, statusReach<503>},
        {"status-506", "statuses", statusBytes<506>, kClose, statusReach<506>},
        {"status-999", "statuses", statusBytes<999>, kClose, statusReach<999>},
        {"status-201", "statuses", statusBytes<201>, kClose, statusReach<201>, 0, kErrorPage},
        {"status-202", "statuses", statusBytes<202>, kClose, statusReach<202>, 0, kErrorPage},

        {"401-with-credentials", "credentials refused", statusBytes<401>, kClose, statusReach<401>,
         kUser},
        {"407-with-credentials", "credentials refused", statusBytes<407>, kClose, statusReach<407>,
         kProxyUser},
        {"challenge", "credentials refused",
         [](const E& e) {
             return e.hasCredentials
                        ? wellBytes(e)
                        : wire::reply(401, {}, {"WWW-Authenticate: Basic realm=\"r\""});
         },
         kClose,
         [](const E& e, Client) {
             return Reach{voInetErrorSuccess, e.status, e.body, 2};
         },
         kUser | kManySteps | kDirectOnly | kDownloadOnly},
    };
}

void sendTrickle(wire::Conversation& client) {
    for (int i = 0; i < kMostTrickles && VirtualTime::keepSilence(kBetweenTrickles); ++i) {
        client.send("x");
    }
}

void sendWithPause(const std::string& bytes, std::chrono::seconds pause,
                   wire::Conversation& client) {
    client.send(std::string_view(bytes).substr(0, bytes.size() / 2));
    if (VirtualTime::keepSilence(pause)) {
        client.send(std::string_view(bytes).substr(bytes.size() / 2));
    }
}

void sendPieces(const std::string& bytes, std::size_t size, wire::Conversation& client) {
    wire::sendInPieces(bytes, size)(client);
}

void finish(Ending ending, const std::string& bytes, wire::Conversation& client) {
    switch (ending) {
        case Ending::drip:
            return sendPieces(bytes, 1, client);
        case Ending::pieces:
            return sendPieces(bytes, kPieceSize, client);
        case Ending::pause:
            return sendWithPause(bytes, kShortSilence, client);
        case Ending::longPause:
            return sendWithPause(bytes, kLongSilence, client);
        default:
            break;
    }
    client.send(bytes);
    if (ending == Ending::reset) {
        client.reset();
    } else if (ending == Ending::silence) {
        VirtualTime::beginSilence();
        client.awaitClose();
    } else if (ending == Ending::trickle) {
        sendTrickle(client);
    }
}

}  // namespace

const std::vector<HttpFault>& httpFaults() {
    static const std::vector<HttpFault> kFaults = makeHttpFaults();
    return kFaults;
}

Reach reachOf(const HttpFault& fault, const HttpExchange& exchange, Client client) {
    Reach reach = fault.reach(exchange, client);
    if (reach.contentRanges.empty()) {
        reach.contentRanges = linesOf(exchange);
    }
    return reach;
}

HttpExchange wellAnswer(const std::string& file, const std::string& range) {
    HttpExchange exchange;
    exchange.file = file;
    exchange.body = file;
    const auto equals = range.find('=');
    const auto dash = range.find('-');
    if (dash == std::string::npos) {
        return exchange;
    }
    const std::size_t from = numberAt(range, equals == std::string::npos ? 0 : equals + 1);
    if (from >= file.size()) {
        exchange.status = 416;
        exchange.body = "page of status 416";
        return exchange;
    }
    const bool isOpen = dash + 1 == range.size();
    const std::size_t last =
        isOpen ? file.size() - 1 : std::min(file.size() - 1, numberAt(range, dash + 1));
    exchange.status = 206;
    exchange.body = file.substr(from, last + 1 - from);
    exchange.contentRange = rangeText(from, exchange.body.size(), file.size());
    exchange.isRest = isOpen;
    return exchange;
}

void play(const HttpFault& fault, const HttpExchange& exchange, wire::Conversation& client) {
    try {
        finish(fault.ending, fault.bytes(exchange), client);
    } catch (const wire::ConnectionLost&) {
        // It has its result.
    }
}

}  // namespace tessaro_com::pkm::voInet::faults
