#pragma once

#include "Platform/Crypto.h"

typedef struct evp_cipher_st EVP_CIPHER;
typedef struct evp_mac_st EVP_MAC;

namespace tactora::host {

// The crypto primitives on OpenSSL 3: EVP ciphers, EVP_MAC HMAC, PKCS5_PBKDF2_HMAC, RAND_bytes.
class OpenSSLCrypto final : public Crypto {
public:
    OpenSSLCrypto();
    ~OpenSSLCrypto() override;
    OpenSSLCrypto(const OpenSSLCrypto&) = delete;
    OpenSSLCrypto& operator=(const OpenSSLCrypto&) = delete;

    CryptoStatus makeCipher(Operation operation, std::span<const std::uint8_t, keySize> key,
                            std::span<const std::uint8_t, blockSize> iv,
                            std::unique_ptr<BlockCipher>& cipher) override;
    CryptoStatus makeHmac(std::span<const std::uint8_t> key, std::unique_ptr<Hmac>& hmac) override;
    CryptoStatus deriveKey(std::span<const std::uint8_t> password, std::span<const std::uint8_t> salt,
                           unsigned rounds, std::span<std::uint8_t> derived) override;
    bool randomBytes(std::span<std::uint8_t> bytes) override;

private:
    // Fetched once: fetching an algorithm from the provider is the slow part of setting one up.
    EVP_CIPHER* aes_ = nullptr;
    EVP_MAC* hmac_ = nullptr;
};

}  // namespace tactora::host
