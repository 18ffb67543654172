// Transfers whose temporary names are taken by others, before they begin and while they go on.

#include "descriptor.h"
#include "transfers.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ostream>

namespace voinettest {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

constexpr uid_t kNobody = 65534;
constexpr unsigned kHangSeconds = 60;

/// Runs something in a process of its own and returns the wait status; one that hangs is ended by
/// SIGALRM.
pid_t startProcess(const std::function<int()>& work) {
    const pid_t child = ::fork();
    require(child != -1, "making a process");
    if (child == 0) {
        ::alarm(kHangSeconds);
        ::_exit(work());
    }
    return child;
}

int statusOf(pid_t child) {
    int status = -1;
    require(::waitpid(child, &status, 0) == child, "waiting for a process");
    return status;
}

/// What stands under a name, without a look behind a link.
struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    mode_t mode = 0;
    uid_t owner = 0;
    off_t size = 0;
    nlink_t names = 0;

    explicit Identity(const std::string& path) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) == 0) {
            device = status.st_dev;
            inode = status.st_ino;
            mode = status.st_mode;
            owner = status.st_uid;
            size = status.st_size;
            names = status.st_nlink;
        }
    }
    bool operator==(const Identity& other) const {
        return device == other.device && inode == other.inode && mode == other.mode &&
               owner == other.owner && size == other.size && names == other.names;
    }
};

/// Things that a neighbour can put under a name: each makes one and says whether that went well.
using Plant = bool (*)(const std::string& name, const std::string& victim);

bool plantLink(const std::string& name, const std::string& victim) {
    return ::symlink(victim.c_str(), name.c_str()) == 0;
}

bool plantDanglingLink(const std::string& name, const std::string& victim) {
    return ::symlink((victim + "-to-be-made").c_str(), name.c_str()) == 0;
}

bool plantHardLink(const std::string& name, const std::string& victim) {
    return ::link(victim.c_str(), name.c_str()) == 0;
}

bool plantFifo(const std::string& name, const std::string& /*victim*/) {
    return ::mkfifo(name.c_str(), 0666) == 0;
}

bool plantDirectory(const std::string& name, const std::string& /*victim*/) {
    return ::mkdir(name.c_str(), 0755) == 0;
}

bool plantFile(const std::string& name, const std::string& /*victim*/) {
    const Descriptor file(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    return file.isOpen() && ::write(file.get(), "neighbour", 9) == 9;
}

using MakeTransfer = Site::Transfer (Site::*)();

constexpr MakeTransfer kAllTransfers[] = {&Site::httpFresh, &Site::httpReplacing,
                                          &Site::httpResumed, &Site::ftpReplacing,
                                          &Site::ftpResumed};

class HostileNeighbours : public testing::Test {
  protected:
    HostileNeighbours() {
        std::ofstream(victim_) << victimText;
        ::chmod(victim_.c_str(), 0600);
    }
    void TearDown() override { TemporaryNames::removeAll(); }

    void expectVictimUntouched() const {
        EXPECT_EQ(contentOf(victim_), victimText);
        EXPECT_FALSE(std::filesystem::exists(victim_ + "-to-be-made"));
    }

    void expectSuccess(const Site::Transfer& transfer, int status) const {
        ASSERT_EQ(status, 0);
        const TransferReport report = site_.report();
        ASSERT_TRUE(report.isComplete);
        EXPECT_EQ(report.result, 0);
        EXPECT_THAT(report.errorLines, IsEmpty());
        EXPECT_EQ(report.descriptorsLeft, 0);
        EXPECT_TRUE(site_.found() == transfer.after);
    }

    Site site_;
    const std::string victimText = "the victim's";
    const std::string victim_ = site_.path("victim");
};

struct Planted {
    const char* name;
    Plant plant;
};

/// What a test runner shows of it.
void PrintTo(const Planted& planted, std::ostream* output) {
    *output << planted.name;
}

class TakenNames : public HostileNeighbours,
                   public testing::WithParamInterface<std::tuple<Planted, bool>> {
  protected:
    static constexpr std::size_t kTakenNames = 20;

    /// Takes the next temporary names.
    std::vector<std::string> takeNames() const {
        const auto [planted, isForeign] = GetParam();
        std::vector<std::string> names;
        for (std::size_t i = 0; i < kTakenNames; ++i) {
            names.push_back(TemporaryNames::at(i));
            EXPECT_TRUE(planted.plant(names.back(), victim_));
            if (isForeign) {
                // Only root can; others meet their own files instead.
                static_cast<void>(::lchown(names.back().c_str(), kNobody, kNobody));
            }
        }
        return names;
    }
};

TEST_P(TakenNames, BeforeATransfer_AreLeftAloneAndOthersAreFound) {
    for (const MakeTransfer make : kAllTransfers) {
        const Site::Transfer transfer = (site_.*make)();
        SCOPED_TRACE(transfer.name);
        site_.prepare(transfer);
        std::ofstream(victim_) << victimText;
        const std::vector<std::string> names = takeNames();
        const Identity victimBefore(victim_);
        std::vector<Identity> before(names.begin(), names.end());

        const int status = statusOf(startProcess(transfer.work));

        expectSuccess(transfer, status);
        expectVictimUntouched();
        EXPECT_TRUE(Identity(victim_) == victimBefore);
        for (std::size_t i = 0; i < names.size(); ++i) {
            EXPECT_TRUE(Identity(names[i]) == before[i]) << names[i];
        }
        EXPECT_THAT(TemporaryNames::existing(), UnorderedElementsAreArray(names));
    }
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Planted, bool>>& each) {
    const auto& [planted, isForeign] = each.param;
    return std::string(planted.name) + (isForeign ? "_OfAnother" : "_OfTheSameUser");
}

INSTANTIATE_TEST_SUITE_P(
    Neighbours, TakenNames,
    testing::Combine(testing::Values(Planted{"Link", plantLink},
                                     Planted{"DanglingLink", plantDanglingLink},
                                     Planted{"HardLink", plantHardLink}, Planted{"Fifo", plantFifo},
                                     Planted{"Directory", plantDirectory},
                                     Planted{"File", plantFile}),
                     testing::Bool()),
    nameOf);

/// A destination in a directory that everybody may write to, with things that look like what a died
/// process left.
class FalseLeftovers : public HostileNeighbours {
  protected:
    static std::string siblingName(std::size_t number) {
        constexpr std::size_t kDigits = 32;
        return ".kvecomn-" + std::string(kDigits, "0123456789abcdef"[number]);
    }

    std::string plantSibling(std::size_t number, Plant plant) const {
        std::string name = site_.path(siblingName(number));
        EXPECT_TRUE(plant(name, victim_));
        return name;
    }
};

TEST_F(FalseLeftovers, InASharedDirectory_AreLeftAlone) {
    const Site::Transfer transfer = site_.httpReplacing();
    site_.prepare(transfer);
    std::ofstream(victim_) << victimText;
    ::chmod(std::filesystem::path(site_.destination()).parent_path().c_str(), 01777);
    std::vector<std::string> names = {plantSibling(0, plantLink),
                                      plantSibling(1, plantDanglingLink),
                                      plantSibling(2, plantFifo), plantSibling(3, plantDirectory)};
    const std::string file = plantSibling(4, plantFile);
    if (::lchown(file.c_str(), kNobody, kNobody) == 0) {
        names.push_back(file);
    }
    const std::vector<Identity> before(names.begin(), names.end());

    const int status = statusOf(startProcess(transfer.work));

    expectSuccess(transfer, status);
    expectVictimUntouched();
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_TRUE(Identity(names[i]) == before[i]) << names[i];
    }
    // A file of this user with such a name was left by a process of this library.
    EXPECT_EQ(std::filesystem::exists(file), names.back() == file);
}

