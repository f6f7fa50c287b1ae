#include <gtest/gtest.h>

#include "CryptTestSupport.h"
#include "host/OpenSSLCrypto.h"

using namespace tactora;
using namespace tactora::crypttest;

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
