#include "qx/net/socket.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "tests/harness/stand_in.h"
#include "tests/net/server.h"

namespace {

using QX::Socket;
using QX::SocketClient;
using QX::SocketIPAddress;
using test::tcp;

// In use before the first case, so that what the sockets library keeps for itself is no leak.
SocketClient const started(2, 2);
hostent* const looked_up = gethostbyname("localhost");
Socket const made = tcp();

// Whether the system still knows the handle.
bool is_open(unsigned long long handle) {
    int type = 0, size = sizeof type;
    return getsockopt(handle, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &size) == 0;
}

// Two connected sockets, and the way they came about.
struct Pair {
    Socket listener = tcp(), client = tcp(), server;

    Pair() {
        client.set_address("127.0.0.1", test::bind_to_free_port(listener));
        listener.listen(1);
        EXPECT_TRUE(client.connect());
        server = Socket(listener.accept());
    }
};

// --- Start-up ------------------------------------------------------------------------------------

std::string startups;
std::pair<int, WORD> startup;  // result and version

TEST(SocketClient, starts_once_ends_once_and_compares_versions_as_whole_words) {
    auto const note_startup = [](WORD, WSADATA* data) {
        startups += 's';
        data->wVersion = startup.second;
        return startup.first;
    };
    test::StandIn const start("WSAStartup", +note_startup);
    test::StandIn const end(
        "WSACleanup", +[] { return startups += 'c', 0; });
    std::tuple<char, char, std::pair<int, WORD>, std::string> const rows[] = {
        {2, 2, {0, 0x0202}, ""},
        {2, 0, {0, 0x0101}, ""},  // a higher minor outweighs the major
        {1, 2, {0, 0x0102}, "Requested WinSock version not available."},
        {1, 1, {10091, 0x0101}, "Could not initialise WinSock."},
    };
    for (auto const& [major, minor, told, expected] : rows) {
        startups.clear();
        startup = told;
        std::string thrown;
        try {
            SocketClient const client(major, minor);
        } catch (char* text) {
            thrown = text;
        }
        EXPECT_TRUE(thrown == expected && startups == (thrown.empty() ? "sc" : "s")) << thrown;
    }
}

// --- Addresses -----------------------------------------------------------------------------------

TEST(SocketIPAddress, keeps_network_order_and_tells_host_order) {
    unsigned char const bytes[] = {192, 168, 2, 7};
    SocketIPAddress const dotted("192.168.2.7", 0x1234), raw(bytes, 0x1234);
    for (SocketIPAddress const& each : {dotted, raw, SocketIPAddress(raw.get_sockaddr_in())}) {
        unsigned char out[4] = {};
        each.get_ip(out);
        EXPECT_EQ(std::memcmp(out, bytes, 4), 0);
        EXPECT_TRUE(each.get_ip() == 0xC0A80207 && each.get_port() == 0x1234);
        EXPECT_STREQ(SocketIPAddress::get_as_string(each), "192.168.2.7");
    }
    Socket socket;
    unsigned int address = 0;
    int port = 0;
    socket.set_address("1.2.3.4", 0x10050);
    socket.get_address(&address, &port);
    // As given, and 16 bits of the port.
    EXPECT_TRUE(address == 0x04030201 && port == 80 && socket.address().sin_port == 0x5000);
}

// --- Ownership -----------------------------------------------------------------------------------

TEST(Socket, ownership_moves_with_each_copy) {
    auto last = std::make_unique<Socket>();
    {
        Socket const first = tcp();
        Socket const second(first), third(second, false), view(third, true);
        EXPECT_FALSE(first.owner() || second.owner() || view.owner());
        EXPECT_TRUE(third.owner() && first.handle() == third.handle());
        *last = third;
        EXPECT_FALSE(third.owner());
        *last = *last;
    }
    unsigned long long const handle = last->handle();
    EXPECT_TRUE(is_open(handle) && last->owner());
    Socket view(*last, true);
    Socket const other = tcp();
    view = other;  // a view closes nothing
    EXPECT_TRUE(is_open(handle));
    *last = view;
    EXPECT_TRUE(!is_open(handle) && is_open(other.handle()));
    alignas(Socket) unsigned char room[sizeof(Socket)];
    auto* const heir = new (room) Socket(*last);
    last.reset();
    EXPECT_TRUE(is_open(other.handle()));
    std::destroy_at(heir);
    EXPECT_FALSE(is_open(other.handle()) || heir->valid());
}

TEST(Socket, adopting_a_handle_takes_the_peers_address_or_zero) {
    Pair const pair;
    EXPECT_EQ(pair.server.address().sin_addr.s_addr, inet_addr("127.0.0.1"));
    EXPECT_EQ(pair.listener.address().sin_port, pair.server.address().sin_port);
    Socket const lone(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    EXPECT_TRUE(lone.owner() && lone.address().sin_family == 0);
}

// --- Failures ------------------------------------------------------------------------------------

TEST(Socket, every_operation_tells_its_own_failure) {
    Socket none;
    none.set_address("127.0.0.1", 9);
    SocketIPAddress const to(none.address());
    Socket refused = tcp();
    {
        Socket silent = tcp();
        test::bind_to_free_port(silent);
        refused.set_address("127.0.0.1", ntohs(silent.address().sin_port));
    }
    EXPECT_TRUE(!refused.connect() && WSAGetLastError() == WSAECONNREFUSED);
    char byte = 0;
    std::string const reason = " failure: The descriptor is not a socket.";
    std::pair<std::string, std::function<void()>> const rows[] = {
        {"bind" + reason, [&] { none.bind(); }},
        {"listen" + reason, [&] { none.listen(1); }},
        {"accept" + reason, [&] { none.accept(); }},
        {"send" + reason, [&] { none.send("x", 1, 0); }},
        {"send failure: The socket is not connected.",
         [&] { Socket(refused, true).send("x", 1, 0); }},
        {"send" + reason, [&] { Socket::sendto(none, "x", 1, 0, to); }},
        {"recv" + reason, [&] { none.receive(&byte, 1, 0); }},
        {"recv" + reason, [&] { Socket::receivefrom(none, &byte, 1, 0, nullptr); }},
        {"setsockopt" + reason, [&] { none.set_blocking_status(true); }},
        {"setsockopt" + reason, [&] { none.set_broadcast_mode(true); }},
        {"gethostbyname failure: Authoritative answer host not found.",
         [] { Socket::get_host_by_name("no-such-host.invalid"); }}};
    for (auto const& [told, operation] : rows) {
        try {
            operation();
            ADD_FAILURE() << "no " << told;
        } catch (QX::String const& text) {
            EXPECT_EQ(text.c_str(), "Socket " + told);
        }
    }
    EXPECT_THROW(Socket(AF_INET, 999, 0), char const*);
    EXPECT_THROW(QX::SocketPlatform(AF_INET, 999, 0), char*);
    EXPECT_FALSE(none.connect());
    EXPECT_EQ(none.receive(&byte, 0, 0), 0);  // no call is made
}

// --- Data ----------------------------------------------------------------------------------------

TEST(Socket, receive_reads_fully_or_what_is_there_or_until_the_peer_closes) {
    char data[8] = {};
    Pair pair;
    pair.client.set_blocking_status(false);
    pair.listener.set_blocking_status(false);
    EXPECT_TRUE(pair.client.receive(data, 8, 0) == 0 && pair.listener.accept() == ~0ull);
    pair.server.send("abc", 3, 0);
    pair.client.set_blocking_status(true);
    EXPECT_EQ(pair.client.receive(data, 1, 0), 1);
    pair.client.set_blocking_status(false);
    EXPECT_EQ(pair.client.receive(data + 1, 7, 0), 2);
    EXPECT_STREQ(data, "abc");
    test::Server server(test::Server::Script{{"", "abcdefgh"}});  // a byte at a time
    Socket client = tcp();
    client.set_address(inet_addr("127.0.0.1"), server.port);
    ASSERT_TRUE(client.connect());
    EXPECT_EQ(client.receive(data, 6, 0), 6);
    EXPECT_EQ(client.receive(data, 8, 0), 2);
    EXPECT_EQ(client.receive(data, 8, 0), 0);
}

TEST(Socket, datagrams_come_with_their_sender_and_empty_ones_without) {
    Socket sender(AF_INET, SOCK_DGRAM, IPPROTO_UDP), receiver(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    test::bind_to_free_port(sender);
    test::bind_to_free_port(receiver);
    SocketIPAddress const to(receiver.address());
    SocketIPAddress from("9.9.9.9", 9);
    char data[8] = {};
    Socket::sendto(sender, "", 0, 0, to);
    EXPECT_EQ(Socket::receivefrom(receiver, data, 8, 0, &from), 0);
    EXPECT_STREQ(SocketIPAddress::get_as_string(from), "9.9.9.9");
    EXPECT_EQ(Socket::sendto(sender, "abc", 3, 0, to), 3);
    EXPECT_EQ(Socket::receivefrom(receiver, data, 8, 0, &from), 3);
    EXPECT_STREQ(data, "abc");
    EXPECT_EQ(from.get_port(), ntohs(sender.address().sin_port));
    sender.set_broadcast_mode(true);
    int allowed = 0, size = sizeof allowed;
    getsockopt(sender.handle(), SOL_SOCKET, SO_BROADCAST, reinterpret_cast<char*>(&allowed), &size);
    EXPECT_NE(allowed, 0);
}

}  // namespace
