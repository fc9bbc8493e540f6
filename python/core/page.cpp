// The page for the file of a job.
#include <pybind11/stl.h>

#include <cstring>

#include "python/core/convert.h"
#include "python/core/device.h"
#include "python/core/image.h"
#include "python/core/page.h"
#include "tavo/service/report.h"

namespace binding {
namespace {

using Facts = std::vector<std::pair<std::string, std::string>>;
using Message = std::tuple<bool, std::string, std::string, std::vector<std::string>>;
/// Seconds since the begin; the status as the Neuron sends it, none without an answer; why there was none.
using Look = std::tuple<double, std::optional<std::string>, std::string>;

std::vector<tavo::JobFact> factsOf(const Facts& pairs) {
    std::vector<tavo::JobFact> facts;
    for (const auto& [name, value] : pairs) facts.push_back({name, value});
    return facts;
}

tavo::JobResult resultOf(const std::string& word) {
    if (word == "done") return tavo::JobResult::Done;
    if (word == "differs") return tavo::JobResult::Differs;
    if (word == "failed") return tavo::JobResult::Failed;
    throw py::value_error("result: \"done\", \"differs\" or \"failed\"");
}

void show(tavo::JobReport& report, const PyImage& image) {
    tavo::ImageFile unnamed;
    if (image.file() == nullptr) unnamed.image = image.image();
    report.image = tavo::imageFacts(image.name(), image.file() != nullptr ? *image.file() : unnamed);
}

std::chrono::system_clock::duration ticks(double seconds) {
    return std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::duration<double>(seconds));
}

tavo::StatusHistory historyOf(double started, const std::vector<Look>& looks) {
    tavo::StatusHistory history;
    history.started = std::chrono::system_clock::time_point(ticks(started));
    for (const auto& [seconds, bytes, why] : looks) {
        std::optional<NeuronState> status;
        if (bytes) {
            if (bytes->size() != sizeof(NeuronState)) throw py::value_error("a status has 16 bytes");
            std::memcpy(&status.emplace(), bytes->data(), sizeof(NeuronState));
        }
        history.add(seconds, status, why);
    }
    return history;
}

std::string page(const std::string& title, const std::string& tool, const std::string& result,
                 const std::string& summary, const std::string& state, double seconds, const Facts& device,
                 const Facts& work, const std::vector<Message>& messages, const PyImage* image, const PyImage* contents,
                 std::uint32_t chipSize, bool isComplete,
                 const std::optional<std::pair<double, std::vector<Look>>>& watch) {
    tavo::JobReport report;
    report.title = title;
    report.tool = tool;
    report.result = resultOf(result);
    report.summary = summary;
    report.state = state;
    report.seconds = seconds;
    report.started -= ticks(seconds);
    report.device = factsOf(device);
    report.work = factsOf(work);
    for (const auto& [isError, text, hint, details] : messages) {
        report.messages.push_back({isError, text, hint, details});
    }
    if (watch) report.watch = historyOf(watch->first, watch->second);
    if (image != nullptr) show(report, *image);
    if (image != nullptr && contents != nullptr) {
        report.comparison = tavo::compare(image->image(), contents->image(), chipSize, false);
        report.map = tavo::mapComparison(image->image(), contents->image(), chipSize);
        report.isComplete = isComplete;
    }
    return tavo::jobPage(report);
}

}  // namespace

void definePage(py::module_& module) {
    module.def("job_page", &page);
}

}  // namespace binding
