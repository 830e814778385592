#include "qx/app/cpu_config_impl.h"
#include "qx/base/windows.h"

#include <cpuid.h>

namespace QX {

namespace {

// Binds the calling thread to one processor after the other, and gives it its own mask back.
class ThreadBinding {
public:
    ThreadBinding() = default;
    ~ThreadBinding() {
        if (before_ != 0) SetThreadAffinityMask(GetCurrentThread(), before_);
    }
    ThreadBinding(ThreadBinding const&) = delete;
    ThreadBinding& operator=(ThreadBinding const&) = delete;

    bool move_to(unsigned int bit) {
        auto const mask = static_cast<DWORD_PTR>(1) << bit;
        DWORD_PTR const before = SetThreadAffinityMask(GetCurrentThread(), mask);
        if (before_ == 0) before_ = before;
        return before != 0;
    }

private:
    DWORD_PTR before_ = 0;
};

unsigned long long process_mask() {
    DWORD_PTR process = 0;
    DWORD_PTR system = 0;
    return GetProcessAffinityMask(GetCurrentProcess(), &process, &system) ? process : 0;
}

bool bind_thread(void* binding, unsigned int bit) {
    return static_cast<ThreadBinding*>(binding)->move_to(bit);
}

detail::CpuidLeaf ask_processor(void*, unsigned int number, unsigned int sub_leaf) {
    detail::CpuidLeaf leaf = {};
    __cpuid_count(number, sub_leaf, leaf.a, leaf.b, leaf.c, leaf.d);
    return leaf;
}

}  // namespace

void get_current_cpu_config(CPUConfig& config) {
    ThreadBinding binding;
    detail::fill_cpu_config(config, {&binding, process_mask(), bind_thread, ask_processor});
}

}  // namespace QX
