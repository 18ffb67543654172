#include "digest.h"

#include "commanderror.h"

#include <fmt/format.h>
#include <mbedtls/sha256.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <vector>

namespace voinet_command {

namespace {

constexpr std::size_t kDigestSize = 32;
constexpr std::size_t kBlockSize = std::size_t{256} << 10;

class Sha256 {
  public:
    Sha256() {
        mbedtls_sha256_init(&m_context);
        Check(mbedtls_sha256_starts_ret(&m_context, 0));
    }
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;
    ~Sha256() { mbedtls_sha256_free(&m_context); }

    void Add(const unsigned char* data, std::size_t size) {
        Check(mbedtls_sha256_update_ret(&m_context, data, size));
    }

    std::string Finish() {
        std::array<unsigned char, kDigestSize> digest{};
        Check(mbedtls_sha256_finish_ret(&m_context, digest.data()));
        return fmt::format("{:02x}", fmt::join(digest, ""));
    }

  private:
    // A device's crypto hardware can fail where the portable code cannot.
    static void Check(int result) {
        if (result != 0) {
            throw CommandError(ExitStatus::failed, "the SHA-256 digest could not be computed");
        }
    }

    mbedtls_sha256_context m_context;
};

std::size_t readAt(int fd, std::vector<unsigned char>& block, off_t offset,
                   const std::string& name) {
    ssize_t count = 0;
    do {
        count = ::pread(fd, block.data(), block.size(), offset);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        throw CommandError(ExitStatus::localFile,
                           fmt::format("cannot read {}: {}", name, std::strerror(errno)));
    }
    return static_cast<std::size_t>(count);
}

bool isHexDigit(char digit) {
    return std::isxdigit(static_cast<unsigned char>(digit)) != 0;
}

int lower(char letter) {
    return std::tolower(static_cast<unsigned char>(letter));
}

}  // namespace

std::string sha256OfFile(int fd, const std::string& name) {
    Sha256 sha;
    std::vector<unsigned char> block(kBlockSize);
    off_t offset = 0;
    while (const std::size_t count = readAt(fd, block, offset, name)) {
        sha.Add(block.data(), count);
        offset += static_cast<off_t>(count);
    }
    return sha.Finish();
}

bool isSha256(const std::string& text) {
    return text.size() == 2 * kDigestSize && std::all_of(text.begin(), text.end(), isHexDigit);
}

bool sameDigest(const std::string& a, const std::string& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char left, char right) { return lower(left) == lower(right); });
}

}  // namespace voinet_command
