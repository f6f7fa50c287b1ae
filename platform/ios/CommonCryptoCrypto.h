#pragma once

#include "Platform/Crypto.h"

namespace tactora::ios {

// AES-256-CBC, HMAC-SHA-256 and PBKDF2 from CommonCrypto; random bytes from the Security
// framework.
class CommonCryptoCrypto final : public Crypto {
public:
    CryptoStatus makeCipher(Operation operation, std::span<const std::uint8_t, keySize> key,
                            std::span<const std::uint8_t, blockSize> iv, std::unique_ptr<BlockCipher>& cipher) override;
    CryptoStatus makeHmac(std::span<const std::uint8_t> key, std::unique_ptr<Hmac>& hmac) override;
    CryptoStatus deriveKey(std::span<const std::uint8_t> password, std::span<const std::uint8_t> salt, unsigned rounds,
                           std::span<std::uint8_t> derived) override;
    bool randomBytes(std::span<std::uint8_t> bytes) override;
};

}  // namespace tactora::ios
