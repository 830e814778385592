#include "qx/net/socket.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "qx/net/socket_errors.h"
#include "tests/harness/balance.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"
#include "tests/net/scripted_server.h"

namespace {

using QX::Socket;
using QX::SocketClient;
using QX::SocketIPAddress;
using QX::SocketPlatform;
using test::StandIn;

static_assert(sizeof(Socket) == 32 && sizeof(SocketPlatform) == 8);
static_assert(sizeof(SocketIPAddress) == sizeof(sockaddr_in));
static_assert(sizeof(SocketClient) == sizeof(WSADATA));

constexpr unsigned long long invalid = ~0ull;

unsigned int loopback() {
    return inet_addr("127.0.0.1");
}

// Whether the system still knows the handle.
bool is_open(unsigned long long handle) {
    int type = 0;
    int size = sizeof type;
    return getsockopt(handle, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &size) == 0;
}

Socket tcp() {
    return Socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
}

Socket udp() {
    return Socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
}

// Bound to a free loopback port, which its address then tells.
void bind_to_free_port(Socket& socket) {
    socket.set_address("127.0.0.1", 0);
    EXPECT_EQ(socket.bind(), 0);
    sockaddr_in address = {};
    int size = sizeof address;
    getsockname(socket.handle(), reinterpret_cast<sockaddr*>(&address), &size);
    socket.set_address("127.0.0.1", ntohs(address.sin_port));
}

// Two connected sockets, and the way they came about.
struct Pair {
    Pair() : listener(tcp()), client(tcp()) {
        bind_to_free_port(listener);
        EXPECT_EQ(listener.listen(1), 0);
        int port = 0;
        unsigned int address = 0;
        listener.get_address(&address, &port);
        client.set_address(address, port);
        EXPECT_TRUE(client.connect());
        server = Socket(listener.accept());
    }

