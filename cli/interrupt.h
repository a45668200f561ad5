// Clean termination on SIGINT, SIGTERM, SIGHUP and SIGQUIT.
// SPDX-License-Identifier: MIT
#pragma once

namespace tarn
{

/// Thrown when a signal stops the work. The stack unwinds, then the process ends by that signal.
struct Interrupted
{
    int signalNumber;
};

/// Makes SIGINT, SIGTERM, SIGHUP and SIGQUIT stop the work cleanly, and makes a file-size limit a write error.
///
/// Signals that the parent ignores, as nohup does, stay ignored. A forked process calls this again, so that its signals
/// do not wake its parent.
void catchInterrupts();

/// The signal that arrived, or 0.
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
