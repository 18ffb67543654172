#include "kvecomn/log.h"

#include "kvecomn/hostlog.h"
#include "testsupport.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

/// Sends standard error elsewhere while it lives.
class StandardErrorTo {
  public:
    explicit StandardErrorTo(int file) : m_saved(dup(STDERR_FILENO)) { dup2(file, STDERR_FILENO); }
    ~StandardErrorTo() {
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
    }
    StandardErrorTo(const StandardErrorTo&) = delete;
    StandardErrorTo& operator=(const StandardErrorTo&) = delete;

  private:
    int m_saved;
};

/// The default handler, as at the start of a process, with its lines in a file.
class DefaultLog : public testing::Test {
  protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }

    static void reset() {
        hostLogSetHandler({});
        hostLogSetDetailEnabled(false);
        hostLogSetDetailList({});
    }

    template <typename Action>
    std::vector<std::string> linesOf(Action action) {
        const std::string path = m_directory / "stderr";
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        {
            const StandardErrorTo redirection(file);
            action();
        }
        close(file);
        std::istringstream stream(readText(path));
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }

  private:
    TestDirectory m_directory;
};

constexpr char kTimePattern[] =
    "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z ";

TEST_F(DefaultLog, InfoAndError_AreLinesOfTimeLevelModuleAndMessage) {
    const auto lines = linesOf([] {
        logInfo(L"voInet", L"all is w\u00E9ll");
        logError(L"other", L"it broke");
    });

    EXPECT_THAT(
        lines,
        ElementsAre(MatchesRegex(std::string(kTimePattern) + "info voInet: all is w\xC3\xA9ll"),
                    MatchesRegex(std::string(kTimePattern) + "error other: it broke")));
}

TEST_F(DefaultLog, Detail_IsPassedOverAtStart) {
    EXPECT_THAT(linesOf([] { logDetail(L"curl", L"x"); }), IsEmpty());
}

TEST_F(DefaultLog, DetailEnabled_WritesDetailOfEveryModule) {
    hostLogSetDetailEnabled(true);

    EXPECT_THAT(linesOf([] { logDetail(L"curl", L"x"); }),
                ElementsAre(MatchesRegex(std::string(kTimePattern) + "detail curl: x")));
}

TEST_F(DefaultLog, DetailList_WritesDetailOfItsModulesOnly) {
    hostLogSetDetailList({"curl"});

    const auto lines = linesOf([] {
        logDetail(L"voInet", L"x");
        logDetail(L"curl", L"y");
    });

    EXPECT_THAT(lines, ElementsAre(MatchesRegex(std::string(kTimePattern) + "detail curl: y")));
}

TEST_F(DefaultLog, NullTexts_CountAsEmpty) {
    EXPECT_THAT(linesOf([] { logInfo(nullptr, nullptr); }),
                ElementsAre(MatchesRegex(std::string(kTimePattern) + "info : ")));
}

TEST_F(DefaultLog, LineBreaksAndControls_AreShownAndForgeNoLine) {
    const auto lines = linesOf([] {
        logError(L"a\nb", L"1\n2\r3\t4\x1b[0m\x7f\u0085\u2028\u202E\u2066|\\n \u00A0\U0001F600");
    });

    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(
        lines[0],
        testing::HasSubstr(" error a\\nb: 1\\n2\\r3\\t4\\x1b[0m\\x7f\\x85\\u2028\\u202e\\u2066|\\n "
                           "\xC2\xA0\xF0\x9F\x98\x80"));
}

TEST_F(DefaultLog, EveryControlCharacter_LeavesOnePrintableLine) {
    for (wchar_t control = 1; control < 0xA0; control = control == 0x1F ? 0x7F : control + 1) {
        const std::wstring message{L'<', control, L'>'};
        const auto lines = linesOf([&] { logInfo(L"m", message.c_str()); });
        for (const unsigned char byte : lines.back()) {
            EXPECT_TRUE(byte >= 0x20 && byte < 0x7F) << control;
        }
        EXPECT_NE(lines.back().find("m: <\\"), std::string::npos) << control;
    }
}

