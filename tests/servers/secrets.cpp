#include "secrets.h"

#include "voinet/INetUtils.h"

#include <cstdint>
#include <utility>

namespace voinettest {
namespace {

// Every character that some encoding, shell, log or protocol treats in its own way.
constexpr const char* kSpecialCharacters = "@%:/\\ '\"`?#&+=<>$;|`0x0d*\xc3\xa4\xe2\x82\xac";

/// The parts of a base64 text that do not depend on what stands before and behind the bytes.
std::vector<std::string> base64Parts(const std::string& bytes) {
    std::vector<std::string> parts;
    for (std::size_t before = 0; before < 3; ++before) {
        const std::string text = base64(std::string(before, 'x') + bytes);
        const std::size_t begin = before == 0 ? 0 : 4;
        const std::size_t whole = (before + bytes.size()) / 3 * 4;
        parts.push_back(text.substr(begin, whole - begin));
    }
    return parts;
}

}  // namespace

std::string base64(const std::string& bytes) {
    static const std::string kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t i = at; i < at + 3; ++i) {
            group = group << 8U | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        }
        for (unsigned i = 0; i < 4; ++i) {
            text += at + i <= bytes.size() ? kDigits[group >> (18 - 6 * i) & 63U] : '=';
        }
    }
    return text;
}

PeculiarSecret::PeculiarSecret(const std::string& mark, std::string user)
    : head_("Zq7" + mark + "vX"),
      tail_("Wk3" + mark + "jQ"),
      text_(head_ + kSpecialCharacters + tail_),
      user_(std::move(user)),
      searched_{head_, tail_} {
    for (const std::string& end : {head_, tail_}) {
        const auto parts = base64Parts(end);
        searched_.insert(searched_.end(), parts.begin(), parts.end());
    }
}

std::wstring PeculiarSecret::wide() const {
    return tessaro_com::pkm::voInet::utf8_to_unicode(text_);
}

std::string PeculiarSecret::basic() const {
    return base64(user_ + ":" + text_);
}

std::string PeculiarSecret::foundIn(const std::string& text) const {
    for (const std::string& part : searched_) {
        const auto at = text.find(part);
        if (at != std::string::npos) {
            constexpr std::size_t kAround = 80;
            const std::size_t begin = at < kAround ? 0 : at - kAround;
            return part + " in: " + text.substr(begin, at - begin + part.size() + kAround);
        }
    }
    return {};
}

bool PeculiarSecret::isWholeIn(const std::string& text) const {
    return text.find(head_) != std::string::npos && text.find(tail_) != std::string::npos;
}

std::vector<std::string> secretsIn(const std::string& text,
                                   const std::vector<PeculiarSecret>& secrets) {
    std::vector<std::string> found;
    for (const PeculiarSecret& secret : secrets) {
        std::string where = secret.foundIn(text);
        if (!where.empty()) {
            found.push_back(std::move(where));
        }
    }
    return found;
}

}  // namespace voinettest
