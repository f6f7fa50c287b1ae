#include "Managers/Cryptor.h"

#include <array>
#include <string_view>

#include "Platform/Platform.h"
#include "Platform/Queues.h"

namespace tactora {

namespace {

using Bytes = std::vector<std::uint8_t>;
using Key = std::array<std::uint8_t, cryptorformat::keySize>;

CryptorError cryptorError(int code, std::string description) {
    return CryptorError{cryptorErrorDomain, code, std::move(description)};
}

std::string_view statusName(CryptoStatus status) {
    switch (status) {
    case CryptoStatus::success: return "Success";
    case CryptoStatus::paramError: return "Parameter error";
    case CryptoStatus::bufferTooSmall: return "Buffer too small";
    case CryptoStatus::memoryFailure: return "Memory failure";
    case CryptoStatus::alignmentError: return "Alignment error";
    case CryptoStatus::decodeError: return "Decode error";
    case CryptoStatus::unimplemented: return "Unimplemented";
    }
    return "Crypto failure";
}

CryptorError statusError(CryptoStatus status) {
    return cryptorError(int(status), std::string(statusName(status)));
}

std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

// --- Cryptor ------------------------------------------------------------------------------------

Cryptor::Cryptor(Handler handler)
    : crypto_(platform().crypto),
      workQueue_(platform().queues->makeSerialQueue("net.tactora.Cryptor.work")),
      responseQueue_(platform().queues->makeSerialQueue("net.tactora.Cryptor.response")),
      handler_(std::move(handler)) {}

Cryptor::~Cryptor() = default;

void Cryptor::addData(std::vector<std::uint8_t> piece) {
    workQueue_->async([self = shared_from_this(), piece = std::move(piece)] {
        if (self->stopped_) return;
        Bytes output;
        std::optional<CryptorError> error = self->consume(piece, output);
        if (error) self->stopped_ = true;
        self->respond(std::move(output), self->stopped_, std::move(error));
    });
}

void Cryptor::finish() {
    workQueue_->async([self = shared_from_this()] {
        if (self->stopped_) return;
        self->stopped_ = true;
        Bytes output;
        std::optional<CryptorError> error = self->complete(output);
        self->respond(std::move(output), true, std::move(error));
    });
}

void Cryptor::respond(std::vector<std::uint8_t> output, bool last, std::optional<CryptorError> error) {
    responseQueue_->async([self = shared_from_this(), output = std::move(output), last, error = std::move(error)] {
        if (last) {
            std::lock_guard lock(self->mutex_);
            self->finished_ = true;
            self->error_ = error;
        }
        if (self->handler_) self->handler_(*self, output);
        if (last) {
            // Whatever the handler holds (often this cryptor) is let go here.
            self->handler_ = nullptr;
            {
                std::lock_guard lock(self->mutex_);
                self->done_ = true;
            }
            self->doneChanged_.notify_all();
        }
    });
}

bool Cryptor::isFinished() const {
    std::lock_guard lock(mutex_);
    return finished_;
}

std::optional<CryptorError> Cryptor::error() const {
    std::lock_guard lock(mutex_);
    return error_;
}

void Cryptor::waitUntilFinished() const {
    std::unique_lock lock(mutex_);
    doneChanged_.wait(lock, [this] { return done_; });
}

// --- Encryptor ----------------------------------------------------------------------------------

Encryptor::Encryptor(const std::string& password, Handler handler)
    : Cryptor(std::move(handler)), password_(password) {}

std::shared_ptr<Encryptor> Encryptor::create(const std::string& password, Handler handler) {
    return std::shared_ptr<Encryptor>(new Encryptor(password, std::move(handler)));
}

// Runs on the work queue before the first piece, so that creating an encryptor never costs the
// caller two key derivations.
std::optional<CryptorError> Encryptor::setUp() {
    using namespace cryptorformat;
    setUpDone_ = true;
    std::array<std::uint8_t, saltSize> encryptionSalt{}, hmacSalt{};
    std::array<std::uint8_t, ivSize> iv{};
    if (!crypto().randomBytes(encryptionSalt) || !crypto().randomBytes(hmacSalt) || !crypto().randomBytes(iv))
        return cryptorError(int(CryptoStatus::unimplemented), "No secure random bytes");

    Key encryptionKey{}, hmacKey{};
    std::span<const std::uint8_t> password = bytesOf(password_);
    CryptoStatus status = crypto().deriveKey(password, encryptionSalt, pbkdf2Rounds, encryptionKey);
    if (status == CryptoStatus::success) status = crypto().deriveKey(password, hmacSalt, pbkdf2Rounds, hmacKey);
    if (status == CryptoStatus::success)
        status = crypto().makeCipher(Crypto::Operation::encrypt, encryptionKey, iv, cipher_);
    if (status == CryptoStatus::success) status = crypto().makeHmac(hmacKey, hmac_);
    if (status != CryptoStatus::success) return statusError(status);

    header_ = {version, passwordOption};
    header_.insert(header_.end(), encryptionSalt.begin(), encryptionSalt.end());
    header_.insert(header_.end(), hmacSalt.begin(), hmacSalt.end());
    header_.insert(header_.end(), iv.begin(), iv.end());
    hmac_->update(header_);
    return std::nullopt;
}

std::optional<CryptorError> Encryptor::consume(std::span<const std::uint8_t> piece, std::vector<std::uint8_t>& output) {
    if (!setUpDone_) {
        if (auto error = setUp()) return error;
    }
    output = std::move(header_);
    header_.clear();
    std::size_t start = output.size();
    if (CryptoStatus status = cipher_->update(piece, output); status != CryptoStatus::success)
        return statusError(status);
    hmac_->update(std::span(output).subspan(start));
    return std::nullopt;
}

std::optional<CryptorError> Encryptor::complete(std::vector<std::uint8_t>& output) {
    if (!setUpDone_) {
        if (auto error = setUp()) return error;
    }
    output = std::move(header_);
    header_.clear();
    std::size_t start = output.size();
    if (CryptoStatus status = cipher_->finish(output); status != CryptoStatus::success)
        return statusError(status);
    hmac_->update(std::span(output).subspan(start));
    Hmac::Code code = hmac_->finish();
    output.insert(output.end(), code.begin(), code.end());
    return std::nullopt;
}

// --- Decryptor ----------------------------------------------------------------------------------

Decryptor::Decryptor(const std::string& password, Handler handler)
    : Cryptor(std::move(handler)), password_(password) {}

std::shared_ptr<Decryptor> Decryptor::create(const std::string& password, Handler handler) {
    return std::shared_ptr<Decryptor>(new Decryptor(password, std::move(handler)));
}

std::optional<CryptorError> Decryptor::readHeader(bool& complete) {
    using namespace cryptorformat;
    complete = false;
    if (buffer_.size() < 2) return std::nullopt;
    std::uint8_t fileVersion = buffer_[0];
    if (fileVersion != 2 && fileVersion != 3) return cryptorError(unknownHeaderError, "Unknown header");
    bool hasSalts = (buffer_[1] & passwordOption) != 0;
    std::size_t headerSize = 2 + ivSize + (hasSalts ? 2 * saltSize : 0);
    if (buffer_.size() < headerSize) return std::nullopt;

    std::span<const std::uint8_t> header(buffer_.data(), headerSize);
    // A key-based file has no salts; keys derived from empty salts cannot match its HMAC.
    std::span<const std::uint8_t> encryptionSalt = hasSalts ? header.subspan(2, saltSize) : header.subspan(2, 0);
    std::span<const std::uint8_t> hmacSalt = hasSalts ? header.subspan(2 + saltSize, saltSize) : header.subspan(2, 0);
    std::span<const std::uint8_t, ivSize> iv = header.subspan(headerSize - ivSize).first<ivSize>();

    std::string passwordBytes = fileVersion == 2 ? version2PasswordBytes(password_) : password_;
    Key encryptionKey{}, hmacKey{};
    CryptoStatus status = crypto().deriveKey(bytesOf(passwordBytes), encryptionSalt, pbkdf2Rounds, encryptionKey);
    if (status == CryptoStatus::success)
        status = crypto().deriveKey(bytesOf(passwordBytes), hmacSalt, pbkdf2Rounds, hmacKey);
    if (status == CryptoStatus::success)
        status = crypto().makeCipher(Crypto::Operation::decrypt, encryptionKey, iv, cipher_);
    if (status == CryptoStatus::success) status = crypto().makeHmac(hmacKey, hmac_);
    if (status != CryptoStatus::success) {
        cipher_.reset();
        return statusError(status);
    }
    hmac_->update(header);
    buffer_.erase(buffer_.begin(), buffer_.begin() + std::ptrdiff_t(headerSize));
    complete = true;
    return std::nullopt;
}

std::optional<CryptorError> Decryptor::consume(std::span<const std::uint8_t> piece, std::vector<std::uint8_t>& output) {
    buffer_.insert(buffer_.end(), piece.begin(), piece.end());
    if (!cipher_) {
        bool haveHeader = false;
        if (auto error = readHeader(haveHeader)) return error;
        if (!haveHeader) return std::nullopt;
    }
    if (buffer_.size() <= cryptorformat::hmacSize) return std::nullopt;
    std::span<const std::uint8_t> ready(buffer_.data(), buffer_.size() - cryptorformat::hmacSize);
    hmac_->update(ready);
    CryptoStatus status = cipher_->update(ready, output);
    buffer_.erase(buffer_.begin(), buffer_.begin() + std::ptrdiff_t(ready.size()));
    if (status != CryptoStatus::success) return statusError(status);
    return std::nullopt;
}

std::optional<CryptorError> Decryptor::complete(std::vector<std::uint8_t>& output) {
    // Input that never held a whole header ends quietly, without output and without a check.
    if (!cipher_) return std::nullopt;
    if (CryptoStatus status = cipher_->finish(output); status != CryptoStatus::success)
        return statusError(status);
    Hmac::Code computed = hmac_->finish();
    if (!constantTimeEquals(buffer_, computed)) return cryptorError(hmacMismatchError, "HMAC Mismatch");
    return std::nullopt;
}

// --- one-call helpers ---------------------------------------------------------------------------

namespace {

template <class Kind>
CryptorResult runWhole(std::span<const std::uint8_t> data, const std::string& password) {
    // Touched only on the response queue until waitUntilFinished() has returned.
    auto result = std::make_shared<Bytes>();
    auto cryptor = Kind::create(password, [result](Cryptor&, std::span<const std::uint8_t> output) {
        result->insert(result->end(), output.begin(), output.end());
    });
    cryptor->addData(Bytes(data.begin(), data.end()));
    cryptor->finish();
    cryptor->waitUntilFinished();
    if (auto error = cryptor->error()) return CryptorResult{{}, std::move(error)};
    return CryptorResult{std::move(*result), std::nullopt};
}

}  // namespace

CryptorResult encryptData(std::span<const std::uint8_t> data, const std::string& password) {
    return runWhole<Encryptor>(data, password);
}

CryptorResult decryptData(std::span<const std::uint8_t> data, const std::string& password) {
    return runWhole<Decryptor>(data, password);
}

std::string version2PasswordBytes(const std::string& password) {
    // UTF-16 code units: one per UTF-8 lead byte, two for four-byte sequences (outside the BMP).
    std::size_t units = 0;
    for (unsigned char byte : password) {
        if ((byte & 0xC0) == 0x80) continue;
        units += byte >= 0xF0 ? 2 : 1;
    }
    return password.substr(0, std::min(units, password.size()));
}

bool constantTimeEquals(std::span<const std::uint8_t> received, std::span<const std::uint8_t> computed) {
    if (computed.empty()) return received.empty();
    auto accumulator = static_cast<std::uint8_t>(received.size() - computed.size());
    for (std::size_t i = 0; i < received.size(); ++i)
        accumulator |= static_cast<std::uint8_t>(received[i] ^ computed[i % computed.size()]);
    return accumulator == 0;
}

}  // namespace tactora
