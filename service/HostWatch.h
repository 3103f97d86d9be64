// Ends the service when its host process is gone. A thread waits on a pidfd
// of the host (or, where the system has none, looks every 100 ms), so it
// notices at once whatever the service is doing: waiting for a command,
// blocked on a lock the dead host held, or stuck in a codec. It then removes
// the host's segment file and lock name when no live creator holds them, says
// so on standard error and ends the process with status 0.
//
// The service's own waits for the segment's locks are bounded as well, without
// relying on that thread: a wait that finds the host gone ends the same way,
// and a lock that a live host holds for longer than the limit ends the service
// with a line on standard error and kExitLockNotReleased.
#pragma once

#include <string>

constexpr int kExitLockNotReleased = 4;
// Far beyond the microseconds a live peer holds a lock, and independent of
// the protocol's command time-outs.
constexpr unsigned int kLockWaitLimitMs = 5000;

// Starts watching; a host id of 0 or below means no host to watch. Returns at
// once; when the host is already gone the process ends here.
void StartHostWatch(long long hostPid, const std::string& segmentKey, unsigned int lockWaitLimitMs);
