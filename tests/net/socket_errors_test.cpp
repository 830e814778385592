#include "qx/net/socket_errors.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using QX::SocketOperation;
using QX::socket_errors::reason;

TEST(SocketErrors, gives_the_quoted_texts_to_the_letter) {
    EXPECT_STREQ(
        reason(SocketOperation::gethostbyname, 10037),
        "A nonblocking connect call is in progress on the specified socket. ");
    EXPECT_STREQ(
        reason(SocketOperation::bind, 10013),
        "Attempt to connect datagram socket to broadcast address failed because setsockopt option "
        "SO_BROADCAST is not enabled.");
    EXPECT_STREQ(
        reason(SocketOperation::listen, 10022), "The socket has not been bound with bind.");
}

// How many codes each operation has a text for. No two codes share one.
TEST(SocketErrors, tells_operations_apart_where_a_code_means_different_things) {
    constexpr std::pair<char const*, unsigned int> operations[] = {
        {"gethostbyname", 19}, {"recv", 26},   {"connect", 27}, {"send", 29},
        {"bind", 24},          {"listen", 23}, {"accept", 25},  {"setsockopt", 18}};
    std::set<std::string> all;
    for (SocketOperation operation{}; auto const& [call, documented] : operations) {
        std::set<std::string> own;
        for (int code = 9990; code < 12100; ++code) {
            std::string const text = reason(operation, code);
            std::string const whole = "Socket " + std::string(call) + " failure: " + text;
            EXPECT_EQ(QX::socket_errors::text(operation, code), whole.c_str());
            if (!text.starts_with("Undocumented error")) own.insert(text);
        }
        EXPECT_EQ(own.size(), documented) << call;
        all.merge(own);
        operation = SocketOperation(int(operation) + 1);
    }
    EXPECT_EQ(all.size(), 60u);
}

}  // namespace
