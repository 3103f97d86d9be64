#pragma once
// Sleeping on a 32-bit word of a shared file mapping until another process
// changes it and wakes us, with a time limit (a Linux futex without the
// private flag, so it works across processes). On other systems, or when the
// environment sets EVC_NO_FUTEX, the wait is a plain sleep and the wake does
// nothing: both sides then only poll.

#include <cstdint>

// Whether this process wakes and sleeps through futexes: false when
// EVC_NO_FUTEX is set to anything but "" or "0". Read on every call, so a
// test can change it before it opens a segment.
bool ZKFutexWakeUpsEnabled();

// Sleeps until woken, until the word no longer holds seen (tested by the
// kernel as the sleep begins, so a change made after the caller read seen is
// not missed), or until microseconds have passed. Spurious returns are
// allowed: the caller checks its condition again. Answers what ended it:
// a wake, the time limit, or anything else (the word had moved, a signal).
enum class TZKFutexWaitEnd { kWoken, kTimedOut, kOther };
TZKFutexWaitEnd ZKFutexWait(const volatile int32_t* word, int32_t seen, unsigned int microseconds);

// Wakes every process sleeping on the word.
void ZKFutexWake(const volatile int32_t* word);
