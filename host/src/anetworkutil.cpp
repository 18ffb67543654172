#include "kvecomn/anetworkutil.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <set>

namespace {

constexpr char kScopeMark = '%';

// The values of kveGetAddrinfo's flags that narrow the look-up.
constexpr int kOnlyIpv4 = 4;
constexpr int kOnlyIpv6 = 6;

struct AddrinfoDeleter {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddrinfoList = std::unique_ptr<addrinfo, AddrinfoDeleter>;

struct IfaddrsDeleter {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};
using IfaddrsList = std::unique_ptr<ifaddrs, IfaddrsDeleter>;

struct ScopedAddress {
    in6_addr address;
    std::string scope;
};

bool hasZeroCharacter(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

/// The parts of an IPv6 address with or without a scope; nothing for any other text.
std::optional<ScopedAddress> parseIpv6(const std::string& text) {
    const std::size_t mark = text.find(kScopeMark);
    ScopedAddress parsed{};
    if (mark != std::string::npos) {
        parsed.scope = text.substr(mark + 1);
        if (parsed.scope.empty() || parsed.scope.find_first_of("[]/ %") != std::string::npos) {
            return std::nullopt;
        }
    }
    if (hasZeroCharacter(text) ||
        inet_pton(AF_INET6, text.substr(0, mark).c_str(), &parsed.address) != 1) {
        return std::nullopt;
    }
    return parsed;
}

/// "[fe80::1]" without its brackets. Other texts, such as "[name]", come back as they are.
std::string withoutBrackets(const std::string& host) {
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        std::string inner = host.substr(1, host.size() - 2);
        if (parseIpv6(inner)) {
            return inner;
        }
    }
    return host;
}

int resolve(const std::string& host, const std::string& service, int family, AddrinfoList& list) {
    // The resolver would see such a text up to the zero only, and answer for another name.
    if (host.empty() || hasZeroCharacter(host) || hasZeroCharacter(service)) {
        return EAI_NONAME;
    }
    addrinfo hints{};
    hints.ai_family = family;
    // One entry for each address, not one for each kind of socket.
    hints.ai_socktype = SOCK_STREAM;
    const std::string name = withoutBrackets(host);
    addrinfo* found = nullptr;
    int result = 0;
    do {
        result =
            getaddrinfo(name.c_str(), service.empty() ? nullptr : service.c_str(), &hints, &found);
    } while (result == EAI_SYSTEM && errno == EINTR);
    if (result == 0) {
        list.reset(found);
    }
    return result;
}

/// The same without exceptions.
int tryToResolve(const std::string& host, const std::string& service, int family,
                 AddrinfoList& list) noexcept {
    try {
        return resolve(host, service, family, list);
    } catch (const std::bad_alloc&) {
        return EAI_MEMORY;
    }
}

int familyOf(int flags) {
    switch (flags) {
        case kOnlyIpv4:
            return AF_INET;
        case kOnlyIpv6:
            return AF_INET6;
        default:
            return AF_UNSPEC;
    }
}

/// The addresses of a list as numeric texts, each once. An entry that has no numeric text is passed
/// over; `error` keeps its reason.
std::vector<std::string> numericTexts(const addrinfo* list, int& error) {
    std::vector<std::string> texts;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        char text[NI_MAXHOST];
        const int result = getnameinfo(entry->ai_addr, entry->ai_addrlen, text, sizeof text,
                                       nullptr, 0, NI_NUMERICHOST);
        if (result != 0) {
            error = result;
        } else if (std::find(texts.begin(), texts.end(), text) == texts.end()) {
            texts.emplace_back(text);
        }
    }
    return texts;
}

std::unique_ptr<char[]> copyOf(const std::string& text) {
    const std::size_t size = text.size() + 1;
    std::unique_ptr<char[]> copy(new char[size]);
    std::memcpy(copy.get(), text.c_str(), size);
    return copy;
}

/// The index of an interface given as a name or as a number; 0 when it is neither.
unsigned int interfaceIndex(const std::string& scope) {
    // Names first: an interface may be called "7".
    const unsigned int named = if_nametoindex(scope.c_str());
    if (named != 0) {
        return named;
    }
    std::uint64_t number = 0;
    for (const char digit : scope) {
        if (digit < '0' || digit > '9') {
            return 0;
        }
        number = number * 10 + static_cast<unsigned>(digit - '0');
        if (number > std::numeric_limits<std::uint32_t>::max()) {
            return 0;
        }
    }
    return static_cast<unsigned int>(number);
}

/// The link-local address of an interface; null for any other entry of the list.
const sockaddr_in6* linkLocalAddress(const ifaddrs* entry) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET6) {
        return nullptr;
    }
    const auto* address = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr);
    return IN6_IS_ADDR_LINKLOCAL(&address->sin6_addr) ? address : nullptr;
}

