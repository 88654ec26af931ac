// SPDX-License-Identifier: MIT
#include "bus/BusSocket.h"

#include "velk/VelkException.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& what, int error)
{
    throwVelkException(what, ": ", std::strerror(error));
}

bool isSame(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

Descriptor packetSocket()
{
    return aboveStandardStreams(
        Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)));
}

/// Any descriptor that can be closed.
Descriptor anyDescriptor()
{
    return aboveStandardStreams(Descriptor(open("/", O_PATH | O_CLOEXEC)));
}

bool isDead(const sockaddr_un& address)
{
    const Descriptor probe = packetSocket();
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
               -1 &&
           errno == ECONNREFUSED;
}

/// Removes the socket of a bus that has died, and nothing else.
void removeStale(const std::string& path, const sockaddr_un& address)
{
    struct stat file {};
    if (lstat(path.c_str(), &file) == -1) {
        return;
    }
    if (!S_ISSOCK(file.st_mode)) {
        throwVelkException(path, ": got a file that is not a socket, expected no file");
    }
    if (isDead(address)) {
        unlink(path.c_str());
    }
}

} // namespace

void BusSocket::OwnFile::own() { owned = lstat(path.c_str(), &state) == 0; }

BusSocket::OwnFile::~OwnFile()
{
    struct stat now {};
    if (owned && lstat(path.c_str(), &now) == 0 && isSame(now, state)) {
        unlink(path.c_str());
    }
}

BusSocket::BusSocket(std::string socketPath, mode_t mode)
    : lockFile(socketPath + ".lock"),
      socketFile(std::move(socketPath)),
      listener(packetSocket()),
      spare(anyDescriptor())
{
    if (listener.get() == -1) {
        fail("no descriptor for a bus", errno);
    }
    takeLock();
    listen(mode);
}

BusSocket::~BusSocket() = default;

/// The holder removes the file at its end. A bus that has opened that file before then locks a file without a
/// name, and has to try again.
void BusSocket::takeLock()
{
    struct stat named {};
    struct stat opened {};
    do {
        constexpr mode_t mode = 0600;
        lock = aboveStandardStreams(Descriptor(
            open(lockFile.path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, mode)));
        if (lock.get() == -1) {
            fail(lockFile.path, errno);
        }
        if (flock(lock.get(), LOCK_EX | LOCK_NB) == -1) {
            if (errno == EWOULDBLOCK) {
                throwVelkException(socketFile.path, ": another bus has this path");
            }
            fail(lockFile.path, errno);
        }
    } while (fstat(lock.get(), &opened) == -1 || lstat(lockFile.path.c_str(), &named) == -1 ||
             !isSame(opened, named));
    if (!S_ISREG(opened.st_mode) || opened.st_size != 0) {
        throwVelkException(lockFile.path,
                           ": got a file with other content, expected an empty lock file");
    }
    lockFile.own();
}

/// Calls listen() after chmod(): no client can connect before the socket has its mode.
void BusSocket::listen(mode_t mode)
{
    const std::string& path = socketFile.path;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        fail(path, ENAMETOOLONG);
    }
    path.copy(address.sun_path, path.size());
    removeStale(path, address);
    if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
        fail(path, errno);
    }
    socketFile.own();
    if (chmod(path.c_str(), mode) == -1 || ::listen(listener.get(), SOMAXCONN) == -1) {
        fail(path, errno);
    }
}

BusSocket::Accepted BusSocket::accept()
{
    const auto next = [this] {
        return aboveStandardStreams(
            Descriptor(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)));
    };
    Accepted result{next(), 0, false};
    if (result.connection.get() == -1) {
        result.error = errno;
        if (errno == EMFILE || errno == ENFILE) {
            spare.reset();
            result.refused = next().get() != -1;
        }
    }
    if (spare.get() == -1) {
        spare = anyDescriptor();
    }
    return result;
}
