#include "ios/CommonCryptoCrypto.h"

#include <CommonCrypto/CommonCrypto.h>
#include <Security/SecRandom.h>

namespace tactora::ios {

namespace {

// CCCryptorStatus values are the port's statuses, one for one.
CryptoStatus status(CCCryptorStatus value) { return static_cast<CryptoStatus>(value); }

class CommonCryptoCipher final : public BlockCipher {
public:
    explicit CommonCryptoCipher(CCCryptorRef cryptor) : cryptor_(cryptor) {}
    ~CommonCryptoCipher() override { CCCryptorRelease(cryptor_); }

    CryptoStatus update(std::span<const std::uint8_t> input, std::vector<std::uint8_t>& output) override {
        if (input.empty()) return CryptoStatus::success;
        size_t room = CCCryptorGetOutputLength(cryptor_, input.size(), false);
        size_t start = output.size(), moved = 0;
        output.resize(start + room);
        CCCryptorStatus result =
            CCCryptorUpdate(cryptor_, input.data(), input.size(), output.data() + start, room, &moved);
        output.resize(start + (result == kCCSuccess ? moved : 0));
        return status(result);
    }

    CryptoStatus finish(std::vector<std::uint8_t>& output) override {
        size_t room = CCCryptorGetOutputLength(cryptor_, 0, true);
        size_t start = output.size(), moved = 0;
        output.resize(start + room);
        CCCryptorStatus result = CCCryptorFinal(cryptor_, output.data() + start, room, &moved);
        output.resize(start + (result == kCCSuccess ? moved : 0));
        return status(result);
    }

private:
    CCCryptorRef cryptor_;
};

class CommonCryptoHmac final : public Hmac {
public:
    explicit CommonCryptoHmac(std::span<const std::uint8_t> key) {
        CCHmacInit(&context_, kCCHmacAlgSHA256, key.data(), key.size());
    }
    void update(std::span<const std::uint8_t> data) override { CCHmacUpdate(&context_, data.data(), data.size()); }
    Code finish() override {
        Code code{};
        CCHmacFinal(&context_, code.data());
        return code;
    }

private:
    CCHmacContext context_;
};

}  // namespace

CryptoStatus CommonCryptoCrypto::makeCipher(Operation operation, std::span<const std::uint8_t, keySize> key,
                                            std::span<const std::uint8_t, blockSize> iv,
                                            std::unique_ptr<BlockCipher>& cipher) {
    CCCryptorRef cryptor = nullptr;
    CCCryptorStatus result = CCCryptorCreate(operation == Operation::encrypt ? kCCEncrypt : kCCDecrypt,
                                             kCCAlgorithmAES128,  // AES; the key length makes it AES-256
                                             kCCOptionPKCS7Padding, key.data(), key.size(), iv.data(), &cryptor);
    if (result != kCCSuccess) return status(result);
    cipher = std::make_unique<CommonCryptoCipher>(cryptor);
    return CryptoStatus::success;
}

CryptoStatus CommonCryptoCrypto::makeHmac(std::span<const std::uint8_t> key, std::unique_ptr<Hmac>& hmac) {
    hmac = std::make_unique<CommonCryptoHmac>(key);
    return CryptoStatus::success;
}

CryptoStatus CommonCryptoCrypto::deriveKey(std::span<const std::uint8_t> password, std::span<const std::uint8_t> salt,
                                           unsigned rounds, std::span<std::uint8_t> derived) {
    int result = CCKeyDerivationPBKDF(kCCPBKDF2, reinterpret_cast<const char*>(password.data()), password.size(),
                                      salt.data(), salt.size(), kCCPRFHmacAlgSHA1, rounds, derived.data(),
                                      derived.size());
    return result == kCCSuccess ? CryptoStatus::success : CryptoStatus::paramError;
}

bool CommonCryptoCrypto::randomBytes(std::span<std::uint8_t> bytes) {
    if (bytes.empty()) return true;
    return SecRandomCopyBytes(kSecRandomDefault, bytes.size(), bytes.data()) == errSecSuccess;
}

}  // namespace tactora::ios
