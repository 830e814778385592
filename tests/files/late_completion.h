// late_completion.h - a stand-in for ReadFileEx that reads only after a while, in a procedure call
// on the issuing thread.
#pragma once

#include "qx/base/windows.h"

#include "tests/harness/stand_in.h"

namespace test {

class LateCompletion {
public:
    explicit LateCompletion(unsigned int delay_ms);

    // Reads asked for, and those that came to be read.
    static unsigned int begun;
    static unsigned int delivered;

private:
    StandIn stand_in_;
};

}  // namespace test
