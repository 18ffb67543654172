#include "ftpreplies.h"

#include "contentrange.h"

#include <cstddef>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr int kSize = 213;
constexpr int kPassive = 227;
constexpr int kExtendedPassive = 229;

/// The code of a reply's last or only line; 0 for any other line.
int replyCode(std::string_view line) {
    constexpr std::size_t kDigits = 3;
    const bool isLast = line.size() > kDigits && line[kDigits] == ' ';
    return isLast ? static_cast<int>(parseDigits(line.substr(0, kDigits)).value_or(0)) : 0;
}

bool isPreliminary(int code) {
    return code >= 100 && code < 200;
}

bool isRefusal(int code) {
    return code >= 400;
}

}  // namespace

void FtpReplies::take(std::string_view line) {
    const int code = replyCode(line);
    if (code == kPassive || code == kExtendedPassive) {
        *this = FtpReplies();
        m_hasDataPort = true;
    } else if (isPreliminary(code)) {
        // Behind the data port libcurl sends TYPE, which it leaves out where nothing changes, and
        // then LIST for a directory but SIZE, REST and RETR for a file.
        m_announceListing = m_hasDataPort && m_replies == 1 && !m_isSizeAnswered;
    } else if (code != 0) {
        ++m_replies;
        m_isSizeAnswered = m_isSizeAnswered || code == kSize || isRefusal(code);
    }
}

bool namesFile(std::string_view url) {
    const auto path = url.substr(0, url.find_first_of("?#"));
    const bool hasType = url.find(";type=") != std::string_view::npos;
    return !path.empty() && path.back() != '/' && !hasType;
}

}  // namespace tessaro_com::pkm::voInet
