#include "qx/net/socket.h"

#include <gtest/gtest.h>

#include <cstring>

#include "qx/base/windows.h"
#include "tests/harness/stand_in.h"
#include "tests/net/server.h"

namespace {

using QX::Socket;
using QX::SocketClient;
using QX::SocketIPAddress;
using QX::SocketPlatform;
using test::tcp;

// Starts the sockets library before the first case, so that what it keeps for itself is no leak.
class WarmSockets : public testing::Environment {
    void SetUp() override {
        WSADATA data;
        ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
        ASSERT_NE(gethostbyname("localhost"), nullptr);
        tcp();
    }
    void TearDown() override { WSACleanup(); }
};

testing::Environment* const warm = testing::AddGlobalTestEnvironment(new WarmSockets);

// Whether the system still knows the handle.
bool is_open(unsigned long long handle) {
    int type = 0, size = sizeof type;
    return getsockopt(handle, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &size) == 0;
}

// Two connected sockets, and the way they came about.
struct Pair {
    Socket listener = tcp(), client = tcp(), server;

    Pair() {
        test::bind_to_free_port(listener);
        listener.listen(1);
        int port = 0;
        unsigned int address = 0;
        listener.get_address(&address, &port);
        client.set_address(address, port);
        EXPECT_TRUE(client.connect());
        server = Socket(listener.accept());
    }
};

template <typename Operation>
void expect_failure(std::string const& text, Operation operation) {
    try {
        operation();
        ADD_FAILURE() << "did not throw " << text;
    } catch (QX::String const& thrown) {
        EXPECT_EQ(std::string(thrown.c_str()).substr(7, text.size()), text);
    }
}

// --- Start-up ------------------------------------------------------------------------------------

std::string startups;
std::pair<int, WORD> startup;  // result and version

int WINAPI note_startup(WORD, WSADATA* data) {
    startups += 's';
    data->wVersion = startup.second;
    return startup.first;
}

int WINAPI note_cleanup() {
    return startups += 'c', 0;
}

TEST(SocketClient, starts_once_ends_once_and_compares_versions_as_whole_words) {
    test::StandIn const start("WSAStartup", note_startup), end("WSACleanup", note_cleanup);
    std::string const too_low = "Requested WinSock version not available.";
    std::tuple<char, char, std::pair<int, WORD>, std::string> const rows[] = {
        {2, 2, {0, 0x0202}, ""},
        {2, 0, {0, 0x0101}, ""},  // a higher minor outweighs the major
        {2, 2, {0, 0x0101}, too_low},
        {1, 2, {0, 0x0102}, too_low},
        {1, 1, {10091, 0x0101}, "Could not initialise WinSock."},
    };
    for (auto const& [major, minor, told, expected] : rows) {
        startups.clear();
        startup = told;
        std::string thrown;
        try {
            SocketClient const client(major, minor);
            EXPECT_EQ(startups, "s");
        } catch (char* text) {
            thrown = text;
        }
        EXPECT_EQ(thrown, expected);
        EXPECT_EQ(startups, thrown.empty() ? "sc" : "s");
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
    EXPECT_FALSE(is_open(handle));
    EXPECT_TRUE(is_open(other.handle()));
    last.reset();
    EXPECT_FALSE(is_open(other.handle()));
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
    char byte = 0;
    std::string const reason = "failure: The descriptor is not a socket.";
    expect_failure("bind " + reason, [&] { none.bind(); });
    expect_failure("listen " + reason, [&] { none.listen(1); });
    expect_failure("accept " + reason, [&] { none.accept(); });
    expect_failure("send " + reason, [&] { none.send("x", 1, 0); });
    expect_failure("send " + reason, [&] { Socket::sendto(none, "x", 1, 0, to); });
    expect_failure("recv " + reason, [&] { none.receive(&byte, 1, 0); });
    expect_failure("recv " + reason, [&] { Socket::receivefrom(none, &byte, 1, 0, nullptr); });
    expect_failure("setsockopt " + reason, [&] { none.set_blocking_status(true); });
    expect_failure("setsockopt " + reason, [&] { none.set_broadcast_mode(true); });
    expect_failure("gethostbyname failure: Authoritative answer host not found.", [] {
        Socket::get_host_by_name("no-such-host.invalid");
    });
    EXPECT_THROW(Socket(AF_INET, 999, 0), char const*);
    EXPECT_THROW(SocketPlatform(AF_INET, 999, 0), char*);
    EXPECT_FALSE(none.connect());
    EXPECT_EQ(none.receive(&byte, 0, 0), 0);  // no call is made
}

// --- Data ----------------------------------------------------------------------------------------

TEST(Socket, receive_reads_fully_or_what_is_there_or_until_the_peer_closes) {
    char data[8] = {};
    Pair pair;
    pair.client.set_blocking_status(false);
    pair.listener.set_blocking_status(false);
    EXPECT_EQ(pair.client.receive(data, 8, 0), 0);
    EXPECT_EQ(pair.listener.accept(), ~0ull);
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
