/// @file
/// EVC_CLIENT_API marks what the shared client library exports; everything
/// else in it is built with hidden visibility. Harmless in a static build.
#pragma once

#if defined(__GNUC__)
#define EVC_CLIENT_API __attribute__((visibility("default")))
#else
#define EVC_CLIENT_API
#endif

// The private halves of exported classes stay inside the library.
#if defined(__GNUC__)
#define EVC_CLIENT_LOCAL __attribute__((visibility("hidden")))
#else
#define EVC_CLIENT_LOCAL
#endif
