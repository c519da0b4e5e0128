#ifndef KAI_ASSISTANT_SETTINGS_H
#define KAI_ASSISTANT_SETTINGS_H

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "cf/variant.h"

namespace kai {

/// A value that copies of the settings share: it never changes, a setting gets another value instead. So copying the
/// settings copies no large text.
template <class Value>
class Shared {
public:
    /// An empty value.
    Shared() noexcept = default;
    Shared(Value value) : m_value(std::make_shared<const Value>(std::move(value))) {}

    const Value& operator*() const noexcept { return m_value ? *m_value : obtainEmpty(); }
    const Value* operator->() const noexcept { return &**this; }

    /// Whether both are one value in memory. Equal values may be two.
    bool operator==(const Shared& other) const noexcept = default;

private:
    static const Value& obtainEmpty() noexcept {
        // Never destroyed: a host may still use an assistant while its static objects are.
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

/// The settings that the combined instructions are made from, and from nothing else.
struct InstructionSources {
    SharedText userInstructions;
    /// Instruction texts by name; every value is a string.
    Shared<CMVariantMap> systemInstructions;
    /// JSON text, as the host gave it; empty or valid.
    SharedText databaseStructure;

    bool operator==(const InstructionSources& other) const noexcept = default;
};

/// The settings behind the properties, as the providers read them. Copied cheaply.
struct AssistantSettings : InstructionSources {
    /// Every key ever passed to setProperty, whatever came of it.
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
