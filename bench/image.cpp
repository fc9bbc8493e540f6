// What `check` and `convert` do with an image file, as a whole process.
#include <cstdio>
#include <cstring>
#include <exception>

#include "tavo/service/files.h"
#include "tavo/service/imageFile.h"

namespace {

void check(const char* path) {
    const auto file = tavo::checkImage(path);
    if (!file.isGood()) throw tavo::refusal(path, file);
    std::printf("%u pages, %zu ranges, sha256 %s\n", file.image.touchedPages(), file.image.ranges().size(),
                file.sha256.c_str());
}

void convert(const char* in, const char* out) {
    tavo::ReadOptions reading;
    reading.keepPieces = true;
    reading.digest = false;
    auto file = tavo::checkImage(in, reading);
    if (!file.isGood()) throw tavo::refusal(in, file);
    tavo::WriteOptions writing;
    writing.format = tavo::formatByName(out);
    writing.pieces = std::move(file.pieces);
    tavo::NewFile made(out, true);
    const auto written = tavo::writeImage(file.image, made.descriptor(), out, writing);
    made.commit();
    std::printf("%u pages, sha256 %s\n", file.image.touchedPages(), written.sha256.c_str());
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc == 3 && std::strcmp(argv[1], "check") == 0) return check(argv[2]), 0;
    if (argc == 4 && std::strcmp(argv[1], "convert") == 0) return convert(argv[2], argv[3]), 0;
    std::fprintf(stderr, "usage: bench-image check FILE | convert IN OUT\n");
    return 2;
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
