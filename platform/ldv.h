// The LDV driver's functions: a message channel to one network interface.
#pragma once

extern "C" {

/// Statuses that callers tell apart. The others have names so that `tavo-util doctor` can explain
/// them; the library only knows LDV_OK, LDV_NO_MSG_AVAIL and "failed".
enum LDV_STATUS : unsigned short {
    LDV_OK = 0,
    LDV_NOT_FOUND = 1,          // no endpoint of that name
    LDV_ALREADY_OPEN = 2,       // another process holds it
    LDV_NOT_OPEN = 3,           // no such handle
    LDV_DEVICE_ERR = 4,         // the peer went away
    LDV_INVALID_DEVICE_ID = 5,  // the name is not usable
    LDV_NO_MSG_AVAIL = 6,       // nothing to read yet
    LDV_NO_RESOURCES = 8,       // no handle left
    LDV_INVALID_BUF_LEN = 9,    // a message longer than the buffer, or than the driver takes
    LDV_ACCESS_DENIED = 10,     // the endpoint exists; this user may not open it
};

/// Opens the device of that name; *handle is written on success only.
unsigned short ldv_open(const char* deviceName, short* handle);
/// Writes one message. Blocks only as long as the driver needs to take it.
unsigned short ldv_write(short handle, const void* message, unsigned short length);
/// Reads one message, without waiting: LDV_NO_MSG_AVAIL when there is none.
unsigned short ldv_read(short handle, void* message, unsigned short length);
unsigned short ldv_close(short handle);

}  // extern "C"
