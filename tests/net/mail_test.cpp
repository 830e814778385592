#include "qx/net/mail.h"

#include <gtest/gtest.h>

#include <winsock2.h>

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
using Replies = std::deque<std::string>;

Replies const willing = {"220 hi\r\n", "250 ok\r\n", "250 ok\r\n", "250 ok\r\n",
                         "354 go\r\n", "250 ok\r\n", "221 by\r\n"};

std::vector<std::string> const whole_talk = {
    "HELO me\r\n",       "MAIL FROM:<a@me>\r\n", "RCPT TO:<b@you>\r\n", "DATA\r\n",
    "Subject: News\r\n", "\r\nBody\n.dot\r\n",   "\r\n.\r\n",           "QUIT\r\n"};

int send_mail(unsigned short port, char const* server = "127.0.0.1") {
    return QX::send_smtp_mail("me", "a@me", "b@you", "News", "\r\nBody\n.dot\r\n", server, port);
}

TEST(Mail, speaks_the_whole_talk_in_single_sends) {
    FakeSockets fake;
    ASSERT_TRUE(fake.found());
    fake.replies = willing;
    EXPECT_EQ(send_mail(0x1234), 0);
    EXPECT_EQ(fake.sent, whole_talk);
    EXPECT_EQ(fake.port, 0x1234);
    EXPECT_TRUE(fake.is_balanced());
}

TEST(Mail, an_opening_that_fails_gives_its_code_and_ends_what_was_begun) {
    struct Row {
        int FakeSockets::*step;
        int code;
    };
    constexpr Row rows[] = {
        {&FakeSockets::startup_code, 10091},
        {&FakeSockets::host_code, 11001},
        {&FakeSockets::socket_code, 10024},
        {&FakeSockets::connect_code, 10061},
    };
    for (Row const& row : rows) {
        FakeSockets fake;
        fake.*row.step = row.code;
        fake.replies = willing;
        EXPECT_EQ(send_mail(25), row.code);
        EXPECT_TRUE(fake.sent.empty());
        EXPECT_TRUE(fake.is_balanced()) << row.code;
    }
}

TEST(Mail, a_wrong_reply_a_closed_peer_and_a_failed_read_end_the_talk_at_every_step) {
    constexpr std::size_t sends_before[] = {0, 1, 2, 3, 4, 7, 8};
    struct Row {
        char const* reply;
        int end_code;
        int result;
    };
    constexpr Row rows[] = {
        {"421 no\r\n", 0, -421}, {nullptr, 0, 0}, {nullptr, 10054, 10054}, {"25", 10060, 10060}};
    for (std::size_t step = 0; step < willing.size(); ++step) {
        for (Row const& row : rows) {
            FakeSockets fake;
            fake.replies.assign(willing.begin(), willing.begin() + static_cast<int>(step));
            if (row.reply) fake.replies.emplace_back(row.reply);
            fake.end_code = row.end_code;
            EXPECT_EQ(send_mail(25), row.result) << step;
            EXPECT_EQ(fake.sent.size(), sends_before[step]);
            EXPECT_TRUE(fake.is_balanced());
        }
    }
}

TEST(Mail, a_failed_send_is_told_as_a_refusal_of_the_step_before) {
    constexpr int results[] = {-220, -250, -250, -250, -354, -354, -354, -250};
    for (int failing = 0; failing < 8; ++failing) {
        FakeSockets fake;
        fake.replies = willing;
        fake.failing_send = failing;
        EXPECT_EQ(send_mail(25), results[failing]);
        EXPECT_EQ(fake.sent.size(), static_cast<std::size_t>(failing) + 1);
        EXPECT_TRUE(fake.is_balanced());
    }
}

// `result` is that of the talk, `sends` how far it came.
TEST(Mail, reads_replies_by_their_first_three_characters_and_a_line_feed_at_the_end) {
    struct Row {
        Replies replies;
        int result;
        std::size_t sends;
    };
    std::string const long_line = "220 " + std::string(1019, 'x');
    Row const rows[] = {
        {{"2", "2", "0", " hi", "\r", "\n", "999\n"}, -999, 1},
        {{"220\n", "251\n"}, -251, 1},
        {{"220-one\r\n220 two\r\n", "500\r\n"}, -500, 1},
        {{"220-one\r\n", "220 two\r\n"}, -220, 1},  // the second line answers HELO
        {{"220-a\r\nb", "c\r\n", "500\r\n"}, -500, 1},
        {{"22\n", "0\n"}, -182, 0},
        {{"abc\r\n"}, -5451, 0},
        {{" 20\r\n"}, 1580, 0},
        {{"000\r\n"}, 0, 0},
        {{long_line + "\n", "500\r\n"}, -500, 1},  // 1,024 bytes
        {{long_line + "x\n", "500\r\n"}, 0, 0},    // the buffer is full: nothing more is read
    };
    for (Row const& row : rows) {
        FakeSockets fake;
        fake.replies = row.replies;
        EXPECT_EQ(send_mail(25), row.result) << row.replies[0];
        EXPECT_EQ(fake.sent.size(), row.sends) << row.replies[0];
    }
}

