#include "squidproxy.h"

#include "rawclient.h"

#include <pwd.h>
#include <unistd.h>

#include <stdexcept>

namespace voinettest {
namespace {

constexpr const char* kProgram = "/usr/sbin/squid";
// Squid gives root's rights up and becomes this user of its package; it is started as that user.
constexpr const char* kServerUser = "proxy";

std::string userToStart() {
    return isRoot() ? kServerUser : "";
}

void giveToServer(const std::string& folder) {
    const passwd* const owner = ::getpwnam(kServerUser);
    if (owner == nullptr) {
        throw std::runtime_error(std::string("there is no user ") + kServerUser);
    }
    require(::chown(folder.c_str(), owner->pw_uid, owner->pw_gid) == 0, "giving away " + folder);
}

std::vector<std::string> prepare(const ServerDirectory& directory,
                                 const std::vector<ReservedPort>& ports) {
    const std::string folder = directory.makeFolder("run");
    if (isRoot()) {
        giveToServer(folder);
    }
    directory.write("users",
                    passwordLine(SquidProxy::kUser, SquidProxy::kPassword) +
                        passwordLine(SquidProxy::kAlternateUser, SquidProxy::kAlternatePassword));
    const std::string configuration =
        directory.configure("squid.conf", {
                                              {"PORT", ports[0].text()},
                                              {"PORT_AUTHENTICATED", ports[1].text()},
                                          });
    return {kProgram, "-N", "-f", configuration};
}

std::vector<ReservedPort> reservePorts() {
    std::vector<ReservedPort> ports;
    ports.emplace_back(kLoopbackIpv4);
    ports.emplace_back(kLoopbackIpv4);
    return ports;
}

}  // namespace

SquidProxy::SquidProxy()
    : ports_(reservePorts()), server_(prepare(directory_, ports_), ports_, userToStart()) {}

std::string SquidProxy::accessLog() const {
    // A port on which nobody listens.
    const ReservedPort nobody;
    const std::string url =
        "http://127.0.0.1:" + nobody.text() + "/mark-" + std::to_string(++ownRequests_);
    exchange(port().number(), "GET", url);
    return directory_.awaitText("run/access.log", url);
}

}  // namespace voinettest
