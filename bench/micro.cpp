// What the library itself costs, above the seam: the functions of the bridge are answered here at once.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "platform/cyusbserial.h"
#include "tavo/SpiNand.h"
#include "tavo/hexFileReader.h"

#define ANSWERED_HERE extern "C" __attribute__((visibility("default")))

ANSWERED_HERE CY_RETURN_STATUS CyOpen(UINT8, UINT8, CY_HANDLE* handle) {
    static int interface;
    *handle = &interface;
    return CY_SUCCESS;
}
ANSWERED_HERE CY_RETURN_STATUS CyClose(CY_HANDLE) {
    return CY_SUCCESS;
}
// What goes out comes back: an idle chip, and a page that holds what it should.
ANSWERED_HERE CY_RETURN_STATUS CySpiReadWrite(CY_HANDLE, CY_DATA_BUFFER* in, CY_DATA_BUFFER* out, UINT32) {
    if (in != nullptr) std::copy(out->buffer, out->buffer + in->length, in->buffer);
    return CY_SUCCESS;
}

namespace {

void writePage(benchmark::State& state) {
    const CyHandle handle(0, 0);
    const SpiNand flash(handle);
    unsigned char page[260] = {}, readBack[260];
    for (auto _ : state) {
        if (flash.writePage(0, page, readBack, 256) != CY_SUCCESS) state.SkipWithError("page not written");
    }
}
BENCHMARK(writePage);

void readChunk(benchmark::State& state) {
    const CyHandle handle(0, 0);
    const SpiNand flash(handle);
    unsigned char chunk[259];
    for (auto _ : state) {
        if (flash.readPage(0, chunk, sizeof chunk) != CY_SUCCESS) state.SkipWithError("chunk not read");
    }
}
BENCHMARK(readChunk);

// A record, and its share of a page; the argument is its byte count.
void parseRecord(benchmark::State& state) {
    const auto size = static_cast<unsigned>(state.range(0));
    std::vector<std::string> lines;
    for (unsigned address = 0; address + size <= 0x10000; address += size) {
        char header[16];
        std::snprintf(header, sizeof header, ":%02X%04X00", size, address);
        const unsigned sum = size + (address >> 8) + address + size * 0xA5;
        lines.emplace_back(header);
        for (unsigned i = 0; i < size; ++i) lines.back() += "A5";
        std::snprintf(header, sizeof header, "%02X", -sum & 0xFF);
        lines.back() += header;
    }
    IntelHexParser parser(256);
    std::size_t next = 0;
    for (auto _ : state) {
        parser.ParseRecord(lines[next].c_str());
        while (parser.isPageReady()) benchmark::DoNotOptimize(parser.FetchPage());
        next = next + 1 < lines.size() ? next + 1 : 0;
    }
    state.SetBytesProcessed(state.iterations() * size);
}
BENCHMARK(parseRecord)->Arg(16)->Arg(32)->Arg(255);

}  // namespace

BENCHMARK_MAIN();
