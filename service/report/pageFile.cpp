#include "service/report/page.h"
#include "tavo/service/report.h"

namespace tavo {
namespace {

constexpr const char* kOtherName = "choose another name: only a page of this kind is replaced";

/// An earlier page: nobody's image or notes.
bool isPage(const std::string& path) {
    const std::string head = kPageHead;
    std::string begin(head.size(), '\0');
    try {
        const Descriptor file = openForReading(path);
        return readSome(file.get(), begin.data(), begin.size(), path) == head.size() && begin == head;
    } catch (const Error&) {  // why it cannot be written is told by the attempt
        return false;
    }
}

}  // namespace

JobPageFile::JobPageFile(const std::string& path) : path_(path), file_(path, isPage(path), kOtherName) {}

void JobPageFile::write(const JobReport& report) {
    const std::string page = jobPage(report);
    writeAll(file_.descriptor(), page.data(), page.size(), path_);
    file_.commit();
}

}  // namespace tavo
