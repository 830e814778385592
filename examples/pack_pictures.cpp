// pack_pictures.cpp - the main job in one file: opens a pack, keeps one read in flight while the
// picture before it decodes, lands each TGA in this host's own format, fills the mip levels.
//
//   pack_pictures PACK OUT [KEY]
//
// Prints a table, writes OUT\<name>.bgra for each picture and OUT\contact_sheet.tga with all
// levels.
#include "examples/pictures.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <windows.h>

#include <psapi.h>

namespace {

using examples::decode;
using examples::Picture;
using View = QX::PixelAccessorDescriptor;

// One entry on its way through the host.
struct Entry {
    std::string name;
    unsigned int size = 0;
};

// A buffer that an unbuffered read can land in, and whether it has.
struct Slot {
    char* data = nullptr;
    bool done = false;
};

// A level of a picture's mip chain, placed on the contact sheet.
struct Tile {
    unsigned int x, y;
    std::vector<unsigned char> pixels;  // blue, green, red, alpha
    unsigned int width, height;
};

double now_ms() {
    LARGE_INTEGER count, frequency;
    QueryPerformanceCounter(&count);
    QueryPerformanceFrequency(&frequency);
    return 1000.0 * static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
}

void collect(
    QX::AsyncPackFile const&, char const* name, unsigned int, unsigned int size, void* user) {
    static_cast<std::vector<Entry>*>(user)->push_back({name, size});
}

void landed(QX::AsyncPackFile&, void* user) {
    static_cast<Slot*>(user)->done = true;
}

// Asks for a whole entry: its sectors, straight into the slot.
bool start_read(QX::AsyncPackFile& pack, Entry const& entry, Slot& slot) {
    unsigned int const sector = pack.aligned();
    unsigned int const bytes = (entry.size + sector - 1) / sector * sector;
    slot.done = false;
    return pack.read(slot.data, entry.name.c_str(), 0, bytes, landed, &slot);
}

void wait_for(Slot const& slot) {
    while (!slot.done) SleepEx(INFINITE, TRUE);
}

char const* type_of(QX::TGAHeader const& header) {
    switch (header.image_type) {
    case 1: return "mapped";
    case 2: return "true colour";
    case 3: return "grey";
    case 9: return "mapped rle";
    case 10: return "true rle";
    case 11: return "grey rle";
    default: return "?";
    }
}

Tile tile_of(View const& view, unsigned int width, unsigned int height) {
    Tile tile{0, 0, std::vector<unsigned char>(width * height * 4), width, height};
    for (unsigned int y = 0; y < height; ++y)
        std::memcpy(&tile.pixels[y * width * 4], view.data + y * view.stride, width * 4);
    return tile;
}

// Every level, the picture itself first, down to one pixel.
std::vector<Tile> mip_chain(Picture& picture) {
    std::vector<Tile> levels;
    examples::each_level(
        picture, [&levels](View const& view, unsigned int width, unsigned int height) {
            levels.push_back(tile_of(view, width, height));
        });
    return levels;
}

// Places the levels of all pictures: a picture, its levels stacked to its right, in shelves.
class ContactSheet {
public:
    void add(std::vector<Tile> levels) {
        unsigned int const width = levels[0].width + (levels.size() > 1 ? levels[1].width : 0);
        if (x_ + width > sheet_width) {
            x_ = gap;
            y_ += shelf_ + gap;
            shelf_ = 0;
        }
        unsigned int down = 0;
        for (std::size_t i = 0; i < levels.size(); ++i) {
            levels[i].x = i == 0 ? x_ : x_ + levels[0].width + 1;
            levels[i].y = y_ + (i == 0 ? 0 : down);
            if (i > 0) down += levels[i].height + 1;
            shelf_ = std::max({shelf_, levels[i].height, down});
        }
        x_ += width + gap;
        tiles_.insert(tiles_.end(), levels.begin(), levels.end());
    }

    bool write(std::string const& path) const {
        Picture sheet;
        sheet.resize(sheet_width + 2 * gap, y_ + shelf_ + gap);
        View const view = sheet.pixel_accessor();
        view.clear(0, 0, view.width, view.height, QX::Pixel8888{48, 48, 48, 255});
        for (Tile const& tile : tiles_) {
            QX::ConstPixelAccessorDescriptor const from(
                tile.pixels.data(), tile.width, tile.height, tile.width * 4,
                QX::PIXEL_FORMAT_A8R8G8B8);
            sheet.pixel_accessor(tile.x, tile.y, tile.width, tile.height).copy(from);
        }
        return sheet.write_tga(path.c_str(), QX::PIXEL_FORMAT_R8G8B8);
    }

private:
    static constexpr unsigned int sheet_width = 1680;
    static constexpr unsigned int gap = 8;

