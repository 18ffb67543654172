#include "voinet/lnxuncconnection.h"

#include "support/curldouble.h"
#include "support/logcapture.h"
#include "support/recordingsink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::IsEmpty;

TEST(UncConnection, EveryOperation_IsNotImplemented) {
    CUncConnection connection;
    RecordingSink sink;
    EXPECT_EQ(connection.Logon(true, 5), voInetErrorNotImplemented);
    EXPECT_EQ(connection.LogOut(), voInetErrorNotImplemented);
    EXPECT_EQ(connection.UploadFile(L"a", L"b", &sink), voInetErrorNotImplemented);
    EXPECT_EQ(connection.UploadFileResponse(L"a", L"b", L"c", &sink), voInetErrorNotImplemented);
    EXPECT_THAT(sink.reports, IsEmpty());
    EXPECT_THAT(logLines(), IsEmpty());
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
}

TEST(UncConnection, Download_TouchesNoArgument) {
    CUncConnection connection;
    RecordingSink sink;
    long offset = 77;
    for (const bool flag : {true, false}) {
        bool resume = flag;
        EXPECT_EQ(connection.DownloadFile(L"a", L"b", &sink, &offset, resume, flag),
                  voInetErrorNotImplemented);
        EXPECT_EQ(resume, flag);
    }
    EXPECT_EQ(offset, 77);
    EXPECT_THAT(sink.reports, IsEmpty());
}

TEST(UncConnection, DownloadWithEmptyAndNullArguments_IsNotImplementedEither) {
    CUncConnection connection;
    bool resume = true;
    EXPECT_EQ(connection.DownloadFile(L"", L"", nullptr, nullptr, resume, false),
              voInetErrorNotImplemented);
    EXPECT_TRUE(resume);
}

TEST(UncConnection, CheckOptions_IsTrueWithAndWithoutSettings) {
    CUncConnection connection;
    EXPECT_TRUE(connection.CheckOptions());
    connection.SetOption(voInetOptionServer, std::wstring(L"server"));
    connection.SetOption(voInetOptionShare, std::wstring(L"share"));
    EXPECT_TRUE(connection.CheckOptions());
    EXPECT_EQ(connection.m_strShare_utf8_rep, "share");
    EXPECT_EQ(connection.Logon(false, 0), voInetErrorNotImplemented);
}

TEST(UncConnection, Protocol_StaysNone) {
    EXPECT_EQ(CUncConnection().GetProtocol(), voInetProtocolNone);
}

TEST(UncConnection, PostLogOutOperations_DoNothing) {
    CUncConnection connection;
    static_cast<TransferItf&>(connection).PostLogOutOperations();
    EXPECT_THAT(logLines(), IsEmpty());
}
