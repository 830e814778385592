// server.h - a server on a free loopback port that plays one script to one client.
#pragma once

#include "qx/net/socket.h"

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test {

inline QX::Socket tcp() {
    return QX::Socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
}

// To a loopback port, which its address then tells, too.
inline unsigned short bind_to_free_port(QX::Socket& socket) {
    socket.set_address("127.0.0.1", 0);
    socket.bind();
    sockaddr_in address = {};
    int size = sizeof address;
    getsockname(socket.handle(), reinterpret_cast<sockaddr*>(&address), &size);
    socket.set_address("127.0.0.1", ntohs(address.sin_port));
    return ntohs(address.sin_port);
}

class Server {
public:
    // What the client's words must end with, and what is then said byte by byte.
    using Script = std::vector<std::pair<std::string, std::string>>;

    explicit Server(Script script) : script_(std::move(script)), listener_(tcp()) {
        port = bind_to_free_port(listener_);
        listener_.listen(1);
        thread_ = std::jthread([this] { play(); });
    }

    // Waits for the client's end. All that it has sent.
    std::string const& heard() {
        if (thread_.joinable()) thread_.join();
        return heard_;
    }

    unsigned short port;

private:
    void play() {
        QX::Socket const client(listener_.accept());
        char byte = 0;
        for (auto const& [end, answer] : script_) {
            while (!heard_.ends_with(end) && recv(client.handle(), &byte, 1, 0) == 1)
                heard_ += byte;
            for (char c : answer) send(client.handle(), &c, 1, 0);
        }
        shutdown(client.handle(), SD_SEND);
        while (recv(client.handle(), &byte, 1, 0) == 1) heard_ += byte;
    }

    Script script_;
    QX::Socket listener_;
    std::string heard_;
    std::jthread thread_;
};

}  // namespace test
