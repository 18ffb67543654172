// FTP downloads: the commands on the wire, what lands, and what a failure leaves.

#include "support/ftp.h"
#include "support/restrictions.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr std::size_t kSize = 50'000;

class FtpDownload : public FtpTest {
  protected:
    void SetUp() override { makeLocalFile("old"); }

    const std::string& body() const { return m_body; }

    /// The commands behind the login for this remote name with this relative path.
    std::vector<std::string> commandsFor(const std::wstring& remoteName,
                                         const std::wstring& relativePath = L"") {
        TransferSettings withPath = settings();
        withPath.relativePath = relativePath;
        logOn(withPath);
        server().session(sending("new"));
        EXPECT_EQ(download(remoteName).result, voInetErrorSuccess);
        expectLocalFile("new");
        auto commands = server().commands();
        EXPECT_THAT(commands, SizeIs(Ge(3U)));
        commands.erase(commands.begin(), commands.begin() + 3);
        return commands;
    }

  private:
    std::string m_body = makeBody(kSize);
};

TEST_F(FtpDownload, WholeFile_IsStored) {
    logOn();

    EXPECT_EQ(downloadIn(sending(body())), voInetErrorSuccess);

    expectLocalFile(body());
    EXPECT_THAT(server().commands(),
                ElementsAre("USER anonymous", "PASS anonymous@example.com", "PWD", "EPSV", "TYPE I",
                            "SIZE file.zip", "RETR file.zip"));
}

TEST_F(FtpDownload, NoLocalFileYet_IsMadeWithItsDirectories) {
    logOn();
    server().session(sending(body()));
    const std::string nested = directory().path("one/two/three.zip");
    long offset = 0;
    bool resume = false;

    EXPECT_EQ(transfer().DownloadFile(widened(nested), L"file.zip", &sink(), &offset, resume, true),
              voInetErrorSuccess);

    EXPECT_EQ(readFile(nested), body());
}

TEST_F(FtpDownload, EveryKindOfSize_Lands) {
    logOn();
    for (const std::size_t size : {0U, 1U, 2U, 1023U, 1024U, 1025U, 16'384U, 16'385U, 1'000'003U}) {
        const std::string sized = makeBody(size, size);
        EXPECT_EQ(downloadIn(sending(sized)), voInetErrorSuccess) << size;
        expectLocalFile(sized);
    }
}

TEST_F(FtpDownload, LineEndsAndZeros_AreNotConverted) {
    const std::string bytes("a\nb\r\nc\rd\0e\xff\xfe", 12);
    logOn();

    EXPECT_EQ(downloadIn(sending(bytes)), voInetErrorSuccess);

    expectLocalFile(bytes);
}

TEST_F(FtpDownload, ByteByByte_IsPutTogether) {
    const std::string dripped = body().substr(0, 2000);
    FtpSession session = sending(dripped);
    session.data = {sendInPieces(dripped, 1)};
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorSuccess);

    expectLocalFile(dripped);
}

TEST_F(FtpDownload, Sink_HearsAboutTheWholeFile) {
    logOn();

    EXPECT_EQ(downloadIn(sending(body())), voInetErrorSuccess);

    EXPECT_EQ(sink().bytesDone(), kSize);
    const Notification last = sink().notifications().back();
    EXPECT_EQ(last.total, static_cast<long>(kSize));
    EXPECT_EQ(last.status, 3);
    EXPECT_EQ(last.siteText1, L"default");
    EXPECT_EQ(last.siteText2, L"127.0.0.1");
    EXPECT_EQ(last.remoteUrl, L"ftp://" + server().hostAndPort() + L"/file.zip");
}

TEST_F(FtpDownload, NullSinkAndNullOffset_DownloadSilently) {
    logOn();
    server().session(sending(body()));
    bool resume = true;

    EXPECT_EQ(
        transfer().DownloadFile(widened(localFile()), L"file.zip", nullptr, nullptr, resume, false),
        voInetErrorSuccess);

    EXPECT_TRUE(resume);
    expectLocalFile(body());
}

