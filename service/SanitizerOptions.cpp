// The service's default sanitizer options. clang's runtimes name the functions in a report (and
// match leak suppressions by function) through llvm-symbolizer, a process they start when first
// needed: inside the sandbox that is a refused fork, and the report becomes a SIGSYS. So the
// service's reports give modules and offsets only (llvm-symbolizer reads them afterwards); to
// see names at once, run it with EVC_NO_SANDBOX=1 ASAN_OPTIONS=symbolize=1. gcc's runtimes
// read the names in the process and keep symbolizing.
#if defined(__clang__)

#define EVC_SERVICE_SANITIZER_OPTIONS "symbolize=0"

#if defined(EVC_SANITIZE_ADDRESS)
extern "C" const char* __asan_default_options()
{
    return EVC_SERVICE_SANITIZER_OPTIONS;
}
#endif
#if defined(EVC_SANITIZE_UNDEFINED)
extern "C" const char* __ubsan_default_options()
{
    return EVC_SERVICE_SANITIZER_OPTIONS;
}
#endif
#if defined(EVC_SANITIZE_THREAD)
extern "C" const char* __tsan_default_options()
{
    return EVC_SERVICE_SANITIZER_OPTIONS;
}
#endif

#endif
