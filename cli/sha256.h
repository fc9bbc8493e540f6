#pragma once

#include <Poco/SHA2Engine.h>

#include <string>

namespace cli {

/// SHA-256 over data that comes in pieces.
class Sha256 {
public:
    void add(const void* data, std::size_t size) { engine_.update(data, size); }
    /// 64 lower-case digits. Once.
    std::string text() { return Poco::DigestEngine::digestToHex(engine_.digest()); }

private:
    Poco::SHA2Engine engine_{Poco::SHA2Engine::SHA_256};
};

}  // namespace cli
