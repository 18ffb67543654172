#ifndef VOINET_TESTS_SERVERSITE_H
#define VOINET_TESTS_SERVERSITE_H

#include "developmentserver.h"
#include "rawclient.h"
#include "temporarydirectory.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

// What the tests of the development server have in common.

namespace voinettest {

namespace fs = std::filesystem;

inline constexpr const char* kProgram = VOINET_SERVER_PROGRAM;

/// Every byte depends on its position, so that an offset error shows.
inline std::string positionDependent(std::size_t size) {
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        data[i] = static_cast<char>((i * 31 + i / 251) & 0x7FU);
    }
    return data;
}

/// What is in the files of a Site.
inline const std::string& fileData() {
    static const std::string kData = positionDependent(1000);
    return kData;
}

/// A repository directory; what lies beside it must never be served.
class Site {
  public:
    Site() {
        folder_.write("repository/file.bin", fileData());
        folder_.write("repository/folder/inner.bin", fileData());
        folder_.write("repository/empty.bin", "");
        folder_.write("secret.txt", kSecret);
    }

    fs::path root() const { return folder_.path() / "repository"; }
    fs::path outside() const { return folder_.path(); }
    std::string write(const std::string& name, const std::string& data) const {
        return folder_.write("repository/" + name, data);
    }
    std::string writeOutside(const std::string& name, const std::string& data) const {
        return folder_.write(name, data);
    }
    std::string readOutside(const std::string& name) const { return folder_.read(name); }

    static constexpr const char* kSecret = "not for everybody";

  private:
    TemporaryDirectory folder_;
};

inline DevelopmentServer serve(const Site& site, const std::vector<std::string>& options = {},
                               const std::map<std::string, std::string>& environment = {}) {
    return {kProgram, site.root().string(), options, environment};
}

inline RawReply get(const DevelopmentServer& server, const std::string& target,
                    const std::vector<std::string>& headers = {}) {
    return exchange(server.port(), "GET", target, headers);
}

inline RawReply head(const DevelopmentServer& server, const std::string& target,
                     const std::vector<std::string>& headers = {}) {
    return exchange(server.port(), "HEAD", target, headers);
}

/// The headers of a request as an agent posts it, besides Content-Length.
inline const std::vector<std::string>& agentHeaders() {
    static const std::vector<std::string> kHeaders = {
        "Host: localhost",
        "User-Agent: Mozilla/4.0 (compatible; KESTL/3.0; Windows)",
        "Accept: application/octet-stream",
        "Accept-Language: en-us",
        "Content-Type: application/octet-stream",
    };
    return kHeaders;
}

/// The head of a POST request with these headers and no others.
inline std::string postHead(const std::string& target, const std::vector<std::string>& headers) {
    std::string head = "POST " + target + " HTTP/1.1\r\n";
    for (const std::string& header : headers) {
        head += header + "\r\n";
    }
    return head + "\r\n";
}

/// A request as an agent posts it.
inline std::string agentRequest(const std::string& body, const std::string& target = "/exchange",
                                std::vector<std::string> moreHeaders = {}) {
    moreHeaders.insert(moreHeaders.begin(), agentHeaders().begin(), agentHeaders().end());
    moreHeaders.push_back("Content-Length: " + std::to_string(body.size()));
    return postHead(target, moreHeaders) + body;
}

inline bool isOneLine(const std::string& text) {
    return text.size() > 1 && text.find('\n') == text.size() - 1;
}

}  // namespace voinettest

#endif
