// Clean termination on signals.
// SPDX-License-Identifier: MIT
#pragma once

namespace tarn
{

/// Thrown when a signal stops the work. The stack unwinds, then the process ends by that signal.
struct Interrupted
{
    int signalNumber;
};

/// The number in Interrupted after requestStop.
inline constexpr int kStopRequested = -1;

/// Makes the signals that end a process stop the work cleanly, except those of crashes, and makes a file-size limit a
/// write error.
///
/// SIGPIPE is one of them: a write to a pipe whose reader has ended fails, and the work stops. Signals that the parent
/// ignores, as nohup does, stay ignored; if it ignores SIGPIPE, such a write fails only. A forked process calls this
/// again, so that its signals do not wake its parent.
void catchInterrupts();

/// Stops the work of all threads as a signal does.
void requestStop() noexcept;

/// The signal that arrived, kStopRequested, or 0.
int arrivedSignal() noexcept;

/// A descriptor that becomes readable when a signal arrives.
int interruptDescriptor() noexcept;

/// Throws Interrupted if a signal arrived.
void throwIfInterrupted();

/// Waits until a read or write of the descriptor will not block; throws Interrupted if a signal arrives first.
///
/// events  POLLIN or POLLOUT
void waitUntilReady(int descriptor, short events);

/// Ends the process by the signal, as if it were not caught.
[[noreturn]] void dieBySignal(int signalNumber);

} // namespace tarn
