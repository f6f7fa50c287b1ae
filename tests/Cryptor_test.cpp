#include <gtest/gtest.h>

#include "CryptTestSupport.h"
#include "Managers/Cryptor.h"
#include "Platform/Platform.h"

using namespace tactora;
using namespace tactora::crypttest;

namespace {

class CryptorTest : public ::testing::Test {
protected:
    CryptorTest() { platform().crypto = &crypto_; }

    ScopedPlatform scope_;
    host::OpenSSLCrypto crypto_;
};

// Feeds `data` in random piece sizes (empty pieces too); the joined output and the error.
template <class Kind>
std::pair<Bytes, std::optional<CryptorError>> feedInPieces(const Bytes& data, const std::string& password, std::mt19937& random) {
    auto output = std::make_shared<Bytes>();
    auto cryptor = Kind::create(password, [output](Cryptor&, std::span<const std::uint8_t> piece) {
        output->insert(output->end(), piece.begin(), piece.end());
    });
    for (std::size_t at = 0, size; at < data.size(); at += size) {
        size = std::min(std::uniform_int_distribution<std::size_t>(0, 70)(random), data.size() - at);
        cryptor->addData(Bytes(data.begin() + std::ptrdiff_t(at), data.begin() + std::ptrdiff_t(at + size)));
    }
    cryptor->finish();
    cryptor->waitUntilFinished();
    return {*output, cryptor->error()};
}

}  // namespace

// Our files are read by an implementation written straight on OpenSSL, and its files by us.
TEST_F(CryptorTest, OutputIsHeaderPaddedCiphertextAndHmacAndReadsTheReferencesFiles) {
    struct Case {
        std::size_t plain, file;
        std::string password;
    };
    for (const Case& c : {Case{0, 82, "p"}, Case{1, 82, ""}, Case{15, 82, "pässwörd 😀"}, Case{16, 98, "pw"},
                          Case{17, 98, "a b"}, Case{100, 178, "secret"}}) {
        SCOPED_TRACE(c.plain);
        Bytes plain(c.plain, 'x');
        CryptorResult sealed = encryptData(plain, c.password);
        ASSERT_FALSE(sealed.error);
        ASSERT_EQ(sealed.data.size(), c.file);
        EXPECT_EQ(referenceDecrypt(sealed.data, c.password), plain);
        EXPECT_EQ(decryptData(sealed.data, c.password).data, plain);
        CryptorResult opened = decryptData(referenceEncrypt(plain, c.password), c.password);
        EXPECT_FALSE(opened.error);
        EXPECT_EQ(opened.data, plain);
    }
}

TEST_F(CryptorTest, AWrongPasswordADamagedHmacOrAnUnknownVersionFails) {
    Bytes file = referenceEncrypt(bytesOf("print('hello')"), "right");
    // The last block is taken before the HMAC is compared, so a wrong key usually shows as bad
    // padding first.
    CryptorResult wrong = decryptData(file, "wrong");
    ASSERT_TRUE(wrong.error);
    EXPECT_TRUE(wrong.error->code == hmacMismatchError || wrong.error->code == int(CryptoStatus::decodeError));
    EXPECT_TRUE(wrong.data.empty());
    // A flipped bit in the HMAC leaves the ciphertext intact, so only the comparison can catch it.
    file.back() ^= 0x01;
    EXPECT_EQ(decryptData(file, "right").error, (CryptorError{cryptorErrorDomain, 1, "HMAC Mismatch"}));
    for (std::uint8_t version : {0, 1, 4, 0xFF}) {
        file[0] = version;
        EXPECT_EQ(decryptData(file, "right").error, (CryptorError{cryptorErrorDomain, 2, "Unknown header"})) << int(version);
    }
    EXPECT_EQ(decryptData(Bytes{1, 1}, "pw").error->code, unknownHeaderError);  // two bytes are enough to know
}

TEST_F(CryptorTest, VersionTwoCutsTheUtf8PasswordToItsUtf16Length) {
    EXPECT_EQ(version2PasswordBytes("abc"), "abc");
    EXPECT_EQ(version2PasswordBytes(""), "");
    EXPECT_EQ(version2PasswordBytes("é"), "\xC3");                   // 2 bytes, 1 unit
    EXPECT_EQ(version2PasswordBytes("😀"), "\xF0\x9F");              // 4 bytes, 2 units
    EXPECT_EQ(version2PasswordBytes("aé😀z"), "a\xC3\xA9\xF0\x9F");   // 8 bytes, 5 units

    std::string password = "pässwörd";
    const ReferenceHeader v2{2};
    Bytes plain = bytesOf("version two");
    CryptorResult cut = decryptData(referenceEncrypt(plain, version2PasswordBytes(password), v2), password);
    EXPECT_FALSE(cut.error);
    EXPECT_EQ(cut.data, plain);
    // The whole UTF-8 password is what version 3 uses, and it is not what version 2 used.
    EXPECT_TRUE(decryptData(referenceEncrypt(plain, password, v2), password).error);
}

TEST_F(CryptorTest, PiecesOfAnySizeGiveWhatOnePieceGives) {
    std::mt19937 random(42);
    for (int round = 0; round < 6; ++round) {
        Bytes plain = randomBytes(std::uniform_int_distribution<std::size_t>(0, 300)(random), random);
        auto [sealed, sealError] = feedInPieces<Encryptor>(plain, "pw", random);
        ASSERT_FALSE(sealError);
        EXPECT_EQ(referenceDecrypt(sealed, "pw"), plain);
        auto [opened, openError] = feedInPieces<Decryptor>(sealed, "pw", random);
        EXPECT_FALSE(openError);
        EXPECT_EQ(opened, plain);
        auto [refused, refusedError] = feedInPieces<Decryptor>(sealed, "not pw", random);
        EXPECT_TRUE(refusedError);
        EXPECT_TRUE(refused.empty() || refused != plain);
    }
}

TEST(OpenSSLCrypto, DecryptionTellsPartialBlocksFromBadPadding) {
    host::OpenSSLCrypto crypto;
    const Bytes key(32, 1), iv(16, 2);
    // Zero blocks do not decrypt to valid padding under this key.
    for (auto [length, status] : {std::pair{0, CryptoStatus::decodeError}, std::pair{17, CryptoStatus::alignmentError},
                                  std::pair{32, CryptoStatus::decodeError}}) {
        std::unique_ptr<BlockCipher> decryptor;
        ASSERT_EQ(crypto.makeCipher(Crypto::Operation::decrypt, std::span<const std::uint8_t, 32>(key.data(), 32),
                                    std::span<const std::uint8_t, 16>(iv.data(), 16), decryptor), CryptoStatus::success);
        Bytes out;
        decryptor->update(Bytes(std::size_t(length), 0), out);
        EXPECT_EQ(decryptor->finish(out), status) << length;
    }
}
