#include "client/ServiceLocation.h"

#include <linux/limits.h>
#include <unistd.h>

#include <cstdlib>

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

}  // namespace

std::string ServicePath(const ClientOptions& options)
{
    if (!options.servicePath.empty())
        return options.servicePath;
    const char* fromEnvironment = getenv("EVC_SERVICE");
    return fromEnvironment != nullptr && *fromEnvironment ? fromEnvironment : ProgramFolder() + "/evc-service";
}

std::string ApplicationFolder(const ClientOptions& options, const std::string& servicePath)
{
    if (!options.applicationFolder.empty())
        return options.applicationFolder;
    const std::string prefix = ParentFolder(ParentFolder(servicePath));
    return access((prefix + "/" + options.hostBundle).c_str(), F_OK) == 0 ? prefix : prefix + "/lib/evc";
}

}  // namespace evc
