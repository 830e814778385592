#include "qx/net/socket.h"

#include <cstring>

#include "qx/base/compiler.h"
#include "qx/net/socket_errors.h"

namespace QX {

namespace {

[[noreturn]] void fail(SocketOperation operation) {
    throw socket_errors::text(operation, WSAGetLastError());
}

// For calls that answer -1 on failure.
int checked(int result, SocketOperation operation) {
    if (result == SOCKET_ERROR) fail(operation);
    return result;
}

// Codes of a read that say that nothing is there.
bool is_nothing_there(int code) {
    return code == WSAEWOULDBLOCK || code == 0;
}

// Codes of a connect after which the socket is connected, or may yet be.
bool is_under_way(int code) {
    return code == WSAEWOULDBLOCK || code == WSAEINPROGRESS || code == WSAEALREADY ||
           code == WSAEINVAL || code == WSAEISCONN;
}

sockaddr* generic(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

sockaddr const* generic(sockaddr_in const& address) {
    return reinterpret_cast<sockaddr const*>(&address);
}

sockaddr_in endpoint(unsigned long address, unsigned short port) {
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = address;
    return result;
}

constexpr char no_socket[] = "Could not create socket.";

}  // namespace

// --- Start-up ------------------------------------------------------------------------------------

SocketClientPlatform::SocketClientPlatform(char major, char minor) : data_() {
    WORD const wanted = MAKEWORD(major, minor);
    if (WSAStartup(wanted, &data_) != 0) throw const_cast<char*>("Could not initialise WinSock.");
    if (data_.wVersion < wanted)
        throw const_cast<char*>("Requested WinSock version not available.");
}

SocketClientPlatform::~SocketClientPlatform() {
    WSACleanup();
}

SocketClientPlatform& SocketClientPlatform::operator=(SocketClientPlatform const& other) {
    data_ = other.data_;
    return *this;
}

// --- Addresses -----------------------------------------------------------------------------------

SocketIPAddress::SocketIPAddress(char const* dotted, unsigned short port)
    : address_(endpoint(inet_addr(dotted), port)) {}

SocketIPAddress::SocketIPAddress(unsigned char const* address, unsigned short port)
    : address_(endpoint(0, port)) {
    std::memcpy(&address_.sin_addr, address, 4);
}

char const* SocketIPAddress::get_as_string(SocketIPAddress const& address) {
    return inet_ntoa(address.address_.sin_addr);
}

unsigned int SocketIPAddress::get_ip() const {
    return ntohl(address_.sin_addr.s_addr);
}

void SocketIPAddress::get_ip(unsigned char* out) const {
    std::memcpy(out, &address_.sin_addr, 4);
}

unsigned short SocketIPAddress::get_port() const {
    return ntohs(address_.sin_port);
}

// --- Handles -------------------------------------------------------------------------------------

SocketPlatform::SocketPlatform(int family, int type, int protocol)
    : handle_(::socket(family, type, protocol)) {
    if (!valid()) throw const_cast<char*>(no_socket);
}

void SocketPlatform::close() {
    if (!valid()) return;
    closesocket(handle_);
    handle_ = invalid;
}

Socket::Socket(int family, int type, int protocol)
    : SocketPlatform(::socket(family, type, protocol)), owner_(true) {
    if (!valid()) throw static_cast<char const*>(no_socket);
}

Socket::Socket(unsigned long long handle) : SocketPlatform(handle), owner_(true) {
    int size = sizeof address_;
    if (getpeername(handle_, generic(address_), &size) != 0) address_ = {};
}

Socket::Socket(Socket const& source) : SocketPlatform() {
    take(source, false);
}

Socket::Socket(Socket const& source, bool borrow) : SocketPlatform() {
    take(source, borrow);
}

Socket& Socket::operator=(Socket const& source) {
    if (this == &source) return *this;
    release();
    take(source, false);
    return *this;
}

Socket::~Socket() {
    release();
    QX_KEEP_STORES();
}

void Socket::take(Socket const& source, bool borrow) {
    handle_ = source.handle_;
    address_ = source.address_;
    refused_ = source.refused_;
    owner_ = !borrow && source.owner_;
    if (!borrow) source.owner_ = false;
}

void Socket::release() {
    if (owner_) close();
}

// --- Operations ----------------------------------------------------------------------------------

void Socket::set_address(unsigned int address, int port) {
    address_ = endpoint(address, static_cast<unsigned short>(port));
}

void Socket::set_address(char const* dotted, int port) {
    set_address(inet_addr(dotted), port);
}

void Socket::get_address(unsigned int* address, int* port) const {
    *address = address_.sin_addr.s_addr;
    *port = ntohs(address_.sin_port);
}

int Socket::bind() {
    return checked(::bind(handle_, generic(address_), sizeof address_), SocketOperation::bind);
}

int Socket::listen(int backlog) {
    return checked(::listen(handle_, backlog), SocketOperation::listen);
}

unsigned long long Socket::accept() {
    int size = sizeof address_;
    unsigned long long const peer = ::accept(handle_, generic(address_), &size);
    if (peer == invalid && WSAGetLastError() != WSAEWOULDBLOCK) fail(SocketOperation::accept);
    return peer;
}

bool Socket::connect() {
    bool const connected = ::connect(handle_, generic(address_), sizeof address_) == 0;
    refused_ = !connected && !is_under_way(WSAGetLastError());
    return connected;
}

int Socket::send(char const* data, int size, int flags) {
    int const count = ::send(handle_, data, size, flags);
    // Wine calls a connection that never was one that was reset.
    if (count == SOCKET_ERROR && refused_ && WSAGetLastError() == WSAECONNRESET)
        WSASetLastError(WSAENOTCONN);
    return checked(count, SocketOperation::send);
}

int Socket::receive(char* data, int size, int flags) {
    int received = 0;
    while (received < size) {
        int const count = ::recv(handle_, data + received, size - received, flags);
        if (count == 0) break;
        if (count > 0) {
            received += count;
        } else {
            if (is_nothing_there(WSAGetLastError())) break;
            fail(SocketOperation::recv);
        }
    }
    return received;
}

int Socket::receivefrom(
    Socket const& socket, char* data, int size, int flags, SocketIPAddress* from) {
    sockaddr_in sender = {};
    int sender_size = sizeof sender;
    int const count = ::recvfrom(socket.handle_, data, size, flags, generic(sender), &sender_size);
    if (count < 0 && !is_nothing_there(WSAGetLastError())) fail(SocketOperation::recv);
    if (count <= 0) return 0;
    if (from) *from = sender;
    return count;
}

int Socket::sendto(
    Socket const& socket, char const* data, int size, int flags, SocketIPAddress const& to) {
    sockaddr_in const& address = to.get_sockaddr_in();
    return checked(
        ::sendto(socket.handle_, data, size, flags, generic(address), sizeof address),
        SocketOperation::send);
}

void Socket::set_blocking_status(bool blocking) {
    u_long value = !blocking;
    checked(ioctlsocket(handle_, static_cast<long>(FIONBIO), &value), SocketOperation::setsockopt);
}

void Socket::set_broadcast_mode(bool enable) {
    int const value = enable;
    checked(
        setsockopt(
            handle_, SOL_SOCKET, SO_BROADCAST, reinterpret_cast<char const*>(&value), sizeof value),
        SocketOperation::setsockopt);
}

hostent* Socket::get_host_by_name(char const* name) {
    hostent* const host = gethostbyname(name);
    if (!host) fail(SocketOperation::gethostbyname);
    return host;
}

}  // namespace QX