TEST_F(FtpDownload, Log_NamesFileServerAndUrl) {
    logOn();
    server().session(sending("new"));

    EXPECT_EQ(download(L"dir\\file.zip").result, voInetErrorSuccess);

    EXPECT_THAT(log().messages(HostLogLevel::info, L"FTP Downloading"),
                ElementsAre(L"FTP Downloading file: dir/file.zip from FTP Server: 127.0.0.1"));
    EXPECT_THAT(log().messages(HostLogLevel::info, L"Open URL"),
                ElementsAre(L"Open URL: ftp://" + server().hostAndPort() + L"/dir/file.zip"));
    const auto lines = log().lines();
    EXPECT_TRUE(std::all_of(lines.begin(), lines.end(), [](const LogLine& line) {
        const bool isSpecial = line.message.find(L"FTP Downloading") == 0;
        return line.module == (isSpecial ? L"VoInet" : L"voInet");
    }));
}

TEST_F(FtpDownload, SeveralInARow_LogInEachTime) {
    logOn();

    EXPECT_EQ(downloadIn(sending("first")), voInetErrorSuccess);
    EXPECT_EQ(downloadIn(sending("second")), voInetErrorSuccess);

    expectLocalFile("second");
    EXPECT_THAT(server().commands(), SizeIs(14));
}

TEST_F(FtpDownload, Ipv6_UsesTheExtendedCommandOnly) {
    FtpServer ipv6(AddressFamily::ipv6);
    TransferSettings settings;
    settings.hostNetBios = ipv6.hostAndPort();
    applySettings(transfer(), settings);
    ipv6.session({});
    ipv6.session(sending(body()));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
    EXPECT_THAT(ipv6.commands(), AllOf(Contains("EPSV"), Not(Contains("PASV"))));
    EXPECT_THAT(log().messages(HostLogLevel::info, L"Open URL"),
                ElementsAre(L"Open URL: ftp://" + ipv6.hostAndPort() + L"/file.zip"));
}

// Remote names.

TEST_F(FtpDownload, BackslashesInTheRemoteName_AreSlashes) {
    EXPECT_THAT(
        commandsFor(L"dir\\sub\\file.zip"),
        ElementsAre("CWD dir", "CWD sub", "EPSV", "TYPE I", "SIZE file.zip", "RETR file.zip"));
}

TEST_F(FtpDownload, RelativePath_StandsBeforeTheName) {
    EXPECT_THAT(
        commandsFor(L"file.zip", L"repo/pkg"),
        ElementsAre("CWD repo", "CWD pkg", "EPSV", "TYPE I", "SIZE file.zip", "RETR file.zip"));
}

TEST_F(FtpDownload, BackslashInTheRelativePath_Stays) {
    EXPECT_THAT(commandsFor(L"file.zip", L"repo\\pkg"), Contains("CWD repo\\pkg"));
}

TEST_F(FtpDownload, RelativePathWithALeadingSlash_BeginsAtTheRootOfTheServer) {
    EXPECT_THAT(commandsFor(L"file.zip", L"/pkg"), ElementsAre("CWD /", "CWD pkg", "EPSV", "TYPE I",
                                                               "SIZE file.zip", "RETR file.zip"));
}

TEST_F(FtpDownload, BlankInTheRemoteName_CutsIt) {
    EXPECT_THAT(commandsFor(L"a b.zip"), ElementsAre("EPSV", "TYPE I", "SIZE a", "RETR a"));
}

TEST_F(FtpDownload, EncodedBlankInTheRemoteName_IsABlankOnTheWire) {
    EXPECT_THAT(commandsFor(L"a%20b.zip"), Contains("RETR a b.zip"));
}

TEST_F(FtpDownload, NonAsciiRemoteName_IsSentInUtf8) {
    EXPECT_THAT(commandsFor(L"\u00e4\u4e2d.zip"), Contains("RETR \u00e4\u4e2d.zip"));
}

TEST_F(FtpDownload, RemoteNameThatEndsInASlash_IsAListing) {
    EXPECT_THAT(commandsFor(L"dir/"), ElementsAre("CWD dir", "EPSV", "TYPE A", "LIST"));
}

