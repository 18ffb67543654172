#include "support/curldouble.h"
#include "support/downloadfixture.h"
#include "support/logcapture.h"
#include "support/networkdouble.h"
#include "support/oddlocale.h"
#include "voinet/cbmgr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class HttpDownload : public DownloadFixture {
  protected:
    /// Answers the next request; a part is the one that starts at the offset.
    static void play(Answer answer, const std::string& range = "") {
        curlDouble().play(replyOf(answer, range));
    }

    static const Request& request(std::size_t number) { return curlDouble().requests().at(number); }

    /// Lets the server serve ranges as it should.
    static void serveRanges() {
        curlDouble().serve([](const Request& asked) {
            const auto range = asked.text(CURLOPT_RANGE);
            return replyOf(range.empty() ? Answer::whole200 : Answer::part206, range);
        });
    }

    std::string urlOf(const std::wstring& remote) {
        curlDouble().clearTrace();
        play(Answer::whole200);
        EXPECT_EQ(download(remote), voInetErrorSuccess);
        return request(0).text(CURLOPT_URL);
    }
};

}  // namespace

TEST_F(HttpDownload, WholeFile_LandsInTheLocalFile) {
    play(Answer::whole200);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), serverFile());
    EXPECT_FALSE(request(0).has(CURLOPT_RANGE));
    EXPECT_FALSE(request(0).has(CURLOPT_HTTPHEADER));
}

TEST_F(HttpDownload, EmptyNames_AreInvalidArguments) {
    bool notRead = false;
    EXPECT_EQ(connection.DownloadFileWithConnSpec(connMethodFqdn, L"", L"r", sink, &offset, notRead,
                                                  true),
              voInetErrorInvalidArgument);
    EXPECT_EQ(download(L""), voInetErrorInvalidArgument);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(HttpDownload, EmptyName_WinsOverIncompleteOptions) {
    connection.m_strSite.clear();
    EXPECT_EQ(download(L""), voInetErrorInvalidArgument);
}

TEST_F(HttpDownload, IncompleteOptionsOrAnotherMethod_AreBadOptions) {
    bool notRead = false;
    for (const auto method : {connMethodNone, connMethodIP, connMethodNetBios}) {
        EXPECT_EQ(
            connection.DownloadFileWithConnSpec(method, L"l", L"r", sink, &offset, notRead, true),
            voInetErrorBadOptions);
    }
    connection.m_strSite.clear();
    EXPECT_EQ(download(), voInetErrorBadOptions);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
}

TEST_F(HttpDownload, ResumeFlag_IsNeitherReadNorWritten) {
    for (const bool flag : {true, false}) {
        bool resume = flag;
        play(Answer::whole200);
        EXPECT_EQ(connection.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("local"),
                                                      L"f", sink, &offset, resume, true),
                  voInetErrorSuccess);
        EXPECT_EQ(resume, flag);
    }
}

TEST_F(HttpDownload, NullResumeOffset_CountsAsZero) {
    bool notRead = false;
    havePartialFile(3000);
    play(Answer::whole200);
    EXPECT_EQ(connection.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("local"), L"f",
                                                  sink, nullptr, notRead, true),
              voInetErrorSuccess);
    EXPECT_EQ(local(), serverFile());
}

TEST_F(HttpDownload, NullResumeOffsetAndA416_RestartsWithoutWritingToIt) {
    bool notRead = false;
    play(Answer::rangeNotSatisfiable416);
    play(Answer::whole200);
    EXPECT_EQ(connection.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("local"), L"f",
                                                  sink, nullptr, notRead, true),
              voInetErrorSuccess);
    EXPECT_EQ(local(), serverFile());
}

TEST_F(HttpDownload, NegativeResumeOffset_DownloadsTheWholeFile) {
    offset = -5;
    play(Answer::whole200);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(offset, -5);
    EXPECT_EQ(local(), serverFile());
    EXPECT_FALSE(request(0).has(CURLOPT_RANGE));
}

TEST_F(HttpDownload, Resume_ChecksThePrefixAndFetchesTheRest) {
    havePartialFile(3000);
    offset = 1976;
    serveRanges();
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), serverFile());
    EXPECT_EQ(offset, 1976);
    EXPECT_EQ(request(0).text(CURLOPT_RANGE), "1976-2999");
    EXPECT_EQ(request(1).text(CURLOPT_RANGE), "1976-");
}

