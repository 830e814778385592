// cpu_config_impl.h - fills the record from a processor, real or recorded.
#pragma once

#include "qx/app/cpu_config.h"

namespace QX::detail {

struct CpuidLeaf {
    unsigned int a;
    unsigned int b;
    unsigned int c;
    unsigned int d;
};

struct ProcessorSource {
    void* context;
    unsigned long long mask;  // a bit for each processor of the process; 0 if that isn't known

    // Moves the thread to the processor of that bit. False where it can't be.
    bool (*bind)(void* context, unsigned int bit);

    // What the processor that the thread runs on answers.
    CpuidLeaf (*leaf)(void* context, unsigned int number, unsigned int sub_leaf);
};

void fill_cpu_config(CPUConfig& config, ProcessorSource const& source);

}  // namespace QX::detail
