// tavo_util._sim: the simulated interfaces of this process.
#include <dlfcn.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>

#include "sim/rig.h"

namespace py = pybind11;

namespace {

unsigned inUse = 0;

void setUp(const std::vector<std::string>& descriptions) {
    // The first rig's reset takes the others off the bus: what this gives is all there is.
    unsigned index = 0;
    for (const std::string& description : descriptions) sim::rig(index++).reset(sim::parseOptions(description));
    inUse = index;
}

void takeOff() {
    sim::rig(0).reset();  // a board in memory, unplugged: nothing is attached
    sim::rig(0).unplug();
    inUse = 0;
}

sim::Rig& rig(unsigned index) {
    if (index >= inUse) throw py::index_error("this simulated interface has been put away");
    return sim::rig(index);
}

sim::Properties neuron(unsigned index) {
    sim::Properties all;
    rig(index).board().neuron.save(all);
    return all;
}

void setNeuron(unsigned index, const sim::Properties& knobs) {
    sim::Board& board = rig(index).board();
    board.neuron.load(knobs);
    board.save();
}

std::string libraryFile() {
    Dl_info where{};
    if (dladdr(reinterpret_cast<const void*>(&sim::parseOptions), &where) == 0) return {};
    return where.dli_fname;
}

}  // namespace

PYBIND11_MODULE(_sim, module) {
    module.doc() = "What tavo_util.sim stands on.";
    module.def("set_up", &setUp);
    module.def("take_off", &takeOff);
    module.def("library_file", &libraryFile);
    module.def("port_path", [](unsigned index) { return rig(index).board().portPath(); });
    module.def("folder", [](unsigned index) { return rig(index).board().store.folder; });
    module.def("journal", [](unsigned index) { return rig(index).journal; });
    module.def("clear_journal", [](unsigned index) { rig(index).journal.clear(); });
    module.def("keep_journal", [](unsigned index, bool keep) { rig(index).keepJournal = keep; });
    module.def("calls", [](unsigned index, const std::string& function) { return rig(index).calls(function); });
    module.def("fail", [](unsigned index, const std::string& function, unsigned nth, int status, bool andLater) {
        andLater ? rig(index).failFrom(function, nth, status) : rig(index).fail(function, nth, status);
    });
    module.def("lose_program", [](unsigned index, unsigned nth) { rig(index).loseProgram(nth); });
    module.def("lose_erase", [](unsigned index, unsigned nth) { rig(index).loseErase(nth); });
    module.def("flip_read_bit", [](unsigned index, unsigned nth, unsigned byte, unsigned bit) {
        rig(index).flipReadBit(nth, byte, bit);
    });
    module.def("clear_faults", [](unsigned index) { rig(index).clearFaults(); });
    module.def("unplug", [](unsigned index) { rig(index).unplug(); });
    module.def("plug", [](unsigned index) { rig(index).plug(); });
    module.def("leftovers", [](unsigned index) { return rig(index).leftovers(); });
    module.def("violations", [](unsigned index) { return rig(index).violations(); });
    module.def("neuron", &neuron);
    module.def("set_neuron", &setNeuron);
    // What the chip holds, past everything that is simulated between.
    module.def("flash", [](unsigned index) {
        const auto bytes = rig(index).board().store.flash.bytes();
        return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    });
}
