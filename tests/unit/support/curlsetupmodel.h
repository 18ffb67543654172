#ifndef VOINET_TESTS_UNIT_SUPPORT_CURLSETUPMODEL_H
#define VOINET_TESTS_UNIT_SUPPORT_CURLSETUPMODEL_H

#include "voinet/cnetconnection.h"

#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet {
class CallbackManager;
}

namespace voinet_test {

/// What the set-up of a handle does to libcurl, in order, as the curl double's trace shows it:
/// "init" and the options that the connection's settings ask for. `traced` says whether the host
/// wants curl's trace. Hosts are taken to have no IPv6 scope.
std::vector<std::string> expectedSetup(const tessaro_com::pkm::voInet::CNetConnection& connection,
                                       const tessaro_com::pkm::voInet::CallbackManager* manager,
                                       bool traced);

/// What every handle of a download has behind the options of its protocol; as withoutManager shows
/// it.
std::vector<std::string> expectedDownloadOptions();

/// The entries for callbacks' user data hold an address that a test may not know; they are shown as
/// "*" instead.
std::vector<std::string> withoutManager(std::vector<std::string> trace);

/// User name and password as they reach curl in one text: encoded, up to the first blank.
std::string joinedCredentials(const std::string& user, const std::string& password);

/// A host as it stands in a URL.
std::string inUrl(const std::string& host);

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_CURLSETUPMODEL_H
