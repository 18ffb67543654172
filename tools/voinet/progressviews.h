#ifndef VOINET_COMMAND_PROGRESSVIEWS_H
#define VOINET_COMMAND_PROGRESSVIEWS_H

#include "console.h"
#include "events.h"
#include "options.h"
#include "progress.h"

#include <memory>
#include <string>

namespace voinet_command {

/// One line that fits `width` columns: name, bar and share (or only the bytes while the size is not
/// known), rate, remaining time.
std::string formatBar(const std::string& name, const ProgressState& state, int width);

/// One line without a bar.
std::string formatProgressLine(const std::string& name, const ProgressState& state);

/// The view that fits the options: JSON events, nothing when quiet, a bar on a terminal, plain
/// lines elsewhere. The references must outlive the view. Null when nothing is to be shown.
std::unique_ptr<ProgressView> makeProgressView(const OutputOptions& options, Console& console,
                                               const EventStream& events, const std::string& name);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_PROGRESSVIEWS_H
