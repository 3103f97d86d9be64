#include "service/Sandbox.h"

#include <sched.h>
#include <seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// Calls that end the service when tried. clone is refused only when it would
// make a new process (neither a thread nor a child sharing our memory, which
// the sanitizers' leak checker uses); clone3 answers ENOSYS so the C library
// falls back to clone, whose flags the filter can see.
const char* const kRefused[] = {
    "execve",
    "execveat",
    "fork",
    "vfork",
    "socket",
    "socketpair",
    "connect",
    "bind",
    "listen",
    "accept",
    "accept4",
    "sendto",
    "sendmsg",
    "sendmmsg",
    "recvfrom",
    "recvmsg",
    "recvmmsg",
    "mount",
    "umount2",
    "pivot_root",
    "chroot",
    "init_module",
    "finit_module",
    "delete_module",
    "kexec_load",
    "kexec_file_load",
    "add_key",
    "request_key",
    "keyctl",
    "bpf",
    "perf_event_open",
    "userfaultfd",
    "setns",
    "unshare",
    "reboot",
    "swapon",
    "swapoff",
    "iopl",
    "ioperm",
    "process_vm_readv",
    "process_vm_writev",
    "open_by_handle_at",
#if !defined(EVC_SANITIZE_ADDRESS) && !defined(EVC_SANITIZE_THREAD)
    // The sanitizers' leak checker stops the threads by tracing them.
    "ptrace",
#endif
};
constexpr size_t kRefusedCount = sizeof kRefused / sizeof kRefused[0];

// Filled before the filter is loaded: the handler only reads them.
int g_refusedNumbers[kRefusedCount + 1];
int g_cloneNumber = -1;

void Write(const char* text)
{
    (void)!write(STDERR_FILENO, text, std::strlen(text));
}

void OnRefused(int, siginfo_t* info, void*)
{
    const char* name = "an unknown call";
    if (info->si_syscall == g_cloneNumber)
        name = "clone (a new process)";
    for (size_t i = 0; i < kRefusedCount; ++i) {
        if (g_refusedNumbers[i] == info->si_syscall)
            name = kRefused[i];
    }
    Write("evc-service: sandbox refused ");
    Write(name);
    Write("\n");
    // End by the signal itself, so the host sees SIGSYS.
    signal(SIGSYS, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGSYS);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    raise(SIGSYS);
    _exit(128 + SIGSYS);
}

}  // namespace

std::string EnterSandbox()
{
    const char* off = std::getenv(kNoSandboxVariable);
    if (off != nullptr && std::strcmp(off, "1") == 0)
        return std::string();
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return std::string("cannot set no_new_privs: ") + std::strerror(errno);

    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_sigaction = OnRefused;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    if (sigaction(SIGSYS, &action, nullptr) != 0)
        return std::string("cannot catch SIGSYS: ") + std::strerror(errno);

    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    if (filter == nullptr)
        return "cannot create the system-call filter";
    // Every thread, also one a library may have started already.
    int error = seccomp_attr_set(filter, SCMP_FLTATR_CTL_TSYNC, 1);
    for (size_t i = 0; i < kRefusedCount && error == 0; ++i) {
        g_refusedNumbers[i] = seccomp_syscall_resolve_name(kRefused[i]);
        if (g_refusedNumbers[i] != __NR_SCMP_ERROR)
            error = seccomp_rule_add(filter, SCMP_ACT_TRAP, g_refusedNumbers[i], 0);
    }
    g_cloneNumber = seccomp_syscall_resolve_name("clone");
    if (error == 0)
        error = seccomp_rule_add(filter, SCMP_ACT_TRAP, g_cloneNumber, 1,
                                 SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD | CLONE_VM, 0));
    const int clone3 = seccomp_syscall_resolve_name("clone3");
    if (error == 0 && clone3 != __NR_SCMP_ERROR)
        error = seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), clone3, 0);
    if (error == 0)
        error = seccomp_load(filter);
    seccomp_release(filter);
    if (error != 0)
        return std::string("cannot install the system-call filter: ") + std::strerror(-error);
    return std::string();
}