// The command buffer holds 1,024 bytes. Each argument ends at a page that may not be touched.
TEST(Mail, sends_arguments_of_every_length_whole) {
    std::vector<std::size_t> lengths = {0, 2000, 2048, 100000};
    for (std::size_t length = 1000; length < 1030; ++length) lengths.push_back(length);
    for (std::size_t length : lengths) {
        std::string const text(length, 'x');
        test::Guarded const argument(text.c_str(), length + 1);
        char const* const x = argument.data();
        FakeSockets fake;
        fake.replies = willing;
        EXPECT_EQ(QX::send_smtp_mail(x, x, x, x, x, "host", 25), 0);
        EXPECT_EQ(
            fake.all_sent(), "HELO " + text + "\r\nMAIL FROM:<" + text + ">\r\nRCPT TO:<" + text +
                                 ">\r\nDATA\r\nSubject: " + text + "\r\n" + text +
                                 "\r\n.\r\nQUIT\r\n");
        bool const fits = length + sizeof "MAIL FROM:<>\r\n" <= 1024;
        EXPECT_TRUE(!fits || fake.sent.size() == 8) << length;
    }
}

TEST(Mail, arrives_at_a_server_that_answers_byte_by_byte) {
    ScriptedServer server({
        {ServerStep::say_bytewise, "220 hi\r\n"},
        {ServerStep::hear, "HELO me\r\n"},
        {ServerStep::say_bytewise, "250 ok\r\n"},
        {ServerStep::hear, "<a@me>\r\n"},
        {ServerStep::say_bytewise, "250 ok\r\n"},
        {ServerStep::hear, "<b@you>\r\n"},
        {ServerStep::say_bytewise, "250 ok\r\n"},
        {ServerStep::hear, "DATA\r\n"},
        {ServerStep::say_bytewise, "354 go\r\n"},
        {ServerStep::hear, "\r\n.\r\n"},
        {ServerStep::say_bytewise, "250 ok\r\n"},
        {ServerStep::hear, "QUIT\r\n"},
        {ServerStep::say_bytewise, "221 by\r\n"},
    });
    EXPECT_EQ(send_mail(server.port(), "localhost"), 0);
    std::string talk;
    for (std::string const& each : whole_talk) talk += each;
    EXPECT_EQ(server.heard(), talk);
}

// What a broken connection gives is the system's to say: nothing, or one of two codes.
TEST(Mail, ends_when_the_server_closes_or_breaks_off) {
    ScriptedServer closing({{ServerStep::say, "220 in mid-li"}});
    EXPECT_EQ(send_mail(closing.port()), 0);
    EXPECT_EQ(closing.heard(), "");

    ScriptedServer breaking(
        {{ServerStep::say, "220 hi\r\n"},
         {ServerStep::hear, "\r\n"},
         {ServerStep::pause, ""},
         {ServerStep::reset, ""}});
    int const result = send_mail(breaking.port());
    EXPECT_TRUE(result == 0 || result == 10053 || result == 10054) << result;
}

TEST(Mail, tells_of_hosts_and_ports_that_are_not_there) {
    EXPECT_EQ(send_mail(25, "no-such-host.invalid"), 11001);
    unsigned short unused = 0;
    closesocket(test::listen_on_loopback(unused));
    EXPECT_EQ(send_mail(unused), 10061);
}

// Random replies in random pieces, against the rules told plainly.
TEST(Mail, random_replies_give_what_the_rules_say) {
    test::Random random(1);
    char const* const pieces[] = {"220 ", "250 ", "250-", "354 ",  "221 ",
                                  "\r\n", "\n",   "x",    "\0\xFF"};
    constexpr int wanted[] = {220, 250, 250, 250, 354, 250, 221};
    for (int round = 0; round < 3000; ++round) {
        FakeSockets fake;
        fake.end_code = random.chance(2) ? 10054 : 0;
        int expected = fake.end_code;
        std::string open;  // the reply being built
        std::size_t step = 0;
        bool over = false;
        while (!over && !random.chance(30)) {
            std::string piece = step < 7 && random.chance(2) ? willing[step] : std::string();
            while (piece.empty() || random.chance(3)) piece += pieces[random.below(9)];
            fake.replies.push_back(piece);
            open += piece;
            if (open.size() < 4 || open.back() != '\n') continue;
            int const code = (open[0] - '0') * 100 + (open[1] - '0') * 10 + (open[2] - '0');
            open.clear();
            over = code != wanted[step] || ++step == 7;
            if (over) expected = code == wanted[6] && step == 7 ? 0 : -code;
        }
        ASSERT_EQ(send_mail(25), expected) << "round " << round << ", seed " << test::seed();
        ASSERT_TRUE(fake.is_balanced());
    }
}

}  // namespace
