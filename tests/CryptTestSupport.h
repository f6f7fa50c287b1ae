// Test support for the encrypted script format: a straightforward reference of the file format
// written directly on OpenSSL (one-shot calls, no pieces, no queues), and file helpers.
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

// AES-256-CBC with PKCS#7 padding in one call; none when the padding does not hold.
inline std::optional<Bytes> referenceAes(bool encrypt, const Bytes& key, const std::uint8_t* iv, const std::uint8_t* in, std::size_t size) {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    Bytes out(size + 16);
    int written = 0, last = 0;
    const bool ok = EVP_CipherInit_ex(context, EVP_aes_256_cbc(), nullptr, key.data(), iv, encrypt) == 1 &&
                    EVP_CipherUpdate(context, out.data(), &written, in, int(size)) == 1 &&
                    EVP_CipherFinal_ex(context, out.data() + written, &last) == 1;
    EVP_CIPHER_CTX_free(context);
    if (!ok) return std::nullopt;
    out.resize(std::size_t(written + last));
    return out;
}

// The password-format file for `plain`, with `passwordBytes` entering PBKDF2 as given.
inline Bytes referenceEncrypt(const Bytes& plain, const std::string& passwordBytes, const ReferenceHeader& header = {}) {
    Bytes file{header.version, 1};
    for (const Bytes* part : {&header.encryptionSalt, &header.hmacSalt, &header.iv}) file.insert(file.end(), part->begin(), part->end());
    Bytes cipher = *referenceAes(true, referenceKey(passwordBytes, header.encryptionSalt), header.iv.data(), plain.data(), plain.size());
    file.insert(file.end(), cipher.begin(), cipher.end());
    Bytes code = referenceHmac(referenceKey(passwordBytes, header.hmacSalt), file);
    file.insert(file.end(), code.begin(), code.end());
    return file;
}

// The plain text of a version 3 password-format file, or none when anything does not hold.
inline std::optional<Bytes> referenceDecrypt(const Bytes& file, const std::string& password) {
    if (file.size() < 34 + 16 + 32 || file[0] != 3 || file[1] != 1) return std::nullopt;
    Bytes signedPart(file.begin(), file.end() - 32), code(file.end() - 32, file.end());
    if (referenceHmac(referenceKey(password, Bytes(file.begin() + 10, file.begin() + 18)), signedPart) != code) return std::nullopt;
    return referenceAes(false, referenceKey(password, Bytes(file.begin() + 2, file.begin() + 10)), file.data() + 18,
                        file.data() + 34, signedPart.size() - 34);
}

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
