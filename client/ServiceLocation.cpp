#include "client/ServiceLocation.h"

#include <dlfcn.h>
#include <linux/limits.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace evc {

namespace {

std::string ProgramFolder()
{
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return ".";
    std::string text(path, static_cast<size_t>(n));
    const size_t slash = text.rfind('/');
    return slash == std::string::npos ? "." : text.substr(0, slash);
}

std::string ParentFolder(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The folder of the object this code was linked into: the program, or
// libevc-client.so in PREFIX/LIBDIR.
std::string CodeFolder()
{
    Dl_info info{};
    static const int anchor = 0;
    if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr || *info.dli_fname == 0)
        return ProgramFolder();
    char path[PATH_MAX];
    if (realpath(info.dli_fname, path) == nullptr)
        return ProgramFolder();
    return ParentFolder(path);
}

// An installed path, from an installed folder and the relative path between them.
std::string Installed(const std::string& from, const char* relative)
{
    return (std::filesystem::path(from) / relative).lexically_normal().string();
}

// evc-service beside the program (a build tree, an installed evc-encode),
// else in the installation's BINDIR, found from the LIBDIR that holds this
// library, else (a program linked with libevc-client.a) in the BINDIR of the
// prefix the library was built for.
std::string DefaultServicePath()
{
    const std::string besideProgram = ProgramFolder() + "/evc-service";
    for (const std::string& path : {besideProgram, Installed(CodeFolder(), EVC_BINDIR_FROM_LIBDIR "/evc-service"),
                                    std::string(EVC_INSTALL_FULL_BINDIR "/evc-service")})
        if (access(path.c_str(), X_OK) == 0)
            return path;
    return besideProgram;
}

}  // namespace

std::string ServicePath(const ClientOptions& options)
{
    if (!options.servicePath.empty())
        return options.servicePath;
    const char* fromEnvironment = getenv("EVC_SERVICE");
    return fromEnvironment != nullptr && *fromEnvironment ? fromEnvironment : DefaultServicePath();
}

std::string HostBundle(const ClientOptions& options)
{
    if (!options.hostBundle.empty())
        return options.hostBundle;
    const char* fromEnvironment = getenv("EVC_HOST_BUNDLE");
    return fromEnvironment != nullptr && *fromEnvironment ? fromEnvironment : "Evc.app";
}

std::string ApplicationFolder(const ClientOptions& options, const std::string& servicePath)
{
    if (!options.applicationFolder.empty())
        return options.applicationFolder;
    const std::string serviceFolder = ParentFolder(servicePath);
    const std::string buildTree = ParentFolder(serviceFolder);
    return access((buildTree + "/" + HostBundle(options)).c_str(), F_OK) == 0
               ? buildTree
               : Installed(serviceFolder, EVC_APPDIR_FROM_BINDIR);
}

}  // namespace evc
