#include "exitstatus.h"

#include "resulttexts.h"

#include <gtest/gtest.h>

#include <set>

namespace voinet_command {

namespace voInet = tessaro_com::pkm::voInet;

TEST(ExitStatus, Table_HasEveryNumberAndNameOnce) {
    std::set<int> numbers;
    std::set<std::string> names;
    for (const ExitStatusRow& row : exitStatusTable()) {
        numbers.insert(static_cast<int>(row.status));
        names.insert(row.name);
        EXPECT_STREQ(exitStatusName(row.status), row.name);
        EXPECT_STREQ(exitStatusMeaning(row.status), row.meaning);
    }
    EXPECT_EQ(numbers.size(), exitStatusTable().size());
    EXPECT_EQ(names.size(), exitStatusTable().size());
}

TEST(ExitStatus, OnlySuccessAndAPackage_GiveZero) {
    for (const ResultText& text : resultTexts()) {
        const bool zero = exitStatusOf(text.result, std::nullopt) == ExitStatus::success;
        EXPECT_EQ(zero, text.result == voInet::voInetErrorSuccess ||
                            text.result == voInet::voInetErrorPackageReceived)
            << text.name;
    }
}

TEST(ExitStatus, EachKindOfResult_HasItsStatus) {
    const std::vector<std::pair<voInet::voInetError, ExitStatus>> expected = {
        {voInet::voInetErrorFileNotFound, ExitStatus::notFound},
        {voInet::voInetErrorLoginIncorrect, ExitStatus::refused},
        {voInet::voInetErrorProxyAuthRequired, ExitStatus::refused},
        {voInet::voInetErrorAccessDenied, ExitStatus::refused},
        {voInet::voInetErrorMaxRetries, ExitStatus::refused},
        {voInet::voInetErrorProxyNotResolved, ExitStatus::unreachable},
        {voInet::voInetErrorHostNotResolved, ExitStatus::unreachable},
        {voInet::voInetErrorTimeout, ExitStatus::unreachable},
        {voInet::voInetErrorTransferFailed, ExitStatus::unreachable},
        {voInet::voInetErrorWriteFailed, ExitStatus::localFile},
        {voInet::voInetErrorLocalFileOpen, ExitStatus::localFile},
        {voInet::voInetErrorPeerVerification, ExitStatus::tls},
        {voInet::voInetErrorCaCert, ExitStatus::tls},
        {voInet::voInetErrorSslConnect, ExitStatus::tls},
        {voInet::voInetErrorCancelled, ExitStatus::cancelled},
        {voInet::voInetErrorShutdown, ExitStatus::cancelled},
        {voInet::voInetErrorUploadSetup, ExitStatus::localFile},
        {voInet::voInetErrorKeysOutdated, ExitStatus::updateKeys},
        {voInet::voInetErrorGuidExists, ExitStatus::newIdentity},
        {voInet::voInetErrorServerBusy, ExitStatus::busy},
        {voInet::voInetErrorNoPackage, ExitStatus::noPackage},
        {voInet::voInetErrorInvalidRequest, ExitStatus::invalidRequest},
        {voInet::voInetErrorBadOptions, ExitStatus::usage},
        {voInet::voInetErrorNotImplemented, ExitStatus::failed},
    };
    for (const auto& [result, status] : expected) {
        EXPECT_EQ(exitStatusOf(result, std::nullopt), status) << nameWithNumber(result);
    }
}

// Scripts know these two by the library's numbers.
TEST(ExitStatus, BusyAndNoPackage_HaveTheNumbersOfTheLibrary) {
    EXPECT_EQ(static_cast<int>(ExitStatus::busy), voInet::voInetErrorServerBusy);
    EXPECT_EQ(static_cast<int>(ExitStatus::noPackage), voInet::voInetErrorNoPackage);
}

TEST(ExitStatus, ReplyOfAFailedTransfer_Decides) {
    const std::vector<std::pair<int, ExitStatus>> expected = {
        {401, ExitStatus::refused},  {403, ExitStatus::refused},     {407, ExitStatus::refused},
        {404, ExitStatus::notFound}, {302, ExitStatus::serverError}, {503, ExitStatus::serverError},
        {550, ExitStatus::notFound}, {530, ExitStatus::refused}};
    for (const auto& [reply, status] : expected) {
        EXPECT_EQ(exitStatusOf(voInet::voInetErrorTransferFailed, reply), status) << reply;
        EXPECT_EQ(exitStatusOf(voInet::voInetErrorFailed, reply), status) << reply;
    }
}

}  // namespace voinet_command
