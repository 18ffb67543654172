#ifndef VOINET_COMMAND_INTERRUPT_H
#define VOINET_COMMAND_INTERRUPT_H

namespace voinet_command {

/// Makes the first SIGINT or SIGTERM a request to stop; a second one of the same kind kills. A
/// closed standard output is no reason to die either: temporary files would stay.
void installInterruptHandlers();

/// A descriptor that becomes readable, for good, when a stop is requested. Never to be read from.
/// For threads that wait.
int interruptDescriptor();

/// Whether a stop was requested.
bool interrupted();

/// Throws CommandError (cancelled) when a stop was requested.
void throwIfInterrupted();

}  // namespace voinet_command

#endif  // VOINET_COMMAND_INTERRUPT_H
