#ifndef KAI_MESSAGE_H
#define KAI_MESSAGE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kai.h"

/// Who speaks in a message.
enum KAIRole : std::int32_t { KAI_ROLE_USER = 0, KAI_ROLE_ASSISTANT = 1 };

/// A section with a text, the only kind of section.
class KAIMessageTextSection : public IKAIMessageSection {
public:
    explicit KAIMessageTextSection(std::string text);

    std::int32_t obtainType() override;
    std::string_view obtainText() override;

private:
    std::string m_text;
};

/// A message with its sections. A new one has the assistant's role, an unknown time and no sections.
class KAIMessage final : public IKAIMessage {
public:
    KAIMessage() = default;
    KAIMessage(std::int32_t role, std::int64_t time);
    ~KAIMessage() override;
    KAIMessage(const KAIMessage&) = delete;
    KAIMessage& operator=(const KAIMessage&) = delete;

    std::int64_t obtainTime() override { return m_time; }
    std::int32_t obtainRole() override { return m_role; }
    std::vector<IKAIMessageSection*>& obtainSections() override { return m_sections; }

    void setTime(std::int64_t time) noexcept { m_time = time; }
    void addTextSection(std::string text);

private:
    std::string m_referenceText;
    std::int64_t m_time = 0;
    std::int32_t m_role = KAI_ROLE_ASSISTANT;
    std::vector<IKAIMessageSection*> m_sections;
};

namespace kai {

/// A message of one text section.
std::unique_ptr<KAIMessage> createTextMessage(std::int32_t role, std::int64_t time, std::string text);

/// The text of the first section, valid as long as the section. Throws std::out_of_range ("invalid vector subscript")
/// if there is none.
std::string_view obtainFirstText(IKAIMessage& message);

/// The current time in whole seconds since the Unix epoch.
std::int64_t obtainCurrentTime();

}  // namespace kai

#endif
