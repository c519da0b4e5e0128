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

std::vector<IKAIMessageSection*>& KAIMessage::obtainSections() {
    if (m_onlyText) {
        m_sections.reserve(1);
        m_sections.push_back(new KAIMessageTextSection(std::move(*m_onlyText)));
        m_onlyText.reset();
    }
    return m_sections;
}

void KAIMessage::addTextSection(std::string text) {
    if (m_sections.empty() && !m_onlyText) {
        m_onlyText = std::move(text);
        return;
    }
    std::vector<IKAIMessageSection*>& sections = obtainSections();
    auto section = std::make_unique<KAIMessageTextSection>(std::move(text));
    sections.push_back(section.get());
    section.release();
}

std::string_view KAIMessage::readFirstSection() const {
    if (m_sections.empty()) {
        throw std::out_of_range("invalid vector subscript");
    }
    return m_sections.front()->obtainText();
}

std::int64_t obtainCurrentTime() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}
