// late_completion.h - a stand-in for ReadFileEx whose completion arrives only after a while, as a
// procedure call on the issuing thread.
#pragma once

#include "qx/base/windows.h"

#include "tests/harness/stand_in.h"

namespace test {

class LateCompletion {
public:
    explicit LateCompletion(unsigned int delay_ms);

    bool found() const { return stand_in_.found(); }

    // Reads begun, and completions delivered.
    static unsigned int begun;
    static unsigned int delivered;

private:
    StandIn stand_in_;
};

}  // namespace test
