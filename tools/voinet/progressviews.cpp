#include "progressviews.h"

#include "texts.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <optional>

namespace voinet_command {

namespace {

using Clock = ProgressMeter::Clock;

constexpr std::chrono::milliseconds kBarInterval{100};
constexpr std::chrono::milliseconds kEventInterval{200};
constexpr int kMaxBarWidth = 40;
constexpr int kMinBarWidth = 8;
// Two brackets and the blank before them.
constexpr int kBrackets = 3;
constexpr int kMaxFiguresWidth = 46;
constexpr std::size_t kMaxNameWidth = 30;
// Plain lines: one for each tenth, or for each 16 MiB while the size is not known.
constexpr std::uint64_t kSteps = 10;
constexpr std::uint64_t kUnknownStep = std::uint64_t{16} << 20;

/// The share in percent, never 100 before the end.
std::uint64_t percentOf(const ProgressState& state) {
    if (!state.total || *state.total == 0) {
        return 0;
    }
    const double share = static_cast<double>(state.done) / static_cast<double>(*state.total);
    return std::min<std::uint64_t>(static_cast<std::uint64_t>(share * 100), 100);
}

std::string figures(const ProgressState& state) {
    std::string text =
        state.total ? fmt::format("{} of {}", formatBytes(state.done), formatBytes(*state.total))
                    : formatBytes(state.done);
    if (state.bytesPerSecond > 0) {
        text +=
            fmt::format(", {}/s", formatBytes(static_cast<std::uint64_t>(state.bytesPerSecond)));
    }
    if (state.remaining && state.done < state.total.value_or(0)) {
        text += fmt::format(", {} left", formatDuration(*state.remaining));
    }
    return text;
}

std::string drawnBar(std::uint64_t percent, int width) {
    const auto cells = static_cast<std::uint64_t>(width);
    const std::uint64_t full = percent * cells / 100;
    return fmt::format("[{:=<{}}{: <{}}]", "", full, "", cells - full);
}

/// Lets one call in `interval` through; the first one always.
class Throttle {
  public:
    explicit Throttle(Clock::duration interval) : m_interval(interval) {}

    bool Due() {
        const auto now = Clock::now();
        if (m_last && now - *m_last < m_interval) {
            return false;
        }
        m_last = now;
        return true;
    }

  private:
    Clock::duration m_interval;
    std::optional<Clock::time_point> m_last;
};

class BarView final : public ProgressView {
  public:
    BarView(Console& console, std::string name) : m_console(console), m_name(std::move(name)) {}

    void Show(const ProgressState& state) override {
        if (m_throttle.Due()) {
            Draw(state);
        }
    }
    void End(const ProgressState& state) override {
        Draw(state);
        m_console.EndBar();
    }

  private:
    void Draw(const ProgressState& state) {
        m_console.Bar(formatBar(m_name, state, m_console.Width()));
    }

    Console& m_console;
    std::string m_name;
    Throttle m_throttle{kBarInterval};
};

class LineView final : public ProgressView {
  public:
    LineView(Console& console, std::string name) : m_console(console), m_name(std::move(name)) {}

    void Show(const ProgressState& state) override {
        const std::uint64_t step =
            state.total ? percentOf(state) * kSteps / 100 : state.done / kUnknownStep;
        if (step > m_step && step < kSteps) {
            m_console.Line(formatProgressLine(m_name, state));
        }
        m_step = step;
    }
    void End(const ProgressState& state) override {
        m_console.Line(formatProgressLine(m_name, state));
    }

  private:
    Console& m_console;
    std::string m_name;
    std::uint64_t m_step = 0;
};

class EventView final : public ProgressView {
  public:
    explicit EventView(const EventStream& events) : m_events(events) {}

    void Show(const ProgressState& state) override {
        // Before the first byte there is nothing to tell.
        if (state.done > 0 && m_throttle.Due()) {
            Write(state);
        }
    }
    void End(const ProgressState& state) override { Write(state); }

  private:
    void Write(const ProgressState& state) {
        EventStream::Object fields;
        fields["done"] = state.done;
        fields["total"] = nullptr;
        if (state.total) {
            fields["total"] = *state.total;
        }
        fields["bytesPerSecond"] = static_cast<std::uint64_t>(state.bytesPerSecond);
        fields["secondsLeft"] = nullptr;
        if (state.remaining) {
            fields["secondsLeft"] = *state.remaining;
        }
        m_events.Write("progress", fields);
    }

    const EventStream& m_events;
    Throttle m_throttle{kEventInterval};
};

}  // namespace

std::string formatBar(const std::string& name, const ProgressState& state, int width) {
    const std::string shown =
        name.size() > kMaxNameWidth ? "..." + name.substr(name.size() - kMaxNameWidth + 3) : name;
    const std::string tail = figures(state);
    std::string line = fmt::format("{} {}", shown, tail);
    if (state.total) {
        const std::uint64_t percent = percentOf(state);
        const std::string share = fmt::format(" {:3}% ", percent);
        // Room for the longest figures, so that the bar keeps its length.
        const int figuresWidth = std::max(static_cast<int>(tail.size()), kMaxFiguresWidth);
        const int room =
            width - 1 - static_cast<int>(shown.size() + share.size()) - kBrackets - figuresWidth;
        if (room >= kMinBarWidth) {
            line = fmt::format("{} {}{}{}", shown, drawnBar(percent, std::min(room, kMaxBarWidth)),
                               share, tail);
        }
    }
    // A line that fills the last column would wrap and could not be drawn over.
    return line.substr(0, static_cast<std::size_t>(std::max(width - 1, 1)));
}

std::string formatProgressLine(const std::string& name, const ProgressState& state) {
    return state.total ? fmt::format("{}: {}% ({})", name, percentOf(state), figures(state))
                       : fmt::format("{}: {}", name, figures(state));
}

std::unique_ptr<ProgressView> makeProgressView(const OutputOptions& options, Console& console,
                                               const EventStream& events, const std::string& name) {
    if (events.Enabled()) {
        return std::make_unique<EventView>(events);
    }
    if (options.quiet) {
        return nullptr;
    }
    if (console.IsTerminal()) {
        return std::make_unique<BarView>(console, name);
    }
    return std::make_unique<LineView>(console, name);
}

}  // namespace voinet_command
