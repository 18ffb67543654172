#include "support/fuzztarget.h"

#include "kvecomn/hostlog.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace voinet_fuzz {

void require(bool holds, const char* property, const std::string& values) {
    if (!holds) {
        std::fprintf(stderr, "This does not hold: %s\n%s\n", property, values.c_str());
        std::abort();
    }
}

}  // namespace voinet_fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Lines are formed, but not shown.
    hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t*) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    voinet_fuzz::tryInput(size == 0 ? std::string()
                                    : std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
