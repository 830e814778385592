// stand_in.h - replaces one system call that the library imports, for the life of the object.
#pragma once

namespace test {

// Points the import named `function` of QXLibs.dll (from whichever system DLL) at `replacement`.
class StandIn {
public:
    template <typename Function>
    StandIn(char const* function, Function* replacement)
        : StandIn(function, reinterpret_cast<void*>(replacement)) {}
    StandIn(char const* function, void* replacement);
    ~StandIn();

    StandIn(StandIn&&) = delete;

    // False where the library does not import the function: the test must then fail.
    bool found() const { return slot_ != nullptr; }

    // The call that was replaced.
    void* original() const { return original_; }

private:
    void** slot_ = nullptr;
    void* original_ = nullptr;
};

}  // namespace test
