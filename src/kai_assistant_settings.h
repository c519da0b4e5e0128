#ifndef KAI_ASSISTANT_SETTINGS_H
#define KAI_ASSISTANT_SETTINGS_H

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "cf/variant.h"

namespace kai {

/// An immutable value that copies of the settings share, so that copying the settings copies no large text. To change a
/// setting, give it another value.
template <class Value>
class Shared {
public:
    /// An empty value.
    Shared() noexcept = default;
    Shared(Value value) : m_value(std::make_shared<const Value>(std::move(value))) {}

    const Value& operator*() const noexcept { return m_value ? *m_value : obtainEmpty(); }
    const Value* operator->() const noexcept { return &**this; }

    /// Whether both refer to the same value in memory. This can be false for equal values.
    bool operator==(const Shared& other) const noexcept = default;

private:
    static const Value& obtainEmpty() noexcept {
        // Never destroyed: the destructors of a host's static objects may still use an assistant.
        union Storage {
            Storage() : value() {}
            ~Storage() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted
            Value value;
        };
        static const Storage storage;
        return storage.value;
    }

    std::shared_ptr<const Value> m_value;
};

using SharedText = Shared<std::string>;

/// All settings that the combined instructions are made from.
struct InstructionSources {
    SharedText userInstructions;
    /// Instruction texts by name; every value is a string.
    Shared<CMVariantMap> systemInstructions;
    /// JSON text, as the host gave it; empty or valid.
    SharedText databaseStructure;

    bool operator==(const InstructionSources& other) const noexcept = default;
};

/// The settings behind the properties, as the providers read them. Cheap to copy.
struct AssistantSettings : InstructionSources {
    /// The keys passed to setProperty, also with refused values, except those with Recording::Never.
    std::set<std::string, std::less<>> assignedKeys;
    std::string apiHost;
    std::string model;
    double temperature = 1.0;
    /// Of the assistant on the service; OpenAI assistants only.
    std::string name;
    std::string description;
};

}  // namespace kai

#endif
