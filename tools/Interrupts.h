// Ctrl-C for evc-encode. SIGINT and SIGTERM are blocked in every thread
// (and so in the service it starts, which inherits the mask: a terminal's
// Ctrl-C reaches only the encoder) and taken by one thread of their own.
// The first asks the encode to stop reading and finish a playable file; the
// second kills the service at once (and every one started after it, so a
// session that restarts services gives up) so that the encode ends without
// delay.
#pragma once

namespace evc {
namespace tools {

// Call first in main, before any other thread or child process starts.
void InstallInterrupts();
// Signals received so far.
int InterruptCount();
// The service to kill at the second signal (0: none).
void SetServiceToKill(int pid);

}  // namespace tools
}  // namespace evc
