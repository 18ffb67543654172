#include "faults.h"

#include <algorithm>
#include <limits>

namespace voinetserver {
namespace {

constexpr std::size_t kLargestPiece = 65'536;

// A slowed-down reply trickles instead of coming in bursts.
constexpr std::uint64_t kPiecesPerSecond = 20;

std::size_t pieceSizeFor(const std::optional<std::uint64_t>& rate) {
    if (!rate) {
        return kLargestPiece;
    }
    const std::uint64_t piece = std::max<std::uint64_t>(*rate / kPiecesPerSecond, 1);
    return static_cast<std::size_t>(std::min<std::uint64_t>(piece, kLargestPiece));
}

}  // namespace

std::optional<int> StatusPlayer::next(const std::string& path) {
    const auto script = scripts_.find(path);
    if (script == scripts_.end()) {
        return std::nullopt;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    std::size_t& position = positions_[path];
    const int status = script->second[position];
    position = std::min(position + 1, script->second.size() - 1);
    return status == kServeFile ? std::nullopt : std::optional<int>(status);
}

std::uint64_t CutRules::limitFor(const std::string& path) const {
    const auto rule = byPath.find(path);
    if (rule != byPath.end()) {
        return rule->second;
    }
    return everywhere.value_or(std::numeric_limits<std::uint64_t>::max());
}

Pacer::Pacer(std::optional<std::uint64_t> rate, StopEvent& stop)
    : rate_(rate), stop_(stop), pieceSize_(pieceSizeFor(rate)) {}

bool Pacer::wait(std::uint64_t sent) {
    if (!rate_) {
        return true;
    }
    // Measured from the start, so that a late wake-up is made up for.
    const std::chrono::duration<double> due(static_cast<double>(sent) /
                                            static_cast<double>(*rate_));
    const auto ticks = std::chrono::duration_cast<std::chrono::steady_clock::duration>(due);
    return !stop_.waitUntil(start_ + ticks);
}

}  // namespace voinetserver
