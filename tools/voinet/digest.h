#ifndef VOINET_COMMAND_DIGEST_H
#define VOINET_COMMAND_DIGEST_H

#include <string>

namespace voinet_command {

/// The SHA-256 digest of an open file from its begin, as 64 lower-case hexadecimal digits. Throws
/// CommandError when the file cannot be read; `name` is for the message.
std::string sha256OfFile(int fd, const std::string& name);

/// Whether a text is a SHA-256 digest in hexadecimal, in either letter case.
bool isSha256(const std::string& text);

/// Compares two such digests; letter case does not count.
bool sameDigest(const std::string& a, const std::string& b);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_DIGEST_H