TEST_F(HttpDownload, ResumeWithAnotherPrefix_ClearsTheOffsetBeforeTheMainPass) {
    scratch.write("local", std::string(3000, 'x'));
    offset = 1000;
    serveRanges();
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(offset, 0);
    EXPECT_EQ(local(), serverFile());
    EXPECT_FALSE(request(1).has(CURLOPT_RANGE));
}

TEST_F(HttpDownload, ResumeWithLessThanAPrefixLeft_StartsOver) {
    havePartialFile(3000);
    offset = 1977;
    serveRanges();
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(offset, 0);
    EXPECT_EQ(local(), serverFile());
}

TEST_F(HttpDownload, RangedRequestAnswered200_RestartsFromByteZero) {
    havePartialFile(3000);
    offset = 1000;
    play(Answer::part206, "1000-2023");
    play(Answer::whole200);
    play(Answer::whole200);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(offset, 0);
    EXPECT_EQ(local(), serverFile());
    EXPECT_FALSE(request(2).has(CURLOPT_RANGE));
}

TEST_F(HttpDownload, UnauthorizedEveryTime_GivesUpAfterFourRequests) {
    connection.m_bUseAuthentication = true;
    for (int i = 0; i < 4; ++i) {
        play(Answer::unauthorized401);
    }
    EXPECT_EQ(download(), voInetErrorMaxRetries);
    EXPECT_EQ(curlDouble().requests().size(), 4U);
    EXPECT_EQ(scratch.names().count("local"), 0U);
}

TEST_F(HttpDownload, UnlistedStatuses_AreTransferFailures) {
    for (const long status : {0L, 100L, 201L, 204L, 302L, 304L, 400L, 403L, 410L, 500L, 503L}) {
        havePartialFile(10);
        curlDouble().play(answer(status).body("page"));
        EXPECT_EQ(download(), voInetErrorTransferFailed) << status;
        EXPECT_EQ(local(), serverFile().substr(0, 10));
    }
}

TEST_F(HttpDownload, EveryCurlFailure_IsMappedAndLeavesTheLocalFile) {
    for (int code = 1; code < 100; ++code) {
        if (code == CURLE_ABORTED_BY_CALLBACK) {
            continue;
        }
        havePartialFile(10);
        curlDouble().play(failure(static_cast<CURLcode>(code)).body("partial"));
        EXPECT_EQ(download(), mapCurlErrorCode(code)) << code;
        EXPECT_EQ(local(), serverFile().substr(0, 10));
    }
}

TEST_F(HttpDownload, SinkThatStops_CommitsWhatArrived) {
    havePartialFile(10);
    recordingSink.stopAt(2);
    curlDouble().play(answer(200).progress(5000, 0).body("first").progress(5000, 5).body("more"));
    EXPECT_EQ(download(), voInetErrorCancelled);
    EXPECT_EQ(local(), "first");
    EXPECT_THAT(recordingSink.reports, ElementsAre(Progress{0, 5000, 3}, Progress{5, 5000, 3}));
    EXPECT_THAT(recordingSink.texts,
                ElementsAre(L"the site", L"server.corp", L"http://server.corp:8080/pkg/file.zip"));
}

TEST_F(HttpDownload, SinkThatStopsBeforeAStatus_CommitsNothing) {
    havePartialFile(10);
    recordingSink.stopAt(1);
    curlDouble().play(answer(0).progress(0, 0));
    EXPECT_EQ(download(), voInetErrorCancelled);
    EXPECT_EQ(local(), serverFile().substr(0, 10));
}

TEST_F(HttpDownload, CancelledResume_KeepsTheHeadAndWhatArrived) {
    havePartialFile(3000);
    offset = 1976;
    recordingSink.stopAt(1);
    play(Answer::part206, "1976-2999");
    curlDouble().play(
        answer(206).body(serverFile().substr(1976, 2000)).progress(3024, 2000).body("never"));
    EXPECT_EQ(download(), voInetErrorCancelled);
    EXPECT_EQ(local(), serverFile().substr(0, 3976));
    EXPECT_EQ(offset, 1976);
}

TEST_F(HttpDownload, CancelledRestart_CommitsNothing) {
    havePartialFile(3000);
    offset = 1000;
    play(Answer::part206, "1000-2023");
    play(Answer::whole200);
    play(Answer::cancelled);
    EXPECT_EQ(download(), voInetErrorCancelled);
    EXPECT_EQ(local(), serverFile().substr(0, 3000));
}

