#ifndef KAI_MESSAGE_H
#define KAI_MESSAGE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kai.h"

/// Who speaks in a message.
enum KAIRole : std::int32_t { KAI_ROLE_USER = 0, KAI_ROLE_ASSISTANT = 1 };

/// A section that holds a text, the only kind there is.
class KAIMessageTextSection : public IKAIMessageSection {
public:
    explicit KAIMessageTextSection(std::string text);

    std::int32_t obtainType() override;
    std::string_view obtainText() override;

private:
    std::string m_text;
};

/// A message with its sections. A new one speaks for the assistant, at no known time, and has no section yet.
class KAIMessage final : public IKAIMessage {
public:
    KAIMessage() = default;
    KAIMessage(std::int32_t role, std::int64_t time);
    /// A message of one text section.
    KAIMessage(std::int32_t role, std::int64_t time, std::string&& text)
        : m_time(time), m_role(role), m_onlyText(std::move(text)) {}
    ~KAIMessage() override;
    KAIMessage(const KAIMessage&) = delete;
    KAIMessage& operator=(const KAIMessage&) = delete;

    std::int64_t obtainTime() override { return m_time; }
    std::int32_t obtainRole() override { return m_role; }
    std::vector<IKAIMessageSection*>& obtainSections() override;

    void setTime(std::int64_t time) noexcept { m_time = time; }
    void addTextSection(std::string text);

    /// The text of the first section, valid until sections are asked for or added. Throws std::out_of_range ("invalid
    /// vector subscript") when there is none.
    [[nodiscard]] std::string_view obtainFirstText() const { return m_onlyText ? *m_onlyText : readFirstSection(); }

private:
    [[nodiscard]] std::string_view readFirstSection() const;

    std::string m_referenceText;
    std::int64_t m_time = 0;
    std::int32_t m_role = KAI_ROLE_ASSISTANT;
    // The text of the only section while nobody has asked for the sections. The messages of a history are never asked:
    // a section object for each would cost two more allocations a message.
    std::optional<std::string> m_onlyText;
    std::vector<IKAIMessageSection*> m_sections;
};

inline std::unique_ptr<KAIMessage> createTextMessage(std::int32_t role, std::int64_t time, std::string text) {
    return std::make_unique<KAIMessage>(role, time, std::move(text));
}

inline std::string_view obtainFirstText(const KAIMessage& message) {
    return message.obtainFirstText();
}

/// The current time in whole seconds since the Unix epoch.
std::int64_t obtainCurrentTime();

#endif
