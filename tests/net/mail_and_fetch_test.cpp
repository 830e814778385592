// Mail and web fetch: against stand-ins for every call that they make, and mail against a real
// server, too.
#include "qx/net/mail.h"
#include "qx/net/web_fetch.h"

#include <gtest/gtest.h>

#include "tests/harness/guarded.h"
#include "tests/harness/random.h"
#include "tests/harness/stand_in.h"
#include "tests/net/server.h"

#include <deque>

namespace {

// One at a time. Every call succeeds but where told otherwise.
struct Fake {
    std::string failing;              // the step that fails
    int failing_send = -1;            // counted from 0
    std::deque<std::string> replies;  // each recv gives what fits of the first
    int end_code = 0;                 // behind them: 0 for a closed peer, else the failure

    std::vector<std::string> sent;
    std::string all_sent;
    std::string steps;
    int last_code = 0;
    static inline Fake* fake;

    Fake() { fake = this; }

    int step(std::string const& name, bool expected = true) {
        EXPECT_TRUE(expected) << name;
        steps += name + ' ';
        return last_code = failing == name ? 10050 : 0;
    }
    bool is_whole() const { return steps == "startup host socket connect close cleanup "; }

    static int WINAPI startup(WORD version, WSADATA*) {
        return fake->step("startup", version == 0x0101);
    }
    static int WINAPI cleanup() { return fake->step("cleanup"); }
    static int WINAPI last_error() { return fake->last_code; }
    static hostent* WINAPI host(char const*) {
        return fake->step("host") ? nullptr : gethostbyname("127.0.0.1");
    }
    static SOCKET WINAPI make(int, int, int) { return fake->step("socket") ? INVALID_SOCKET : 77; }
    static int WINAPI connect(SOCKET, sockaddr const* address, int size) {
        sockaddr_in const expected = {2, htons(0x1234), {{{127, 0, 0, 1}}}, {}};
        return -(fake->step("connect", std::memcmp(address, &expected, 8) == 0 && size == 16) != 0);
    }
    static int WINAPI send(SOCKET, char const* data, int size, int) {
        bool const fails = fake->failing_send == static_cast<int>(fake->sent.size());
        fake->sent.emplace_back(data, static_cast<std::size_t>(size));
        fake->all_sent += fake->sent.back();
        return fails ? SOCKET_ERROR : size;
    }
    static int WINAPI recv(SOCKET, char* data, int size, int) {
        fake->last_code = fake->end_code;
        if (fake->replies.empty()) return fake->end_code ? SOCKET_ERROR : 0;
        std::string& reply = fake->replies.front();
        auto const count = reply.copy(data, static_cast<std::size_t>(size));
        reply.erase(0, count);
        if (reply.empty()) fake->replies.pop_front();
        return static_cast<int>(count);
    }
    static int WINAPI close(SOCKET socket) {
        fake->step("close", socket == 77);
        return fake->last_code = 10038;  // what was fetched too late
    }

