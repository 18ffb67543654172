#include "support/tracelog.h"

#include "kvecomn/hostlog.h"
#include "kvecomn/telmcomn.h"
#include "support/fuzztarget.h"
#include "voinet/callbacks.h"

#include <cwchar>

namespace voinet_fuzz {

std::string tracedLine(int kind, const std::string& bytes) {
    std::string line;
    int lines = 0;
    hostLogSetHandler([&](HostLogLevel level, const wchar_t* module, const wchar_t* message) {
        require(level == HostLogLevel::detail, "a trace is detail");
        require(std::wcscmp(module, L"curl") == 0, "a trace is curl's");
        line = telmcomn_wide_to_ansi(message);
        ++lines;
    });
    // No terminating zero stands behind what curl hands over.
    std::string exact = bytes;
    exact.shrink_to_fit();
    const int result = tessaro_com::pkm::voInet::trace_curl(
        nullptr, static_cast<curl_infotype>(kind), exact.data(), exact.size(), nullptr);
    hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t*) {});
    require(result == 0, "a trace goes on");
    require(lines == 1, "a block is one line");
    return line;
}

}  // namespace voinet_fuzz
