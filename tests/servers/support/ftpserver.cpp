#include "ftpserver.h"

#include "loopback.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <functional>
#include <optional>

namespace voinettest {
namespace {

std::string reply(const std::string& text) {
    return text + "\r\n";
}

/// The talk with one client.
class FtpTalk {
  public:
    FtpTalk(const FtpSite& site, Descriptor control) : site_(site), control_(std::move(control)) {}

    /// Answers commands until the client goes; `note` gets each.
    void run(const std::function<void(const std::string&)>& note) {
        bool goesOn = answer("", "220 ready");
        while (goesOn) {
            const auto line = readLine();
            if (!line) {
                return;
            }
            note(*line);
            const auto blank = line->find(' ');
            argument_ = blank == std::string::npos ? "" : line->substr(blank + 1);
            goesOn = handle(line->substr(0, blank));
        }
    }

  private:
    bool handle(const std::string& command) {
        if (command == "USER") {
            user_ = argument_;
            return answer(command, "331 and the password?");
        }
        if (command == "PASS") {
            const bool isKnown =
                site_.user.empty() || (user_ == site_.user && argument_ == site_.password);
            return answer(command, isKnown ? "230 come in" : "530 Login incorrect");
        }
        if (command == "PWD") {
            return answer(command, "257 \"/\" is here");
        }
        if (command == "CWD") {
            folder_ += argument_ + "/";
            return answer(command, "250 done");
        }
        if (command == "TYPE") {
            return answer(command, "200 done");
        }
        if (command == "EPSV") {
            return answer(command, openData());
        }
        if (command == "SIZE") {
            const auto file = find();
            return answer(command, file ? "213 " + std::to_string(file->size()) : kNoFile);
        }
        if (command == "REST") {
            offset_ = std::stoul(argument_);
            return answer(command, "350 from there");
        }
        if (command == "RETR") {
            return retrieve();
        }
        if (command == "QUIT") {
            answer(command, "221 bye");
            return false;
        }
        return answer(command, "502 what?");
    }

    bool answer(const std::string& command, const std::string& usual) {
        const auto scripted = site_.replies.find(command);
        return sendAll(control_, reply(scripted == site_.replies.end() ? usual : scripted->second));
    }

    std::string openData() {
        data_ = boundSocket();
        require(::listen(data_.get(), 1) == 0, "listening for data");
        return "229 here (|||" + std::to_string(portOf(data_)) + "|)";
    }

    std::optional<std::string> find() const {
        // A client that asks for nothing gets nothing, too.
        const std::string path = folder_ + argument_ + (argument_.empty() ? "?" : "");
        const auto file = site_.files.find(path.substr(path.find_first_not_of('/')));
        return file == site_.files.end() ? std::nullopt : std::optional(file->second);
    }

    bool retrieve() {
        const auto file = find();
        if (!file || site_.replies.count("RETR") > 0) {
            return answer("RETR", kNoFile);
        }
        if (!sendAll(control_, reply("150 here it comes"))) {
            return false;
        }
        Descriptor connection(::accept4(data_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const std::string rest = file->substr(std::min(offset_, file->size()));
        const bool isSent = sendAll(connection, rest.substr(0, site_.stallAfter));
        if (rest.size() > site_.stallAfter) {
            while (readLine()) {
            }
            return false;
        }
        connection.close();
        offset_ = 0;
        return sendAll(control_, reply(isSent ? "226 done" : "426 closed"));
    }

    /// The next command; none when the client has gone.
    std::optional<std::string> readLine() {
        while (input_.find("\r\n") == std::string::npos) {
            std::array<char, 1024> block{};
            const ssize_t count = ::recv(control_.get(), block.data(), block.size(), 0);
            if (count <= 0) {
                return std::nullopt;
            }
            input_.append(block.data(), static_cast<std::size_t>(count));
        }
        const auto end = input_.find("\r\n");
        const std::string line = input_.substr(0, end);
        input_.erase(0, end + 2);
        return line;
    }

    static constexpr const char* kNoFile = "550 No such file";

    const FtpSite& site_;
    Descriptor control_;
    Descriptor data_;
    std::string input_;
    std::string argument_;
    std::string user_;
    std::string folder_;
    std::size_t offset_ = 0;
};

}  // namespace

FtpServer::FtpServer(FtpSite site)
    : site_(std::move(site)), listener_(boundSocket()), port_(portOf(listener_)) {
    require(::listen(listener_.get(), 8) == 0, "listening");
    thread_ = std::thread([this] { serve(); });
}

FtpServer::~FtpServer() {
    ending_ = true;
    // Wakes accept().
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
}

std::vector<std::string> FtpServer::commands() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return commands_;
}

void FtpServer::serve() {
    while (!ending_) {
        Descriptor control(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (control.isOpen()) {
            FtpTalk(site_, std::move(control)).run([this](const std::string& line) { note(line); });
        }
    }
}

void FtpServer::note(const std::string& command) {
    const std::lock_guard<std::mutex> lock(mutex_);
    commands_.push_back(command);
}

}  // namespace voinettest