TEST_F(HttpDownload, PrefixCheck_ReportsNoProgressAndCannotBeCancelled) {
    havePartialFile(3000);
    offset = 1000;
    recordingSink.stopAt(1);
    curlDouble().play(answer(206).progress(9, 1).body(serverFile().substr(1000, 1024)));
    play(Answer::part206, "1000-");
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_THAT(recordingSink.reports, IsEmpty());
}

TEST_F(HttpDownload, RestartedPass_ReportsItsProgress) {
    havePartialFile(3000);
    offset = 1000;
    play(Answer::part206, "1000-2023");
    play(Answer::rangeNotSatisfiable416);
    curlDouble().play(replyOf(Answer::whole200, "").progress(5000, 5000));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_THAT(recordingSink.reports, ElementsAre(Progress{5000, 5000, 3}));
}

TEST_F(HttpDownload, NullSink_IsSilent) {
    sink = nullptr;
    curlDouble().play(replyOf(Answer::whole200, "").progress(1, 1));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), serverFile());
}

TEST_F(HttpDownload, SinkThatThrows_StopsTheTransferAndTheExceptionStaysInside) {
    recordingSink.then([](const Progress&) { throw std::runtime_error("sink"); });
    curlDouble().play(answer(200).body("first").progress(9, 5).body("more"));
    EXPECT_NO_THROW(EXPECT_EQ(download(), voInetErrorCancelled));
    recordingSink.then(nullptr);
    play(Answer::whole200);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), serverFile());
}

TEST_F(HttpDownload, FullDisk_IsAWriteErrorAndLeavesTheLocalFile) {
    havePartialFile(10);
    play(Answer::whole200);
    {
        const FileSizeLimit limit(2000);
        EXPECT_EQ(download(), voInetErrorWriteFailed);
    }
    EXPECT_EQ(local(), serverFile().substr(0, 10));
}

TEST_F(HttpDownload, UpdateTokenAndNoCache_AreHeadersInThisOrder) {
    connection.SetOption(voInetOptionUpdateToken, std::wstring(L"t\u00F6k"));
    useCache = false;
    play(Answer::whole200);
    download();
    EXPECT_THAT(request(0).headers, ElementsAre("UpdateToken: t\xC3\xB6k", "pragma:no-cache"));
}

TEST_F(HttpDownload, UpdateTokenAlone_IsTheOnlyHeader) {
    connection.SetOption(voInetOptionUpdateToken, std::wstring(L"tok"));
    play(Answer::whole200);
    download();
    EXPECT_THAT(request(0).headers, ElementsAre("UpdateToken: tok"));
    EXPECT_THAT(logLines(), Not(Contains(HasSubstr("pragma"))));
}

TEST_F(HttpDownload, NoCacheAlone_IsTheOnlyHeaderInEveryPass) {
    useCache = false;
    havePartialFile(3000);
    offset = 1000;
    serveRanges();
    download();
    for (const auto& each : curlDouble().requests()) {
        EXPECT_THAT(each.headers, ElementsAre("pragma:no-cache"));
    }
}

TEST_F(HttpDownload, Url_IsHostPortRelativePathAndName) {
    EXPECT_EQ(urlOf(L"file.zip"), kUrl);
    EXPECT_EQ(urlOf(L"/file.zip"), kUrl);
    EXPECT_EQ(urlOf(L"d\u00FC/f"), "http://server.corp:8080/pkg/d\xC3\xBC/f");
    EXPECT_EQ(urlOf(L"back\\slash"), "http://server.corp:8080/pkg/back\\slash");
    EXPECT_EQ(urlOf(L"two words"), "http://server.corp:8080/pkg/two");
    EXPECT_THAT(logLines("info"), Contains(infoLine("Open URL: http://server.corp:8080/pkg/two")));
}

TEST_F(HttpDownload, Url_BracketsIpv6AndIsPlainHttpWithSsl) {
    connection.SetActiveHostSettings(connMethodFqdn, L"fe80::1", "fe80::1", 443);
    connection.m_bUseSSL = true;
    EXPECT_EQ(urlOf(L"f"), "http://[fe80::1]:443/pkg/f");
}