    Socket listener;
    Socket client;
    Socket server;
};

template <typename Operation>
std::string failure_of(Operation operation) {
    try {
        operation();
    } catch (QX::String const& text) {
        return text.c_str();
    }
    return "nothing thrown";
}

// --- Start-up ------------------------------------------------------------------------------------

int startups;
int cleanups;
int startup_result;
WORD startup_version;

int WINAPI count_startup(WORD, WSADATA* data) {
    ++startups;
    data->wVersion = startup_version;
    return startup_result;
}

int WINAPI count_cleanup() {
    ++cleanups;
    return 0;
}

TEST(SocketClient, starts_once_ends_once_and_compares_versions_as_whole_words) {
    StandIn const startup("WSAStartup", count_startup);
    StandIn const cleanup("WSACleanup", count_cleanup);
    ASSERT_TRUE(startup.found() && cleanup.found());
    struct Row {
        char major, minor;
        int result;
        WORD version;
        char const* thrown;
    };
    constexpr Row rows[] = {
        {1, 1, 0, 0x0101, ""},
        {2, 2, 0, 0x0202, ""},
        {1, 0, 0, 0x0101, ""},
        {2, 0, 0, 0x0101, ""},  // a higher minor outweighs the major
        {2, 2, 0, 0x0101, "Requested WinSock version not available."},
        {1, 2, 0, 0x0102, "Requested WinSock version not available."},
        {1, 1, 10091, 0x0101, "Could not initialise WinSock."},
    };
    for (Row const& row : rows) {
        startups = cleanups = 0;
        startup_result = row.result;
        startup_version = row.version;
        std::string thrown;
        try {
            SocketClient const client(row.major, row.minor);
            EXPECT_EQ(cleanups, 0);
        } catch (char* text) {
            thrown = text;
        }
        EXPECT_EQ(thrown, row.thrown);
        EXPECT_EQ(startups, 1);
        EXPECT_EQ(cleanups, thrown.empty() ? 1 : 0);
    }
}

TEST(SocketClient, nests_and_copies_only_its_record) {
    SocketClient outer(2, 2);
    {
        SocketClient inner(1, 1);
        inner = outer;
        EXPECT_EQ(inner.data_.wVersion, 0x0202);
    }
    EXPECT_TRUE(tcp().valid());
}

// --- Addresses -----------------------------------------------------------------------------------

TEST(SocketIPAddress, keeps_network_order_and_tells_host_order) {
    unsigned char const bytes[] = {192, 168, 2, 7};
    SocketIPAddress const dotted("192.168.2.7", 0x1234);
    SocketIPAddress const raw(bytes, 0x1234);
    SocketIPAddress const copied(raw.get_sockaddr_in());
    for (SocketIPAddress const& each : {dotted, raw, copied}) {
        unsigned char out[4] = {};
        each.get_ip(out);
        EXPECT_EQ(std::memcmp(out, bytes, 4), 0);
        EXPECT_EQ(each.get_ip(), 0xC0A80207u);
        EXPECT_EQ(each.get_port(), 0x1234);
        EXPECT_EQ(each.get_sockaddr_in().sin_family, 2);
        EXPECT_EQ(each.get_sockaddr_in().sin_port, 0x3412);
        EXPECT_STREQ(SocketIPAddress::get_as_string(each), "192.168.2.7");
    }
    sockaddr_in const zero = {};
    EXPECT_EQ(std::memcmp(&SocketIPAddress().get_sockaddr_in(), &zero, sizeof zero), 0);
}

TEST(Socket, stores_its_address_as_given_and_its_port_turned) {
    Socket socket;
    EXPECT_FALSE(socket.valid());
    EXPECT_FALSE(socket.owner());
    unsigned int address = 0;
    int port = 0;
    socket.set_address(0x01020304u, 0x1FFFE);
    socket.get_address(&address, &port);
    EXPECT_EQ(address, 0x01020304u);
    EXPECT_EQ(port, 0xFFFE);  // 16 bits of it
    socket.set_address("1.2.3.4", 80);
    socket.get_address(&address, &port);
    EXPECT_EQ(address, 0x04030201u);
    EXPECT_EQ(socket.address().sin_family, 2);
    EXPECT_EQ(socket.address().sin_port, 0x5000);
    socket.set_address(INADDR_ANY, 81);
    EXPECT_EQ(socket.address().sin_addr.s_addr, 0u);
    socket.set_address(INADDR_LOOPBACK, 0x5000);
    EXPECT_EQ(socket.address().sin_addr.s_addr, 0x7F000001u);
    socket.set_address(0, 82);
    socket.get_address(&address, &port);
    EXPECT_EQ(address, 0u);
    EXPECT_EQ(port, 82);
}

// --- Ownership -----------------------------------------------------------------------------------

TEST(Socket, ownership_moves_with_each_copy) {
    unsigned long long handle = invalid;
    {
        Socket last;
        {
            Socket const first = tcp();
            handle = first.handle();
            Socket const second(first);
            EXPECT_FALSE(first.owner());
            EXPECT_EQ(first.handle(), handle);
            Socket const third(second, false);
            EXPECT_FALSE(second.owner());
            last = third;
            EXPECT_FALSE(third.owner());
            EXPECT_TRUE(last.owner());
            Socket const copy_of_a_view(first);
            EXPECT_FALSE(copy_of_a_view.owner());
        }
        EXPECT_TRUE(is_open(handle));
        last = *&last;
        EXPECT_TRUE(is_open(handle) && last.owner());
    }
    EXPECT_FALSE(is_open(handle));
}

TEST(Socket, a_view_never_closes_and_leaves_its_source_alone) {
    Socket const source = tcp();
    {
        Socket const view(source, true);
        EXPECT_EQ(view.handle(), source.handle());
        EXPECT_FALSE(view.owner());
    }
    EXPECT_TRUE(source.owner());
    EXPECT_TRUE(is_open(source.handle()));
}

TEST(Socket, assignment_closes_what_is_owned_and_a_view_loses_nothing) {
    Socket first = tcp();
    Socket const second = tcp();
    unsigned long long const old = first.handle();
    Socket view(first, true);
    view = second;
    EXPECT_TRUE(is_open(old));
    first = view;
    EXPECT_FALSE(is_open(old));
    EXPECT_TRUE(is_open(first.handle()) && first.owner());
}

TEST(Socket, adopting_a_handle_takes_the_peers_address_or_zero) {
    Pair pair;
    unsigned int address = 0;
    int port = 0;
    pair.server.get_address(&address, &port);
    EXPECT_EQ(address, loopback());
    EXPECT_NE(port, 0);
    EXPECT_EQ(pair.listener.address().sin_port, pair.server.address().sin_port);

    Socket const lone(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    sockaddr_in const zero = {};
    EXPECT_EQ(std::memcmp(&lone.address(), &zero, sizeof zero), 0);
    EXPECT_TRUE(lone.owner());
}

TEST(SocketPlatform, is_a_bare_handle) {
    SocketPlatform socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    unsigned long long const handle = socket.handle();
    { SocketPlatform const copy(socket); }
    EXPECT_TRUE(is_open(handle));
    SocketPlatform other(handle);
    socket.close();
    EXPECT_FALSE(socket.valid());
    EXPECT_TRUE(other.valid());
    EXPECT_FALSE(is_open(handle));
    socket.close();
    EXPECT_FALSE(SocketPlatform().valid());
}

TEST(Socket, a_failed_construction_throws_the_pointer_type_of_its_class) {
    try {
        Socket const socket(AF_INET, 999, 0);
        FAIL();
    } catch (char*) {
        FAIL() << "a pointer to writable characters";
    } catch (char const* text) {
        EXPECT_STREQ(text, "Could not create socket.");
    }
    try {
        SocketPlatform const socket(AF_INET, 999, 0);
        FAIL();
    } catch (char* text) {
        EXPECT_STREQ(text, "Could not create socket.");
    }
}

// --- Failures ------------------------------------------------------------------------------------

TEST(Socket, every_operation_tells_its_own_failure) {
    Socket none;
    none.set_address("127.0.0.1", 9);
    SocketIPAddress const to(none.address());
    char byte = 0;
    std::string const reason = "The descriptor is not a socket.";
    EXPECT_EQ(failure_of([&] { none.bind(); }), "Socket bind failure: " + reason);
    EXPECT_EQ(failure_of([&] { none.listen(1); }), "Socket listen failure: " + reason);
    EXPECT_EQ(failure_of([&] { none.accept(); }), "Socket accept failure: " + reason);
    EXPECT_EQ(failure_of([&] { none.send("x", 1, 0); }), "Socket send failure: " + reason);
    EXPECT_EQ(failure_of([&] { none.receive(&byte, 1, 0); }), "Socket recv failure: " + reason);
    EXPECT_EQ(
        failure_of([&] { Socket::receivefrom(none, &byte, 1, 0, nullptr); }),
        "Socket recv failure: " + reason);
    EXPECT_EQ(
        failure_of([&] { Socket::sendto(none, "x", 1, 0, to); }), "Socket send failure: " + reason);
    EXPECT_EQ(
        failure_of([&] { none.set_blocking_status(true); }),
        "Socket setsockopt failure: " + reason);
    EXPECT_EQ(
        failure_of([&] { none.set_broadcast_mode(true); }), "Socket setsockopt failure: " + reason);
    EXPECT_FALSE(none.connect());
    EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
    EXPECT_EQ(
        failure_of([] { Socket::get_host_by_name("no-such-host.invalid"); }),
        "Socket gethostbyname failure: Authoritative answer host not found.");
}

TEST(Socket, tells_what_the_system_refuses_in_the_words_of_the_operation) {
    Socket bound = tcp();
    bind_to_free_port(bound);
    EXPECT_EQ(
        failure_of([&] { bound.bind(); }),
        "Socket bind failure: The socket is already bound to an address.");
    EXPECT_EQ(
        failure_of([&] { bound.accept(); }),
        "Socket accept failure: The listen function was not invoked prior to accept.");
    Socket elsewhere = tcp();
    elsewhere.set_address("192.0.2.1", 0);
    EXPECT_EQ(
        failure_of([&] { elsewhere.bind(); }),
        "Socket bind failure: The specified address is not a valid address for this computer.");

    Socket refused = tcp();
    refused.set_address("127.0.0.1", ntohs(bound.address().sin_port));
    EXPECT_FALSE(refused.connect());
    EXPECT_EQ(WSAGetLastError(), WSAECONNREFUSED);
    char byte = 0;
    EXPECT_EQ(
        failure_of([&] { tcp().receive(&byte, 1, 0); }),
        "Socket recv failure: The socket is not connected.");
    // Some systems call this a reset.
    EXPECT_EQ(::send(refused.handle(), "x", 1, 0), SOCKET_ERROR);
    auto const told = QX::socket_errors::text(QX::SocketOperation::send, WSAGetLastError());
    EXPECT_EQ(failure_of([&] { refused.send("x", 1, 0); }), told.c_str());
}

// --- Streams -------------------------------------------------------------------------------------

TEST(Socket, receive_reads_fully_or_until_the_peer_closes) {
    Pair pair;
    test::ScriptedServer server(
        {{test::ServerStep::say_bytewise, "abcdef"}, {test::ServerStep::say, "gh"}});
    Socket client = tcp();
    client.set_address(loopback(), server.port());
    ASSERT_TRUE(client.connect());
    char data[8] = {};
    EXPECT_EQ(client.receive(data, 6, 0), 6);
    EXPECT_EQ(std::string(data, 6), "abcdef");
    EXPECT_EQ(client.receive(data, 8, 0), 2);
    EXPECT_EQ(client.receive(data, 8, 0), 0);
}

TEST(Socket, a_non_blocking_socket_takes_what_is_there) {
    Pair pair;
    pair.client.set_blocking_status(false);
    pair.listener.set_blocking_status(false);
    sockaddr_in const before = pair.listener.address();
    char data[8] = {};
    EXPECT_EQ(pair.client.receive(data, 8, 0), 0);
    EXPECT_EQ(pair.listener.accept(), invalid);
    EXPECT_EQ(std::memcmp(&before, &pair.listener.address(), sizeof before), 0);

    pair.server.send("abc", 3, 0);
    pair.client.set_blocking_status(true);
    EXPECT_EQ(pair.client.receive(data, 1, 0), 1);
    pair.client.set_blocking_status(false);
    EXPECT_EQ(pair.client.receive(data + 1, 7, 0), 2);
    EXPECT_EQ(std::string(data, 3), "abc");
}

int recv_calls;

int WINAPI count_recv(SOCKET, char* data, int size, int flags) {
    ++recv_calls;
    if (recv_calls == 1) return flags == 8 && size == 5 ? (*data = 'a', 1) : 0;
    WSASetLastError(recv_calls == 2 ? 0 : WSAECONNRESET);
    return SOCKET_ERROR;
}

TEST(Socket, receive_asks_for_what_is_missing_and_takes_no_error_for_nothing_there) {
    StandIn const stand_in("recv", count_recv);
    ASSERT_TRUE(stand_in.found());
    recv_calls = 0;
    Socket none;
    char data[5] = {};
    EXPECT_EQ(none.receive(data, 0, 0), 0);
    EXPECT_EQ(none.receive(data, -1, 0), 0);
    EXPECT_EQ(recv_calls, 0);
    EXPECT_EQ(none.receive(data, 5, 8), 1);
    EXPECT_EQ(recv_calls, 2);
    EXPECT_EQ(
        failure_of([&] { none.receive(data, 5, 0); }).rfind("Socket recv failure: The virtual", 0),
        0u);
}

int WINAPI send_half(SOCKET, char const*, int size, int) {
    return size / 2;
}

TEST(Socket, send_leaves_the_rest_to_the_caller) {
    StandIn const stand_in("send", send_half);
    EXPECT_EQ(Socket().send("abcdefgh", 8, 0), 4);
}

// --- Datagrams -----------------------------------------------------------------------------------

TEST(Socket, datagrams_come_with_their_sender) {
    Socket sender = udp();
    Socket receiver = udp();
    bind_to_free_port(sender);
    bind_to_free_port(receiver);
    SocketIPAddress const to(receiver.address());
    char data[8] = {};
    SocketIPAddress from("9.9.9.9", 9);

    EXPECT_EQ(Socket::sendto(sender, "abc", 3, 0, to), 3);
    EXPECT_EQ(Socket::receivefrom(receiver, data, 8, 0, &from), 3);
    EXPECT_EQ(std::string(data, 3), "abc");
    EXPECT_EQ(from.get_ip(), 0x7F000001u);
    EXPECT_EQ(from.get_port(), ntohs(sender.address().sin_port));

    Socket::sendto(sender, "d", 1, 0, to);
    EXPECT_EQ(Socket::receivefrom(receiver, data, 8, 0, nullptr), 1);
}

TEST(Socket, an_empty_datagram_and_none_leave_the_sender_alone) {
    Socket sender = udp();
    Socket receiver = udp();
    bind_to_free_port(receiver);
    SocketIPAddress const to(receiver.address());
    char data[8] = {};
    SocketIPAddress from("9.9.9.9", 9);
    Socket::sendto(sender, "", 0, 0, to);
    EXPECT_EQ(Socket::receivefrom(receiver, data, 8, 0, &from), 0);
    receiver.set_blocking_status(false);
    EXPECT_EQ(Socket::receivefrom(receiver, data, 8, 0, &from), 0);
    EXPECT_STREQ(SocketIPAddress::get_as_string(from), "9.9.9.9");

    receiver.set_blocking_status(true);
    Socket::sendto(sender, "longer than four", 16, 0, to);
    EXPECT_EQ(
        failure_of([&] { Socket::receivefrom(receiver, data, 4, 0, &from); }),
        "Socket recv failure: The message was too large to fit into the specified buffer and was "
        "truncated.");
}

TEST(Socket, broadcasts_only_where_it_was_allowed) {
    Socket sender = udp();
    auto const is_allowed = [&] {
        int value = 0;
        int size = sizeof value;
        getsockopt(
            sender.handle(), SOL_SOCKET, SO_BROADCAST, reinterpret_cast<char*>(&value), &size);
        return value != 0;
    };
    SocketIPAddress const everyone("255.255.255.255", 9);
    EXPECT_EQ(
        failure_of([&] {
            Socket::sendto(sender, "x", 1, 0, everyone);
        }).rfind("Socket send failure: The requested address is a broadcast address, but", 0),
        0u);
    sender.set_broadcast_mode(true);
    EXPECT_TRUE(is_allowed());
    sender.set_broadcast_mode(false);
    EXPECT_FALSE(is_allowed());
}

// --- At length -----------------------------------------------------------------------------------

TEST(Socket, many_connections_leave_the_handles_flat) {
    { Pair const first; }
    unsigned long const before = test::current_holdings().handles;
    for (int i = 0; i < 300; ++i) {
        Pair pair;
        pair.client.send("x", 1, 0);
        char byte = 0;
        EXPECT_EQ(pair.server.receive(&byte, 1, 0), 1);
    }
    EXPECT_LE(test::current_holdings().handles, before);
}

// Echoes between its own sockets and fails on purpose: each thread has its own last error.
unsigned long __stdcall use_own_sockets(void* salt) {
    test::Random random(reinterpret_cast<std::uint64_t>(salt));
    Pair pair;
    Socket none;
    for (int i = 0; i < 200; ++i) {
        std::string const text(1 + random.below(5000), static_cast<char>('a' + random.below(26)));
        std::string back(text.size(), ' ');
        int const size = static_cast<int>(text.size());
        EXPECT_EQ(pair.client.send(text.data(), size, 0), size);
        EXPECT_EQ(pair.server.receive(back.data(), size, 0), size);
        EXPECT_EQ(back, text);
        bool const other = random.chance(2);
        Socket unbound = tcp();
        std::string const told = other ? failure_of([&] { none.listen(1); })
                                       : failure_of([&] { unbound.receive(back.data(), 1, 0); });
        EXPECT_EQ(
            told, other ? "Socket listen failure: The descriptor is not a socket."
                        : "Socket recv failure: The socket is not connected.");
    }
    return 0;
}

TEST(Socket, two_threads_on_their_own_sockets_keep_out_of_each_others_way) {
    HANDLE threads[2];
    for (std::size_t i = 0; i < 2; ++i) {
        void* const salt = reinterpret_cast<void*>(i + 7);
        threads[i] = CreateThread(nullptr, 0, use_own_sockets, salt, 0, nullptr);
    }
    WaitForMultipleObjects(2, threads, TRUE, INFINITE);
    for (HANDLE thread : threads) CloseHandle(thread);
}

}  // namespace
