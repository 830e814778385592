#include "tests/net/fake_sockets.h"

#include "qx/base/windows.h"

#include <winsock2.h>

#include <algorithm>
#include <cstring>

namespace test {

namespace {

FakeSockets* fake;
int last_code;

constexpr SOCKET fake_socket = 77;

int answer(int code) {
    last_code = code;
    return code ? SOCKET_ERROR : 0;
}

int WINAPI fake_startup(WORD version, WSADATA* data) {
    ++fake->startups;
    fake->version = version;
    std::memset(data, 0, sizeof *data);
    data->wVersion = version;
    return fake->startup_code;
}

int WINAPI fake_cleanup() {
    ++fake->cleanups;
    return 0;
}

int WINAPI fake_last_error() {
    return last_code;
}

hostent* WINAPI fake_host(char const*) {
    static char address[] = {127, 0, 0, 1};
    static char* addresses[] = {address, nullptr};
    static hostent host = {};
    host.h_addrtype = AF_INET;
    host.h_length = 4;
    host.h_addr_list = addresses;
    return answer(fake->host_code) == 0 ? &host : nullptr;
}

SOCKET WINAPI fake_make(int family, int type, int protocol) {
    bool const expected = family == 2 && type == 1 && protocol == 6;
    if (answer(expected ? fake->socket_code : -1) != 0) return INVALID_SOCKET;
    ++fake->sockets;
    return fake_socket;
}

int WINAPI fake_connect(SOCKET, sockaddr const* address, int size) {
    auto const in = reinterpret_cast<sockaddr_in const*>(address);
    char const loopback[] = {127, 0, 0, 1};
    bool const expected = size == 16 && in->sin_family == 2 &&
                          std::memcmp(&in->sin_addr, loopback, sizeof loopback) == 0;
    auto const bytes = reinterpret_cast<unsigned char const*>(&in->sin_port);
    fake->port = static_cast<unsigned short>(bytes[0] * 256 + bytes[1]);
    return answer(expected ? fake->connect_code : -1);
}

int WINAPI fake_send(SOCKET, char const* data, int size, int) {
    bool const fails = fake->failing_send == static_cast<int>(fake->sent.size());
    fake->sent.emplace_back(data, static_cast<std::size_t>(size));
    return fails ? answer(WSAECONNABORTED) : size;
}

int WINAPI fake_recv(SOCKET, char* data, int size, int) {
    if (fake->replies.empty()) return answer(fake->end_code);
    std::string& reply = fake->replies.front();
    std::size_t const count = std::min(reply.size(), static_cast<std::size_t>(size));
    std::memcpy(data, reply.data(), count);
    reply.erase(0, count);
    if (reply.empty()) fake->replies.pop_front();
    return static_cast<int>(count);
}

int WINAPI fake_close(SOCKET socket) {
    if (socket == fake_socket) ++fake->closes;
    last_code = WSAENOTSOCK;  // what was fetched too late
    return 0;
}

}  // namespace

FakeSockets::FakeSockets() {
    fake = this;
    last_code = 0;
    auto const stand_in = [&](char const* name, auto* function) {
        stand_ins_.push_back(std::make_unique<StandIn>(name, function));
    };
    stand_in("WSAStartup", fake_startup);
    stand_in("WSACleanup", fake_cleanup);
    stand_in("WSAGetLastError", fake_last_error);
    stand_in("gethostbyname", fake_host);
    stand_in("socket", fake_make);
    stand_in("connect", fake_connect);
    stand_in("send", fake_send);
    stand_in("recv", fake_recv);
    stand_in("closesocket", fake_close);
}

FakeSockets::~FakeSockets() = default;

bool FakeSockets::found() const {
    return std::all_of(
        stand_ins_.begin(), stand_ins_.end(), [](auto const& each) { return each->found(); });
}

std::string FakeSockets::all_sent() const {
    std::string all;
    for (std::string const& each : sent) all += each;
    return all;
}

bool FakeSockets::is_balanced() const {
    bool const started = startups == 1 && startup_code == 0;
    return cleanups == started && closes == sockets && version == 0x0101;
}

}  // namespace test