TEST_F(FtpDownload, EncodedLineEndInTheRemoteName_SendsNoSecondCommand) {
    logOn();
    server().session({});

    EXPECT_EQ(download(L"a%0d%0aDELE%20b").result, voInetErrorTransferFailed);

    EXPECT_THAT(server().commands(), Not(Contains(testing::HasSubstr("DELE"))));
    expectLocalFile("old");
}

// Data connections.

TEST_F(FtpDownload, ServerWithoutTheExtendedCommand_IsAskedForPasv) {
    FtpSession session = sending(body());
    session.replies = {{"EPSV", "500 What?"}};
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorSuccess);

    expectLocalFile(body());
    EXPECT_THAT(server().commands(), Contains("PASV"));
}

TEST_F(FtpDownload, ExtendedDataPortRefused_IsTriedWithPasv) {
    const RefusingPort dead;
    FtpSession session = sending(body());
    session.replies = {{"EPSV", epsvReply(dead.port())}};
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(FtpDownload, BothDataPortsRefused_IsATransferFailure) {
    const RefusingPort dead;
    FtpSession session;
    session.replies = {{"EPSV", epsvReply(dead.port())}, {"PASV", pasvReply(dead.port())}};
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorTransferFailed);

    expectLocalFile("old");
}

TEST_F(FtpDownload, PasvThatNamesAnotherHost_IsAnsweredAtTheServersHost) {
    FtpSession session = sending(body());
    session.replies = {{"EPSV", "500 What?"}};
    session.pasvHost = "192,0,2,1";
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(FtpDownload, NonsenseAboutTheDataPort_IsATransferFailure) {
    logOn();
    for (const char* nonsense : {"229 nonsense", "229 (|||0|)", "229 (|||99999|)", "229 (|||x|)",
                                 "229 (|1|127.0.0.1|21|)", "227 nonsense", "200 nonsense"}) {
        FtpSession session;
        session.replies = {{"EPSV", nonsense}, {"PASV", "227 nonsense"}};
        EXPECT_EQ(downloadIn(session), voInetErrorTransferFailed) << nonsense;
    }
    expectLocalFile("old");
}

TEST_F(FtpDownload, DataConnectionReset_IsATransferFailure) {
    FtpSession session = sending(body());
    session.data = {send(body().substr(0, 1000)), reset()};
    session.afterData = "";
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorTransferFailed);

    expectLocalFile("old");
}

// Sizes.

TEST_F(FtpDownload, FileShorterThanAnnounced_IsATransferFailure) {
    logOn();
    for (const std::size_t sent : {std::size_t{0}, std::size_t{1}, kSize - 1}) {
        FtpSession session = sending(body());
        session.data = {send(body().substr(0, sent))};
        EXPECT_EQ(downloadIn(session), voInetErrorTransferFailed) << sent;
    }
    expectLocalFile("old");
}

TEST_F(FtpDownload, FileShorterThanItsRetrieveReplySays_IsATransferFailure) {
    FtpSession session = sending(body());
    session.size.reset();
    session.replies = {{"RETR", "150 Opening (50001 bytes)"}};
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorTransferFailed);

    expectLocalFile("old");
}

TEST_F(FtpDownload, FileLongerThanAnnounced_IsStoredAsAnnounced) {
    FtpSession session = sending(body());
    session.size = kSize - 1;
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorSuccess);

    expectLocalFile(body().substr(0, kSize - 1));
}

TEST_F(FtpDownload, SizeNotAnnounced_EndsWithTheDataConnection) {
    logOn();
    for (const char* reply : {"500 What?", "502 No", "213 nonsense", "213 99999999999999999999"}) {
        FtpSession session = sending(body());
        session.replies = {{"SIZE", reply}};
        EXPECT_EQ(downloadIn(session), voInetErrorSuccess) << reply;
        expectLocalFile(body());
    }
}

// Cancelling.

TEST_F(FtpDownload, Cancelled_CommitsWhatHasArrived) {
    constexpr std::size_t kArrived = 20'000;
    FtpSession session = sending(body());
    session.data = {send(body().substr(0, kArrived)), awaitClose()};
    sink().stopAt(kArrived);
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorCancelled);

    EXPECT_EQ(sink().bytesDone(), kArrived);
    expectLocalFile(body().substr(0, kArrived));
}