/// A neighbour that takes temporary names and gives them back, over and over.
class Racer {
  public:
    static constexpr int kRounds = 40000;
    static constexpr std::size_t kContestedNames = 24;

    explicit Racer(std::string victim) : victim_(std::move(victim)) {}

    /// To be called in a process of its own. Returns how many of its things somebody else removed,
    /// 100 at most.
    int run() {
        // As another user, if possible.
        if (::setresgid(kNobody, kNobody, kNobody) == 0) {
            static_cast<void>(::setresuid(kNobody, kNobody, kNobody));
        }
        for (int round = 0; round < kRounds; ++round) {
            turn(static_cast<std::size_t>(round));
        }
        for (std::size_t i = 0; i < kContestedNames; ++i) {
            giveBack(i);
        }
        return lost_;
    }

  private:
    static constexpr Plant kPlants[] = {plantLink, plantFifo, plantDanglingLink, plantFile,
                                        plantDirectory};

    void turn(std::size_t round) {
        // Neither stride divides the other's cycle, so that every thing comes to every name.
        const std::size_t index = round * 7 % kContestedNames;
        if (isHeld_[index]) {
            moveOn(index);
        } else {
            isHeld_[index] =
                kPlants[round % std::size(kPlants)](TemporaryNames::at(index), victim_);
        }
    }

    /// Renames what is held to the next name when that is free, and gives it back otherwise.
    void moveOn(std::size_t index) {
        const std::size_t next = (index + 1) % kContestedNames;
        constexpr unsigned kNoReplace = 1;
        if (!isHeld_[next] && ::renameat2(AT_FDCWD, TemporaryNames::at(index).c_str(), AT_FDCWD,
                                          TemporaryNames::at(next).c_str(), kNoReplace) == 0) {
            isHeld_[index] = false;
            isHeld_[next] = true;
        } else {
            giveBack(index);
        }
    }

    void giveBack(std::size_t index) {
        constexpr int kMostLost = 100;
        if (isHeld_[index] && std::remove(TemporaryNames::at(index).c_str()) != 0) {
            lost_ += lost_ < kMostLost ? 1 : 0;
        }
        isHeld_[index] = false;
    }

    std::string victim_;
    std::array<bool, kContestedNames> isHeld_{};
    int lost_ = 0;
};

class RacedNames : public HostileNeighbours {};

TEST_F(RacedNames, DuringTransfers_NothingIsSpoiltAndNothingOfTheNeighbourRemoved) {
    for (const MakeTransfer make : kAllTransfers) {
        site_.prepare((site_.*make)());
    }
    std::ofstream(victim_) << victimText;
    const pid_t racer = startProcess([this] { return Racer(victim_).run(); });
    int racerStatus = -1;
    int transfers = 0;
    while (::waitpid(racer, &racerStatus, WNOHANG) == 0) {
        const Site::Transfer transfer =
            (site_.*
             kAllTransfers[static_cast<std::size_t>(transfers) % std::size(kAllTransfers)])();
        SCOPED_TRACE(transfer.name);
        site_.prepareDestination(transfer);
        const int status = statusOf(startProcess(transfer.work));
        expectSuccess(transfer, status);
        ++transfers;
    }

    EXPECT_EQ(racerStatus, 0) << "the neighbour lost something";
    EXPECT_GT(transfers, 0);
    expectVictimUntouched();
    EXPECT_THAT(TemporaryNames::existing(), IsEmpty());
}

}  // namespace
}  // namespace voinettest
