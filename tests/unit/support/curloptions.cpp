#include "curloptions.h"

#include <algorithm>
#include <array>

namespace voinet_test {

namespace {

struct KnownOption {
    CURLoption id;
    const char* name;
    OptionType type;
};

#define KNOWN_OPTION(option, type)        \
    KnownOption {                         \
        option, #option, OptionType::type \
    }

constexpr std::array kKnownOptions{
    KNOWN_OPTION(CURLOPT_ADDRESS_SCOPE, number),
    KNOWN_OPTION(CURLOPT_BUFFERSIZE, number),
    KNOWN_OPTION(CURLOPT_CAINFO, text),
    KNOWN_OPTION(CURLOPT_CONNECTTIMEOUT, number),
    KNOWN_OPTION(CURLOPT_CONNECTTIMEOUT_MS, number),
    KNOWN_OPTION(CURLOPT_CONNECT_ONLY, number),
    KNOWN_OPTION(CURLOPT_DEBUGFUNCTION, function),
    KNOWN_OPTION(CURLOPT_ERRORBUFFER, pointer),
    KNOWN_OPTION(CURLOPT_FOLLOWLOCATION, number),
    KNOWN_OPTION(CURLOPT_HEADERFUNCTION, function),
    KNOWN_OPTION(CURLOPT_HTTPAUTH, number),
    KNOWN_OPTION(CURLOPT_HTTPHEADER, list),
    KNOWN_OPTION(CURLOPT_LOW_SPEED_LIMIT, number),
    KNOWN_OPTION(CURLOPT_LOW_SPEED_TIME, number),
    KNOWN_OPTION(CURLOPT_MAXREDIRS, number),
    KNOWN_OPTION(CURLOPT_MAX_RECV_SPEED_LARGE, offset),
    KNOWN_OPTION(CURLOPT_NOBODY, number),
    KNOWN_OPTION(CURLOPT_NOPROGRESS, number),
    KNOWN_OPTION(CURLOPT_NOSIGNAL, number),
    KNOWN_OPTION(CURLOPT_PASSWORD, text),
    KNOWN_OPTION(CURLOPT_POST, number),
    KNOWN_OPTION(CURLOPT_POSTFIELDSIZE_LARGE, offset),
    KNOWN_OPTION(CURLOPT_PROGRESSDATA, pointer),
    KNOWN_OPTION(CURLOPT_PROGRESSFUNCTION, function),
    KNOWN_OPTION(CURLOPT_PROXY, text),
    KNOWN_OPTION(CURLOPT_PROXYAUTH, number),
    KNOWN_OPTION(CURLOPT_PROXYPORT, number),
    KNOWN_OPTION(CURLOPT_PROXYUSERPWD, text),
    KNOWN_OPTION(CURLOPT_RANGE, text),
    KNOWN_OPTION(CURLOPT_READDATA, pointer),
    KNOWN_OPTION(CURLOPT_READFUNCTION, function),
    KNOWN_OPTION(CURLOPT_REDIR_PROTOCOLS, number),
    KNOWN_OPTION(CURLOPT_SSLVERSION, number),
    KNOWN_OPTION(CURLOPT_SSL_VERIFYHOST, number),
    KNOWN_OPTION(CURLOPT_SSL_VERIFYPEER, number),
    KNOWN_OPTION(CURLOPT_URL, text),
    KNOWN_OPTION(CURLOPT_USERAGENT, text),
    KNOWN_OPTION(CURLOPT_USERNAME, text),
    KNOWN_OPTION(CURLOPT_USERPWD, text),
    KNOWN_OPTION(CURLOPT_VERBOSE, number),
    KNOWN_OPTION(CURLOPT_WRITEDATA, pointer),
    KNOWN_OPTION(CURLOPT_WRITEFUNCTION, function),
    KNOWN_OPTION(CURLOPT_WRITEHEADER, pointer),
};

#undef KNOWN_OPTION

const KnownOption* known(CURLoption id) {
    const auto* found = std::find_if(kKnownOptions.begin(), kKnownOptions.end(),
                                     [id](const KnownOption& each) { return each.id == id; });
    return found == kKnownOptions.end() ? nullptr : found;
}

}  // namespace

OptionType optionType(CURLoption id) {
    if (const auto* option = known(id)) {
        return option->type;
    }
    switch (id / CURLOPTTYPE_OBJECTPOINT) {
        case CURLOPTTYPE_LONG / CURLOPTTYPE_OBJECTPOINT:
            return OptionType::number;
        case CURLOPTTYPE_FUNCTIONPOINT / CURLOPTTYPE_OBJECTPOINT:
            return OptionType::function;
        case CURLOPTTYPE_OFF_T / CURLOPTTYPE_OBJECTPOINT:
            return OptionType::offset;
        default:
            return OptionType::pointer;
    }
}

std::string optionName(CURLoption id) {
    const auto* option = known(id);
    return option ? option->name : "CURLOPT#" + std::to_string(static_cast<int>(id));
}

}  // namespace voinet_test
