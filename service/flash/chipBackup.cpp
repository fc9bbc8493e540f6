#include "service/flash/chipBackup.h"

#include "service/store/keep.h"
#include "tavo/service/history.h"
#include "tavo/service/imageFile.h"

namespace tavo {
namespace {

constexpr const char* kOtherName = "choose another name: a backup is never overwritten";

}  // namespace

std::unique_ptr<NewFile> openChipBackup(const std::string& path) {
    if (path.empty()) return nullptr;
    dumpFormat(path);
    return std::make_unique<NewFile>(path, false, kOtherName);
}

ChipBackup::ChipBackup(const Device& device, const std::string& path, bool isKept, const Image& image)
    : file_(openChipBackup(path)), wanted_(path), isKept_(isKept) {
    if (isKept_) requireRoomFor(device.description(), image);
}

void ChipBackup::save(const Operation& op, const Image& contents, std::uint32_t chipSize) {
    sha256_ = contents.identity();
    if (file_) writeFile(op, contents);
    const bool isCutOff = op.state.flash == FlashState::Incomplete;
    const auto before = isCutOff ? interruptedRun(op.device.description()) : std::nullopt;
    if (file_ && isCutOff) {
        op.warn("this backup holds what a run that was cut off has left in the flash",
                before ? interruptedHint(*before) : "");
    }
    if (!isKept_) return;
    const bool isThere = before && tavo::isKept(before->backup);
    kept_ = isThere ? before->backup : keepBackup(op.device.description(), contents, chipSize);
}

void ChipBackup::writeFile(const Operation& op, const Image& contents) {
    const Format format = dumpFormat(wanted_);
    WriteOptions how;
    how.format = format;
    writeImage(contents, file_->descriptor(), wanted_, how);
    ReadOptions asWritten;
    asWritten.format = format;
    const ImageFile written = checkImage(file_->temporaryPath(), asWritten);
    if (!written.isGood() || written.image != contents) {
        op.fail(Error(Problem::FileSystem, wanted_ + " cannot be read back as it was written",
                      "is the disk sound? Try another folder"));
    }
    file_->commit();
    path_ = wanted_;
}

}  // namespace tavo
