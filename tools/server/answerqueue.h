#ifndef VOINET_SERVER_ANSWERQUEUE_H
#define VOINET_SERVER_ANSWERQUEUE_H

#include "content.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace voinetserver {

/// Hands out the files of a directory, each once, in the byte order of their names. Threads may
/// take answers at the same time.
///
/// The directory is looked at anew every time, so that answers can be added while the server runs;
/// a name with a dot in front is no answer, so that they can be added complete, by renaming.
class AnswerQueue {
  public:
    /// An empty name is an empty queue. Throws StartError when `directory` is no directory.
    explicit AnswerQueue(const std::string& directory);

    /// The next answer, null when all have been handed out. Throws std::system_error when it cannot
    /// be read; it stays the next one then.
    std::shared_ptr<const Content> next();

  private:
    std::optional<std::string> nextName() const;

    std::filesystem::path directory_;
    std::mutex mutex_;
    std::set<std::string> handedOut_;
};

}  // namespace voinetserver

#endif