TEST_F(HttpDownload, LocaleOfTheProgram_ChangesNeitherUrlNorRangeNorPort) {
    const OddLocale locale;
    connection.SetOption(voInetOptionHostFqdn, std::wstring(L"server.corp:8080"));
    connection.ApplyHostInformation(connMethodFqdn);
    havePartialFile(3000);
    offset = 1976;
    serveRanges();
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(request(0).text(CURLOPT_URL), kUrl);
    EXPECT_EQ(request(0).text(CURLOPT_RANGE), "1976-2999");
    EXPECT_EQ(request(1).text(CURLOPT_RANGE), "1976-");
}

TEST_F(HttpDownload, AbsurdlyLongNames_AreHandedOnWhole) {
    EXPECT_EQ(urlOf(std::wstring(1 << 20, L'n')),
              "http://server.corp:8080/pkg/" + std::string(1 << 20, 'n'));
}

TEST_F(HttpDownload, IllFormedNames_ReachCurlWithReplacementCharacters) {
    EXPECT_EQ(urlOf(std::wstring(1, static_cast<wchar_t>(0xDC00))),
              "http://server.corp:8080/pkg/\xEF\xBF\xBD");
}

TEST_F(HttpDownload, IllFormedCredentials_ReachCurlAsTheirTwins) {
    const std::wstring unpaired(1, static_cast<wchar_t>(0xD800));
    connection.SetOption(voInetOptionUser, unpaired);
    connection.SetOption(voInetOptionPassword, unpaired);
    play(Answer::whole200);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(request(0).text(CURLOPT_USERNAME), "\xEF\xBF\xBD");
    EXPECT_EQ(request(0).text(CURLOPT_PASSWORD), "\xEF\xBF\xBD");
}

TEST_F(HttpDownload, MissingDirectories_AreMade) {
    bool notRead = false;
    play(Answer::whole200);
    EXPECT_EQ(connection.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("a/b/c"), L"f",
                                                  sink, &offset, notRead, true),
              voInetErrorSuccess);
    EXPECT_EQ(scratch.read("a/b/c"), serverFile());
}

TEST_F(HttpDownload, DirectoryAsLocalFile_SucceedsByRuleAndLogsAnError) {
    std::filesystem::create_directory(scratch.file("local"));
    play(Answer::whole200);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_TRUE(std::filesystem::is_directory(scratch.file("local")));
    EXPECT_FALSE(logLines("error").empty());
}

TEST_F(HttpDownload, WithoutAStatusPointer_TheStatusIsNotLookedAt) {
    CallbackManager manager(CallbackManager::TransferDownload, scratch.wideFile("local"), L"", L"",
                            L"http://h/f", 0, false);
    play(Answer::notFound404);
    EXPECT_EQ(connection.DoHttpDownload(&manager, true, nullptr, nullptr), voInetErrorSuccess);
    play(Answer::cancelled);
    EXPECT_EQ(connection.DoHttpDownload(&manager, true, nullptr, nullptr), voInetErrorCancelled);
    EXPECT_THAT(curlDouble().trace(), Not(Contains(HasSubstr("getinfo"))));
}

TEST_F(HttpDownload, CurlWithoutAHandle_FailsAndLeavesTheStartState) {
    for (const bool allow : {false, true}) {
        connection.m_bAllowUserToConfigureProxy = allow;
        connection.m_bUseAuthentication = connection.m_bUseProxyAuthentication = true;
        useCache = false;
        curlDouble().failInits(1);
        EXPECT_EQ(download(), voInetErrorTransferFailed);
        play(Answer::whole200);
        EXPECT_EQ(download(), voInetErrorSuccess);
    }
}

TEST_F(HttpDownload, AfterALogonWithATimeout_OnlyConnects) {
    curlDouble().play(answer(200));
    EXPECT_EQ(connection.Logon(true, 30), voInetErrorSuccess);
    play(Answer::whole200);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(request(1).number(CURLOPT_CONNECT_ONLY), 1);
    EXPECT_EQ(request(1).number(CURLOPT_CONNECTTIMEOUT), 30);
}

TEST_F(HttpDownload, EachRetry_DropsWhatTheOneBeforeReceived) {
    connection.m_bUseAuthentication = true;
    curlDouble().play(answer(401).body("a page that is longer than the file"));
    curlDouble().play(answer(200).body("file"));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), "file");
    EXPECT_EQ(request(0).handle, request(1).handle);
}
