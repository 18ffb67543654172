#include "installation.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace voinettest {
namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;

constexpr const char* kLibraryFolder = VOINET_LIBDIR "/";

Names inFolder(const std::string& folder, const Names& names) {
    Names paths;
    for (const std::string& name : names) {
        paths.insert(folder + name);
    }
    return paths;
}

Names joined(const std::vector<Names>& sets) {
    Names all;
    for (const Names& names : sets) {
        all.insert(names.begin(), names.end());
    }
    return all;
}

}  // namespace

std::string runChecked(const std::vector<std::string>& words, const Environment& environment) {
    const ProcessResult result = runToEnd({words, environment});
    if (result.status != 0) {
        std::string message;
        for (const std::string& word : words) {
            message += word + ' ';
        }
        message += "ended with " + std::to_string(result.status) + '\n';
        throw std::runtime_error(message + result.standardOutput + result.standardError);
    }
    return result.standardOutput;
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::string contentOf(const fs::path& file) {
    std::ifstream input(file, std::ios::binary);
    if (!input) {
        throw std::runtime_error("cannot read " + file.string());
    }
    return {std::istreambuf_iterator<char>(input), {}};
}

std::string sampleBytes() {
    std::string bytes(300'000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>((i * 31 + i / 251) & 0x7FU);
    }
    return bytes;
}

Names filesBelow(const fs::path& directory) {
    Names files;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        if (entry.is_symlink() || !entry.is_directory()) {
            files.insert(entry.path().lexically_relative(directory).string());
        }
    }
    return files;
}

Names filesMentioning(const fs::path& directory, const std::string& text) {
    Names found;
    for (const std::string& file : filesBelow(directory)) {
        const fs::path path = directory / file;
        const std::string content =
            fs::is_symlink(path) ? fs::read_symlink(path).string() : contentOf(path);
        if (content.find(text) != std::string::npos) {
            found.insert(file);
        }
    }
    return found;
}

Names runtimeFiles() {
    return inFolder(kLibraryFolder, {"libkvecomn.so.4", "libkvecomn.so." VOINET_VERSION,
                                     "libvoinet.so.4", "libvoinet.so." VOINET_VERSION});
}

Names headerFiles() {
    return joined(
        {inFolder("include/kvecomn/", {"anetworkutil.h", "astring.h", "hostlog.h",
                                       "kvecomn_export.h", "log.h", "telfile.h", "telmcomn.h"}),
         inFolder("include/voinet/", {"FTPConnection.h",
                                      "HTTPConnection.h",
                                      "INetUtils.h",
                                      "callbacks.h",
                                      "cbmgr.h",
                                      "chttphelper.h",
                                      "cnetconnection.h",
                                      "lnxLocalConnection.h",
                                      "lnxuncconnection.h",
                                      "log.h",
                                      "netsessionsink.h",
                                      "proxy_detect.h",
                                      "texts.h",
                                      "transferitf.h",
                                      "transfermonitor.h",
                                      "voinet.h",
                                      "voinet_export.h",
                                      "voinetcreator.h",
                                      "voineterror.h",
                                      "voinetoption.h",
                                      "voinetprotocol.h",
                                      "voitffactory.h"})});
}

Names developmentFiles() {
    return joined(
        {headerFiles(),
         inFolder(kLibraryFolder, {"libkvecomn.so", "libvoinet.so", "pkgconfig/voinet.pc"}),
         inFolder(VOINET_LIBDIR "/cmake/voinet/",
                  {"voinetConfig.cmake", "voinetConfigVersion.cmake",
                   "voinetTargets-" VOINET_CONFIGURATION ".cmake", "voinetTargets.cmake"})});
}

Names toolFiles() {
    return {"bin/voinet", "share/man/man1/voinet.1"};
}

Names allFiles() {
    return joined({runtimeFiles(), developmentFiles(), toolFiles()});
}

// Without debug information, which rightly names the sources.
MovedInstallation::MovedInstallation() {
    runChecked({VOINET_CMAKE, "--install", VOINET_BUILD_DIRECTORY, "--strip", "--prefix",
                firstPrefix().string()});
    fs::rename(firstPrefix(), prefix());
}

}  // namespace voinettest
