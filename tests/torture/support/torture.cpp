#include "support/torture.h"

#include "kvecomn/hostlog.h"
#include "support/event.h"
#include "support/leakguard.h"
#include "voinet/texts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <limits>
#include <string>
#include <thread>

namespace tessaro_com::pkm::voInet::torture {

namespace {

/// Further failures of a test tell nothing new.
constexpr int kMostFailures = 12;

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

std::atomic<std::size_t> errorsLogged{0};

/// Log lines go nowhere, errors are counted, and no memory is taken on the way.
class QuietLog {
  public:
    QuietLog() {
        hostLogSetHandler([](HostLogLevel level, const wchar_t*, const wchar_t*) {
            errorsLogged += level == HostLogLevel::error ? 1 : 0;
        });
    }
    ~QuietLog() { hostLogSetHandler({}); }

    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;
};

int failuresOfTest() {
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

/// One run. Answers whether an allocation failed.
bool runOnce(const MakeScene& make, Shortage shortage, std::size_t first, Exceptions exceptions) {
    const wire::LeakGuard leaks;
    bool isDisturbed = false;
    {
        const std::unique_ptr<Scene> scene = make();
        errorsLogged = 0;
        const Ordeal ordeal = runShort(shortage, first, [&] { scene->run(); });
        isDisturbed = ordeal.failures > 0;
        EXPECT_TRUE(!ordeal.threw || exceptions == Exceptions::areAllowed)
            << "an exception came out";
        scene->check(isDisturbed);
    }
    EXPECT_EQ(blocksLeft(), 0U) << "blocks of memory were left";
    EXPECT_THAT(leaks.leftovers(), testing::IsEmpty());
    return isDisturbed;
}

void runUndisturbed(const MakeScene& make, Exceptions exceptions) {
    SCOPED_TRACE("undisturbed");
    runOnce(make, Shortage::once, kNever, exceptions);
}

/// The C library keeps the stacks of a few threads that have ended, with memory of theirs.
void keepStacks() {
    std::array<std::thread, 4> threads;
    wire::Event end;
    for (std::thread& thread : threads) {
        thread = std::thread([&end] { end.await(); });
    }
    end.set();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Whatever libraries make once in a process and keep.
void warmUp(const MakeScene& make) {
    keepStacks();
    const std::unique_ptr<Scene> scene = make();
    scene->run();
}

}  // namespace

void survivesEveryShortage(const MakeScene& make, const std::vector<Shortage>& shortages,
                           Exceptions exceptions) {
    const QuietLog quiet;
    warmUp(make);
    runUndisturbed(make, exceptions);
    for (const Shortage shortage : shortages) {
        bool isDisturbed = true;
        std::size_t first = 0;
        while (isDisturbed && failuresOfTest() < kMostFailures) {
            ++first;
            SCOPED_TRACE((shortage == Shortage::once ? "allocation " : "from allocation ") +
                         std::to_string(first));
            isDisturbed = runOnce(make, shortage, first, exceptions);
        }
        testing::Test::RecordProperty(shortage == Shortage::once ? "once" : "for_good",
                                      static_cast<int>(first - 1));
    }
}

std::size_t errorLines() {
    return errorsLogged;
}

void expectResult(voInetError result, voInetError expected, bool isDisturbed) {
    if (!isDisturbed) {
        EXPECT_EQ(result, expected);
        return;
    }
    EXPECT_STRNE(voInetErrorName(result), "voInetError?") << static_cast<int>(result);
    EXPECT_NE(result, voInetErrorCancelled) << "nobody asked for that";
}

DetailedLog::DetailedLog() {
    hostLogSetDetailEnabled(true);
}

DetailedLog::~DetailedLog() {
    hostLogSetDetailEnabled(false);
}

}  // namespace tessaro_com::pkm::voInet::torture
