#include "manyfiles.h"
#include "process.h"
#include "runningserver.h"
#include "serverdirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

// Many processes of one machine that download at the same moment.

namespace voinettest {
namespace {

constexpr std::size_t kProcessCount = 64;

/// nginx with room for all of them at once.
class CrowdedServer {
  public:
    CrowdedServer() : server_(prepare(directory_, ports_.front()), ports_) {}

    std::string hostAndPort() const { return "127.0.0.1:" + ports_.front().text(); }

    /// Waits until so many answers of that status are logged.
    void awaitAnswers(int status, std::size_t count) const {
        directory_.awaitText("access.log", " HTTP/1.1\" " + std::to_string(status) + " ", count);
    }

  private:
    static std::vector<std::string> prepare(const ServerDirectory& directory,
                                            const ReservedPort& port) {
        directory.write("files/SiteStat.xml", "<site/>");
        for (std::size_t number = 0; number < kManyFilesCount; ++number) {
            directory.write("files/" + manyFilesName(number), manyFilesContent(number));
        }
        const std::string path = directory.path();
        const std::string configuration = directory.write("nginx.conf", R"(daemon off;
worker_processes 1;
pid )" + path + R"(/nginx.pid;
error_log stderr;
events {
    worker_connections 512;
}
http {
    access_log )" + path + R"(/access.log;
    client_body_temp_path )" + path + R"(/bodies;
    proxy_temp_path )" + path + R"(/proxy;
    fastcgi_temp_path )" + path + R"(/fastcgi;
    uwsgi_temp_path )" + path + R"(/uwsgi;
    scgi_temp_path )" + path + R"(/scgi;
    server {
        listen 127.0.0.1:)" + port.text() + R"(;
        root )" + path + R"(/files;
    }
}
)");
        return {"/usr/sbin/nginx", "-e", "stderr", "-p", path, "-c", configuration};
    }

    ServerDirectory directory_;
    std::vector<ReservedPort> ports_{std::vector<ReservedPort>(1)};
    RunningServer server_;
};

/// What every process waits for.
class Gate {
  public:
    Gate() : path_((directory_.path() / "gate").string()) {
        require(::mkfifo(path_.c_str(), S_IRUSR | S_IWUSR) == 0, "making a FIFO");
    }

    const std::string& path() const { return path_; }
    /// Lets all of them through that have come or will come.
    void open() { opened_.open(path_, std::ios::in | std::ios::out); }

  private:
    TemporaryDirectory directory_;
    std::string path_;
    std::fstream opened_;
};

Command workerCommand(const CrowdedServer& server, const std::string& folder, const Gate& gate) {
    Command command{{VOINET_LOAD_WORKER}};
    command.words.insert(command.words.end(), {server.hostAndPort(), folder, gate.path()});
    return command;
}

}  // namespace

TEST(ManyProcesses, SixtyFourAtOnce_EachGetsItsFilesWholeAndAlone) {
    const CrowdedServer server;
    const TemporaryDirectory directory;
    Gate gate;
    std::vector<std::unique_ptr<Process>> processes;
    for (std::size_t number = 0; number < kProcessCount; ++number) {
        const auto folder = directory.path() / std::to_string(number);
        std::filesystem::create_directory(folder);
        processes.push_back(
            std::make_unique<Process>(workerCommand(server, folder.string(), gate)));
    }
    for (const auto& process : processes) {
        ASSERT_EQ(process->readLine(), "ready") << process->standardError();
    }

    gate.open();

    for (std::size_t number = 0; number < kProcessCount; ++number) {
        EXPECT_EQ(processes[number]->wait(), 0) << processes[number]->standardError();
        const auto folder = directory.path() / std::to_string(number);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), kManyFilesCount)
            << "nothing lies beside the files";
    }
    // A check and a transfer for each resumed file, and nobody started over.
    const std::size_t resumed = kManyFilesCount / 2;
    EXPECT_NO_THROW(server.awaitAnswers(206, kProcessCount * resumed * 2));
    EXPECT_NO_THROW(server.awaitAnswers(200, kProcessCount * (kManyFilesCount - resumed + 1)));
}

}  // namespace voinettest
