// The functions of the host library when memory runs out: at each request for memory in turn, once
// for that request only and once for all that follow.

#include "kvecomn/anetworkutil.h"
#include "kvecomn/hostlog.h"
#include "kvecomn/log.h"
#include "kvecomn/telfile.h"
#include "testsupport.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <cstdlib>
#include <cwchar>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

constexpr int kNever = -1;

/// Which requests for memory fail; only tests set it.
struct MemoryPlan {
    /// Requests until the failing one.
    int left = kNever;
    bool failsFromThereOn = false;
    bool hasFailed = false;
};

thread_local MemoryPlan plan;

void* allocate(std::size_t size) {
    if (plan.left == 0) {
        plan.hasFailed = true;
        plan.left = plan.failsFromThereOn ? 0 : kNever;
        throw std::bad_alloc();
    }
    plan.left -= plan.left > 0 ? 1 : 0;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

// In the place of the C++ library's, for the libraries as well.
void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

constexpr int kMostRequests = 500;

std::size_t openDescriptors() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += entry.path().empty() ? 0U : 1U;
    }
    return count;
}

/// Counts error lines without a request for memory.
class LineCount {
  public:
    LineCount() {
        hostLogSetHandler([this](HostLogLevel level, const wchar_t*, const wchar_t* message) {
            lines += level == HostLogLevel::error && *message != L'\0' ? 1 : 0;
        });
    }
    ~LineCount() { hostLogSetHandler({}); }
    LineCount(const LineCount&) = delete;
    LineCount& operator=(const LineCount&) = delete;

    int lines = 0;
};

/// Whether all requests after the failing one fail too.
class Memory : public testing::TestWithParam<bool> {
  protected:
    /// Calls `work` with a failure at each request in turn, until it makes no more. `check` is told
    /// whether one has failed. Returns how many failed. An exception that escapes fails the test.
    int failEach(const std::function<void()>& work, const std::function<void(bool)>& check) {
        for (int number = 0; number < kMostRequests; ++number) {
            plan = {number, GetParam(), false};
            bool hasThrown = false;
            try {
                work();
            } catch (...) {
                hasThrown = true;
            }
            const bool hasFailed = plan.hasFailed;
            plan = {};
            SCOPED_TRACE(number);
            EXPECT_FALSE(hasThrown);
            check(hasFailed);
            if (!hasFailed) {
                return number;
            }
        }
        ADD_FAILURE() << "no end";
        return 0;
    }

    // Longer than what a string holds in itself.
    const TestDirectory m_directory;
    const std::string m_from = m_directory / "a name of some length";
    const std::string m_to = m_directory / "another name of some length";
};

TEST_P(Memory, Opening_IsWholeOrOneLineAndNoFile) {
    LineCount log;
    std::filesystem::create_symlink("target of the link", m_to);
    const std::string target = m_directory / "target of the link";
    for (const std::uint32_t disposition : {telCreateNew, telCreateAlways, telOpenAlways}) {
        const std::string& path = disposition == telCreateNew ? m_from : m_to;
        const std::string& made = disposition == telCreateNew ? m_from : target;
        const std::size_t descriptors = openDescriptors();
        telHandle file = nullptr;
        const int failures = failEach(
            [&] {
                file = telCreateFileAW(path, telGenericRead | telGenericWrite, telShareNone,
                                       disposition, telAttributeNormal);
            },
            [&](bool) {
                EXPECT_EQ(std::filesystem::exists(made), file != nullptr);
                EXPECT_EQ(log.lines, file == nullptr ? 1 : 0);
                telCloseHandle(file);
                EXPECT_EQ(openDescriptors(), descriptors);
                std::filesystem::remove(made);
                log.lines = 0;
            });
        EXPECT_GT(failures, 1);
        EXPECT_NE(file, nullptr);
    }
}

TEST_P(Memory, Emptying_LeavesTheFileWhenItFails) {
    LineCount log;
    telHandle file = nullptr;
    writeText(m_from, "old");
    failEach(
        [&] {
            file = telCreateFileAW(m_from, telGenericWrite, telShareNone, telCreateAlways,
                                   telAttributeNormal);
        },
        [&](bool) {
            EXPECT_EQ(readText(m_from), file == nullptr ? "old" : "");
            telCloseHandle(file);
            writeText(m_from, "old");
        });
}

TEST_P(Memory, Copying_LeavesTheOldFileOrTheNewOne) {
    LineCount log;
    const std::string text = numberedText(100000);
    writeText(m_from, text);
    std::filesystem::create_symlink("target of the link", m_to);
    const std::string target = m_directory / "target of the link";
    for (const bool isOver : {false, true}) {
        const std::size_t descriptors = openDescriptors();
        bool isCopied = false;
        const auto restore = [&] {
            std::filesystem::remove(target);
            if (isOver) {
                writeText(target, "old");
            }
            log.lines = 0;
        };
        restore();
        const int failures =
            failEach([&] { isCopied = telCopyFile(m_from, m_to); },
                     [&](bool) {
                         EXPECT_EQ(readText(target), isCopied ? text : isOver ? "old" : "");
                         EXPECT_EQ(log.lines, isCopied ? 0 : 1);
                         EXPECT_EQ(openDescriptors(), descriptors);
                         EXPECT_EQ(m_directory.names().size(), isCopied || isOver ? 3U : 2U);
                         restore();
                     });
        EXPECT_GT(failures, 2);
        EXPECT_TRUE(isCopied);
    }
}

