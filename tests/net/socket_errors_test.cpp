#include "qx/net/socket_errors.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

std::string reason(int operation, int code) {
    return QX::socket_errors::reason(static_cast<QX::SocketOperation>(operation), code);
}

TEST(SocketErrors, gives_the_quoted_texts_to_the_letter) {
    EXPECT_EQ(
        reason(0, 10037), "A nonblocking connect call is in progress on the specified socket. ");
    EXPECT_EQ(
        reason(4, 10013),
        "Attempt to connect datagram socket to broadcast address failed because setsockopt option "
        "SO_BROADCAST is not enabled.");
    EXPECT_EQ(reason(5, 10022), "The socket has not been bound with bind.");
    EXPECT_EQ(reason(0, 9999), "Undocumented error.");
}

// How many codes each operation has a text for. No two codes share one.
TEST(SocketErrors, tells_operations_apart_where_a_code_means_different_things) {
    constexpr std::pair<char const*, int> operations[] = {
        {"gethostbyname", 19}, {"recv", 26},   {"connect", 27}, {"send", 29},
        {"bind", 24},          {"listen", 23}, {"accept", 25},  {"setsockopt", 18}};
    std::set<std::string> texts;
    for (int operation = 0; operation < 8; ++operation) {
        auto const& [call, documented] = operations[operation];
        int found = 0;
        for (int code = 9990; code < 12100; ++code) {
            std::string const text = reason(operation, code);
            auto const whole =
                QX::socket_errors::text(static_cast<QX::SocketOperation>(operation), code);
            EXPECT_EQ(std::string("Socket ") + call + " failure: " + text, whole.c_str());
            if (text.starts_with("Undocumented error")) continue;
            ++found;
            texts.insert(text);
        }
        EXPECT_EQ(found, documented) << call;
    }
    EXPECT_EQ(texts.size(), 60u);
}

}  // namespace
