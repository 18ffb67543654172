// What the development server serves, and what it refuses to serve.

#include "serversite.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace voinettest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Optional;
using ::testing::StartsWith;

// --- Files ---------------------------------------------------------------------------------------

TEST(ServerFiles, Get_SendsTheFileWithItsLength) {
    const Site site;
    const std::string data = positionDependent(300'001);
    site.write("large.bin", data);
    const DevelopmentServer server = serve(site);

    const RawReply reply = get(server, "/large.bin");

    EXPECT_EQ(reply.status, 200);
    EXPECT_THAT(reply.header("Content-Length"), Optional(std::string("300001")));
    EXPECT_THAT(reply.header("Accept-Ranges"), Optional(std::string("bytes")));
    EXPECT_THAT(reply.header("Content-Type"), Optional(std::string("application/octet-stream")));
    EXPECT_FALSE(reply.header("Content-Range"));
    EXPECT_FALSE(reply.header("Transfer-Encoding"));
    EXPECT_TRUE(reply.body == data);
}

TEST(ServerFiles, Head_HasTheHeadersOfGetAndNoBody) {
    const Site site;
    const DevelopmentServer server = serve(site);
    RawConnection connection(server.port());

    connection.send(rawRequest("HEAD", "/file.bin"));
    const RawReply headReply = connection.readReply(BodyExpected::no);
    connection.send(rawRequest("GET", "/file.bin"));
    const RawReply getReply = connection.readReply();

    EXPECT_EQ(headReply.status, 200);
    EXPECT_EQ(headReply.headers, getReply.headers);
    EXPECT_EQ(getReply.body, fileData());
}

TEST(ServerFiles, Names_AreDecodedAndQueriesIgnored) {
    const Site site;
    site.write("with blank.bin", "blank");
    site.write("100%.bin", "percent");
    site.write(
        "gr\xC3\xBC\xC3\x9F"
        "e/a.bin",
        "umlaut");
    site.write("a+b.bin", "plus");
    site.write("line\nbreak", "line");
    const DevelopmentServer server = serve(site);

    EXPECT_EQ(get(server, "/folder/inner.bin").body, fileData());
    EXPECT_EQ(get(server, "//folder///inner.bin").body, fileData());
    EXPECT_EQ(get(server, "/./file.bin").body, fileData());
    EXPECT_EQ(get(server, "/file.bin?name=value").body, fileData());
    EXPECT_EQ(get(server, "/with%20blank.bin").body, "blank");
    EXPECT_EQ(get(server, "/100%25.bin").body, "percent");
    EXPECT_EQ(get(server, "/gr%C3%BC%C3%9Fe/a.bin").body, "umlaut");
    EXPECT_EQ(get(server, "/a+b.bin").body, "plus");
    EXPECT_EQ(get(server, "/line%0Abreak").body, "line");
}

TEST(ServerFiles, EmptyFile_IsCompleteAtOnce) {
    const Site site;
    const DevelopmentServer server = serve(site);

    const RawReply reply = get(server, "/empty.bin");

    EXPECT_EQ(reply.status, 200);
    EXPECT_THAT(reply.header("Content-Length"), Optional(std::string("0")));
    EXPECT_TRUE(reply.complete);
}

TEST(ServerFiles, AcceptedEncodings_LeaveTheBytesAsTheyAre) {
    const Site site;
    const std::string text(10'000, 'x');
    site.write("text.txt", text);
    const DevelopmentServer server = serve(site);

    const RawReply reply = get(server, "/text.txt", {"Accept-Encoding: gzip, br, deflate"});

    EXPECT_FALSE(reply.header("Content-Encoding"));
    EXPECT_EQ(reply.body, text);
}

TEST(ServerFiles, FiveGibibytes_HaveTheirLengthAndTheirEnd) {
    const Site site;
    constexpr std::uintmax_t kSize = std::uintmax_t{5} << 30U;
    const std::string file = site.write("huge.bin", "");
    fs::resize_file(file, kSize);
    const Descriptor opened(::open(file.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(::pwrite(opened.get(), "beyond 4 GiB", 12, (off_t{4} << 30U) + 5), 12);
    ASSERT_EQ(::pwrite(opened.get(), "end", 3, static_cast<off_t>(kSize) - 3), 3);
    const DevelopmentServer server = serve(site);

    EXPECT_THAT(head(server, "/huge.bin").header("Content-Length"),
                Optional(std::string("5368709120")));
    const RawReply end = get(server, "/huge.bin", {"Range: bytes=5368709115-"});
    EXPECT_EQ(end.status, 206);
    EXPECT_THAT(end.header("Content-Range"),
                Optional(std::string("bytes 5368709115-5368709119/5368709120")));
    EXPECT_EQ(end.body, std::string("\0\0end", 5));
    EXPECT_EQ(get(server, "/huge.bin", {"Range: bytes=4294967301-4294967312"}).body,
              "beyond 4 GiB");
    EXPECT_EQ(get(server, "/huge.bin", {"Range: bytes=-3"}).body, "end");
    EXPECT_THAT(get(server, "/huge.bin", {"Range: bytes=5368709120-"}).header("Content-Range"),
                Optional(std::string("bytes */5368709120")));
}

TEST(ServerFiles, FileThatShrinksMeanwhile_EndsTheReplyEarly) {
    const Site site;
    const std::string file = site.write("large.bin", "");
    fs::resize_file(file, 64 << 20);
    const DevelopmentServer server = serve(site);
    RawConnection connection(server.port(), "127.0.0.1", 4096);
    connection.send(rawRequest("GET", "/large.bin"));
    ASSERT_THAT(connection.readHead().header("Content-Length"), Optional(std::string("67108864")));

    fs::resize_file(file, 1000);

    EXPECT_LT(connection.readBytes(64 << 20).size(), 64U << 20U);
}

TEST(ServerFiles, ManySlowReplies_LeaveRoomForAnother) {
    const Site site;
    const DevelopmentServer server = serve(site, {"--rate", "1"});
    std::vector<RawConnection> connections;
    constexpr std::size_t kCount = 16;
    connections.reserve(kCount);
    for (std::size_t i = 0; i < kCount; ++i) {
        connections.emplace_back(server.port());
        connections.back().send(rawRequest("GET", "/file.bin"));
        ASSERT_EQ(connections.back().readHead().status, 200);
    }

    EXPECT_EQ(head(server, "/file.bin").status, 200);
}

// --- Ranges --------------------------------------------------------------------------------------

struct RangeCase {
    const char* range;
    int status;
    std::size_t offset;
    std::size_t length;
};

constexpr RangeCase kRangeCases[] = {
    {"bytes=0-0", 206, 0, 1},
    {"bytes=0-999", 206, 0, 1000},
    {"bytes=0-1000", 206, 0, 1000},
    {"bytes=10-19", 206, 10, 10},
    {"bytes=999-999", 206, 999, 1},
    {"bytes=990-5000", 206, 990, 10},
    {"bytes=0-", 206, 0, 1000},
    {"bytes=1-", 206, 1, 999},
    {"bytes=999-", 206, 999, 1},
    {"bytes=-1", 206, 999, 1},
    {"bytes=-1000", 206, 0, 1000},
    {"bytes=-1001", 206, 0, 1000},
    {"Bytes=5-6", 206, 5, 2},
    {"bytes=0-99999999999999999999999", 206, 0, 1000},
    {"bytes=-99999999999999999999999", 206, 0, 1000},
    // Outside.
    {"bytes=1000-", 416, 0, 0},
    {"bytes=1000-1000", 416, 0, 0},
    {"bytes=5000-6000", 416, 0, 0},
    {"bytes=99999999999999999999999-", 416, 0, 0},
    {"bytes=18446744073709551615-", 416, 0, 0},
    {"bytes=-0", 416, 0, 0},
    // Not well-formed, or of another unit: as if it were not there.
    {"bytes=20-10", 200, 0, 1000},
    {"bytes=-", 200, 0, 1000},
    {"bytes=", 200, 0, 1000},
    {"bytes", 200, 0, 1000},
    {"bytes=5", 200, 0, 1000},
    {"bytes=a-b", 200, 0, 1000},
    {"bytes=1-b", 200, 0, 1000},
    {"bytes=a-", 200, 0, 1000},
    {"bytes=-a", 200, 0, 1000},
    {"bytes=--5", 200, 0, 1000},
    {"bytes=+1-5", 200, 0, 1000},
    {"bytes=1--5", 200, 0, 1000},
    {"bytes=1 -5", 200, 0, 1000},
    {"bytes= 1-5", 200, 0, 1000},
    {"bytes 1-5", 200, 0, 1000},
    {"items=1-5", 200, 0, 1000},
    {"1-5", 200, 0, 1000},
    // Several ranges may be answered with everything.
    {"bytes=0-1,3-4", 200, 0, 1000},
    {"bytes=0-1, 5000-", 200, 0, 1000},
    {"bytes=0-1,", 200, 0, 1000},
};

TEST(ServerRanges, EveryForm_IsAnsweredAsItShould) {
    const Site site;
    const DevelopmentServer server = serve(site);
    for (const RangeCase& test : kRangeCases) {
        SCOPED_TRACE(test.range);

        const RawReply reply = get(server, "/file.bin", {std::string("Range: ") + test.range});

        ASSERT_EQ(reply.status, test.status);
        ASSERT_TRUE(reply.complete);
        if (test.status == 416) {
            EXPECT_THAT(reply.header("Content-Range"), Optional(std::string("bytes */1000")));
            EXPECT_TRUE(isOneLine(reply.body));
            continue;
        }
        EXPECT_EQ(reply.body, fileData().substr(test.offset, test.length));
        EXPECT_THAT(reply.header("Content-Length"), Optional(std::to_string(test.length)));
        EXPECT_THAT(reply.header("Content-Type"),
                    Optional(std::string("application/octet-stream")));
        const std::string contentRange = "bytes " + std::to_string(test.offset) + '-' +
                                         std::to_string(test.offset + test.length - 1) + "/1000";
        EXPECT_EQ(reply.header("Content-Range"),
                  test.status == 206 ? std::optional(contentRange) : std::nullopt);
    }
}

TEST(ServerRanges, EmptyFile_HasNoneThatFits) {
    const Site site;
    const DevelopmentServer server = serve(site);
    for (const std::string range : {"bytes=0-", "bytes=0-0", "bytes=-1"}) {
        const RawReply reply = get(server, "/empty.bin", {"Range: " + range});
        EXPECT_EQ(reply.status, 416) << range;
        EXPECT_THAT(reply.header("Content-Range"), Optional(std::string("bytes */0"))) << range;
    }
}

TEST(ServerRanges, Head_HasNoRanges) {
    const Site site;
    const DevelopmentServer server = serve(site);
    for (const RangeCase& test : kRangeCases) {
        const RawReply reply = head(server, "/file.bin", {std::string("Range: ") + test.range});
        EXPECT_EQ(reply.status, 200) << test.range;
        EXPECT_THAT(reply.header("Content-Length"), Optional(std::string("1000"))) << test.range;
    }
}

TEST(ServerRanges, IgnoreRanges_SendsTheWholeFileForEveryForm) {
    const Site site;
    const DevelopmentServer server = serve(site, {"--ignore-ranges"});
    for (const RangeCase& test : kRangeCases) {
        const RawReply reply = get(server, "/file.bin", {std::string("Range: ") + test.range});
        EXPECT_EQ(reply.status, 200) << test.range;
        EXPECT_EQ(reply.body, fileData()) << test.range;
        EXPECT_FALSE(reply.header("Content-Range")) << test.range;
        EXPECT_THAT(reply.header("Accept-Ranges"), Optional(std::string("none"))) << test.range;
    }
}

// --- SiteStat.xml --------------------------------------------------------------------------------

// Whether every element is closed in the right order; enough for a document without attributes.
bool isBalancedXml(const std::string& document) {
    const std::regex tag("<(/?)([a-z]+)>");
    std::vector<std::string> open;
    std::size_t elements = 0;
    for (std::sregex_iterator it(document.begin(), document.end(), tag), end; it != end; ++it) {
        if ((*it)[1].length() == 0) {
            open.push_back((*it)[2]);
            ++elements;
        } else if (open.empty() || open.back() != (*it)[2]) {
            return false;
        } else {
            open.pop_back();
        }
    }
    return elements > 0 && open.empty();
}

TEST(ServerSiteFile, DirectoryWithout_GetsOneMadeUp) {
    const Site site;
    const DevelopmentServer server = serve(site);
    for (const std::string path : {"/SiteStat.xml", "/folder/SiteStat.xml"}) {
        const RawReply reply = get(server, path);
        EXPECT_EQ(reply.status, 200) << path;
        EXPECT_THAT(reply.header("Content-Type"), Optional(std::string("application/xml")));
        EXPECT_THAT(reply.body, StartsWith("<?xml version=\"1.0\""));
        EXPECT_TRUE(isBalancedXml(reply.body)) << reply.body;
        EXPECT_EQ(head(server, path).header("Content-Length"), std::to_string(reply.body.size()));
        EXPECT_EQ(get(server, path, {"Range: bytes=2-4"}).body, "xml");
    }
    EXPECT_FALSE(fs::exists(site.root() / "SiteStat.xml"));
}

TEST(ServerSiteFile, DirectoryWithOne_KeepsIt) {
    const Site site;
    site.write("SiteStat.xml", "<own/>");
    const DevelopmentServer server = serve(site);

    EXPECT_EQ(get(server, "/SiteStat.xml").body, "<own/>");
    EXPECT_NE(get(server, "/folder/SiteStat.xml").body, "<own/>");
}

TEST(ServerSiteFile, NoSuchDirectoryOrOtherName_IsNotFound) {
    const Site site;
    const DevelopmentServer server = serve(site);
    for (const std::string path :
         {"/missing/SiteStat.xml", "/file.bin/SiteStat.xml", "/sitestat.xml", "/SiteStat.xml.bak",
          "/xSiteStat.xml", "/SiteStat.xml/"}) {
        EXPECT_EQ(head(server, path).status, 404) << path;
    }
}

// --- Refusals ------------------------------------------------------------------------------------

TEST(ServerRefusals, WhatIsNoFile_IsRefusedInOneLine) {
    const Site site;
    ASSERT_EQ(::mkfifo((site.root() / "fifo").c_str(), 0600), 0);
    fs::create_symlink("nowhere", site.root() / "dangling");
    fs::create_symlink("loop", site.root() / "loop");
    const DevelopmentServer server = serve(site);
    const std::vector<std::pair<std::string, int>> cases = {
        {"/missing.bin", 404},
        {"/missing/file.bin", 404},
        {"/file.bin/", 404},
        {"/file.bin/x", 404},
        {"/FILE.BIN", 404},
        {"/dangling", 404},
        {"/" + std::string(300, 'x'), 404},
        {"/", 403},
        {"/folder", 403},
        {"/folder/", 403},
        {"/fifo", 403},
        {"/loop", 403},
    };
    for (const auto& [path, status] : cases) {
        const RawReply reply = get(server, path);
        EXPECT_EQ(reply.status, status) << path;
        EXPECT_TRUE(isOneLine(reply.body)) << reply.body;
        EXPECT_THAT(reply.header("Content-Type"), Optional(std::string("text/plain")));
        EXPECT_EQ(head(server, path).status, status) << path;
    }
}

TEST(ServerRefusals, PathsThatLeadOut_ServeNothing) {
    const Site site;
    fs::create_symlink("../secret.txt", site.root() / "link.txt");
    fs::create_symlink(site.outside() / "secret.txt", site.root() / "absolute.txt");
    fs::create_symlink("..", site.root() / "folder" / "root");
    fs::create_symlink("../..", site.root() / "folder" / "out");
    const DevelopmentServer server = serve(site);
    const std::string absolute = (site.outside() / "secret.txt").string();
    const std::vector<std::pair<std::string, int>> cases = {
        {"/../secret.txt", 403},
        {"/%2e%2e/secret.txt", 403},
        {"/%2E./secret.txt", 403},
        {"/..%2fsecret.txt", 403},
        {"/..%2Fsecret.txt", 403},
        {"/%u002e%u002e/secret.txt", 403},
        {"/folder/../../secret.txt", 403},
        {"/folder/%2e%2e/%2e%2e/secret.txt", 403},
        {"/folder/../file.bin", 403},
        {"/missing/../../secret.txt", 403},
        {"/..", 403},
        {"/../SiteStat.xml", 403},
        {"/..;/secret.txt", 404},
        {"/..\\secret.txt", 404},
        {"/.../secret.txt", 404},
        {"/%252e%252e/secret.txt", 404},
        {"/" + absolute, 404},
        {"/%2f" + absolute, 404},
        {"//" + absolute, 404},
        {"/link.txt", 403},
        {"/absolute.txt", 403},
        {"/folder/out/secret.txt", 403},
        {"/folder/out/SiteStat.xml", 404},
        {"/file.bin%00.txt", 400},
        {"/%00", 400},
        {"secret.txt", 400},
        {"../secret.txt", 400},
        {"http://localhost/../secret.txt", 400},
        {"*", 400},
    };
    for (const auto& [path, status] : cases) {
        SCOPED_TRACE(path);
        const RawReply reply = get(server, path);
        EXPECT_EQ(reply.status, status);
        EXPECT_TRUE(isOneLine(reply.body)) << reply.body;
        EXPECT_THAT(reply.body, Not(HasSubstr(Site::kSecret)));
        EXPECT_THAT(reply.body, Not(HasSubstr(site.outside().string())));
    }
    EXPECT_EQ(get(server, "/folder/root/file.bin").body, fileData());
}

TEST(ServerRefusals, SiblingWithTheSamePrefix_IsOutside) {
    const Site site;
    site.writeOutside("repository-private/file.bin", Site::kSecret);
    fs::create_symlink("../repository-private", site.root() / "private");
    const DevelopmentServer server = serve(site);

    EXPECT_EQ(get(server, "/private/file.bin").status, 403);
}

TEST(ServerRefusals, LinksThatStayInside_AreFollowed) {
    const Site site;
    fs::create_symlink("file.bin", site.root() / "relative.bin");
    fs::create_symlink(fs::canonical(site.root()) / "file.bin", site.root() / "absolute.bin");
    fs::create_directory_symlink(site.root(), site.outside() / "link-to-repository");
    const DevelopmentServer server(kProgram, (site.outside() / "link-to-repository").string());

    EXPECT_EQ(get(server, "/relative.bin").body, fileData());
    EXPECT_EQ(get(server, "/absolute.bin").body, fileData());
}

TEST(ServerRefusals, OtherMethods_AreNotAllowed) {
    const Site site;
    const DevelopmentServer server = serve(site);
    for (const std::string method :
         {"POST", "PUT", "PATCH", "DELETE", "OPTIONS", "TRACE", "CONNECT", "get", "UNHEARD-OF"}) {
        for (const std::string& path :
             {std::string("/file.bin"), std::string("/missing"), std::string("/line%0Abreak"),
              '/' + std::string(8000, 'x')}) {
            SCOPED_TRACE(method + ' ' + path.substr(0, 20));
            const RawReply reply = exchange(server.port(), method, path);
            EXPECT_EQ(reply.status, 405);
            EXPECT_THAT(reply.header("Allow"), Optional(std::string("GET, HEAD")));
            EXPECT_TRUE(isOneLine(reply.body)) << reply.body;
        }
    }
    EXPECT_EQ(get(server, "/file.bin").body, fileData());
}

TEST(ServerRefusals, BodyOfARefusedRequest_IsNotTakenForARequest) {
    const Site site;
    const DevelopmentServer server = serve(site);
    const std::string body = rawRequest("GET", "/missing");
    const std::string form =
        "--x\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nb\r\n--x--\r\n";
    RawConnection connection(server.port());
    for (const std::string method : {"POST", "PUT", "PATCH", "DELETE"}) {
        SCOPED_TRACE(method);
        connection.send(
            rawRequest(method, "/x", {"Content-Length: " + std::to_string(body.size())}) + body);
        EXPECT_EQ(connection.readReply().status, 405);
    }
    connection.send(rawRequest("POST", "/x", {"Transfer-Encoding: chunked"}) +
                    "5\r\nhello\r\n0\r\n\r\n");
    EXPECT_EQ(connection.readReply().status, 405);
    connection.send(rawRequest("POST", "/x",
                               {"Content-Type: multipart/form-data; boundary=x",
                                "Content-Length: " + std::to_string(form.size())}) +
                    form);
    EXPECT_EQ(connection.readReply().status, 405);
    connection.send(rawRequest("GET", "/file.bin"));
    EXPECT_EQ(connection.readReply().body, fileData());
}

TEST(ServerRefusals, WhatIsNoRequest_IsRefusedInOneLine) {
    const Site site;
    const DevelopmentServer server = serve(site);
    const std::vector<std::pair<std::string, int>> cases = {
        {"GET\r\n\r\n", 400},
        {"GET /with blank HTTP/1.1\r\n\r\n", 400},
        {"GET /file.bin HTTP/9.9\r\n\r\n", 400},
        {rawRequest("GET", "/" + std::string(9000, 'x')), 414},
    };
    for (const auto& [request, status] : cases) {
        RawConnection connection(server.port());
        connection.send(request);
        const RawReply reply = connection.readReply();
        EXPECT_EQ(reply.status, status) << request.substr(0, 40);
        EXPECT_TRUE(isOneLine(reply.body)) << reply.body;
    }
    EXPECT_EQ(get(server, "/file.bin").body, fileData());
}

}  // namespace
}  // namespace voinettest
