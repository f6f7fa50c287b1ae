#include <gtest/gtest.h>

#include "CryptTestSupport.h"
#include "Managers/Encrypt.h"
#include "Platform/Platform.h"

using namespace tactora;
using namespace tactora::crypttest;

TEST(EncryptTest, ScriptsDecryptToAsciiTextOnlyAndAMissingFileIsNamed) {
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

    // A missing file is told apart from a damaged one (those go through the tool's tests).
    auto missing = Encrypt::decryptFile(dir.file("nope.e"), dir.file("nope"), "pw");
    EXPECT_EQ(missing.value_or(CryptorError{}).domain, encryptFileErrorDomain);
    EXPECT_FALSE(std::filesystem::exists(dir.file("nope")));
}
