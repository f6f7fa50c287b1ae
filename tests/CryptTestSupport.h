// Test support for the encrypted script format: a straightforward reference of the file format
// written directly on OpenSSL (one-shot calls, no pieces, no queues), a crypto port with
// predictable random bytes, and file helpers.
#pragma once

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "FoundationFakes.h"
#include "Platform/Crypto.h"
#include "host/OpenSSLCrypto.h"

namespace tactora::crypttest {

using Bytes = std::vector<std::uint8_t>;

inline Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

inline Bytes randomBytes(std::size_t size, std::mt19937& random) {
    Bytes out(size);
    for (auto& byte : out) byte = static_cast<std::uint8_t>(random());
    return out;
}

// --- reference format -----------------------------------------------------------------------

struct ReferenceHeader {
    std::uint8_t version = 3;
    Bytes encryptionSalt = Bytes(8, 0x11);
    Bytes hmacSalt = Bytes(8, 0x22);
    Bytes iv = Bytes(16, 0x33);
};

inline Bytes referenceKey(const std::string& passwordBytes, const Bytes& salt) {
    Bytes key(32);
    PKCS5_PBKDF2_HMAC(passwordBytes.data(), int(passwordBytes.size()), salt.data(), int(salt.size()), 10000,
                      EVP_sha1(), int(key.size()), key.data());
    return key;
}

inline Bytes referenceHmac(const Bytes& key, const Bytes& data) {
    Bytes code(32);
    unsigned length = 0;
    HMAC(EVP_sha256(), key.data(), int(key.size()), data.data(), data.size(), code.data(), &length);
    return code;
}

// The password-format file for `plain`, with `passwordBytes` entering PBKDF2 as given.
inline Bytes referenceEncrypt(const Bytes& plain, const std::string& passwordBytes,
                              const ReferenceHeader& header = {}) {
    Bytes file{header.version, 1};
    file.insert(file.end(), header.encryptionSalt.begin(), header.encryptionSalt.end());
    file.insert(file.end(), header.hmacSalt.begin(), header.hmacSalt.end());
    file.insert(file.end(), header.iv.begin(), header.iv.end());
    Bytes key = referenceKey(passwordBytes, header.encryptionSalt);
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key.data(), header.iv.data());
    std::size_t start = file.size();
    file.resize(start + plain.size() + 16);
    int written = 0, last = 0;
    EVP_EncryptUpdate(context, file.data() + start, &written, plain.data(), int(plain.size()));
    EVP_EncryptFinal_ex(context, file.data() + start + written, &last);
    EVP_CIPHER_CTX_free(context);
    file.resize(start + std::size_t(written + last));
    Bytes code = referenceHmac(referenceKey(passwordBytes, header.hmacSalt), file);
    file.insert(file.end(), code.begin(), code.end());
    return file;
}

// The plain text of a version 3 password-format file, or none when anything does not hold.
inline std::optional<Bytes> referenceDecrypt(const Bytes& file, const std::string& password) {
    if (file.size() < 34 + 16 + 32 || file[0] != 3 || file[1] != 1) return std::nullopt;
    Bytes encryptionSalt(file.begin() + 2, file.begin() + 10), hmacSalt(file.begin() + 10, file.begin() + 18);
    Bytes iv(file.begin() + 18, file.begin() + 34);
    Bytes signedPart(file.begin(), file.end() - 32), code(file.end() - 32, file.end());
    if (referenceHmac(referenceKey(password, hmacSalt), signedPart) != code) return std::nullopt;
    Bytes key = referenceKey(password, encryptionSalt);
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    EVP_DecryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key.data(), iv.data());
    Bytes plain(signedPart.size());
    int written = 0, last = 0;
    bool ok = EVP_DecryptUpdate(context, plain.data(), &written, signedPart.data() + 34, int(signedPart.size() - 34)) == 1 &&
              EVP_DecryptFinal_ex(context, plain.data() + written, &last) == 1;
    EVP_CIPHER_CTX_free(context);
    if (!ok) return std::nullopt;
    plain.resize(std::size_t(written + last));
    return plain;
}

// --- ports ------------------------------------------------------------------------------------

// OpenSSL, but with random bytes counted up from a seed, so that two encryptions can be compared.
class PredictableCrypto final : public Crypto {
public:
    explicit PredictableCrypto(std::uint8_t seed = 0) : next_(seed) {}
    CryptoStatus makeCipher(Operation operation, std::span<const std::uint8_t, keySize> key,
                            std::span<const std::uint8_t, blockSize> iv, std::unique_ptr<BlockCipher>& cipher) override {
        return real_.makeCipher(operation, key, iv, cipher);
    }
    CryptoStatus makeHmac(std::span<const std::uint8_t> key, std::unique_ptr<Hmac>& hmac) override {
        return real_.makeHmac(key, hmac);
    }
    CryptoStatus deriveKey(std::span<const std::uint8_t> password, std::span<const std::uint8_t> salt, unsigned rounds,
                           std::span<std::uint8_t> derived) override {
        return real_.deriveKey(password, salt, rounds, derived);
    }
    bool randomBytes(std::span<std::uint8_t> bytes) override {
        for (auto& byte : bytes) byte = next_++;
        return true;
    }

private:
    host::OpenSSLCrypto real_;
    std::uint8_t next_;
};

// --- files ------------------------------------------------------------------------------------

using testing::ScratchDirectory;

inline void writeFile(const std::string& path, const Bytes& data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
}

inline std::optional<Bytes> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

}  // namespace tactora::crypttest