TEST_F(DefaultLog, IllFormedWideText_IsReplaced) {
    const std::wstring message{static_cast<wchar_t>(0xD800)};

    EXPECT_THAT(linesOf([&] { logInfo(L"m", message.c_str()); }),
                ElementsAre(testing::EndsWith("m: \xEF\xBF\xBD")));
}

TEST_F(DefaultLog, LinesOfManyThreads_DoNotMix) {
    constexpr int kThreadCount = 8;
    constexpr int kLinesEach = 200;
    const auto lines = linesOf([] {
        std::vector<std::thread> threads;
        threads.reserve(kThreadCount);
        for (int i = 0; i < kThreadCount; ++i) {
            threads.emplace_back([i] {
                const std::wstring message(300, static_cast<wchar_t>(L'a' + i));
                for (int line = 0; line < kLinesEach; ++line) {
                    logInfo(L"m", message.c_str());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });

    EXPECT_EQ(lines.size(), static_cast<std::size_t>(kThreadCount * kLinesEach));
    for (const std::string& line : lines) {
        const std::string message = line.substr(line.find(": ") + 2);
        EXPECT_EQ(message, std::string(300, message.empty() ? ' ' : message[0]));
    }
}

TEST_F(DefaultLog, StandardErrorThatNobodyReads_DoesNotEndTheProcess) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    {
        const StandardErrorTo redirection(ends[1]);
        logError(L"m", L"lost");
    }
    close(ends[1]);

    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGPIPE), 0);
}

TEST_F(DefaultLog, FullNonBlockingPipe_GetsEveryLineWhole) {
    constexpr int kLineCount = 300;
    const std::wstring message(1000, L'x');
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
    std::string received;
    {
        std::thread reader([&] {
            char buffer[4096];
            for (ssize_t count = 0; (count = read(ends[0], buffer, sizeof buffer)) > 0;) {
                received.append(buffer, static_cast<std::size_t>(count));
            }
        });
        {
            const StandardErrorTo redirection(ends[1]);
            close(ends[1]);
            for (int i = 0; i < kLineCount; ++i) {
                logInfo(L"m", message.c_str());
            }
        }
        reader.join();
    }
    close(ends[0]);

    const std::string ending = "m: " + std::string(message.size(), 'x') + "\n";
    std::size_t found = 0;
    for (std::size_t at = 0; (at = received.find(ending, at)) != std::string::npos; ++at) {
        ++found;
    }
    EXPECT_EQ(found, static_cast<std::size_t>(kLineCount));
}

TEST_F(DefaultLog, Logging_KeepsErrno) {
    linesOf([] {
        const StandardErrorTo redirection(-1);
        close(STDERR_FILENO);
        errno = EXDEV;
        logInfo(L"m", L"x");
        EXPECT_EQ(errno, EXDEV);
    });
}

TEST(LogHandler, EveryLevel_ArrivesWithItsTexts) {
    LogCapture capture;
    logInfo(L"m", L"1");
    logDetail(L"n", L"2\n");
    logError(nullptr, nullptr);

    EXPECT_THAT(capture.lines, ElementsAre("info m 1", "detail n 2\n", "error  "));
}

TEST(LogHandler, WhatItThrows_IsDropped) {
    hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t* message) {
        if (*message == L'1') {
            throw std::bad_alloc();
        }
        throw 7;
    });

    EXPECT_NO_THROW(logError(L"m", L"1"));
    EXPECT_NO_THROW(logError(L"m", L"2"));

    hostLogSetHandler({});
}

TEST(LogHandler, LineAfterAThrow_Arrives) {
    int calls = 0;
    hostLogSetHandler([&](HostLogLevel, const wchar_t*, const wchar_t*) {
        ++calls;
        throw std::runtime_error("once");
    });
    logInfo(L"m", L"1");
    logInfo(L"m", L"2");
    hostLogSetHandler({});

    EXPECT_EQ(calls, 2);
}

