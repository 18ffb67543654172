#ifndef VOINET_COMMAND_TEXTS_H
#define VOINET_COMMAND_TEXTS_H

#include <cstdint>
#include <string>

namespace voinet_command {

/// True for well-formed UTF-8: text that the library sees as it was typed.
bool isUtf8(const std::string& text);

/// True when the text holds white space, at which the library would end a URL.
bool hasBlank(const std::string& text);

/// The text with every control character shown as "?", so that nothing a server sends can steer a
/// terminal.
std::string withoutControls(std::string text);

/// "512 B", "1.5 KiB", "20.0 MiB".
std::string formatBytes(std::uint64_t bytes);

/// "0:07", "12:05", "1:02:03".
std::string formatDuration(std::uint64_t seconds);

/// "host:port".
std::string joinHostPort(const std::string& host, int port);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_TEXTS_H
