// parallel_mips.cpp - tasks, fibres and counters at work: all pictures of a pack decoded, with all
// their mip levels, first one after the other and then as tasks; both ways must give the same
// bytes.
//
//   parallel_mips PACK [KEY]      the pictures of a pack
//   parallel_mips --draw COUNT    as many pictures of its own
//
// The tasks, for each picture:
//
//   fibreful, any thread       decodes, makes level after level, starts a conversion for each, and
//                              waits for them: it leaves its thread to other tasks meanwhile
//   fibreless, any thread      converts one level to 16 bits; short, and waits for nothing
//   fibreless, main thread     shows the progress, and counts the picture as done
//
// Exit codes: 0 the same, 1 not the same or a picture that can't be read, 2 wrong arguments.
#include "examples/pictures.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using task::FiberMode;
using task::Priority;
using task::ThreadMask;

using Bytes = std::vector<unsigned char>;
using examples::Picture;

// A picture as it comes: the bytes of a TGA file, in the pack's mapping or drawn.
struct Entry {
    std::string name;
    char const* data;
    unsigned int size;
};

struct Level {
    unsigned int width, height;
    Bytes pixels;     // blue, green, red, alpha
    Bytes converted;  // 5, 6 and 5 bits

    bool operator==(Level const&) const = default;
};

struct Result {
    bool decoded = false;
    std::vector<Level> levels;

    bool operator==(Result const&) const = default;
};

constexpr unsigned int most_levels = 17;  // sides of a TGA file take 16 bits

// --- The work on one picture ---------------------------------------------------------------------

Level level_of(QX::PixelAccessorDescriptor const& view, unsigned int width, unsigned int height) {
    Level level = {width, height, Bytes(width * height * 4), Bytes(width * height * 2)};
    for (unsigned int y = 0; y < height; ++y)
        std::memcpy(&level.pixels[y * width * 4], view.data + y * view.stride, width * 4);
    return level;
}

void convert(Level& level) {
    QX::ConstPixelAccessorDescriptor const from(
        level.pixels.data(), level.width, level.height, level.width * 4, QX::PIXEL_FORMAT_A8R8G8B8);
    QX::PixelAccessorDescriptor const to(
        level.converted.data(), level.width, level.height, level.width * 2,
        QX::PIXEL_FORMAT_R5G6B5);
    to.copy(from);
}

// Hands each level to `ready` as soon as it stands, and goes on with the next.
template <typename Ready>
void shrink(Entry const& entry, Result& result, Ready ready) {
    Picture picture;
    QX::TGAHeader header;
    result.decoded = examples::decode(entry.data, entry.size, header, picture);
    if (!result.decoded) return;
    result.levels.reserve(most_levels);  // levels that are being converted must stay in place
    examples::each_level(
        picture, [&](QX::PixelAccessorDescriptor const& view, unsigned int w, unsigned int h) {
            ready(result.levels.emplace_back(level_of(view, w, h)));
        });
}

// --- One after the other -------------------------------------------------------------------------

std::vector<Result> shrink_all(std::vector<Entry> const& entries) {
    std::vector<Result> results(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) shrink(entries[i], results[i], convert);
    return results;
}

// --- As tasks ------------------------------------------------------------------------------------

// In a fibreful task. The counter may lie on the fibre's stack: the wait outlasts its use.
void shrink_in_tasks(Entry const& entry, Result& result) {
    task::Counter conversions;
    shrink(entry, result, [&conversions](Level& level) {
        conversions.internal_increment(1);
        task::spawn(
            FiberMode::fiberless, ThreadMask::any_thread, Priority::normal, [&level, &conversions] {
                convert(level);
                conversions.internal_decrement();
            });
    });
    conversions.wait();
}

// Only ever used on the main thread, so it needs no lock.
class Progress {
public:
    explicit Progress(std::size_t total) : total_(total) {}
    ~Progress() { std::fputc('\n', stderr); }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void step() { std::fprintf(stderr, "\r%zu of %zu pictures", ++done_, total_); }

private:
    std::size_t done_ = 0, total_;
};

