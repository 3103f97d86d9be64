// The CoreFoundation bundle and URL calls that plug-in discovery makes, with
// the names and argument order of the real framework. On macOS the framework
// itself is used; elsewhere a small implementation over POSIX directories and
// dlopen stands in (see CFObjects.cpp and CFBundle.cpp).
//
// Ownership follows the framework's rule: what a Create or Copy call returns
// belongs to the caller and is released with CFRelease; what a Get call
// returns is lent and stays owned by the object it came from.
#pragma once

#ifdef __APPLE__

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#else

#include <cstdint>

typedef long CFIndex;
typedef unsigned char Boolean;
typedef uint32_t CFStringEncoding;
typedef int16_t SInt16;
typedef int16_t OSErr;

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFURL* CFURLRef;
typedef const struct __CFArray* CFArrayRef;
typedef struct __CFBundle* CFBundleRef;

// The only allocator there is.
#define kCFAllocatorDefault (static_cast<CFAllocatorRef>(nullptr))

enum : CFStringEncoding {
    kCFStringEncodingUTF8 = 0x08000100,
};

typedef CFIndex CFURLPathStyle;
enum : CFURLPathStyle {
    kCFURLPOSIXPathStyle = 0,
};

// A file-system reference as CoreServices hands it around: opaque, 80 bytes.
struct FSRef {
    uint8_t hidden[80];
};

enum : OSErr {
    noErr = 0,
    unimpErr = -4,  // the routine does nothing on this platform
};

// Releases an object made by a Create or Copy call; null is ignored.
void CFRelease(CFTypeRef object);

// Strings: UTF-8 text only.
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);
// Copies the text and its terminator; false when the buffer is too small.
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding);

// URLs of files: "file://" + the percent-encoded absolute path, with a
// trailing "/" for a directory. A relative path is taken from the current
// working directory.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath, CFURLPathStyle pathStyle,
                                       Boolean isDirectory);
CFStringRef CFURLGetString(CFURLRef url);
// True when the URL names an existing file or folder.
Boolean CFURLGetFSRef(CFURLRef url, FSRef* reference);

// Arrays hold their items retained; a null result for an index out of range.
CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

// Bundles: a folder Name.ext with Contents/Linux/<executable>, where the
// executable is named by CFBundleExecutable in Contents/Info.plist or else is
// the folder's name without its extension.
CFBundleRef CFBundleGetMainBundle();
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
// Contents/PlugIns; null when the bundle has no such folder.
CFURLRef CFBundleCopyBuiltInPlugInsURL(CFBundleRef bundle);
// Every folder directly inside the directory whose name ends in "." +
// bundleType, sorted by name (byte order); null when the folder cannot be read.
CFArrayRef CFBundleCreateBundlesFromDirectory(CFAllocatorRef allocator, CFURLRef directoryURL, CFStringRef bundleType);
// URLs of the entries of Contents/Resources[/subDirName] whose names end in
// "." + resourceType, sorted by name; null when the folder cannot be read.
CFArrayRef CFBundleCopyResourceURLsOfType(CFBundleRef bundle, CFStringRef resourceType, CFStringRef subDirName);

// dlopen of the executable (RTLD_NOW | RTLD_LOCAL); the loader's complaint
// goes to standard error. Loading a loaded bundle again succeeds at once.
Boolean CFBundleLoadExecutable(CFBundleRef bundle);
Boolean CFBundleIsExecutableLoaded(CFBundleRef bundle);
// dlsym in the loaded executable; null when it is not loaded.
void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName);
void CFBundleUnloadExecutable(CFBundleRef bundle);

// Component registration has no counterpart here: nothing is registered and
// the answer is unimpErr.
OSErr RegisterComponentFileRef(const FSRef* reference, SInt16 global);

#endif
