// The image file that a command takes: in which format, and what is told of it.
#pragma once

#include <memory>
#include <string>

#include "cli/arguments/command.h"
#include "cli/running/session.h"
#include "tavo/service/imageFile.h"

namespace cli {

inline constexpr const char* kImageHelp = "Intel HEX, S-record, ELF, raw binary, gzip of them; - is standard input";

struct ImageArguments {
    std::string file;
    std::string format = "auto";
    std::optional<std::uint32_t> address;
    bool strict = false;
};

/// Declares the file under that name, and how it is read.
void declareImage(Arguments& arguments, const char* name, const char* help, ImageArguments& image);

tavo::ReadOptions readOptions(const ImageArguments& image);

/// Those of the options that tell what a file is, as on a command line; empty for one that tells that itself.
std::string optionsText(const ImageArguments& image);

/// The file, good or not; what is known of it is in the result.
std::shared_ptr<const tavo::ImageFile> lookAtImage(Session& session, const ImageArguments& image,
                                                   const tavo::ReadOptions& options);

/// The file, good, with one note of what was converted. Throws what refuses it.
std::shared_ptr<const tavo::ImageFile> readImage(Session& session, const ImageArguments& image);

/// How a file under that name is written: as the word says, "auto" by the name's ending.
tavo::Format writtenFormat(const std::string& path, const std::string& word);
inline const std::vector<std::string> kWrittenFormats{"auto", "hex", "srec", "bin"};

/// Standard output as a file to write an image to: not beside the object of --json.
void requireFreeOutput(const Report& report);

/// "converted: gzip unpacked; carriage returns taken away, 20 lines"; empty when nothing was.
std::string conversionText(const tavo::ImageFile& file);

}  // namespace cli