TEST_P(Memory, CopyingWhatFails_IsFalseWithOneLine) {
    LineCount log;
    writeText(m_from, "new");
    const std::string to = m_directory / "no such directory/to";
    bool isCopied = true;
    failEach([&] { isCopied = telCopyFile(m_from, to); },
             [&](bool) {
                 EXPECT_FALSE(isCopied);
                 EXPECT_EQ(log.lines, 1);
                 log.lines = 0;
             });
}

TEST_P(Memory, NumericAddresses_AreAllOrNone) {
    ANetworkUtil network;
    std::vector<char*> addresses;
    int result = 0;
    const std::string host = "[fe80::1234:5678:9abc:def0]";
    const int failures = failEach([&] { result = network.kveGetAddrinfo(host, "", addresses, 1); },
                                  [&](bool hasFailed) {
                                      EXPECT_EQ(result, hasFailed ? EAI_MEMORY : 0);
                                      EXPECT_EQ(addresses.size(), hasFailed ? 0U : 1U);
                                      network.kveFreeAddrinfo(addresses);
                                  });
    EXPECT_GT(failures, 3);
}

TEST_P(Memory, AddressList_IsNullWithTheReason) {
    ANetworkUtil network;
    addrinfo* list = nullptr;
    bool isV6 = false;
    int result = 0;
    const std::string host = "[fe80::1234:5678:9abc:def0]";
    const int failures =
        failEach([&] { result = network.kveCreateAddrinfo(host, "", &list, &isV6); },
                 [&](bool hasFailed) {
                     EXPECT_EQ(result, hasFailed ? EAI_MEMORY : 0);
                     EXPECT_EQ(list == nullptr, hasFailed);
                     EXPECT_EQ(isV6, !hasFailed);
                     if (list != nullptr) {
                         freeaddrinfo(list);
                     }
                 });
    EXPECT_GT(failures, 0);
}

TEST_P(Memory, ScopeOfAnAddress_IsUnknown) {
    ANetworkUtil network;
    unsigned scope = 0;
    bool isKnown = false;
    const std::string address = "[fe80::1234:5678:9abc:def0%4294967295]";
    const int failures = failEach([&] { isKnown = network.kveGetScopeId(address, &scope); },
                                  [&](bool hasFailed) {
                                      EXPECT_EQ(isKnown, !hasFailed);
                                      EXPECT_EQ(scope, hasFailed ? 0U : 4294967295U);
                                  });
    EXPECT_GT(failures, 0);
}

TEST_P(Memory, QuestionsAboutDetail_AreAnswered) {
    hostLogSetDetailList({"a module with a long name"});
    char name[] = "a module with a long name";
    bool isListed = false;
    bool isEnabled = true;
    const int failures = failEach(
        [&] {
            isListed = logDetailListContains(name);
            isEnabled = isDetailLoggingEnabled();
        },
        [&](bool) {
            EXPECT_TRUE(isListed);
            EXPECT_FALSE(isEnabled);
        });
    hostLogSetDetailList({});

    EXPECT_EQ(failures, 0);
}

TEST_P(Memory, NewHandler_TakesTheOldOnesPlaceOrTheDefaultDoes) {
    int oldLines = 0;
    int newLines = 0;
    const int failures = failEach(
        [&] {
            hostLogSetHandler([&](HostLogLevel, const wchar_t*, const wchar_t*) { ++newLines; });
        },
        [&](bool hasFailed) {
            testing::internal::CaptureStderr();
            logError(L"module", L"a message");
            const std::string written = testing::internal::GetCapturedStderr();
            EXPECT_EQ(newLines, hasFailed ? 0 : 1);
            EXPECT_EQ(written.empty(), !hasFailed);
            hostLogSetHandler([&](HostLogLevel, const wchar_t*, const wchar_t*) { ++oldLines; });
        });
    hostLogSetHandler({});

    EXPECT_GT(failures, 0);
    EXPECT_EQ(oldLines, 0);
}

TEST_P(Memory, ErrorLineOfTheDefault_IsReplacedByAFixedOne) {
    int number = 0;
    for (bool hasFailed = true; hasFailed && number < kMostRequests; ++number) {
        testing::internal::CaptureStderr();
        plan = {number, GetParam(), false};
        logError(L"module", L"a message of some length");
        hasFailed = plan.hasFailed;
        plan = {};
        const std::string written = testing::internal::GetCapturedStderr();
        const char* const expected =
            hasFailed ? "memory lacks" : "module: a message of some length\n";
        EXPECT_NE(written.find(expected), std::string::npos) << written;
    }
    EXPECT_GT(number, 2);
}

INSTANTIATE_TEST_SUITE_P(OnceAndFromThereOn, Memory, testing::Bool());

}  // namespace
