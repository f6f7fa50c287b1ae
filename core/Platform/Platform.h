// The services the core asks of the operating system, installed once at start-up.
//
// Every port is a small interface with one header of its own in this folder. Its base class is
// also the "not supported" implementation, so the core never checks for a missing service: a
// platform (or a test) replaces the ports it provides and leaves the rest as they are.
#pragma once

namespace tactora {

class Paths;
class UserDefaults;
class Languages;
class DiagnosticLog;
class Queues;
class Clock;
class Alerts;
class Feedback;
class Apps;
class MessagePorts;
class HIDDispatch;
class HIDSource;
class Display;
class ImageCodec;
class Crypto;
class EventRegistry;
class Presenter;
class DeviceInfo;
class Installation;

struct Platform {
    Paths* paths;
    UserDefaults* userDefaults;
    Languages* languages;
    DiagnosticLog* diagnosticLog;
    Queues* queues;
    Clock* clock;
    Alerts* alerts;
    Feedback* feedback;
    Apps* apps;
    MessagePorts* messagePorts;
    HIDDispatch* hidDispatch;
    HIDSource* hidSource;
    Display* display;
    ImageCodec* imageCodec;
    Crypto* crypto;
    EventRegistry* eventRegistry;
    Presenter* presenter;
    DeviceInfo* deviceInfo;
    Installation* installation;
};

// The ports in force. Install at start-up, before any other thread runs.
Platform& platform();

// Puts every port back to its "not supported" default.
void resetPlatform();

// Installs a set of ports for a scope and puts the previous set back when it ends (tests).
class ScopedPlatform {
public:
    ScopedPlatform() : saved_(platform()) {}
    ~ScopedPlatform() { platform() = saved_; }
    ScopedPlatform(const ScopedPlatform&) = delete;
    ScopedPlatform& operator=(const ScopedPlatform&) = delete;

private:
    Platform saved_;
};

}  // namespace tactora
