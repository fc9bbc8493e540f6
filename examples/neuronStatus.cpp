// Shows the Neuron's state and counters, and makes it configured when it is not.
//
//   neuronStatus DEVICE
#include <tavo/service/neuron.h>
#include <tavo/service/text.h>
#include <tavo/service/watch.h>

#include <iostream>

int main(int argc, char** argv) try {
    if (argc != 2) throw tavo::Error(tavo::Problem::BadArgument, "usage: neuronStatus DEVICE");
    tavo::Device device = tavo::Device::open(argv[1]);
    std::cout << "Neuron ID:  " << tavo::neuronIdText(tavo::readNeuronId(device)) << '\n';
    const NeuronState status = tavo::readStatus(device);
    std::cout << "node state: " << tavo::nodeStateName(status.nodeState) << '\n';
    const tavo::Counts counts = tavo::countsOf(status);
    for (std::size_t i = 0; i < counts.size(); ++i) {
        std::cout << tavo::statusCounter(i).label << ": " << counts[i] << '\n';
    }
    if (status.nodeState == tavo::nodeStateOf(tavo::Mode::Configured)) return 0;

    const tavo::ModeChange change = tavo::setMode(device, tavo::Mode::Configured);  // by message; read back
    std::cout << "now:        " << (change.after ? tavo::nodeStateName(change.after->nodeState) : "no answer") << '\n';
    tavo::reset(device);  // by its reset line: boots with the new state
    return 0;
} catch (const tavo::Error& error) {
    std::cerr << error.what() << "\nthe device: " << error.state.text() << "\nwhat next:  " << error.hint << '\n';
    return 1;
}
