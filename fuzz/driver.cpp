#include "fuzz/driver.h"

#include "qx/base/windows.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "tests/harness/guarded.h"
#include "tests/harness/random.h"

namespace fuzz {

namespace {

constexpr std::size_t room = 1 << 16;         // the longest input
constexpr std::size_t exhaustive_size = 512;  // seeds up to this length get every change
constexpr unsigned int limit_ms = 2000;

char const* target_name;
Target target_function;
test::Guarded* buffer;
std::atomic<unsigned long long> inputs_run;
std::string current;

void save_current() {
    std::string const path = std::string(target_name) + "-found.bin";
    std::ofstream(path, std::ios::binary) << current;
    std::fprintf(stderr, "%s: the input is in %s\n", target_name, path.c_str());
}

LONG WINAPI on_fault(EXCEPTION_POINTERS* pointers) {
    std::fprintf(
        stderr, "%s: fault %08lx at input %llu\n", target_name,
        pointers->ExceptionRecord->ExceptionCode, inputs_run.load());
    save_current();
    std::_Exit(2);
}

DWORD WINAPI watch(void*) {
    for (unsigned long long last = ~0ull;;) {
        Sleep(limit_ms);
        unsigned long long const now = inputs_run;
        if (now == last) {
            std::fprintf(stderr, "%s: input %llu does not end\n", target_name, now);
            save_current();
            std::_Exit(3);
        }
        last = now;
    }
}

void feed(std::string const& input) {
    ++inputs_run;
    current = input.substr(0, room);
    char* const data = buffer->data() + room - current.size();
    std::memcpy(data, current.data(), current.size());
    target_function(data, current.size());
}

void feed_prefixes_and_changes(std::string const& seed) {
    for (std::size_t size = 0; size <= seed.size(); ++size) feed(seed.substr(0, size));
    if (seed.size() > exhaustive_size) return;
    std::string changed = seed;
    for (std::size_t at = 0; at < seed.size(); ++at) {
        for (int byte = 0; byte < 256; ++byte) {
            changed[at] = static_cast<char>(byte);
            feed(changed);
        }
        changed[at] = seed[at];
    }
}

void mutate_once(std::string& text, std::vector<std::string> const& seeds, test::Random& random) {
    std::size_t const at = text.empty() ? 0 : random.below(static_cast<unsigned>(text.size()));
    switch (random.below(6)) {
    case 0:
        if (!text.empty()) text[at] = static_cast<char>(random.next());
        break;
    case 1: text.insert(at, 1, static_cast<char>(random.next())); break;
    case 2: text.erase(at, 1 + random.below(8)); break;
    case 3: text.insert(at, text.substr(at, 1 + random.below(32))); break;
    case 4: {
        std::string const& other = seeds[random.below(static_cast<unsigned>(seeds.size()))];
        if (!other.empty()) text.insert(at, other, random.below(unsigned(other.size())), 16);
        break;
    }
    default:
        if (!text.empty()) text[at] = static_cast<char>(text[at] ^ (1 << random.below(8)));
    }
}

int replay(char const* path) {
    std::ifstream file(path, std::ios::binary);
    feed({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
    std::printf("%s: %s ran to its end\n", target_name, path);
    return 0;
}

}  // namespace

int run(
    char const* name, int argc, char** argv, std::vector<std::string> const& seeds, Target target) {
    target_name = name;
    target_function = target;
    test::Guarded guarded(room);
    buffer = &guarded;
    SetUnhandledExceptionFilter(on_fault);
    if (argc == 3 && std::strcmp(argv[1], "--replay") == 0) return replay(argv[2]);

    unsigned long long const rounds = argc > 1 ? std::strtoull(argv[1], nullptr, 0) : 20000;
    unsigned long long const start = argc > 2 ? std::strtoull(argv[2], nullptr, 0) : test::seed();
    HANDLE const watcher = CreateThread(nullptr, 0, watch, nullptr, 0, nullptr);
    CloseHandle(watcher);

    for (auto const& seed : seeds) feed_prefixes_and_changes(seed);
    test::Random random(start);
    for (unsigned long long i = 0; i < rounds; ++i) {
        std::string text = seeds[random.below(static_cast<unsigned>(seeds.size()))];
        for (unsigned int n = 1 + random.below(8); n; --n) mutate_once(text, seeds, random);
        feed(text);
    }
    std::printf("%s: %llu inputs, seed %llu, no fault\n", name, inputs_run.load(), start);
    return 0;
}

}  // namespace fuzz
