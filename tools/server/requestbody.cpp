#include "requestbody.h"

#include <strings.h>

#include <charconv>
#include <string>

namespace voinetserver {
namespace {

constexpr const char* kLengthHeader = "Content-Length";
constexpr const char* kCodingHeader = "Transfer-Encoding";

// Without a length there is no body, and httplib would wait for one until its time is over. With
// one that it misunderstands it would wait for any number of bytes.
enum class Framing { none, readable, unclear };

Framing framingOf(const httplib::Request& request) {
    const std::size_t codings = request.get_header_value_count(kCodingHeader);
    if (codings > 0) {
        const std::string coding = request.get_header_value(kCodingHeader);
        const bool chunked = codings == 1 && ::strcasecmp(coding.c_str(), "chunked") == 0;
        return chunked ? Framing::readable : Framing::unclear;
    }
    if (!request.has_header(kLengthHeader)) {
        return Framing::none;
    }
    return announcedLength(request) ? Framing::readable : Framing::unclear;
}

}  // namespace

std::optional<std::uint64_t> announcedLength(const httplib::Request& request) {
    if (request.get_header_value_count(kLengthHeader) != 1) {
        return std::nullopt;
    }
    const std::string text = request.get_header_value(kLengthHeader);
    const char* end = text.data() + text.size();
    std::uint64_t length = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, length);
    return error == std::errc{} && stop == end ? std::optional(length) : std::nullopt;
}

bool drainBody(const httplib::Request& request, const httplib::ContentReader& reader) {
    const Framing framing = framingOf(request);
    if (framing != Framing::readable) {
        return framing == Framing::none;
    }
    const auto drop = [](const char*, std::size_t) { return true; };
    if (request.is_multipart_form_data()) {
        return reader([](const httplib::MultipartFormData&) { return true; }, drop);
    }
    return reader(drop);
}

}  // namespace voinetserver
