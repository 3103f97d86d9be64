// Confinement of evc-service once it has started: no new privileges, and a
// system-call filter that refuses what a codec never needs (running programs,
// new processes, sockets, tracing, mounts, kernel modules, keyrings, ...).
// Files, mappings, threads, time, futexes and the loading of plug-in bundles
// stay allowed. A refused call ends the service by SIGSYS after one line on
// standard error that names the call ("evc-service: sandbox refused <name>").
// EVC_NO_SANDBOX=1 in the environment leaves the service unconfined, for
// debugging plug-ins.
#pragma once

#include <string>

constexpr char kNoSandboxVariable[] = "EVC_NO_SANDBOX";

// Installs the filter for every thread of the process (call before any other
// thread starts). "" on success or when switched off, else what failed.
std::string EnterSandbox();
