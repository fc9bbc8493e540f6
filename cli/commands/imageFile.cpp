#include "cli/commands/imageFile.h"

namespace cli {

void declareImage(Arguments& arguments, const char* name, const char* help, ImageArguments& image) {
    arguments.required(name, image.file, help);
    arguments.choice("--format", "FORMAT", image.format, {"auto", "hex", "srec", "bin", "elf"},
                     "what is read: auto (told by the content), hex, srec, bin, elf");
    arguments.address("--address", image.address, "of the first byte of a raw binary (default: 0)");
    arguments.flag("--strict", image.strict, "take only Intel HEX as the library's own reader does: types 00, 01, 04");
}

tavo::ReadOptions readOptions(const ImageArguments& image) {
    tavo::ReadOptions options;
    options.format = tavo::formatOf(image.format).value_or(tavo::Format::Automatic);
    options.address = image.address;
    options.strict = image.strict;
    return options;
}

tavo::Format writtenFormat(const std::string& path, const std::string& word) {
    const auto format = tavo::formatOf(word).value_or(tavo::Format::Automatic);
    return format == tavo::Format::Automatic ? tavo::formatToWrite(path) : format;
}

void requireFreeOutput(const Report& report) {
    if (!report.isJson()) return;
    throw tavo::Error(tavo::Problem::BadArgument, "the image and the JSON object cannot share standard output",
                      "name a file, or leave --json out");
}

std::string optionsText(const ImageArguments& image) {
    std::string text = image.format == "auto" ? "" : "--format " + image.format;
    if (image.address) text += (text.empty() ? "" : " ") + ("--address " + tavo::hexAddress(*image.address));
    return text;
}

std::string conversionText(const tavo::ImageFile& file) {
    std::string text;
    for (const auto& change : file.changes) text += (text.empty() ? "converted: " : "; ") + change;
    return text;
}

std::shared_ptr<const tavo::ImageFile> lookAtImage(Session& session, const ImageArguments& image,
                                                   const tavo::ReadOptions& options) {
    const auto file = session.images->read(image.file, options);
    if (session.hasPage()) session.job.image = tavo::imageFacts(inputName(image.file), *file);
    Json& result = session.report.result;
    result["format"] = tavo::formatName(file->format);
    result["changed"] = file->changes;
    result["sha256"] = file->isGood() ? Json(file->image.identity()) : Json(nullptr);
    result["file_sha256"] = file->sha256.empty() ? Json(nullptr) : Json(file->sha256);
    return file;
}

std::shared_ptr<const tavo::ImageFile> readImage(Session& session, const ImageArguments& image) {
    session.progress.begin("check");
    auto file = lookAtImage(session, image, readOptions(image));
    if (!file->isGood()) throw tavo::refusal(inputName(image.file), *file);
    if (!file->changes.empty()) session.report.note(conversionText(*file));
    session.progress.end(countText(file->image.touchedPages(), "page"));
    return file;
}

}  // namespace cli
