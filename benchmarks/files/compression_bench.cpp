// compression_bench.cpp - compression and expansion beside the compression library called directly,
// and the overlapped load beside its reads alone and its expansion alone.
#include "benchmarks/bench.h"

#include "qx/base/windows.h"

#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#if defined(QX_RIVAL_LIBDEFLATE)
#include <libdeflate.h>
#endif

#include "qx/files/async_in.h"
#include "qx/files/compression.h"
#include "tests/files/late_completion.h"

namespace {

constexpr unsigned int block = 1048576;
constexpr unsigned int corpus_size = 3 * block;

unsigned int size_of(std::string const& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

// Words of a made-up language, and this program's own code.
std::string make_corpus(char const* program) {
    std::mt19937 random(5);
    std::string words[500], corpus;
    for (std::string& word : words) {
        for (unsigned int n = random() % 8 + 2; n; --n)
            word += static_cast<char>('a' + random() % 26);
    }
    while (corpus.size() < corpus_size / 2) {
        double const rank = static_cast<double>(random() % 1000) / 1000;
        corpus +=
            words[static_cast<unsigned int>(rank * rank * 500)] + (random() % 9 ? " " : ".\n");
    }
    std::string code(corpus_size - corpus.size(), '\0');
    std::FILE* const file = std::fopen(program, "rb");
    if (!file) std::abort();
    code.resize(std::fread(code.data(), 1, code.size(), file));
    std::fclose(file);
    corpus += code;
    while (corpus.size() < corpus_size) corpus += static_cast<char>(random() % 40 + random() % 3);
    return corpus;
}

unsigned int zlib_compress(std::string& dest, std::string& source, int level) {
    z_stream stream = {};
    deflateInit(&stream, level);
    stream.next_in = reinterpret_cast<Bytef*>(source.data());
    stream.avail_in = size_of(source);
    stream.next_out = reinterpret_cast<Bytef*>(dest.data());
    stream.avail_out = size_of(dest);
    deflate(&stream, Z_FINISH);
    deflateEnd(&stream);
    return stream.total_out;
}

unsigned int zlib_expand(std::string& dest, std::string& source) {
    z_stream stream = {};
    inflateInit(&stream);
    stream.next_in = reinterpret_cast<Bytef*>(source.data());
    stream.avail_in = size_of(source);
    stream.next_out = reinterpret_cast<Bytef*>(dest.data());
    stream.avail_out = size_of(dest);
    inflate(&stream, Z_FINISH);
    inflateEnd(&stream);
    return stream.total_out;
}

// The library's own example of a loop over files, with blocks as large as ours.
unsigned int zlib_file(
    std::string const& to, std::string const& from, z_stream& stream, int (*step)(z_stream*, int)) {
    std::FILE* const in = std::fopen(from.c_str(), "rb");
    std::FILE* const out = std::fopen(to.c_str(), "wb");
    std::string input(block, '\0'), output(block, '\0');
    int result = Z_OK;
    while (result != Z_STREAM_END) {
        stream.avail_in = static_cast<unsigned int>(std::fread(input.data(), 1, block, in));
        stream.next_in = reinterpret_cast<Bytef*>(input.data());
        int const flush = std::feof(in) ? Z_FINISH : Z_NO_FLUSH;
        do {
            stream.avail_out = block;
            stream.next_out = reinterpret_cast<Bytef*>(output.data());
            result = step(&stream, flush);
            std::fwrite(output.data(), 1, block - stream.avail_out, out);
        } while (stream.avail_out == 0);
    }
    std::fclose(in);
    std::fclose(out);
    return stream.total_out;
}

void zlib_compress_file(std::string const& to, std::string const& from, int level) {
    z_stream stream = {};
    deflateInit(&stream, level);
    bench::keep(zlib_file(to, from, stream, deflate));
    deflateEnd(&stream);
}

void zlib_expand_file(std::string const& to, std::string const& from) {
    z_stream stream = {};
    inflateInit(&stream);
    bench::keep(zlib_file(to, from, stream, inflate));
    inflateEnd(&stream);
}

void measure_compressing(bench::Table const& table, std::string& corpus) {
    std::string packed(corpus.size(), '\0');
    for (int const level : {1, 6, 9}) {
        std::vector<bench::Contender> contenders = {
            {"QXLibs",
             [&] {
                 bench::keep(QX::compress(
                     packed.data(), size_of(packed), corpus.data(), size_of(corpus), level));
             }},
            {"zlib", [&] { bench::keep(zlib_compress(packed, corpus, level)); }},
        };
#if defined(QX_RIVAL_LIBDEFLATE)
        auto const deflater = libdeflate_alloc_compressor(level);
        contenders.push_back(
            {"libdeflate", [&] {
                 bench::keep(libdeflate_zlib_compress(
                     deflater, corpus.data(), corpus.size(), packed.data(), packed.size()));
             }});
#endif
        std::string const name = "compress a byte, level " + std::to_string(level);
        table.row(name.c_str(), static_cast<double>(corpus.size()), contenders);
#if defined(QX_RIVAL_LIBDEFLATE)
        libdeflate_free_compressor(deflater);
#endif
    }
}

void measure_expanding(bench::Table const& table, std::string& corpus) {
    std::string packed(corpus.size(), '\0'), text(corpus.size(), '\0');
    packed.resize(zlib_compress(packed, corpus, 6));
    std::vector<bench::Contender> contenders = {
        {"QXLibs",
         [&] {
             if (QX::decompress(text.data(), size_of(text), packed.data(), size_of(packed)) !=
                 size_of(corpus))
                 std::abort();
         }},
        {"zlib", [&] { bench::keep(zlib_expand(text, packed)); }},
    };
#if defined(QX_RIVAL_LIBDEFLATE)
    auto const inflater = libdeflate_alloc_decompressor();
    contenders.push_back({"libdeflate", [&] {
                              libdeflate_zlib_decompress(
                                  inflater, packed.data(), packed.size(), text.data(), text.size(),
                                  nullptr);
                          }});
#endif
    table.row("expand a byte", static_cast<double>(corpus.size()), contenders);
#if defined(QX_RIVAL_LIBDEFLATE)
    libdeflate_free_decompressor(inflater);
#endif
}

void measure_files(
    bench::Table const& table, std::string const& folder, std::string const& corpus) {
    std::string const source = folder + "source", packed = folder + "packed",
                      back = folder + "back";
    std::FILE* const file = std::fopen(source.c_str(), "wb");
    std::fwrite(corpus.data(), 1, corpus.size(), file);
    std::fclose(file);
    auto const bytes = static_cast<double>(corpus.size());
    for (int const level : {1, 6, 9}) {
        std::string const name = "compress a file's byte, level " + std::to_string(level);
        table.row(
            name.c_str(), bytes,
            {{"QXLibs", [&] { bench::keep(QX::compress(packed.c_str(), source.c_str(), level)); }},
             {"zlib and stdio", [&] { zlib_compress_file(packed, source, level); }}});
    }
    table.row(
        "expand a file's byte", bytes,
        {{"QXLibs", [&] { bench::keep(QX::decompress(back.c_str(), packed.c_str())); }},
         {"zlib and stdio", [&] { zlib_expand_file(back, packed); }}});
}

struct alignas(4096) Halves {
    char bytes[2][131072];
};

Halves halves;

void read_all(std::string const& name) {
    QX::AsyncIn file(name.c_str());
    unsigned int const size = file.size();
    for (unsigned int at = 0; at < size; at += sizeof halves.bytes[0])
        file.read(halves.bytes[0], at, sizeof halves.bytes[0], nullptr, nullptr);
}

// From reads that are quicker than the expansion of a block to slower ones. Ahead of the longer of
// the two by 0.91 and more is what the overlap promises.
void measure_load(bench::Table const& table, std::string const& name, std::string& corpus) {
    std::string packed(corpus.size(), '\0'), text(corpus.size(), '\0');
    packed.resize(zlib_compress(packed, corpus, 9));
    for (unsigned int const delay : {3u, 5u, 20u}) {
        std::string const row = "load a file, each read late by " + std::to_string(delay) + " ms";
        table.row(
            row.c_str(), 1,
            {{"QXLibs",
              [&] {
                  test::LateCompletion const late(delay);
                  if (QX::decompress(
                          text.data(), size_of(text), name.c_str(), halves.bytes,
                          sizeof halves.bytes[0], nullptr, nullptr) != size_of(corpus))
                      std::abort();
              }},
             {"its reads alone",
              [&] {
                  test::LateCompletion const late(delay);
                  read_all(name);
              }},
             {"its expansion alone", [&] { bench::keep(zlib_expand(text, packed)); }}});
    }
}

}  // namespace

int main(int, char** argv) {
    std::string corpus = make_corpus(argv[0]);
    std::string const folder =
        (std::filesystem::temp_directory_path() / "qx_compression_bench").string() + "\\";
    std::filesystem::create_directories(folder);
    bench::Table const table("compression");
    measure_compressing(table, corpus);
    measure_expanding(table, corpus);
    measure_files(table, folder, corpus);
    measure_load(table, folder + "packed", corpus);
    std::filesystem::remove_all(folder);
}
