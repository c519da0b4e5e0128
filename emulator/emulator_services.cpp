// The services that can be emulated, one row each. Nothing else in the emulator's core names a service.

#include <algorithm>
#include <array>

#include "emulator_service.h"

using MakeService = std::unique_ptr<KAIEmulatedService>(const KAIEmulatorOptions&);
MakeService makeDeepSeekService;
MakeService makeGoogleService;
MakeService makeOllamaService;
MakeService makeOpenAIService;

namespace {

constexpr auto kServices = std::to_array<KAIEmulatedServiceRow>({
    // name, plain HTTP by default, path prefix, factory
    {"deepseek", false, true, makeDeepSeekService},
    {"google", false, false, makeGoogleService},
    {"ollama", true, false, makeOllamaService},
    {"openai", false, false, makeOpenAIService},
});

}  // namespace

std::span<const KAIEmulatedServiceRow> listEmulatedServices() {
    return kServices;
}

const KAIEmulatedServiceRow* findEmulatedService(std::string_view name) {
    const auto* const found = std::ranges::find(kServices, name, &KAIEmulatedServiceRow::name);
    return found == kServices.end() ? nullptr : found;
}
