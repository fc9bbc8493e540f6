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

tavo::ConfigurationBlock blockOf(const std::string& bytes) {
    tavo::ConfigurationBlock block{};
    if (bytes.size() != block.size()) throw py::value_error("a configuration block has 512 bytes");
    std::copy(bytes.begin(), bytes.end(), block.begin());
    return block;
}

}  // namespace

PYBIND11_MODULE(_core, module) {
    module.doc() = "What the package tavo_util stands on; programs use that.";
    module.attr("__version__") = TAVO_VERSION;
    py::register_exception_translator(&translate);
    binding::defineImage(module);
    binding::defineDevice(module);
    binding::definePage(module);
    module.def("configuration_fields",
               [](const std::string& block) { return binding::toPython(tavo::fieldsOf(blockOf(block))); });
    module.def("load_configuration",
               [](const std::string& path) { return binding::toPython(tavo::loadConfiguration(path)); });
    module.def("parse_range", [](const std::string& text, const std::string& layout) {
        return binding::toPython(
            tavo::parseRange(text, layout.empty() ? std::vector<tavo::NamedRange>() : tavo::readLayout(layout)));
    });
    module.def("use_simulated", &binding::useSimulated);
    py::module_::import("atexit").attr("register")(py::cpp_function(&binding::endAllRuns));
}
