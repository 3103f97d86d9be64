#include "ipc/details/QuickWakeUps.h"

#include "ipc/details/FutexWake.h"

#include <cstdint>

#ifdef __linux__
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace {

#ifdef __linux__
// The kernel's struct sched_attr (its header clashes with glibc's sched.h).
struct TSchedAttr {
    uint32_t size;
    uint32_t policy;
    uint64_t flags;
    int32_t nice;
    uint32_t priority;
    uint64_t runtime;  // for the normal policy: the slice asked for, in ns
    uint64_t deadline;
    uint64_t period;
    uint32_t utilMin;
    uint32_t utilMax;
};
static_assert(sizeof(TSchedAttr) == 56, "the kernel's SCHED_ATTR_SIZE_VER1");

constexpr uint64_t kResetOnFork = 0x01;
// The shortest slice the kernel accepts.
constexpr uint64_t kShortestSliceNs = 100000;

bool GetAttr(int threadId, TSchedAttr& attr)
{
    attr = TSchedAttr{};
    return syscall(SYS_sched_getattr, threadId, &attr, sizeof attr, 0) == 0;
}
#endif

}  // namespace

bool ZKPreferQuickWakeUps()
{
#ifdef __linux__
    TSchedAttr attr;
    if (!ZKFutexWakeUpsEnabled() || !GetAttr(0, attr) || attr.policy != SCHED_OTHER)
        return false;
    attr.size = sizeof attr;
    attr.runtime = kShortestSliceNs;
    // Utilisation limits stay as they are without their flags.
    attr.flags = kResetOnFork;
    return syscall(SYS_sched_setattr, 0, &attr, 0) == 0;
#else
    return false;
#endif
}

unsigned long long ZKThreadSliceNs(int threadId)
{
#ifdef __linux__
    TSchedAttr attr;
    return GetAttr(threadId, attr) && attr.policy == SCHED_OTHER ? attr.runtime : 0;
#else
    (void)threadId;
    return 0;
#endif
}
