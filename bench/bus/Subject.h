// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string>

/// One side of an exchange that is measured: it sends messages that the other side confirms, or receives
/// and confirms them.
class Subject {
public:
    enum class Side { sender, receiver };

    Subject() = default;
    virtual ~Subject() = default;
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    /// Returns when the message of `size` bytes is confirmed.
    virtual void send(std::size_t size) = 0;
    /// Returns when a message of `size` bytes is there.
    virtual void receive(std::size_t size) = 0;
};

/// A subject that has no acknowledgement of its own: the receiver sends one byte back.
class ConfirmingSubject : public Subject {
public:
    void send(std::size_t size) final
    {
        write(size);
        read(1);
    }
    void receive(std::size_t size) final
    {
        read(size);
        write(1);
    }

private:
    virtual void write(std::size_t size) = 0;
    virtual void read(std::size_t size) = 0;
};

/// What carries the messages, and how.
struct Carrier {
    std::string subject; ///< bare, isotp, endpoint or client
    std::string bus;     ///< An interface; for a client any bus.
    long frameTimeNs =
        0;               ///< Between two frames, for those who have to pace themselves. 0: at once.
    int gatherUs = 2000; ///< Of a client.
};

/// Ends the program if the subject is unavailable here.
std::unique_ptr<Subject> open(const Carrier& carrier, Subject::Side side);

// The subjects; each in a file of its own.
std::unique_ptr<Subject> openBare(const Carrier& carrier, Subject::Side side);
std::unique_ptr<Subject> openIsoTp(const Carrier& carrier, Subject::Side side);
std::unique_ptr<Subject> openEndpoint(const Carrier& carrier, Subject::Side side);
std::unique_ptr<Subject> openClient(const Carrier& carrier, Subject::Side side);

constexpr unsigned int idOfSender = 0x123;
constexpr unsigned int idOfReceiver = 0x321;

constexpr unsigned int ownId(Subject::Side side)
{
    return side == Subject::Side::sender ? idOfSender : idOfReceiver;
}
constexpr unsigned int peerId(Subject::Side side)
{
    return side == Subject::Side::sender ? idOfReceiver : idOfSender;
}
