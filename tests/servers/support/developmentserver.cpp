#include "developmentserver.h"

#include <regex>
#include <stdexcept>

namespace voinettest {
namespace {

Command makeCommand(const std::string& program, const std::string& directory,
                    const std::vector<std::string>& options,
                    const std::map<std::string, std::string>& environment) {
    Command command{{program, "--port", "0"}, environment};
    command.words.insert(command.words.end(), options.begin(), options.end());
    command.words.push_back(directory);
    return command;
}

}  // namespace

std::uint16_t portOfLine(const std::string& listeningLine) {
    std::smatch match;
    const bool found =
        std::regex_search(listeningLine, match, std::regex("https?://[^/]*:([0-9]+)/"));
    return found ? static_cast<std::uint16_t>(std::stoi(match[1])) : std::uint16_t{0};
}

DevelopmentServer::DevelopmentServer(const std::string& program, const std::string& directory,
                                     const std::vector<std::string>& options,
                                     const std::map<std::string, std::string>& environment)
    : process_(makeCommand(program, directory, options, environment)),
      listeningLine_(process_.readLine().value_or("")),
      port_(portOfLine(listeningLine_)) {
    if (port_ == 0) {
        process_.wait();
        throw std::runtime_error("the server does not listen: " + process_.standardError());
    }
}

}  // namespace voinettest
