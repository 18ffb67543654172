#include "networkdouble.h"

#include "kvecomn/anetworkutil.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>

#include <memory>
#include <utility>

namespace voinet_test {

namespace {

/// One entry of an address list, with the address that it points to.
struct Entry {
    addrinfo info{};
    sockaddr_in6 address6{};
    sockaddr_in address4{};
};

std::unique_ptr<Entry> makeEntry(const std::string& address) {
    auto entry = std::make_unique<Entry>();
    const bool isV6 = address.find(':') != std::string::npos;
    entry->info.ai_family = isV6 ? AF_INET6 : AF_INET;
    if (isV6) {
        entry->address6.sin6_family = AF_INET6;
        EXPECT_EQ(inet_pton(AF_INET6, address.c_str(), &entry->address6.sin6_addr), 1) << address;
        entry->info.ai_addr = reinterpret_cast<sockaddr*>(&entry->address6);
        entry->info.ai_addrlen = sizeof entry->address6;
    } else {
        entry->address4.sin_family = AF_INET;
        EXPECT_EQ(inet_pton(AF_INET, address.c_str(), &entry->address4.sin_addr), 1) << address;
        entry->info.ai_addr = reinterpret_cast<sockaddr*>(&entry->address4);
        entry->info.ai_addrlen = sizeof entry->address4;
    }
    return entry;
}

}  // namespace

NetworkDouble& network() {
    static NetworkDouble instance;
    return instance;
}

void NetworkDouble::resolve(const std::string& name, const std::vector<std::string>& addresses) {
    m_answers[name] = Answer{0, addresses};
}

void NetworkDouble::failWith(const std::string& name, const std::vector<std::string>& addresses) {
    m_answers[name] = Answer{EAI_AGAIN, addresses};
}

void NetworkDouble::failForWantOfMemory(const std::string& name) {
    m_answers[name] = Answer{EAI_MEMORY, {}};
}

std::vector<std::string> NetworkDouble::calls(const std::string& start) const {
    std::vector<std::string> result;
    for (const auto& call : m_calls) {
        if (call.rfind(start, 0) == 0) {
            result.push_back(call);
        }
    }
    return result;
}

void NetworkDouble::finish() {
    EXPECT_TRUE(m_lists.empty()) << m_lists.size() << " address lists were not freed";
    *this = NetworkDouble();
}

NetworkDouble::Answer NetworkDouble::lookUp(const std::string& name) const {
    const auto found = m_answers.find(name);
    return found == m_answers.end() ? Answer{EAI_NONAME, {}} : found->second;
}

int NetworkDouble::createList(const std::string& host, const std::string& service,
                              addrinfo** list) {
    note("list of " + host + ", service '" + service + "'");
    *list = nullptr;
    const auto answer = lookUp(host);
    if (answer.result != 0) {
        return answer.result;
    }
    auto** next = list;
    for (const auto& address : answer.addresses) {
        *next = &makeEntry(address).release()->info;
        next = &(*next)->ai_next;
    }
    if (*list) {
        m_lists.insert(*list);
    }
    return 0;
}

bool NetworkDouble::freeList(addrinfo* list) {
    if (m_lists.erase(list) == 0) {
        return false;
    }
    while (list) {
        // The list's entries are the first members of the double's own.
        const std::unique_ptr<Entry> entry(reinterpret_cast<Entry*>(list));
        list = list->ai_next;
    }
    return true;
}

bool NetworkDouble::scopeOf(const std::string& address, unsigned int* id) {
    note("scope of " + address + " from " + std::to_string(*id));
    const auto found = m_scopes.find(address);
    if (found == m_scopes.end()) {
        return false;
    }
    *id = found->second;
    return true;
}

}  // namespace voinet_test

using voinet_test::network;

ANetworkUtil::~ANetworkUtil() {
    for (auto* text : m_ownedTexts) {
        delete[] text;
    }
}

std::string ANetworkUtil::formatV6addr(const std::string& host, bool forUrl) {
    network().note((forUrl ? "URL form of " : "plain form of ") + host);
    const bool isV6 = host.find(':') != std::string::npos && host.front() != '[';
    return isV6 && forUrl ? "[" + host + "]" : host;
}

int ANetworkUtil::kveCreateAddrinfo(const std::string& host, const std::string& service,
                                    addrinfo** list, bool* flag) {
    EXPECT_NE(flag, nullptr);
    return network().createList(host, service, list);
}

int ANetworkUtil::kveGetAddrinfo(const std::string& host, std::string service,
                                 std::vector<char*>& addresses, int flags) {
    network().note("addresses of " + host + ", service '" + std::move(service) + "', flags " +
                   std::to_string(flags));
    EXPECT_TRUE(addresses.empty()) << "a list with old addresses in it";
    const auto answer = network().lookUp(host);
    for (const auto& address : answer.addresses) {
        auto text = std::make_unique<char[]>(address.size() + 1);
        address.copy(text.get(), address.size());
        m_ownedTexts.insert(text.get());
        addresses.push_back(text.release());
    }
    return answer.result;
}

void ANetworkUtil::kveFreeAddrinfo(std::vector<char*>& addresses) {
    network().note("free " + std::to_string(addresses.size()));
    for (auto* text : addresses) {
        EXPECT_EQ(m_ownedTexts.erase(text), 1U) << "an address that is not of this object";
        delete[] text;
    }
    addresses.clear();
}

bool ANetworkUtil::kveGetScopeId(const std::string& numericAddress, unsigned int* scopeId) {
    return network().scopeOf(numericAddress, scopeId);
}

/// Frees the double's lists and hands every other one on to the C library.
extern "C" void freeaddrinfo(addrinfo* list) noexcept {
    if (!network().freeList(list)) {
        using Function = void (*)(addrinfo*);
        reinterpret_cast<Function>(dlsym(RTLD_NEXT, "freeaddrinfo"))(list);
    }
}
