#pragma once

/// How main learns that the responder's detached thread has nothing left to do.
///
/// The thread sets its exit event early: after it, it still logs, and unmaps and unlinks the shared table.
/// A process that ended then would leave the table behind, and the next start would fail on it. One such
/// thread at a time in a process.
namespace ZNORBRESPONDER {

/// Called by main right before it starts the thread, so that waiting for its end may begin at any time.
void expectThread();

/// Called by main when the thread could not be started after all.
void cancelThread();

/// Called by the thread as its first act: its end, after `run` and `finish` have returned, will be
/// announced. From its end on the thread also holds SIGTERM back, so that only main can take it.
///
/// In a process that a failed exec has made of this thread's fork there is no main to tell: the thread's
/// end is then the end of that process, at once and with status 0, as a last thread's end is; but without
/// destructors, which would wait for the main thread that was never copied.
void announceThreadEnd();

/// Blocks until the thread that is expected, or has announced its end itself, has come to it. Returns at
/// once when there is none.
void awaitThreadEnd();

} // namespace ZNORBRESPONDER
