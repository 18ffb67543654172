#include "vsftpdserver.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace voinettest {
namespace {

constexpr const char* kProgram = "/usr/sbin/vsftpd";
constexpr const char* kPamDirectory = "/etc/pam.d";
constexpr const char* kPamPrefix = "voinet-test-";

std::filesystem::path pamFile(const std::string& service) {
    return std::filesystem::path(kPamDirectory) / service;
}

// After the prefix comes the number of the process that made the service.
bool isAbandoned(const std::string& service) {
    const std::string prefix = kPamPrefix;
    if (service.compare(0, prefix.size(), prefix) != 0) {
        return false;
    }
    const auto process =
        static_cast<pid_t>(std::strtol(service.c_str() + prefix.size(), nullptr, 10));
    return process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
}

void removeAbandonedServices() {
    for (const auto& entry : std::filesystem::directory_iterator(kPamDirectory)) {
        if (isAbandoned(entry.path().filename().string())) {
            std::error_code ignored;  // another test may be faster
            std::filesystem::remove(entry.path(), ignored);
        }
    }
}

std::vector<std::string> prepare(const ServerDirectory& directory, const ReservedPort& port,
                                 const std::unique_ptr<PamService>& pamService) {
    makeServedFiles(directory);
    std::filesystem::permissions(directory.write("files/secret.bin", "secret"),
                                 std::filesystem::perms(0));
    directory.makeFolder("empty");
    const bool isIpv6 = port.address() == kLoopbackIpv6;
    const auto yesOrNo = [](bool isYes) { return isYes ? "YES" : "NO"; };
    const std::string configuration = directory.configure(
        "vsftpd.conf", {
                           {"LISTEN_IPV4", yesOrNo(!isIpv6)},
                           {"LISTEN_IPV6", yesOrNo(isIpv6)},
                           {"ADDRESS_OPTION", isIpv6 ? "listen_address6" : "listen_address"},
                           {"ADDRESS", port.address()},
                           {"PORT", port.text()},
                           {"USERS", yesOrNo(pamService != nullptr)},
                           {"PAM_SERVICE", pamService ? pamService->name() : "none"},
                           {"LAUNCHING_USER", yesOrNo(!isRoot())},
                       });
    return {kProgram, configuration};
}

std::unique_ptr<PamService> makePamService(const ServerDirectory& directory,
                                           const ReservedPort& port) {
    std::unique_ptr<PamService> made;
    if (isRoot()) {
        const std::string lines =
            passwordLine(VsftpdServer::kPlainUser, VsftpdServer::kPlainPassword) +
            passwordLine(VsftpdServer::kSpecialUser, VsftpdServer::kSpecialPassword);
        made = std::make_unique<PamService>(directory.write("users", lines), port.text());
    }
    return made;
}

std::vector<ReservedPort> reservePort(const std::string& address) {
    std::vector<ReservedPort> ports;
    ports.emplace_back(address);
    return ports;
}

}  // namespace

PamService::PamService(const std::string& usersFile, const std::string& distinction)
    : name_(kPamPrefix + std::to_string(::getpid()) + "-" + distinction) {
    removeAbandonedServices();
    std::ofstream file(pamFile(name_));
    file << fillIn("pam-service.in", {{"USERS_FILE", usersFile}});
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + pamFile(name_).string());
    }
}

PamService::~PamService() {
    std::error_code ignored;
    std::filesystem::remove(pamFile(name_), ignored);
}

VsftpdServer::VsftpdServer(const std::string& address)
    : ports_(reservePort(address)),
      pamService_(makePamService(directory_, port())),
      server_(prepare(directory_, port(), pamService_), ports_) {}

void VsftpdServer::requireUsers() const {
    if (pamService_ == nullptr) {
        throw std::runtime_error("vsftpd knows its users by PAM: run this test as root");
    }
}

}  // namespace voinettest
