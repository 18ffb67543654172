#ifndef VOINET_TESTS_WIRE_SUPPORT_HTTP_H
#define VOINET_TESTS_WIRE_SUPPORT_HTTP_H

#include <string>
#include <string_view>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

using Headers = std::vector<std::string>;

/// The head of an HTTP answer with nothing but these headers.
std::string replyHead(int status, const Headers& headers = {});

/// A whole answer with its length, after which the server closes the connection.
std::string reply(int status, std::string_view body = {}, const Headers& headers = {});

/// A whole answer with its length that leaves the connection open.
std::string keepAliveReply(int status, std::string_view body = {}, const Headers& headers = {});

/// `body` in chunks of at most `chunkSize` bytes, with the chunk of size 0 at the end.
std::string chunked(std::string_view body, std::size_t chunkSize);

/// The text of a URL that may hold "%" and two hexadecimal digits for a byte.
std::string percentDecoded(std::string_view text);

/// What HTTP basic authentication sends for these credentials.
std::string basicCredentials(std::string_view userAndPassword);

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_HTTP_H
