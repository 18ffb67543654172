#include "serverdirectory.h"

#include "deadline.h"
#include "descriptor.h"
#include "process.h"
#include "support/body.h"

#include <poll.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace voinettest {
namespace {

std::string readTemplate(const std::string& name) {
    const std::string path = std::string(VOINET_SERVER_CONFIG_DIRECTORY) + "/" + name;
    std::ifstream input(path);
    if (!input) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(input), {}};
}

void replaceAll(std::string& text, const std::string& word, const std::string& value) {
    for (std::size_t at = text.find(word); at != std::string::npos;
         at = text.find(word, at + value.size())) {
        text.replace(at, word.size(), value);
    }
}

std::size_t occurrences(const std::string& text, const std::string& word) {
    std::size_t count = 0;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        ++count;
    }
    return count;
}

std::string tail(const std::string& text) {
    constexpr std::size_t kLongest = 2000;
    return text.substr(text.size() - std::min(text.size(), kLongest));
}

// Tells that something happened to a file.
class FileWatch {
  public:
    explicit FileWatch(const std::string& path)
        : events_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        require(events_.isOpen(), "watching files");
        require(::inotify_add_watch(events_.get(), path.c_str(), IN_MODIFY) >= 0,
                "watching " + path);
    }

    // False at the deadline.
    bool await(Deadline deadline) {
        pollfd event{events_.get(), POLLIN, 0};
        const bool happened = ::poll(&event, 1, deadline.remainingMilliseconds()) == 1;
        std::array<char, 4096> ignored{};
        while (::read(events_.get(), ignored.data(), ignored.size()) > 0) {
        }
        return happened;
    }

  private:
    Descriptor events_;
};

}  // namespace

ServerDirectory::ServerDirectory() {
    std::filesystem::permissions(directory_.path(), std::filesystem::perms(0755));
}

std::string ServerDirectory::makeFolder(const std::string& name) const {
    std::filesystem::create_directories(path(name));
    return path(name);
}

std::string ServerDirectory::configure(const std::string& name, Words words) const {
    words["DIRECTORY"] = path();
    return write(name, fillIn(name + ".in", words));
}

std::string ServerDirectory::awaitText(const std::string& name, const std::string& text,
                                       std::size_t count) const {
    const Deadline deadline = Deadline::generous();
    FileWatch watch(path(name));
    while (true) {
        std::string content = read(name);
        if (occurrences(content, text) >= count) {
            return content;
        }
        if (!watch.await(deadline)) {
            throw std::runtime_error(path(name) + " lacks '" + text + "':\n" + tail(content));
        }
    }
}

std::string fillIn(const std::string& templateName, const Words& words) {
    std::string text = readTemplate(templateName);
    for (const auto& [word, value] : words) {
        replaceAll(text, "@" + word + "@", value);
    }
    const std::size_t left = text.find('@');
    if (left != std::string::npos) {
        throw std::runtime_error(templateName + " has a word without a value: " +
                                 text.substr(left, text.find('\n', left) - left));
    }
    return text;
}

std::string passwordLine(const std::string& user, const std::string& password) {
    const ProcessResult hash = runToEnd({{"openssl", "passwd", "-6", password}});
    if (hash.status != 0) {
        throw std::runtime_error("openssl passwd: " + hash.standardError);
    }
    return user + ":" + hash.standardOutput;
}

std::string_view servedText(std::size_t size) {
    static const std::string kText = tessaro_com::pkm::voInet::wire::makeBody(kLargeSize);
    return std::string_view(kText).substr(0, size);
}

void makeServedFiles(const ServerDirectory& directory) {
    directory.write("files/SiteStat.xml", "<SiteStatus/>");
    directory.write("files/empty.bin", "");
    directory.write("files/one.bin", std::string(servedText(1)));
    directory.write("files/medium.bin", std::string(servedText(kMediumSize)));
    directory.write("files/large.bin", std::string(servedText(kLargeSize)));
}

}  // namespace voinettest
