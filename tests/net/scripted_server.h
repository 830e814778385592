// scripted_server.h - a server on a free loopback port that plays one script to one client.
#pragma once

#include <string>
#include <vector>

namespace test {

struct ServerStep {
    enum Kind { say, say_bytewise, hear, pause, close, reset };
    Kind kind;
    std::string text;  // what to say, or what the client's words must end with before going on
};

using ServerScript = std::vector<ServerStep>;

// Sends go out at once, so that each of `say` arrives by itself if the client waits for it. Behind
// the script the server ends its side and reads on until the client has closed; `close` does so
// without reading, `reset` breaks the connection off.
class ScriptedServer {
public:
    explicit ScriptedServer(ServerScript script);
    ~ScriptedServer();

    ScriptedServer(ScriptedServer const&) = delete;
    ScriptedServer& operator=(ScriptedServer const&) = delete;

    unsigned short port() const { return port_; }

    // Waits for the end of the script. All that the client has sent.
    std::string const& heard();

private:
    static unsigned long __stdcall run(void* self);
    void play();
    bool play_step(unsigned long long client, ServerStep const& step);

    ServerScript script_;
    std::string heard_;
    unsigned short port_ = 0;
    unsigned long long listener_;
    void* thread_ = nullptr;
};

// A listening socket on a free loopback port; `port` receives its number.
unsigned long long listen_on_loopback(unsigned short& port);

}  // namespace test
