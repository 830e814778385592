#include "qx/net/socket_errors.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

namespace {

constexpr int operations = 8;

constexpr char const* prefixes[operations + 1] = {
    "Socket gethostbyname failure: ", "Socket recv failure: ",       "Socket connect failure: ",
    "Socket send failure: ",          "Socket bind failure: ",       "Socket listen failure: ",
    "Socket accept failure: ",        "Socket setsockopt failure: ", "",
};

// Of one code: a word for each operation, in the order of `prefixes`. The same letter means the
// same text; '-' the general one.
struct Shape {
    int code;
    char const* texts;
};

// clang-format off
constexpr Shape by_operation[] = {
    // g r c s b l a o
    {10013, "--aba---"},
    {10014, "abcbd-e-"},
    {10022, "-abcdef-"},
    {10024, "-----ab-"},
    {10035, "-abc--d-"},
    {10040, "-a-b----"},
    {10045, "-a-b-cd-"},
    {10048, "--a-ba--"},
    {10049, "--a-b---"},
    {10054, "-a-b--c-"},
    {10055, "--acbcc-"},
    {10058, "-a-b----"},
    {10060, "-abc----"},
    {10065, "--ab----"},
};
// clang-format on

struct Quoted {
    int code;
    int operation;  // -1: every one
    char const* reason;
};

constexpr Quoted quoted[] = {
    {10004, -1, "The blocking Windows Socket 1.1 call was canceled through WSACancelBlockingCall."},
    {10036, -1,
     "A blocking Windows Sockets 1.1 call is in progress, or the service provider is still "
     "processing a callback function."},
    {10037, -1, "A nonblocking connect call is in progress on the specified socket. "},
    {10038, -1, "The descriptor is not a socket."},
    {10042, -1, "The option is unknown or unsupported for the specified provider or socket."},
    {10047, -1, "Addresses in the specified family cannot be used with this socket."},
    {10050, -1, "The network subsystem has failed."},
    {10051, -1, "The network cannot be reached from this host at this time."},
    {10052, -1,
     "The connection has been broken due to the keep-alive activity detecting a failure while the "
     "operation was in progress."},
    {10053, -1,
     "The virtual circuit was terminated due to a time-out or other failure. The application "
     "should close the socket as it is no longer usable."},
    {10056, -1, "The socket is already connected (connection-oriented sockets only)."},
    {10057, -1, "The socket is not connected."},
    {10061, -1, "The attempt to connect was forcefully rejected."},
    {10093, -1, "A successful WSAStartup call must occur before using this function."},
    {11001, -1, "Authoritative answer host not found."},
    {11002, -1, "Nonauthoritative host not found, or server failure."},
    {11003, -1, "A nonrecoverable error occurred."},
    {11004, -1, "Valid name, no data record of requested type."},
    {10013, 4,
     "Attempt to connect datagram socket to broadcast address failed because setsockopt option "
     "SO_BROADCAST is not enabled."},
    {10013, 3,
     "The requested address is a broadcast address, but the appropriate flag was not set. Call "
     "setsockopt with the SO_BROADCAST socket option to enable use of the broadcast address."},
    {10022, 2, "The parameter s is a listening socket."},
    {10022, 4, "The socket is already bound to an address."},
    {10022, 5, "The socket has not been bound with bind."},
    {10022, 6, "The listen function was not invoked prior to accept."},
    {10024, 5, "No more socket descriptors are available."},
    {10024, 6,
     "The queue is nonempty upon entry to accept and there are no descriptors available."},
    {10035, 1, "The socket is marked as nonblocking and the receive operation would block."},
    {10035, 2,
     "The socket is marked as nonblocking and the connection cannot be completed immediately."},
    {10035, 3, "The socket is marked as nonblocking and the requested operation would block."},
    {10035, 6,
     "The socket is marked as nonblocking and no connections are present to be accepted."},
    {10049, 2, "The remote address is not a valid address (such as ADDR_ANY)."},
    {10049, 4, "The specified address is not a valid address for this computer."},
    {10054, 6,
     "An incoming connection was indicated, but was subsequently terminated by the remote peer "
     "prior to accepting the call."},
    {10055, 2, "No buffer space is available. The socket cannot be connected."},
    {10055, 4, "Not enough buffers available, too many connections."},
    {10055, 6, "No buffer space is available."},
    {10060, 1,
     "The connection has been dropped because of a network failure or because the peer system "
     "failed to respond."},
    {10060, 2, "Attempt to connect timed out without establishing a connection."},
    {10060, 3,
     "The connection has been dropped, because of a network failure or because the system on the "
     "other end went down without notice."},
    {10065, 2, "A socket operation was attempted to an unreachable host."},
    {10065, 3, "The remote host cannot be reached from this host at this time."},
};

std::string reason(int operation, int code) {
    return QX::socket_errors::reason(static_cast<QX::SocketOperation>(operation), code);
}

bool is_general(std::string const& text) {
    return text.rfind("Undocumented error - ", 0) == 0 && text.back() == '.';
}

TEST(SocketErrors, gives_the_quoted_texts_to_the_letter) {
    for (Quoted const& row : quoted) {
        int const first = row.operation < 0 ? 0 : row.operation;
        int const last = row.operation < 0 ? operations : row.operation;
        for (int operation = first; operation <= last; ++operation)
            EXPECT_EQ(reason(operation, row.code), row.reason) << operation;
    }
}

TEST(SocketErrors, tells_operations_apart_where_a_code_means_different_things) {
    std::set<std::string> general;
    for (Shape const& shape : by_operation) {
        std::string const undocumented = reason(operations, shape.code);
        EXPECT_TRUE(is_general(undocumented)) << shape.code;
        EXPECT_TRUE(general.insert(undocumented).second) << shape.code;

        std::map<char, std::string> texts = {{'-', undocumented}};
        std::set<std::string> different = {undocumented};
        for (int operation = 0; operation < operations; ++operation) {
            std::string const text = reason(operation, shape.code);
            auto const [known, is_new] = texts.insert({shape.texts[operation], text});
            EXPECT_EQ(known->second, text) << shape.code << " by " << operation;
            EXPECT_EQ(different.insert(text).second, is_new) << shape.code;
        }
    }
}

// Every code by every operation, and numbers around them: which are documented, and the prefix.
TEST(SocketErrors, knows_no_other_codes) {
    std::set<int> documented;
    for (Quoted const& row : quoted) documented.insert(row.code);
    for (Shape const& shape : by_operation) documented.insert(shape.code);
    ASSERT_EQ(documented.size(), 18u + 14u);

    for (int code = -2; code < 12100; code = code == 12 ? 9990 : code + 1) {
        for (int operation = -1; operation <= operations; ++operation) {
            std::string const text = reason(operation, code);
            EXPECT_EQ(text != "Undocumented error.", documented.count(code) == 1) << code;
            std::string const whole =
                QX::socket_errors::text(static_cast<QX::SocketOperation>(operation), code).c_str();
            EXPECT_EQ(whole, prefixes[operation < 0 ? operations : operation] + text);
        }
    }
}

}  // namespace
