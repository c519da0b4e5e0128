#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "kai.h"

// A host that loads the library at run time, as a plug-in does, gives it functions of its own and unloads it. Ends with
// 0 when nothing of what the functions hold is left behind.
//
//   kai_unload_program LIBRARY

namespace {

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "%s\n", what);
        std::exit(EXIT_FAILURE);
    }
}

void* load(const char* library, int flags) {
    return dlopen(library, RTLD_NOW | RTLD_LOCAL | flags);
}

template <class Function>
Function find(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

void translate(const char* /*eventName*/, void* /*data*/) {}

/// Loads the library, hands it functions that hold `held`, runs an exchange with them and unloads it.
void useOnce(const char* path, const std::shared_ptr<int>& held) {
    void* const library = load(path, 0);
    require(library != nullptr, "the library cannot be loaded");
    const auto setSettings =
        find<decltype(&KAISetHTTPSettings)>(library, "_Z18KAISetHTTPSettingsRK20CMRestGlobalSettings");
    const auto setCallback = find<decltype(&KAIRegisterCallback)>(library, "_Z19KAIRegisterCallbackPFvPKcPvE");
    const auto create = find<decltype(&KAICreateAssistant)>(library,
                                                            "_Z18KAICreateAssistant16KAIAssistantTypeP17ICSHTTPPoolCent"
                                                            "erRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcE"
                                                            "EES9_");
    const auto free = find<decltype(&KAIFreeObject)>(library, "_Z13KAIFreeObjectP10IKAIObject");
    require(setSettings && setCallback && create && free, "an entry point is missing");
    CMRestGlobalSettings settings;
    settings.cancelled = [held] { return *held == 0; };
    settings.trace = [held](const CMRestTraceRecord&) { ++*held; };
    setSettings(settings);
    setCallback(translate);
    IKAIAssistant* const assistant = create(KAIAssistantType::OLLAMA, cfCreateHTTPPoolCenter(), "", "");
    require(!assistant->obtainAvailableModels().second.empty(), "the exchange was not cancelled");
    free(assistant);
    dlclose(library);
}

}  // namespace

int main(int argc, char** argv) {
    require(argc == 2, "usage: kai_unload_program LIBRARY");
    for (int round = 0; round < 2; ++round) {
        const auto held = std::make_shared<int>(0);
        useOnce(argv[1], held);
        require(load(argv[1], RTLD_NOLOAD) == nullptr, "the library is still loaded");
        require(*held == 1, "the exchange was not traced");
        require(held.use_count() == 1, "a function of the host was left behind");
    }
}
