// tavo_util._core: the service layer as the package tavo_util uses it.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "python/core/convert.h"
#include "python/core/device.h"
#include "python/core/image.h"
#include "python/core/page.h"
#include "python/core/running.h"
#include "python/core/seam.h"
#include "tavo/service/range.h"
#include "tavo/service/simulated.h"
#include "tavo/service/text.h"

namespace py = pybind11;

namespace {

void translate(std::exception_ptr thrown) {
    try {
        if (thrown) std::rethrow_exception(thrown);
    } catch (const tavo::Error& error) {
        const py::object raised = binding::toPython(error);
        PyErr_SetObject(py::type::handle_of(raised).ptr(), raised.ptr());
    }
}

}  // namespace

PYBIND11_MODULE(_core, module) {
    module.doc() = "What the package tavo_util stands on; programs use that.";
    module.attr("__version__") = TAVO_VERSION;
    py::register_exception_translator(&translate);
    binding::defineImage(module);
    binding::defineDevice(module);
    binding::definePage(module);
    module.def("parse_range", [](const std::string& text, const std::string& layout) {
        return binding::toPython(
            tavo::parseRange(text, layout.empty() ? std::vector<tavo::NamedRange>() : tavo::readLayout(layout)));
    });
    module.def("parse_number", &tavo::parseNumber);
    module.def("load_layout", [](const std::string& path) { return binding::tupleOf(tavo::readLayout(path)); });
    module.def("aligned_ranges", [](std::uint32_t first, std::uint32_t last, std::uint32_t step) {
        if (step == 0) throw py::value_error("multiples of 0 bytes do not tell addresses");
        return binding::tupleOf(tavo::alignedRanges({first, last}, step));
    });
    module.def("printable", [](const std::string& shown) { return binding::text(tavo::printable(shown)); });
    module.def("status_counters", [] {
        py::list counters;
        for (std::size_t i = 0; i < tavo::kStatusCounters; ++i) {
            counters.append(binding::toPython(tavo::statusCounter(i)));
        }
        return py::tuple(counters);
    });
    module.def("simulated_environment",
               [](const std::vector<std::string>& specs) { return tavo::simulatedEnvironment(specs); });
    module.def("use_simulated", &binding::useSimulated);
    py::module_::import("atexit").attr("register")(py::cpp_function(&binding::endAllRuns));
}
