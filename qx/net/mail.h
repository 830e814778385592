// mail.h - sends one short text mail through an SMTP server.
//
//     send_smtp_mail("here.example", "a@here.example", "b@there.example", "Greetings",
//                    "\r\nHello.\r\n", "127.0.0.1", 25)  =>  0 if the server took it
//
// Speaks the commands of RFC 821 by itself: HELO, MAIL, RCPT, DATA, QUIT.
#pragma once

#include "qx/base/export.h"

namespace QX {

// Everything in one blocking call, sockets start-up included; nothing is thrown. There is no time
// limit: a silent server holds the caller for as long as the system keeps the connection.
//
// The message is a "Subject: " line and then `body`, as it stands: other headers come from `body`,
// and one without headers begins with an empty line. Lines that begin with a dot are not escaped
// and lone line feeds not mended. `to` is one address. Texts may have any length;
// none may be null.
//
// Result:
//
//     0         the server has taken the mail, or has closed the connection instead of answering
//     positive  the sockets code of what failed: start-up, the name, the connection, a read
//     negative  minus the server's reply code where another was wanted, such as -421; or, where a
//               send failed, minus the code of the reply before it
//
// A reply ends with any read that ends with a line feed, so of a reply of several lines the code
// is the first line's. One over 1,024 bytes counts as a closed connection. Its code is its first
// three characters, taken for digits unseen.
//
// Threads: safe from any. Works with and without a SocketClient.
QX_API int send_smtp_mail(
    char const* helo_domain, char const* from, char const* to, char const* subject,
    char const* body, char const* server, unsigned short port);

}  // namespace QX
