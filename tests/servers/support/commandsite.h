#ifndef VOINET_TESTS_COMMANDSITE_H
#define VOINET_TESTS_COMMANDSITE_H

#include "developmentserver.h"
#include "process.h"
#include "temporarydirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace voinettest {

/// What the command's exit statuses are called in the tests.
enum Status {
    statusOk = 0,
    statusFailed = 1,
    statusUsage = 2,
    statusNotFound = 3,
    statusRefused = 4,
    statusUnreachable = 5,
    statusServerError = 6,
    statusLocalFile = 7,
    statusTls = 8,
    statusIntegrity = 9,
    statusUpdateKeys = 10,
    statusNewIdentity = 11,
    statusBusy = 12,
    statusNoPackage = 13,
    statusInvalidRequest = 14,
    statusCancelled = 130
};

using Words = std::vector<std::string>;
using Json = nlohmann::json;

/// Bytes in which every position looks different, so that a wrong offset shows.
inline std::string pattern(std::size_t size, unsigned seed = 1) {
    std::string bytes(size, '\0');
    std::uint32_t state = seed;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(static_cast<unsigned char>(state >> 24));
    }
    return bytes;
}

/// A repository, a folder for downloads, and the command.
class CommandSite : public testing::Test {
  protected:
    /// A command that was built for another machine is started by an emulator.
    static Command makeCommand(const Words& words,
                               const std::map<std::string, std::string>& environment = {}) {
#ifdef VOINET_EMULATOR
        Command command{{VOINET_EMULATOR, VOINET_PROGRAM}, environment};
#else
        Command command{{VOINET_PROGRAM}, environment};
#endif
        command.words.insert(command.words.end(), words.begin(), words.end());
        return command;
    }
    static ProcessResult run(const Words& words) {
        return runToEnd(makeCommand(words));
    }

    static std::string address(std::uint16_t port) {
        return "127.0.0.1:" + std::to_string(port);
    }
    std::string local(const std::string& name = "a.bin") const {
        return (downloads.path() / name).string();
    }
    /// `voinet get` of `remote` from a server, into a.bin.
    Words get(std::uint16_t port, const std::string& remote, const Words& more = {}) const {
        Words words = {"get", "--host", address(port), remote, local()};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    /// The names in the folder of downloads.
    std::set<std::string> landed() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(downloads.path())) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }
    static std::vector<Json> events(const std::string& output) {
        std::vector<Json> objects;
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            objects.push_back(Json::parse(line));
        }
        return objects;
    }
    /// The last event that is no log line: the library may log while the command ends.
    static Json lastOf(const std::string& output) {
        Json last;
        for (const Json& event : events(output)) {
            if (event.at("event") != "log") {
                last = event;
            }
        }
        return last;
    }
    /// Waits for the first bytes of a download that was started with --json.
    static void awaitProgress(Process& process) {
        while (const auto line = process.readLine()) {
            const Json event = Json::parse(*line);
            if (event.at("event") == "progress" && event.at("done").get<std::uint64_t>() > 0) {
                return;
            }
        }
        FAIL() << "the download ended: " << process.standardOutput() << process.standardError();
    }
    /// Starts a download, stops it in the middle, and expects it to end as cancelled.
    static void runAndStop(const Words& words, int signal) {
        Process process(makeCommand(words));
        awaitProgress(process);
        process.signal(signal);
        ASSERT_EQ(process.wait(), statusCancelled) << process.standardOutput();
        const Json last = lastOf(process.standardOutput());
        EXPECT_EQ(last.at("event"), "result");
        EXPECT_EQ(last.at("exitName"), "cancelled");
    }

    TemporaryDirectory repository;
    TemporaryDirectory downloads;
};

}  // namespace voinettest

#endif
