#pragma once

#include <optional>
#include <string>

namespace tactora {

// Encrypted scripts (".e" files in the RNCryptor v3 password format).
class Encrypt {
public:
    // The decrypted script text, or none for a wrong password, a damaged file or text that is
    // not 7-bit ASCII. An empty or missing file gives empty text.
    static std::optional<std::string> decryptScript(const std::string& path, const std::string& password);
    // Writes path + ".e".
    static void encryptScript(const std::string& path, const std::string& password);
    // Streaming versions, file to file, holding one 32768-byte piece at a time.
    static void encryptWithSemaphore(const std::string& path, const std::string& password);
    static void decryptWithSemaphore(const std::string& path, const std::string& password);
};

}  // namespace tactora
