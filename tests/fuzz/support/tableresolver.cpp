#include "support/tableresolver.h"

#include "kvecomn/anetworkutil.h"
#include "support/fuzztarget.h"

#include <netdb.h>

#include <memory>

namespace voinet_fuzz {

LookUp lookUp(const std::string& host) {
    if (host.empty()) {
        return {EAI_NONAME, {}};
    }
    LookUp answer;
    answer.result = host.front() == '!' ? EAI_AGAIN : 0;
    for (const char each : host.substr(0, 4)) {
        // Few addresses, so that names share some; the letter case of numerals is not the same
        // everywhere.
        switch (static_cast<unsigned char>(each) % 8) {
            case 0:
            case 1:
                answer.addresses.emplace_back("10.0.0.1");
                break;
            case 2:
                answer.addresses.emplace_back("10.0.0.11");
                break;
            case 3:
                answer.addresses.emplace_back("fe80::ab");
                break;
            case 4:
                answer.addresses.emplace_back("FE80::AB");
                break;
            case 5:
                answer.addresses.push_back(host);
                break;
            default:
                break;
        }
    }
    return answer;
}

}  // namespace voinet_fuzz

ANetworkUtil::~ANetworkUtil() {
    for (const char* text : m_ownedTexts) {
        delete[] text;
    }
}

std::string ANetworkUtil::formatV6addr(const std::string& host, bool forUrl) {
    return forUrl && host.find(':') != std::string::npos ? "[" + host + "]" : host;
}

int ANetworkUtil::kveCreateAddrinfo(const std::string& /*host*/, const std::string& /*service*/,
                                    addrinfo** list, bool* /*flag*/) {
    *list = nullptr;
    return EAI_NONAME;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is the host library's
int ANetworkUtil::kveGetAddrinfo(const std::string& host, std::string /*service*/,
                                 std::vector<char*>& addresses, int /*flags*/) {
    voinet_fuzz::LookUp answer = voinet_fuzz::lookUp(host);
    for (const std::string& address : answer.addresses) {
        auto text = std::make_unique<char[]>(address.size() + 1);
        address.copy(text.get(), address.size());
        m_ownedTexts.insert(text.get());
        addresses.push_back(text.release());
    }
    return answer.result;
}

void ANetworkUtil::kveFreeAddrinfo(std::vector<char*>& addresses) {
    for (char* text : addresses) {
        voinet_fuzz::require(m_ownedTexts.erase(text) == 1, "addresses go back to their owner");
        delete[] text;
    }
    addresses.clear();
}

bool ANetworkUtil::kveGetScopeId(const std::string& /*numericAddress*/, unsigned int* /*scopeId*/) {
    return false;
}
