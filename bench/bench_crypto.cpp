// The cost of the encrypted script format, each beside the same work done by direct OpenSSL calls
// in the same run:
//  - a password try: open a small file with the wrong password (two PBKDF2 derivations, the HMAC
//    and the last block);
//  - streaming: encrypt and decrypt 16 MiB in 32768-byte pieces (key derivation included).
// Counters: "ratio" is the cryptor's time over the reference's (1.0 = no overhead); "MB/s" and
// "reference_MB/s" the throughputs; "ms/try" and "reference_ms/try" the per-try times.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/crypto.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <chrono>
#include <memory>
#include <span>
#include <vector>

#include "Managers/Cryptor.h"
#include "Platform/Platform.h"
#include "host/OpenSSLCrypto.h"

using namespace tactora;

namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;
constexpr std::size_t pieceSize = 32768;

void installCrypto() {
    static host::OpenSSLCrypto crypto;
    platform().crypto = &crypto;
}

double seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

Bytes derive(const std::string& password, const std::uint8_t* salt) {
    Bytes key(32);
    PKCS5_PBKDF2_HMAC(password.data(), int(password.size()), salt, 8, 10000, EVP_sha1(), 32, key.data());
    return key;
}

// The reference reader: everything the decryptor does, in straight-line OpenSSL calls.
bool referenceDecrypt(const Bytes& file, const std::string& password, std::size_t& plainBytes) {
    Bytes encryptionKey = derive(password, file.data() + 2), hmacKey = derive(password, file.data() + 10);
    std::size_t cipherEnd = file.size() - 32;
    EVP_MAC* macType = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    EVP_MAC_CTX* mac = EVP_MAC_CTX_new(macType);
    char digest[] = "SHA256";
    OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string("digest", digest, 0), OSSL_PARAM_construct_end()};
    EVP_MAC_init(mac, hmacKey.data(), hmacKey.size(), params);
    EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();
    EVP_DecryptInit_ex(cipher, EVP_aes_256_cbc(), nullptr, encryptionKey.data(), file.data() + 18);
    EVP_MAC_update(mac, file.data(), 34);
    Bytes out(pieceSize + 16);
    plainBytes = 0;
    int written = 0;
    for (std::size_t at = 34; at < cipherEnd; at += pieceSize) {
        std::size_t size = std::min(pieceSize, cipherEnd - at);
        EVP_MAC_update(mac, file.data() + at, size);
        EVP_DecryptUpdate(cipher, out.data(), &written, file.data() + at, int(size));
        plainBytes += std::size_t(written);
    }
    bool ok = EVP_DecryptFinal_ex(cipher, out.data(), &written) == 1;
    plainBytes += ok ? std::size_t(written) : 0;
    std::uint8_t code[32];
    std::size_t codeLength = 0;
    EVP_MAC_final(mac, code, &codeLength, sizeof code);
    ok = ok && CRYPTO_memcmp(code, file.data() + cipherEnd, 32) == 0;
    EVP_CIPHER_CTX_free(cipher);
    EVP_MAC_CTX_free(mac);
    EVP_MAC_free(macType);
    return ok;
}

// The reference writer, in 32768-byte pieces.
std::size_t referenceEncrypt(const Bytes& plain, const std::string& password) {
    std::uint8_t header[34] = {3, 1};
    RAND_bytes(header + 2, 32);
    Bytes encryptionKey = derive(password, header + 2), hmacKey = derive(password, header + 10);
    EVP_MAC* macType = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    EVP_MAC_CTX* mac = EVP_MAC_CTX_new(macType);
    char digest[] = "SHA256";
    OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string("digest", digest, 0), OSSL_PARAM_construct_end()};
    EVP_MAC_init(mac, hmacKey.data(), hmacKey.size(), params);
    EVP_MAC_update(mac, header, sizeof header);
    EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(cipher, EVP_aes_256_cbc(), nullptr, encryptionKey.data(), header + 18);
    Bytes out(pieceSize + 16);
    std::size_t total = sizeof header;
    int written = 0;
    for (std::size_t at = 0; at < plain.size(); at += pieceSize) {
        std::size_t size = std::min(pieceSize, plain.size() - at);
        EVP_EncryptUpdate(cipher, out.data(), &written, plain.data() + at, int(size));
        EVP_MAC_update(mac, out.data(), std::size_t(written));
        total += std::size_t(written);
    }
    EVP_EncryptFinal_ex(cipher, out.data(), &written);
    EVP_MAC_update(mac, out.data(), std::size_t(written));
    std::uint8_t code[32];
    std::size_t codeLength = 0;
    EVP_MAC_final(mac, code, &codeLength, sizeof code);
    total += std::size_t(written) + codeLength;
    EVP_CIPHER_CTX_free(cipher);
    EVP_MAC_CTX_free(mac);
    EVP_MAC_free(macType);
    return total;
}

