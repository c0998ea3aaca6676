#pragma once

namespace ZNORBRESPONDER {

/// `-test`: the unified responder in the foreground of a terminal, its log on the console, with the keys
/// "p" (list the table) and "q" (end). Takes no lock and does not go to the background. Returns the exit
/// status, -1 (255).
///
/// Not meant to run beside a daemon: it would find the daemon's table in its way and unlink its name, and
/// "q" would stop the daemon.
///
/// Needs an open standard input: at its end the key loop goes on reading, busily and for ever, and only a
/// signal ends test mode.
int runTestConsole();

/// Waits, without an overall limit, until standard input can be read. False when waiting fails.
bool waitForInput();

/// The next byte of standard input, 0 at its end or when waiting failed.
int readKey();

} // namespace ZNORBRESPONDER
