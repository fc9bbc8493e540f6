// An image as C holds it.
#pragma once

#include <string>

#include "service/c/boundary.h"
#include "tavo/service/files.h"
#include "tavo/service/imageFile.h"

struct tavo_image {
    tavo::ImageFile file;
    std::string name;  // of the file that it was read from
    bool isAsRead = false;

    /// For messages that name a line of the file; null when it is not what the file holds.
    const tavo::ImageFile* origin() const { return isAsRead ? &file : nullptr; }
};

namespace tavo::c {

inline const Image& imageOf(const tavo_image* image) {
    return given(image, "image").file.image;
}

/// An image file that is being made: the name is taken at once, the bytes come later.
class ImageWriter {
public:
    /// Throws Error: FileSystem, or BadArgument for an option that makes no sense.
    /// @param first  where a raw binary begins unless the options say so
    ImageWriter(const char* path, const tavo_write_options* options, std::uint32_t first = 0);
    tavo_written_file write(const Image& image);

private:
    std::string path_;
    WriteOptions how_;
    NewFile file_;
};

}  // namespace tavo::c
