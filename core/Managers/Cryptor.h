// The cryptor of the encrypted script format (RNCryptor data format, password form): an encryptor
// and a decryptor that take data in pieces and hand their output to a handler.
//
// Sections: the format's constants and errors; the Cryptor base (queues, handler, completion);
// Encryptor; Decryptor; one-call helpers; the constant-time comparison.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Platform/Crypto.h"

namespace tactora {

class SerialQueue;

// File layout: version, options, encryption salt, HMAC salt, IV, ciphertext, HMAC. Without the
// password option the two salts are absent.
namespace cryptorformat {
inline constexpr std::uint8_t version = 3;
inline constexpr std::uint8_t passwordOption = 0x01;  // bit 0: keys come from a password
inline constexpr std::size_t saltSize = 8;
inline constexpr std::size_t ivSize = 16;
inline constexpr std::size_t hmacSize = 32;
inline constexpr std::size_t keySize = 32;
inline constexpr unsigned pbkdf2Rounds = 10000;
// 34: the header of a file this system writes.
inline constexpr std::size_t passwordHeaderSize = 2 + saltSize + saltSize + ivSize;
}  // namespace cryptorformat

inline constexpr const char* cryptorErrorDomain = "net.tactora.Cryptor";

// The codes of the cryptor's own failures. A failure of the crypto primitives carries the
// primitive's CryptoStatus value as its code instead (always negative).
enum CryptorErrorCode : int {
    hmacMismatchError = 1,  // "HMAC Mismatch"
    unknownHeaderError = 2, // "Unknown header"
};

struct CryptorError {
    std::string domain;
    int code = 0;
    std::string description;

    bool operator==(const CryptorError&) const = default;
};

// What a whole-buffer encryption or decryption gave: the output, or an error (then the output is
// not to be used).
struct CryptorResult {
    std::vector<std::uint8_t> data;
    std::optional<CryptorError> error;
};

// A cryptor does its work on a private serial queue and calls its handler on a second private
// serial queue, so a caller may block waiting for it on any thread, the main thread included.
//
// Handler calls, in order on the response queue:
//  - one for each addData() made before the cryptor has finished, with that piece's output
//    (possibly empty);
//  - one for finish(), with the last output.
// The call in which isFinished() first answers true is the last one: it is the finish() call, or
// the addData() call whose piece made the cryptor fail. After it the cryptor ignores addData()
// and finish(), and lets its handler go.
class Cryptor : public std::enable_shared_from_this<Cryptor> {
public:
    using Handler = std::function<void(Cryptor& cryptor, std::span<const std::uint8_t> output)>;

    virtual ~Cryptor();
    Cryptor(const Cryptor&) = delete;
    Cryptor& operator=(const Cryptor&) = delete;

    // Queues a piece of input. Returns at once.
    void addData(std::vector<std::uint8_t> piece);
    // Queues the end of the input. Returns at once.
    void finish();

    // True from the handler's last call on (the handler sees it true in that call).
    bool isFinished() const;
    // Why the cryptor failed; none while it runs and after a success.
    std::optional<CryptorError> error() const;
    // Blocks until the handler's last call has returned. Never call it from the handler.
    void waitUntilFinished() const;

protected:
    explicit Cryptor(Handler handler);

    // On the work queue: consume one piece, appending output. An error ends the cryptor.
    virtual std::optional<CryptorError> consume(std::span<const std::uint8_t> piece,
                                                std::vector<std::uint8_t>& output) = 0;
    // On the work queue: the end of the input, appending the last output.
    virtual std::optional<CryptorError> complete(std::vector<std::uint8_t>& output) = 0;

    Crypto& crypto() const { return *crypto_; }

private:
    void respond(std::vector<std::uint8_t> output, bool last, std::optional<CryptorError> error);

    Crypto* crypto_;
    std::shared_ptr<SerialQueue> workQueue_;
    std::shared_ptr<SerialQueue> responseQueue_;
    Handler handler_;     // used on the response queue only
    bool stopped_ = false;  // used on the work queue only: the last response is on its way

    mutable std::mutex mutex_;
    mutable std::condition_variable doneChanged_;
    bool finished_ = false;
    bool done_ = false;  // the last handler call has returned
    std::optional<CryptorError> error_;
};

// Writes the version 3 password format: fresh salts and IV, keys from the password.
class Encryptor final : public Cryptor {
public:
    static std::shared_ptr<Encryptor> create(const std::string& password, Handler handler);

private:
    Encryptor(const std::string& password, Handler handler);
    std::optional<CryptorError> setUp();
    std::optional<CryptorError> consume(std::span<const std::uint8_t> piece,
                                        std::vector<std::uint8_t>& output) override;
    std::optional<CryptorError> complete(std::vector<std::uint8_t>& output) override;

    std::string password_;
    bool setUpDone_ = false;
    std::vector<std::uint8_t> header_;  // emitted before the first output, then cleared
    std::unique_ptr<BlockCipher> cipher_;
    std::unique_ptr<Hmac> hmac_;
};

// Reads versions 2 and 3. Until a whole header has arrived it only collects input; after that it
// always holds back the last 32 bytes, which may be the HMAC.
class Decryptor final : public Cryptor {
public:
    static std::shared_ptr<Decryptor> create(const std::string& password, Handler handler);

private:
    Decryptor(const std::string& password, Handler handler);
    std::optional<CryptorError> consume(std::span<const std::uint8_t> piece,
                                        std::vector<std::uint8_t>& output) override;
    std::optional<CryptorError> complete(std::vector<std::uint8_t>& output) override;
    std::optional<CryptorError> readHeader(bool& complete);

    std::string password_;
    std::vector<std::uint8_t> buffer_;
    std::unique_ptr<BlockCipher> cipher_;
    std::unique_ptr<Hmac> hmac_;
};

// Encrypts or decrypts a whole buffer in one call and waits for the result.
CryptorResult encryptData(std::span<const std::uint8_t> data, const std::string& password);
CryptorResult decryptData(std::span<const std::uint8_t> data, const std::string& password);

// The password's bytes for a version 2 file: its UTF-8 bytes cut to as many bytes as the password
// has UTF-16 code units (that version counted the one and used the other).
std::string version2PasswordBytes(const std::string& password);

// Compares a received code with a computed one in time that depends only on the received length.
bool constantTimeEquals(std::span<const std::uint8_t> received, std::span<const std::uint8_t> computed);

}  // namespace tactora
