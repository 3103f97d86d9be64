#include "ipc/details/FutexWake.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <unistd.h>

#ifdef __linux__
#include <linux/futex.h>
#include <sys/syscall.h>
#endif

bool ZKFutexWakeUpsEnabled()
{
#ifdef __linux__
    const char* off = std::getenv("EVC_NO_FUTEX");
    return off == nullptr || *off == '\0' || std::strcmp(off, "0") == 0;
#else
    return false;
#endif
}

TZKFutexWaitEnd ZKFutexWait(const volatile int32_t* word, int32_t seen, unsigned int microseconds)
{
#ifdef __linux__
    timespec limit;
    limit.tv_sec = microseconds / 1000000u;
    limit.tv_nsec = static_cast<long>(microseconds % 1000000u) * 1000L;
    if (syscall(SYS_futex, const_cast<int32_t*>(word), FUTEX_WAIT, seen, &limit, nullptr, 0) == 0)
        return TZKFutexWaitEnd::kWoken;
    return errno == ETIMEDOUT ? TZKFutexWaitEnd::kTimedOut : TZKFutexWaitEnd::kOther;
#else
    (void)word;
    (void)seen;
    usleep(microseconds);
    return TZKFutexWaitEnd::kTimedOut;
#endif
}

void ZKFutexWake(const volatile int32_t* word)
{
#ifdef __linux__
    syscall(SYS_futex, const_cast<int32_t*>(word), FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
#else
    (void)word;
#endif
}
