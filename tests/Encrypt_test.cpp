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

    int successEntries() const {
        int count = 0;
        for (const auto& entry : log_.entries())
            if (entry.message == "error:(null)" && entry.function == "+[Encrypt decryptScript:with:]") ++count;
        return count;
    }

    ScopedPlatform scope_;
    host::OpenSSLCrypto crypto_;
    RecordingDiagnosticLog log_;
    ScratchDirectory dir_;
};

}  // namespace

TEST_F(EncryptTest, ScriptRoundTripsAndLogsOnlyOnSuccess) {
    std::string path = sealScript("a.lua", "touchDown(0, 100, 200)\nusleep(16000)\n", "pw");
    EXPECT_EQ(Encrypt::decryptScript(path, "wrong"), std::nullopt);
    EXPECT_EQ(successEntries(), 0);
    EXPECT_EQ(Encrypt::decryptScript(path, "pw"), "touchDown(0, 100, 200)\nusleep(16000)\n");
    EXPECT_EQ(successEntries(), 1);
    EXPECT_EQ(log_.entries().size(), 1u);
}

TEST_F(EncryptTest, AnyChangedByteMakesTheScriptUnreadable) {
    std::string path = sealScript("small.lua", "alert('x')", "pw");
    Bytes sealed = *readFile(path);
    ASSERT_EQ(sealed.size(), 82u);
    std::string damaged = dir_.file("damaged.lua.e");
    for (std::size_t offset = 0; offset < sealed.size(); ++offset) {
        Bytes copy = sealed;
        copy[offset] ^= std::uint8_t(1u << (offset % 8));
        writeFile(damaged, copy);
        EXPECT_EQ(Encrypt::decryptScript(damaged, "pw"), std::nullopt) << offset;
    }
    EXPECT_EQ(successEntries(), 0);
    EXPECT_EQ(Encrypt::decryptScript(path, "pw"), "alert('x')");
}

TEST_F(EncryptTest, EmptyOrMissingFileGivesEmptyText) {
    writeFile(dir_.file("empty.e"), {});
    EXPECT_EQ(Encrypt::decryptScript(dir_.file("empty.e"), "pw"), "");
    EXPECT_EQ(Encrypt::decryptScript(dir_.file("missing.e"), "pw"), "");
    EXPECT_EQ(successEntries(), 2);
}

TEST_F(EncryptTest, TwoEncryptionsDifferAndBothDecrypt) {
    std::string first = sealScript("same.lua", "x = 1", "pw");
    Bytes one = *readFile(first);
    std::string second = sealScript("same.lua", "x = 1", "pw");
    Bytes two = *readFile(second);
    EXPECT_NE(one, two);
    // Salts and IV differ, not only the ciphertext.
    EXPECT_NE(Bytes(one.begin() + 2, one.begin() + 34), Bytes(two.begin() + 2, two.begin() + 34));
    writeFile(dir_.file("one.e"), one);
    EXPECT_EQ(Encrypt::decryptScript(dir_.file("one.e"), "pw"), "x = 1");
    EXPECT_EQ(Encrypt::decryptScript(second, "pw"), "x = 1");
}

TEST_F(EncryptTest, TextOutsideAsciiIsRefusedThoughItDecrypts) {
    std::string path = sealScript("utf8.lua", "alert('héllo')", "pw");
    EXPECT_EQ(Encrypt::decryptScript(path, "pw"), std::nullopt);
    // The bytes are intact; only the 7-bit decoding refuses them.
    EXPECT_EQ(referenceDecrypt(*readFile(path), "pw"), bytesOf("alert('héllo')"));
    // Control characters and NUL are ASCII.
    std::string control = sealScript("control.lua", std::string("a\0\x7f\tb", 5), "pw");
    EXPECT_EQ(Encrypt::decryptScript(control, "pw"), std::string("a\0\x7f\tb", 5));
}

TEST_F(EncryptTest, EncryptScriptWritesNothingForAMissingScript) {
    Encrypt::encryptScript(dir_.file("absent.lua"), "pw");
    EXPECT_EQ(readFile(dir_.file("absent.lua.e")), std::nullopt);
}

TEST_F(EncryptTest, StreamingRoundTripsInPiecesAndLogsEachPiece) {
    std::mt19937 random(3);
    Bytes plain = randomBytes(32768 * 2 + 1000, random);
    std::string path = dir_.file("big.bin");
    writeFile(path, plain);
    Encrypt::encryptWithSemaphore(path, "pw");
    std::size_t sealedSize = 34 + (plain.size() / 16 + 1) * 16 + 32;
    std::optional<Bytes> sealed;
    for (int i = 0; i < 2000 && (!sealed || sealed->size() != sealedSize); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        sealed = readFile(path + ".e");
    }
    ASSERT_TRUE(sealed);
    ASSERT_EQ(referenceDecrypt(*sealed, "pw"), plain);

    std::filesystem::remove(path);
    log_.clear();
    Encrypt::decryptWithSemaphore(path + ".e", "pw");
    EXPECT_EQ(waitForContent(path, plain), plain);

    std::vector<std::string> fed, received;
    for (const auto& entry : log_.entries()) {
        EXPECT_EQ(entry.function, "+[Encrypt decryptWithSemaphore:with:]");
        (entry.message.starts_with("New") ? fed : received).push_back(entry.message);
    }
    std::size_t last = sealed->size() - 2 * 32768;
    EXPECT_EQ(fed, (std::vector<std::string>{"New bytes to decryptor: 32768 Total: 32768",
                                             "New bytes to decryptor: 32768 Total: 65536",
                                             "New bytes to decryptor: " + std::to_string(last) +
                                                 " Total: " + std::to_string(sealed->size())}));
    // One answer per piece and one at the end; together they carry the whole plain text.
    ASSERT_EQ(received.size(), 4u);
    std::size_t total = 0;
    for (const std::string& line : received) {
        unsigned long count = 0;
        char tail[16] = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "Decryptor recevied %lu %15s", &count, tail), 2) << line;
        EXPECT_STREQ(tail, "bytes");
        total += count;
    }
    EXPECT_EQ(total, plain.size());
}

TEST_F(EncryptTest, StreamingDecryptionOfAMissingFileLeavesThePlainFileAlone) {
    writeFile(dir_.file("keep.lua"), bytesOf("precious"));
    Encrypt::decryptWithSemaphore(dir_.file("keep.lua.e"), "pw");
    EXPECT_EQ(readFile(dir_.file("keep.lua")), bytesOf("precious"));
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
