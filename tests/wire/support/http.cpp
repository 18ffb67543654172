#include "support/http.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>

namespace tessaro_com::pkm::voInet::wire {

namespace {

std::string hexadecimal(std::size_t number) {
    std::array<char, 2 * sizeof number + 1> text{};
    std::snprintf(text.data(), text.size(), "%zx", number);
    return text.data();
}

Headers withLength(std::string_view body, Headers headers) {
    headers.push_back("Content-Length: " + std::to_string(body.size()));
    return headers;
}

std::string base64(std::string_view bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const auto group = bytes.substr(at, 3);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            bits = (bits << 8) | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            text += i <= group.size() ? kDigits[(bits >> (18 - 6 * i)) & 0x3fU] : '=';
        }
    }
    return text;
}

}  // namespace

std::string replyHead(int status, const Headers& headers) {
    std::string head = "HTTP/1.1 " + std::to_string(status) + " Reason\r\n";
    for (const auto& header : headers) {
        head += header + "\r\n";
    }
    return head + "\r\n";
}

std::string reply(int status, std::string_view body, const Headers& headers) {
    Headers all = withLength(body, headers);
    all.emplace_back("Connection: close");
    return replyHead(status, all).append(body);
}

std::string keepAliveReply(int status, std::string_view body, const Headers& headers) {
    return replyHead(status, withLength(body, headers)).append(body);
}

std::string chunked(std::string_view body, std::size_t chunkSize) {
    std::string text;
    for (std::size_t at = 0; at < body.size(); at += chunkSize) {
        const auto chunk = body.substr(at, chunkSize);
        text.append(hexadecimal(chunk.size())).append("\r\n").append(chunk).append("\r\n");
    }
    return text + "0\r\n\r\n";
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    while (!text.empty()) {
        unsigned byte = 0;
        const auto digits = text.substr(1, 2);
        const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        const bool isEncoded = text.front() == '%' && digits.size() == 2 &&
                               result.ptr == digits.data() + digits.size();
        decoded += isEncoded ? static_cast<char>(byte) : text.front();
        text.remove_prefix(isEncoded ? 3 : 1);
    }
    return decoded;
}

std::string basicCredentials(std::string_view userAndPassword) {
    return "Basic " + base64(userAndPassword);
}

}  // namespace tessaro_com::pkm::voInet::wire
