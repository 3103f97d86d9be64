#include "ipc/details/QuickWakeUps.h"

#include "ipc/details/FutexWake.h"

#include <atomic>
#include <cstdint>
#include <cstring>

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

bool ZKPreferQuickWakeUps(bool quick)
{
#ifdef __linux__
    TSchedAttr attr;
    if (!ZKFutexWakeUpsEnabled() || !GetAttr(0, attr) || attr.policy != SCHED_OTHER)
        return false;
    attr.size = sizeof attr;
    attr.runtime = quick ? kShortestSliceNs : 0;
    // Utilisation limits stay as they are without their flags.
    attr.flags = kResetOnFork;
    return syscall(SYS_sched_setattr, 0, &attr, 0) == 0;
#else
    (void)quick;
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

#ifdef __linux__
static_assert(sizeof(cpu_set_t) <= 128, "TZKProcessorPin keeps a cpu_set_t");

namespace {

bool OwnSet(cpu_set_t& set)
{
    CPU_ZERO(&set);
    return sched_getaffinity(0, sizeof set, &set) == 0;
}

}  // namespace
#endif

int ZKPickSharedProcessor()
{
#ifdef __linux__
    static std::atomic<int> last{-1};
    cpu_set_t set;
    if (!OwnSet(set) || CPU_COUNT(&set) < 2)
        return -1;
    int previous = last.load();
    for (;;) {
        int next = -1;
        if (previous < 0) {
            next = sched_getcpu();
        } else {
            for (int k = 1; k <= CPU_SETSIZE && next < 0; ++k) {
                const int candidate = (previous + k) % CPU_SETSIZE;
                if (CPU_ISSET(candidate, &set))
                    next = candidate;
            }
        }
        if (next < 0 || next >= CPU_SETSIZE || !CPU_ISSET(next, &set))
            return -1;
        if (last.compare_exchange_weak(previous, next))
            return next;
    }
#else
    return -1;
#endif
}

bool ZKMayRunOn(int processor)
{
#ifdef __linux__
    cpu_set_t set;
    return processor >= 0 && processor < CPU_SETSIZE && OwnSet(set) && CPU_ISSET(processor, &set);
#else
    (void)processor;
    return false;
#endif
}

void TZKProcessorPin::pin(int processor)
{
#ifdef __linux__
    if (m_pinned || processor < 0 || processor >= CPU_SETSIZE)
        return;
    cpu_set_t before;
    if (!OwnSet(before) || !CPU_ISSET(processor, &before))
        return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0)
        return;
    std::memcpy(m_before, &before, sizeof before);
    m_thread = static_cast<int>(gettid());
    m_pinned = true;
#else
    (void)processor;
#endif
}

void TZKProcessorPin::release()
{
#ifdef __linux__
    if (!m_pinned)
        return;
    cpu_set_t before;
    std::memcpy(&before, m_before, sizeof before);
    sched_setaffinity(m_thread, sizeof before, &before);
    m_pinned = false;
#endif
}
