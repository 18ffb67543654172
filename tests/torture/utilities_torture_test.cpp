// The free functions and the factory without memory.

#include "support/torture.h"
#include "support/transfer.h"
#include "support/workplace.h"
#include "voinet/INetUtils.h"
#include "voinet/lnxLocalConnection.h"
#include "voinet/log.h"
#include "voinet/proxy_detect.h"
#include "voinet/texts.h"
#include "voinet/voitffactory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace tessaro_com::pkm::voInet::torture;

namespace {

/// The answer is `expected` when nothing fails, and false otherwise unless it is still that.
template <class Operation>
void answersOrIsFalse(Operation operation, bool expected) {
    survivesEveryShortage(sceneOf(operation, [expected](bool answer, bool isDisturbed) {
        EXPECT_TRUE(answer == expected || (isDisturbed && !answer));
    }));
}

template <class Operation>
void alwaysAnswers(Operation operation, decltype(operation()) expected) {
    survivesEveryShortage(sceneOf(operation, [expected](const auto& answer, bool /*isDisturbed*/) {
        EXPECT_EQ(answer, expected);
    }));
}

bool isDirectory(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// All directories of a path or none.
class DirectoriesScene : public Scene {
  public:
    void run() override { m_answer = MakeLocalRecursiveDirectory(m_path.c_str()); }

    void check(bool isDisturbed) override {
        EXPECT_FALSE(m_answer);
        const bool isFirst = isDirectory(m_directory.path("one"));
        EXPECT_EQ(isFirst, isDirectory(m_directory.path("one/two/three")));
        EXPECT_TRUE(isFirst || isDisturbed);
    }

  private:
    Workplace m_directory;
    std::string m_path = m_directory.path("one/two/three/file");
    bool m_answer = true;
};

/// Sizes of files, and whether one can be resumed from the other.
class FilesScene : public Scene {
  public:
    FilesScene() {
        m_directory.makeFile("target", std::string(1500, 't'));
        m_directory.makeFile("source", std::string(2000, 's'));
    }

    void run() override {
        m_hasSize = getFileSize(m_target, m_size);
        m_isResumable = isResumable(m_target, m_source, m_offset);
    }

    void check(bool isDisturbed) override {
        EXPECT_TRUE(m_hasSize || isDisturbed);
        EXPECT_EQ(m_size, m_hasSize ? 1500U : 7U);
        EXPECT_TRUE(m_isResumable || isDisturbed);
        EXPECT_EQ(m_offset, m_isResumable ? 1500U : 7U);
    }

  private:
    Workplace m_directory;
    std::string m_target = m_directory.path("target");
    std::string m_source = m_directory.path("source");
    unsigned long m_size = 7;
    unsigned long m_offset = 7;
    bool m_hasSize = false;
    bool m_isResumable = false;
};

class CreationScene : public Scene {
  public:
    explicit CreationScene(voInetProtocol protocol) : m_protocol(protocol) {}

    void run() override { m_transfer.reset(VoInetItfFactory().CreateInterface(m_protocol)); }

    void check(bool isDisturbed) override {
        EXPECT_TRUE(m_transfer != nullptr || isDisturbed);
        if (m_transfer != nullptr) {
            EXPECT_EQ(m_transfer->m_strUserAgent, L"Tessaro AutoUpdate");
        }
    }

  private:
    voInetProtocol m_protocol;
    wire::TransferPtr m_transfer;
};

}  // namespace

TEST(ProxyBypassTorture, NarrowForm_IsFalseWithoutMemory) {
    const std::string host = "http://127.0.0.1:8080/a/path/that/needs/memory";
    const std::string list = "127.0.0.2, 127.0.0.3; http://127.0.0.1:8443/another/path";
    answersOrIsFalse([&] { return isProxyBypassed(host, list, false); }, true);
}

TEST(ProxyBypassTorture, SingleLabelName_IsFalseWithoutMemory) {
    const std::string host = "http://a-single-label-name-that-needs-memory";
    const std::string list;
    answersOrIsFalse([&] { return isProxyBypassed(host, list, true); }, true);
}

TEST(ProxyBypassTorture, WideForm_IsFalseWithoutMemory) {
    const std::wstring host = L"http://127.0.0.1:8080/a/path/that/needs/memory";
    const std::vector<std::wstring> list = {L"127.0.0.2", L"127.0.0.3;127.0.0.1"};
    answersOrIsFalse([&] { return isProxyBypassed(host, list, false); }, true);
}

TEST(ProxyBypassTorture, HostThatIsNotListed_IsNeverTrue) {
    const std::string host = "http://127.0.0.1:8080/a/path/that/needs/memory";
    const std::string list = "127.0.0.2, 127.0.0.3; http://127.0.0.4:8443/another/path";
    answersOrIsFalse([&] { return isProxyBypassed(host, list, true); }, false);
}

TEST(ProxyBypassTorture, AreSitesIdentical_IsFalseWithoutMemory) {
    answersOrIsFalse(
        [] {
            return AreSitesIdentical("http://127.0.0.1:8080/a/long/path",
                                     "https://127.0.0.1/other");
        },
        true);
}

TEST(ProxyBypassTorture, MatchAddrList_NeedsNoMemory) {
    std::string first = "10.0.0.1";
    std::string second = "FE80::1";
    std::string third = "fe80::1";
    const std::vector<char*> a = {first.data(), second.data()};
    const std::vector<char*> b = {third.data()};
    alwaysAnswers([&] { return MatchAddrList(a, b); }, true);
}

TEST(UtilitiesTorture, MakeLocalRecursiveDirectory_MakesAllOrNone) {
    survivesEveryShortage([] { return std::make_unique<DirectoriesScene>(); });
}

TEST(UtilitiesTorture, SizesAndResumes_AreWholeAnswers) {
    survivesEveryShortage([] { return std::make_unique<FilesScene>(); });
}

TEST(UtilitiesTorture, ConvertMSPathtoUnixPath_NeedsNoMemory) {
    std::string path = "a\\path\\that\\needs\\memory\\if\\it\\is\\copied";
    alwaysAnswers([&] { return ConvertMSPathtoUnixPath(path); }, true);
    alwaysAnswers([&] { return ConvertMSPathtoUnixPath(path.data()); }, true);
    EXPECT_EQ(path, "a/path/that/needs/memory/if/it/is/copied");
}

TEST(UtilitiesTorture, PlacesInUrls_NeedNoMemory) {
    const std::string url = "http://[2001:db8::1]:8080/a/long/path/to/a/file";
    int length = 0;
    alwaysAnswers([&] { return findPrefixInUrl(url, length, true); }, std::size_t{4});
    alwaysAnswers([&] { return findPortInUrl(url, length, true); }, std::size_t{19});
}

TEST(UtilitiesTorture, ResultsAndTexts_NeedNoMemory) {
    alwaysAnswers([] { return mapCurlErrorCode(27); }, voInetErrorOutOfMemory);
    alwaysAnswers([] { return std::string_view(voInetErrorName(voInetErrorTimeout)); },
                  "voInetErrorTimeout");
    alwaysAnswers([] { return std::string_view(voInetErrorMeaning(voInetErrorOutOfMemory)); },
                  "memory ran out");
    alwaysAnswers([] { return voInetVersion() != nullptr; }, true);
}

TEST(UtilitiesTorture, LogLines_AreLostInsteadOfThrowing) {
    const DetailedLog log;
    alwaysAnswers(
        [] {
            voinet_Loginfo("voInet", "a line with a number %d", 1);
            voinet_LoginfoDebug("voInet", "a line with a number %d", 2);
            voinet_LogWarn("voInet", "a line with a number %d", 3);
            voinet_LogError("voInet", "a line with a number %d", 4);
            return true;
        },
        true);
}

TEST(FactoryTorture, CreateInterface_GivesAnObjectOrNull) {
    for (const voInetProtocol protocol :
         {voInetProtocolHttp, voInetProtocolFtp, voInetProtocolUnc, voInetProtocolLocal}) {
        survivesEveryShortage([protocol] { return std::make_unique<CreationScene>(protocol); });
    }
}