TEST_F(FtpDownload, CancelledBeforeTheFirstByte_CommitsTheEmptyFile) {
    logOn();
    sink().stopWhen([](const Notification&) { return true; });

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectLocalFile("");
}

TEST_F(FtpDownload, SinkThatThrows_CancelsAndCommitsWhatHasArrived) {
    FtpSession session = sending(body());
    session.data = {send(body().substr(0, 1000)), awaitClose()};
    sink().throwWhen([](const Notification& now) { return now.done >= 1000; });
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorCancelled);

    expectLocalFile(body().substr(0, 1000));
}

// What the local side cannot do.

TEST_F(FtpDownload, FullDisk_IsAWriteErrorAndLeavesTheOldFile) {
    logOn();
    {
        const FileSizeLimit limit(10'000);

        EXPECT_EQ(downloadIn(sending(body())), voInetErrorWriteFailed);
    }

    expectLocalFile("old");
}

// What the server refuses.

/// A command, and what a download ends with when the server refuses it.
struct RefusableCommand {
    const char* word;
    /// The client goes on without it; the download fails at RETR then, which is told apart by its
    /// own reply.
    bool isOptional;
};

constexpr RefusableCommand kCommands[] = {{"USER", false}, {"PASS", false}, {"PWD", true},
                                          {"CWD", false},  {"TYPE", false}, {"SIZE", true},
                                          {"RETR", false}};

class FtpRefusal : public FtpDownload {
  protected:
    voInetError downloadRefused(const std::string& word, const std::string& reply) {
        FtpSession session;
        session.replies = {{"RETR", "425 No data"}};
        session.replies[word] = reply;
        server().session(session);
        return download(L"dir/file.zip").result;
    }
};

TEST_F(FtpRefusal, RepliesAbove400AtEveryCommand_AreFailures) {
    logOn();
    for (const auto& command : kCommands) {
        for (const int code : {401, 403, 407, 421, 425, 426, 450, 451, 500, 501, 530, 532, 553}) {
            EXPECT_EQ(downloadRefused(command.word, std::to_string(code) + " No"),
                      voInetErrorFailed)
                << command.word << " " << code;
        }
    }
    expectLocalFile("old");
}

TEST_F(FtpRefusal, Reply550AtEveryCommand_MeansFileNotFound) {
    logOn();
    for (const char* word : {"USER", "PASS", "CWD", "TYPE", "SIZE", "RETR"}) {
        EXPECT_EQ(downloadRefused(word, "550 No such file"), voInetErrorFileNotFound) << word;
    }
    expectLocalFile("old");
}

TEST_F(FtpRefusal, Reply400_IsNotAbove400AndLeftToCurlsResult) {
    logOn();
    for (const char* word : {"USER", "PASS", "CWD", "TYPE"}) {
        EXPECT_EQ(downloadRefused(word, "400 No"), voInetErrorTransferFailed) << word;
    }
    EXPECT_EQ(downloadRefused("RETR", "400 No"), voInetErrorFileNotFound);
    expectLocalFile("old");
}

TEST_F(FtpRefusal, CommandsThatMayBeMissing_DoNotEndTheDownload) {
    logOn();
    for (const char* word : {"PWD", "SIZE"}) {
        FtpSession session = sending(body());
        session.replies = {{word, "502 No"}};
        EXPECT_EQ(downloadIn(session), voInetErrorSuccess) << word;
        expectLocalFile(body());
    }
}

TEST_F(FtpRefusal, ReplyBehindTheData_DecidesOverTheFile) {
    const std::vector<std::pair<const char*, voInetError>> replies = {
        {"426 Broken", voInetErrorFailed},
        {"451 Read error", voInetErrorFailed},
        {"550 Gone", voInetErrorFileNotFound},
        {"400 Nearly", voInetErrorTransferFailed},
    };
    logOn();
    for (const auto& [reply, result] : replies) {
        FtpSession session = sending(body());
        session.afterData = reply;
        EXPECT_EQ(downloadIn(session), result) << reply;
    }
    expectLocalFile("old");
}

TEST_F(FtpRefusal, LongAndStrangeReplies_AreRead) {
    FtpSession session = sending(body());
    session.greeting = "220-Welcome\r\n 220 not the end\r\n220-\r\n220 Ready\r\n";
    session.replies = {{"PASS", "230-Hello\r\nno number\r\n230 Logged on"}};
    session.afterData = "nonsense\r\n226-Nearly\r\n226 Done";
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(FtpRefusal, GreetingsThatAreNone_AreFailures) {
    const std::vector<std::pair<std::string, voInetError>> greetings = {
        {"", voInetErrorTransferFailed},
        {"nonsense\r\n", voInetErrorTransferFailed},
        {"\xff\xfe\r\n", voInetErrorTransferFailed},
        {"120 Wait\r\n", voInetErrorTransferFailed},
        {"220-Never ends\r\n", voInetErrorTransferFailed},
        {"220 Ready", voInetErrorTransferFailed},
        {std::string(200'000, 'x'), voInetErrorTransferFailed},
        {"400 No\r\n", voInetErrorTransferFailed},
        {"421 Busy\r\n", voInetErrorFailed},
        {"500 No\r\n", voInetErrorFailed},
        {"530 No\r\n", voInetErrorFailed},
        {"550 No\r\n", voInetErrorFileNotFound},
    };
    logOn();
    for (const auto& [greeting, result] : greetings) {
        FtpSession session;
        session.greeting = greeting;
        session.closesAfterGreeting = true;
        EXPECT_EQ(downloadIn(session), result) << greeting.substr(0, 30);
    }
    expectLocalFile("old");
}

TEST_F(FtpRefusal, ServerOfAnotherProtocol_IsATransferFailure) {
    logOn();
    server().control().connection({send("HTTP/1.1 400 Bad Request\r\n\r\n")});

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    expectLocalFile("old");
}

TEST_F(FtpRefusal, ControlConnectionClosedAtEveryCommand_IsATransferFailure) {
    logOn();
    for (const auto& command : kCommands) {
        EXPECT_EQ(downloadRefused(command.word, ""), voInetErrorTransferFailed) << command.word;
    }
    EXPECT_EQ(downloadRefused("EPSV", ""), voInetErrorTransferFailed);
    expectLocalFile("old");
}

TEST_F(FtpRefusal, ControlConnectionClosedBehindTheData_IsATransferFailure) {
    FtpSession session = sending(body());
    session.afterData = "";
    logOn();

    EXPECT_EQ(downloadIn(session), voInetErrorTransferFailed);

    expectLocalFile("old");
}

TEST_F(FtpRefusal, ServerThatRefusesConnections_IsATransferFailure) {
    logOn();
    const RefusingPort dead;
    TransferSettings settings;
    settings.hostNetBios = dead.hostAndPort();
    applySettings(transfer(), settings);
    transfer().m_nPort = dead.port();

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    expectLocalFile("old");
}

TEST_F(FtpRefusal, UploadsInAnyForm_AreNotOffered) {
    logOn();

    EXPECT_EQ(transfer().UploadFile(widened(localFile()), L"file.zip", &sink()),
              voInetErrorNotSupported);
    // The loop over the host forms begins with the address; without one nothing is asked.
    EXPECT_EQ(transfer().UploadFileResponse(widened(localFile()), L"/path",
                                            widened(directory().path("response")), &sink()),
              voInetErrorSuccess);

    EXPECT_THAT(server().commands(), IsEmpty());
    EXPECT_THAT(directory().entries(), ElementsAre("local.zip"));
}

TEST_F(FtpRefusal, ExchangeWithAnAddress_IsAFailure) {
    TransferSettings settings;
    settings.hostIp = server().hostAndPort();
    applySettings(transfer(), settings);

    EXPECT_EQ(transfer().UploadFileResponse(widened(localFile()), L"/path",
                                            widened(directory().path("response")), &sink()),
              voInetErrorFailed);

    EXPECT_EQ(server().sessionCount(), 0U);
    EXPECT_THAT(directory().entries(), ElementsAre("local.zip"));
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
