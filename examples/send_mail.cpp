// send_mail.cpp - sends a text file as one mail.
//
//   send_mail SERVER PORT FROM TO SUBJECT FILE
//
// Exit codes: 0 good, 1 failed, 2 wrong arguments. Without arguments it tells how to call it.
#include "qx/files/file_streams.h"
#include "qx/net/mail.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The file as the server wants it: every line end is "\r\n", and a leading dot is doubled.
std::string body_of(QX::FileIn& file) {
    std::string text(file.size(), ' ');
    text.resize(file.read(text.data(), file.size()));
    std::string body = "\r\n";  // ends the headers
    bool at_start = true;
    for (char c : text) {
        if (c == '\r') continue;
        if (c == '.' && at_start) body += '.';
        if (c == '\n') body += '\r';
        body += c;
        at_start = c == '\n';
    }
    return body;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 7) {
        std::printf("usage: send_mail SERVER PORT FROM TO SUBJECT FILE\n");
        return argc == 1 ? 0 : 2;
    }
    QX::FileIn file;
    if (!file.open(argv[6], false)) {
        std::fprintf(stderr, "send_mail: %s cannot be read\n", argv[6]);
        return 1;
    }
    std::string const body = body_of(file);
    int const result = QX::send_smtp_mail(
        "localhost", argv[3], argv[4], argv[5], body.c_str(), argv[1],
        static_cast<unsigned short>(std::atoi(argv[2])));
    if (result > 0) std::fprintf(stderr, "send_mail: sockets error %d\n", result);
    if (result < 0) std::fprintf(stderr, "send_mail: the server answered %d\n", -result);
    if (result == 0)
        std::printf("send_mail: %u bytes sent\n", static_cast<unsigned int>(body.size()));
    return result == 0 ? 0 : 1;
}
