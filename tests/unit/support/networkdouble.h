#ifndef VOINET_TESTS_UNIT_SUPPORT_NETWORKDOUBLE_H
#define VOINET_TESTS_UNIT_SUPPORT_NETWORKDOUBLE_H

#include <map>
#include <set>
#include <string>
#include <vector>

struct addrinfo;

namespace voinet_test {

/// What the host library's ANetworkUtil answers. The test executable defines the members of that
/// class itself, and the linker prefers them to those of libkvecomn.so; so no test asks a resolver.
class NetworkDouble {
  public:
    /// Lets a name resolve to numeric addresses, in this order. Unknown names fail.
    void resolve(const std::string& name, const std::vector<std::string>& addresses);
    /// A look-up that fails after it has put addresses into the caller's list.
    void failWith(const std::string& name, const std::vector<std::string>& addresses);
    /// A look-up for which the resolver finds no memory.
    void failForWantOfMemory(const std::string& name);
    /// The scope of a numeric address.
    void scope(const std::string& address, unsigned int id) { m_scopes[address] = id; }

    /// Look-ups in order: "addresses of HOST, service '', flags 1" (kveGetAddrinfo), "list of HOST,
    /// service ''" (kveCreateAddrinfo), "scope of ADDRESS from 0" (kveGetScopeId), "URL form of
    /// HOST" (formatV6addr), "free N" (kveFreeAddrinfo of N addresses).
    const std::vector<std::string>& calls() const { return m_calls; }
    /// Those that begin with `start`.
    std::vector<std::string> calls(const std::string& start) const;
    void clearCalls() { m_calls.clear(); }

    /// Red for address lists that are still alive; then back to the start state.
    void finish();

    // What the members of ANetworkUtil and freeaddrinfo do; see networkdouble.cpp.

    struct Answer {
        int result = 0;
        std::vector<std::string> addresses;
    };
    Answer lookUp(const std::string& name) const;
    int createList(const std::string& host, const std::string& service, addrinfo** list);
    /// False for a list that is not the double's.
    bool freeList(addrinfo* list);
    bool scopeOf(const std::string& address, unsigned int* id);
    void note(std::string call) { m_calls.push_back(std::move(call)); }

  private:
    std::map<std::string, Answer> m_answers;
    std::map<std::string, unsigned int> m_scopes;
    std::vector<std::string> m_calls;
    std::set<addrinfo*> m_lists;
};

NetworkDouble& network();

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_NETWORKDOUBLE_H
