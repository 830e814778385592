#include "tests/net/scripted_server.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <winsock2.h>

#include <utility>

namespace test {

namespace {

// Starts the sockets library before the first case, so that what it keeps for itself is no leak.
class WarmSockets : public testing::Environment {
public:
    void SetUp() override {
        WSADATA data;
        ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
        ASSERT_NE(gethostbyname("localhost"), nullptr);
        closesocket(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
        closesocket(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    }
    void TearDown() override { WSACleanup(); }
};

testing::Environment* const warm = testing::AddGlobalTestEnvironment(new WarmSockets);

void send_all(SOCKET client, std::string const& text) {
    send(client, text.data(), static_cast<int>(text.size()), 0);
}

bool ends_with(std::string const& text, std::string const& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// False once the client has closed.
bool hear_some(SOCKET client, std::string& heard) {
    char bytes[4096];
    int const count = recv(client, bytes, sizeof bytes, 0);
    if (count > 0) heard.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
}

}  // namespace

unsigned long long listen_on_loopback(unsigned short& port) {
    SOCKET const listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr("127.0.0.1");
    int size = sizeof address;
    auto const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(listener, generic, size), 0);
    EXPECT_EQ(listen(listener, 16), 0);
    EXPECT_EQ(getsockname(listener, generic, &size), 0);
    port = ntohs(address.sin_port);
    return listener;
}

ScriptedServer::ScriptedServer(ServerScript script)
    : script_(std::move(script)), listener_(listen_on_loopback(port_)) {
    thread_ = CreateThread(nullptr, 0, run, this, 0, nullptr);
}

ScriptedServer::~ScriptedServer() {
    heard();
}

std::string const& ScriptedServer::heard() {
    if (thread_) {
        WaitForSingleObject(thread_, INFINITE);
        CloseHandle(thread_);
        thread_ = nullptr;
    }
    return heard_;
}

unsigned long ScriptedServer::run(void* self) {
    static_cast<ScriptedServer*>(self)->play();
    return 0;
}

void ScriptedServer::play() {
    fd_set waiting = {1, {listener_}};
    timeval patience = {20, 0};
    bool const came = select(0, &waiting, nullptr, nullptr, &patience) == 1;
    SOCKET const client = came ? accept(listener_, nullptr, nullptr) : INVALID_SOCKET;
    closesocket(listener_);
    if (!came) return;
    BOOL const at_once = TRUE;
    setsockopt(
        client, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char const*>(&at_once), sizeof at_once);

    bool open = true;
    for (std::size_t i = 0; open && i < script_.size(); ++i) open = play_step(client, script_[i]);
    if (open) {
        shutdown(client, SD_SEND);
        while (hear_some(client, heard_)) {}
    }
    closesocket(client);
}

bool ScriptedServer::play_step(unsigned long long client, ServerStep const& step) {
    switch (step.kind) {
    case ServerStep::say: send_all(client, step.text); return true;
    case ServerStep::say_bytewise:
        for (char c : step.text) send_all(client, std::string(1, c));
        return true;
    case ServerStep::hear:
        while (!ends_with(heard_, step.text)) {
            if (!hear_some(client, heard_)) return false;
        }
        return true;
    case ServerStep::pause: Sleep(50); return true;
    case ServerStep::reset: {
        linger const hard = {1, 0};
        setsockopt(
            client, SOL_SOCKET, SO_LINGER, reinterpret_cast<char const*>(&hard), sizeof hard);
        return false;
    }
    case ServerStep::close: return false;
    }
    return false;
}

}  // namespace test
