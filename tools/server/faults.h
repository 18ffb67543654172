#ifndef VOINET_SERVER_FAULTS_H
#define VOINET_SERVER_FAULTS_H

#include "stop.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// What goes wrong on request, so that a host developer can see a client deal with it.

namespace voinetserver {

/// The step of a status script that serves the file instead of answering a status.
inline constexpr int kServeFile = 0;

/// Path to what its requests are answered one after the other; the last step stays.
using StatusScripts = std::map<std::string, std::vector<int>>;

/// Plays the status scripts. Threads share it.
class StatusPlayer {
  public:
    explicit StatusPlayer(StatusScripts scripts) : scripts_(std::move(scripts)) {}

    /// Takes the next step for `path`: the status to answer, or none to serve the file.
    std::optional<int> next(const std::string& path);

  private:
    std::mutex mutex_;
    StatusScripts scripts_;
    std::map<std::string, std::size_t> positions_;
};

/// After how many bytes of its body a reply is cut.
struct CutRules {
    std::optional<std::uint64_t> everywhere;
    std::map<std::string, std::uint64_t> byPath;

    /// The rule of the path wins over the one for everywhere; the largest number means: never.
    std::uint64_t limitFor(const std::string& path) const;
};

/// Slows one reply down. Used by the one thread that sends it.
class Pacer {
  public:
    /// `rate` is in bytes per second, at least 1; none is as fast as it goes.
    Pacer(std::optional<std::uint64_t> rate, StopEvent& stop);

    /// How many bytes to send at once, at most.
    std::size_t pieceSize() const { return pieceSize_; }

    /// Waits until `sent` bytes may have been sent. False when the server stops meanwhile.
    bool wait(std::uint64_t sent);

  private:
    std::optional<std::uint64_t> rate_;
    StopEvent& stop_;
    std::size_t pieceSize_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace voinetserver

#endif
