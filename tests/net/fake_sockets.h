// fake_sockets.h - stands in for the calls that mail and web fetch make, and keeps count of them.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "tests/harness/stand_in.h"

namespace test {

// One at a time. Every call succeeds but where told otherwise.
class FakeSockets {
public:
    FakeSockets();
    ~FakeSockets();

    // Whether the library imports all the calls.
    bool found() const;

    // --- What the calls do ---
    int startup_code = 0;
    int host_code = 0;
    int socket_code = 0;
    int connect_code = 0;
    int failing_send = -1;            // counted from 0
    std::deque<std::string> replies;  // each recv gives what fits of the first
    int end_code = 0;                 // behind the replies: 0 for a closed peer, else the failure

    // --- What was called ---
    std::vector<std::string> sent;
    unsigned short port = 0;
    int startups = 0;
    int cleanups = 0;
    int sockets = 0;
    int closes = 0;
    int version = 0;

    std::string all_sent() const;
    // Whether what was begun was ended, once.
    bool is_balanced() const;

private:
    std::vector<std::unique_ptr<StandIn>> stand_ins_;
};

}  // namespace test