TEST(LogHandler, HandlerThatLogs_DoesNotHang) {
    int calls = 0;
    hostLogSetHandler([&](HostLogLevel, const wchar_t*, const wchar_t*) {
        ++calls;
        logError(L"handler", L"again");
    });
    logInfo(L"m", L"x");
    hostLogSetHandler({});

    EXPECT_EQ(calls, 1);
}

TEST(LogHandler, HandlerThatReplacesItself_LivesUntilItReturns) {
    const auto state = std::make_shared<int>(41);
    const std::weak_ptr<int> watcher = state;
    int seen = 0;
    hostLogSetHandler([state, watcher, &seen](HostLogLevel, const wchar_t*, const wchar_t*) {
        hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t*) {});
        // One owner outside and at least this one.
        seen = watcher.use_count() > 1 ? *state + 1 : -1;
    });
    logInfo(L"m", L"x");
    hostLogSetHandler({});

    EXPECT_EQ(seen, 42);
    EXPECT_EQ(watcher.use_count(), 1);
}

TEST(LogHandler, ReplacedWhileOthersLog_IsNotCalledAfterwards) {
    constexpr int kReplacements = 500;
    std::atomic<bool> isDone{false};
    std::atomic<int> lateCalls{0};
    std::atomic<int> running{0};
    std::atomic<int> overlaps{0};
    hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t*) {});
    constexpr int kLoggerCount = 4;
    std::vector<std::thread> loggers;
    loggers.reserve(kLoggerCount);
    for (int i = 0; i < kLoggerCount; ++i) {
        loggers.emplace_back([&] {
            while (!isDone) {
                logInfo(L"m", L"x");
            }
        });
    }
    for (int i = 0; i < kReplacements; ++i) {
        const auto isRetired = std::make_shared<std::atomic<bool>>(false);
        hostLogSetHandler([&, isRetired](HostLogLevel, const wchar_t*, const wchar_t*) {
            overlaps += running++ == 0 ? 0 : 1;
            lateCalls += *isRetired ? 1 : 0;
            --running;
        });
        hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t*) {});
        *isRetired = true;
    }
    isDone = true;
    for (std::thread& logger : loggers) {
        logger.join();
    }
    hostLogSetHandler({});

    EXPECT_EQ(lateCalls, 0);
    EXPECT_EQ(overlaps, 0);
}

TEST(DetailSwitch, AnswersWhatTheHostSet) {
    EXPECT_FALSE(isDetailLoggingEnabled());
    hostLogSetDetailEnabled(true);
    EXPECT_TRUE(isDetailLoggingEnabled());
    hostLogSetDetailEnabled(false);
    EXPECT_FALSE(isDetailLoggingEnabled());
}

TEST(DetailList, ContainsExactlyItsNames) {
    char curl[] = "curl";
    char other[] = "Curl";
    char longer[] = "curlx";
    char empty[] = "";
    EXPECT_FALSE(logDetailListContains(curl));

    hostLogSetDetailList({"voInet", "curl"});

    EXPECT_TRUE(logDetailListContains(curl));
    EXPECT_FALSE(logDetailListContains(other));
    EXPECT_FALSE(logDetailListContains(longer));
    EXPECT_FALSE(logDetailListContains(empty));
    EXPECT_FALSE(logDetailListContains(nullptr));
    EXPECT_FALSE(isDetailLoggingEnabled());
    hostLogSetDetailList({});
    EXPECT_FALSE(logDetailListContains(curl));
}

TEST(LogLevelName, IsTheWordInTheLine) {
    EXPECT_STREQ(hostLogLevelName(HostLogLevel::error), "error");
    EXPECT_STREQ(hostLogLevelName(HostLogLevel::info), "info");
    EXPECT_STREQ(hostLogLevelName(HostLogLevel::detail), "detail");
}

}  // namespace
