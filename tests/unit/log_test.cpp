#include "voinet/log.h"

#include "support/logcapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::ElementsAre;

namespace {

struct FrontEnd {
    const char* name;
    void (*write)(const char*, const char*, ...);
    std::string (*line)(const std::string&, const std::string&);

    friend std::ostream& operator<<(std::ostream& stream, const FrontEnd& frontEnd) {
        return stream << frontEnd.name;
    }
};

class LogFrontEnds : public testing::TestWithParam<FrontEnd> {};

INSTANTIATE_TEST_SUITE_P(All, LogFrontEnds,
                         testing::Values(FrontEnd{"Info", voinet_Loginfo, infoLine},
                                         FrontEnd{"Debug", voinet_LoginfoDebug, debugLine},
                                         FrontEnd{"WarnAtInformationLevel", voinet_LogWarn,
                                                  infoLine},
                                         FrontEnd{"Error", voinet_LogError, errorLine}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace

TEST_P(LogFrontEnds, Message_ReachesItsLevelWithModuleAndArguments) {
    GetParam().write("voInet", "port %d of %s", 8080, "server");
    EXPECT_THAT(logLines(), ElementsAre(GetParam().line("port 8080 of server", "voInet")));
}

TEST_P(LogFrontEnds, MessageOf511Characters_ArrivesWhole) {
    const std::string text(511, 'a');
    GetParam().write("voInet", "%s", text.c_str());
    EXPECT_THAT(logLines(), ElementsAre(GetParam().line(text, "voInet")));
}

TEST_P(LogFrontEnds, MessagesOf512And600Characters_AreCutTo511) {
    for (const std::size_t length : {512U, 600U}) {
        clearLog();
        GetParam().write("voInet", "%s",
                         (std::string(510, 'a') + std::string(length, 'b')).c_str());
        EXPECT_THAT(logLines(),
                    ElementsAre(GetParam().line(std::string(510, 'a') + "b", "voInet")));
    }
}

TEST_P(LogFrontEnds, Message_GetsNeitherPrefixNorNewline) {
    GetParam().write("tag", "%s", "");
    EXPECT_THAT(logLines(), ElementsAre(GetParam().line("", "tag")));
}

TEST_P(LogFrontEnds, IllFormedText_BecomesReplacementCharacters) {
    GetParam().write("voInet", "a%sb", "\xFF");
    EXPECT_THAT(logLines(), ElementsAre(GetParam().line("a\xEF\xBF\xBD"
                                                        "b",
                                                        "voInet")));
}

TEST(LogLevels, DetailSwitchedOff_DebugLinesStillGoToTheHost) {
    voinet_LoginfoDebug("voInet", "always");
    EXPECT_THAT(logLines(), ElementsAre(debugLine("always")));
}
