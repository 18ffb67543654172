#ifndef VOINET_COMMAND_SESSION_H
#define VOINET_COMMAND_SESSION_H

#include "attempts.h"
#include "events.h"
#include "logoutput.h"
#include "masking.h"
#include "options.h"
#include "voinet/voinet.h"

#include <memory>
#include <optional>
#include <string>

namespace voinet_command {

struct TransferDeleter {
    void operator()(tessaro_com::pkm::voInet::TransferItf* transfer) const;
};

/// A transfer object of the library's factory.
using TransferPtr = std::unique_ptr<tessaro_com::pkm::voInet::TransferItf, TransferDeleter>;

/// What the parts of the command share. All members outlive everything that gets a reference.
struct CommandContext {
    Console& console;
    const EventStream& events;
    Masker& masker;
    LogOutput& log;
};

/// One transfer object with the settings of the command line, and the attempts it makes.
class Session {
  public:
    /// Checks the settings, fetches the secrets and fills the transfer object. Throws CommandError.
    Session(const ConnectionOptions& options, const CommandContext& context);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    tessaro_com::pkm::voInet::TransferItf& Transfer() { return *m_transfer; }
    const AttemptLog& Attempts() const { return m_attempts; }

    /// Logs on, with a time-out in seconds when there is one.
    tessaro_com::pkm::voInet::voInetError Logon(std::optional<unsigned int> timeout);

    /// Ends the running attempt, and writes the attempts that are new as events.
    void Finish(Stage stage, tessaro_com::pkm::voInet::voInetError result);

  private:
    ActiveTarget Target() const;

    CommandContext m_context;
    TransferPtr m_transfer;
    AttemptLog m_attempts;
    std::size_t m_reported = 0;
};

/// An attempt as the fields of an event.
EventStream::Object attemptFields(const Attempt& attempt);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_SESSION_H
