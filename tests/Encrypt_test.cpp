#include <gtest/gtest.h>

#include "CryptTestSupport.h"
#include "Managers/Encrypt.h"
#include "Platform/Platform.h"

using namespace tactora;
using namespace tactora::crypttest;

namespace {

class EncryptTest : public ::testing::Test {
protected:
    EncryptTest() {
        platform().crypto = &crypto_;
        platform().diagnosticLog = &log_;
    }

    // Encrypts `text` as the script "name" and answers the path of its ".e" file.
    std::string sealScript(const std::string& name, const std::string& text, const std::string& password) {
        writeFile(dir_.file(name), bytesOf(text));
        Encrypt::encryptScript(dir_.file(name), password);
        return dir_.file(name) + ".e";
    }

    ScopedPlatform scope_;
    host::OpenSSLCrypto crypto_;
    tactora::testing::RecordingDiagnosticLog log_;
    ScratchDirectory dir_;
};

}  // namespace

TEST_F(EncryptTest, ScriptRoundTripsAndLogsOnlyOnSuccess) {
    std::string path = sealScript("a.lua", "touchDown(0, 100, 200)\nusleep(16000)\n", "pw");
    EXPECT_EQ(Encrypt::decryptScript(path, "wrong"), std::nullopt);
    EXPECT_TRUE(log_.entries.empty());
    EXPECT_EQ(Encrypt::decryptScript(path, "pw"), "touchDown(0, 100, 200)\nusleep(16000)\n");
    ASSERT_EQ(log_.entries.size(), 1u);
    EXPECT_EQ(log_.entries[0].message, "error:(null)");
    EXPECT_EQ(log_.entries[0].function, "+[Encrypt decryptScript:with:]");
}

TEST_F(EncryptTest, TextOutsideAsciiIsRefusedThoughItDecrypts) {
    std::string path = sealScript("utf8.lua", "alert('héllo')", "pw");
    EXPECT_EQ(Encrypt::decryptScript(path, "pw"), std::nullopt);
    // The bytes are intact; only the 7-bit decoding refuses them.
    EXPECT_EQ(referenceDecrypt(*readFile(path), "pw"), bytesOf("alert('héllo')"));
    EXPECT_EQ(Encrypt::decryptScript(sealScript("edge.lua", "a\x80", "pw"), "pw"), std::nullopt);
    // Control characters and NUL are ASCII.
    std::string control = sealScript("control.lua", std::string("a\0\x7f\tb", 5), "pw");
    EXPECT_EQ(Encrypt::decryptScript(control, "pw"), std::string("a\0\x7f\tb", 5));
}

TEST_F(EncryptTest, FileToFileReportsWhyItFailed) {
    std::mt19937 random(11);
    Bytes plain = randomBytes(100000, random);
    writeFile(dir_.file("in.bin"), plain);
    ASSERT_EQ(Encrypt::encryptFile(dir_.file("in.bin"), dir_.file("in.bin.e"), "pässwörd"), std::nullopt);
    ASSERT_EQ(Encrypt::decryptFile(dir_.file("in.bin.e"), dir_.file("out.bin"), "pässwörd"), std::nullopt);
    EXPECT_EQ(readFile(dir_.file("out.bin")), plain);

    std::optional<CryptorError> wrong = Encrypt::decryptFile(dir_.file("in.bin.e"), dir_.file("out2.bin"), "password");
    ASSERT_TRUE(wrong);
    EXPECT_TRUE(wrong->code == hmacMismatchError || wrong->code == int(CryptoStatus::decodeError));

    writeFile(dir_.file("bad.e"), Bytes(500, 7));
    std::optional<CryptorError> unknown = Encrypt::decryptFile(dir_.file("bad.e"), dir_.file("bad"), "pw");
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->code, unknownHeaderError);

    std::optional<CryptorError> missing = Encrypt::decryptFile(dir_.file("nope.e"), dir_.file("nope"), "pw");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->domain, encryptFileErrorDomain);
    EXPECT_FALSE(std::filesystem::exists(dir_.file("nope")));
}
