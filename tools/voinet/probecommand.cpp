#include "probecommand.h"

#include "commanderror.h"
#include "failurereport.h"
#include "interrupt.h"
#include "texts.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetError;
using tessaro_com::pkm::voInet::voInetErrorSuccess;
using tessaro_com::pkm::voInet::voInetProtocolLocal;

namespace {

void checkLocalRepository(const std::string& repository) {
    struct stat info {};
    if (::stat(repository.c_str(), &info) != 0) {
        throw CommandError(ExitStatus::notFound,
                           fmt::format("no repository at {}: {}", repository, std::strerror(errno)),
                           "check --repository");
    }
    if (!S_ISDIR(info.st_mode)) {
        throw CommandError(ExitStatus::notFound, fmt::format("{} is no folder", repository),
                           "check --repository");
    }
}

std::string answerText(const Attempt& attempt, bool connectOnly) {
    std::string where = attemptLine(attempt);
    if (connectOnly) {
        return where + " (connected only, because of --timeout)";
    }
    switch (attempt.Answer().value_or(0)) {
        case 401:
        case 403:
        case 407:
            return where + " (the server is there; downloads need credentials)";
        default:
            return where;
    }
}

std::string successText(const Options& options, const Session& session) {
    if (options.connection.protocol == voInetProtocolLocal) {
        return options.connection.repository + ": ok";
    }
    return answerText(session.Attempts().All().back(), options.probe.timeout.has_value());
}

void reportSuccess(const Options& options, const CommandContext& context, const Session& session) {
    const std::string text = successText(options, session);
    if (!options.output.quiet && !options.output.json) {
        std::puts(withoutControls(text).c_str());
    }
    context.events.Write("result", {{"exitStatus", static_cast<int>(ExitStatus::success)},
                                    {"exitName", exitStatusName(ExitStatus::success)},
                                    {"result", static_cast<int>(voInetErrorSuccess)},
                                    {"message", text}});
}

}  // namespace

ExitStatus runProbe(const Options& options, const CommandContext& context) {
    Session session(options.connection, context);
    context.events.Write("start", {{"command", "probe"}});
    if (options.connection.protocol == voInetProtocolLocal) {
        checkLocalRepository(options.connection.repository);
    }
    const voInetError result = session.Logon(options.probe.timeout);
    throwIfInterrupted();
    if (result != voInetErrorSuccess) {
        const FailureReport report = reportOf(session.Attempts(), result);
        for (const std::string& line : reportLines(report)) {
            context.console.Line(line);
        }
        context.events.Write("result", reportFields(report));
        return report.status;
    }
    reportSuccess(options, context, session);
    return ExitStatus::success;
}

}  // namespace voinet_command
