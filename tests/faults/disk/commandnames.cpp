// Loaded into the command: makes its temporary names known to the test, and no other process's.

#include <cstdlib>

namespace {

long firstNumber() {
    const char* const text = std::getenv("VOINET_TEST_FIRST_NUMBER");
    constexpr int kDecimal = 10;
    return text == nullptr ? 0 : std::strtol(text, nullptr, kDecimal);
}

}  // namespace

extern "C" long random() noexcept {
    static long next = firstNumber();
    return next++;
}
