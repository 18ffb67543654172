#include "squidproxy.h"

#include "rawclient.h"

#include <pwd.h>
#include <unistd.h>

#include <stdexcept>

namespace voinettest {
namespace {

constexpr const char* program = "/usr/sbin/squid";
// Squid gives root's rights up and becomes this user of its package; it is started as that user.
constexpr const char* serverUser = "proxy";

std::string userToStart() {
    return isRoot() ? serverUser : "";
}

void giveToServer(const std::string& folder) {
    const passwd* const owner = ::getpwnam(serverUser);
    if (owner == nullptr) {
        throw std::runtime_error(std::string("there is no user ") + serverUser);
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
                    passwordLine(SquidProxy::user, SquidProxy::password) +
                        passwordLine(SquidProxy::alternateUser, SquidProxy::alternatePassword));
    const std::string configuration =
        directory.configure("squid.conf", {
                                              {"PORT", ports[0].text()},
                                              {"PORT_AUTHENTICATED", ports[1].text()},
                                          });
    return {program, "-N", "-f", configuration};
}

std::vector<ReservedPort> reservePorts() {
    std::vector<ReservedPort> ports;
    ports.emplace_back(loopbackIpv4);
    ports.emplace_back(loopbackIpv4);
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
