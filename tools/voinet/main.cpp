#include "commanderror.h"
#include "commandline.h"
#include "environment.h"
#include "errorscommand.h"
#include "failurereport.h"
#include "getcommand.h"
#include "interrupt.h"
#include "postcommand.h"
#include "probecommand.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace voinet_command {

namespace {

ExitStatus runTransfer(const Options& options, Console& console, const EventStream& events) {
    Masker masker;
    LogOutput log(options.output, console, events, masker);
    const CommandContext context{console, events, masker, log};
    switch (options.subcommand) {
        case Subcommand::get:
            return runGet(options, context);
        case Subcommand::post:
            return runPost(options, context);
        default:
            return runProbe(options, context);
    }
}

ExitStatus run(const Options& options) {
    const EventStream events(options.output.json);
    // With JSON every message is an event.
    Console console(options.output.quiet || options.output.json);
    try {
        if (options.subcommand == Subcommand::errors) {
            runErrors(events);
            return ExitStatus::success;
        }
        return runTransfer(options, console, events);
    } catch (const CommandError& error) {
        const FailureReport report = reportOf(error);
        // What is wrong with the command line has to be said in any case.
        Console loud(false);
        Console& target = error.Status() == ExitStatus::usage ? loud : console;
        for (const std::string& line : reportLines(report)) {
            target.Line(line);
        }
        events.Write("result", reportFields(report));
        return error.Status();
    }
}

/// For arguments that nobody could make options of.
bool asksForJson(const std::vector<std::string>& arguments) {
    return std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
}

ExitStatus parseAndRun(const std::vector<std::string>& arguments) {
    Options options;
    try {
        if (const auto text = parseCommandLine(arguments, options)) {
            std::fputs(text->c_str(), stdout);
            return ExitStatus::success;
        }
    } catch (const CommandError& error) {
        const FailureReport report = reportOf(error);
        Console console(false);
        for (const std::string& line : reportLines(report)) {
            console.Line(line);
        }
        EventStream(asksForJson(arguments)).Write("result", reportFields(report));
        return error.Status();
    }
    return run(options);
}

}  // namespace

}  // namespace voinet_command

int main(int argc, char** argv) {
    using voinet_command::ExitStatus;
    try {
        voinet_command::clearProxyEnvironment();
        voinet_command::installInterruptHandlers();
        ExitStatus status = voinet_command::parseAndRun({argv + 1, argv + argc});
        if (std::fflush(stdout) != 0 && status == ExitStatus::success) {
            std::fputs("voinet: cannot write to standard output\n", stderr);
            status = ExitStatus::localFile;
        }
        return static_cast<int>(status);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "voinet: %s\n", error.what());
        return static_cast<int>(ExitStatus::failed);
    }
}
