// tactora encrypt / tactora decrypt: scripts to ".e" files and back, streamed, so files of any
// size take little memory. Output goes to a temporary file beside the target and is renamed into
// place only when it is complete and authentic, so a wrong password leaves nothing behind.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Command.h"
#include "Password.h"
#include "Managers/Cryptor.h"
#include "Managers/Encrypt.h"
#include "host/HostPlatform.h"

namespace tactora::cli {

namespace {

struct CryptOptions {
    std::string file;
    std::string output;
    bool force = false;
    PasswordSource password;
};

void fail(const std::string& message) { std::cerr << "tactora: " << message << "\n"; }

// The temporary file being written, removed if the process is interrupted.
char interruptedTemporary[4096];

void removeTemporaryAndExit(int signal) {
    if (interruptedTemporary[0]) ::unlink(interruptedTemporary);
    ::_exit(128 + signal);
}

// False, with a message, when `target` exists and may not be replaced: what is there may be the
// only copy of someone's work.
bool mayWrite(const std::string& target, bool force) {
    struct stat info{};
    if (force || ::lstat(target.c_str(), &info) != 0) return true;
    fail(target + " already exists; give --force to replace it, or -o to write elsewhere");
    return false;
}

// Streams `input` into `target` through a temporary file beside it. Answers the exit code.
int streamInto(bool encrypting, const std::string& input, const std::string& target, const std::string& password) {
    std::string temporary = target + ".XXXXXX";
    if (temporary.size() >= sizeof interruptedTemporary) {
        fail("the output path is too long: " + target);
        return 1;
    }
    int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        fail("cannot create a file beside " + target + ": " + std::strerror(errno));
        return 1;
    }
    std::memcpy(interruptedTemporary, temporary.c_str(), temporary.size() + 1);
    struct sigaction onInterrupt{};
    onInterrupt.sa_handler = removeTemporaryAndExit;
    ::sigaction(SIGINT, &onInterrupt, nullptr);
    ::sigaction(SIGTERM, &onInterrupt, nullptr);
    ::sigaction(SIGHUP, &onInterrupt, nullptr);
    // mkstemp makes the file private; the result gets the mode a newly created file would get.
    mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    ::close(fd);

    std::optional<CryptorError> error = encrypting ? Encrypt::encryptFile(input, temporary, password)
                                                   : Encrypt::decryptFile(input, temporary, password);
    if (!error && ::rename(temporary.c_str(), target.c_str()) != 0)
        error = CryptorError{encryptFileErrorDomain, errno, "cannot rename into " + target + ": " + std::strerror(errno)};
    if (error) ::unlink(temporary.c_str());
    interruptedTemporary[0] = 0;
    if (!error) return 0;

    if (error->domain == cryptorErrorDomain && error->code == unknownHeaderError)
        fail(input + " is not an encrypted script (" + error->description + ")");
    else if (error->domain == cryptorErrorDomain && error->code != int(CryptoStatus::unimplemented))
        fail("wrong password or damaged file: " + input + " (" + error->description + ")");
    else
        fail(error->description);
    return 1;
}

int runEncrypt(const CryptOptions& options, GlobalOptions& global) {
    std::optional<std::string> password = options.password.choose(true);
    if (!password) return 2;
    host::HostPlatform host(global.host);
    std::string target = options.output.empty() ? options.file + ".e" : options.output;
    if (!mayWrite(target, options.force)) return 1;
    int code = streamInto(true, options.file, target, *password);
    if (code == 0) std::cout << target << "\n";
    return code;
}

int runDecrypt(const CryptOptions& options, GlobalOptions& global) {
    std::string target = options.output;
    if (target.empty()) {
        if (options.file.size() <= 2 || options.file.compare(options.file.size() - 2, 2, ".e") != 0) {
            fail(options.file + " does not end in .e; name the output with -o");
            return 2;
        }
        target = options.file.substr(0, options.file.size() - 2);
    }
    if (!mayWrite(target, options.force)) return 1;
    // Shorter than a header, a padded block and an HMAC: the cryptor would end quietly with
    // nothing, which for a tool is a mistake worth naming.
    struct stat info{};
    if (::stat(options.file.c_str(), &info) == 0 &&
        std::uintmax_t(info.st_size) < cryptorformat::passwordHeaderSize + 16 + cryptorformat::hmacSize) {
        fail(options.file + " is too short to be an encrypted script (" + std::to_string(info.st_size) + " bytes)");
        return 1;
    }
    std::optional<std::string> password = options.password.choose(false);
    if (!password) return 2;
    host::HostPlatform host(global.host);
    int code = streamInto(false, options.file, target, *password);
    if (code == 0) std::cout << target << "\n";
    return code;
}

void setup(CLI::App& app, GlobalOptions& global) {
    auto encryptOptions = std::make_shared<CryptOptions>();
    CLI::App* encrypt = app.add_subcommand(
        "encrypt", "Encrypt a script into FILE.e under a password (password from --password, --password-file, "
                   "$TACTORA_PASSWORD or a prompt)");
    encrypt->add_option("file", encryptOptions->file, "The script to encrypt")->required()->check(CLI::ExistingFile);
    encrypt->add_option("-o,--output", encryptOptions->output, "Where to write (default: FILE.e)");
    encrypt->add_flag("-f,--force", encryptOptions->force, "Replace the output file if it exists");
    encryptOptions->password.addOptions(*encrypt);
    encrypt->callback([&global, encryptOptions] { global.exitCode = runEncrypt(*encryptOptions, global); });

    auto decryptOptions = std::make_shared<CryptOptions>();
    CLI::App* decrypt = app.add_subcommand(
        "decrypt", "Decrypt FILE.e into FILE; a wrong password leaves no output and exits with 1");
    decrypt->add_option("file", decryptOptions->file, "The encrypted script")->required()->check(CLI::ExistingFile);
    decrypt->add_option("-o,--output", decryptOptions->output, "Where to write (default: FILE without .e)");
    decrypt->add_flag("-f,--force", decryptOptions->force, "Replace the output file if it exists");
    decryptOptions->password.addOptions(*decrypt);
    decrypt->callback([&global, decryptOptions] { global.exitCode = runDecrypt(*decryptOptions, global); });
}

RegisterCommand registerEncryptCommands(60, setup);

}  // namespace

}  // namespace tactora::cli