    std::vector<Tile> tiles_;
    unsigned int x_ = gap, y_ = gap, shelf_ = 0;
};

bool write_pixels(std::string const& path, Picture& picture) {
    QX::FileOut out(path.c_str());
    unsigned int const bytes = picture.width() * picture.height() * 4;
    return out.write(picture.pixel_accessor().data, bytes) == bytes && out.close();
}

struct Totals {
    double bytes = 0;
    double ms = 0;
};

bool show(
    Entry const& entry, char const* bytes, std::string const& out, ContactSheet& sheet,
    Totals& totals) {
    QX::TGAHeader header;
    Picture picture;
    double const start = now_ms();
    if (!decode(bytes, entry.size, header, picture)) {
        std::fprintf(
            stderr, "pack_pictures: %s: not a picture that can be read\n", entry.name.c_str());
        return false;
    }
    double const decoded = now_ms();
    std::vector<Tile> levels = mip_chain(picture);
    double const mipped = now_ms();

    double const size = 4.0 * picture.width() * picture.height();
    std::printf(
        "%-26s %-12s %2u  %4u x %-4u %3zu %8u %9.3f %9.3f %8.0f\n", entry.name.c_str(),
        type_of(header), header.bits_per_pixel, picture.width(), picture.height(), levels.size(),
        entry.size, decoded - start, mipped - decoded, size / 1000 / (decoded - start));
    totals.bytes += size;
    totals.ms += decoded - start;
    sheet.add(std::move(levels));
    if (write_pixels(out + entry.name + ".bgra", picture)) return true;
    std::fprintf(
        stderr, "pack_pictures: %s%s.bgra: cannot be written\n", out.c_str(), entry.name.c_str());
    return false;
}

// Entry i + 1 is in flight while entry i decodes.
bool show_all(QX::AsyncPackFile& pack, std::vector<Entry> const& entries, std::string const& out) {
    unsigned int largest = 0;
    for (Entry const& entry : entries) largest = std::max(largest, entry.size);
    Slot slots[2];
    for (Slot& slot : slots) {
        unsigned int const sector = pack.aligned();
        slot.data = static_cast<char*>(
            QX::malloc_aligned((largest + sector - 1) / sector * sector, sector, QX::HEAP_GENERAL));
    }

    ContactSheet sheet;
    Totals totals;
    bool good = start_read(pack, entries[0], slots[0]);
    for (std::size_t i = 0; good && i < entries.size(); ++i) {
        wait_for(slots[i % 2]);
        if (pack.status() != QX::FILE_OK) break;
        if (i + 1 < entries.size()) good = start_read(pack, entries[i + 1], slots[(i + 1) % 2]);
        good = good && show(entries[i], slots[i % 2].data, out, sheet, totals);
    }
    if (pack.status() != QX::FILE_OK && pack.status() != QX::FILE_PENDING) {
        std::fprintf(stderr, "pack_pictures: a read failed with status %d\n", int(pack.status()));
        good = false;
    }
    for (Slot& slot : slots) QX::custom_free(reinterpret_cast<void**>(slot.data)[-1]);
    if (good) good = sheet.write(out + "contact_sheet.tga");
    std::printf(
        "%zu pictures, %.1f MB of pixels decoded in %.1f ms: %.0f MB/s\n", entries.size(),
        totals.bytes / 1e6, totals.ms, totals.bytes / 1000 / totals.ms);
    return good;
}

void print_peak() {
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    std::printf(
        "peak working set %.1f MB\n", static_cast<double>(counters.PeakWorkingSetSize) / 1e6);
}

}  // namespace

int main(int argc, char** argv) {
    bool const asks_for_help = argc == 2 && std::strcmp(argv[1], "--help") == 0;
    if (argc < 3) {
        std::fprintf(stderr, "usage: pack_pictures PACK OUT [KEY]\n");
        return asks_for_help ? 0 : 2;
    }
    std::string const out = std::string(argv[2]) + "\\";
    unsigned long const key = argc > 3 ? std::strtoul(argv[3], nullptr, 0) : 0;

    QX::AsyncPackFile pack;
    if (!pack.open(argv[1], static_cast<unsigned short>(key))) {
        std::fprintf(stderr, "pack_pictures: %s: not a pack, or not with this key\n", argv[1]);
        return 1;
    }
    std::vector<Entry> entries;
    pack.enumerate(collect, &entries);
    if (entries.empty()) {
        std::fprintf(stderr, "pack_pictures: %s: holds nothing\n", argv[1]);
        return 1;
    }
    std::sort(entries.begin(), entries.end(), [](Entry const& a, Entry const& b) {
        return a.name < b.name;
    });

    std::printf(
        "%-26s %-12s %s %-12s%4s %8s %9s %9s %8s\n", "name", "type", "bits", "size", "mips",
        "bytes", "ms", "mips ms", "MB/s");
    bool const good = show_all(pack, entries, out);
    print_peak();
    return good ? 0 : 1;
}
