#include "qx/net/socket_connection_impl.h"

#include "qx/base/windows.h"

#include <winsock2.h>

#include <algorithm>
#include <cstring>

namespace QX {

namespace {

constexpr unsigned int command_bytes = 1024;
constexpr unsigned long long most_bytes = 1u << 30;  // of one call, which counts in an int

}  // namespace

Connection::~Connection() {
    if (socket_ != INVALID_SOCKET) closesocket(socket_);
    if (started_) WSACleanup();
}

bool Connection::open(char const* host, unsigned short port, int& code) {
    WSADATA data;
    code = WSAStartup(MAKEWORD(1, 1), &data);
    if (code) return false;
    started_ = true;
    if (look_up_and_connect(host, port)) return true;
    code = WSAGetLastError();
    return false;
}

bool Connection::look_up_and_connect(char const* host, unsigned short port) {
    hostent const* const record = gethostbyname(host);
    if (!record) return false;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    std::memcpy(&address.sin_addr, record->h_addr_list[0], sizeof address.sin_addr);

    socket_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    return socket_ != INVALID_SOCKET &&
           connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

bool Connection::send(char const* data, unsigned long long size) {
    do {
        int const part = static_cast<int>(std::min(size, most_bytes));
        if (::send(socket_, data, part, 0) < 0) return false;
        data += part;
        size -= static_cast<unsigned int>(part);
    } while (size != 0);
    return true;
}

bool Connection::send_command(std::initializer_list<char const*> pieces) {
    char buffer[command_bytes];
    unsigned int held = 0;
    for (char const* piece : pieces) {
        for (; *piece; ++piece) {
            if (held == command_bytes) {
                if (!send(buffer, held)) return false;
                held = 0;
            }
            buffer[held++] = *piece;
        }
    }
    return send(buffer, held);
}

int Connection::receive(char* data, unsigned int size) {
    if (size == 0) return 0;
    return recv(socket_, data, static_cast<int>(std::min<unsigned long long>(size, most_bytes)), 0);
}

int Connection::failure_of(int received) {
    return received < 0 ? WSAGetLastError() : 0;
}

}  // namespace QX
