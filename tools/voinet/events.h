#ifndef VOINET_COMMAND_EVENTS_H
#define VOINET_COMMAND_EVENTS_H

#include <nlohmann/json.hpp>

namespace voinet_command {

/// The output of --json: one object per line on standard output, flushed at once so that a reader
/// can follow. Objects keep the order of their fields, "event" first. Any thread may use it: a line
/// is written in one piece.
class EventStream {
  public:
    using Object = nlohmann::ordered_json;

    explicit EventStream(bool enabled) : m_enabled(enabled) {}

    bool Enabled() const { return m_enabled; }
    /// Writes {"event": `name`, ...fields}; nothing when not enabled.
    void Write(const char* name, const Object& fields) const;

  private:
    bool m_enabled;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_EVENTS_H
