// socket_connection_impl.h - one start-up and one connection, for calls that do all by themselves.
#pragma once

#include <initializer_list>

namespace QX {

// A TCP connection to a host by name. The destructor closes it and ends the start-up. Throws
// nothing and holds no memory.
class Connection {
public:
    Connection() = default;
    Connection(Connection const&) = delete;
    Connection& operator=(Connection const&) = delete;
    ~Connection();

    // Called once. False after a step that failed, with its sockets code, which may be 0.
    bool open(char const* host, unsigned short port, int& code);

    // True unless the sockets library refuses; how much was taken is not looked at.
    bool send(char const* data, unsigned long long size);

    // The pieces one behind the other, in one send as long as they fit the command buffer.
    bool send_command(std::initializer_list<char const*> pieces);

    // One recv: how many bytes came, 0 if the peer has closed or `size` is 0. Below 0: a failure.
    int receive(char* data, unsigned int size);

    // What a result of `receive` below 1 makes of the whole call: the sockets code of a failure,
    // and 0 for a peer that has closed, of which the sockets library holds no error.
    static int failure_of(int received);

private:
    bool look_up_and_connect(char const* host, unsigned short port);

    bool started_ = false;
    unsigned long long socket_ = ~0ull;
};

// The value of three characters as decimal digits, whatever they are.
inline int three_digits(char const* text) {
    return (text[0] - '0') * 100 + (text[1] - '0') * 10 + (text[2] - '0');
}

}  // namespace QX
