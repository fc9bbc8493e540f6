#include <Poco/Thread.h>

#include "platform/cyusbserial.h"
#include "tavo/deviceAccess.h"

IOPin::IOPin(GPIO& gpio, unsigned char pin, VALUE initial) : gpio_(gpio), pin_(pin), initial_(initial) {}

IOPin::~IOPin() {
    // A failure has nowhere to go: the line keeps its level until the bridge is reset.
    if (!atRest_) drive(RELEASED);
}

CY_RETURN_STATUS IOPin::drive(VALUE value) const {
    if (gpio_.cyHandle->openStatus != CY_SUCCESS) return gpio_.cyHandle->openStatus;
    // The bridge's pins cannot be turned into inputs while it runs: a released line is a high one.
    const UINT8 level = value == LOW ? 0 : 1;
    if (level == 0) atRest_ = false;  // a failed request may have reached the pin
    const CY_RETURN_STATUS status = CySetGpioValue(gpio_.cyHandle->handle, pin_, level);
    if (level == 1 && status == CY_SUCCESS) atRest_ = true;
    return status;
}

CY_RETURN_STATUS IOPin::set(VALUE value) const {
    return drive(value);
}

CY_RETURN_STATUS IOPin::pulse(VALUE value, unsigned int milliseconds) const {
    if (const CY_RETURN_STATUS status = drive(value); status != CY_SUCCESS) return status;
    Poco::Thread::sleep(milliseconds);
    return drive(initial_);
}
