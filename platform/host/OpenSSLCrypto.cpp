#include "host/OpenSSLCrypto.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <climits>

namespace tactora::host {

namespace {

class EvpCipher final : public BlockCipher {
public:
    EvpCipher(EVP_CIPHER_CTX* context, bool decrypting) : context_(context), decrypting_(decrypting) {}
    ~EvpCipher() override { EVP_CIPHER_CTX_free(context_); }

    CryptoStatus update(std::span<const std::uint8_t> input, std::vector<std::uint8_t>& output) override {
        if (finished_) return CryptoStatus::paramError;
        // EVP takes an int length; feed very large inputs in slices.
        while (!input.empty()) {
            std::size_t slice = std::min<std::size_t>(input.size(), INT_MAX / 2);
            std::size_t start = output.size();
            output.resize(start + slice + Crypto::blockSize);
            int written = 0;
            if (EVP_CipherUpdate(context_, output.data() + start, &written, input.data(), int(slice)) != 1) {
                output.resize(start);
                return CryptoStatus::paramError;
            }
            output.resize(start + std::size_t(written));
            fed_ += slice;
            input = input.subspan(slice);
        }
        return CryptoStatus::success;
    }

    CryptoStatus finish(std::vector<std::uint8_t>& output) override {
        if (finished_) return CryptoStatus::paramError;
        finished_ = true;
        std::size_t start = output.size();
        output.resize(start + Crypto::blockSize);
        int written = 0;
        if (EVP_CipherFinal_ex(context_, output.data() + start, &written) != 1) {
            output.resize(start);
            // OpenSSL does not say which; CommonCrypto tells a partial block from bad padding.
            if (decrypting_ && fed_ % Crypto::blockSize != 0) return CryptoStatus::alignmentError;
            return CryptoStatus::decodeError;
        }
        output.resize(start + std::size_t(written));
        return CryptoStatus::success;
    }

private:
    EVP_CIPHER_CTX* context_;
    bool decrypting_;
    bool finished_ = false;
    std::uint64_t fed_ = 0;
};

class EvpHmac final : public Hmac {
public:
    explicit EvpHmac(EVP_MAC_CTX* context) : context_(context) {}
    ~EvpHmac() override { EVP_MAC_CTX_free(context_); }

    void update(std::span<const std::uint8_t> data) override {
        if (!data.empty()) EVP_MAC_update(context_, data.data(), data.size());
    }

    Code finish() override {
        Code code{};
        std::size_t written = 0;
        EVP_MAC_final(context_, code.data(), &written, code.size());
        return code;
    }

private:
    EVP_MAC_CTX* context_;
};

}  // namespace

OpenSSLCrypto::OpenSSLCrypto()
    : aes_(EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr)), hmac_(EVP_MAC_fetch(nullptr, "HMAC", nullptr)) {}

OpenSSLCrypto::~OpenSSLCrypto() {
    EVP_CIPHER_free(aes_);
    EVP_MAC_free(hmac_);
}

CryptoStatus OpenSSLCrypto::makeCipher(Operation operation, std::span<const std::uint8_t, keySize> key,
                                       std::span<const std::uint8_t, blockSize> iv,
                                       std::unique_ptr<BlockCipher>& cipher) {
    if (!aes_) return CryptoStatus::unimplemented;
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    if (!context) return CryptoStatus::memoryFailure;
    int encrypting = operation == Operation::encrypt ? 1 : 0;
    // Padding is on by default: PKCS#7 over 16-byte blocks.
    if (EVP_CipherInit_ex2(context, aes_, key.data(), iv.data(), encrypting, nullptr) != 1) {
        EVP_CIPHER_CTX_free(context);
        return CryptoStatus::paramError;
    }
    cipher = std::make_unique<EvpCipher>(context, !encrypting);
    return CryptoStatus::success;
}

CryptoStatus OpenSSLCrypto::makeHmac(std::span<const std::uint8_t> key, std::unique_ptr<Hmac>& hmac) {
    if (!hmac_) return CryptoStatus::unimplemented;
    EVP_MAC_CTX* context = EVP_MAC_CTX_new(hmac_);
    if (!context) return CryptoStatus::memoryFailure;
    char digest[] = "SHA256";
    OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                           OSSL_PARAM_construct_end()};
    // A zero-length key is valid HMAC; EVP wants a non-null pointer for it.
    static const std::uint8_t none = 0;
    if (EVP_MAC_init(context, key.empty() ? &none : key.data(), key.size(), params) != 1) {
        EVP_MAC_CTX_free(context);
        return CryptoStatus::paramError;
    }
    hmac = std::make_unique<EvpHmac>(context);
    return CryptoStatus::success;
}

CryptoStatus OpenSSLCrypto::deriveKey(std::span<const std::uint8_t> password, std::span<const std::uint8_t> salt,
                                      unsigned rounds, std::span<std::uint8_t> derived) {
    if (rounds == 0 || rounds > INT_MAX || password.size() > INT_MAX || salt.size() > INT_MAX ||
        derived.size() > INT_MAX)
        return CryptoStatus::paramError;
    static const std::uint8_t none = 0;
    const char* passwordBytes = reinterpret_cast<const char*>(password.empty() ? &none : password.data());
    const unsigned char* saltBytes = salt.empty() ? &none : salt.data();
    if (PKCS5_PBKDF2_HMAC(passwordBytes, int(password.size()), saltBytes, int(salt.size()), int(rounds), EVP_sha1(),
                          int(derived.size()), derived.data()) != 1)
        return CryptoStatus::paramError;
    return CryptoStatus::success;
}

bool OpenSSLCrypto::randomBytes(std::span<std::uint8_t> bytes) {
    if (bytes.empty()) return true;
    if (bytes.size() > INT_MAX) return false;
    return RAND_bytes(bytes.data(), int(bytes.size())) == 1;
}

}  // namespace tactora::host
