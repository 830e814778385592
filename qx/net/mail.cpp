#include "qx/net/mail.h"

#include <cstring>

#include "qx/net/socket_connection_impl.h"

namespace QX {

namespace {

// The talk with the server. Each step answers false once the talk is over; `result` says why.
class Conversation {
public:
    explicit Conversation(Connection& connection) : connection_(connection) {}

    bool expect(int wanted) {
        if (!read_reply()) return false;
        if (code_ != wanted) result_ = -code_;
        return code_ == wanted;
    }

    bool say(std::initializer_list<char const*> pieces, int wanted) {
        return sent(connection_.send_command(pieces)) && expect(wanted);
    }

    bool say_message(char const* subject, char const* body) {
        return sent(connection_.send_command({"Subject: ", subject, "\r\n"})) &&
               sent(connection_.send(body, std::strlen(body))) && say({"\r\n.\r\n"}, 250);
    }

    int result() const { return result_; }

private:
    // The send's own error is not fetched: the last reply's code stands for it.
    bool sent(bool success) {
        if (!success) result_ = -code_;
        return success;
    }

    bool read_reply() {
        char reply[1024];
        unsigned int size = 0;
        do {
            int const count = connection_.receive(reply + size, sizeof reply - size);
            if (count < 1) {
                result_ = Connection::failure_of(count);
                return false;
            }
            size += static_cast<unsigned int>(count);
        } while (size <= 3 || reply[size - 1] != '\n');
        code_ = three_digits(reply);
        return true;
    }

    Connection& connection_;
    int code_ = 0;  // of the last reply
    int result_ = 0;
};

}  // namespace

int send_smtp_mail(
    char const* helo_domain, char const* from, char const* to, char const* subject,
    char const* body, char const* server, unsigned short port) {
    Connection connection;
    int code = 0;
    if (!connection.open(server, port, code)) return code;

    Conversation talk(connection);
    static_cast<void>(
        talk.expect(220) && talk.say({"HELO ", helo_domain, "\r\n"}, 250) &&
        talk.say({"MAIL FROM:<", from, ">\r\n"}, 250) &&
        talk.say({"RCPT TO:<", to, ">\r\n"}, 250) && talk.say({"DATA\r\n"}, 354) &&
        talk.say_message(subject, body) && talk.say({"QUIT\r\n"}, 221));
    return talk.result();
}

}  // namespace QX
