#include "kai_emulator.h"

#include <algorithm>
#include <stdexcept>

#include "emulator_service.h"

namespace {

std::unique_ptr<KAIEmulatedService> makeService(const KAIEmulatorOptions& options) {
    const KAIEmulatedServiceRow* row = findEmulatedService(options.provider);
    if (row == nullptr) {
        throw std::runtime_error("there is no service \"" + options.provider + "\" to emulate");
    }
    return row->make(options);
}

}  // namespace

KAIEmulator::KAIEmulator(KAIEmulatorOptions options)
    : m_options(std::move(options)), m_service(makeService(m_options)) {
    m_script.setStream(m_options.stream);
    m_server = std::make_unique<LoopbackServer>(
        [this](const LoopbackRequest& request) { return answer(request); },
        LoopbackOptions{.tls = m_options.tls, .isRecording = m_options.isRecording, .port = m_options.port});
}

KAIEmulator::~KAIEmulator() = default;

std::string KAIEmulator::obtainHost() const {
    return m_server->obtainAuthority() + m_options.pathPrefix;
}

void KAIEmulator::setModels(std::vector<KAIEmulatedModel> models) {
    const std::scoped_lock lock(m_mutex);
    m_script.setModels(std::move(models));
}

void KAIEmulator::queueAnswer(KAIEmulatedAnswer answer) {
    const std::scoped_lock lock(m_mutex);
    m_script.queueAnswer(std::move(answer));
}

void KAIEmulator::answerWith(std::function<KAIEmulatedAnswer(const KAIEmulatedTurn&)> function) {
    const std::scoped_lock lock(m_mutex);
    m_script.answerWith(std::move(function));
}

void KAIEmulator::playScenario(KAIScenario scenario) {
    const std::scoped_lock lock(m_mutex);
    m_script.playScenario(std::move(scenario));
}

void KAIEmulator::intercept(KAIInterception interception) {
    const std::scoped_lock lock(m_mutex);
    m_interceptions.push_back(std::move(interception));
}

std::vector<std::string> KAIEmulator::listLeft() const {
    const std::scoped_lock lock(m_mutex);
    return m_service->listLeft();
}

void KAIEmulator::observe(std::function<void(const LoopbackRequest&, int)> observer) {
    const std::scoped_lock lock(m_mutex);
    m_observer = std::move(observer);
}

std::optional<KAIInterception> KAIEmulator::takeInterception(const LoopbackRequest& request) {
    const auto found = std::ranges::find_if(m_interceptions, [&](const KAIInterception& each) {
        return (each.method.empty() || each.method == request.method) &&
               request.path.find(each.pathPart) != std::string::npos;
    });
    if (found == m_interceptions.end()) {
        return std::nullopt;
    }
    KAIInterception taken = *found;
    if (found->times != 0 && --found->times == 0) {
        m_interceptions.erase(found);
    }
    return taken;
}

LoopbackReply KAIEmulator::makeReply(const LoopbackRequest& request) {
    const auto interception = takeInterception(request);
    LoopbackReply reply =
        interception && interception->reply ? *interception->reply : m_service->answer(request, m_script);
    if (interception && interception->change) {
        interception->change(reply);
    }
    return reply;
}

LoopbackReply KAIEmulator::answer(const LoopbackRequest& request) {
    const std::scoped_lock lock(m_mutex);
    LoopbackReply reply = makeReply(request);
    if (m_observer) {
        m_observer(request, reply.raw ? 0 : reply.status);
    }
    return reply;
}