    test::StandIn stand_ins[9] = {
        {"WSAStartup", startup}, {"WSACleanup", cleanup}, {"WSAGetLastError", last_error},
        {"gethostbyname", host}, {"socket", make},        {"connect", connect},
        {"send", send},          {"recv", recv},          {"closesocket", close}};
};

int send_mail(unsigned short port = 0x1234, char const* server = "127.0.0.1") {
    return QX::send_smtp_mail("me", "a@me", "b@you", "News", "\r\nBody\n.dot\r\n", server, port);
}

using Fetched = std::pair<int, std::string>;  // the result, and all calls as `note` tells them

// "12 in all, " or "5: hello, ".
bool note(char* data, unsigned int size, void* calls) {
    std::string const what = data ? ": " + std::string(data, size) : " in all";
    *static_cast<std::string*>(calls) += std::to_string(size) + what + ", ";
    return false;
}

Fetched fetch(unsigned int buffer_size = 4096) {
    test::Guarded const buffer(buffer_size);
    std::string calls;
    int const result =
        QX::get_http_page(buffer.data(), buffer_size, "127.0.0.1", 0x1234, "/page", note, &calls);
    return {result, calls};
}

// --- Both ----------------------------------------------------------------------------------------

TEST(MailAndFetch, an_opening_that_fails_gives_its_code_and_ends_what_was_begun) {
    for (auto const& [failing, expected] :
         {std::pair("startup", "startup "),
          {"host", "startup host cleanup "},
          {"socket", "startup host socket cleanup "},
          {"connect", "startup host socket connect close cleanup "}}) {
        for (bool mail : {false, true}) {
            Fake fake;
            fake.failing = failing;
            EXPECT_EQ(mail ? send_mail() : fetch().first, 10050);
            EXPECT_EQ(fake.steps + fake.all_sent, expected);
        }
    }
}

std::deque<std::string> const willing = {"220 hi\r\n", "250 ok\r\n", "250 ok\r\n", "250 ok\r\n",
                                         "354 go\r\n", "250 ok\r\n", "221 by\r\n"};

// The command buffer holds 1,024 bytes. Each argument ends at a page that may not be touched.
TEST(Mail, sends_arguments_of_every_length_whole) {
    for (std::size_t length : {0, 1011, 1012, 1023, 1024, 100000}) {
        std::string const text(length, 'x');
        test::Guarded const argument(text.c_str(), length + 1);
        char const* const x = argument.data();
        Fake mail;
        mail.replies = willing;
        EXPECT_EQ(QX::send_smtp_mail(x, x, x, x, x, "host", 0x1234), 0);
        EXPECT_EQ(
            mail.all_sent, "HELO " + text + "\r\nMAIL FROM:<" + text + ">\r\nRCPT TO:<" + text +
                               ">\r\nDATA\r\nSubject: " + text + "\r\n" + text +
                               "\r\n.\r\nQUIT\r\n");
    }
}

// --- Mail ----------------------------------------------------------------------------------------

TEST(Mail, speaks_the_whole_talk_in_single_sends) {
    std::vector<std::string> const talk = {
        "HELO me\r\n",       "MAIL FROM:<a@me>\r\n", "RCPT TO:<b@you>\r\n", "DATA\r\n",
        "Subject: News\r\n", "\r\nBody\n.dot\r\n",   "\r\n.\r\n",           "QUIT\r\n"};
    test::Server::Script script = {{"", willing[0]}};
    for (int heard : {0, 1, 2, 3, 6, 7}) script.emplace_back(talk[heard], willing[script.size()]);
    test::Server server(script);
    // A name where the machine knows one for itself.
    bool const named = gethostbyname("localhost") != nullptr;
    EXPECT_EQ(send_mail(server.port, named ? "localhost" : "127.0.0.1"), 0);
    std::string const heard = server.heard();
    Fake fake;
    fake.replies = willing;
    EXPECT_TRUE(send_mail() == 0 && fake.is_whole());
    EXPECT_EQ(fake.sent, talk);
    EXPECT_EQ(fake.all_sent, heard);
}

TEST(Mail, a_wrong_reply_a_closed_peer_and_a_failed_read_end_the_talk_at_every_step) {
    constexpr std::size_t sends_before[] = {0, 1, 2, 3, 4, 7, 8};
    for (std::size_t step = 0; step < willing.size(); ++step) {
        for (auto const& [reply, end_code, result] :
             {std::tuple("421 no\r\n", 0, -421), {"2", 0, 0}, {"25\n", 10060, 10060}}) {
            Fake fake;
            fake.replies.assign(willing.begin(), willing.begin() + static_cast<int>(step));
            fake.replies.emplace_back(reply);
            fake.end_code = end_code;
            EXPECT_EQ(send_mail(), result) << step;
            EXPECT_TRUE(fake.sent.size() == sends_before[step] && fake.is_whole());
        }
    }
}

TEST(MailAndFetch, a_failed_send_is_told_as_a_refusal_of_the_step_before_or_as_success) {
    constexpr int results[] = {-220, -250, -250, -250, -354, -354, -354, -250};
    for (int failing = 0; failing < 8 + 3; ++failing) {
        bool const mail = failing < 8;
        Fake fake;
        fake.replies = willing;
        fake.failing_send = mail ? failing : failing - 8;
        EXPECT_EQ(mail ? send_mail() : fetch().first, mail ? results[failing] : 0);
        EXPECT_TRUE(std::ssize(fake.sent) == fake.failing_send + 1 && fake.is_whole());
    }
}

TEST(Mail, reads_replies_by_their_first_three_characters_and_a_line_feed_at_the_end) {
    std::string const long_line = "220 " + std::string(1019, 'x');
    std::pair<std::deque<std::string>, int> const rows[] = {
        {{"2", "2", "0", " hi", "\r", "\n", "999\n"}, -999},
        {{"220-one\r\n220 two\r\n", "500\r\n"}, -500},
        {{"220-one\r\n", "220 two\r\n"}, -220},  // the second line answers HELO
        {{"22\n", "0\n"}, -182},
        {{" 20\r\n"}, 1580},
        {{long_line + "\n", "500\r\n"}, -500},  // 1,024 bytes
        {{long_line + "x\n", "500\r\n"}, 0},    // the buffer is full: nothing more is read
    };
    for (auto const& [replies, result] : rows) {
        Fake fake;
        fake.replies = replies;
        EXPECT_EQ(send_mail(), result) << replies[0];
    }
}

// --- Web fetch -----------------------------------------------------------------------------------

std::string const good = "HTTP/1.1 200 OK\r\n";
std::string const request = "GET /page HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";

TEST(WebFetch, hands_the_body_on_a_buffer_at_a_time_between_two_announcements) {
    Fake fake;
    fake.replies = {good + "Content-Length: -2\r\n\r\n1\r\nchunk"};
    EXPECT_EQ(fetch(5), Fetched(0, "4294967294 in all, 5: 1\r\nch, 3: unk, 8 in all, "));
    fake.replies = {good + "\r\nhello"};
    EXPECT_EQ(fetch(0), Fetched(0, "0 in all, 0: , 0 in all, "));
}

// What a whole reply gives, told without reading it piece by piece.
Fetched model(std::string const& reply, int end_code, unsigned int buffer_size) {
    std::size_t at = 0;
    int announced = 0;
    for (bool first = true;; first = false) {
        std::size_t const end = std::min(reply.find('\n', at), reply.size());
        std::string line = reply.substr(at, end + 1 - at).substr(0, 1023);
        if (line.empty() || (line.back() != '\n' && line.size() < 1023)) return {end_code, ""};
        at += line.size();
        if (first && !line.starts_with("HTTP/1.1 ")) return {-1, ""};
        line.resize(line.size() + 3);
        int const status = (line[9] - '0') * 100 + (line[10] - '0') * 10 + (line[11] - '0');
        if (first && status != 200) return {-status, ""};
        if (line.starts_with("Content-Length: ")) announced = std::atoi(line.c_str() + 16);
        if (!first && line.size() <= 2 + 3) break;
    }
    Fetched fetched = {end_code, ""};
    note(nullptr, static_cast<unsigned int>(announced), &fetched.second);
    std::string body = reply.substr(at);
    for (; body.size() >= buffer_size; body.erase(0, buffer_size))
        note(body.data(), buffer_size, &fetched.second);
    if (end_code) return fetched;
    note(body.data(), static_cast<unsigned int>(body.size()), &fetched.second);
    note(nullptr, static_cast<unsigned int>(reply.size() - at), &fetched.second);
    return fetched;
}

TEST(WebFetch, reads_random_replies_by_the_length_of_lines_and_the_last_announced_size) {
    test::Random random(2);
    std::string const pieces[] = {
        "Content-Length: ",     "12",   "\r\n",      "\n",
        std::string(1020, 'y'), "\xFF", "HTTP/1.1 ", std::string(1, '\0')};
    for (int round = 0; round < 3000; ++round) {
        std::string reply = random.chance(2) ? good : good.substr(0, random.below(17));
        while (!random.chance(10)) reply += pieces[random.below(8)];
        Fake fake;
        fake.end_code = random.chance(2) ? 10054 : 0;
        for (std::size_t at = 0; at < reply.size(); at += fake.replies.back().size())
            fake.replies.push_back(reply.substr(at, 1 + random.below(40)));
        unsigned int const buffer_size = 1 + random.below(30);
        ASSERT_EQ(fetch(buffer_size), model(reply, fake.end_code, buffer_size))
            << round << ", seed " << test::seed();
        ASSERT_TRUE(fake.all_sent == request && fake.is_whole());
    }
}

}  // namespace
