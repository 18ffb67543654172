#include "secrets.h"

#include "commanderror.h"
#include "temporaryfolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace voinet_command {

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char* kVariable = "VOINET_COMMAND_TEST_SECRET";

SecretSource fromFile(const std::string& path) {
    SecretSource source;
    source.file = path;
    return source;
}

SecretSource fromVariable() {
    SecretSource source;
    source.environment = kVariable;
    return source;
}

std::string refusal(const SecretSource& source) {
    try {
        readSecret(source, "password");
    } catch (const CommandError& error) {
        return error.what();
    }
    return "accepted";
}

}  // namespace

TEST(Secrets, NoSource_GivesNothing) {
    EXPECT_EQ(readSecret(SecretSource(), "password"), "");
}

TEST(Secrets, File_GivesItsFirstLine) {
    const TemporaryFolder folder;
    for (const std::string content :
         {"pa ss", "pa ss\n", "pa ss\r\n", "pa ss\nand a second line\n"}) {
        EXPECT_EQ(readSecret(fromFile(folder.Write("f", content)), "password"), "pa ss");
    }
}

TEST(Secrets, Variable_GivesItsValue) {
    ::setenv(kVariable, "p\xc3\xa4ss", 1);
    EXPECT_EQ(readSecret(fromVariable(), "password"), "p\xc3\xa4ss");
    ::unsetenv(kVariable);
    EXPECT_THAT(refusal(fromVariable()), HasSubstr(kVariable));
}

TEST(Secrets, UnusableSecrets_AreRefusedWithoutShowingThem) {
    const TemporaryFolder folder;
    for (const std::string content : {"", "\n", "geheim\xff", "geheim\x01\n", "geheim\tx"}) {
        const std::string text = refusal(fromFile(folder.Write("f", content)));
        EXPECT_THAT(text, HasSubstr("password"));
        EXPECT_THAT(text, Not(HasSubstr("geheim")));
    }
    ::setenv(kVariable, "geheim\nHeader: injected", 1);
    EXPECT_THAT(refusal(fromVariable()), Not(HasSubstr("geheim")));
    EXPECT_NE(refusal(fromVariable()), "accepted");
    ::unsetenv(kVariable);
}

TEST(Secrets, MissingFile_IsALocalFailure) {
    const TemporaryFolder folder;
    try {
        readSecret(fromFile(folder.Path("none")), "password");
        FAIL() << "read";
    } catch (const CommandError& error) {
        EXPECT_EQ(error.Status(), ExitStatus::localFile);
    }
}

}  // namespace voinet_command
