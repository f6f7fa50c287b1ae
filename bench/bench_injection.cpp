// What a synthetic touch costs the script that sends it.
//   BM_BareSocketPingPong: 32 bytes out and 4 back over a Unix socket pair to an echo thread, the
//   least any request/reply over a socket can cost. The other benchmarks report their time per
//   message as a multiple of it ("x_bare").
//   BM_HostPortMessage: one 24-byte request through the host message ports, handled on a main
//   loop in another thread.
//   BM_InjectionRoundTripThread: EventSimulate touchMove + syncEvent (two messages) against the
//   receiver on a main loop in another thread, dispatching into a trace on /dev/null.
//   BM_InjectionRoundTripProcess: the same against `tactora receiver` in another process (the
//   tool is looked for beside this program).
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include "Kernel/EventSimulate.h"
#include "Kernel/TouchInjector.h"
#include "Platform/HIDDispatch.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "host/DeviceProfiles.h"
#include "host/MainLoop.h"
#include "host/ReceiverProcess.h"
#include "host/TraceHIDDispatch.h"
#include "host/UnixMessagePorts.h"

using namespace tactora;
using Steady = std::chrono::steady_clock;

namespace {

bool readFully(int fd, void* data, std::size_t size) {
    auto* bytes = static_cast<std::uint8_t*>(data);
    while (size > 0) {
        ssize_t got = ::read(fd, bytes, size);
        if (got <= 0) return false;
        bytes += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

// A socket pair with an echo thread on the far end.
class PingPong {
public:
    PingPong() {
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds_);
        echo_ = std::thread([fd = fds_[1]] {
            std::uint8_t request[32];
            std::uint8_t reply[4] = {};
            while (readFully(fd, request, sizeof request))
                if (::write(fd, reply, sizeof reply) != sizeof reply) break;
        });
    }
    ~PingPong() {
        ::shutdown(fds_[0], SHUT_RDWR);
        echo_.join();
        ::close(fds_[0]);
        ::close(fds_[1]);
    }
    void roundTrip() {
        std::uint8_t request[32] = {2};
        std::uint8_t reply[4];
        if (::write(fds_[0], request, sizeof request) != sizeof request || !readFully(fds_[0], reply, sizeof reply))
            std::abort();
    }

private:
    int fds_[2];
    std::thread echo_;
};

// Seconds per bare round trip on this machine now: the median of several batches.
double bareRoundTripSeconds() {
    static const double seconds = [] {
        PingPong pair;
        std::vector<double> batches;
        for (int batch = 0; batch < 7; ++batch) {
            auto start = Steady::now();
            for (int i = 0; i < 2000; ++i) pair.roundTrip();
            batches.push_back(std::chrono::duration<double>(Steady::now() - start).count() / 2000);
        }
        std::sort(batches.begin(), batches.end());
        return batches[batches.size() / 2];
    }();
    return seconds;
}

// Messages per second, and the time per message over the bare round trip's.
void reportAgainstBare(benchmark::State& state, double messagesPerIteration, Steady::time_point start) {
    double messages = static_cast<double>(state.iterations()) * messagesPerIteration;
    double perMessage = std::chrono::duration<double>(Steady::now() - start).count() / std::max(messages, 1.0);
    state.SetItemsProcessed(static_cast<std::int64_t>(messages));
    state.counters["x_bare"] = perMessage / bareRoundTripSeconds();
}

// A main loop on its own thread.
struct LoopThread {
    LoopThread() : thread([this] { loop.run(); }) {}
    ~LoopThread() {
        loop.quit();
        thread.join();
    }
    host::MainLoop loop;
    std::thread thread;
};

struct BenchRoot {
    BenchRoot() {
        std::string pattern = (std::filesystem::temp_directory_path() / "tactora-bench-inject-XXXXXX").string();
        path = ::mkdtemp(pattern.data()) ? pattern : std::string();
    }
    ~BenchRoot() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string path;
};

void BM_BareSocketPingPong(benchmark::State& state) {
    PingPong pair;
    bareRoundTripSeconds();
    auto start = Steady::now();
    for (auto _ : state) pair.roundTrip();
    reportAgainstBare(state, 1, start);
}
BENCHMARK(BM_BareSocketPingPong)->UseRealTime();

void BM_HostPortMessage(benchmark::State& state) {
    BenchRoot root;
    LoopThread main;
    host::UnixMessagePorts ports(root.path, &main.loop);
    auto local = ports.createLocal("bench", [](std::int32_t, std::span<const std::uint8_t>) {
        return std::vector<std::uint8_t>{};
    });
    auto remote = ports.createRemote("bench");
    if (!local || !remote) {
        state.SkipWithError("cannot open the port");
        return;
    }
    std::uint8_t record[24] = {};
    std::vector<std::uint8_t> reply;
    bareRoundTripSeconds();
    auto start = Steady::now();
    for (auto _ : state)
        if (remote->sendRequest(2, record, 1.0, 1.0, &reply) != SendStatus::success) {
            state.SkipWithError("send failed");
            break;
        }
    reportAgainstBare(state, 1, start);
}
BENCHMARK(BM_HostPortMessage)->UseRealTime();

void runTouches(benchmark::State& state) {
    EventSimulate::resetConnection();
    std::int32_t x = 0;
    bareRoundTripSeconds();
    auto start = Steady::now();
    for (auto _ : state) {
        EventSimulate::touchMove(1, x, 100);
        if (EventSimulate::syncEvent() != 0) {
            state.SkipWithError("the receiver is not reachable");
            break;
        }
        x = (x + 1) % 320;
    }
    reportAgainstBare(state, 2, start);
    EventSimulate::resetConnection();
}

void BM_InjectionRoundTripThread(benchmark::State& state) {
    BenchRoot root;
    LoopThread main;
    host::UnixMessagePorts ports(root.path, &main.loop);
    host::TraceHIDDispatch hid(*host::findDeviceProfile("iphone-se"), "/dev/null");
    ScopedPlatform scope;
    platform().messagePorts = &ports;
    platform().hidDispatch = &hid;
    TouchInjector injector;
    auto port = startInjectionReceiver(injector);
    if (!port) {
        state.SkipWithError("cannot open the injection port");
        return;
    }
    runTouches(state);
}
BENCHMARK(BM_InjectionRoundTripThread)->UseRealTime();

void BM_InjectionRoundTripProcess(benchmark::State& state) {
    std::error_code error;
    auto tool = std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "tactora";
    if (error || !std::filesystem::exists(tool)) {
        state.SkipWithError("the tactora tool is not beside this program");
        return;
    }
    BenchRoot root;
    std::string why;
    auto receiver = host::ensureReceiver(root.path, "iphone-se", "/dev/null", why, {tool.string()});
    if (!receiver) {
        state.SkipWithError(why.c_str());
        return;
    }
    host::UnixMessagePorts ports(root.path, nullptr);
    ScopedPlatform scope;
    platform().messagePorts = &ports;
    runTouches(state);
}
BENCHMARK(BM_InjectionRoundTripProcess)->UseRealTime();

}  // namespace
