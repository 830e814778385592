#include "qx/net/socket_errors.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

constexpr int operations = 8;

// Of one code: a letter for each operation, in their order. The same letter means the same text,
// '-' the general one.
// clang-format off
std::map<int, std::string> const shapes = {
    // grcsblao
    {10013, "--aba---"}, {10014, "abcbd-e-"}, {10022, "-abcdef-"}, {10024, "-----ab-"},
    {10035, "-abc--d-"}, {10040, "-a-b----"}, {10045, "-a-b-cd-"}, {10048, "--a-ba--"},
    {10049, "--a-b---"}, {10054, "-a-b--c-"}, {10055, "--acbcc-"}, {10058, "-a-b----"},
    {10060, "-abc----"}, {10065, "--ab----"},
    {10004, "aaaaaaaa"}, {10036, "aaaaaaaa"}, {10037, "aaaaaaaa"}, {10038, "aaaaaaaa"},
    {10042, "aaaaaaaa"}, {10047, "aaaaaaaa"}, {10050, "aaaaaaaa"}, {10051, "aaaaaaaa"},
    {10052, "aaaaaaaa"}, {10053, "aaaaaaaa"}, {10056, "aaaaaaaa"}, {10057, "aaaaaaaa"},
    {10061, "aaaaaaaa"}, {10093, "aaaaaaaa"}, {11001, "aaaaaaaa"}, {11002, "aaaaaaaa"},
    {11003, "aaaaaaaa"}, {11004, "aaaaaaaa"},
};
// clang-format on

std::string reason(int operation, int code) {
    return QX::socket_errors::reason(static_cast<QX::SocketOperation>(operation), code);
}

TEST(SocketErrors, gives_the_quoted_texts_to_the_letter) {
    struct Row {
        int operation, code;
        char const* text;
    };
    constexpr Row rows[] = {
        {0, 10037, "A nonblocking connect call is in progress on the specified socket. "},
        {4, 10013,
         "Attempt to connect datagram socket to broadcast address failed because setsockopt option "
         "SO_BROADCAST is not enabled."},
        {5, 10022, "The socket has not been bound with bind."},
        {6, 10035,
         "The socket is marked as nonblocking and no connections are present to be accepted."},
    };
    for (Row const& row : rows) EXPECT_EQ(reason(row.operation, row.code), row.text);
}

// Every code by every operation, and numbers around them.
TEST(SocketErrors, tells_operations_apart_where_a_code_means_different_things) {
    constexpr char const* calls[] = {"gethostbyname", "recv",   "connect", "send",
                                     "bind",          "listen", "accept",  "setsockopt"};
    std::map<std::string, std::string> owners;  // of texts, which no two codes share
    for (int code = 9990; code < 12100; ++code) {
        auto const shape = shapes.find(code);
        std::string const general = reason(operations, code);
        EXPECT_EQ(general == "Undocumented error.", shape == shapes.end()) << code;
        for (int operation = 0; operation < operations; ++operation) {
            std::string const text = reason(operation, code);
            auto const whole =
                QX::socket_errors::text(static_cast<QX::SocketOperation>(operation), code);
            EXPECT_EQ(
                whole, (std::string("Socket ") + calls[operation] + " failure: " + text).c_str());
            char const letter = shape == shapes.end() ? '-' : shape->second[operation];
            EXPECT_EQ(text.starts_with("Undocumented error"), letter == '-') << code;
            std::string const owner = std::to_string(shape == shapes.end() ? 0 : code) + letter;
            EXPECT_EQ(owners.emplace(text, owner).first->second, owner) << operation;
        }
    }
}

}  // namespace
