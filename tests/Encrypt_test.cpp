#include <gtest/gtest.h>

#include "CryptTestSupport.h"
#include "Managers/Encrypt.h"
#include "Platform/Platform.h"

using namespace tactora;
using namespace tactora::crypttest;

TEST(EncryptTest, ScriptsDecryptToAsciiTextOnlyAndFilesSayWhyTheyFailed) {
    ScopedPlatform scope;
    host::OpenSSLCrypto crypto;
    tactora::testing::RecordingDiagnosticLog log;
    platform().crypto = &crypto;
    platform().diagnosticLog = &log;
    ScratchDirectory dir;
    auto seal = [&](const std::string& text) {
        writeFile(dir.file("a.lua"), bytesOf(text));
        Encrypt::encryptScript(dir.file("a.lua"), "pw");
        return dir.file("a.lua.e");
    };
    // Control characters and NUL are ASCII.
    const std::string script("touchDown(0, 100, 200)\n\0\x7f\t", 26);
    EXPECT_EQ(Encrypt::decryptScript(seal(script), "wrong"), std::nullopt);
    EXPECT_TRUE(log.entries.empty());
    EXPECT_EQ(Encrypt::decryptScript(dir.file("a.lua.e"), "pw"), script);
    ASSERT_EQ(log.entries.size(), 1u) << "a success is logged, as the phone logs it";
    EXPECT_EQ(log.entries[0].message, "error:(null)");
    EXPECT_EQ(log.entries[0].function, "+[Encrypt decryptScript:with:]");
    // The bytes are intact; only the 7-bit decoding refuses them.
    for (const std::string text : {"alert('héllo')", "a\x80"}) {
        EXPECT_EQ(Encrypt::decryptScript(seal(text), "pw"), std::nullopt) << text;
        EXPECT_EQ(referenceDecrypt(*readFile(dir.file("a.lua.e")), "pw"), bytesOf(text));
    }

    std::mt19937 random(11);
    const Bytes plain = randomBytes(100000, random);
    writeFile(dir.file("in.bin"), plain);
    writeFile(dir.file("bad.e"), Bytes(500, 7));
    ASSERT_EQ(Encrypt::encryptFile(dir.file("in.bin"), dir.file("in.bin.e"), "pässwörd"), std::nullopt);
    ASSERT_EQ(Encrypt::decryptFile(dir.file("in.bin.e"), dir.file("out.bin"), "pässwörd"), std::nullopt);
    EXPECT_EQ(readFile(dir.file("out.bin")), plain);
    auto wrong = Encrypt::decryptFile(dir.file("in.bin.e"), dir.file("out2.bin"), "password");
    EXPECT_TRUE(wrong && (wrong->code == hmacMismatchError || wrong->code == int(CryptoStatus::decodeError)));
    auto unknown = Encrypt::decryptFile(dir.file("bad.e"), dir.file("bad"), "pw");
    EXPECT_EQ(unknown.value_or(CryptorError{}).code, unknownHeaderError);
    auto missing = Encrypt::decryptFile(dir.file("nope.e"), dir.file("nope"), "pw");
    EXPECT_EQ(missing.value_or(CryptorError{}).domain, encryptFileErrorDomain);
    EXPECT_FALSE(std::filesystem::exists(dir.file("nope")));
}
