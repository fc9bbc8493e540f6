#pragma once

#include <nettle/sha2.h>

#include <cstdint>
#include <string>

namespace tavo {

/// SHA-256 over data that comes in pieces.
class Sha256 {
public:
    Sha256() { sha256_init(&context_); }
    void add(const void* data, std::size_t size) {
        sha256_update(&context_, size, static_cast<const std::uint8_t*>(data));
    }
    /// 64 lower-case digits; begins anew.
    std::string text() {
        std::uint8_t digest[SHA256_DIGEST_SIZE];
        sha256_digest(&context_, sizeof digest, digest);
        std::string digits;
        for (const std::uint8_t byte : digest) {
            digits += "0123456789abcdef"[byte >> 4];
            digits += "0123456789abcdef"[byte & 0xF];
        }
        return digits;
    }

private:
    sha256_ctx context_;
};

}  // namespace tavo
