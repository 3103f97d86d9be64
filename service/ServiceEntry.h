// The entry logic of evc-service: command line to service, and the way the
// service ended to an exit status and a line on standard error.
#pragma once

#include <map>
#include <string>

// Argument index (0 = program path) to the argument's bytes.
typedef std::map<unsigned int, std::string> TArgumentMap;

// Argument index to argument bytes, copied from main's argument vector.
TArgumentMap ZKMakeArgumentMap(int argc, char* argv[]);

// Exit statuses: 0 the service ended normally (or its host is gone), 1 usage,
// 2 a std::exception ended it, 3 any other exception, 4 a lock of the segment
// was not released in time.
int main_utf8(TArgumentMap& arguments);

// main_utf8 with other limits (a test program passes short ones).
int RunServiceEntry(TArgumentMap& arguments, int commandTimeoutSeconds, unsigned int lockWaitLimitMs);
