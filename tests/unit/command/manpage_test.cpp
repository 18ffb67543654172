#include "commandline.h"
#include "exitstatus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

// Holds the man page and the command's help against each other.

namespace voinet_command {

namespace {

using Names = std::set<std::string>;

Names optionsIn(const std::string& text, const std::string& pattern) {
    Names names;
    const std::regex expression(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
         ++match) {
        names.insert((*match)[1]);
    }
    return names;
}

std::string helpOf(const std::vector<std::string>& arguments) {
    Options options;
    return parseCommandLine(arguments, options).value_or("");
}

/// Options stand at the begin of a line, behind two blanks; examples name them elsewhere.
Names helpOptions() {
    const std::string help = "\n" + helpOf({"--help"}) + helpOf({"get", "--help"}) +
                             helpOf({"post", "--help"}) + helpOf({"probe", "--help"}) +
                             helpOf({"errors", "--help"});
    return optionsIn(help, "\n  (?:-[a-z],)?(--[a-z0-9-]+)");
}

std::string manPage() {
    std::ifstream file(VOINET_MAN_PAGE);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return std::regex_replace(text, std::regex(R"(\\-)"), "-");
}

/// The tag of an entry: the line after .TP.
Names manOptions() {
    return optionsIn(manPage(), R"(\n\.TP\n\.(?:BI|BR|B) (--[a-z0-9-]+))");
}

}  // namespace

TEST(ManPage, EveryOptionOfTheHelp_HasItsEntry) {
    const Names help = helpOptions();
    const Names man = manOptions();
    ASSERT_GT(help.size(), 30U) << "the help was not understood";
    for (const std::string& option : help) {
        EXPECT_EQ(man.count(option), 1U) << option << " is missing in the man page";
    }
}

TEST(ManPage, EveryEntry_IsAnOptionOfTheHelp) {
    const Names help = helpOptions();
    const Names man = manOptions();
    ASSERT_GT(man.size(), 30U) << "the man page was not understood";
    for (const std::string& option : man) {
        EXPECT_EQ(help.count(option), 1U) << option << " is missing in the help";
    }
}

TEST(ManPage, ExitStatuses_AreThoseOfTheTable) {
    const std::string page = manPage();
    for (const ExitStatusRow& row : exitStatusTable()) {
        const std::string entry = ".TP\n.B " + std::to_string(static_cast<int>(row.status)) + "\n" +
                                  row.name + ": " + row.meaning + "\n";
        EXPECT_NE(page.find(entry), std::string::npos) << entry;
    }
    const Names numbers = optionsIn(page, R"(\n\.TP\n\.B ([0-9]+)\n)");
    EXPECT_EQ(numbers.size(), exitStatusTable().size());
}

}  // namespace voinet_command
