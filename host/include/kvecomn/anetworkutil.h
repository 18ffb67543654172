#ifndef KVECOMN_ANETWORKUTIL_H
#define KVECOMN_ANETWORKUTIL_H

#include "kvecomn/kvecomn_export.h"

#include <string>
#include <unordered_set>
#include <vector>

struct addrinfo;

/// Host names and addresses. Different objects may be used by different threads; one object by one
/// thread at a time. Look-ups block until the system's resolver has answered.
class KVECOMN_API ANetworkUtil {
  public:
    ANetworkUtil() = default;
    /// Releases the texts of every address list that was not handed back.
    ~ANetworkUtil();

    ANetworkUtil(const ANetworkUtil&) = delete;
    ANetworkUtil& operator=(const ANetworkUtil&) = delete;

    /// An IPv6 address as it must stand in a URL (`forUrl`: in brackets) or as programs take it
    /// (without). A scope ("%eth0") stays. Any other text comes back as it is, and so does an
    /// address that already has the form asked for.
    std::string formatV6addr(const std::string& host, bool forUrl);

    /// Resolves a host and a service (which may be empty). An IPv6 address may be in brackets. An
    /// empty host fails.
    ///
    /// @param list  receives the addresses on success; the caller frees them with freeaddrinfo.
    /// Null
    ///              on failure.
    /// @param flag  receives whether there is an IPv6 address among them; may be null.
    /// @return 0, or the resolver's error (EAI_...).
    int kveCreateAddrinfo(const std::string& host, const std::string& service, addrinfo** list,
                          bool* flag);

    /// Resolves a host into numeric addresses, each once, in the resolver's order.
    ///
    /// @param addresses  the texts are appended. They belong to this object: hand them back with
    ///                   kveFreeAddrinfo or let its destruction release them, and do not use them
    ///                   after that.
    /// @param flags      1: IPv4 and IPv6; 4: IPv4 only; 6: IPv6 only; any other value as 1.
    /// @return 0 when at least one address was appended, else the resolver's error.
    int kveGetAddrinfo(const std::string& host, std::string service, std::vector<char*>& addresses,
                       int flags);

    /// Releases the texts of a list of this object and empties the list. Texts that are not this
    /// object's are left alone.
    void kveFreeAddrinfo(std::vector<char*>& addresses);

    /// The interface scope of an IPv6 link-local address.
    ///
    /// @param numericAddress  with the scope behind "%", as a number or as an interface's name. One
    ///                        without "%" has a scope when exactly one interface could be meant:
    ///                        the one that carries the address, or the only one with a link-local
    ///                        address.
    /// @param scopeId         receives the scope when the answer is true; not touched otherwise.
    /// @return whether the address is link-local and has a scope.
    bool kveGetScopeId(const std::string& numericAddress, unsigned int* scopeId);

  private:
    std::unordered_set<char*> m_ownedTexts;
};

#endif  // KVECOMN_ANETWORKUTIL_H
