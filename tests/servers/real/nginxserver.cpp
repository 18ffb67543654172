#include "nginxserver.h"

#include "process.h"

#include <filesystem>
#include <stdexcept>

namespace voinettest {
namespace {

constexpr const char* kProgram = "/usr/sbin/nginx";

void runOpenssl(std::vector<std::string> words) {
    words.insert(words.begin(), "openssl");
    const ProcessResult result = runToEnd({words});
    if (result.status != 0) {
        throw std::runtime_error("openssl: " + result.standardError);
    }
}

std::vector<std::string> certificateWords(const std::string& commonName) {
    return {
        "req",    "-x509", "-newkey", "ec",    "-pkeyopt",         "ec_paramgen_curve:prime256v1",
        "-nodes", "-days", "2",       "-subj", "/CN=" + commonName};
}

void makeAuthority(const ServerDirectory& directory, const std::string& name) {
    auto words = certificateWords(name);
    words.insert(words.end(),
                 {"-keyout", directory.path(name + ".key"), "-out", directory.path(name + ".pem")});
    runOpenssl(words);
}

// Its name is not the address that the tests use.
void makeCertificate(const ServerDirectory& directory, const std::string& authority) {
    auto words = certificateWords("management.example.com");
    words.insert(words.end(), {"-CA", directory.path(authority + ".pem"), "-CAkey",
                               directory.path(authority + ".key"), "-addext",
                               "basicConstraints=critical,CA:FALSE", "-keyout",
                               directory.path("server.key"), "-out", directory.path("server.pem")});
    runOpenssl(words);
}

std::vector<std::string> prepare(const ServerDirectory& directory,
                                 const std::vector<ReservedPort>& ports) {
    makeServedFiles(directory);
    directory.write("files/with blank.bin", std::string(servedText(1000)));
    directory.write("users", passwordLine(NginxServer::kUser, NginxServer::kPassword));
    makeAuthority(directory, "authority");
    makeAuthority(directory, "other-authority");
    makeCertificate(directory, "authority");
    const std::string configuration =
        directory.configure("nginx.conf", {
                                              {"PORT", ports[0].text()},
                                              {"PORT_IPV6", ports[1].text()},
                                              {"PORT_TLS", ports[2].text()},
                                              {"PORT_TLS_12", ports[3].text()},
                                              {"PORT_TLS_13", ports[4].text()},
                                          });
    return {kProgram, "-e", "stderr", "-p", directory.path(), "-c", configuration};
}

std::vector<ReservedPort> reservePorts() {
    std::vector<ReservedPort> ports;
    ports.emplace_back(kLoopbackIpv4);
    ports.emplace_back(kLoopbackIpv6);
    ports.emplace_back(kLoopbackIpv4);
    ports.emplace_back(kLoopbackIpv4);
    ports.emplace_back(kLoopbackIpv4);
    return ports;
}

}  // namespace

NginxServer::NginxServer() : ports_(reservePorts()), server_(prepare(directory_, ports_), ports_) {}

std::vector<std::string> NginxServer::takeBodies() const {
    std::vector<std::string> bodies;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path("bodies"))) {
        bodies.push_back(directory_.read("bodies/" + entry.path().filename().string()));
        std::filesystem::remove(entry.path());
    }
    return bodies;
}

std::vector<int> NginxServer::statusesOf(const std::string& request, std::size_t count) const {
    const std::string words = "\"" + request + " HTTP/1.1\" ";
    const std::string log = directory_.awaitText("access.log", words, count);
    std::vector<int> statuses;
    for (std::size_t at = log.find(words); at != std::string::npos; at = log.find(words, at + 1)) {
        statuses.push_back(std::stoi(log.substr(at + words.size(), 3)));
    }
    return statuses;
}

}  // namespace voinettest
