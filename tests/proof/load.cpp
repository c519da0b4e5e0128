// What stays flat while a host goes on and on: connections, descriptors, resident memory.
//
//   kai_load [--share PERCENT]
//
// Prints a line of figures for each load. A load fails where a turn fails, or where one of the figures grows.

#include <atomic>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cf/assertion.h"
#include "cf/rest.h"
#include "good_service.h"
#include "host_at_work.h"
#include "process_figures.h"
#include "request_rows.h"

namespace {

std::size_t s_share = 100;
std::size_t s_failed = 0;

std::size_t scale(std::size_t count) {
    return std::max<std::size_t>(2, count * s_share / 100);
}

struct Service {
    explicit Service(LoopbackTLS tls)
        : server([this](const LoopbackRequest& request) { return good.answer(request); },
                 {.tls = tls, .isRecording = false}) {
        CMRestGlobalSettings settings;
        settings.caBundleFile = server.obtainCAFile();
        KAISetHTTPSettings(settings);
    }
    GoodService good;
    LoopbackServer server;
};

struct Figures {
    std::size_t descriptors = countDescriptors();
    std::size_t memory = measureResidentMemory();
};

/// One turn; counts what goes wrong.
void turn(HostAtWork& host, std::size_t number) {
    const std::string question = "question " + std::to_string(number);
    const StepResult result = host.perform(HostStep::Say, question);
    if (!result.error.empty() || result.answer != GoodService::answerTo(question)) {
        ++s_failed;
        std::cout << "FAILED turn " << number << ": " << result.error << result.answer << '\n';
    }
}

/// @param allowedGrowth  of the resident memory, in bytes
void report(const char* name, std::size_t turns, std::size_t connections, std::size_t allowedConnections,
            const Figures& warm, std::size_t allowedGrowth) {
    const Figures now;
    const auto growth = static_cast<std::ptrdiff_t>(now.memory - warm.memory);
    const bool isFlat = now.descriptors <= warm.descriptors && connections <= allowedConnections &&
                        growth <= static_cast<std::ptrdiff_t>(allowedGrowth);
    s_failed += isFlat ? 0 : 1;
    std::printf("%s%s: %zu turns, %zu connections, descriptors %+td, resident memory %+td KiB\n",
                isFlat ? "" : "FAILED ", name, turns, connections,
                static_cast<std::ptrdiff_t>(now.descriptors - warm.descriptors), growth / 1024);
}

constexpr std::size_t kMegabyte = std::size_t{1} << 20U;

/// Turns of new sessions on one assistant.
void runManyTurns(KAIAssistantType type) {
    Service service(obtainTLSOf(type));
    HostAtWork host(type, service.server.obtainAuthority());
    host.prepare(HostStep::Say);
    const std::size_t turns = scale(10'000);
    Figures warm;
    for (std::size_t i = 0; i < turns; ++i) {
        if (i % 10 == 0) {
            host.forgetSession();
            host.prepare(HostStep::Say);
        }
        turn(host, i);
        if (i == turns / 10) {
            warm = Figures();
        }
    }
    report("10,000 turns on one assistant", turns, service.server.countConnections(), 1, warm, 2 * kMegabyte);
}

/// One conversation that grows.
void runGrowingHistory() {
    Service service(LoopbackTLS::Valid);
    HostAtWork host(KAIAssistantType::DEEPSEEK, service.server.obtainAuthority());
    host.prepare(HostStep::Say);
    const std::size_t turns = scale(2'000);
    turn(host, 0);
    const Figures warm;
    for (std::size_t i = 1; i < turns; ++i) {
        turn(host, i);
    }
    report("2,000 turns with a growing history", turns, service.server.countConnections(), 1, warm, 8 * kMegabyte);
}

/// Many assistants at once, each with a connection of its own.
void runManyAssistants() {
    Service service(LoopbackTLS::Valid);
    const std::size_t count = scale(200);
    const auto runRound = [&service, count] {
        std::vector<std::unique_ptr<HostAtWork>> hosts;
        for (std::size_t i = 0; i < count; ++i) {
            hosts.push_back(std::make_unique<HostAtWork>(KAIAssistantType::GOOGLE, service.server.obtainAuthority()));
            hosts.back()->prepare(HostStep::Say);
        }
        for (std::size_t round = 0; round < 3; ++round) {
            for (std::size_t i = 0; i < count; ++i) {
                turn(*hosts[i], i);
            }
        }
    };
    // The server's threads are in this process too: the heap needs some rounds until it is as large as it will be.
    for (int round = 0; round < 4; ++round) {
        runRound();
        if (!service.server.waitForOpenConnections(0)) {
            ++s_failed;
            std::cout << "FAILED: connections of freed assistants stay open\n";
        }
    }
    const Figures warm;
    runRound();
    static_cast<void>(service.server.waitForOpenConnections(0));
    report("200 assistants at once, five times", 15 * count, service.server.countConnections(), 5 * count, warm,
           2 * kMegabyte);
}

/// A server that closes the connection between any two turns.
void runClosingServer() {
    Service service(LoopbackTLS::Valid);
    HostAtWork host(KAIAssistantType::DEEPSEEK, service.server.obtainAuthority());
    host.prepare(HostStep::Say);
    const std::size_t turns = scale(500);
    Figures warm;
    for (std::size_t i = 0; i < turns; ++i) {
        host.forgetSession();
        host.prepare(HostStep::Say);
        turn(host, i);
        service.server.closeConnections();
        s_failed += service.server.waitForOpenConnections(0) ? 0 : 1;
        if (i == turns / 10) {
            warm = Figures();
        }
    }
    report("500 turns, the server closing after each", turns, service.server.countConnections(), turns, warm,
           2 * kMegabyte);
}

/// Save, free, create, restore, go on.
void runRestarts() {
    Service service(LoopbackTLS::Off);
    const std::size_t turns = scale(500);
    Figures warm;
    for (std::size_t i = 0; i < turns; ++i) {
        HostAtWork host(KAIAssistantType::OLLAMA, service.server.obtainAuthority());
        host.prepare(HostStep::Say);
        turn(host, i);
        HostAtWork next(KAIAssistantType::OLLAMA, service.server.obtainAuthority());
        next.restore(host.serialize());
        turn(next, i);
        if (i == turns / 10) {
            warm = Figures();
        }
    }
    s_failed += service.server.waitForOpenConnections(0) ? 0 : 1;
    report("500 restarts", 2 * turns, service.server.countConnections(), 2 * turns, warm, 2 * kMegabyte);
}

/// Replies that take some hundred megabytes to parse, between others.
void runLargeReplies() {
    const std::string head = R"({"message":{"role":"assistant","content":"fine"},"done":true,"more":[1)";
    std::string numbers;
    for (std::size_t i = 0; i < 4 * kMegabyte; ++i) {
        numbers += ",1";
    }
    std::atomic<bool> isLarge = false;
    const LoopbackServer server(
        [&](const LoopbackRequest&) { return LoopbackReply{.body = head + (isLarge ? numbers : "") + "]}"}; },
        {.isRecording = false});
    KAISetHTTPSettings({});
    HostAtWork host(KAIAssistantType::OLLAMA, server.obtainAuthority());
    host.prepare(HostStep::Say);
    const std::size_t turns = scale(40);
    Figures warm;
    for (std::size_t i = 0; i < turns; ++i) {
        isLarge = i % 2 == 1;
        s_failed += host.perform(HostStep::Say).error.empty() ? 0 : 1;
        if (i == 0) {
            warm = Figures();
        }
    }
    report("40 turns, every second with a large reply", turns, server.countConnections(), 1, warm, 32 * kMegabyte);
}

}  // namespace

int main(int count, char** values) {
    if (count == 3 && std::string_view(values[1]) == "--share") {
        s_share = std::stoul(values[2]);
    } else if (count != 1) {
        std::cerr << "usage: kai_load [--share PERCENT]\n";
        return 2;
    }
    cfSetAssertionHandler([](const char*, const char*, int) {});
    runManyTurns(KAIAssistantType::DEEPSEEK);
    runManyTurns(KAIAssistantType::OPENAI);
    runGrowingHistory();
    runManyAssistants();
    runClosingServer();
    runRestarts();
    runLargeReplies();
    return s_failed == 0 ? 0 : 1;
}
