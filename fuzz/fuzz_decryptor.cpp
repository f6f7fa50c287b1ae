// Arbitrary files and passwords into the decryptor, in pieces of the fuzzer's sizes. The first byte
// chooses: foreign bytes, decrypted whole and in pieces, must end alike; or the fuzzer's plain text,
// encrypted in pieces and changed in one way (or not), must come back unchanged and fail changed.
// Every decryption costs two PBKDF2 derivations of 10000 rounds, so runs are slow by design.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Managers/Cryptor.h"
#include "Platform/Platform.h"
#include "host/OpenSSLCrypto.h"

using namespace tactora;

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Outcome {
    Bytes output;
    std::optional<CryptorError> error;
    bool finished = false;
};

template <class Kind>
Outcome run(const Bytes& data, const std::string& password, const std::vector<std::size_t>& cuts) {
    auto outcome = std::make_shared<Outcome>();
    auto cryptor = Kind::create(password, [outcome](Cryptor& self, std::span<const std::uint8_t> output) {
        if (outcome->finished) std::abort();  // nothing may follow the last call
        outcome->output.insert(outcome->output.end(), output.begin(), output.end());
        outcome->finished = self.isFinished();
    });
    std::size_t at = 0;
    for (std::size_t cut : cuts) {
        const auto from = data.begin() + std::ptrdiff_t(at);
        at += std::min(cut, data.size() - at);
        cryptor->addData(Bytes(from, data.begin() + std::ptrdiff_t(at)));
    }
    if (at < data.size()) cryptor->addData(Bytes(data.begin() + std::ptrdiff_t(at), data.end()));
    cryptor->finish();
    cryptor->waitUntilFinished();
    if (!outcome->finished) std::abort();
    outcome->error = cryptor->error();
    return *outcome;
}

std::vector<std::size_t> takeCuts(FuzzedDataProvider& input) {
    std::vector<std::size_t> cuts(input.ConsumeIntegralInRange<std::size_t>(0, 8));
    for (auto& cut : cuts) cut = input.ConsumeIntegralInRange<std::size_t>(0, 96);
    return cuts;
}

void check(bool condition) { if (!condition) std::abort(); }

void foreignBytes(FuzzedDataProvider& input) {
    std::string password = input.ConsumeRandomLengthString(24);
    std::vector<std::size_t> cuts = takeCuts(input);
    Bytes file = input.ConsumeRemainingBytes<std::uint8_t>();
    Outcome whole = run<Decryptor>(file, password, {});
    Outcome pieces = run<Decryptor>(file, password, cuts);
    check(whole.error == pieces.error);
    if (!whole.error) check(whole.output == pieces.output);
    // Succeeding without a whole header is the quiet end: no output at all.
    if (!whole.error && file.size() < cryptorformat::passwordHeaderSize) check(whole.output.empty());
}

void sealedFile(FuzzedDataProvider& input) {
    std::string password = input.ConsumeRandomLengthString(24);
    std::vector<std::size_t> encryptCuts = takeCuts(input);
    std::vector<std::size_t> decryptCuts = takeCuts(input);
    enum Change { none, flip, cut, append, otherPassword, count };
    auto change = Change(input.ConsumeIntegralInRange<int>(0, count - 1));
    std::size_t where = input.ConsumeIntegral<std::uint16_t>();
    std::uint8_t mask = input.ConsumeIntegralInRange<std::uint8_t>(1, 255);
    Bytes plain = input.ConsumeRemainingBytes<std::uint8_t>();

    Outcome sealed = run<Encryptor>(plain, password, encryptCuts);
    check(!sealed.error);
    Bytes file = sealed.output;
    check(file.size() == cryptorformat::passwordHeaderSize + (plain.size() / 16 + 1) * 16 + cryptorformat::hmacSize);

    std::string reader = password;
    switch (change) {
    case none: break;
    case flip: file[where % file.size()] ^= mask; break;
    case cut: file.resize(where % file.size()); break;
    case append: file.insert(file.end(), std::size_t(mask % 32) + 1, std::uint8_t(where)); break;
    case otherPassword: reader += char(mask); break;
    default: break;
    }
    Outcome opened = run<Decryptor>(file, reader, decryptCuts);
    if (change == none) {
        check(!opened.error && opened.output == plain);
    } else if (change == cut && file.size() < cryptorformat::passwordHeaderSize) {
        // Cut short of its header: no cipher was ever set up, so it ends quietly with nothing.
        check(!opened.error && opened.output.empty());
    } else {
        check(opened.error.has_value());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static host::OpenSSLCrypto crypto;
    platform().crypto = &crypto;
    FuzzedDataProvider input(data, size);
    if (input.ConsumeBool())
        sealedFile(input);
    else
        foreignBytes(input);
    return 0;
}
