#pragma once
// A thread that hands the turn back and forth with another process spends
// most of a command asleep; when it is woken while codec threads keep every
// processor busy, the scheduler lets it wait for a running thread's slice to
// end (up to about a millisecond). Asking for the shortest slice (Linux 6.12
// and later) lets such a thread run as soon as it is woken, without taking a
// larger share of the processor. Older kernels ignore the request.

// Asks for the shortest slice for the calling thread when it runs under the
// normal policy (real-time, batch and idle threads keep theirs, as do its
// nice value and utilisation limits). The threads and processes it starts
// afterwards get the default slice again: a codec's worker threads must not
// compete on equal terms with the thread that feeds them. Does nothing when
// wake-ups are off (EVC_NO_FUTEX). Answers whether the kernel took the request.
bool ZKPreferQuickWakeUps();

// The slice the kernel gives a thread (0: the calling one) in nanoseconds;
// 0 where it does not say.
unsigned long long ZKThreadSliceNs(int threadId);
