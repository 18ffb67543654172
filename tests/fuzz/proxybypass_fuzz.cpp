// Hosts that are exempt from the proxy (proxy_detect.h). The first line of an input is the host,
// the rest the list; no name is looked up.

#include "kvecomn/telmcomn.h"
#include "support/fuzztarget.h"
#include "support/input.h"
#include "support/tableresolver.h"
#include "voinet/INetUtils.h"
#include "voinet/proxy_detect.h"

#include <strings.h>

#include <algorithm>
#include <string>
#include <vector>

namespace voinet_fuzz {

namespace {

namespace voInet = tessaro_com::pkm::voInet;

constexpr char kDelimiters[] = ",; \t\n\r";

bool isDelimiter(char each) {
    return std::string(kDelimiters).find(each) != std::string::npos;
}

std::vector<std::string> entriesOf(const std::string& list) {
    std::string commas = list;
    std::replace_if(commas.begin(), commas.end(), isDelimiter, ',');
    std::vector<std::string> entries = split(commas, ',');
    entries.erase(std::remove(entries.begin(), entries.end(), ""), entries.end());
    return entries;
}

bool shareAddress(const std::vector<std::string>& a, const std::vector<std::string>& b) {
    for (const std::string& one : a) {
        for (const std::string& other : b) {
            // As the addresses are used: up to a zero byte.
            if (::strcasecmp(one.c_str(), other.c_str()) == 0) {
                return true;
            }
        }
    }
    return false;
}

bool haveCommonAddress(const std::string& a, const std::string& b) {
    // The names reach the look-up as C texts.
    const LookUp ofA = lookUp(voInet::canonicalize(upToZero(a)));
    const LookUp ofB = lookUp(voInet::canonicalize(upToZero(b)));
    return ofA.result == 0 && ofB.result == 0 && shareAddress(ofA.addresses, ofB.addresses);
}

bool isLocalName(const std::string& host) {
    const std::string bracketed = "://[";
    const std::string plain = "://";
    std::string name = host;
    if (host.find(bracketed) != std::string::npos) {
        name = host.substr(host.find(bracketed) + bracketed.size());
    } else if (host.find(plain) != std::string::npos) {
        name = host.substr(host.find(plain) + plain.size());
    }
    return std::none_of(name.begin(), name.end(), [](char c) { return c == '.' || c == ':'; });
}

void checkTokens(const std::string& list) {
    std::vector<std::string> tokens = {"first"};
    require(voInet::tokenize<std::string>(list, tokens, kDelimiters), "tokenize is always true");
    require(tokens.front() == "first", "tokens are appended");
    tokens.erase(tokens.begin());
    require(tokens == entriesOf(list), "tokens are the parts between delimiters", list);
}

void checkSites(const std::string& a, const std::string& b) {
    const bool identical = voInet::AreSitesIdentical(a.c_str(), b.c_str());
    require(identical == haveCommonAddress(a, b), "a common address makes sites identical");
    require(identical == voInet::AreSitesIdentical(b.c_str(), a.c_str()), "in both directions");
    require(!voInet::AreSitesIdentical(nullptr, b.c_str()), "null names no site");
}

void checkAddressLists(std::vector<std::string> a, std::vector<std::string> b) {
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> result;
        result.reserve(texts.size());
        for (std::string& text : texts) {
            result.push_back(text.data());
        }
        return result;
    };
    require(voInet::MatchAddrList(pointers(a), pointers(b)) == shareAddress(a, b),
            "lists match by a common entry");
}

void checkBypass(const std::string& host, const std::string& list, bool bypassLocal) {
    const std::vector<std::string> entries = entriesOf(list);
    const bool listed = std::any_of(entries.begin(), entries.end(), [&](const std::string& entry) {
        return haveCommonAddress(entry, host);
    });
    const bool expected = listed || (bypassLocal && isLocalName(host));
    require(voInet::isProxyBypassed(host, list, bypassLocal) == expected,
            "exempt are listed and local hosts", host + "\n" + list);
}

/// Both forms agree about texts that have a wide form.
void checkWideBypass(const std::string& host, const std::string& list, bool bypassLocal) {
    const auto roundTrip = [](const std::string& text) {
        return telmcomn_wide_to_ansi(telmcomn_ansi_to_wide(text));
    };
    std::vector<std::wstring> lines;
    for (const std::string& line : split(list, '\n')) {
        lines.push_back(telmcomn_ansi_to_wide(line));
    }
    require(voInet::isProxyBypassed(telmcomn_ansi_to_wide(host), lines, bypassLocal) ==
                voInet::isProxyBypassed(roundTrip(host), roundTrip(list), bypassLocal),
            "the wide form gives the same answer");
}

}  // namespace

void tryInput(const std::string& bytes) {
    Input input(bytes);
    const std::string host = input.line();
    const std::string list = input.rest();
    checkTokens(list);
    checkSites(host, list);
    checkAddressLists({host}, entriesOf(list));
    checkAddressLists(entriesOf(list), entriesOf(host));
    for (const bool bypassLocal : {false, true}) {
        checkBypass(host, list, bypassLocal);
        checkWideBypass(host, list, bypassLocal);
    }
}

}  // namespace voinet_fuzz
