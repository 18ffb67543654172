#ifndef VOINET_SRC_FTPREPLIES_H
#define VOINET_SRC_FTPREPLIES_H

#include <string_view>

namespace tessaro_com::pkm::voInet {

/// What the replies of an FTP server give away, line by line as libcurl delivers them. The header
/// lines of an HTTP proxy leave it as it began. Allocates nothing.
class FtpReplies {
  public:
    /// Takes the next line, its line end included.
    void take(std::string_view line);

    /// What comes over the data connection is the listing of a directory and no file.
    bool announceListing() const { return m_announceListing; }

  private:
    bool m_hasDataPort = false;
    /// Since the data port was named.
    int m_replies = 0;
    bool m_isSizeAnswered = false;
    bool m_announceListing = false;
};

/// Whether a URL names a file rather than a directory, whose listing libcurl asks for. False when
/// it chooses the way of the transfer itself.
bool namesFile(std::string_view url);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_FTPREPLIES_H
