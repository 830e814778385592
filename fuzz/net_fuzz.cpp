// net_fuzz.cpp - any reply, in any pieces, ends both clients' talk and is handed on unchanged.
#include "qx/base/windows.h"

#include <winsock2.h>

#include <algorithm>
#include <cstring>

#include "fuzz/driver.h"
#include "qx/net/mail.h"
#include "qx/net/web_fetch.h"
#include "tests/harness/stand_in.h"

namespace {

// What recv gives: at most `piece` bytes a call, and behind the reply the end or a failure.
char const* reply;
std::size_t left;
std::size_t piece;
bool fails;

int WINAPI give(SOCKET, char* data, int size, int) {
    if (left == 0) return fails ? SOCKET_ERROR : 0;
    std::size_t const count = std::min({left, piece, static_cast<std::size_t>(size)});
    std::memcpy(data, reply, count);
    reply += count;
    left -= count;
    return static_cast<int>(count);
}

int WINAPI start(WORD, WSADATA*) {
    return 0;
}

hostent* WINAPI find(char const*) {
    static char address[4] = {127, 0, 0, 1};
    static char* addresses[] = {address, nullptr};
    static hostent host = {};
    host.h_addr_list = addresses;
    return &host;
}

SOCKET WINAPI make(int, int, int) {
    return 1;
}

int WINAPI succeed() {
    return 0;
}

int WINAPI take(SOCKET, char const*, int size, int) {
    return size;
}

int WINAPI failure() {
    return WSAECONNRESET;
}

struct Page {
    char* next;  // where in the reply the body must go on
    unsigned int total = 0;
    bool announced = false;
    bool ended = false;
};

bool check(char* data, unsigned int size, void* user) {
    auto& page = *static_cast<Page*>(user);
    if (page.ended) __builtin_trap();
    if (!data) {
        page.ended = page.announced;
        page.announced = true;
        if (page.ended && page.total != size) __builtin_trap();
        return true;
    }
    // The first piece ends where the reply has been read to.
    if (page.total == 0) page.next = const_cast<char*>(reply) - size;
    if (std::memcmp(page.next, data, size) != 0) __builtin_trap();
    page.next += size;
    page.total += size;
    return true;
}

void one(char* data, std::size_t size) {
    char buffer[64];
    for (std::size_t pieces : {std::size_t{1}, std::size_t{7}, std::size_t{5000}}) {
        piece = pieces;
        fails = pieces == 7;
        reply = data;
        left = size;
        Page page = {};
        int const result = QX::get_http_page(buffer, sizeof buffer, "host", 80, "/", check, &page);
        if (page.announced && page.ended != (result == 0)) __builtin_trap();
        if (page.ended && left) __builtin_trap();

        reply = data;
        left = size;
        QX::send_smtp_mail("a", "b", "c", "d", "e", "host", 25);
    }
}

}  // namespace

int main(int argc, char** argv) {
    test::StandIn const calls[] = {
        {"WSAStartup", start}, {"WSACleanup", succeed}, {"WSAGetLastError", failure},
        {"socket", make},      {"gethostbyname", find}, {"closesocket", succeed},
        {"send", take},        {"recv", give},          {"connect", succeed},
    };
    for (test::StandIn const& call : calls) {
        if (!call.found()) return 1;
    }
    return fuzz::run(
        "net", argc, argv,
        {"HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\nA body that is longer than the buffer of "
         "sixty-four bytes which takes it.",
         "220 hi\r\n250-a\r\n250 ok\r\n250 ok\r\n354 go\r\n250 ok\r\n221 by\r\n"},
        one);
}
