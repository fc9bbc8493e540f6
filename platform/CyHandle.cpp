#include "platform/cyusbserial.h"
#include "tavo/deviceAccess.h"

CyHandle::CyHandle(unsigned char deviceNumber, unsigned char interfaceNumber)
    : openStatus(CyOpen(deviceNumber, interfaceNumber, &handle)) {}

CyHandle::~CyHandle() {
    if (openStatus == CY_SUCCESS) CyClose(handle);
}
