// A logon and a download over FTP from a server that says what the input says. The first byte is
// the client's settings (support/download.h), the rest the script (support/scriptedserver.h).

#include "support/download.h"
#include "support/fuzztarget.h"

namespace voinet_fuzz {

void tryInput(const std::string& bytes) {
    tryDownload(tessaro_com::pkm::voInet::voInetProtocolFtp, bytes, true);
}

}  // namespace voinet_fuzz
