#include "cf/json.h"

#include "json_access.h"
#include "json_reader.h"

/// What a document owns: the tape of a text, or a built tree.
struct COJson::Document {
    ParsedDocument parsed;
    JsonTree built;
    COJsonValue root;
};

ICOJsonValue::~ICOJsonValue() = default;

std::string ICOJsonValue::obtainJsonString() const {
    std::string text;
    COJsonWriter writer(text);
    writeJson(writer);
    writer.finish();
    return text;
}

COJson::COJson() : m_document(std::make_unique<Document>()) {
    m_document->root = COJsonAccess::make<COJsonValue>(&m_document->built.addRoot());
    m_document->root.setObject();
}

COJson::COJson(std::string_view text) : m_document(std::make_unique<Document>()) {
    if (readJson(text, m_document->parsed)) {
        m_document->root = COJsonAccess::make<COJsonValue>(TapePlace(m_document->parsed));
    } else {
        m_document.reset();
    }
}

COJson::~COJson() = default;
COJson::COJson(COJson&& other) noexcept = default;
COJson& COJson::operator=(COJson&& other) noexcept = default;

bool COJson::getIsValidJson() const noexcept {
    return m_document != nullptr;
}

COJsonValue COJson::obtainRoot() const noexcept {
    return m_document != nullptr ? m_document->root : COJsonValue();
}

void COJson::writeJson(COJsonWriter& writer) const {
    obtainRoot().writeJson(writer);
}
