#ifndef VOINET_COMMAND_PROGRESS_H
#define VOINET_COMMAND_PROGRESS_H

#include "voinet/netsessionsink.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace voinet_command {

/// How far a download is. Bytes count from the begin of the file: what a resume found already there
/// is in both figures.
struct ProgressState {
    std::uint64_t done = 0;
    /// Unset when the server announced no size.
    std::optional<std::uint64_t> total;
    double bytesPerSecond = 0;
    /// Seconds; unset when nobody can tell.
    std::optional<std::uint64_t> remaining;
};

/// Shows progress; the leaves are the bar, plain lines and JSON events.
class ProgressView {
  public:
    virtual ~ProgressView() = default;
    /// Called as often as the transfer reports; a view decides for itself what to show.
    virtual void Show(const ProgressState& state) = 0;
    /// The transfer is over, with the file or a part of it; `state` is how it ended.
    virtual void End(const ProgressState& state) = 0;
};

/// The rate of a transfer, averaged over its latest seconds, and what follows from it.
class ProgressMeter {
  public:
    using Clock = std::chrono::steady_clock;

    explicit ProgressMeter(Clock::time_point start) : m_mark(start) {}

    /// `moved` is what this transfer moved so far, `offset` what was there before.
    ProgressState Update(Clock::time_point now, std::uint64_t moved,
                         std::optional<std::uint64_t> toMove, std::uint64_t offset);

  private:
    Clock::time_point m_mark;
    std::uint64_t m_markedBytes = 0;
    double m_rate = 0;
    bool m_rateKnown = false;
};

/// The sink of a download: counts, asks the interrupt flag, and feeds a view.
class ProgressSink : public tessaro_com::pkm::voInet::CNetSessionSink {
  public:
    /// `resumeOffset` is the variable that the library sets to 0 when a download starts over; it is
    /// read at each call. `view` may be null. Neither is owned.
    ProgressSink(const long* resumeOffset, ProgressView* view);

    void OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* status,
                            const wchar_t* siteText1, const wchar_t* siteText2,
                            const wchar_t* remoteUrl, bool* goOn) override;

    /// Tells the view that the transfer is over. Not to be called after a failure: what was counted
    /// then may be the bytes of an error page.
    void End();

    /// What this transfer moved. Unset before the first report, and where the figure is at the
    /// limit of what the library can count, which happens where `long` has 32 bits.
    std::optional<std::uint64_t> Moved() const { return m_moved; }
    /// What it was going to move; unset when the server announced no size, or as above.
    std::optional<std::uint64_t> Announced() const { return m_announced; }
    /// This sink stopped the transfer.
    bool Stopped() const { return m_stopped; }
    /// The latest status that the library reported.
    int LastStatus() const { return m_lastStatus; }

  private:
    const long* m_resumeOffset;
    ProgressView* m_view;
    ProgressMeter m_meter;
    ProgressState m_state;
    std::optional<std::uint64_t> m_moved;
    std::optional<std::uint64_t> m_announced;
    int m_lastStatus = 0;
    bool m_stopped = false;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_PROGRESS_H
