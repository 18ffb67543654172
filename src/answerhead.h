#ifndef VOINET_SRC_ANSWERHEAD_H
#define VOINET_SRC_ANSWERHEAD_H

#include "contentrange.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace tessaro_com::pkm::voInet {

/// What the header block of an HTTP answer gives away, line by line as libcurl delivers it. Of
/// several blocks (interim answers, redirects, challenges) the last one counts. A transport without
/// such blocks (FTP, or one that delivers no lines) leaves it as it began. Allocates nothing.
class AnswerHead {
  public:
    enum class Line { status, field, end, none };

    /// Takes the next line, its line end included, and says what it is: `none` outside of a block.
    Line take(std::string_view line);

    /// A block has begun, and no end of it was seen.
    bool isCut() const { return m_state == State::open; }
    bool isComplete() const { return m_state == State::complete; }

    /// Of the status line; 0 without one.
    int status() const { return m_status; }
    /// Where the answer wants the client to look instead.
    bool hasLocation() const { return m_hasLocation; }
    /// Nothing when the length is not announced, as with chunks.
    std::optional<std::int64_t> contentLength() const;

    bool hasContentRange() const { return m_hasContentRange; }
    /// Nothing when there is none, when it makes no sense, and for two that differ.
    std::optional<ContentRange> contentRange() const { return m_contentRange; }

  private:
    enum class State { none, open, complete };

    void takeField(std::string_view name, std::string_view value);
    void takeContentRange(std::string_view value);

    State m_state = State::none;
    int m_status = 0;
    bool m_hasLocation = false;
    bool m_isChunked = false;
    std::optional<std::int64_t> m_contentLength;
    bool m_hasContentRange = false;
    std::optional<ContentRange> m_contentRange;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_ANSWERHEAD_H
