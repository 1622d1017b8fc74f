#pragma once
// Ctrl+C, SIGTERM and SIGHUP end the program through the event loop rather than at once, so what
// runs on the way out (pending marks written, a receiver's unfinished files removed) still runs.
namespace QuitSignals {

// Call once, after the QCoreApplication exists. Only write() runs inside the handler; the quit
// itself happens on the main thread.
void install();

} // namespace QuitSignals
