#include "errorscommand.h"

#include "exitstatus.h"
#include "resulttexts.h"

#include <fmt/format.h>

#include <cstdio>

namespace voinet_command {

namespace {

void writeEvents(const EventStream& events) {
    for (const ResultText& text : resultTexts()) {
        events.Write("error", {{"number", static_cast<int>(text.result)},
                               {"name", text.name},
                               {"meaning", text.meaning}});
    }
    for (const ExitStatusRow& row : exitStatusTable()) {
        events.Write("exit-status", {{"number", static_cast<int>(row.status)},
                                     {"name", row.name},
                                     {"meaning", row.meaning}});
    }
}

}  // namespace

std::string resultTable() {
    std::string table;
    for (const ResultText& text : resultTexts()) {
        table += fmt::format("{:>4}  {:<30}  {}\n", static_cast<int>(text.result), text.name,
                             text.meaning);
    }
    return table;
}

std::string exitStatusLines() {
    std::string lines;
    for (const ExitStatusRow& row : exitStatusTable()) {
        lines += fmt::format("  {:>3}  {:<12}  {}\n", static_cast<int>(row.status), row.name,
                             row.meaning);
    }
    return lines;
}

void runErrors(const EventStream& events) {
    if (events.Enabled()) {
        writeEvents(events);
        return;
    }
    const std::string text = "Results of the library:\n" + resultTable() +
                             "\nExit statuses of the command:\n" + exitStatusLines();
    std::fputs(text.c_str(), stdout);
}

}  // namespace voinet_command
