#pragma once

#include <optional>
#include <string>

#include "Managers/Cryptor.h"

namespace tactora {

// Encrypted scripts (".e" files in the RNCryptor v3 password format). The password is always
// the caller's; nothing here keeps one.
class Encrypt {
public:
    // The decrypted script text, or none for a wrong password, a damaged file or text that is
    // not 7-bit ASCII. An empty or missing file gives empty text.
    static std::optional<std::string> decryptScript(const std::string& path, const std::string& password);
    // Writes path + ".e" (not atomically). Reports nothing; writes nothing when the script cannot
    // be read or encrypted.
    static void encryptScript(const std::string& path, const std::string& password);
    // Streaming versions, file to file, holding one 32768-byte piece of input at a time. They
    // return once the input is fed; the output file is closed when the cryptor finishes.
    // Encryption writes path + ".e"; decryption writes the path without its last two characters.
    static void encryptWithSemaphore(const std::string& path, const std::string& password);
    static void decryptWithSemaphore(const std::string& path, const std::string& password);

    // The same streaming from `inputPath` into `outputPath`, but waiting for the end: none when
    // the output is complete and authentic, else why not (then the output is not to be used).
    static std::optional<CryptorError> encryptFile(const std::string& inputPath, const std::string& outputPath,
                                                   const std::string& password);
    static std::optional<CryptorError> decryptFile(const std::string& inputPath, const std::string& outputPath,
                                                   const std::string& password);
};

// The domain of errors about the files themselves (the code is the C library's errno).
inline constexpr const char* encryptFileErrorDomain = "net.tactora.Encrypt.File";

}  // namespace tactora
