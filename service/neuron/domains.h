// The domain table.
#pragma once

#include "tavo/service/neuron.h"

namespace tavo {

/// The public one, for a run that the log calls by another name.
std::string writeDomainTable(Device& device, const DomainTable& before, const DomainTable& wanted,
                             const DomainWriteOptions& options, const Control& control, const char* action);

}  // namespace tavo
