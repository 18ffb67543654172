#ifndef VOINET_VOINETOPTION_H
#define VOINET_VOINETOPTION_H

namespace tessaro_com::pkm::voInet {

/// Options of TransferItf::SetOption. The comment names the overload that accepts the option; any
/// other overload answers voInetErrorInvalidOption. Number 10 is not in use.
enum voInetOption : int {
    /// wstring: fully qualified name with a port, "[scheme://]host:port". Without ":" the value
    /// changes nothing.
    voInetOptionHostFqdn = 0,
    /// wstring: NetBIOS name with a port, same form.
    voInetOptionHostNetBios = 1,
    /// wstring: IP address with a port, same form. Put an IPv6 address into brackets; without them
    /// its last group is taken for the port.
    voInetOptionHostIP = 2,
    /// int or long: port of the IP-address form.
    voInetOptionPortIP = 3,
    /// int or long: port of the fully-qualified-name form.
    voInetOptionPortFqdn = 4,
    /// int or long: port of the NetBIOS-name form.
    voInetOptionPortNetbios = 5,
    /// wstring: site name. Network connections refuse to work without one.
    voInetOptionSite = 6,
    /// wstring: user name at the server; switches server authentication on.
    voInetOptionUser = 7,
    /// wstring: password at the server.
    voInetOptionPassword = 8,
    /// wstring: account name. Stored and dumped only.
    voInetOptionAccount = 9,
    /// wstring: domain. Stored and dumped only.
    voInetOptionDomain = 11,
    /// wstring: server of a UNC path. Stored and dumped only.
    voInetOptionServer = 12,
    /// wstring: share of a UNC path. Stored and dumped only.
    voInetOptionShare = 13,
    /// wstring: path of the repository on the server, without leading and trailing "/"; for the
    /// local-path protocol the repository's directory. An empty value is accepted and leaves the
    /// stored path as it is.
    voInetOptionRelativePath = 14,
    /// bool: stored only.
    voInetOptionUseLoggedOnUser = 15,
    /// wstring: stored and dumped only. Requests carry a user agent of their own.
    voInetOptionUserAgent = 16,
    /// int or long: the port of every host form while voInetOptionUseSSL is on.
    voInetOptionSslPort = 17,
    /// bool: use the SSL port, and HTTPS for uploads with response. Probes and downloads stay plain
    /// HTTP.
    voInetOptionUseSSL = 18,
    /// wstring: path of the CA certificate file (PEM) that uploads with response verify the
    /// server against.
    voInetOptionCARootPath = 19,
    /// wstring: sent by HTTP downloads as the value of the header "UpdateToken".
    voInetOptionUpdateToken = 20,
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_VOINETOPTION_H
