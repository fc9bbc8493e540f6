// Finds and opens the endpoint that an LDV device name stands for.
#pragma once

namespace ldv {

struct Endpoint {
    int file = -1;
    bool isSocket = false;
    explicit operator bool() const { return file >= 0; }
};

/// Opens `<folder>/<name>` without waiting, the folder being TAVO_LDV_DIR or /run/tavo/ldv.
/// @return an LDV_STATUS; endpoint is written on LDV_OK only and then owns the file.
unsigned short openEndpoint(const char* name, Endpoint& endpoint);

}  // namespace ldv
