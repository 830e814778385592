// socket.h - IPv4 stream and datagram sockets whose failures are told in words.
//
//     QX::SocketClient library(1, 1);  // once, before the first socket
//     QX::Socket socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
//     socket.set_address("127.0.0.1", 80);
//     if (socket.connect()) socket.send("hello", 5, 0);
//
// No time limits, no retries, no buffers: one call here is one call of the sockets library, but
// for `receive`. A failed operation throws a QX::String by value, such as "Socket bind failure:
// The socket is already bound to an address." A failed construction throws a bare character
// pointer; catch QX::String and char const*. `connect` never throws, and a call that would block
// is no failure where that is said. No pointer may be null but
// where it is told of.
//
// Threads: no locks. One socket bears two threads as far as the system does.
//
// Includes <winsock2.h>, alone among the public headers. A client that wants <windows.h> as well
// includes this one first, or defines WIN32_LEAN_AND_MEAN.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>

#include <concepts>

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// --- Start-up ------------------------------------------------------------------------------------

// One start-up of the sockets library, ended by the destructor. The library counts them, so they
// may be nested.
class SocketClientPlatform {
public:
    // Version `major`.`minor`. Throws as char*: "Could not initialise WinSock." or "Requested
    // WinSock version not available."; the latter leaves the library started. Versions are
    // compared as words with `minor` in the high byte.
    QX_API SocketClientPlatform(char major, char minor);
    SocketClientPlatform(SocketClientPlatform const&) = delete;
    QX_API ~SocketClientPlatform();

    // Copies what the library said of itself. Each object still ends its own start-up.
    QX_API SocketClientPlatform& operator=(SocketClientPlatform const& other);

private:
    WSADATA data_;
};

// One start-up, as hosts name it.
class SocketClient : public SocketClientPlatform {
public:
    SocketClient(char major, char minor) : SocketClientPlatform(major, minor) {}
};

// --- Addresses -----------------------------------------------------------------------------------

// An IPv4 address and a port. A plain value.
class SocketIPAddress {
public:
    // All zero, the family too.
    SocketIPAddress() : address_() {}
    // "127.0.0.1"; names are not looked up. What can't be read becomes 255.255.255.255.
    QX_API SocketIPAddress(char const* dotted, unsigned short port);
    // Four bytes, {127, 0, 0, 1} for the same address.
    QX_API SocketIPAddress(unsigned char const* address, unsigned short port);
    SocketIPAddress(sockaddr_in const& address) : address_(address) {}

    sockaddr_in const& get_sockaddr_in() const { return address_; }

    // "127.0.0.1", in a buffer of the sockets library's, good until its next such call.
    QX_API static char const* get_as_string(SocketIPAddress const& address);

    // 0x7F000001 for 127.0.0.1.
    QX_API unsigned int get_ip() const;
    // The four bytes {127, 0, 0, 1}.
    QX_API void get_ip(unsigned char* out) const;
    QX_API unsigned short get_port() const;

private:
    sockaddr_in address_;
};

// --- Sockets -------------------------------------------------------------------------------------

// A bare handle, for code that does its own work: never closed but by `close`, copied freely.
class SocketPlatform {
public:
    SocketPlatform() = default;
    SocketPlatform(unsigned long long handle) : handle_(handle) {}
    // Throws "Could not create socket." as char*.
    QX_API SocketPlatform(int family, int type, int protocol);

    bool valid() const { return handle_ != invalid; }
    // Closes the handle if it is valid; it is invalid afterwards.
    QX_API void close();

    // All ones if invalid.
    unsigned long long handle() const { return handle_; }

protected:
    static constexpr unsigned long long invalid = ~0ull;

    unsigned long long handle_ = invalid;
};

// A socket and its address: the one to bind or connect to, or the last peer accepted.
//
// Copying moves ownership: the newest copy closes the handle, its source keeps a view of it. So a
// Socket may be returned by value. Closing through `close` asks no owner.
class Socket : public SocketPlatform {
public:
    // No socket.
    Socket() = default;
    // A new one, of address zero. Throws "Could not create socket." as char const*.
    QX_API Socket(int family, int type, int protocol);
    // Takes `handle` over; the address is the peer's, or zero if there is none.
    QX_API Socket(unsigned long long handle);
    QX_API Socket(Socket const& source);
    // With `borrow`, a view: it never closes, and `source` keeps what it owned.
    QX_API Socket(Socket const& source, bool borrow);
    // Closes what this object owns first. Assigning an object to itself does nothing.
    QX_API Socket& operator=(Socket const& source);
    QX_API ~Socket();

    // `address` in network byte order, `port` in the host's.
    QX_API void set_address(unsigned int address, int port);
    // The same for INADDR_ANY and a plain 0, which might be null pointers otherwise.
    template <std::integral ADDRESS>
    void set_address(ADDRESS address, int port) {
        set_address(static_cast<unsigned int>(address), port);
    }
    // "127.0.0.1"; names are not looked up.
    QX_API void set_address(char const* dotted, int port);
    // The same forms as the first `set_address` takes.
    QX_API void get_address(unsigned int* address, int* port) const;

    // To the address. 0.
    QX_API int bind();
    // 0.
    QX_API int listen(int backlog);
    // The new handle, for the caller to close or to make a Socket of; the address becomes the
    // peer's. All ones if none is waiting on a non-blocking socket.
    QX_API unsigned long long accept();
    // To the address. Never throws: false on failure, the reason in WSAGetLastError.
    QX_API bool connect();

    // One send: how many bytes were taken, which may be fewer than `size`.
    QX_API int send(char const* data, int size, int flags);
    // Goes on until `size` bytes have come. Fewer if the peer has closed, or if no more are there
    // on a non-blocking socket. A `size` below 1 gives 0.
    QX_API int receive(char* data, int size, int flags);

    // One datagram: its size, and its sender in `from` unless that is null. 0, and `from` as it
    // was, for an empty one and if none is there on a non-blocking socket.
    QX_API static int
    receivefrom(Socket const& socket, char* data, int size, int flags, SocketIPAddress* from);
    // How many bytes were taken.
    QX_API static int
    sendto(Socket const& socket, char const* data, int size, int flags, SocketIPAddress const& to);

    // A failure is reported as one of setsockopt.
    QX_API void set_blocking_status(bool blocking);
    // Whether datagrams may go to broadcast addresses.
    QX_API void set_broadcast_mode(bool enable);

    // The sockets library's own record, good until this thread's next such call. Never null.
    QX_API static hostent* get_host_by_name(char const* name);

    sockaddr_in const& address() const { return address_; }
    // Whether this object closes the handle.
    bool owner() const { return owner_; }

private:
    void take(Socket const& source, bool borrow);
    void release();

    sockaddr_in address_ = {};
    mutable bool owner_ = false;  // lost by being copied
    bool refused_ = false;        // the last connect has failed for good
};

}  // namespace QX
