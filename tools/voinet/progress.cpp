#include "progress.h"

#include "interrupt.h"

#include <cmath>
#include <limits>

namespace voinet_command {

namespace {

// Shorter than this, a rate says more about buffers than about the line.
constexpr std::chrono::milliseconds kSampleTime{250};
// The share of the latest sample in the average: about three seconds of memory.
constexpr double kSampleWeight = 0.1;
// Nobody waits for longer, and the figure would not fit its type.
constexpr double kMaxRemaining = 1e9;

std::optional<std::uint64_t> remainingSeconds(const ProgressState& state) {
    if (!state.total || *state.total < state.done || state.bytesPerSecond <= 0) {
        return std::nullopt;
    }
    const double seconds =
        std::ceil(static_cast<double>(*state.total - state.done) / state.bytesPerSecond);
    if (seconds > kMaxRemaining) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(seconds);
}

}  // namespace

ProgressState ProgressMeter::Update(Clock::time_point now, std::uint64_t moved,
                                    std::optional<std::uint64_t> toMove, std::uint64_t offset) {
    if (moved < m_markedBytes) {
        // The download started over.
        m_markedBytes = moved;
        m_mark = now;
    }
    const std::chrono::duration<double> time = now - m_mark;
    if (time >= kSampleTime) {
        const double sample = static_cast<double>(moved - m_markedBytes) / time.count();
        m_rate = m_rateKnown ? m_rate + kSampleWeight * (sample - m_rate) : sample;
        m_rateKnown = true;
        m_mark = now;
        m_markedBytes = moved;
    }
    ProgressState state;
    state.done = offset + moved;
    if (toMove) {
        state.total = offset + *toMove;
    }
    state.bytesPerSecond = m_rate;
    state.remaining = remainingSeconds(state);
    return state;
}

ProgressSink::ProgressSink(const long* resumeOffset, ProgressView* view)
    : m_resumeOffset(resumeOffset), m_view(view), m_meter(ProgressMeter::Clock::now()) {}

void ProgressSink::OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* status,
                                      const wchar_t* /*siteText1*/, const wchar_t* /*siteText2*/,
                                      const wchar_t* /*remoteUrl*/, bool* goOn) {
    const bool countable = *bytesDone < std::numeric_limits<unsigned long>::max();
    m_moved = countable ? std::optional<std::uint64_t>(*bytesDone) : std::nullopt;
    const bool announced = *bytesTotal > 0 && *bytesTotal < std::numeric_limits<long>::max();
    m_announced = announced ? std::optional<std::uint64_t>(*bytesTotal) : std::nullopt;
    m_lastStatus = *status;
    if (interrupted()) {
        *goOn = false;
        m_stopped = true;
    }
    if (m_view != nullptr) {
        m_state = m_meter.Update(ProgressMeter::Clock::now(), *bytesDone, m_announced,
                                 static_cast<std::uint64_t>(*m_resumeOffset));
        m_view->Show(m_state);
    }
}

void ProgressSink::End() {
    if (m_view != nullptr) {
        m_view->End(m_state);
    }
}

}  // namespace voinet_command
