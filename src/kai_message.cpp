#include "kai_message.h"

#include <chrono>
#include <stdexcept>
#include <utility>

KAIMessageTextSection::KAIMessageTextSection(std::string text) : m_text(std::move(text)) {}

std::int32_t KAIMessageTextSection::obtainType() {
    return 0;
}

std::string_view KAIMessageTextSection::obtainText() {
    return m_text;
}

KAIMessage::KAIMessage(std::int32_t role, std::int64_t time) : m_time(time), m_role(role) {}

KAIMessage::~KAIMessage() {
    for (IKAIMessageSection* section : m_sections) {
        delete section;
    }
}

void KAIMessage::addTextSection(std::string text) {
    auto section = std::make_unique<KAIMessageTextSection>(std::move(text));
    m_sections.push_back(section.get());
    section.release();
}

namespace kai {

std::unique_ptr<KAIMessage> createTextMessage(std::int32_t role, std::int64_t time, std::string text) {
    auto message = std::make_unique<KAIMessage>(role, time);
    message->addTextSection(std::move(text));
    return message;
}

std::string_view obtainFirstText(IKAIMessage& message) {
    const std::vector<IKAIMessageSection*>& sections = message.obtainSections();
    if (sections.empty()) {
        throw std::out_of_range("invalid vector subscript");
    }
    return sections.front()->obtainText();
}

std::int64_t obtainCurrentTime() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace kai
