// socket_errors.h - what a failed sockets call means, in words, by the call that failed.
//
// One code means different things in different calls, so the reason hangs on both:
//
//     reason(SocketOperation::connect, 10035)
//         => "The socket is marked as nonblocking and the connection cannot be completed ..."
//     reason(SocketOperation::bind, 10035)        => "Undocumented error - ..."  (in general terms)
//     reason(SocketOperation::bind, 10057)        => "The socket is not connected."
//     reason(SocketOperation::bind, 10000)        => "Undocumented error."
//
// Constant tables: safe from any thread.
#pragma once

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// The call that failed. Other numbers are allowed: they have no prefix and no texts of their own.
enum class SocketOperation : int {
    gethostbyname,
    recv,
    connect,
    send,
    bind,
    listen,
    accept,
    setsockopt,
};

namespace socket_errors {

// "Socket recv failure: " and so on; "" for other numbers.
QX_API char const* prefix(SocketOperation operation);

// Why it failed. `code` is a sockets error code, such as 10061.
QX_API char const* reason(SocketOperation operation, int code);

// The whole text: prefix and reason. This is what the sockets throw.
QX_API String text(SocketOperation operation, int code);

}  // namespace socket_errors

}  // namespace QX
