#include "qx/net/web_fetch.h"

#include <cstdlib>
#include <cstring>

#include "qx/net/socket_connection_impl.h"

namespace QX {

namespace {

constexpr char protocol[] = "HTTP/1.1 ";
constexpr char length_header[] = "Content-Length: ";

bool begins_with(char const* text, char const* start) {
    return std::strncmp(text, start, std::strlen(start)) == 0;
}

bool send_request(Connection& connection, char const* host, char const* path) {
    return connection.send_command({"GET ", path, " HTTP/1.1\r\n"}) &&
           connection.send_command({"Host: ", host, "\r\n"}) && connection.send_command({"\r\n"});
}

// One line at a time, its end included, cut at 1,023 characters.
class HeaderReader {
public:
    explicit HeaderReader(Connection& connection) : connection_(connection) {}

    // False if the connection ends first; `failure` then says what that makes of the call.
    bool read_line() {
        size_ = 0;
        do {
            int const count = connection_.receive(line_ + size_, 1);
            if (count < 1) {
                failure_ = Connection::failure_of(count);
                return false;
            }
        } while (line_[size_++] != '\n' && size_ < sizeof line_ - 1);
        line_[size_] = 0;
        return true;
    }

    char const* line() const { return line_; }
    unsigned int size() const { return size_; }
    int failure() const { return failure_; }

private:
    Connection& connection_;
    char line_[1024] = {};
    unsigned int size_ = 0;
    int failure_ = 0;
};

// True behind a good status line and the end of the headers, else `result` is the call's.
bool read_headers(Connection& connection, unsigned int& announced, int& result) {
    HeaderReader reader(connection);
    if (!reader.read_line()) {
        result = reader.failure();
        return false;
    }
    bool const known = begins_with(reader.line(), protocol);
    int const status = known ? three_digits(reader.line() + std::strlen(protocol)) : 1;
    result = -status;
    if (status != 200) return false;

    do {
        if (!reader.read_line()) {
            result = reader.failure();
            return false;
        }
        if (begins_with(reader.line(), length_header)) {
            int const value = std::atoi(reader.line() + std::strlen(length_header));
            announced = static_cast<unsigned int>(value);
        }
    } while (reader.size() > 2);
    return true;
}

// The bytes held once the buffer is full or the peer has closed; `last` is the last recv's result.
unsigned int fill(Connection& connection, char* buffer, unsigned int buffer_size, int& last) {
    unsigned int held = 0;
    do {
        last = connection.receive(buffer + held, buffer_size - held);
        if (last > 0) held += static_cast<unsigned int>(last);
    } while (last > 0 && held < buffer_size);
    return held;
}

}  // namespace

int get_http_page(
    char* buffer, unsigned int buffer_size, char const* host, unsigned short port, char const* path,
    bool (*callback)(char* data, unsigned int size, void* user), void* user) {
    Connection connection;
    int code = 0;
    if (!connection.open(host, port, code)) return code;
    if (!send_request(connection, host, path)) return 0;

    unsigned int announced = 0;
    int result = 0;
    if (!read_headers(connection, announced, result)) return result;
    callback(nullptr, announced, user);

    unsigned int total = 0;
    int last = 0;
    do {
        unsigned int const held = fill(connection, buffer, buffer_size, last);
        if (last < 0) return Connection::failure_of(last);
        callback(buffer, held, user);
        total += held;
    } while (last > 0);
    callback(nullptr, total, user);
    return 0;
}

}  // namespace QX
