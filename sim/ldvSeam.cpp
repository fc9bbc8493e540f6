// The LDV driver's functions, answered by the simulated Neuron.
#include "platform/ldv.h"
#include "sim/seam.h"

using sim::Function;
using sim::Seam;

#define TAVO_SEAM extern "C" TAVO_SIM_API

TAVO_SEAM unsigned short ldv_open(const char* deviceName, short*) {
    const auto line = [&] { return sim::text("ldv_open %s", deviceName); };
    return static_cast<unsigned short>(Seam::call(Function::ldv_open, line, [](auto&) { return LDV_NOT_FOUND; }));
}

TAVO_SEAM unsigned short ldv_write(short, const void* message, unsigned short length) {
    const auto line = [&] { return "ldv_write" + sim::hexBytes(message, length, length); };
    return static_cast<unsigned short>(Seam::call(Function::ldv_write, line, [](auto&) { return LDV_NOT_OPEN; }));
}

TAVO_SEAM unsigned short ldv_read(short, void*, unsigned short) {
    const auto line = [] { return std::string("ldv_read"); };
    return static_cast<unsigned short>(Seam::call(Function::ldv_read, line, [](auto&) { return LDV_NOT_OPEN; }));
}

TAVO_SEAM unsigned short ldv_close(short) {
    const auto line = [] { return std::string("ldv_close"); };
    return static_cast<unsigned short>(Seam::call(Function::ldv_close, line, [](auto&) { return LDV_NOT_OPEN; }));
}
