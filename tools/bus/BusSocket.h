// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Descriptor.h"

#include <string>
#include <utility>

#include <sys/stat.h>
#include <sys/types.h>

/// The listening socket of a bus, with the lock that keeps a second bus from its path.
class BusSocket {
public:
    /// Takes the lock `path`.lock and creates the socket. Replaces the socket of a bus that has died.
    /// @throws VelkException if another bus holds the lock or the socket cannot be created.
    BusSocket(std::string socketPath, mode_t mode);
    /// Removes the socket and the lock, unless others have taken their places.
    ~BusSocket();
    BusSocket(const BusSocket&) = delete;
    BusSocket& operator=(const BusSocket&) = delete;

    int descriptor() const { return listener.get(); }

    struct Accepted {
        Descriptor connection; ///< Empty on failure.
        int error = 0;
        bool refused = false; ///< The client was refused: there was no descriptor for it.
    };
    /// Accepts one connection, or refuses it if the process has no descriptor left for it.
    Accepted accept();

private:
    /// A file that this object has created, and no other at the same path.
    class OwnFile {
    public:
        explicit OwnFile(std::string filePath) : path(std::move(filePath)) {}
        ~OwnFile();
        OwnFile(const OwnFile&) = delete;
        OwnFile& operator=(const OwnFile&) = delete;

        const std::string path;
        void own();

    private:
        struct stat state {};
        bool owned = false;
    };

    void takeLock();
    void listen(mode_t mode);

    Descriptor lock; // released after the files are removed
    OwnFile lockFile;
    OwnFile socketFile;
    Descriptor listener;
    Descriptor spare; ///< Closed to refuse a connection when no other descriptor is free.
};
