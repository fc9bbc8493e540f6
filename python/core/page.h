#pragma once

#include <pybind11/pybind11.h>

namespace binding {

void definePage(pybind11::module_& module);

}  // namespace binding
