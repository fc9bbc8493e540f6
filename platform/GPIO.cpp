#include "tavo/deviceAccess.h"

GPIO::GPIO(const DeviceInfo& deviceInfo)
    : cyHandle(new CyHandle(deviceInfo.scb0DeviceNumber, deviceInfo.scb0InterfaceNumber)) {}

GPIO::~GPIO() {
    delete cyHandle;
}
