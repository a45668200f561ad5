#pragma once

namespace tarn
{

/// Thrown where work stops because of a signal; the stack unwinds, then the process dies by that signal.
struct Interrupted
{
    int signalNumber;
};

/// Makes SIGINT, SIGTERM, SIGHUP and SIGQUIT stop the work cleanly, and a file-size limit an ordinary write error.
///
/// Signals that the parent has set to be ignored, as nohup does, stay ignored. A forked process calls it again, so that
/// its signals do not wake its parent.
void catchInterrupts();

/// The signal that has arrived, or 0.
int arrivedSignal() noexcept;

/// A descriptor that is readable as soon as a signal has arrived.
int interruptDescriptor() noexcept;

/// Throws Interrupted if a signal has arrived.
void throwIfInterrupted();

/// Waits until a read or write of the descriptor will not block; throws Interrupted if a signal arrives first.
///
/// events  POLLIN or POLLOUT
void waitUntilReady(int descriptor, short events);

/// Ends the process by the signal, as if it had not been caught.
[[noreturn]] void dieBySignal(int signalNumber);

} // namespace tarn
