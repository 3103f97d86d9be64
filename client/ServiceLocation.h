// Where the client finds evc-service and the folder that holds the host
// bundle, from the options, the environment and the running program.
#pragma once

#include <string>

#include "evc/Client.h"

namespace evc {

// options.servicePath, else $EVC_SERVICE, else evc-service beside the program,
// else the installation's, found from the folder of libevc-client.so (or, in
// a program linked statically, the configured prefix's).
std::string ServicePath(const ClientOptions& options);
// options.hostBundle, else $EVC_HOST_BUNDLE, else Evc.app.
std::string HostBundle(const ClientOptions& options);
// options.applicationFolder, else the parent of the service's folder when the
// host bundle is there (a build tree), else PREFIX/LIBDIR/evc (an
// installation), found from the service's folder.
std::string ApplicationFolder(const ClientOptions& options, const std::string& servicePath);

}  // namespace evc
