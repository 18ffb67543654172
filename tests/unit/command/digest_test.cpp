#include "digest.h"

#include "commanderror.h"
#include "temporaryfolder.h"
#include "uniquefd.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace voinet_command {

namespace {

std::string digestOf(const std::string& content) {
    const TemporaryFolder folder;
    const UniqueFd file(::open(folder.Write("f", content).c_str(), O_RDONLY | O_CLOEXEC));
    return sha256OfFile(file.Get(), "f");
}

}  // namespace

// The vectors of FIPS 180-2.
TEST(Digest, KnownTexts_GiveKnownDigests) {
    EXPECT_EQ(digestOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digestOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digestOf(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Digest, UnreadableFile_IsALocalFailure) {
    const UniqueFd folder(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    try {
        sha256OfFile(folder.Get(), "the folder");
        FAIL() << "a folder was read";
    } catch (const CommandError& error) {
        EXPECT_EQ(error.Status(), ExitStatus::localFile);
    }
}

TEST(Digest, Form_IsChecked) {
    EXPECT_TRUE(isSha256(std::string(64, '0')));
    EXPECT_TRUE(isSha256(std::string(64, 'F')));
    EXPECT_FALSE(isSha256(""));
    EXPECT_FALSE(isSha256(std::string(63, '0')));
    EXPECT_FALSE(isSha256(std::string(65, '0')));
    EXPECT_FALSE(isSha256(std::string(63, '0') + "x"));
}

TEST(Digest, Comparison_IgnoresLetterCaseOnly) {
    EXPECT_TRUE(sameDigest("ab01", "AB01"));
    EXPECT_FALSE(sameDigest("ab01", "ab02"));
    EXPECT_FALSE(sameDigest("ab01", "ab0"));
}

}  // namespace voinet_command
