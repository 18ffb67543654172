// The callback manager without memory: the local file is the old one or the whole new one.

#include "support/body.h"
#include "support/temporarydirectory.h"
#include "support/torture.h"
#include "support/workplace.h"
#include "voinet/cbmgr.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string>

using namespace tessaro_com::pkm::voInet;
using namespace tessaro_com::pkm::voInet::torture;

namespace {

constexpr std::size_t kFileSize = 5000;
constexpr std::size_t kPartialSize = 3000;
constexpr long kStart = static_cast<long>(kPartialSize) - 1024;

/// A manager over a partial file, at its resume offset.
class ManagerScene : public Scene {
  protected:
    explicit ManagerScene(bool isPrefixCheck = false, bool isMade = true)
        : m_isPrefixCheck(isPrefixCheck) {
        m_directory.makeFile(kLocalName, oldFile());
        if (isMade) {
            makeManager();
        }
    }

    void makeManager() {
        m_manager.emplace(CallbackManager::TransferDownload, m_localPath, m_site, m_host, m_url,
                          kStart, m_isPrefixCheck);
    }

    CallbackManager& manager() { return *m_manager; }

    static std::string oldFile() { return wire::makeBody(kPartialSize); }
    static std::string newFile() { return wire::makeBody(kFileSize); }

    /// Writes what is missing, from the start position on. True when all of it was taken.
    bool writeRest() {
        std::string rest = newFile().substr(static_cast<std::size_t>(kStart));
        return m_manager->WriteData(rest.data(), rest.size()) == rest.size();
    }

    std::string localFile() const { return wire::readFile(m_directory.path(kLocalName)); }

    void expectNothingBeside() const {
        for (const std::string& name : m_directory.entries()) {
            EXPECT_EQ(name, kLocalName);
        }
    }

  private:
    static constexpr const char* kLocalName = "local.zip";

    bool m_isPrefixCheck;
    Workplace m_directory;
    std::wstring m_localPath = wire::widened(m_directory.path(kLocalName));
    std::wstring m_site = L"a-site-with-a-long-name";
    std::wstring m_host = L"a-host-with-a-long-name.example.org";
    std::wstring m_url = L"http://a-host-with-a-long-name.example.org/file.zip";
    std::optional<CallbackManager> m_manager;
};

class ConstructionScene : public ManagerScene {
  public:
    ConstructionScene() : ManagerScene(false, false) {}
    void run() override { makeManager(); }
    void check(bool /*isDisturbed*/) override { EXPECT_TRUE(localFile() == oldFile()); }
};

class FinishScene : public ManagerScene {
  public:
    FinishScene() { EXPECT_TRUE(writeRest()); }

    void run() override { m_answer = manager().FinishTransfer(); }

    void check(bool isDisturbed) override {
        EXPECT_TRUE(m_answer || isDisturbed);
        const std::string now = localFile();
        EXPECT_TRUE(now == newFile() || (isDisturbed && now == oldFile())) << "a spoilt file";
        expectNothingBeside();
    }

  private:
    bool m_answer = false;
};

class FlushScene : public ManagerScene {
  public:
    FlushScene() { EXPECT_TRUE(writeRest()); }

    void run() override { m_answer = manager().Flush(); }

    /// The transfer is made once more, with memory.
    void check(bool isDisturbed) override {
        EXPECT_TRUE(m_answer || isDisturbed);
        const bool isTaken = writeRest();
        EXPECT_TRUE(isTaken || isDisturbed);
        manager().FinishTransfer();
        const std::string now = localFile();
        EXPECT_TRUE(now == newFile() || (!isTaken && now == oldFile())) << "a spoilt file";
        expectNothingBeside();
    }

  private:
    bool m_answer = false;
};

class PrefixScene : public ManagerScene {
  public:
    PrefixScene() : ManagerScene(true) { EXPECT_TRUE(writeRest()); }
    void run() override { m_answer = manager().IsPrefixMatched(); }
    void check(bool /*isDisturbed*/) override { EXPECT_TRUE(m_answer); }

  private:
    bool m_answer = false;
};

class DirectoryScene : public ManagerScene {
  public:
    void run() override { m_answer = manager().MakeRecursiveDir(m_path.c_str()); }

    /// True also stands for "there was nothing to do", so only a made directory can be asked for.
    void check(bool isDisturbed) override {
        struct stat status;
        const bool isMade = stat(m_directory.path("one/two").c_str(), &status) == 0;
        EXPECT_TRUE(isDisturbed || (m_answer && isMade));
        EXPECT_EQ(m_answer, isMade);
    }

  private:
    Workplace m_directory;
    std::string m_path = m_directory.path("one/two/file");
    bool m_answer = false;
};

}  // namespace

TEST(ManagerTorture, Construction_LeavesNothingBehindWhenItThrows) {
    survivesEveryShortage([] { return std::make_unique<ConstructionScene>(); },
                          {Shortage::once, Shortage::forGood}, Exceptions::areAllowed);
}

TEST(ManagerTorture, FinishTransfer_LeavesTheOldFileOrTheWholeNewOne) {
    survivesEveryShortage([] { return std::make_unique<FinishScene>(); });
}

TEST(ManagerTorture, Flush_LeadsToAShortCountOrAWholeFile) {
    survivesEveryShortage([] { return std::make_unique<FlushScene>(); });
}

TEST(ManagerTorture, IsPrefixMatched_NeedsNoMemory) {
    survivesEveryShortage([] { return std::make_unique<PrefixScene>(); });
}

TEST(ManagerTorture, MakeRecursiveDir_IsTrueWhenItWasMade) {
    survivesEveryShortage([] { return std::make_unique<DirectoryScene>(); });
}
