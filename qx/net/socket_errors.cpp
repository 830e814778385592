#include "qx/net/socket_errors.h"

namespace QX::socket_errors {

namespace {

using enum SocketOperation;

constexpr auto others = static_cast<SocketOperation>(-1);

struct Row {
    int code;
    SocketOperation operation;
    char const* reason;
};

// The first row that fits counts: within a code `others` comes last, and takes what has no row.
// clang-format off
constexpr Row rows[] = {
    {10004, others,
     "The blocking Windows Socket 1.1 call was canceled through WSACancelBlockingCall."},

    {10013, connect,
     "Attempt to connect datagram socket to broadcast address failed because setsockopt option "
     "SO_BROADCAST is not enabled."},
    {10013, bind,
     "Attempt to connect datagram socket to broadcast address failed because setsockopt option "
     "SO_BROADCAST is not enabled."},
    {10013, send,
     "The requested address is a broadcast address, but the appropriate flag was not set. Call "
     "setsockopt with the SO_BROADCAST socket option to enable use of the broadcast address."},
    {10013, others,
     "Undocumented error - An attempt was made to access a socket in a way forbidden by its "
     "access permissions. An example is using a broadcast address for sendto without broadcast "
     "permission being set using setsockopt with SO_BROADCAST."},

    {10014, gethostbyname,
     "The name parameter is not a valid part of the user address space."},
    {10014, recv,
     "The buf parameter is not completely contained in a valid part of the user address space."},
    {10014, send,
     "The buf parameter is not completely contained in a valid part of the user address space."},
    {10014, connect,
     "The name or the namelen parameter is not a valid part of the user address space, the "
     "namelen parameter is too small, or the name parameter contains an incorrect address format "
     "for the associated address family."},
    {10014, bind,
     "The name or the namelen parameter is not a valid part of the user address space, the "
     "namelen parameter is too small, the name parameter contains an incorrect address format "
     "for the associated address family, or the first two bytes of the memory block specified by "
     "name do not match the address family associated with the socket."},
    {10014, accept,
     "The addrlen parameter is too small or addr is not a valid part of the user address space."},
    {10014, others,
     "Undocumented error - The system detected an invalid pointer address in attempting to use a "
     "pointer argument of a call. This error occurs if an application passes an invalid pointer "
     "value, or if the length of the buffer is too small, for instance if the length of an "
     "argument that is a sockaddr structure is smaller than sizeof(sockaddr)."},

    {10022, recv,
     "The socket has not been bound with bind, or an unknown flag was specified, or MSG_OOB was "
     "specified for a socket with SO_OOBINLINE enabled, or (for byte stream sockets only) len was "
     "zero or negative."},
    {10022, connect,
     "The parameter s is a listening socket."},
    {10022, send,
     "The socket has not been bound with bind, or an unknown flag was specified, or MSG_OOB was "
     "specified for a socket with SO_OOBINLINE enabled."},
    {10022, bind,
     "The socket is already bound to an address."},
    {10022, listen,
     "The socket has not been bound with bind."},
    {10022, accept,
     "The listen function was not invoked prior to accept."},
    {10022, others,
     "Undocumented error - Some invalid argument was supplied (for example, specifying an invalid "
     "level to the setsockopt function). In some instances it also refers to the current state of "
     "the socket, for instance calling accept on a socket that is not listening."},

    {10024, listen,
     "No more socket descriptors are available."},
    {10024, accept,
     "The queue is nonempty upon entry to accept and there are no descriptors available."},
    {10024, others,
     "Undocumented error - Too many open sockets. Each implementation may have a maximum number "
     "of socket handles available, either globally, per process, or per thread."},

    {10035, recv,
     "The socket is marked as nonblocking and the receive operation would block."},
    {10035, connect,
     "The socket is marked as nonblocking and the connection cannot be completed immediately."},
    {10035, send,
     "The socket is marked as nonblocking and the requested operation would block."},
    {10035, accept,
     "The socket is marked as nonblocking and no connections are present to be accepted."},
    {10035, others,
     "Undocumented error - This error is returned from operations on nonblocking sockets that "
     "cannot be completed immediately, for example recv when no data is queued to be read from "
     "the socket. It is a nonfatal error, and the operation should be retried later. It is normal "
     "for it to be reported as the result from calling connect on a nonblocking stream socket, "
     "since some time must elapse for the connection to be established."},

    {10036, others,
     "A blocking Windows Sockets 1.1 call is in progress, or the service provider is still "
     "processing a callback function."},
    {10037, others,
     "A nonblocking connect call is in progress on the specified socket. "},
    {10038, others,
     "The descriptor is not a socket."},

    {10040, recv,
     "The message was too large to fit into the specified buffer and was truncated."},
    {10040, send,
     "The socket is message oriented, and the message is larger than the maximum supported by the "
     "underlying transport."},
    {10040, others,
     "Undocumented error - A message sent on a datagram socket was larger than the internal "
     "message buffer or some other network limit, or the buffer used to receive a datagram was "
     "smaller than the datagram itself."},

    {10042, others,
     "The option is unknown or unsupported for the specified provider or socket."},

    {10045, recv,
     "MSG_OOB was specified, but the socket is not stream-style such as type SOCK_STREAM, "
     "out-of-band data is not supported in the communication domain associated with this socket, "
     "or the socket is unidirectional and supports only send operations."},
    {10045, send,
     "MSG_OOB was specified, but the socket is not stream-style such as type SOCK_STREAM, "
     "out-of-band data is not supported in the communication domain associated with this socket, "
     "or the socket is unidirectional and supports only receive operations."},
    {10045, listen,
     "The referenced socket is not of a type that supports the listen operation."},
    {10045, accept,
     "The referenced socket is not a type that supports connection-oriented service."},
    {10045, others,
     "Undocumented error - The attempted operation is not supported for the type of object "
     "referenced. Usually this occurs when a socket descriptor refers to a socket that cannot "
     "support this operation, for example trying to accept a connection on a datagram socket."},

    {10047, others,
     "Addresses in the specified family cannot be used with this socket."},

    {10048, connect,
     "The socket's local address is already in use and the socket was not marked to allow address "
     "reuse with SO_REUSEADDR. This usually occurs when executing bind, but could be delayed "
     "until this function if the bind was to a partially wildcard address (involving ADDR_ANY) "
     "and a specific address needs to be committed at the time of this function."},
    {10048, listen,
     "The socket's local address is already in use and the socket was not marked to allow address "
     "reuse with SO_REUSEADDR. This usually occurs when executing bind, but could be delayed "
     "until this function if the bind was to a partially wildcard address (involving ADDR_ANY) "
     "and a specific address needs to be committed at the time of this function."},
    {10048, bind,
     "A process on the computer is already bound to the same fully qualified address and the "
     "socket has not been marked to allow address reuse with SO_REUSEADDR."},
    {10048, others,
     "Undocumented error - Typically, only one usage of each socket address (protocol, IP address "
     "and port) is permitted. This error occurs if an application attempts to bind a socket to an "
     "address that has already been used for an existing socket, or a socket that was not closed "
     "properly, or one that is still in the process of closing."},

    {10049, connect,
     "The remote address is not a valid address (such as ADDR_ANY)."},
    {10049, bind,
     "The specified address is not a valid address for this computer."},
    {10049, others,
     "Undocumented error - The requested address is not valid in its context. This normally "
     "results from an attempt to bind to an address that is not valid for the local computer, or "
     "from a remote address or port that is not valid for a remote computer (for example, address "
     "or port 0)."},

    {10050, others,
     "The network subsystem has failed."},
    {10051, others,
     "The network cannot be reached from this host at this time."},
    {10052, others,
     "The connection has been broken due to the keep-alive activity detecting a failure while the "
     "operation was in progress."},
    {10053, others,
     "The virtual circuit was terminated due to a time-out or other failure. The application "
     "should close the socket as it is no longer usable."},

    {10054, recv,
     "The virtual circuit was reset by the remote side executing a hard or abortive close. The "
     "application should close the socket as it is no longer usable. On a datagram socket this "
     "error indicates that a previous send operation resulted in an ICMP Port Unreachable "
     "message."},
    {10054, send,
     "The virtual circuit was reset by the remote side executing a hard or abortive close. For "
     "datagram sockets, the remote host was unable to deliver a previously sent datagram and "
     "responded with an ICMP Port Unreachable message. The application should close the socket as "
     "it is no longer usable."},
    {10054, accept,
     "An incoming connection was indicated, but was subsequently terminated by the remote peer "
     "prior to accepting the call."},
    {10054, others,
     "Undocumented error - An existing connection was forcibly closed by the remote host. This "
     "normally results if the peer application on the remote host is suddenly stopped, the host "
     "is rebooted, or the remote host uses a hard close (see setsockopt for more information on "
     "the SO_LINGER option on the remote socket)."},

    {10055, connect,
     "No buffer space is available. The socket cannot be connected."},
    {10055, bind,
     "Not enough buffers available, too many connections."},
    {10055, send,
     "No buffer space is available."},
    {10055, listen,
     "No buffer space is available."},
    {10055, accept,
     "No buffer space is available."},
    {10055, others,
     "Undocumented error - An operation on a socket could not be performed because the system "
     "lacked sufficient buffer space or because a queue was full."},

    {10056, others,
     "The socket is already connected (connection-oriented sockets only)."},
    {10057, others,
     "The socket is not connected."},

    {10058, recv,
     "The socket has been shut down; it is not possible to receive on a socket after shutdown has "
     "been invoked with how set to SD_RECEIVE or SD_BOTH."},
    {10058, send,
     "The socket has been shut down; it is not possible to send on a socket after shutdown has "
     "been invoked with how set to SD_SEND or SD_BOTH."},
    {10058, others,
     "Undocumented error - A request to send or receive data was disallowed because the socket "
     "had already been shut down in that direction with a previous shutdown call. By calling "
     "shutdown a partial close of a socket is requested, which is a signal that sending or "
     "receiving, or both, have been discontinued."},

    {10060, recv,
     "The connection has been dropped because of a network failure or because the peer system "
     "failed to respond."},
    {10060, connect,
     "Attempt to connect timed out without establishing a connection."},
    {10060, send,
     "The connection has been dropped, because of a network failure or because the system on the "
     "other end went down without notice."},
    {10060, others,
     "Undocumented error - A connection attempt failed because the connected party did not "
     "properly respond after a period of time, or the established connection failed because the "
     "connected host has failed to respond."},

    {10061, others,
     "The attempt to connect was forcefully rejected."},

    {10065, connect,
     "A socket operation was attempted to an unreachable host."},
    {10065, send,
     "The remote host cannot be reached from this host at this time."},
    {10065, others,
     "Undocumented error - A socket operation failed because the destination host is down or "
     "cannot be reached. Networking activity on the local host has not been initiated."},

    {10093, others,
     "A successful WSAStartup call must occur before using this function."},
    {11001, others,
     "Authoritative answer host not found."},
    {11002, others,
     "Nonauthoritative host not found, or server failure."},
    {11003, others,
     "A nonrecoverable error occurred."},
    {11004, others,
     "Valid name, no data record of requested type."},
};

constexpr char const* prefixes[] = {
    "Socket gethostbyname failure: ",
    "Socket recv failure: ",
    "Socket connect failure: ",
    "Socket send failure: ",
    "Socket bind failure: ",
    "Socket listen failure: ",
    "Socket accept failure: ",
    "Socket setsockopt failure: ",
};
// clang-format on

}  // namespace

char const* prefix(SocketOperation operation) {
    auto const index = static_cast<unsigned int>(operation);
    return index < sizeof prefixes / sizeof *prefixes ? prefixes[index] : "";
}

char const* reason(SocketOperation operation, int code) {
    for (Row const& row : rows) {
        if (row.code != code) continue;
        if (row.operation == operation || row.operation == others) return row.reason;
    }
    return "Undocumented error.";
}

String text(SocketOperation operation, int code) {
    String text(prefix(operation));
    text += reason(operation, code);
    return text;
}

}  // namespace QX::socket_errors
