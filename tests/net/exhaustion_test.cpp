// What sockets, mail and web fetch make of memory that is not to be had.
#include "qx/net/mail.h"
#include "qx/net/web_fetch.h"

#include <gtest/gtest.h>

#include "tests/harness/failing_allocation.h"
#include "tests/harness/stand_in.h"
#include "tests/net/server.h"

#include <cstring>

using test::Attempt;

namespace {

int open_sockets;

SOCKET WINAPI open_socket(int, int, int) {
    return ++open_sockets;
}

int WINAPI close_socket(SOCKET) {
    return --open_sockets, 0;
}

int WINAPI refuse(SOCKET, sockaddr const*, int) {
    return SetLastError(WSAEADDRINUSE), SOCKET_ERROR;
}

int WINAPI agree(SOCKET, sockaddr const*, int) {
    return 0;
}

int WINAPI take_all(SOCKET, char const*, int size, int) {
    return size;
}

char const* reply;

int WINAPI give_a_byte(SOCKET, char* data, int, int) {
    return *reply ? *data = *reply++, 1 : 0;
}

// Sockets that take no memory of their own. The peer agrees to everything.
struct Peer {
    explicit Peer(char const* says) { reply = says; }
    ~Peer() { EXPECT_EQ(open_sockets, 0); }

    test::StandIn stand_ins[6] = {{"socket", open_socket}, {"closesocket", close_socket},
                                  {"bind", refuse},        {"connect", agree},
                                  {"send", take_all},      {"recv", give_a_byte}};
};

// The failure's text takes memory: without it std::bad_alloc is thrown in its place.
void bind_a_socket(Attempt const& attempt) {
    Peer const peer("");
    bool told = false;
    EXPECT_EQ(
        attempt([&] {
            try {
                test::tcp().bind();
            } catch (QX::String const&) {
                told = true;
            }
        }),
        told);
}

void send_mail(Attempt const& attempt) {
    Peer const peer("220 hi\r\n");
    attempt([] {
        EXPECT_EQ(QX::send_smtp_mail("me", "a@me", "b@you", "News", "", "127.0.0.1", 25), 0);
    });
}

// The memory is the callback's.
void fetch_a_page(Attempt const& attempt) {
    Peer const peer("HTTP/1.1 200 OK\r\n\r\nthe body");
    std::string body;
    char buffer[3];
    auto const collect = [](char* data, unsigned int size, void* to) {
        if (data) static_cast<std::string*>(to)->append(data, size).reserve(100);
        return true;
    };
    bool const whole = attempt(
        [&] { QX::get_http_page(buffer, sizeof buffer, "127.0.0.1", 80, "/", collect, &body); });
    EXPECT_EQ(body == "the body", whole);
}

TEST(Exhaustion, leaves_no_socket_open) {
    test::walk_allocations(
        {{"failing bind", bind_a_socket}, {"mail", send_mail}, {"web fetch", fetch_a_page}});
}

}  // namespace
