#include <gtest/gtest.h>

#include "CryptTestSupport.h"
#include "host/OpenSSLCrypto.h"

using namespace tactora;
using namespace tactora::crypttest;

namespace {

Bytes hex(std::string_view text) {
    Bytes out;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) out.push_back(std::uint8_t(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
    return out;
}

Bytes text(std::string_view value) { return Bytes(value.begin(), value.end()); }

}  // namespace

TEST(OpenSSLCrypto, Pbkdf2Sha1MatchesTheRfc6070Vectors) {
    struct Case {
        Bytes password, salt;
        unsigned rounds;
        std::string derived;
    };
    const Case cases[] = {
        {text("password"), text("salt"), 1, "0c60c80f961f0e71f3a9b524af6012062fe037a6"},
        {text("password"), text("salt"), 2, "ea6c014dc72d6f8ccd1ed92ace1d41f0d8de8957"},
        {text("password"), text("salt"), 4096, "4b007901b765489abead49d926f721d065a429c1"},
        {text("passwordPASSWORDpassword"), text("saltSALTsaltSALTsaltSALTsaltSALTsalt"), 4096,
         "3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038"},
        {Bytes{'p', 'a', 's', 's', 0, 'w', 'o', 'r', 'd'}, Bytes{'s', 'a', 0, 'l', 't'}, 4096,
         "56fa6aa75548099dcc37d7f03425e0c3"},
    };
    host::OpenSSLCrypto crypto;
    for (const Case& c : cases) {
        Bytes derived(c.derived.size() / 2);
        ASSERT_EQ(crypto.deriveKey(c.password, c.salt, c.rounds, derived), CryptoStatus::success);
        EXPECT_EQ(derived, hex(c.derived)) << c.rounds;
    }
    Bytes derived(20);
    EXPECT_EQ(crypto.deriveKey(text("p"), text("s"), 0, derived), CryptoStatus::paramError);
}

TEST(OpenSSLCrypto, HmacSha256MatchesTheRfc4231VectorsFedInPieces) {
    struct Case {
        Bytes key, data;
        std::string code;
    };
    const Case cases[] = {
        {Bytes(20, 0x0b), text("Hi There"), "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {text("Jefe"), text("what do ya want for nothing?"),
         "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {Bytes(131, 0xaa), text("Test Using Larger Than Block-Size Key - Hash Key First"),
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
    };
    host::OpenSSLCrypto crypto;
    for (const Case& c : cases) {
        for (std::size_t split : {std::size_t(0), std::size_t(1), c.data.size() / 2, c.data.size()}) {
            std::unique_ptr<Hmac> hmac;
            ASSERT_EQ(crypto.makeHmac(c.key, hmac), CryptoStatus::success);
            hmac->update(std::span(c.data).first(split));
            hmac->update(std::span(c.data).subspan(split));
            Hmac::Code code = hmac->finish();
            EXPECT_EQ(Bytes(code.begin(), code.end()), hex(c.code)) << split;
        }
    }
}

TEST(OpenSSLCrypto, AesCbcMatchesSp800_38aAndPadsWithPkcs7) {
    // NIST SP 800-38A, F.2.5 (CBC-AES256.Encrypt).
    Bytes key = hex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
    Bytes iv = hex("000102030405060708090a0b0c0d0e0f");
    Bytes plain = hex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                      "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    Bytes expected = hex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                         "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");
    host::OpenSSLCrypto crypto;
    std::span<const std::uint8_t, 32> keySpan(key.data(), 32);
    std::span<const std::uint8_t, 16> ivSpan(iv.data(), 16);

    std::unique_ptr<BlockCipher> encryptor;
    ASSERT_EQ(crypto.makeCipher(Crypto::Operation::encrypt, keySpan, ivSpan, encryptor), CryptoStatus::success);
    Bytes sealed;
    // Uneven pieces: the cipher must carry partial blocks over.
    ASSERT_EQ(encryptor->update(std::span(plain).first(7), sealed), CryptoStatus::success);
    ASSERT_EQ(encryptor->update(std::span(plain).subspan(7), sealed), CryptoStatus::success);
    ASSERT_EQ(encryptor->finish(sealed), CryptoStatus::success);
    ASSERT_EQ(sealed.size(), 80u);  // a whole block of padding after whole blocks
    EXPECT_EQ(Bytes(sealed.begin(), sealed.begin() + 64), expected);

    std::unique_ptr<BlockCipher> decryptor;
    ASSERT_EQ(crypto.makeCipher(Crypto::Operation::decrypt, keySpan, ivSpan, decryptor), CryptoStatus::success);
    Bytes opened;
    ASSERT_EQ(decryptor->update(sealed, opened), CryptoStatus::success);
    ASSERT_EQ(decryptor->finish(opened), CryptoStatus::success);
    EXPECT_EQ(opened, plain);
}

TEST(OpenSSLCrypto, DecryptionTellsPartialBlocksFromBadPadding) {
    host::OpenSSLCrypto crypto;
    Bytes key(32, 1), iv(16, 2);
    std::span<const std::uint8_t, 32> keySpan(key.data(), 32);
    std::span<const std::uint8_t, 16> ivSpan(iv.data(), 16);
    struct Case {
        std::size_t length;
        CryptoStatus status;
    };
    // These fixed blocks do not decrypt to valid padding.
    for (Case c : {Case{0, CryptoStatus::decodeError}, Case{17, CryptoStatus::alignmentError},
                   Case{32, CryptoStatus::decodeError}}) {
        std::unique_ptr<BlockCipher> decryptor;
        ASSERT_EQ(crypto.makeCipher(Crypto::Operation::decrypt, keySpan, ivSpan, decryptor), CryptoStatus::success);
        Bytes out, input(c.length, 0);
        decryptor->update(input, out);
        EXPECT_EQ(decryptor->finish(out), c.status) << c.length;
    }
}

TEST(OpenSSLCrypto, RandomBytesAreFreshEachTime) {
    host::OpenSSLCrypto crypto;
    Bytes a(32), b(32);
    ASSERT_TRUE(crypto.randomBytes(a));
    ASSERT_TRUE(crypto.randomBytes(b));
    EXPECT_NE(a, b);
    EXPECT_NE(a, Bytes(32, 0));
}
