// Assistants in threads of their own, and exchanges that are cancelled at any time.
//
//   kai_threads [--share PERCENT]
//
// Sixteen threads, each with an assistant, talk to the same servers at once, some of them streaming; then a thousand
// turns are cancelled at random moments, and each conversation goes on. Made to run under ThreadSanitizer.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "cf/assertion.h"
#include "cf/rest.h"
#include "good_service.h"
#include "host_at_work.h"
#include "request_rows.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kThreads = 16;

std::size_t s_share = 100;
std::atomic<std::size_t> s_failed{0};
std::mutex s_outputMutex;

/// When the exchanges of a thread are cancelled.
thread_local Clock::time_point t_cancelTime = Clock::time_point::max();

void complain(const std::string& text) {
    ++s_failed;
    const std::scoped_lock lock(s_outputMutex);
    std::cout << "FAILED " << text << '\n';
}

/// A service over TLS and one without, for the providers that need the one or the other.
struct Services {
    Services() {
        CMRestGlobalSettings settings;
        settings.caBundleFile = secure.obtainCAFile();
        settings.cancelled = [] { return Clock::now() >= t_cancelTime; };
        KAISetHTTPSettings(settings);
    }

    [[nodiscard]] std::string obtainHost(KAIAssistantType type) const {
        return type == KAIAssistantType::OLLAMA ? plain.obtainAuthority() : secure.obtainAuthority();
    }

    // One service for all threads. The OpenAI type is left out: its service keeps one thread of messages here.
    GoodService good;
    LoopbackServer secure{[this](const LoopbackRequest& request) { return good.answer(request); },
                          {.tls = LoopbackTLS::Valid, .isRecording = false}};
    LoopbackServer plain{[this](const LoopbackRequest& request) { return good.answer(request); },
                         {.isRecording = false}};
};

constexpr KAIAssistantType kChatTypes[] = {KAIAssistantType::DEEPSEEK, KAIAssistantType::GOOGLE,
                                           KAIAssistantType::OLLAMA};

void checkTurn(HostAtWork& host, HostStep step, const std::string& question) {
    const StepResult result = host.perform(step, question);
    if (!result.error.empty()) {
        complain(question + ": " + result.error);
    } else if (result.answer != GoodService::answerTo(question)) {
        complain(question + " was answered \"" + result.answer + "\"");
    }
}

void talk(const Services& services, std::size_t thread, std::size_t turns) {
    const KAIAssistantType type = kChatTypes[thread % std::size(kChatTypes)];
    for (std::size_t i = 0; i < turns; ++i) {
        HostAtWork host(type, services.obtainHost(type));
        host.prepare(HostStep::Say);
        for (std::size_t turn = 0; turn < 10; ++turn) {
            checkTurn(host, (thread + turn) % 3 == 0 ? HostStep::SayStreamed : HostStep::Say,
                      "thread " + std::to_string(thread) + " turn " + std::to_string(turn));
        }
    }
}

void cancelAtRandom(const Services& services, std::size_t thread, std::size_t cancels) {
    const KAIAssistantType type = kChatTypes[thread % std::size(kChatTypes)];
    std::minstd_rand random(static_cast<unsigned>(thread) + 1);
    HostAtWork host(type, services.obtainHost(type));
    host.prepare(HostStep::Say);
    for (std::size_t i = 0; i < cancels; ++i) {
        const std::string before = host.serialize();
        t_cancelTime = Clock::now() + std::chrono::microseconds(random() % 3000);
        const StepResult result = host.perform(i % 2 == 0 ? HostStep::Say : HostStep::SayStreamed, "cancelled");
        t_cancelTime = Clock::time_point::max();
        if (!result.error.empty() && host.serialize() != before) {
            complain("a cancelled turn changed the conversation");
        }
        checkTurn(host, HostStep::Say, "going on " + std::to_string(i));
        if (i % 20 == 19) {
            host.forgetSession();
            host.prepare(HostStep::Say);
        }
    }
}

template <class Function>
void runThreads(Function function) {
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([function, i] {
            try {
                function(i);
            } catch (const std::exception& exception) {
                complain(std::string("an exception: ") + exception.what());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

int main(int count, char** values) {
    if (count == 3 && std::string_view(values[1]) == "--share") {
        s_share = std::stoul(values[2]);
    } else if (count != 1) {
        std::cerr << "usage: kai_threads [--share PERCENT]\n";
        return 2;
    }
    cfSetAssertionHandler([](const char*, const char*, int) {});
    {
        const Services services;
        const std::size_t rounds = std::max<std::size_t>(1, 39 * s_share / 100);
        runThreads([&services, rounds](std::size_t thread) { talk(services, thread, rounds); });
        std::printf("%zu turns in %zu threads\n", kThreads * rounds * 10, kThreads);
        const std::size_t cancels = std::max<std::size_t>(1, 63 * s_share / 100);
        runThreads([&services, cancels](std::size_t thread) { cancelAtRandom(services, thread, cancels); });
        std::printf("%zu turns cancelled at random times\n", kThreads * cancels);
        KAISetHTTPSettings({});
    }
    std::printf("%zu failed\n", s_failed.load());
    return s_failed == 0 ? 0 : 1;
}