/// The only interface that an address without a scope can belong to; 0 when there is none or more
/// than one.
unsigned int guessInterface(const in6_addr& address) {
    ifaddrs* found = nullptr;
    if (getifaddrs(&found) != 0) {
        return 0;
    }
    const IfaddrsList list(found);
    std::set<unsigned int> carriers;
    std::set<unsigned int> candidates;
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        const sockaddr_in6* local = linkLocalAddress(entry);
        if (local != nullptr) {
            const unsigned int index = if_nametoindex(entry->ifa_name);
            candidates.insert(index);
            if (IN6_ARE_ADDR_EQUAL(&local->sin6_addr, &address)) {
                carriers.insert(index);
            }
        }
    }
    const std::set<unsigned int>& possible = carriers.empty() ? candidates : carriers;
    return possible.size() == 1 ? *possible.begin() : 0;
}

/// The interface scope of a link-local address; 0 when it has none.
unsigned int scopeOf(const std::string& numericAddress) {
    const std::optional<ScopedAddress> parsed = parseIpv6(withoutBrackets(numericAddress));
    if (!parsed || !IN6_IS_ADDR_LINKLOCAL(&parsed->address)) {
        return 0;
    }
    return parsed->scope.empty() ? guessInterface(parsed->address) : interfaceIndex(parsed->scope);
}

}  // namespace

ANetworkUtil::~ANetworkUtil() {
    for (char* text : m_ownedTexts) {
        delete[] text;
    }
}

std::string ANetworkUtil::formatV6addr(const std::string& host, bool forUrl) {
    std::string bare = withoutBrackets(host);
    if (!forUrl) {
        return bare;
    }
    return parseIpv6(bare) ? '[' + bare + ']' : host;
}

int ANetworkUtil::kveCreateAddrinfo(const std::string& host, const std::string& service,
                                    addrinfo** list, bool* flag) {
    AddrinfoList found;
    const int result = tryToResolve(host, service, AF_UNSPEC, found);
    if (flag != nullptr) {
        *flag = false;
        for (const addrinfo* entry = found.get(); entry != nullptr; entry = entry->ai_next) {
            *flag = *flag || entry->ai_family == AF_INET6;
        }
    }
    *list = found.release();
    return result;
}

// That the service comes by value is part of the binary interface.
int ANetworkUtil::kveGetAddrinfo(
    const std::string& host, std::string service,  // NOLINT(performance-unnecessary-value-param)
    std::vector<char*>& addresses, int flags) {
    AddrinfoList list;
    int result = tryToResolve(host, service, familyOf(flags), list);
    if (result != 0) {
        return result;
    }
    const std::size_t before = addresses.size();
    try {
        const std::vector<std::string> texts = numericTexts(list.get(), result);
        // Room first: after that a text cannot get lost between its two lists.
        addresses.reserve(before + texts.size());
        for (const std::string& text : texts) {
            std::unique_ptr<char[]> copy = copyOf(text);
            // cppcheck-suppress danglingLifetime ; released in the next line
            m_ownedTexts.insert(copy.get());
            addresses.push_back(copy.release());
        }
    } catch (const std::bad_alloc&) {
        // The caller is to have all of them or none.
        result = EAI_MEMORY;
        for (; addresses.size() > before; addresses.pop_back()) {
            m_ownedTexts.erase(addresses.back());
            delete[] addresses.back();
        }
    }
    if (addresses.size() > before) {
        return 0;
    }
    return result != 0 ? result : EAI_NONAME;
}

void ANetworkUtil::kveFreeAddrinfo(std::vector<char*>& addresses) {
    for (char* text : addresses) {
        if (m_ownedTexts.erase(text) != 0) {
            delete[] text;
        }
    }
    addresses.clear();
}

bool ANetworkUtil::kveGetScopeId(const std::string& numericAddress, unsigned int* scopeId) {
    unsigned int index = 0;
    try {
        index = scopeOf(numericAddress);
    } catch (const std::bad_alloc&) {
        // No answer.
    }
    if (index == 0) {
        return false;
    }
    if (scopeId != nullptr) {
        *scopeId = index;
    }
    return true;
}
