// Writes a binary file as Intel HEX the way a flash is dumped, without the flash.
#include <algorithm>
#include <cstdio>
#include <fstream>

#include "tavo/hexFileWriter.h"

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    std::ifstream in(argv[1], std::ios::binary);
    std::ofstream out(argv[2]);
    if (!in.is_open() || !out.is_open()) return 2;
    constexpr unsigned int kChunk = 255;
    unsigned char chunk[kChunk];
    g_extAddress = 0;
    for (unsigned int address = 0; in; address += kChunk) {
        in.read(reinterpret_cast<char*>(chunk), kChunk);
        const auto count = static_cast<unsigned char>(in.gcount());
        if (count == 0) break;
        HandleAddressOverflow(&out, address);
        writeToHexFile(&out, chunk, count, getLowBytes(address), HEX_DATA);
    }
    setEofHexFile(&out);
    return out ? 0 : 1;
}