// Runs a cryptor over `data` in 32768-byte pieces, counting its output.
template <class Kind>
std::size_t runCryptor(const Bytes& data, const std::string& password, bool& failed) {
    auto produced = std::make_shared<std::size_t>(0);
    auto cryptor = Kind::create(password, [produced](Cryptor&, std::span<const std::uint8_t> output) {
        *produced += output.size();
    });
    for (std::size_t at = 0; at < data.size(); at += pieceSize)
        cryptor->addData(Bytes(data.begin() + std::ptrdiff_t(at),
                               data.begin() + std::ptrdiff_t(std::min(data.size(), at + pieceSize))));
    cryptor->finish();
    cryptor->waitUntilFinished();
    failed = cryptor->error().has_value();
    return *produced;
}

// Alternates the cryptor and the reference so both see the same machine load; the benchmark's own
// time is the cryptor's.
void report(benchmark::State& state, double ours, double reference, std::int64_t iterations, double bytes) {
    state.counters["ratio"] = ours / reference;
    if (bytes > 0) {
        state.counters["MB/s"] = bytes * double(iterations) / ours / 1e6;
        state.counters["reference_MB/s"] = bytes * double(iterations) / reference / 1e6;
    } else {
        state.counters["ms/try"] = ours / double(iterations) * 1e3;
        state.counters["reference_ms/try"] = reference / double(iterations) * 1e3;
    }
}

void BM_PasswordTry(benchmark::State& state) {
    installCrypto();
    Bytes file = encryptData(Bytes(200, 'a'), "the right one").data;
    double ours = 0, reference = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        CryptorResult result = decryptData(file, "a wrong one");
        auto middle = Clock::now();
        std::size_t plainBytes = 0;
        bool accepted = referenceDecrypt(file, "a wrong one", plainBytes);
        auto end = Clock::now();
        if (!result.error || accepted) state.SkipWithError("a wrong password was accepted");
        ours += seconds(middle - start);
        reference += seconds(end - middle);
        state.SetIterationTime(seconds(middle - start));
    }
    report(state, ours, reference, state.iterations(), 0);
}
BENCHMARK(BM_PasswordTry)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

void BM_StreamEncrypt(benchmark::State& state) {
    installCrypto();
    Bytes plain(std::size_t(state.range(0)) << 20, 0x5A);
    double ours = 0, reference = 0;
    for (auto _ : state) {
        bool failed = false;
        auto start = Clock::now();
        std::size_t produced = runCryptor<Encryptor>(plain, "pw", failed);
        auto middle = Clock::now();
        std::size_t expected = referenceEncrypt(plain, "pw");
        auto end = Clock::now();
        if (failed || produced != expected) state.SkipWithError("the sizes differ");
        ours += seconds(middle - start);
        reference += seconds(end - middle);
        state.SetIterationTime(seconds(middle - start));
    }
    report(state, ours, reference, state.iterations(), double(plain.size()));
}
BENCHMARK(BM_StreamEncrypt)->Arg(16)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(3.0);

void BM_StreamDecrypt(benchmark::State& state) {
    installCrypto();
    Bytes plain(std::size_t(state.range(0)) << 20, 0x5A);
    Bytes file = encryptData(plain, "pw").data;
    double ours = 0, reference = 0;
    for (auto _ : state) {
        bool failed = false;
        auto start = Clock::now();
        std::size_t produced = runCryptor<Decryptor>(file, "pw", failed);
        auto middle = Clock::now();
        std::size_t plainBytes = 0;
        bool ok = referenceDecrypt(file, "pw", plainBytes);
        auto end = Clock::now();
        if (failed || !ok || produced != plain.size() || plainBytes != plain.size())
            state.SkipWithError("decryption failed");
        ours += seconds(middle - start);
        reference += seconds(end - middle);
        state.SetIterationTime(seconds(middle - start));
    }
    report(state, ours, reference, state.iterations(), double(plain.size()));
}
BENCHMARK(BM_StreamDecrypt)->Arg(16)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(3.0);

}  // namespace
