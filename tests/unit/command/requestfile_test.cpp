#include "requestfile.h"

#include "commanderror.h"
#include "temporaryfolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace voinet_command {

namespace {

class RequestFileTest : public testing::Test {
  protected:
    void ExpectRefused(const std::string& request, ExitStatus status) const {
        ExpectRefused(request, folder.Path("answer"), status);
    }
    void ExpectRefused(const std::string& request, const std::string& response,
                       ExitStatus status) const {
        try {
            checkRequestFile(request, response);
            ADD_FAILURE() << "accepted: " << request;
        } catch (const CommandError& error) {
            EXPECT_EQ(error.Status(), status) << error.what();
        }
    }

    TemporaryFolder folder;
};

}  // namespace

TEST_F(RequestFileTest, ReadableFile_GivesItsSize) {
    const std::string request = folder.Write("request", "12345");

    EXPECT_EQ(checkRequestFile(request, folder.Path("answer")), 5U);
}

TEST_F(RequestFileTest, FileBeyondFourGibibytes_GivesItsSize) {
    const std::string request = folder.Write("request", "");
    const std::uint64_t size = (std::uint64_t{4} << 30) + 1;
    std::filesystem::resize_file(request, size);

    EXPECT_EQ(checkRequestFile(request, folder.Path("answer")), size);
}

TEST_F(RequestFileTest, WhatCannotBeSent_IsALocalFailure) {
    ASSERT_EQ(::mkfifo(folder.Path("fifo").c_str(), 0600), 0);

    ExpectRefused(folder.Path("none"), ExitStatus::localFile);
    ExpectRefused(folder.Path(""), ExitStatus::localFile);
    ExpectRefused(folder.Write("empty", ""), ExitStatus::localFile);
    ExpectRefused(folder.Path("fifo"), ExitStatus::localFile);
    ExpectRefused("/dev/zero", ExitStatus::localFile);
}

TEST_F(RequestFileTest, UnusableNames_AreWrongUse) {
    ExpectRefused("", ExitStatus::usage);
    ExpectRefused("\xff", ExitStatus::usage);
}

TEST_F(RequestFileTest, AnswerInThePlaceOfTheRequest_IsWrongUse) {
    const std::string request = folder.Write("a", "x");
    ASSERT_EQ(::symlink(request.c_str(), folder.Path("link").c_str()), 0);

    ExpectRefused(request, request, ExitStatus::usage);
    ExpectRefused(request, folder.Path("link"), ExitStatus::usage);
    ExpectRefused(folder.Write("b.part", "x"), folder.Path("b"), ExitStatus::usage);
    ExpectRefused(folder.Write("c.part.lock", "x"), folder.Path("c"), ExitStatus::usage);
}

}  // namespace voinet_command
