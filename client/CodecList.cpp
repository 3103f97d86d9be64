#include "evc/CodecList.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "client/ReplyReader.h"
#include "client/ServiceLocation.h"
#include "service/PresetReader.h"

extern char** environ;

namespace evc {

namespace {

constexpr size_t kMaxOutputBytes = 4 << 20;

// Output and status of one run of a program, bounded in time and size.
struct TRun {
    std::string out;
    std::string err;
    int status = 0;
    bool timedOut = false;
};

TRun Run(const std::string& program, const std::vector<std::string>& arguments, std::chrono::milliseconds timeout)
{
    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0)
        throw ServiceError(ServiceError::Kind::StartFailed, 0, -1, "", "cannot create a pipe");
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        close(outPipe[0]);
        close(outPipe[1]);
        throw ServiceError(ServiceError::Kind::StartFailed, 0, -1, "", "cannot create a pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(outPipe[1]);
    close(errPipe[1]);
    if (error != 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        throw ServiceError(ServiceError::Kind::StartFailed, 0, -1, "",
                           "cannot start " + program + ": " + std::strerror(error));
    }

    TRun run;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&run.out, &run.err};
    int open = 2;
    while (open > 0) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            run.timedOut = true;
            break;
        }
        if (poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                // Drained, but kept only up to a bound: the listing of
                // every plug-in takes a few kilobytes.
                if (sinks[i]->size() < kMaxOutputBytes)
                    sinks[i]->append(buffer, static_cast<size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (pollfd& fd : fds) {
        if (fd.fd >= 0)
            close(fd.fd);
    }
    if (run.timedOut)
        kill(pid, SIGKILL);
    while (waitpid(pid, &run.status, 0) < 0 && errno == EINTR) {}
    return run;
}

}  // namespace

std::vector<CodecInfo> ListCodecs(const ClientOptions& options)
{
    const std::string service = ServicePath(options);
    if (access(service.c_str(), X_OK) != 0)
        throw ServiceError(ServiceError::Kind::StartFailed, 0, -1, "",
                           "cannot list the compressors: " + service + " is not an executable file");
    const TRun run = Run(service, {"--list-codecs", ApplicationFolder(options, service), HostBundle(options)},
                         options.commandTimeout);
    if (run.timedOut)
        throw ServiceError(ServiceError::Kind::TimedOut, 0, -1, run.err,
                           "evc-service did not finish listing the compressors within " +
                               std::to_string(options.commandTimeout.count()) + " ms and was stopped");
    if (WIFSIGNALED(run.status))
        throw ServiceError(ServiceError::Kind::Crashed, WTERMSIG(run.status), -1, run.err,
                           "evc-service was killed by signal " + std::to_string(WTERMSIG(run.status)) +
                               " while listing the compressors");
    if (!WIFEXITED(run.status) || WEXITSTATUS(run.status) != 0)
        throw ServiceError(ServiceError::Kind::Exited, 0, WIFEXITED(run.status) ? WEXITSTATUS(run.status) : -1, run.err,
                           "evc-service could not list the compressors");
    return ParseListing(run.out);
}

std::string CheckPresetKinds(const std::string& presetXml, const std::vector<CodecInfo>& codecs)
{
    unsigned int manufacturer = 0;
    unsigned int codec = 0;
    std::vector<TPresetSetting> settings;
    if (!ReadPresetSettings(presetXml, manufacturer, codec, settings))
        return std::string();
    // The first offer of the pair is what the service would make.
    for (const CodecInfo& offered : codecs) {
        if ((manufacturer != 0 && offered.manufacturer != manufacturer) || offered.codec != codec)
            continue;
        std::vector<EVCSettingInfo> declared;
        for (const SettingInfo& s : offered.settings)
            declared.push_back({s.name.c_str(), s.kind.c_str(), s.standard ? 1 : 0, nullptr, nullptr});
        return FindKindMismatch(settings, declared.data(), declared.size());
    }
    return std::string();
}

}  // namespace evc
