#ifndef VOINET_COMMAND_TRACELINE_H
#define VOINET_COMMAND_TRACELINE_H

#include <optional>
#include <string>

namespace voinet_command {

/// One block of curl's trace as the library logs it under the module "curl":
/// "HANDLE KIND SIZE BYTES".
struct TraceLine {
    /// "info", "rcv head", "snd head", "rcv data", ...
    std::string kind;
    /// The bytes as logged, escapes included.
    std::string escaped;
    /// Where `escaped` begins in the message.
    std::size_t start = 0;
};

/// Null when the message has another shape.
std::optional<TraceLine> parseTraceLine(const std::string& message);

/// The bytes as the library's trace shows them.
std::string escapeTrace(const std::string& bytes);

/// The bytes behind the escapes: a back-quote and two hexadecimal digits, or two back-quotes.
std::string unescapeTrace(const std::string& escaped);

/// The status in a reply line: "HTTP/1.1 404 Not Found" or FTP's "550 No such file".
std::optional<int> replyStatusOf(const std::string& line);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_TRACELINE_H
