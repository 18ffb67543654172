#include "exchangerules.h"

#include "requestbody.h"

#include <array>

namespace voinetserver {
namespace {

struct RequiredHeader {
    const char* name;
    const char* value;
};

constexpr std::array<RequiredHeader, 4> kRequiredHeaders = {{
    {"Accept", "application/octet-stream"},
    {"Accept-Language", "en-us"},
    {"Content-Type", "application/octet-stream"},
    {"User-Agent", "Mozilla/4.0 (compatible; KESTL/3.0; Windows)"},
}};

// A package is sent as it is, in one piece, without asking first.
constexpr std::array<const char*, 4> kForbiddenHeaders = {
    {"Transfer-Encoding", "Content-Encoding", "Expect", "Range"}};

bool hasOne(const httplib::Request& request, const char* name) {
    return request.get_header_value_count(name) == 1;
}

}  // namespace

std::optional<std::string> headerFault(const httplib::Request& request) {
    for (const char* name : kForbiddenHeaders) {
        if (request.has_header(name)) {
            return std::string("no header '") + name + "' is expected";
        }
    }
    if (!hasOne(request, "Host")) {
        return "exactly one header 'Host' is expected";
    }
    for (const auto& [name, value] : kRequiredHeaders) {
        if (!hasOne(request, name) || request.get_header_value(name) != value) {
            return std::string("exactly one header '") + name + ": " + value + "' is expected";
        }
    }
    if (!announcedLength(request)) {
        return "exactly one header 'Content-Length' with a decimal number is expected";
    }
    return std::nullopt;
}

}  // namespace voinetserver
