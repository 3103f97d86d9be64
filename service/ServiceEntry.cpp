#include "service/ServiceEntry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "service/CodecListing.h"
#include "service/ExternalVideoCompressorService.h"
#include "service/HostWatch.h"
#include "service/MainThreadScheduling.h"
#include "service/Sandbox.h"
#include "service/ZKConvertToScalar.h"

namespace {

constexpr const char kListCodecsOption[] = "--list-codecs";

// evc-service --list-codecs [APP_FOLDER [HOST_BUNDLE]]: the bundle defaults to
// Evc.app, the folder to the parent of the program's folder when the bundle is
// there (a build tree), else to the installed one.
int RunListing(TArgumentMap& arguments)
{
    if (arguments.size() > 4) {
        std::cerr << "USAGE: " << arguments[0] << " " << kListCodecsOption << " [appFolder [hostBundle]]" << std::endl;
        return 1;
    }
    const std::string bundle = arguments.size() > 3 ? arguments[3] : std::string("Evc.app");
    std::string folder = arguments.size() > 2 ? arguments[2] : std::string();
    if (folder.empty()) {
        const std::string program = QCoreApplication::applicationDirPath().toStdString();
        folder = program.substr(0, program.rfind('/'));
        if (!QFileInfo::exists(QString::fromStdString(folder + "/" + bundle)))
            folder = QDir::cleanPath(QString::fromStdString(program + "/" EVC_APPDIR_FROM_BINDIR)).toStdString();
    }
    return ListCodecs(std::cout, folder, bundle);
}

}  // namespace

TArgumentMap ZKMakeArgumentMap(int argc, char* argv[])
{
    TArgumentMap arguments;
    for (int i = 0; i < argc; ++i)
        arguments[static_cast<unsigned int>(i)] = std::string(argv[i], std::strlen(argv[i]));
    return arguments;
}

int main_utf8(TArgumentMap& arguments)
{
    return RunServiceEntry(arguments, kServiceCommandTimeoutSeconds, kLockWaitLimitMs);
}

int RunServiceEntry(TArgumentMap& arguments, int commandTimeoutSeconds, unsigned int lockWaitLimitMs)
{
    // The application object gets the program path only, from a buffer of its
    // own that lives as long as the object.
    std::string& programPath = arguments[0];
    programPath.reserve(programPath.size() + 1);
    int qtArgumentCount = 1;
    char* qtArguments[] = {&programPath[0], nullptr};
    QCoreApplication application(qtArgumentCount, qtArguments);

    if (arguments.size() >= 2 && arguments[1] == kListCodecsOption) {
        // Listing runs plug-in code too.
        const std::string refused = EnterSandbox();
        if (!refused.empty()) {
            std::cerr << "Error: " << refused << std::endl;
            return 2;
        }
        return RunListing(arguments);
    }

    if (arguments.size() != 4) {
        std::cerr << "USAGE: " << programPath << " clientShmKey clientProcessId clientApplicationName" << std::endl;
        return 1;
    }

    const std::string clientShmKey = arguments[1];
    const long long clientProcessId = ZKConvertToScalar<long long>(arguments[2].c_str());
    const std::string clientApplicationName = arguments[3];
    // The thread that answers the host runs as soon as the host posts, even
    // while the codec's threads (which keep the default) fill the processors.
    StartMainThreadScheduling();
    // Before anything can block: a host that dies never leaves us behind.
    const std::string refused = EnterSandbox();
    if (!refused.empty()) {
        std::cerr << "Error: " << refused << std::endl;
        return 2;
    }
    StartHostWatch(clientProcessId, clientShmKey, lockWaitLimitMs);

    try {
        ExternalVideoCompressorService service(static_cast<unsigned long long>(clientProcessId), clientApplicationName,
                                               clientShmKey, commandTimeoutSeconds);
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
        return 2;
    } catch (...) {
        std::cerr << "Error: unknown exception error" << std::endl;
        return 3;
    }
    return 0;
}
