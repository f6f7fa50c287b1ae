#include "ios/CFMessagePorts.h"

#include <CoreFoundation/CoreFoundation.h>
#include <rocketbootstrap/rocketbootstrap.h>

namespace tactora::ios {

namespace {

CFStringRef copyName(const std::string& name) {
    return CFStringCreateWithCString(kCFAllocatorDefault, name.c_str(), kCFStringEncodingUTF8);
}

class CFLocalMessagePort final : public LocalMessagePort {
public:
    explicit CFLocalMessagePort(PortMessageHandler handler) : handler_(std::move(handler)) {}
    ~CFLocalMessagePort() override {
        if (source_) {
            CFRunLoopSourceInvalidate(source_);
            CFRelease(source_);
        }
        if (port_) {
            CFMessagePortInvalidate(port_);
            CFRelease(port_);
        }
    }

    LocalPortStatus open(const std::string& name, LocalPortOptions options) {
        CFMessagePortContext context = {0, this, nullptr, nullptr, nullptr};
        CFStringRef portName = copyName(name);
        Boolean shouldFree = false;
        port_ = CFMessagePortCreateLocal(kCFAllocatorDefault, portName, &CFLocalMessagePort::received, &context,
                                         &shouldFree);
        CFRelease(portName);
        if (!port_) return LocalPortStatus::createFailed;
        if (options.exposeThroughRocketBootstrap && rocketbootstrap_cfmessageportexposelocal(port_) != 0) {
            return LocalPortStatus::exposeFailed;
        }
        source_ = CFMessagePortCreateRunLoopSource(kCFAllocatorDefault, port_, 0);
        if (!source_) return LocalPortStatus::createFailed;
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source_,
                           options.commonModes ? kCFRunLoopCommonModes : kCFRunLoopDefaultMode);
        return LocalPortStatus::open;
    }

private:
    // CFMessagePort's callback: the reply it returns is released by CoreFoundation.
    static CFDataRef received(CFMessagePortRef, SInt32 messageId, CFDataRef data, void* info) {
        auto* self = static_cast<CFLocalMessagePort*>(info);
        std::span<const std::uint8_t> payload;
        if (data) payload = {CFDataGetBytePtr(data), static_cast<size_t>(CFDataGetLength(data))};
        std::vector<std::uint8_t> reply = self->handler_(messageId, payload);
        if (reply.empty()) return nullptr;
        return CFDataCreate(kCFAllocatorDefault, reply.data(), static_cast<CFIndex>(reply.size()));
    }

    PortMessageHandler handler_;
    CFMessagePortRef port_ = nullptr;
    CFRunLoopSourceRef source_ = nullptr;
};

class CFRemoteMessagePort final : public RemoteMessagePort {
public:
    explicit CFRemoteMessagePort(CFMessagePortRef port) : port_(port) {}
    ~CFRemoteMessagePort() override { CFRelease(port_); }

    bool isValid() const override { return CFMessagePortIsValid(port_); }

    SendStatus sendRequest(std::int32_t messageId, std::span<const std::uint8_t> data, double sendTimeout,
                           double receiveTimeout, std::vector<std::uint8_t>* reply) override {
        CFDataRef payload = CFDataCreate(kCFAllocatorDefault, data.data(), static_cast<CFIndex>(data.size()));
        CFDataRef replyData = nullptr;
        // A reply mode makes the call wait until the peer has handled the message.
        SInt32 status = CFMessagePortSendRequest(port_, messageId, payload, sendTimeout, receiveTimeout,
                                                 kCFRunLoopDefaultMode, &replyData);
        if (payload) CFRelease(payload);
        if (replyData) {
            if (reply) {
                const UInt8* bytes = CFDataGetBytePtr(replyData);
                reply->assign(bytes, bytes + CFDataGetLength(replyData));
            }
            CFRelease(replyData);
        }
        return static_cast<SendStatus>(status);  // CFMessagePort's status values, one for one
    }

private:
    CFMessagePortRef port_;
};

}  // namespace

std::unique_ptr<LocalMessagePort> CFMessagePorts::createLocal(const std::string& name, PortMessageHandler handler) {
    return openLocal(name, std::move(handler), LocalPortOptions{});
}

std::unique_ptr<LocalMessagePort> CFMessagePorts::openLocal(const std::string& name, PortMessageHandler handler,
                                                            LocalPortOptions options, LocalPortStatus* status) {
    auto port = std::make_unique<CFLocalMessagePort>(std::move(handler));
    LocalPortStatus result = port->open(name, options);
    if (status) *status = result;
    if (result != LocalPortStatus::open) return nullptr;
    return port;
}

std::unique_ptr<RemoteMessagePort> CFMessagePorts::createRemote(const std::string& name) {
    CFStringRef portName = copyName(name);
    CFMessagePortRef port = rocketbootstrap_cfmessageportcreateremote(kCFAllocatorDefault, portName);
    CFRelease(portName);
    if (!port) return nullptr;
    return std::make_unique<CFRemoteMessagePort>(port);
}

}  // namespace tactora::ios
