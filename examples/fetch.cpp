// fetch.cpp - fetches one page over plain HTTP/1.1 into a file, or only counts its bytes.
//
//   fetch HOST PORT PATH [FILE]
//
// Exit codes: 0 good, 1 failed, 2 wrong arguments. Without arguments it tells how to call it.
#include "qx/files/file_streams.h"
#include "qx/net/web_fetch.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr unsigned int progress_step = 16u << 20;

struct Page {
    QX::FileOut file;
    bool kept = false;  // whether there is a file
    bool whole = true;  // every byte written
    bool begun = false;
    unsigned int announced = 0;
    unsigned int received = 0;
};

void announce(Page& page, unsigned int size) {
    if (!page.begun) page.announced = size;
    page.begun = true;
}

// Called with null for the size announced, with each piece, and with null for the size that came.
bool take(char* data, unsigned int size, void* user) {
    Page& page = *static_cast<Page*>(user);
    if (!data) {
        announce(page, size);
        return true;
    }
    if (page.kept && page.file.write(data, size) != size) page.whole = false;
    if ((page.received + size) / progress_step != page.received / progress_step)
        std::fprintf(stderr, "fetch: %u MiB\n", (page.received + size) >> 20);
    page.received += size;
    return true;
}

int report(Page const& page, int result) {
    if (result > 0) std::fprintf(stderr, "fetch: sockets error %d\n", result);
    if (result < -1) std::fprintf(stderr, "fetch: the server answered %d\n", -result);
    if (result == -1) std::fprintf(stderr, "fetch: the server does not speak HTTP/1.1\n");
    if (result == 0 && !page.begun) std::fprintf(stderr, "fetch: the server closed\n");
    if (!page.whole) std::fprintf(stderr, "fetch: the file could not be written\n");
    if (result != 0 || !page.begun || !page.whole) return 1;
    std::printf("fetch: %u bytes, %u announced\n", page.received, page.announced);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 && argc != 5) {
        std::printf("usage: fetch HOST PORT PATH [FILE]\n");
        return argc == 1 ? 0 : 2;
    }
    Page page;
    page.kept = argc == 5;
    if (page.kept && !page.file.open(argv[4], false, false)) {
        std::fprintf(stderr, "fetch: %s cannot be written\n", argv[4]);
        return 1;
    }
    static char buffer[64 * 1024];
    int const result = QX::get_http_page(
        buffer, sizeof buffer, argv[1], static_cast<unsigned short>(std::atoi(argv[2])), argv[3],
        take, &page);
    if (page.kept && !page.file.close()) page.whole = false;
    return report(page, result);
}
