#include "BusLink.h"

#include "velk/VelkException.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

namespace {

constexpr int graceMs =
    1000; ///< For a process to end by itself, and again when it has been asked to.

[[noreturn]] void fail(const std::string& what, int error)
{
    VelkException exception;
    exception << what << ": " << std::strerror(error);
    throw exception;
}

/// @return what follows the prefix, or nothing.
const char* behind(const std::string& text, std::string_view prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0 ? text.c_str() + prefix.size() : nullptr;
}

/// The proxy beside this program; otherwise the path decides.
std::string findProxy()
{
    std::array<char, 4096> own{};
    const ssize_t length = readlink("/proc/self/exe", own.data(), own.size());
    if (length > 0 && static_cast<std::size_t>(length) < own.size()) {
        std::string beside(own.data(), static_cast<std::size_t>(length));
        beside.replace(beside.rfind('/') + 1, std::string::npos, "velkcan-proxy");
        if (access(beside.c_str(), X_OK) == 0) {
            return beside;
        }
    }
    return "velkcan-proxy";
}

/// With the signals as a program expects them. A proxy has a group of its own, so that no signal of the
/// terminal ends it before its client; a command stays in this one, for it may ask at the terminal.
class SpawnSettings {
public:
    SpawnSettings(int standardStreams, bool ownGroup)
    {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes);
        const int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        posix_spawnattr_setflags(
            &attributes, static_cast<short>(flags | (ownGroup ? POSIX_SPAWN_SETPGROUP : 0)));
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, standardStreams, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, standardStreams, STDOUT_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    }
    ~SpawnSettings()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};
};

bool hasEndedWithinGrace(pid_t child)
{
    for (int waitedMs = 0; waitedMs < graceMs; waitedMs += 10) {
        if (waitpid(child, nullptr, WNOHANG) != 0) {
            return true;
        }
        usleep(10 * 1000);
    }
    return false;
}

} // namespace

BusLink::BusLink(const std::string& bus, std::uint32_t acceptedId)
{
    if (const char* const path = behind(bus, "unix:")) {
        connectTo(path);
    } else if (const char* const command = behind(bus, "exec:")) {
        std::string words[] = {"sh", "-c", command};
        char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
        spawn("/bin/sh", arguments, false);
    } else if (bus.empty() || bus.find('/') != std::string::npos) {
        VelkException exception;
        exception << "got the bus '" << bus << "', expected can0, unix:PATH or exec:COMMAND";
        throw exception;
    } else {
        std::array<char, 9> id{};
        std::snprintf(id.data(), id.size(), "%03X", acceptedId);
        std::string words[] = {"velkcan-proxy", "--quiet", "--accept", id.data(), "--", bus};
        char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(),
                                   words[3].data(), words[4].data(), words[5].data(),
                                   nullptr};
        spawn(findProxy(), arguments, true);
    }
}

/// To a bus, which takes a record in each packet, or to a proxy behind a stream.
void BusLink::connectTo(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        fail("unix:" + path, ENAMETOOLONG);
    }
    path.copy(address.sun_path, path.size());
    int error = 0;
    for (const int type : {SOCK_SEQPACKET, SOCK_STREAM}) {
        socket = Descriptor(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
        if (socket.get() != -1 && connect(socket.get(), generic, sizeof address) == 0) {
            return;
        }
        error = errno;
        if (error != EPROTOTYPE) {
            break;
        }
    }
    fail("unix:" + path, error);
}

void BusLink::spawn(const std::string& program, char* const* arguments, bool ownGroup)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == -1) {
        fail("no socket for the bus", errno);
    }
    socket = Descriptor(ends[0]);
    const Descriptor other(ends[1]);
    const SpawnSettings settings(other.get(), ownGroup);
    const int error = posix_spawnp(&child, program.c_str(), &settings.actions, &settings.attributes,
                                   arguments, environ);
    if (error != 0) {
        child = -1;
        fail("cannot start " + program, error);
    }
}

BusLink::~BusLink()
{
    socket.reset();
    if (child == -1 || hasEndedWithinGrace(child)) {
        return;
    }
    kill(child, SIGTERM);
    if (!hasEndedWithinGrace(child)) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

bool BusLink::atEnd() const
{
    char byte = 0;
    const ssize_t count = recv(socket.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count == -1 && errno != EAGAIN && errno != EINTR && errno != ECONNRESET);
}
