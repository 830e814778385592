#include "qx/net/web_fetch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/net/fake_sockets.h"
#include "tests/net/scripted_server.h"

namespace {

using test::FakeSockets;
using test::ScriptedServer;
using test::ServerStep;

// One line a call: "null 12" or "5 bytes: hello".
struct Calls {
    std::vector<std::string> lines;
};

bool note(char* data, unsigned int size, void* user) {
    auto& calls = *static_cast<Calls*>(user);
    std::string line = data ? std::to_string(size) + " bytes: " + std::string(data, size)
                            : "null " + std::to_string(size);
    calls.lines.push_back(line);
    return false;
}

struct Fetched {
    int result;
    std::vector<std::string> calls;
};

Fetched fetch(unsigned short port, unsigned int buffer_size = 4096) {
    test::Guarded const buffer(buffer_size);
    Calls calls;
    int const result =
        QX::get_http_page(buffer.data(), buffer_size, "127.0.0.1", port, "/page", note, &calls);
    return {result, calls.lines};
}

Fetched fetch_fake(std::string const& reply, int end_code = 0, unsigned int buffer_size = 4096) {
    FakeSockets fake;
    EXPECT_TRUE(fake.found());
    if (!reply.empty()) fake.replies = {reply};
    fake.end_code = end_code;
    Fetched const fetched = fetch(80, buffer_size);
    std::vector<std::string> const request = {
        "GET /page HTTP/1.1\r\n", "Host: 127.0.0.1\r\n", "\r\n"};
    EXPECT_EQ(fake.sent, request);
    EXPECT_TRUE(fake.is_balanced());
    return fetched;
}

std::string const good = "HTTP/1.1 200 OK\r\n";

TEST(WebFetch, hands_the_body_on_a_buffer_at_a_time_between_two_announcements) {
    struct Row {
        char const* headers_and_body;
        unsigned int buffer_size;
        std::vector<std::string> calls;
    };
    Row const rows[] = {
        {"Content-Length: 5\r\n\r\nhello", 9, {"null 5", "5 bytes: hello", "null 5"}},
        {"\r\nhello", 5, {"null 0", "5 bytes: hello", "0 bytes: ", "null 5"}},
        {"\r\nhello", 2, {"null 0", "2 bytes: he", "2 bytes: ll", "1 bytes: o", "null 5"}},
        {"Content-Length: 7\r\n\r\n", 9, {"null 7", "0 bytes: ", "null 0"}},
        {"\r\nhello", 0, {"null 0", "0 bytes: ", "null 0"}},
        {"Content-Length: 2\r\n\r\nlonger", 9, {"null 2", "6 bytes: longer", "null 6"}},
        {"Transfer-Encoding: chunked\r\n\r\n1\r\na\r\n",
         9,
         {"null 0", "6 bytes: 1\r\na\r\n", "null 6"}},
    };
    for (Row const& row : rows) {
        Fetched const fetched = fetch_fake(good + row.headers_and_body, 0, row.buffer_size);
        EXPECT_EQ(fetched.result, 0);
        EXPECT_EQ(fetched.calls, row.calls) << row.headers_and_body;
    }
}

TEST(WebFetch, a_status_line_it_does_not_want_ends_the_call_before_any_callback) {
    struct Row {
        char const* reply;
        int end_code;
        int result;
    };
    constexpr Row rows[] = {
        {"HTTP/1.1 404 Not Found\r\n\r\nbody", 0, -404},
        {"HTTP/1.1 301 Moved\r\n", 0, -301},
        {"HTTP/1.0 200 OK\r\n\r\n", 0, -1},
        {"http/1.1 200 OK\r\n\r\n", 0, -1},
        {"HTTP/1.1\t200 OK\r\n\r\n", 0, -1},
        {"\r\n", 0, -1},
        {"HTTP/1.1 2\n", 0, -(200 - 38 * 10 - 48)},
        {"HTTP/1.1 abc\r\n", 0, -5451},
        {"HTTP/1.1 200 OK", 0, 0},          // closes in mid-line
        {"", 0, 0},                         // closes at once
        {"", 10054, 10054},                 // breaks off
        {"HTTP/1.1 200 OK\r\nA: b", 0, 0},  // closes within the headers
        {"HTTP/1.1 200 OK\r\nA: b\r\n", 10060, 10060},
    };
    for (Row const& row : rows) {
        Fetched const fetched = fetch_fake(row.reply, row.end_code);
        EXPECT_EQ(fetched.result, row.result) << row.reply;
        EXPECT_TRUE(fetched.calls.empty()) << row.reply;
    }
}

TEST(WebFetch, reads_header_lines_by_length_and_the_last_announced_size) {
    std::string const exact(1021, 'x');  // with its end 1,023 characters
    struct Row {
        std::string headers_and_body;
        std::vector<std::string> calls;
    };
    Row const rows[] = {
        {"Content-Length: 5\nContent-Length: 2\n\nab", {"null 2", "2 bytes: ab", "null 2"}},
        {"content-length: 5\r\n Content-Length: 4\r\n\r\n", {"null 0", "0 bytes: ", "null 0"}},
        {"Content-Length:  9x\r\n\r\n", {"null 9", "0 bytes: ", "null 0"}},
        {"Content-Length: -1\r\n\r\n", {"null 4294967295", "0 bytes: ", "null 0"}},
        {"a\nbc\r\n", {"null 0", "4 bytes: bc\r\n", "null 4"}},  // two characters end the headers
        {"ab\n\nc", {"null 0", "1 bytes: c", "null 1"}},
        {exact + "\r\nb: c\r\n\r\nd", {"null 0", "1 bytes: d", "null 1"}},
        {exact + "x\r\nb\r\n\r\nd", {"null 0", "6 bytes: b\r\n\r\nd", "null 6"}},
        {exact + "xx\r\nb: c\r\n", {"null 0", "6 bytes: b: c\r\n", "null 6"}},  // its end is a line
        {exact + "xxContent-Length: 3\r\n\r\n", {"null 3", "0 bytes: ", "null 0"}},
    };
    for (Row const& row : rows) {
        Fetched const fetched = fetch_fake(good + row.headers_and_body);
        EXPECT_EQ(fetched.calls, row.calls) << row.headers_and_body;
    }
    std::string const long_status = good.substr(0, 15) + std::string(1008, 'x');
    EXPECT_EQ(fetch_fake(long_status + "Content-Length: 3\r\n\r\n").calls[0], "null 3");
}

TEST(WebFetch, a_failed_read_in_the_body_leaves_out_the_closing_call) {
    Fetched const fetched = fetch_fake(good + "\r\nabcde", 10054, 4);
    EXPECT_EQ(fetched.result, 10054);
    std::vector<std::string> const calls = {"null 0", "4 bytes: abcd"};
    EXPECT_EQ(fetched.calls, calls);
}

TEST(WebFetch, a_failed_send_looks_like_success) {
    for (int failing = 0; failing < 3; ++failing) {
        FakeSockets fake;
        fake.failing_send = failing;
        fake.replies = {"HTTP/1.1 404 \r\n"};
        Fetched const fetched = fetch(80);
        EXPECT_EQ(fetched.result, 0);
        EXPECT_TRUE(fetched.calls.empty());
        EXPECT_EQ(fake.sent.size(), static_cast<std::size_t>(failing) + 1);
        EXPECT_TRUE(fake.is_balanced());
    }
}

TEST(WebFetch, an_opening_that_fails_gives_its_code) {
    for (auto const step :
         {&FakeSockets::startup_code, &FakeSockets::host_code, &FakeSockets::socket_code,
          &FakeSockets::connect_code}) {
        FakeSockets fake;
        fake.*step = 10050;
        EXPECT_EQ(fetch(80).result, 10050);
        EXPECT_TRUE(fake.sent.empty());
        EXPECT_TRUE(fake.is_balanced());
    }
}

// The command buffer holds 1,024 bytes. Each argument ends at a page that may not be touched.
TEST(WebFetch, sends_arguments_of_every_length_whole) {
    std::vector<std::size_t> lengths = {0, 2000, 2048, 100000};
    for (std::size_t length = 1000; length < 1030; ++length) lengths.push_back(length);
    for (std::size_t length : lengths) {
        std::string const text(length, 'x');
        test::Guarded const argument(text.c_str(), length + 1);
        FakeSockets fake;
        fake.replies = {"HTTP/1.1 404 \r\n"};
        EXPECT_EQ(
            QX::get_http_page(nullptr, 0, argument.data(), 80, argument.data(), note, nullptr),
            -404);
        EXPECT_EQ(fake.all_sent(), "GET " + text + " HTTP/1.1\r\nHost: " + text + "\r\n\r\n");
        bool const fits = length + sizeof "GET  HTTP/1.1\r\n" <= 1024;
        EXPECT_TRUE(!fits || fake.sent.size() == 3) << length;
    }
}

TEST(WebFetch, fetches_from_a_server_that_talks_byte_by_byte) {
    ScriptedServer server(
        {{ServerStep::hear, "\r\n\r\n"},
         {ServerStep::say_bytewise, good + "Content-Length: 8\r\n\r\nbodybody"}});
    Fetched const fetched = fetch(server.port(), 5);
    EXPECT_EQ(fetched.result, 0);
    std::vector<std::string> const calls = {"null 8", "5 bytes: bodyb", "3 bytes: ody", "null 8"};
    EXPECT_EQ(fetched.calls, calls);
    EXPECT_EQ(server.heard(), "GET /page HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
}

// What a broken connection gives is the system's to say: nothing, or one of two codes.
TEST(WebFetch, ends_when_the_server_closes_or_breaks_off) {
    ScriptedServer closing(
        {{ServerStep::hear, "\r\n\r\n"}, {ServerStep::say, "HTTP/1.1 200 in mid-li"}});
    EXPECT_EQ(fetch(closing.port()).result, 0);

    ScriptedServer breaking(
        {{ServerStep::hear, "\r\n\r\n"},
         {ServerStep::say, good + "\r\nabc"},
         {ServerStep::pause, ""},
         {ServerStep::reset, ""}});
    Fetched const fetched = fetch(breaking.port());
    int const result = fetched.result;
    EXPECT_TRUE(result == 0 || result == 10053 || result == 10054) << result;
    EXPECT_EQ(fetched.calls.size(), result == 0 ? 3u : 1u);
}

// What a whole reply gives, told without reading it piece by piece.
Fetched model(std::string const& reply, int end_code, unsigned int buffer_size) {
    std::vector<std::string> lines;
    std::size_t at = 0;
    do {
        std::size_t const end = reply.find('\n', at);
        std::size_t const left = (end == std::string::npos ? reply.size() : end + 1) - at;
        std::string const line = reply.substr(at, left < 1023 ? left : 1023);
        if (line.empty() || (line.back() != '\n' && line.size() < 1023)) return {end_code, {}};
        lines.push_back(line);
        at += line.size();
        if (lines.size() > 1) continue;
        if (line.rfind("HTTP/1.1 ", 0) != 0) return {-1, {}};
        std::string const digits = line.substr(9) + std::string(3, '\0');
        int const status = (digits[0] - '0') * 100 + (digits[1] - '0') * 10 + (digits[2] - '0');
        if (status != 200) return {-status, {}};
    } while (lines.size() == 1 || lines.back().size() > 2);

    int announced = 0;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        if (lines[i].rfind("Content-Length: ", 0) == 0)
            announced = std::atoi(lines[i].c_str() + 16);
    }
    Calls calls;
    note(nullptr, static_cast<unsigned int>(announced), &calls);
    std::string body = reply.substr(at);
    for (at = 0; body.size() - at >= buffer_size; at += buffer_size)
        note(body.data() + at, buffer_size, &calls);
    if (end_code) return {end_code, calls.lines};
    note(body.data() + at, static_cast<unsigned int>(body.size() - at), &calls);
    note(nullptr, static_cast<unsigned int>(body.size()), &calls);
    return {0, calls.lines};
}

TEST(WebFetch, random_replies_give_what_the_rules_say) {
    test::Random random(2);
    std::string const pieces[] = {"Content-Length: ",
                                  "12",
                                  "7",
                                  "\r\n",
                                  "\n",
                                  "x",
                                  "body",
                                  std::string(1, '\0'),
                                  std::string(1020, 'y'),
                                  "\xFF",
                                  "HTTP/1.1 ",
                                  "20"};
    for (int round = 0; round < 3000; ++round) {
        std::string reply = random.chance(2) ? good : good.substr(0, random.below(17));
        while (!random.chance(10)) reply += pieces[random.below(12)];
        FakeSockets fake;
        fake.end_code = random.chance(2) ? 10054 : 0;
        for (std::size_t at = 0; at < reply.size();) {
            fake.replies.push_back(reply.substr(at, 1 + random.below(40)));
            at += fake.replies.back().size();
        }
        unsigned int const buffer_size = 1 + random.below(30);
        Fetched const expected = model(reply, fake.end_code, buffer_size);
        Fetched const fetched = fetch(80, buffer_size);
        ASSERT_EQ(fetched.result, expected.result) << round << ", seed " << test::seed();
        ASSERT_EQ(fetched.calls, expected.calls) << round << ", seed " << test::seed();
        ASSERT_TRUE(fake.is_balanced());
    }
}

}  // namespace
