// Everything libtavo-util-api.so offers.
#pragma once

#include "tavo/Configurator.h"
#include "tavo/LdvManager.h"
#include "tavo/LonAddress.h"
#include "tavo/SpiNand.h"
#include "tavo/bridge.h"
#include "tavo/cyboot.h"
#include "tavo/deviceAccess.h"
#include "tavo/firmware.h"
#include "tavo/flash.h"
#include "tavo/hexFileReader.h"
#include "tavo/hexFileWriter.h"
#include "tavo/neuron.h"
#include "tavo/status.h"
