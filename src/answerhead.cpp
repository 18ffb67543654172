#include "answerhead.h"

#include "asciitext.h"

namespace tessaro_com::pkm::voInet {

namespace {

/// The three digits behind the version; 0 for anything else.
int statusIn(std::string_view statusLine) {
    constexpr std::size_t kDigits = 3;
    const auto blank = statusLine.find(' ');
    const auto rest =
        blank == std::string_view::npos ? std::string_view() : trimmed(statusLine.substr(blank));
    return static_cast<int>(parseDigits(rest.substr(0, kDigits)).value_or(0));
}

bool operator==(const ContentRange& one, const ContentRange& other) {
    return one.first == other.first && one.last == other.last && one.total == other.total;
}

}  // namespace

AnswerHead::Line AnswerHead::take(std::string_view line) {
    if (startsWith(line, "HTTP/")) {
        *this = AnswerHead();
        m_state = State::open;
        m_status = statusIn(line);
        return Line::status;
    }
    if (m_state != State::open) {
        return Line::none;  // a reply of FTP, or a trailer behind a body in chunks
    }
    if (line.find_first_not_of("\r\n") == std::string_view::npos) {
        m_state = State::complete;
        return Line::end;
    }
    const auto colon = line.find(':');
    if (colon != std::string_view::npos) {
        takeField(line.substr(0, colon), trimmed(line.substr(colon + 1)));
    }
    return Line::field;
}

std::optional<std::int64_t> AnswerHead::contentLength() const {
    return m_isChunked ? std::nullopt : m_contentLength;
}

void AnswerHead::takeField(std::string_view name, std::string_view value) {
    if (equalsIgnoringCase(name, "Content-Range")) {
        takeContentRange(value);
    } else if (equalsIgnoringCase(name, "Content-Length")) {
        m_contentLength = parseDigits(value);
    } else if (equalsIgnoringCase(name, "Transfer-Encoding")) {
        m_isChunked = true;
    } else if (equalsIgnoringCase(name, "Location")) {
        m_hasLocation = true;
    }
}

void AnswerHead::takeContentRange(std::string_view value) {
    const auto range = parseContentRange(value);
    const bool agrees =
        !m_hasContentRange || (range && m_contentRange && *range == *m_contentRange);
    m_contentRange = agrees ? range : std::nullopt;
    m_hasContentRange = true;
}

}  // namespace tessaro_com::pkm::voInet
