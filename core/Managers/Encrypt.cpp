#include "Managers/Encrypt.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <semaphore>
#include <vector>

#include "Platform/DiagnosticLog.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t pieceSize = 32768;
constexpr const char* decryptScriptName = "+[Encrypt decryptScript:with:]";
constexpr const char* decryptStreamName = "+[Encrypt decryptWithSemaphore:with:]";

std::optional<Bytes> readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    Bytes data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) return std::nullopt;
    return data;
}

CryptorError fileError(int code, const std::string& what, const std::string& path) {
    return CryptorError{encryptFileErrorDomain, code, what + " " + path + ": " + std::strerror(code)};
}

// Where the handler writes. Touched by the handler on the cryptor's response queue; read by others
// only after the cryptor's waitUntilFinished().
struct Sink {
    std::FILE* file = nullptr;
    std::optional<CryptorError> writeError;
    std::string path;

    void close() {
        if (!file) return;
        if (std::fclose(file) != 0 && !writeError) writeError = fileError(errno, "Cannot write", path);
        file = nullptr;
    }
};

enum class Direction { encrypt, decrypt };

struct Stream {
    std::shared_ptr<Cryptor> cryptor;
    std::shared_ptr<Sink> sink;
    std::optional<CryptorError> openError;
};

// Feeds the input file to a cryptor one piece at a time, waiting after each piece for the
// handler's answer so that at most one piece is in flight. Returns once the cryptor has been told
// the input ended; the handler closes the output when the cryptor finishes.
Stream stream(Direction direction, const std::string& inputPath, const std::string& outputPath,
              const std::string& password) {
    // A missing input must not truncate an existing output (a.lua when a.lua.e is missing).
    std::FILE* input = std::fopen(inputPath.c_str(), "rb");
    if (!input) return Stream{nullptr, nullptr, fileError(errno, "Cannot read", inputPath)};
    auto sink = std::make_shared<Sink>();
    sink->path = outputPath;
    sink->file = std::fopen(outputPath.c_str(), "wb");
    if (!sink->file) {
        int code = errno;
        std::fclose(input);
        return Stream{nullptr, nullptr, fileError(code, "Cannot write", outputPath)};
    }

    auto signal = std::make_shared<std::counting_semaphore<>>(0);
    bool decrypting = direction == Direction::decrypt;
    Cryptor::Handler handler = [sink, signal, decrypting](Cryptor& cryptor, std::span<const std::uint8_t> output) {
        if (decrypting) {
            char line[64];
            std::snprintf(line, sizeof line, "Decryptor recevied %lu bytes", static_cast<unsigned long>(output.size()));
            TACTORA_DIAGNOSTIC(decryptStreamName, line);
        }
        if (sink->file && !output.empty() && std::fwrite(output.data(), 1, output.size(), sink->file) != output.size() &&
            !sink->writeError)
            sink->writeError = fileError(errno, "Cannot write", sink->path);
        signal->release();
        if (cryptor.isFinished()) sink->close();
    };
    std::shared_ptr<Cryptor> cryptor = decrypting ? std::shared_ptr<Cryptor>(Decryptor::create(password, handler))
                                                  : std::shared_ptr<Cryptor>(Encryptor::create(password, handler));

    long total = 0;
    std::optional<CryptorError> readError;
    for (;;) {
        Bytes piece(pieceSize);
        std::size_t count = std::fread(piece.data(), 1, piece.size(), input);
        if (count == 0) {
            if (std::ferror(input)) readError = fileError(errno ? errno : EIO, "Cannot read", inputPath);
            break;
        }
        piece.resize(count);
        total += long(count);
        cryptor->addData(std::move(piece));
        if (decrypting) {
            char line[96];
            std::snprintf(line, sizeof line, "New bytes to decryptor: %lu Total: %ld", static_cast<unsigned long>(count),
                          total);
            TACTORA_DIAGNOSTIC(decryptStreamName, line);
        }
        signal->acquire();
        // A cryptor that failed on this piece answers no more pieces.
        if (cryptor->isFinished()) break;
    }
    std::fclose(input);
    cryptor->finish();
    return Stream{cryptor, sink, readError};
}

// Streams and waits for the end; the first thing that went wrong, if anything did.
std::optional<CryptorError> streamAndWait(Direction direction, const std::string& inputPath,
                                          const std::string& outputPath, const std::string& password) {
    Stream result = stream(direction, inputPath, outputPath, password);
    if (!result.cryptor) return result.openError;
    result.cryptor->waitUntilFinished();
    if (auto error = result.cryptor->error()) return error;
    if (result.openError) return result.openError;
    return result.sink->writeError;
}

}  // namespace

std::optional<std::string> Encrypt::decryptScript(const std::string& path, const std::string& password) {
    Bytes data = readWholeFile(path).value_or(Bytes{});
    CryptorResult result = decryptData(data, password);
    if (result.error) return std::nullopt;
    // Written on success only: the entry records that decryption reported no error.
    TACTORA_DIAGNOSTIC(decryptScriptName, "error:(null)");
    for (std::uint8_t byte : result.data)
        if (byte >= 0x80) return std::nullopt;  // not 7-bit ASCII
    return std::string(result.data.begin(), result.data.end());
}

void Encrypt::encryptScript(const std::string& path, const std::string& password) {
    std::optional<Bytes> script = readWholeFile(path);
    if (!script) return;
    CryptorResult result = encryptData(*script, password);
    if (result.error || result.data.empty()) return;
    std::ofstream out(path + ".e", std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(result.data.data()), std::streamsize(result.data.size()));
}

void Encrypt::encryptWithSemaphore(const std::string& path, const std::string& password) {
    stream(Direction::encrypt, path, path + ".e", password);
}

void Encrypt::decryptWithSemaphore(const std::string& path, const std::string& password) {
    if (path.size() <= 2) return;
    stream(Direction::decrypt, path, path.substr(0, path.size() - 2), password);
}

std::optional<CryptorError> Encrypt::encryptFile(const std::string& inputPath, const std::string& outputPath,
                                                 const std::string& password) {
    return streamAndWait(Direction::encrypt, inputPath, outputPath, password);
}

std::optional<CryptorError> Encrypt::decryptFile(const std::string& inputPath, const std::string& outputPath,
                                                 const std::string& password) {
    return streamAndWait(Direction::decrypt, inputPath, outputPath, password);
}

}  // namespace tactora
