// The cryptographic primitives beneath the encrypted script format, shaped after CommonCrypto so
// that the device port is a thin translation: a cipher object per CCCryptorRef, an HMAC object per
// CCHmacContext, CCKeyDerivationPBKDF and SecRandomCopyBytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace tactora {

// The outcome of a crypto call. The values are CommonCrypto's CCCryptorStatus, so the device port
// hands its statuses through unchanged and the host port reports the same ones.
enum class CryptoStatus : std::int32_t {
    success = 0,
    paramError = -4300,
    bufferTooSmall = -4301,
    memoryFailure = -4302,
    alignmentError = -4303,  // decryption input was not a whole number of blocks
    decodeError = -4304,     // the padding of the last block was not valid
    unimplemented = -4305,
};

// AES-256 in CBC mode with PKCS#7 padding, in one direction, fed in pieces.
class BlockCipher {
public:
    virtual ~BlockCipher() = default;

    // Appends to `output` what `input` completes (CCCryptorUpdate). Input of any length.
    virtual CryptoStatus update(std::span<const std::uint8_t> input, std::vector<std::uint8_t>& output) = 0;

    // Appends the last block, padding added (encryption) or checked and removed (decryption)
    // (CCCryptorFinal). Called once, after the last update.
    virtual CryptoStatus finish(std::vector<std::uint8_t>& output) = 0;
};

// HMAC-SHA-256, fed in pieces.
class Hmac {
public:
    static constexpr std::size_t length = 32;
    using Code = std::array<std::uint8_t, length>;

    virtual ~Hmac() = default;
    // CCHmacUpdate.
    virtual void update(std::span<const std::uint8_t> data) = 0;
    // The authentication code of everything fed so far (CCHmacFinal). Called once.
    virtual Code finish() = 0;
};

class Crypto {
public:
    enum class Operation { encrypt, decrypt };
    static constexpr std::size_t keySize = 32;   // AES-256
    static constexpr std::size_t blockSize = 16; // AES, also the IV size

    virtual ~Crypto() = default;

    // A new AES-256-CBC cipher with PKCS#7 padding for `key` and `iv` (CCCryptorCreate). On
    // success `cipher` holds it. Default: unimplemented.
    virtual CryptoStatus makeCipher(Operation operation, std::span<const std::uint8_t, keySize> key,
                                    std::span<const std::uint8_t, blockSize> iv,
                                    std::unique_ptr<BlockCipher>& cipher) {
        (void)operation, (void)key, (void)iv, (void)cipher;
        return CryptoStatus::unimplemented;
    }

    // A new HMAC-SHA-256 keyed with `key` (CCHmacInit). On success `hmac` holds it. Default:
    // unimplemented.
    virtual CryptoStatus makeHmac(std::span<const std::uint8_t> key, std::unique_ptr<Hmac>& hmac) {
        (void)key, (void)hmac;
        return CryptoStatus::unimplemented;
    }

    // Fills `derived` with PBKDF2, PRF HMAC-SHA-1, over `password` and `salt` with `rounds`
    // iterations (CCKeyDerivationPBKDF). Either may be empty. Default: unimplemented.
    virtual CryptoStatus deriveKey(std::span<const std::uint8_t> password, std::span<const std::uint8_t> salt,
                                   unsigned rounds, std::span<std::uint8_t> derived) {
        (void)password, (void)salt, (void)rounds, (void)derived;
        return CryptoStatus::unimplemented;
    }

    // Fills `bytes` from the system's cryptographically secure source (SecRandomCopyBytes); false
    // when it cannot. Default: false.
    virtual bool randomBytes(std::span<std::uint8_t> bytes) {
        (void)bytes;
        return false;
    }
};

}  // namespace tactora
