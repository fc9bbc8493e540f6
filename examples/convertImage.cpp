// Writes an image in another format: no device is touched.
//
//   convertImage firmware.elf firmware.hex
#include <fcntl.h>
#include <tavo/service/files.h>
#include <tavo/service/imageFile.h>

#include <iostream>

int main(int argc, char** argv) try {
    if (argc != 3) throw tavo::Error(tavo::Problem::BadArgument, "usage: convertImage IN OUT");
    const tavo::ImageFile in = tavo::checkImage(argv[1]);  // Intel HEX, S-record, ELF, .bin; gzip of each
    for (const tavo::ImageFault& fault : in.faults) std::cerr << faultText(fault) << " - " << fault.hint << '\n';
    if (!in.isGood()) return 1;

    tavo::WriteOptions how;
    how.format = tavo::formatToWrite(argv[2]);      // by the ending of the name
    tavo::NewFile out(argv[2], /*replace=*/false);  // appears when it is whole
    writeImage(in.image, out.descriptor(), argv[2], how);
    out.commit();
    std::cout << formatName(in.format) << ", " << in.image.byteCount() << " bytes, sha256 " << in.image.identity()
              << '\n';
    return 0;
} catch (const tavo::Error& error) {
    std::cerr << error.what() << '\n' << error.hint << '\n';
    return 1;
}
