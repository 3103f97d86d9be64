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
// With quick false, the thread gets the default slice back.
bool ZKPreferQuickWakeUps(bool quick = true);

// The slice the kernel gives a thread (0: the calling one) in nanoseconds;
// 0 where it does not say.
unsigned long long ZKThreadSliceNs(int threadId);

// Two threads that hand the turn to each other many times a second lose
// most of each hand-over on a virtual machine when the one woken sleeps on
// another processor, which must first be woken itself (tens of
// microseconds). Kept on one processor, they hand over without that.

// A processor for such a pair: the calling thread's current one the first
// time in a process, then the following ones of its set in turn, so that
// parallel pairs spread out. -1 when the thread may run on one processor
// only, or the system does not tell.
int ZKPickSharedProcessor();

// Whether processor is one the calling thread may run on.
bool ZKMayRunOn(int processor);

// Keeps the calling thread on one processor until released (from any
// thread), then gives it back the set it had. Does nothing for -1 or a
// processor outside its set.
class TZKProcessorPin {
public:
    TZKProcessorPin() = default;
    TZKProcessorPin(const TZKProcessorPin&) = delete;
    TZKProcessorPin& operator=(const TZKProcessorPin&) = delete;
    ~TZKProcessorPin() { release(); }
    void pin(int processor);
    void release();
    bool pinned() const { return m_pinned; }

private:
    bool m_pinned = false;
    int m_thread = 0;
    unsigned char m_before[128];  // the set it had (a cpu_set_t)
};