std::vector<Result> shrink_all_in_tasks(std::vector<Entry> const& entries) {
    std::vector<Result> results(entries.size());
    Progress progress(entries.size());
    task::Counter left(static_cast<unsigned int>(entries.size()));
    task::Batch batch(ThreadMask::any_thread, Priority::normal);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        batch.spawn(FiberMode::fiberful, [&, i] {
            shrink_in_tasks(entries[i], results[i]);
            task::spawn(
                FiberMode::fiberless, ThreadMask::main_thread, Priority::normal,
                [&progress, &left] {
                    progress.step();
                    left.internal_decrement();
                });
        });
    }
    batch.submit();
    left.wait();  // the main thread lends a hand
    return results;
}

// --- Where the pictures come from ----------------------------------------------------------------

void note(
    QX::MemPackFile const& pack, char const* name, unsigned int, unsigned int size, void* to) {
    static_cast<std::vector<Entry>*>(to)->push_back({name, pack.data(name), size});
}

// A TGA file of 24 bits, top row first.
std::string draw(unsigned int number) {
    unsigned int const width = 101 + number * 37 % 300;
    unsigned int const height = 77 + number * 53 % 250;
    std::string file(18, '\0');
    file[2] = 2;  // true colour
    file[12] = static_cast<char>(width);
    file[13] = static_cast<char>(width >> 8);
    file[14] = static_cast<char>(height);
    file[15] = static_cast<char>(height >> 8);
    file[16] = 24;
    file[17] = 0x20;
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; ++x) {
            file += static_cast<char>(x * 255 / width);
            file += static_cast<char>(y * 255 / height);
            file += static_cast<char>((x ^ y) * (number + 1));
        }
    }
    return file;
}

// --- The host ------------------------------------------------------------------------------------

bool all_decoded(std::vector<Entry> const& entries, std::vector<Result> const& results) {
    bool all = true;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (results[i].decoded) continue;
        std::fprintf(
            stderr, "parallel_mips: %s: not a picture that can be read\n", entries[i].name.c_str());
        all = false;
    }
    return all;
}

double now_ms() {
    auto const now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::milli>(now).count();
}

int compare(std::vector<Entry> const& entries) {
    double const start = now_ms();
    std::vector<Result> const expected = shrink_all(entries);
    double const middle = now_ms();

    // The calling thread becomes the main thread; the processors say how many workers there are.
    unsigned int const workers = task::initialize(nullptr, 0, 0);
    double const started = now_ms();
    std::vector<Result> const results = shrink_all_in_tasks(entries);
    double const end = now_ms();
    task::terminate();

    std::printf(
        "one after the other %.1f ms, as tasks %.1f ms on the main thread and %u more\n",
        middle - start, end - started, workers);
    std::size_t levels = 0;
    for (Result const& result : results) levels += result.levels.size();
    bool const equal = results == expected;
    std::printf(
        "%zu pictures with %zu levels: %s\n", results.size(), levels,
        equal ? "the same both ways" : "NOT the same both ways");
    return all_decoded(entries, results) && equal ? 0 : 1;
}

int usage(int code) {
    std::fprintf(stderr, "usage: parallel_mips PACK [KEY] | parallel_mips --draw COUNT\n");
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) return usage(0);
    bool const draws = argc > 1 && std::strcmp(argv[1], "--draw") == 0;
    if (argc < 2 || argc > 3 || (draws && argc != 3)) return usage(2);

    std::vector<Entry> entries;
    std::vector<std::string> drawn;
    QX::MemPackFile pack;
    unsigned long const number = argc > 2 ? std::strtoul(argv[2], nullptr, 0) : 0;
    if (draws) {
        for (unsigned int i = 0; i < number; ++i) drawn.push_back(draw(i));
        for (std::string const& file : drawn)
            entries.push_back({"drawn", file.data(), static_cast<unsigned int>(file.size())});
    } else if (pack.open(argv[1], static_cast<unsigned short>(number))) {
        pack.enumerate(note, &entries);
    } else {
        std::fprintf(stderr, "parallel_mips: %s: not a pack, or not with this key\n", argv[1]);
        return 1;
    }
    if (entries.empty()) {
        std::fprintf(stderr, "parallel_mips: no pictures there\n");
        return 1;
    }
    std::sort(entries.begin(), entries.end(), [](Entry const& a, Entry const& b) {
        return a.name < b.name;
    });
    return compare(entries);
}
