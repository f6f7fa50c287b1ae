#include "Password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

namespace tactora::cli {

namespace {

void fail(const std::string& message) { std::cerr << "tactora: " << message << "\n"; }

// Reads one line from the terminal with echo off. None without a terminal.
std::optional<std::string> promptHidden(const char* prompt) {
    int tty = ::open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (tty < 0) return std::nullopt;
    termios saved{};
    bool restore = ::tcgetattr(tty, &saved) == 0;
    if (restore) {
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        quiet.c_lflag |= ECHONL;
        ::tcsetattr(tty, TCSAFLUSH, &quiet);
    }
    (void)!::write(tty, prompt, std::strlen(prompt));
    std::string line;
    char c;
    bool gotAny = false;
    while (::read(tty, &c, 1) == 1) {
        gotAny = true;
        if (c == '\n') break;
        line.push_back(c);
    }
    if (restore) ::tcsetattr(tty, TCSAFLUSH, &saved);
    ::close(tty);
    if (!gotAny) return std::nullopt;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

}  // namespace

void PasswordSource::addOptions(CLI::App& command) {
    command.add_option("--password", password, "The password (visible to other users in the process list)");
    command.add_option("--password-file", passwordFile,
                       "Read the password from this file (one line; a final line break is dropped)")
        ->check(CLI::ExistingFile);
}

std::optional<std::string> PasswordSource::choose(bool confirm) const {
    if (password) return password;
    if (!passwordFile.empty()) {
        std::ifstream in(passwordFile, std::ios::binary);
        if (!in) {
            fail("cannot read the password file " + passwordFile + ": " + std::strerror(errno));
            return std::nullopt;
        }
        std::stringstream all;
        all << in.rdbuf();
        std::string fromFile = all.str();
        // One line: the line break a text editor adds is not part of the password.
        if (!fromFile.empty() && fromFile.back() == '\n') fromFile.pop_back();
        if (!fromFile.empty() && fromFile.back() == '\r') fromFile.pop_back();
        return fromFile;
    }
    if (const char* fromEnvironment = std::getenv("TACTORA_PASSWORD")) return std::string(fromEnvironment);

    std::optional<std::string> typed = promptHidden("Password: ");
    if (!typed) {
        fail("no password: give --password, --password-file or TACTORA_PASSWORD, or run on a terminal");
        return std::nullopt;
    }
    if (confirm) {
        if (typed->empty()) {
            fail("the password is empty");
            return std::nullopt;
        }
        std::optional<std::string> again = promptHidden("Password again: ");
        if (again != typed) {
            fail("the passwords differ");
            return std::nullopt;
        }
    }
    return typed;
}

}  // namespace tactora::cli
