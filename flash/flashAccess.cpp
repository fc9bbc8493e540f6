#include "flash/flashAccess.h"

#include <Poco/Thread.h>

#include "common/neuronPins.h"

CY_RETURN_STATUS FlashAccess::take(long settleMs) {
    if (const auto result = configurator_.setupSpi(true); result != CY_SUCCESS) return result;
    gpio_.emplace(configurator_.deviceInfo);
    reset_.emplace(*gpio_, kNeuronResetPin, IOPin::HIGH);
    if (const auto result = reset_->set(IOPin::LOW); result != CY_SUCCESS) return result;
    Poco::Thread::sleep(settleMs);
    return CY_SUCCESS;
}
