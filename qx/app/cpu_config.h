// cpu_config.h - the processors that the process may use, and their caches.
//
//     CPUConfig config;
//     get_current_cpu_config(config);
//     config.logical_processor_count   =>  8
//     config.processors[5].core        =>  2, where two threads share a core
//
// Intel processors are asked for their own numbering, one after the other. Of any other maker only
// the count is known: each logical processor then is a core of its own, package and thread are 0
// and no cache is listed.
#pragma once

#include "qx/base/export.h"

namespace QX {

// A plain record. Whatever is not known is 0.
struct CPUConfig {
    static constexpr unsigned int max_processors = 64;
    static constexpr unsigned int max_caches = 6;

    struct Processor {
        unsigned int package;
        unsigned int core;    // within its package
        unsigned int thread;  // within its core
        unsigned int reserved;
    };

    struct Cache {
        unsigned int level;  // less 1: a first-level cache has 0
        unsigned int reserved_1[2];
        unsigned int size;  // in bytes
        unsigned int kind;  // 0 unified, 1 instruction, 2 data, 4 anything else
        unsigned int reserved_2[3];
    };

    unsigned int vendor;  // 0 Intel, 1 AMD, 5 anything else
    unsigned int logical_processor_count;
    Processor processors[max_processors];  // in the order of the bits of the process's mask
    unsigned int cache_count;
    Cache caches[max_caches];  // those of the first processor
};

static_assert(sizeof(CPUConfig) == 4 * (2 + 64 * 4 + 1 + 6 * 8));

// Fills all of `config`. The count is that of the process's affinity mask, or 1 where the system
// does not tell it. Package, core and thread numbers count from 0 in the order of appearance.
//
// Where an Intel processor can't be bound to, or two of them answer with one identifier (as in some
// virtual machines), every logical processor counts as a core of its own. An Intel processor that
// lists more than six caches ends the process with a message on the error stream.
//
// Threads: on Intel the calling thread is bound to each processor in turn, and then as it was; so
// this isn't called from a task on a fibre. No shared state.
QX_API void get_current_cpu_config(CPUConfig& config);

}  // namespace QX
