// web_fetch.h - fetches one resource over plain HTTP/1.1, handing it on piece by piece.
//
//     char buffer[4096];
//     get_http_page(buffer, sizeof buffer, "127.0.0.1", 80, "/index.html", note, &page)
//         => 0, and `note` was called with
//                (null, 9000)     the size that the server announced
//                (buffer, 4096)   the body, a buffer at a time
//                (buffer, 4096)
//                (buffer, 808)
//                (null, 9000)     the size that came
#pragma once

#include "qx/base/export.h"

namespace QX {

// Everything in one blocking call, sockets start-up included; nothing is thrown. There is no time
// limit: a silent server holds the caller for as long as the system keeps the connection.
//
// The body is read until the server closes, whatever it announced, and nothing asks it to close.
// Chunks are not decoded and redirections not followed. The announced size is 0 if there is no
// "Content-Length: " line, written just so; of several the last counts.
//
// `callback` runs on the calling thread; its result is not looked at. It is called only behind a
// status of 200, always with the announced size first. Each piece but the last fills the buffer,
// and the last may have size 0. The closing call with the size that came is left out after a
// failed read. Arguments may have any length.
//
// Nothing may be null but `user`, which is handed on as it is: a null callback faults once
// the headers have come, a null host or path before that. A `buffer_size` of 0 ends the body
// at once, with a piece of size 0.
//
// Result:
//
//     0         the body has come; or a send failed, or the server closed within the headers, in
//               which cases `callback` was not called
//     positive  the sockets code of what failed: start-up, the name, the connection, a read
//     negative  minus a status other than 200, such as -404; -1 for what is not HTTP/1.1
//
// Header lines are taken 1,023 characters at a time: what is left of a longer one counts as the
// next line. The first line of two characters or fewer, its end included, ends the headers. The
// status is three characters taken for digits unseen.
//
// Threads: safe from any. Works with and without a SocketClient.
QX_API int get_http_page(
    char* buffer, unsigned int buffer_size, char const* host, unsigned short port, char const* path,
    bool (*callback)(char* data, unsigned int size, void* user), void* user);

}  // namespace QX
